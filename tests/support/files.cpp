// Temporary files and redirected output (see files.h).
#include "support/files.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kvjpx::test {
namespace fs = std::filesystem;

std::string file_contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

TempFile::TempFile(const std::string& contents)
    : path_((fs::temp_directory_path() / "kvjpx-test-XXXXXX").string()) {
  const int descriptor = mkstemp(path_.data());
  EXPECT_GE(descriptor, 0) << "no temporary file at " << path_;
  close(descriptor);
  std::ofstream(path_, std::ios::binary) << contents;
}

TempFile::~TempFile() { fs::remove(path_); }

void TempFile::resize(size_t length) { fs::resize_file(path_, length); }

size_t open_descriptors() {
  const fs::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t mappings_of(const TempFile& file) {
  std::ifstream maps("/proc/self/maps");
  size_t count = 0;
  for (std::string line; std::getline(maps, line);) {
    if (line.find(file.path()) != std::string::npos) ++count;
  }
  return count;
}

std::string captured(int descriptor, const std::function<void()>& action) {
  const TempFile sink;
  fflush(nullptr);
  const int original = dup(descriptor);
  FILE* const file = fopen(sink.path(), "wb");
  dup2(fileno(file), descriptor);
  action();
  fflush(nullptr);
  dup2(original, descriptor);
  close(original);
  fclose(file);
  return sink.contents();
}

}  // namespace kvjpx::test
