// Makes system calls of the library fail (see system_calls.h).
#include "support/system_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace kvjpx::test {
namespace {

size_t calls_until_failure[kSystemCalls];
bool has_failed;
std::function<void()> meanwhile_action;

bool fails(SystemCall call) {
  if (calls_until_failure[call] == 0 || --calls_until_failure[call] != 0) return false;
  has_failed = true;
  if (meanwhile_action) meanwhile_action();
  errno = call == kReserve ? ENOSPC : EIO;
  return true;
}

}  // namespace

void fail_system_call(SystemCall call, size_t n, const std::function<void()>& meanwhile) {
  calls_until_failure[call] = n;
  meanwhile_action = meanwhile;
  has_failed = false;
}

bool has_system_call_failed() { return has_failed; }

}  // namespace kvjpx::test

using namespace kvjpx::test;

// A call that fails when it shall and is the system's otherwise.
#define SYSTEM_CALL(result, name, parameters, call, failure, ...)                           \
  result name parameters {                                                                  \
    return fails(call) ? failure : (result)(syscall(__VA_ARGS__)); /* NOLINT: any result */ \
  }

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  if (fails(kOpen)) return -1;
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int mkostemp(char* pattern, int flags) {
  if (fails(kOpen)) return -1;
  using Function = int (*)(char*, int);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "mkostemp"))(pattern, flags);
}

// Delivers pieces, as network file systems do.
ssize_t pread(int descriptor, void* buffer, size_t count, off_t offset) {
  constexpr size_t kPiece = 8192;
  if (fails(kPread)) return -1;
  return syscall(SYS_pread64, descriptor, buffer, count < kPiece ? count : kPiece, offset);
}

ssize_t write(int descriptor, const void* buffer, size_t count) {
  if (descriptor > 2 && fails(kWrite)) return -1;
  return syscall(SYS_write, descriptor, buffer, count);
}

// Delivers pieces, too.
ssize_t sendfile(int to, int from, off_t* offset, size_t count) noexcept {
  constexpr size_t kPiece = 0x100000;
  if (fails(kSendfile)) return -1;
  return syscall(SYS_sendfile, to, from, offset, count < kPiece ? count : kPiece);
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor,
           off_t offset) noexcept {
  if (descriptor >= 0 && fails(kMmap)) return MAP_FAILED;
  return reinterpret_cast<void*>(
      syscall(SYS_mmap, address, length, protection, flags, descriptor, offset));
}

// A descriptor is gone also when closing it fails, as Linux has it.
int close(int descriptor) {
  const int result = static_cast<int>(syscall(SYS_close, descriptor));
  return descriptor > 2 && fails(kClose) ? -1 : result;
}

SYSTEM_CALL(int, fstat, (int file, struct stat* status) noexcept, kFstat, -1, SYS_fstat, file,
            status)
SYSTEM_CALL(off_t, lseek, (int file, off_t offset, int origin) noexcept, kSeek, -1, SYS_lseek, file,
            offset, origin)
SYSTEM_CALL(int, ftruncate, (int file, off_t length) noexcept, kTruncate, -1, SYS_ftruncate, file,
            length)
SYSTEM_CALL(int, fallocate, (int file, int mode, off_t offset, off_t length), kReserve, -1,
            SYS_fallocate, file, mode, offset, length)
SYSTEM_CALL(int, fchmod, (int file, mode_t mode) noexcept, kAttribute, -1, SYS_fchmod, file, mode)
SYSTEM_CALL(ssize_t, flistxattr, (int file, char* names, size_t size) noexcept, kAttribute, -1,
            SYS_flistxattr, file, names, size)
SYSTEM_CALL(int, rename, (const char* from, const char* to) noexcept, kRename, -1, SYS_renameat2,
            AT_FDCWD, from, AT_FDCWD, to, 0)

}  // extern "C"
