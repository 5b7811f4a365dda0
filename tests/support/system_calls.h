// Makes system calls of the library fail: the test program defines them itself, in front of libc's.
#ifndef KVJPX_TESTS_SUPPORT_SYSTEM_CALLS_H_
#define KVJPX_TESTS_SUPPORT_SYSTEM_CALLS_H_

#include <cstddef>
#include <functional>

namespace kvjpx::test {

enum SystemCall {
  kOpen,
  kFstat,
  kPread,
  kWrite,
  kSeek,
  kTruncate,
  kMmap,
  kClose,
  kRename,
  kReserve,
  kAttribute,
  kSendfile,
  kSystemCalls
};

// Lets the n-th call from now (the next is 1) fail, on files that are not standard streams; it
// alone. 0 cancels. Something else may happen at that moment.
void fail_system_call(SystemCall call, size_t n, const std::function<void()>& meanwhile = {});
bool has_system_call_failed();

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_SYSTEM_CALLS_H_
