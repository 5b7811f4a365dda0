// Pictures and codestreams for the tests of the codec, and a handle that cleans up.
#ifndef KVJ2K_TESTS_TEST_PICTURES_H_
#define KVJ2K_TESTS_TEST_PICTURES_H_

#include <kv_j2k.h>

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline uint32_t ceil_div(uint32_t a, uint32_t b) { return (a + b - 1) / b; }

struct Rectangle {
  uint32_t left, top, right, bottom;
};

// What to make a codestream of. Samples come from sample_at.
struct Recipe {
  explicit Recipe(Rectangle rectangle = {0, 0, 61, 47}) : area(rectangle) {}

  Rectangle area;
  uint32_t precision = 8;
  bool is_signed = false;
  bool is_smooth = false;                      // so that filters leave it as it is
  std::vector<uint32_t> spacings = {1, 1, 1};  // one component each
  bool is_irreversible = false;
  int levels = 3;
  int tile = 0;              // 0: one tile
  bool has_markers = false;  // SOP and EPH around packet headers
  std::vector<float> rates;  // one layer each; none: one lossless layer
};

// The sample with these numbers in a component, over the whole range of its precision.
int32_t sample_at(const Recipe& recipe, uint32_t component, uint32_t column, uint32_t row);

// Made by OpenJPEG.
Bytes encode(const Recipe& recipe);

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

// Where the codestream has a marker, by the second byte of it.
std::vector<size_t> marker_places(const Bytes& codestream, uint8_t marker);

// The largest difference between two samples in the same place.
int distance(const Bytes& a, const Bytes& b);

class Codec {
 public:
  Codec() { kv_j2k_create(&handle_); }
  explicit Codec(const Recipe& recipe) : Codec() { set_input(encode(recipe)); }
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
  void set_region(const Rectangle& area) {
    kv_j2k_set_input_j2k_region_level(handle_, area.left, area.top, area.right, area.bottom);
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
