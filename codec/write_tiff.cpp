// TIFF through libtiff, into memory.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

constexpr uint32_t kMaxComponents = 65535;

struct MemoryFile {
  Bytes bytes;
  uint64_t position = 0;
  std::string error;
  bool is_memory_short = false;
};

MemoryFile& file_of(thandle_t handle) { return *static_cast<MemoryFile*>(handle); }

tmsize_t read(thandle_t handle, void* buffer, tmsize_t size) {
  MemoryFile& file = file_of(handle);
  if (file.position >= file.bytes.size()) return 0;
  const size_t count =
      std::min(static_cast<size_t>(size), static_cast<size_t>(file.bytes.size() - file.position));
  std::memcpy(buffer, file.bytes.data() + file.position, count);
  file.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t write(thandle_t handle, void* buffer, tmsize_t size) {
  MemoryFile& file = file_of(handle);
  const uint64_t end = file.position + static_cast<uint64_t>(size);
  try {
    if (end > file.bytes.size()) file.bytes.resize(end);
  } catch (const std::exception&) {
    file.is_memory_short = true;
    return -1;
  }
  std::memcpy(file.bytes.data() + file.position, buffer, static_cast<size_t>(size));
  file.position = end;
  return size;
}

toff_t seek(thandle_t handle, toff_t offset, int origin) {
  MemoryFile& file = file_of(handle);
  if (origin == SEEK_CUR) offset += file.position;
  if (origin == SEEK_END) offset += file.bytes.size();
  return file.position = offset;
}

toff_t size_of(thandle_t handle) { return file_of(handle).bytes.size(); }

int close(thandle_t) { return 0; }

int keep_error(TIFF*, void* user, const char*, const char* format, va_list arguments) {
  char text[256];
  vsnprintf(text, sizeof text, format, arguments);
  try {
    static_cast<MemoryFile*>(user)->error = text;
  } catch (const std::exception&) {
    // The failure is reported without its text.
  }
  return 1;
}

int ignore_warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffDeleter {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};
using Tiff = std::unique_ptr<TIFF, TiffDeleter>;

Tiff open(MemoryFile& file) {
  const std::unique_ptr<TIFFOpenOptions, TiffDeleter> options(TIFFOpenOptionsAlloc());
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), &keep_error, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), &ignore_warning, nullptr);
  return Tiff(TIFFClientOpenExt("picture", "w", &file, &read, &write, &seek, &close, &size_of,
                                nullptr, nullptr, options.get()));
}

bool set_layout(TIFF* tiff, const Image& image) {
  const bool is_colour = image.components >= 3;
  const uint16_t extra = static_cast<uint16_t>(image.components - (is_colour ? 3 : 1));
  // Opacity stands last in pictures of two and four components; what further components mean is
  // not known.
  const bool has_opacity = image.components == 2 || image.components == 4;
  const std::vector<uint16_t> extra_types(
      extra, has_opacity ? EXTRASAMPLE_UNASSALPHA : EXTRASAMPLE_UNSPECIFIED);
  return TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width) &&
         TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height) &&
         TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8) &&
         TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(image.components)) &&
         TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
         TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                      is_colour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
         (extra == 0 ||
          TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<int>(extra), extra_types.data())) &&
         TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW) &&
         TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
         TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
}

bool write_rows(TIFF* tiff, const Image& image) {
  Bytes row(size_t{image.width} * image.components);
  for (uint32_t y = 0; y < image.height; ++y) {
    interleave_row(image, y, row.data());
    if (TIFFWriteScanline(tiff, row.data(), y, 0) != 1) return false;
  }
  return TIFFFlush(tiff) == 1;
}

}  // namespace

Bytes write_tiff(const Image& image) {
  if (image.components > kMaxComponents) refuse_components(image, "TIFF");
  MemoryFile file;
  {
    const Tiff tiff = open(file);
    if (tiff == nullptr || !set_layout(tiff.get(), image) || !write_rows(tiff.get(), image)) {
      throw Failure(file.is_memory_short ? KV_J2K_ERR_MEMORY : KV_J2K_ERR_UNSUPPORTED,
                    "TIFF: " + file.error);
    }
  }
  return std::move(file.bytes);
}

}  // namespace kvj2k
