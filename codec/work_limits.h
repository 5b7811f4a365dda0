// The limits on the work that a codestream may ask for.
#ifndef KVJ2K_WORK_LIMITS_H_
#define KVJ2K_WORK_LIMITS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "failure.h"

namespace kvj2k {

// Work, counted in samples. A double can't overflow, and absurd headers reach 2^80.
using Cost = double;

struct Limits {
  static constexpr uint64_t kMax = uint64_t{1} << 28;
  static constexpr uint64_t kMaxPerByte = 4096;
  static constexpr uint64_t kFree = uint64_t{1} << 25;

  uint64_t max = kMax;
  uint64_t max_per_byte = kMaxPerByte;
  uint64_t free = kFree;

  // Throws unless a codestream of `length` bytes may cost that much.
  void check(Cost cost, size_t length) const {
    const Cost by_length = static_cast<Cost>(max_per_byte) * static_cast<Cost>(length);
    const Cost allowed =
        std::min(static_cast<Cost>(max), std::max(static_cast<Cost>(free), by_length));
    if (cost > allowed) {
      throw Failure(KV_J2K_ERR_LIMIT, "the codestream asks for more work than its size allows");
    }
  }
};

}  // namespace kvj2k

#endif  // KVJ2K_WORK_LIMITS_H_
