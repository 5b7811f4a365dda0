// Writes a whole output file, and trusts no step of it: a full disk may show as late as at the
// close.
#include "file_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "failure.h"

namespace kvj2k {
namespace {

namespace fs = std::filesystem;

Failure file_failure(kv_j2k_error code, const char* path, int reason) {
  return Failure(code, std::string(path) + ": " + std::strerror(reason));
}

// A file that goes again unless it is kept; null for none.
class NewFile {
 public:
  explicit NewFile(const char* path) : path_(path) {}
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (path_ != nullptr) unlink(path_);
  }
  void keep() { path_ = nullptr; }

 private:
  const char* path_;
};

// Fills and closes the file; the path is that for messages.
void fill(std::FILE* file, const char* path, const Bytes& bytes) {
  const bool is_written =
      std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
  const int reason = errno;
  const bool is_closed = std::fclose(file) == 0;
  if (!is_written) throw file_failure(KV_J2K_ERR_FILE_IO, path, reason);
  if (!is_closed) throw file_failure(KV_J2K_ERR_FILE_IO, path, errno);
}

// What is not there yet does not stay half-written; a device or pipe is only written to.
void write_directly(const char* path, const Bytes& bytes) {
  struct stat status;
  const bool is_there = lstat(path, &status) == 0;
  std::FILE* const file = std::fopen(path, "wb");
  if (file == nullptr) throw file_failure(KV_J2K_ERR_OPEN_FILE, path, errno);
  NewFile created(is_there ? nullptr : path);
  fill(file, path, bytes);
  created.keep();
}

// Writes a file beside the target, and puts it in the target's place when it is complete. False,
// and nothing is done, where no such file can be made.
bool replace(const std::string& target, const char* path, const Bytes& bytes) {
  struct stat old;
  if (stat(target.c_str(), &old) != 0 || !S_ISREG(old.st_mode)) return false;
  if (access(target.c_str(), W_OK) != 0) return false;
  std::string name = target + ".XXXXXX";
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return false;
  NewFile temporary(name.c_str());
  // Only the superuser can keep a foreign owner.
  [[maybe_unused]] const int is_foreign = fchown(descriptor, old.st_uid, old.st_gid);
  fchmod(descriptor, old.st_mode & 07777);
  std::FILE* const file = fdopen(descriptor, "wb");
  if (file == nullptr) {
    close(descriptor);
    return false;
  }
  fill(file, path, bytes);
  if (rename(name.c_str(), target.c_str()) != 0) {
    throw file_failure(KV_J2K_ERR_FILE_IO, path, errno);
  }
  temporary.keep();
  return true;
}

}  // namespace

void write_file(const char* path, const Bytes& bytes) {
  // Through a symbolic link the file behind it is replaced, not the link.
  std::error_code is_missing;
  const fs::path target = fs::canonical(path, is_missing);
  if (is_missing || !replace(target.string(), path, bytes)) write_directly(path, bytes);
}

}  // namespace kvj2k
