// The entry guard: the one place where public functions test their context and where error exits
// land.
#ifndef KVJPX_FRAME_GUARD_H_
#define KVJPX_FRAME_GUARD_H_

#include <type_traits>

#include "frame/context.h"

namespace kvjpx {

// Keeps what the caller may ask about a call that failed. Returns its code.
inline int32_t note_failure(Context& context, int32_t code) {
  if (code != JPX_OK) {
    context.failed_with = code;
    context.failed_at = context.at;
  }
  return code;
}

// Runs body(context) and returns its code, or the code of the error exit that ended it. The body
// works through unguarded functions only: a second guard on the same context would take the jump
// target away from the first.
//
// _setjmp leaves the signal mask alone, which spares a system call a call on Android; longjmp
// undoes either form.
template <class Body>
int32_t guarded(Context* context, const Body& body) {
  static_assert(std::is_trivially_destructible_v<Body>, "an error exit would skip its destructor");
  if (context == nullptr || context->magic != kContextMagic) return JPX_ERR_BAD_CONTEXT;
  if (is_spent(&context->environment)) forget_input(*context);
  context->at = kNoTrouble;
  const int code = _setjmp(context->environment.jump);
  if (code != 0) {
    forget_input(*context);
    return note_failure(*context, code);
  }
  return note_failure(*context, body(*context));
}

// The same for functions that need a loaded file.
template <class Body>
int32_t guarded_with_input(Context* context, const Body& body) {
  return guarded(context, [&body](Context& live) -> int32_t {
    return live.root == nullptr ? JPX_ERR_NO_INPUT : body(live);
  });
}

}  // namespace kvjpx

#endif  // KVJPX_FRAME_GUARD_H_
