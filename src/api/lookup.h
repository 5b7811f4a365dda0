// Finding boxes for the public functions, without an entry guard of its own.
#ifndef KVJPX_API_LOOKUP_H_
#define KVJPX_API_LOOKUP_H_

#include "box/super.h"
#include "frame/guard.h"

namespace kvjpx {

// Null for an unknown identifier. Callers walk trees step by step, so the search tries the
// neighbours of the box found last before it goes through the tree.
Box* find_box(Context& context, uint32_t id);

// Runs body(context, box) on the box with the identifier; 3 when there is none.
template <class Body>
int32_t guarded_with_box(Context* context, uint32_t id, const Body& body) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    Box* const box = find_box(live, id);
    return box == nullptr ? JPX_ERR_INVALID_ARGUMENT : body(live, box);
  });
}

}  // namespace kvjpx

#endif  // KVJPX_API_LOOKUP_H_
