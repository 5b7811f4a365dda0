// A context over an allocator that keeps books, and calls that may take the error exit.
#ifndef KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_
#define KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "../fuzz/allocator.h"
#include "frame/memory.h"
#include "kvjpx.h"

namespace kvjpx::test {

using CheckingAllocator = fuzz::Allocator;

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
    EXPECT_EQ(allocator_.live_blocks(), 0u) << "blocks were never released";
    context_ = nullptr;
  }

 private:
  CheckingAllocator allocator_;
  kv_jpx_context* context_ = nullptr;
};

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_TEST_CONTEXT_H_
