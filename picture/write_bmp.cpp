// BMP, from the top row down: grey by a palette, else blue, green, red and, with the header that
// tells readers of it, opacity. That header has a place for a profile, too.
#include "row_writer.h"

namespace kvjpx_picture {
namespace {

constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kShortHeader = 40;
constexpr uint32_t kLongHeader = 124;
constexpr uint32_t kBitFields = 3;
constexpr uint32_t kColoursAreSrgb = 0x73524742;     // "sRGB"
constexpr uint32_t kProfileIsEmbedded = 0x4D424544;  // "MBED"
constexpr uint32_t kRelativeColorimetric = 4;

std::string little_endian(std::initializer_list<uint32_t> numbers) {
  std::string bytes;
  for (uint32_t number : numbers) {
    for (int i = 0; i < 4; ++i, number >>= 8) bytes += static_cast<char>(number);
  }
  return bytes;
}

class BmpWriter : public ByteWriter {
 public:
  BmpWriter(const Format& format, Sink& sink)
      : ByteWriter(format, sink),
        scale_(format.depth, 8),
        has_opacity_(format.opacity != Opacity::kNone),
        has_palette_(format.colours == 1 && !has_opacity_),
        pixel_size_(has_palette_   ? 1
                    : has_opacity_ ? 4
                                   : 3),
        row_size_((format.width * pixel_size_ + 3) & ~size_t{3}) {
    put_header();
  }

 private:
  void put_header() {
    const bool is_long = has_opacity_ || !format_.icc.empty();
    const uint32_t header = is_long ? kLongHeader : kShortHeader;
    const uint32_t pixels_at = kFileHeader + header + (has_palette_ ? 1024 : 0);
    const auto pixels_size = static_cast<uint32_t>(row_size_ * format_.height);
    const auto icc_size = static_cast<uint32_t>(format_.icc.size());
    put("BM" + little_endian({pixels_at + pixels_size + icc_size, 0, pixels_at}));
    // A height below 0 begins at the top. One plane, and the bits of a pixel.
    put(little_endian({header, format_.width, 0 - format_.height,
                       1 | static_cast<uint32_t>(pixel_size_) * 8 << 16,
                       has_opacity_ ? kBitFields : 0, pixels_size, whole(format_.dots_per_metre_x),
                       whole(format_.dots_per_metre_y), 0, 0}));
    if (is_long) {
      const bool has_icc = icc_size > 0;
      put(little_endian({0xFF0000, 0xFF00, 0xFF, has_opacity_ ? 0xFF000000 : 0,
                         has_icc ? kProfileIsEmbedded : kColoursAreSrgb}));
      put(std::string(48, 0));  // end points and gamma of colours that are neither
      put(little_endian({kRelativeColorimetric, has_icc ? header + pixels_size : 0, icc_size, 0}));
    }
    for (uint32_t grey = 0; has_palette_ && grey < 256; ++grey) {
      put(little_endian({grey * 0x010101}));
    }
  }

  void write_row(const uint16_t* row) override {
    uint8_t* bytes = extend(row_size_);
    if (has_palette_) return scale_.pack(row, format_.width, bytes);
    const size_t blue = format_.colours - 1, green = format_.colours / 2;  // grey is all three
    for (size_t x = 0; x < format_.width; ++x, row += format_.channels(), bytes += pixel_size_) {
      bytes[0] = static_cast<uint8_t>(scale_(row[blue]));
      bytes[1] = static_cast<uint8_t>(scale_(row[green]));
      bytes[2] = static_cast<uint8_t>(scale_(row[0]));
      if (has_opacity_) bytes[3] = static_cast<uint8_t>(scale_(row[format_.colours]));
    }
  }

  void end() override {
    put(format_.icc);
    ByteWriter::end();
  }

  Scale scale_;
  bool has_opacity_;
  bool has_palette_;
  size_t pixel_size_;
  size_t row_size_;
};

}  // namespace

std::unique_ptr<Writer> open_bmp(const Format& format, Sink& sink) {
  return std::make_unique<BmpWriter>(format, sink);
}

}  // namespace kvjpx_picture
