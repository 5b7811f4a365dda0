// Where exceptions end: `guarded` turns each into a code and the handle's error text.
#ifndef KVJ2K_GUARDED_H_
#define KVJ2K_GUARDED_H_

#include <cstdint>
#include <new>
#include <stdexcept>

#include "failure.h"
#include "session.h"

namespace kvj2k {

inline Session& session_of(void* codec) { return *static_cast<Session*>(codec); }

inline int32_t fail(Session& session, kv_j2k_error code, const char* text) noexcept {
  try {
    session.error_text = text;
  } catch (const std::exception&) {
    session.error_text.clear();
  }
  return code;
}

// Runs `body` on the session of a handle.
template <typename Body>
int32_t guarded(void* codec, Body body) noexcept {
  if (codec == nullptr) return KV_J2K_ERR_BAD_HANDLE;
  Session& session = session_of(codec);
  session.error_text.clear();
  try {
    body(session);
    return KV_J2K_OK;
  } catch (const Failure& failure) {
    return fail(session, failure.code(), failure.what());
  } catch (const std::bad_alloc&) {
    return fail(session, KV_J2K_ERR_MEMORY, "memory is short");
  } catch (const std::length_error&) {
    return fail(session, KV_J2K_ERR_MEMORY, "memory is short");
  } catch (const std::exception& exception) {
    return fail(session, KV_J2K_ERR_INTERNAL, exception.what());
  }
}

}  // namespace kvj2k

#endif  // KVJ2K_GUARDED_H_
