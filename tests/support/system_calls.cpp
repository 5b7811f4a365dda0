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

int fstat(int descriptor, struct stat* status) noexcept {
  if (fails(kFstat)) return -1;
  return static_cast<int>(syscall(SYS_fstat, descriptor, status));
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

ssize_t sendfile(int to, int from, off_t* offset, size_t count) noexcept {
  if (fails(kSendfile)) return -1;
  return syscall(SYS_sendfile, to, from, offset, count);
}

off_t lseek(int descriptor, off_t offset, int origin) noexcept {
  if (fails(kSeek)) return -1;
  return syscall(SYS_lseek, descriptor, offset, origin);
}

int ftruncate(int descriptor, off_t length) noexcept {
  if (fails(kTruncate)) return -1;
  return static_cast<int>(syscall(SYS_ftruncate, descriptor, length));
}

int fallocate(int descriptor, int mode, off_t offset, off_t length) {
  if (fails(kReserve)) return -1;
  return static_cast<int>(syscall(SYS_fallocate, descriptor, mode, offset, length));
}

int fchmod(int descriptor, mode_t mode) noexcept {
  if (fails(kAttribute)) return -1;
  return static_cast<int>(syscall(SYS_fchmod, descriptor, mode));
}

ssize_t flistxattr(int descriptor, char* names, size_t size) noexcept {
  if (fails(kAttribute)) return -1;
  return syscall(SYS_flistxattr, descriptor, names, size);
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

int rename(const char* from, const char* to) noexcept {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

}  // extern "C"
