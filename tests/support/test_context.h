// A context over an allocator that keeps books, and calls that may take the error exit.
#ifndef KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_
#define KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <type_traits>

#include "frame/memory.h"
#include "kvjpx.h"

namespace kvjpx::test {

// An allocator for contexts that keeps the books of what is live.
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

// The error environment of a context, found the way that foreign code finds it.
inline Environment* environment_of(kv_jpx_context* context) {
  return reinterpret_cast<Environment*>(reinterpret_cast<char*>(context) + 8);
}

// Runs action() with the environment's jump target armed; returns the code that was raised, or 0.
// The action must own nothing: an error exit skips the destructors of everything that it calls.
// What it changes through references keeps its value.
template <class Action>
[[gnu::noinline]] int raised(Environment* env, const Action& action) {
  static_assert(std::is_trivially_destructible_v<Action>, "capture by reference");
  const int code = _setjmp(env->jump);
  if (code == 0) action();
  return code;
}

// Destroys its context at the end, and then fails the test if any of its blocks is still live.
class TestContext {
 public:
  TestContext() {
    EXPECT_EQ(kv_jpx_create_with_memory_manager(&context_, &allocator_, CheckingAllocator::allocate,
                                                CheckingAllocator::release),
              JPX_OK);
  }
  TestContext(const TestContext&) = delete;
  TestContext& operator=(const TestContext&) = delete;
  ~TestContext() { destroy(); }

  kv_jpx_context* get() const { return context_; }
  Environment* env() const { return environment_of(context_); }
  CheckingAllocator& allocator() { return allocator_; }

  int32_t load(const std::string& file) {
    return kv_jpx_set_input_image(context_, file.data(), file.size());
  }

  // For tests that look at what is left before the end. Later calls do nothing.
  void destroy() {
    if (context_ == nullptr) return;
    EXPECT_EQ(kv_jpx_destroy(context_), JPX_OK);
    context_ = nullptr;
  }

 private:
  CheckingAllocator allocator_;
  kv_jpx_context* context_ = nullptr;
};

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_
