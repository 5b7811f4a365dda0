// Chooses the writer; raw output, and what several writers need.
#include "encode.h"

#include <algorithm>
#include <string>

#include "failure.h"

namespace kvj2k {

Bytes encode(const Image& image, int32_t output_type) {
  if (image.is_empty()) return Bytes();
  switch (output_type) {
    case KV_J2K_OUTPUT_INTERLEAVED:
      return write_interleaved(image);
    case KV_J2K_OUTPUT_BMP:
      return write_bmp(image);
    case KV_J2K_OUTPUT_PNM:
      return write_pnm(image);
    case KV_J2K_OUTPUT_PNG:
      return write_png(image);
    case KV_J2K_OUTPUT_TIFF:
      return write_tiff(image);
    case KV_J2K_OUTPUT_JPEG:
      return write_jpeg(image);
    case KV_J2K_OUTPUT_J2K:
      return write_j2k(image);
    case KV_J2K_OUTPUT_JP2:
      return write_jp2(image);
    default:
      return Bytes();
  }
}

Bytes write_interleaved(const Image& image, const std::string& header) {
  Bytes out(header.size() + image.samples.size());
  std::copy(header.begin(), header.end(), out.begin());
  uint8_t* const pixels = out.data() + header.size();
  const size_t stride = size_t{image.width} * image.components;
  for (uint32_t y = 0; y < image.height; ++y) interleave_row(image, y, pixels + y * stride);
  return out;
}

void interleave_row(const Image& image, uint32_t row, uint8_t* out) {
  for (uint32_t c = 0; c < image.components; ++c) {
    const uint8_t* in = image.plane(c) + size_t{row} * image.width;
    for (size_t x = 0; x < image.width; ++x) out[x * image.components + c] = in[x];
  }
}

void require_size(const Image& image, uint32_t limit, const char* format) {
  if (image.width <= limit && image.height <= limit) return;
  throw Failure(KV_J2K_ERR_UNSUPPORTED, std::string(format) + " holds at most " +
                                            std::to_string(limit) + " columns and rows, not " +
                                            std::to_string(image.width) + " x " +
                                            std::to_string(image.height));
}

void refuse_components(const Image& image, const char* format) {
  throw Failure(KV_J2K_ERR_UNSUPPORTED, std::string(format) + " can't hold a picture of " +
                                            std::to_string(image.components) + " components");
}

}  // namespace kvj2k
