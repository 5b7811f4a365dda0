// Writes a whole output file, and trusts no step of it: a full disk may show as late as at the
// close.
#include "file_writer.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "failure.h"
#include "output_file.h"

namespace kvj2k {
namespace {

class File : public kvjpx_common::OutputFile {
 public:
  explicit File(const char* path) : is_open(open_output_file(this, path)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close_output_file(this); }

  const bool is_open;
};

Failure file_failure(kv_j2k_error code, const char* path) {
  return Failure(code, std::string(path) + ": " + std::strerror(errno));
}

}  // namespace

void write_file(const char* path, const Bytes& bytes) {
  File file(path);
  if (!file.is_open) throw file_failure(KV_J2K_ERR_OPEN_FILE, path);
  if (!fill_output_file(&file, bytes.data(), bytes.size()) || !complete_output_file(&file)) {
    throw file_failure(KV_J2K_ERR_FILE_IO, path);
  }
}

}  // namespace kvj2k
