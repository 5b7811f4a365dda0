// Decodes the rectangle, the resolution and the layers asked for, and no more than these need.
#include "decode.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "area_decoder.h"

namespace kvj2k {
namespace {

// Of a large picture a quarter of the work that is always allowed is decoded at a time, but no less
// than this: OpenJPEG's samples take four bytes each, and more on the way.
constexpr uint64_t kLeastSamplesAtOnce = uint64_t{1} << 22;

// One direction of the work: what to decode, and what to make of it.
struct AxisPlan {
  Span image;                // the image area on the reference grid
  uint64_t picture_spacing;  // of the picture's samples on the reference grid
  Span picture;              // numbers of the picture's samples
  Span decoded;              // the part of the reference grid that OpenJPEG decodes
};

// The side of the rectangle asked for.
Span asked_span(const DecodeSettings& settings, uint64_t from, uint64_t to) {
  const bool is_whole = (settings.left | settings.top | settings.right | settings.bottom) == 0;
  return is_whole ? Span{0, UINT64_MAX} : Span{from, to};
}

AxisPlan plan_picture(const GridAxis& axis, const Span& rectangle, const DecodeSettings& settings) {
  const uint32_t shift = settings.is_kept_at_size ? 0 : settings.reduction;
  AxisPlan plan;
  plan.image = {axis.begin, axis.end};
  plan.picture_spacing = uint64_t{1} << shift;
  const Span visible = plan.image.intersected(rectangle);
  if (!visible.is_empty()) plan.picture = visible.points(plan.picture_spacing);
  return plan;
}

class Decoding {
 public:
  Decoding(ByteView codestream, const CodestreamHeader& header, const DecodeSettings& settings)
      : codestream_(codestream),
        header_(header),
        settings_(settings),
        x_(plan_picture(header.x, asked_span(settings, settings.left, settings.right), settings)),
        y_(plan_picture(header.y, asked_span(settings, settings.top, settings.bottom), settings)) {}

  Image run(Cost* work) {
    *work = 0;
    if (x_.picture.is_empty() || y_.picture.is_empty()) return Image();
    choose_reduction();
    plan_decoded_area();
    const Cost planned = cost();
    settings_.limits.check(planned, codestream_.length);
    *work = planned;
    return make_picture();
  }

 private:
  uint64_t x_spacing(const ComponentHeader& c) const { return uint64_t{c.dx} << reduction_; }
  uint64_t y_spacing(const ComponentHeader& c) const { return uint64_t{c.dy} << reduction_; }

  // No more halvings than the codestream has levels for, and none that leaves a component without a
  // single sample.
  void choose_reduction() {
    reduction_ = std::min(settings_.reduction, header_.fewest_levels);
    const auto has_samples = [this](const ComponentHeader& c) {
      return !x_.image.points(x_spacing(c)).is_empty() && !y_.image.points(y_spacing(c)).is_empty();
    };
    const auto& components = header_.components;
    while (!std::all_of(components.begin(), components.end(), has_samples)) --reduction_;
  }

  // What the picture needs, or as much of it as `x_` and `y_` hold.
  void plan_decoded_area() {
    x_.decoded = y_.decoded = {UINT64_MAX, 0};
    for (const ComponentHeader& component : header_.components) {
      extend_decoded(x_, x_spacing(component));
      extend_decoded(y_, y_spacing(component));
    }
  }

  static void extend_decoded(AxisPlan& plan, uint64_t spacing) {
    const Spacing spacings = {plan.picture_spacing, spacing};
    plan.decoded = plan.decoded.joined(spacings.needed(plan.picture, plan.image.points(spacing)));
  }

  Cost decoded_samples() const {
    Cost decoded = 0;
    for (const ComponentHeader& component : header_.components) {
      decoded += static_cast<Cost>(x_.decoded.points(x_spacing(component)).size()) *
                 static_cast<Cost>(y_.decoded.points(y_spacing(component)).size());
    }
    return decoded;
  }

  Cost cost() const {
    const Cost delivered = static_cast<Cost>(x_.picture.size()) *
                           static_cast<Cost>(y_.picture.size()) *
                           static_cast<Cost>(header_.components.size());
    const Cost tiles = tiles_touched(header_.x, x_.decoded) * tiles_touched(header_.y, y_.decoded);
    const Cost records = tiles * header_.tile_cost + header_.base_cost;
    // Headers are read again for each part.
    return std::max(decoded_samples(), delivered) + records * (1 + (part_count() - 1) / 4);
  }

