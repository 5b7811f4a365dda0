// How the codec fails inside: an exception with the code that the exported function returns.
#ifndef KVJ2K_FAILURE_H_
#define KVJ2K_FAILURE_H_

#include <stdexcept>
#include <string>

#include "kv_j2k.h"

namespace kvj2k {

class Failure : public std::runtime_error {
 public:
  Failure(kv_j2k_error code, const std::string& text) : std::runtime_error(text), code_(code) {}
  kv_j2k_error code() const { return code_; }

 private:
  kv_j2k_error code_;
};

}  // namespace kvj2k

#endif  // KVJ2K_FAILURE_H_
