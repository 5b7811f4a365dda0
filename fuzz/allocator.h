// The allocator that fuzzed contexts work with: it counts what is live and fails where the input
// says.
#ifndef KVJPX_FUZZ_ALLOCATOR_H_
#define KVJPX_FUZZ_ALLOCATOR_H_

#include <cstddef>

namespace kvjpx::fuzz {

class Allocator {
 public:
  // The n-th allocation (the first is 1) fails, it alone; 0 lets none fail.
  explicit Allocator(size_t failing = 0) : until_failure_(failing) {}
  Allocator(const Allocator&) = delete;
  Allocator& operator=(const Allocator&) = delete;

  // The two callbacks; user_data is the Allocator. New blocks are filled, so that reliance on
  // zeroed memory shows; what is released twice or not at all, the address sanitizer and
  // live_blocks tell.
  static void* allocate(void* user_data, size_t size);
  static void release(void* user_data, void* block);

  // Larger blocks are refused: a decoded picture's size is the header's claim.
  void set_largest_block(size_t size) { largest_block_ = size; }

  bool has_failed() const { return has_failed_; }
  size_t live_blocks() const { return live_blocks_; }
  size_t peak_bytes() const { return peak_bytes_; }

 private:
  size_t until_failure_;
  size_t largest_block_ = size_t{64} << 20;
  bool has_failed_ = false;
  size_t live_blocks_ = 0;
  size_t live_bytes_ = 0;
  size_t peak_bytes_ = 0;
};

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_ALLOCATOR_H_
