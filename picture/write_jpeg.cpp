// JPEG, by libjpeg. It leaves by longjmp when it fails, so what calls it is kept in functions that
// hold nothing with a destructor.
#include <algorithm>
#include <cmath>
#include <csetjmp>
// clang-format off
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include "row_writer.h"

namespace kvjpx_picture {
namespace {

constexpr double kMetresPerInch = 0.0254;
constexpr double kMetresPerCentimetre = 0.01;
constexpr size_t kPieceSize = 1 << 16;
// From this quality on, colours are not worth less than brightness.
constexpr int kFullColourQuality = 90;

struct Errors {
  jpeg_error_mgr base;
  jmp_buf target;
  char reason[JMSG_LENGTH_MAX + 8];
};

struct Destination {
  jpeg_destination_mgr base;
  QuietSink* out;
  std::vector<uint8_t>* piece;
};

[[noreturn]] void on_error(j_common_ptr jpeg) {
  auto* errors = reinterpret_cast<Errors*>(jpeg->err);
  char message[JMSG_LENGTH_MAX];
  jpeg->err->format_message(jpeg, message);
  std::snprintf(errors->reason, sizeof errors->reason, "JPEG: %s", message);
  std::longjmp(errors->target, 1);
}

void on_message(j_common_ptr) {}

void begin_piece(j_compress_ptr jpeg) {
  auto* to = reinterpret_cast<Destination*>(jpeg->dest);
  to->base.next_output_byte = to->piece->data();
  to->base.free_in_buffer = to->piece->size();
}

void write_piece(j_compress_ptr jpeg, size_t size) {
  auto* to = reinterpret_cast<Destination*>(jpeg->dest);
  if (!to->out->write(to->piece->data(), size)) on_error(reinterpret_cast<j_common_ptr>(jpeg));
}

boolean on_full_piece(j_compress_ptr jpeg) {
  write_piece(jpeg, kPieceSize);
  begin_piece(jpeg);
  return TRUE;
}

void on_end(j_compress_ptr jpeg) { write_piece(jpeg, kPieceSize - jpeg->dest->free_in_buffer); }

template <typename Step>
bool completes(Errors& errors, const Step& step) {
  if (setjmp(errors.target) != 0) return false;
  step();
  return true;
}

struct Jpeg : jpeg_compress_struct {
  Jpeg() : jpeg_compress_struct{} {}
  Jpeg(const Jpeg&) = delete;
  Jpeg& operator=(const Jpeg&) = delete;
  ~Jpeg() { jpeg_destroy_compress(this); }
};

J_COLOR_SPACE colour_space(const Format& format) {
  return format.colours == 1 ? JCS_GRAYSCALE : format.colours == 3 ? JCS_RGB : JCS_CMYK;
}

UINT16 density(double dots_per_metre, double unit) {
  return static_cast<UINT16>(std::min(std::max(std::round(dots_per_metre * unit), 1.0), 65535.0));
}

// How far whole numbers of dots in such units are from the resolution.
double rounding(const Format& format, double unit) {
  const double x = format.dots_per_metre_x * unit, y = format.dots_per_metre_y * unit;
  return (std::abs(x - std::round(x)) + std::abs(y - std::round(y))) / unit;
}

class JpegWriter : public RowWriter {
 public:
  JpegWriter(const Format& format, Sink& sink, int quality)
      : RowWriter(format, sink),
        out_(sink),
        scale_(format.depth, 8),
        row_(format.row_samples()),
        piece_(kPieceSize) {
    jpeg_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = on_error;
    errors_.base.output_message = on_message;
    destination_.base.init_destination = begin_piece;
    destination_.base.empty_output_buffer = on_full_piece;
    destination_.base.term_destination = on_end;
    destination_.out = &out_;
    destination_.piece = &piece_;
    const std::string xmp = std::string("http://ns.adobe.com/xap/1.0/\0", 29) + format.xmp;
    const std::string exif = std::string("Exif\0\0", 6) + format.exif;
    run([&] {
      set_up(quality);
      if (!format_.exif.empty()) write_marker(JPEG_APP0 + 1, exif);
      if (!format_.xmp.empty()) write_marker(JPEG_APP0 + 1, xmp);
      if (!format_.icc.empty()) {
        jpeg_write_icc_profile(&jpeg_, reinterpret_cast<const JOCTET*>(format_.icc.data()),
                               static_cast<unsigned>(format_.icc.size()));
      }
    });
  }

 private:
  template <typename Step>
  void run(const Step& step) {
    if (!completes(errors_, step)) out_.fail(errors_.reason);
  }

  void set_up(int quality) {
    jpeg_create_compress(&jpeg_);
    jpeg_.dest = &destination_.base;
    jpeg_.image_width = format_.width;
    jpeg_.image_height = format_.height;
    jpeg_.input_components = static_cast<int>(format_.colours);
    jpeg_.in_color_space = colour_space(format_);
    jpeg_set_defaults(&jpeg_);
    jpeg_set_quality(&jpeg_, quality, TRUE);
    if (quality >= kFullColourQuality) {
      jpeg_.comp_info[0].h_samp_factor = jpeg_.comp_info[0].v_samp_factor = 1;
    }
    if (format_.dots_per_metre_x > 0) {
      const bool is_in_inches =
          rounding(format_, kMetresPerInch) <= rounding(format_, kMetresPerCentimetre);
      const double unit = is_in_inches ? kMetresPerInch : kMetresPerCentimetre;
      jpeg_.density_unit = is_in_inches ? 1 : 2;
      jpeg_.X_density = density(format_.dots_per_metre_x, unit);
      jpeg_.Y_density = density(format_.dots_per_metre_y, unit);
    }
    jpeg_start_compress(&jpeg_, TRUE);
  }

  void write_marker(int marker, const std::string& data) {
    jpeg_write_marker(&jpeg_, marker, reinterpret_cast<const JOCTET*>(data.data()),
                      static_cast<unsigned>(data.size()));
  }

  void write_row(const uint16_t* row) override {
    scale_.pack(row, row_.size(), row_.data());
    if (format_.model == Model::kCmyk) {  // readers expect 255 for no ink beside an Adobe marker
      for (uint8_t& sample : row_) sample = static_cast<uint8_t>(~sample);
    }
    run([this] {
      JSAMPROW scanline = row_.data();
      jpeg_write_scanlines(&jpeg_, &scanline, 1);
    });
  }

  void end() override {
    run([this] { jpeg_finish_compress(&jpeg_); });
  }

  QuietSink out_;
  Scale scale_;
  std::vector<uint8_t> row_;
  std::vector<uint8_t> piece_;
  Errors errors_ = {};
  Destination destination_ = {};
  Jpeg jpeg_;
};

}  // namespace

std::unique_ptr<Writer> open_jpeg(const Format& format, Sink& sink, int quality) {
  return std::make_unique<JpegWriter>(format, sink, quality);
}

}  // namespace kvjpx_picture
