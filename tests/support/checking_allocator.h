// An allocator for contexts that keeps the books of what is live.
#ifndef KVJPX_TESTS_SUPPORT_CHECKING_ALLOCATOR_H_
#define KVJPX_TESTS_SUPPORT_CHECKING_ALLOCATOR_H_

#include <cstddef>
#include <map>
#include <set>

namespace kvjpx::test {

// Fails the running test when a block is released that is not live, or when blocks are live at the
// end of its own life. New blocks are filled with 0xA5, so reliance on zeroed memory shows.
class CheckingAllocator {
 public:
  CheckingAllocator() = default;
  CheckingAllocator(const CheckingAllocator&) = delete;
  CheckingAllocator& operator=(const CheckingAllocator&) = delete;
  ~CheckingAllocator();

  // The two callbacks; user_data is the CheckingAllocator.
  static void* allocate(void* user_data, size_t size);
  static void release(void* user_data, void* block);

  // Lets the n-th allocation from now (the next is 1) fail; it alone. 0 cancels.
  void fail_at(size_t n) { allocations_until_failure_ = n; }
  bool has_failed() const { return has_failed_; }

  // Refuses blocks larger than this, for absurd sizes that must not reach the machine.
  void set_largest_block(size_t size) { largest_block_ = size; }

  // Keeps released blocks readable until the end, for tests of what a stale pointer meets.
  void keep_released() { keeps_released_ = true; }

  size_t live_blocks() const { return live_.size(); }
  size_t allocations() const { return allocations_; }
  size_t peak() const { return peak_; }        // most bytes that were ever live
  size_t traffic() const { return traffic_; }  // bytes of all allocations together
  bool is_live(void* block) const { return live_.count(block) != 0; }

 private:
  std::map<void*, size_t> live_;
  std::set<void*> kept_;
  size_t allocations_ = 0;
  size_t live_bytes_ = 0;
  size_t peak_ = 0;
  size_t traffic_ = 0;
  size_t allocations_until_failure_ = 0;
  size_t largest_block_ = static_cast<size_t>(-1);
  bool has_failed_ = false;
  bool keeps_released_ = false;
};

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_CHECKING_ALLOCATOR_H_
