// Picture files read back with the libraries that everybody has for them.
#ifndef KVJPX_TESTS_PICTURE_PICTURE_FILES_H_
#define KVJPX_TESTS_PICTURE_PICTURE_FILES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace kvjpx::test {

// What a reader found: samples in one order for all formats, and facts in words.
struct Found {
  uint32_t depth = 0;
  uint32_t channels = 0;
  std::vector<uint16_t> samples;
  std::string facts;
};

Found read_png(const std::string& file);
Found read_tiff(const std::string& file);
Found read_jpeg(const std::string& file);

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_PICTURE_PICTURE_FILES_H_
