// A decoded picture: planes of 8-bit samples, one after another.
#ifndef KVJ2K_IMAGE_H_
#define KVJ2K_IMAGE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvj2k {

using Bytes = std::vector<uint8_t>;

// Bytes that belong to someone else.
struct ByteView {
  const uint8_t* data = nullptr;
  size_t length = 0;
};

struct Image {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t components = 0;
  Bytes samples;

  bool is_empty() const { return samples.empty(); }
  size_t plane_size() const { return size_t{width} * height; }
  const uint8_t* plane(uint32_t component) const {
    return samples.data() + component * plane_size();
  }
};

}  // namespace kvj2k

#endif  // KVJ2K_IMAGE_H_
