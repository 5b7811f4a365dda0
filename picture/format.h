// What a picture is made of, for those who make pictures and those who write them.
#ifndef KVJPX_PICTURE_FORMAT_H_
#define KVJPX_PICTURE_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvjpx_picture {

// What the colour channels mean.
enum class Model { kGrey, kRgb, kCmyk, kLab, kOther };

enum class Opacity { kNone, kStraight, kPremultiplied };

// Samples are unsigned, of one depth, the channels of a pixel next to each other: the colours in
// the order of the model (grey; red, green, blue; cyan, magenta, yellow, black, 0 for no ink; L, a,
// b with a and b shifted to begin at 0: L from 0 to 100, a and b from -128 to 127 are the whole
// range of a sample, so in 8 bits a + 128), then opacity. Each sample is a uint16_t from 0 to
// 2^depth - 1.
struct Format {
  uint32_t width = 0;
  uint32_t height = 0;
  Model model = Model::kGrey;
  uint32_t colours = 1;  // channels of the model
  Opacity opacity = Opacity::kNone;
  uint32_t depth = 8;  // 1 to 16

  std::string icc;              // profile of the samples; empty: none is known or needed
  bool is_srgb = false;         // samples are sRGB, or grey with its transfer curve
  double dots_per_metre_x = 0;  // 0: not known
  double dots_per_metre_y = 0;
  std::string xmp;   // XML packet
  std::string exif;  // TIFF structure, without "Exif\0\0"

  uint32_t channels() const { return colours + (opacity == Opacity::kNone ? 0 : 1); }
  size_t row_samples() const { return size_t{width} * channels(); }
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_FORMAT_H_
