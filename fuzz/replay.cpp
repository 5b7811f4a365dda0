// Replays inputs through a fuzzer: each argument is a file, or a folder whose files are taken. A
// broken promise or a crash ends the program with the input's name as the last line of its output.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "input.h"

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replay(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return false;
  const kvjpx::fuzz::Bytes bytes(std::istreambuf_iterator<char>(stream), {});
  fprintf(stderr, "%s\n", file.c_str());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& file : files_of(argv[i])) {
      if (!replay(file)) {
        fprintf(stderr, "%s: cannot be read\n", file.c_str());
        return 1;
      }
      ++count;
    }
  }
  fprintf(stderr, "%zu inputs replayed\n", count);
  return count != 0 ? 0 : 1;
}
