// The limits on the work that a codestream may ask for.
#ifndef KVJ2K_WORK_LIMITS_H_
#define KVJ2K_WORK_LIMITS_H_

#include <cstddef>
#include <cstdint>

namespace kvj2k {

// Work, counted in samples: the unit is a byte of memory or two, and some 10 ns for the wavelet
// transformation and the delivery. A double can't overflow, and absurd headers reach 2^80.
using Cost = double;

struct Limits {
  static constexpr uint64_t kMax = uint64_t{1} << 29;
  static constexpr uint64_t kMaxPerByte = 4096;
  static constexpr uint64_t kFree = uint64_t{1} << 27;

  uint64_t max = kMax;
  uint64_t max_per_byte = kMaxPerByte;
  uint64_t free = kFree;

  // Throws unless a codestream of `length` bytes may cost that much.
  void check(Cost cost, size_t length) const;
};

}  // namespace kvj2k

#endif  // KVJ2K_WORK_LIMITS_H_
