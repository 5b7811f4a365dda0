// Boxes of the files that the tests of the program work on.
#ifndef KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_
#define KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_

#include <string>

#include "support/bytes.h"

namespace kvjpx::test {

inline std::string srgb_box() { return box("colr", bytes({1, 0, 0}) + be32(16)); }
inline std::string gray_box() { return box("colr", bytes({1, 0, 0}) + be32(17)); }

// Signature, file type, header with two colour specifications, a label, and a codestream box: exact
// 8-byte headers throughout, so it is written back as it was read.
inline std::string small_jp2() {
  return jp2_file(srgb_box() + gray_box()) + box("lbl ", "Nemo") +
         box("jp2c", bytes({0xFF, 0x4F, 0, 1, 0xFF, 0xD9}));
}

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_
