// Decodes the rectangle, the resolution and the layers asked for, and no more than these need.
#include "decode.h"

#include <algorithm>
#include <vector>

#include "opj.h"
#include "sampling.h"

namespace kvj2k {
namespace {

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
  Decoding(const Bytes& codestream, const CodestreamHeader& header, const DecodeSettings& settings)
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
    settings_.limits.check(planned, codestream_.size());
    *work = planned;
    return make_picture(*decode_area());
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

  Cost cost() const {
    Cost decoded = 0;
    for (const ComponentHeader& component : header_.components) {
      decoded += static_cast<Cost>(x_.decoded.points(x_spacing(component)).size()) *
                 static_cast<Cost>(y_.decoded.points(y_spacing(component)).size());
    }
    const Cost delivered = static_cast<Cost>(x_.picture.size()) *
                           static_cast<Cost>(y_.picture.size()) *
                           static_cast<Cost>(header_.components.size());
    const Cost tiles = tiles_touched(header_.x, x_.decoded) * tiles_touched(header_.y, y_.decoded);
    return std::max(decoded, delivered) + tiles * header_.tile_cost + header_.base_cost;
  }

  static Cost tiles_touched(const GridAxis& axis, const Span& area) {
    return axis.tile_index(area.end - 1) - axis.tile_index(area.begin) + 1;
  }

  OpjImage decode_area() const {
    OpjMessages messages;
    MemorySource source = {codestream_.data(), codestream_.size(), 0};
    const OpjStream stream = open_source(source);
    const auto codec = owned<OpjCodec>(opj_create_decompress(OPJ_CODEC_J2K));
    messages.listen_to(codec.get());

    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    parameters.cp_reduce = reduction_;
    parameters.cp_layer = settings_.layers;
    const bool is_set_up = opj_setup_decoder(codec.get(), &parameters);
    use_all_cores(codec.get());
    opj_image_t* read = nullptr;
    const bool has_header = is_set_up && opj_read_header(stream.get(), codec.get(), &read);
    OpjImage image(read);
    const bool is_decoded =
        has_header &&
        opj_set_decode_area(codec.get(), image.get(), static_cast<OPJ_INT32>(x_.decoded.begin),
                            static_cast<OPJ_INT32>(y_.decoded.begin),
                            static_cast<OPJ_INT32>(x_.decoded.end),
                            static_cast<OPJ_INT32>(y_.decoded.end)) &&
        opj_decode(codec.get(), stream.get(), image.get());
    if (!is_decoded) {
      throw messages.failure(KV_J2K_ERR_BROKEN_CODESTREAM, "the codestream can't be decoded");
    }
    return image;
  }

  Image make_picture(const opj_image_t& decoded) const {
    const size_t count = header_.components.size();
    if (decoded.numcomps != count) {
      throw Failure(KV_J2K_ERR_INTERNAL, "OpenJPEG sees another number of components");
    }
    Image picture;
    picture.width = static_cast<uint32_t>(x_.picture.size());
    picture.height = static_cast<uint32_t>(y_.picture.size());
    picture.components = static_cast<uint32_t>(count);
    picture.samples.resize(count * picture.plane_size());
    for (size_t i = 0; i < count; ++i) {
      fill_plane(header_.components[i], decoded.comps[i],
                 picture.samples.data() + i * picture.plane_size());
    }
    return picture;
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

  const Bytes& codestream_;
  const CodestreamHeader& header_;
  const DecodeSettings& settings_;
  AxisPlan x_;
  AxisPlan y_;
  uint32_t reduction_ = 0;  // halvings that OpenJPEG makes
};

}  // namespace

Image decode(const Bytes& codestream, const CodestreamHeader& header,
             const DecodeSettings& settings, Cost* work) {
  return Decoding(codestream, header, settings).run(work);
}

}  // namespace kvj2k
