// PNG through libpng's simplified interface, which needs neither longjmp nor callbacks.
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

class MemoryFile {
 public:
  MemoryFile() : stream_(open_memstream(&data_, &size_)) {
    if (stream_ == nullptr) throw std::bad_alloc();
  }
  ~MemoryFile() {
    std::fclose(stream_);
    std::free(data_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::FILE* stream() { return stream_; }
  Bytes bytes() {
    if (std::fflush(stream_) != 0) throw std::bad_alloc();
    return Bytes(data_, data_ + size_);
  }

 private:
  char* data_ = nullptr;
  size_t size_ = 0;
  std::FILE* stream_;
};

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
  // Grows with the compressed picture; the largest size it can have would be as much again as the
  // pixels. What can still go wrong is that memory is short.
  MemoryFile file;
  if (!png_image_write_to_stdio(&png, file.stream(), 0, pixels.data(), 0, nullptr)) {
    throw Failure(KV_J2K_ERR_MEMORY, std::string("PNG: ") + png.message);
  }
  return file.bytes();
}

}  // namespace kvj2k
