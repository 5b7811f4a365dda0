// A stand-in for libkvj2k that the test program brings: it writes down every call, and its
// codestreams are Pictures.
#ifndef KVJPX_TESTS_API_RECORDING_CODEC_H_
#define KVJPX_TESTS_API_RECORDING_CODEC_H_

#include <cstdint>
#include <string>
#include <vector>

namespace kvjpx::test {

// Whatever is asked for is delivered as samples of the one value.
struct Picture {
  uint16_t width = 0, height = 0;
  uint8_t components = 0, value = 0, x_offset = 0, y_offset = 0;
};
inline std::string picture(const Picture& picture) {
  return std::string(reinterpret_cast<const char*>(&picture), sizeof(picture));
}

struct RecordingCodec {
  // How it behaves.
  bool create_fails = false;
  bool delivers_nothing = false;
  bool tells_no_size = false;
  uint32_t delivery = 1000;  // samples
  int32_t answer = 0;        // of every call but create
  int32_t file_answer = 0;

  // What it saw.
  std::vector<std::string> calls;
  std::string final_image;  // samples handed over for the final conversion
  int instances = 0;        // alive
  int blocks = 0;           // handed out and not freed
};

// The one that all calls go to.
RecordingCodec& codec();

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_API_RECORDING_CODEC_H_
