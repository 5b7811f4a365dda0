// PNG, by libpng. It leaves by longjmp when it fails, so what calls it is kept in functions that
// hold nothing with a destructor.
#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <cstdio>
#include <stdexcept>

#include "row_writer.h"

namespace kvjpx_picture {
namespace {

// Twice as fast as level 3, for files larger by 4 %.
constexpr int kCompressionLevel = 1;
constexpr size_t kPieceSize = 1 << 16;

struct Failing {
  explicit Failing(Sink& sink) : out(sink) {}
  QuietSink out;
  char reason[120] = "";
};

[[noreturn]] void on_error(png_structp png, png_const_charp message) {
  auto* failing = static_cast<Failing*>(png_get_error_ptr(png));
  std::snprintf(failing->reason, sizeof failing->reason, "PNG: %s", message);
  png_longjmp(png, 1);
}

void on_warning(png_structp, png_const_charp) {}

void on_write(png_structp png, png_bytep bytes, size_t size) {
  if (!static_cast<Failing*>(png_get_io_ptr(png))->out.write(bytes, size)) {
    png_error(png, "the output fails");
  }
}

void on_flush(png_structp) {}

template <typename Step>
bool completes(png_structp png, const Step& step) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  step();
  return true;
}

struct Chunk {
  const char* type;
  std::string data;
};

std::string compressed(const std::string& bytes) {
  uLongf size = compressBound(bytes.size());
  std::string result(size, 0);
  const int code = compress2(reinterpret_cast<Bytef*>(result.data()), &size,
                             reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), 9);
  if (code != Z_OK) throw std::runtime_error("PNG: the ICC profile can't be compressed");
  result.resize(size);
  return result;
}

// What is written as it is, without libpng's opinion of it: it drops profiles that it does not
// like.
std::vector<Chunk> chunks_before_pixels(const Format& format) {
  std::vector<Chunk> chunks;
  const bool depth_differs = file_depth(FileFormat::kPng, format) != format.depth;
  if (depth_differs) {
    chunks.push_back({"sBIT", std::string(format.channels(), static_cast<char>(format.depth))});
  }
  if (!format.icc.empty()) {
    chunks.push_back({"iCCP", std::string("ICC profile\0\0", 13) + compressed(format.icc)});
  }
  if (!format.xmp.empty()) {
    chunks.push_back({"iTXt", std::string("XML:com.adobe.xmp\0\0\0\0\0", 22) + format.xmp});
  }
  if (!format.exif.empty()) chunks.push_back({"eXIf", format.exif});
  return chunks;
}

class PngWriter : public RowWriter {
 public:
  PngWriter(const Format& format, Sink& sink)
      : RowWriter(format, sink),
        failing_(sink),
        depth_(static_cast<int>(file_depth(FileFormat::kPng, format))),
        scale_(format.depth, static_cast<uint32_t>(depth_)),
        row_(format.row_samples() * scale_.bytes_per_sample()),
        png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, &failing_, on_error, on_warning)) {
    if (png_.handle) png_.info = png_create_info_struct(png_.handle);
    if (!png_.info) throw std::bad_alloc();
    begin();
  }

 private:
  struct Png {
    explicit Png(png_structp png) : handle(png) {}
    Png(const Png&) = delete;
    Png& operator=(const Png&) = delete;
    ~Png() { png_destroy_write_struct(&handle, &info); }
    png_structp handle;
    png_infop info = nullptr;
  };

  template <typename Step>
  void run(const Step& step) {
    if (!completes(png_.handle, step)) failing_.out.fail(failing_.reason);
  }

  void begin() {
    const std::vector<Chunk> chunks = chunks_before_pixels(format_);
    run([&] { set_up(); });
    for (const Chunk& chunk : chunks) {
      run([&] {
        png_write_chunk(png_.handle, reinterpret_cast<png_const_bytep>(chunk.type),
                        reinterpret_cast<png_const_bytep>(chunk.data.data()), chunk.data.size());
      });
    }
  }

  void set_up() {
    png_structp png = png_.handle;
    const bool has_colours = format_.colours == 3, has_opacity = format_.opacity != Opacity::kNone;
    png_set_write_fn(png, &failing_, on_write, on_flush);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(
        png, png_.info, format_.width, format_.height, depth_,
        (has_colours ? PNG_COLOR_MASK_COLOR : 0) | (has_opacity ? PNG_COLOR_MASK_ALPHA : 0),
        PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
    if (format_.is_srgb && format_.icc.empty()) {
      png_set_sRGB_gAMA_and_cHRM(png, png_.info, PNG_sRGB_INTENT_PERCEPTUAL);
    }
    if (format_.dots_per_metre_x > 0) {
      png_set_pHYs(png, png_.info, whole(format_.dots_per_metre_x), whole(format_.dots_per_metre_y),
                   PNG_RESOLUTION_METER);
    }
    png_set_compression_level(png, kCompressionLevel);
    // The lower bytes of 16 bits hardly ever repeat: looking for it takes three times as long, for
    // files smaller by 4 %.
    if (depth_ == 16) png_set_compression_strategy(png, Z_RLE);
    png_set_compression_buffer_size(png, kPieceSize);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, depth_ < 8 ? PNG_FILTER_NONE : PNG_FILTER_SUB);
    png_write_info(png, png_.info);
    png_set_packing(png);
  }

  void write_row(const uint16_t* row) override {
    scale_.pack(row, format_.row_samples(), row_.data());
    run([this] { png_write_row(png_.handle, row_.data()); });
  }

  void end() override {
    run([this] { png_write_end(png_.handle, nullptr); });
  }

  Failing failing_;
  int depth_;
  Scale scale_;
  std::vector<uint8_t> row_;
  Png png_;
};

}  // namespace

std::unique_ptr<Writer> open_png(const Format& format, Sink& sink) {
  return std::make_unique<PngWriter>(format, sink);
}

}  // namespace kvjpx_picture
