// Writes a whole output file, and trusts no step of it: a full disk may show as late as at the
// close.
#include "file_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "failure.h"

namespace kvj2k {
namespace {

Failure file_failure(kv_j2k_error code, const char* path, int reason) {
  return Failure(code, std::string(path) + ": " + std::strerror(reason));
}

}  // namespace

void write_file(const char* path, const Bytes& bytes) {
  std::FILE* file = std::fopen(path, "wb");
  if (file == nullptr) throw file_failure(KV_J2K_ERR_OPEN_FILE, path, errno);
  const bool is_written =
      std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
  const int reason = errno;
  const bool is_closed = std::fclose(file) == 0;
  if (!is_written) throw file_failure(KV_J2K_ERR_FILE_IO, path, reason);
  if (!is_closed) throw file_failure(KV_J2K_ERR_FILE_IO, path, errno);
}

}  // namespace kvj2k
