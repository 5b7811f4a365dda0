// What the colours of a picture mean, and how they become those that other formats know.
#ifndef KVJPX_PICTURE_COLOUR_H_
#define KVJPX_PICTURE_COLOUR_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "file.h"
#include "format.h"
#include "rows.h"

namespace kvjpx_picture {

struct SampleDepth {
  uint32_t depth = 8;
  bool is_signed = false;

  int64_t greatest() const { return (int64_t{1} << depth) - 1; }
  // What makes samples unsigned.
  int64_t shift() const { return is_signed ? int64_t{1} << (depth - 1) : 0; }
};

// How colours are coded, besides as they are.
enum class Coding {
  kDirect,
  kInverted,     // 0 is full light of each channel's complement, or white
  kYcc,          // full range, ITU-R BT.601-5: sYCC, e-sYCC, YCbCr(2)
  kVideoYcc,     // limited range, BT.601-5: YCbCr(3)
  kVideoYcc709,  // limited range, BT.709: YCbCr(1), YPbPr
  kPhotoYcc,
  kYcck,
  kExtendedRgb,  // e-sRGB
  kLab,
  kJab
};

struct ColourSpace {
  Coding coding = Coding::kDirect;
  uint32_t channels = 1;
  Model model = Model::kGrey;  // of what comes out
  bool is_srgb = false;
  std::string icc;
  std::vector<uint32_t> parameters;
  // Its samples mean nothing to other formats without a conversion through the profile.
  bool needs_conversion = false;
};

// Chooses among colr boxes: the greatest precedence, then the best approximation, of those that are
// understood and fit `channels` colour channels (or fewer, where further ones have no definition).
// Without any, grey or sRGB by their number.
ColourSpace choose_colour(const std::vector<ColourBox>& boxes, uint32_t channels, Notes& notes);
ColourSpace colour_by_count(uint32_t channels);

// Makes the samples of a format's colours out of those of channels.
class ColourKernel {
 public:
  virtual ~ColourKernel() = default;
  // One row: out[i * stride] is the first colour of pixel i.
  virtual void convert(const int32_t* const* channels, size_t pixels, uint16_t* out,
                       size_t stride) const = 0;
};
std::unique_ptr<ColourKernel> make_kernel(const ColourSpace& space,
                                          const std::vector<SampleDepth>& channels, uint32_t depth);

// One channel's samples scaled to another depth, full scale to full scale.
class DepthMap {
 public:
  DepthMap(SampleDepth from, uint32_t depth, bool inverts = false);
  uint16_t operator()(int32_t sample) const {
    int64_t value = sample + shift_;
    if (value < 0) value = 0;
    if (value > greatest_) value = greatest_;
    return table_[static_cast<size_t>(value >> dropped_)];
  }

 private:
  int64_t shift_;
  int64_t greatest_;
  uint32_t dropped_;  // bits that even 16-bit samples have no room for
  std::vector<uint16_t> table_;
};

// Colours through profiles, of 16 bits a sample.
class ToSrgb {
 public:
  // From samples of this format. Throws an Error when its profile can't be used.
  explicit ToSrgb(const Format& from);
  // red, green and blue for each pixel.
  void convert(const uint16_t* colours, size_t pixels, uint16_t* rgb) const;

 private:
  struct Delete {
    void operator()(void* transform) const;
  };
  uint32_t colours_;
  Model model_;
  std::unique_ptr<void, Delete> transform_;  // null: by formula
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_COLOUR_H_
