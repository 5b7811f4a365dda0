// A stand-in for libkvj2k that the test program brings: it writes down every call and decodes
// payloads of its own making, see picture().
#ifndef KVJPX_TESTS_API_RECORDING_CODEC_H_
#define KVJPX_TESTS_API_RECORDING_CODEC_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace kvjpx::test {

// A "codestream": extent on the grid, image offset, components, and a value from which every sample
// is made (plane p has value + p).
inline std::string picture(uint32_t width, uint32_t height, uint32_t components, uint32_t value,
                           uint32_t x_offset = 0, uint32_t y_offset = 0) {
  return be16(width) + be16(height) + be8(components) + be8(value) + be8(x_offset) + be8(y_offset);
}

struct RecordingCodec {
  // How it behaves.
  bool create_fails = false;
  bool delivers_nothing = false;
  bool tells_no_size = false;
  uint32_t largest_delivery = 0xFFFFFFFF;  // raw planes are cut to so many bytes
  int32_t answer = 0;                      // of every call but create
  int32_t file_answer = 0;

  // What it saw.
  std::vector<std::string> calls;
  std::string final_image;  // samples handed over for the final conversion
  int instances = 0;        // alive
  int blocks = 0;           // handed out and not freed
};

// The one that all calls go to; replaced by reset_codec.
RecordingCodec& codec();
void reset_codec();

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_API_RECORDING_CODEC_H_
