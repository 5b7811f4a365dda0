// The allocator that contexts under test and fuzzed ones work with: it counts what is live and
// fails where it is told to.
#ifndef KVJPX_FUZZ_ALLOCATOR_H_
#define KVJPX_FUZZ_ALLOCATOR_H_

#include <cstddef>
#include <vector>

namespace kvjpx::fuzz {

class Allocator {
 public:
  // The n-th allocation (the first is 1) fails, it alone; 0 lets none fail.
  explicit Allocator(size_t failing = 0) : until_failure_(failing) {}
  Allocator(const Allocator&) = delete;
  Allocator& operator=(const Allocator&) = delete;
  ~Allocator();

  // The two callbacks; user_data is the Allocator. New blocks are filled, so that reliance on
  // zeroed memory shows. The program ends when a block is released that is not live; what is not
  // released at all, live_blocks tells.
  static void* allocate(void* user_data, size_t size);
  static void release(void* user_data, void* block);

  // As the constructor's number, counted from now.
  void fail_at(size_t n) { until_failure_ = n; }

  // Larger blocks are refused: a decoded picture's size is the header's claim.
  void set_largest_block(size_t size) { largest_block_ = size; }

  // Released blocks stay readable, for tests of what a stale pointer meets.
  void keep_released() { keeps_released_ = true; }

  bool has_failed() const { return has_failed_; }
  static bool is_live(const void* block);
  size_t live_blocks() const { return live_blocks_; }
  size_t allocations() const { return allocations_; }
  size_t peak_bytes() const { return peak_bytes_; }  // most that were ever live
  size_t traffic() const { return traffic_; }        // bytes of all allocations together

 private:
  size_t until_failure_;
  size_t largest_block_ = size_t{64} << 20;
  bool keeps_released_ = false;
  std::vector<void*> kept_;
  bool has_failed_ = false;
  size_t live_blocks_ = 0;
  size_t live_bytes_ = 0;
  size_t peak_bytes_ = 0;
  size_t allocations_ = 0;
  size_t traffic_ = 0;
};

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_ALLOCATOR_H_
