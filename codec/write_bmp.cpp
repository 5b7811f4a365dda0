// Windows bitmap: rows from bottom to top, each padded to four bytes, pixels as blue, green, red.
// One component is written with a palette of grays, four with masks that name the opacity byte.
#include <algorithm>
#include <limits>
#include <utility>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

constexpr size_t kFileHeaderSize = 14;
constexpr size_t kInfoHeaderSize = 40;
constexpr size_t kV4HeaderSize = 108;
constexpr size_t kPaletteSize = size_t{256} * 4;
constexpr uint32_t kBitfields = 3;
constexpr uint32_t kSrgb = 0x73524742;

void append(Bytes& out, uint32_t value, size_t bytes) {
  for (; bytes > 0; --bytes, value >>= 8) out.push_back(static_cast<uint8_t>(value));
}

void append_gray_palette(Bytes& out) {
  for (uint32_t gray = 0; gray < 256; ++gray) append(out, gray * 0x010101, 4);
}

// The part of the version 4 header that follows the plain one.
void append_masks(Bytes& out) {
  for (const uint32_t mask : {0x00FF0000u, 0x0000FF00u, 0x000000FFu, 0xFF000000u}) {
    append(out, mask, 4);
  }
  append(out, kSrgb, 4);
  out.resize(kFileHeaderSize + kV4HeaderSize);
}

size_t header_size(uint32_t components) {
  if (components == 4) return kFileHeaderSize + kV4HeaderSize;
  return kFileHeaderSize + kInfoHeaderSize + (components == 1 ? kPaletteSize : 0);
}

void append_header(Bytes& out, const Image& image, size_t stride) {
  const auto size_of_rows = static_cast<uint32_t>(stride * image.height);
  const auto offset = static_cast<uint32_t>(header_size(image.components));
  append(out, 'B' | 'M' << 8, 2);
  append(out, offset + size_of_rows, 4);
  append(out, 0, 4);
  append(out, offset, 4);
  append(out, static_cast<uint32_t>(image.components == 4 ? kV4HeaderSize : kInfoHeaderSize), 4);
  append(out, image.width, 4);
  append(out, image.height, 4);
  append(out, 1, 2);  // colour planes
  append(out, image.components * 8, 2);
  append(out, image.components == 4 ? kBitfields : 0, 4);
  append(out, size_of_rows, 4);
  append(out, 0, 4);  // horizontal resolution: not known
  append(out, 0, 4);
  append(out, image.components == 1 ? 256 : 0, 4);
  append(out, 0, 4);
  if (image.components == 1) append_gray_palette(out);
  if (image.components == 4) append_masks(out);
}

}  // namespace

Bytes write_bmp(const Image& image) {
  if (image.components != 1 && image.components != 3 && image.components != 4) {
    refuse_components(image, "BMP");
  }
  require_size(image, static_cast<uint32_t>(std::numeric_limits<int32_t>::max()), "BMP");
  const size_t stride = (size_t{image.width} * image.components + 3) / 4 * 4;
  const size_t total = header_size(image.components) + stride * image.height;
  if (total > std::numeric_limits<uint32_t>::max()) {
    throw Failure(KV_J2K_ERR_UNSUPPORTED, "BMP holds less than 4 GiB");
  }
  Bytes out;
  out.reserve(total);
  append_header(out, image, stride);
  for (uint32_t y = image.height; y-- > 0;) {
    const size_t start = out.size();
    out.resize(start + stride);
    interleave_row(image, y, out.data() + start);
    if (image.components == 1) continue;
    for (size_t x = 0; x < image.width; ++x) {
      uint8_t* pixel = out.data() + start + x * image.components;
      std::swap(pixel[0], pixel[2]);
    }
  }
  return out;
}

}  // namespace kvj2k
