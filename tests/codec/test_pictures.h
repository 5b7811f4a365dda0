// Pictures and codestreams for the tests of the codec, and a handle that cleans up.
#ifndef KVJ2K_TESTS_TEST_PICTURES_H_
#define KVJ2K_TESTS_TEST_PICTURES_H_

#include <kv_j2k.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

// What to make a codestream of. Samples come from sample_at.
struct Recipe {
  uint32_t x0 = 0, y0 = 0, x1 = 61, y1 = 47;
  uint32_t precision = 8;
  bool is_signed = false;
  std::vector<uint32_t> spacings = {1, 1, 1};  // one component each
  int levels = 3;
  int tile = 0;              // 0: one tile
  std::vector<float> rates;  // one layer each; none: one lossless layer
};

// The sample with these numbers in a component, over the whole range of its precision.
int32_t sample_at(const Recipe& recipe, size_t component, uint32_t column, uint32_t row);

Bytes encode(const Recipe& recipe);

struct Rectangle {
  uint32_t left = 0, top = 0, right = 0, bottom = 0;
};

// The planes, one byte a sample, as OpenJPEG decodes them by itself. For components without
// subsampling and of 8 bits.
Bytes decode_with_openjpeg(const Bytes& file, bool is_jp2, Rectangle area, uint32_t reduction,
                           uint32_t layers);

// The samples of planes [0, width) x [0, height) made by `sample(component, column, row)`.
template <typename Sample>
Bytes planes(uint32_t components, uint32_t width, uint32_t height, Sample sample) {
  Bytes result;
  for (uint32_t c = 0; c < components; ++c) {
    for (uint32_t y = 0; y < height; ++y) {
      for (uint32_t x = 0; x < width; ++x) result.push_back(static_cast<uint8_t>(sample(c, x, y)));
    }
  }
  return result;
}

class Codec {
 public:
  Codec() { kv_j2k_create(&handle_); }
  explicit Codec(const Bytes& codestream) : Codec() { set_input(codestream); }
  explicit Codec(const Recipe& recipe) : Codec(encode(recipe)) {}
  ~Codec() { kv_j2k_destroy(handle_); }
  Codec(const Codec&) = delete;
  Codec& operator=(const Codec&) = delete;

  operator void*() const { return handle_; }

  int32_t set_input(const Bytes& codestream) {
    return kv_j2k_set_input_image(handle_, codestream.data(),
                                  static_cast<uint32_t>(codestream.size()));
  }
  int32_t set_raw(const Bytes& samples, uint32_t width, uint32_t height, uint32_t components) {
    return kv_j2k_set_input_image_raw(handle_, samples.data(), height, width, components, 24, 0);
  }
  // The output that the codec allocates; `result` is the code of the call.
  Bytes output();
  Bytes output(int32_t type) {
    kv_j2k_set_output_type(handle_, type);
    return output();
  }
  std::string error_text() const { return kv_j2k_get_error_text(handle_); }

  int32_t result = 0;

 private:
  void* handle_ = nullptr;
};

#endif  // KVJ2K_TESTS_TEST_PICTURES_H_
