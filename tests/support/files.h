// Temporary files, and what a process holds of the operating system.
#ifndef KVJPX_TESTS_SUPPORT_FILES_H_
#define KVJPX_TESTS_SUPPORT_FILES_H_

#include <cstddef>
#include <functional>
#include <string>

namespace kvjpx::test {

// The file's bytes; none of a file that is not there.
std::string file_contents(const std::string& path);

// A file of its own name, removed at the end.
class TempFile {
 public:
  explicit TempFile(const std::string& contents = {});
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile();

  const char* path() const { return path_.c_str(); }
  std::string contents() const { return file_contents(path_); }
  void resize(size_t length);

 private:
  std::string path_;
};

size_t open_descriptors();

// Mappings of one file into this process.
size_t mappings_of(const TempFile& file);

// What the action writes to a descriptor (1 is standard output, 2 standard error), buffered output
// of C streams included.
std::string captured(int descriptor, const std::function<void()>& action);
inline std::string captured_stdout(const std::function<void()>& action) {
  return captured(1, action);
}

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_FILES_H_