  static Cost tiles_touched(const GridAxis& axis, const Span& area) {
    return axis.tile_index(area.end - 1) - axis.tile_index(area.begin) + 1;
  }

  std::unique_ptr<AreaDecoder> open() const {
    Source source;
    source.append(codestream_);
    DecoderSettings settings;
    settings.reduction = reduction_;
    settings.layers = settings_.layers;
    settings.is_single_tile = header_.tile_count() == 1;
    return std::make_unique<AreaDecoder>(std::move(source), settings);
  }

  Image make_picture() {
    const size_t count = header_.components.size();
    Image picture;
    picture.width = static_cast<uint32_t>(x_.picture.size());
    picture.height = static_cast<uint32_t>(y_.picture.size());
    picture.components = static_cast<uint32_t>(count);
    picture.samples.resize(count * picture.plane_size());
    const Span all_rows = y_.picture;
    const uint64_t rows = rows_at_once();
    std::unique_ptr<AreaDecoder> decoder;
    for (uint64_t row = all_rows.begin; row < all_rows.end; row += rows) {
      y_.picture = {row, std::min(row + rows, all_rows.end)};
      plan_decoded_area();
      if (decoder == nullptr || !decoder->is_reusable()) decoder = open();
      const OpjImage decoded = decoder->decode({x_.decoded, y_.decoded});
      fill_rows(*decoded, row - all_rows.begin, picture);
    }
    return picture;
  }

  // Rows of the picture to decode together.
  uint64_t rows_at_once() const {
    const uint64_t rows = y_.picture.size();
    return std::max<uint64_t>(1, static_cast<uint64_t>(static_cast<Cost>(rows) / part_count()));
  }

  Cost part_count() const {
    const uint64_t at_once = std::max(settings_.limits.free / 4, kLeastSamplesAtOnce);
    return std::ceil(decoded_samples() / static_cast<Cost>(at_once));
  }

  void fill_rows(const opj_image_t& decoded, size_t first_row, Image& picture) const {
    const size_t count = header_.components.size();
    if (decoded.numcomps != count) {
      throw Failure(KV_J2K_ERR_INTERNAL, "OpenJPEG sees another number of components");
    }
    for (size_t i = 0; i < count; ++i) {
      fill_plane(header_.components[i], decoded.comps[i],
                 picture.samples.data() + i * picture.plane_size() + first_row * picture.width);
    }
  }

  void fill_plane(const ComponentHeader& component, const opj_image_comp_t& decoded,
                  uint8_t* out) const {
    const Span columns = x_.decoded.points(x_spacing(component));
    const Span rows = y_.decoded.points(y_spacing(component));
    if (decoded.data == nullptr || decoded.w < columns.size() || decoded.h < rows.size()) {
      throw Failure(KV_J2K_ERR_INTERNAL, "OpenJPEG decoded fewer samples than it should have");
    }
    const DecodedPlane plane = {decoded.data, decoded.w, columns.begin, rows.begin};
    resample(plane, all_sources(x_, x_spacing(component)), all_sources(y_, y_spacing(component)),
             ByteScale(component.precision, component.is_signed), out);
  }

  static std::vector<Span> all_sources(const AxisPlan& plan, uint64_t spacing) {
    const Spacing spacings = {plan.picture_spacing, spacing};
    const Span available = plan.image.points(spacing);
    std::vector<Span> sources;
    sources.reserve(plan.picture.size());
    for (uint64_t i = plan.picture.begin; i < plan.picture.end; ++i) {
      sources.push_back(spacings.sources(i, available));
    }
    return sources;
  }

  ByteView codestream_;
  const CodestreamHeader& header_;
  const DecodeSettings& settings_;
  AxisPlan x_;
  AxisPlan y_;
  uint32_t reduction_ = 0;  // halvings that OpenJPEG makes
};

}  // namespace

Image decode(ByteView codestream, const CodestreamHeader& header, const DecodeSettings& settings,
             Cost* work) {
  return Decoding(codestream, header, settings).run(work);
}

}  // namespace kvj2k
