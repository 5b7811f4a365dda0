// Converts rows.
#include "convert.h"

#include <algorithm>

namespace kvjpx_picture {
namespace {

constexpr uint32_t kWorkDepth = 16;
constexpr uint32_t kWorkGreatest = 65535;

uint16_t divided(uint32_t sample, uint32_t opacity, uint32_t greatest) {
  if (opacity == 0) return 0;
  return static_cast<uint16_t>(
      std::min<uint64_t>((uint64_t{sample} * greatest + opacity / 2) / opacity, greatest));
}

uint16_t multiplied(uint32_t sample, uint32_t opacity, uint32_t greatest) {
  return static_cast<uint16_t>((uint64_t{sample} * opacity + greatest / 2) / greatest);
}

// Rec. 709's weights, on the samples as they are.
uint16_t grey_of(const uint16_t* rgb) {
  return static_cast<uint16_t>((2126U * rgb[0] + 7152U * rgb[1] + 722U * rgb[2] + 5000) / 10000);
}

}  // namespace

Format srgb_of(Format format) {
  if (format.model != Model::kGrey) {
    format.model = Model::kRgb;
    format.colours = 3;
    format.depth = std::max(format.depth, 8U);
  } else if (!format.icc.empty()) {
    format.depth = std::max(format.depth, 8U);
  }
  if (format.opacity == Opacity::kPremultiplied) format.opacity = Opacity::kStraight;
  format.icc.clear();
  format.is_srgb = true;
  return format;
}

ConvertedRows::ConvertedRows(std::unique_ptr<Rows> from, const Format& to)
    : from_(std::move(from)),
      converts_colours_(from_->format().model != to.model ||
                        (!from_->format().icc.empty() && to.icc.empty() && to.is_srgb)),
      is_deep_(converts_colours_ || from_->format().opacity != to.opacity),
      in_({from_->format().depth, false}, kWorkDepth),
      out_({kWorkDepth, false}, to.depth),
      straight_({from_->format().depth, false}, to.depth) {
  format_ = to;
  const Format& source = from_->format();
  if (converts_colours_) to_srgb_ = std::make_unique<ToSrgb>(source);
  colours_.resize(source.row_samples());
  rgb_.resize(size_t{source.width} * 3);
}

void ConvertedRows::read(uint32_t first, uint32_t count, uint16_t* out) {
  const size_t length = from_->format().row_samples();
  strip_.resize(length * count);
  from_->read(first, count, strip_.data());
  for (uint32_t row = 0; row < count; ++row, out += format_.row_samples()) {
    convert_row(strip_.data() + row * length, out);
  }
}

// Colours next to each other, without opacity, straight.
void ConvertedRows::scale_in(const uint16_t* in) {
  const Format& from = from_->format();
  const bool is_premultiplied =
      from.opacity == Opacity::kPremultiplied && format_.opacity != Opacity::kPremultiplied;
  uint16_t* colour = colours_.data();
  for (uint32_t i = 0; i < from.width; ++i, in += from.channels()) {
    const uint32_t opacity = is_premultiplied ? in_(in[from.colours]) : kWorkGreatest;
    for (uint32_t k = 0; k < from.colours; ++k, ++colour) {
      *colour = in_(in[k]);
      if (is_premultiplied) *colour = divided(*colour, opacity, kWorkGreatest);
    }
  }
}

void ConvertedRows::convert_colours() {
  const Format& from = from_->format();
  to_srgb_->convert(colours_.data(), from.width, rgb_.data());
  colours_.resize(std::max(colours_.size(), rgb_.size()));
  uint16_t* const colour = colours_.data();
  if (format_.colours == 3) {
    std::copy(rgb_.begin(), rgb_.end(), colour);
    return;
  }
  for (size_t i = 0; i < from.width; ++i) {
    colour[i] = from.model == Model::kGrey ? rgb_[i * 3 + 1] : grey_of(rgb_.data() + i * 3);
  }
}

void ConvertedRows::convert_row(const uint16_t* in, uint16_t* out) {
  const Format& from = from_->format();
  const uint32_t channels = format_.channels();
  const bool has_opacity = format_.opacity != Opacity::kNone;
  if (!is_deep_) {
    for (size_t i = 0; i < format_.row_samples(); ++i) out[i] = straight_(in[i]);
    return;
  }
  scale_in(in);
  if (converts_colours_) convert_colours();
  const bool multiplies =
      from.opacity == Opacity::kStraight && format_.opacity == Opacity::kPremultiplied;
  const uint16_t* colour = colours_.data();
  for (uint32_t i = 0; i < format_.width; ++i, out += channels, in += from.channels()) {
    const bool is_given = from.opacity != Opacity::kNone;
    const uint16_t opacity =
        is_given ? in_(in[from.colours]) : static_cast<uint16_t>(kWorkGreatest);
    for (uint32_t k = 0; k < format_.colours; ++k, ++colour) {
      out[k] = out_(multiplies ? multiplied(*colour, opacity, kWorkGreatest) : *colour);
    }
    if (has_opacity) out[format_.colours] = out_(opacity);
  }
}

}  // namespace kvjpx_picture
