// PNG through libpng's simplified interface, which needs neither longjmp nor callbacks.
#include <png.h>

#include <string>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

png_uint_32 png_format(const Image& image) {
  switch (image.components) {
    case 1:
      return PNG_FORMAT_GRAY;
    case 2:
      return PNG_FORMAT_GA;
    case 3:
      return PNG_FORMAT_RGB;
    case 4:
      return PNG_FORMAT_RGBA;
    default:
      refuse_components(image, "PNG");
  }
}

}  // namespace

Bytes write_png(const Image& image) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  png.format = png_format(image);
  png.width = image.width;
  png.height = image.height;
  require_size(image, PNG_USER_WIDTH_MAX, "PNG");

  const Bytes pixels = write_interleaved(image);
  // The largest size the result can have, so that it need not be encoded twice to learn its size.
  // In 64 bits here: libpng's own macro for it computes in 32.
  const uint64_t raw = pixels.size() + uint64_t{image.height};
  Bytes out(raw + (raw >> 12) + (raw >> 14) + (raw >> 25) + raw / 4096 * 12 + 4096);
  png_alloc_size_t size = out.size();
  if (!png_image_write_to_memory(&png, out.data(), &size, 0, pixels.data(), 0, nullptr)) {
    throw Failure(KV_J2K_ERR_UNSUPPORTED, std::string("PNG: ") + png.message);
  }
  out.resize(size);
  return out;
}

}  // namespace kvj2k
