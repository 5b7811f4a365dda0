// Follows the instructions, then draws what they ask for.
#include "composition.h"

#include <algorithm>
#include <cmath>

#include "convert.h"
#include "error.h"

namespace kvjpx_picture {
namespace {

constexpr uint32_t kForeverSet = 65535;
constexpr size_t kMostInstructions = 1 << 16;
constexpr size_t kMostDraws = 1 << 20;
// Of a frame: a layer that is being read takes half a megabyte and more.
constexpr size_t kMostOpen = 64;

bool covers(const Draw& upper, const Draw& lower) {
  return upper.is_opaque && upper.x <= lower.x && upper.y <= lower.y &&
         upper.x + upper.width >= lower.x + lower.width &&
         upper.y + upper.height >= lower.y + lower.height;
}

// What it hides need not be drawn, so that a long animation does not draw all that ever was.
void add_draw(std::vector<Draw>& draws, const Draw& draw) {
  draws.erase(std::remove_if(draws.begin(), draws.end(),
                             [&](const Draw& lower) { return covers(draw, lower); }),
              draws.end());
  draws.push_back(draw);
}

bool has_same_colours(const Format& a, const Format& b) {
  return a.model == b.model && a.colours == b.colours && a.icc == b.icc && a.is_srgb == b.is_srgb;
}

}  // namespace

CompositionPlan::CompositionPlan(const File& file, const CompositionBox& box, const Effort& effort,
                                 Notes& notes)
    : file_(file), effort_(effort), notes_(notes) {
  effort_.reduction = 0;
  format_.width = box.width;
  format_.height = box.height;
  repetitions_ = box.loop == KV_JPX_LOOP_FOREVER ? 0 : box.loop + 1;
  execute(box);
  if (frames_.empty()) throw Error(Error::Kind::kUndecodable, "the composition shows nothing");
  choose_format();
}

const CompositionPlan::LayerFacts* CompositionPlan::facts_of(uint64_t layer) {
  const auto known = facts_.find(layer);
  if (known != facts_.end()) return known->second ? &*known->second : nullptr;
  std::optional<LayerFacts>& facts = facts_[layer];
  try {
    LayerRows::Part part;
    part.number = layer;
    part.region = {0, 0, 1, 1};  // what is asked here, any part of it tells
    const LayerRows rows(file_, part, effort_, notes_);
    facts = LayerFacts{rows.whole_width(), rows.whole_height(), rows.levels(),
                       rows.needs_conversion() ? srgb_of(rows.format()) : rows.format()};
  } catch (const Error& error) {
    if (effort_.is_strict || error.kind() == Error::Kind::kMemory) throw;
    notes_.add("layer " + std::to_string(layer) + " is left out: " + error.what());
  }
  return facts ? &*facts : nullptr;
}

std::optional<Draw> CompositionPlan::place(const Instruction& instruction, uint64_t layer) {
  const LayerFacts* const facts = facts_of(layer);
  if (facts == nullptr) return std::nullopt;
  const auto rest = [](uint64_t whole, uint32_t begin) {
    return static_cast<uint32_t>(whole > begin ? whole - begin : 0);
  };
  Instruction::Crop crop = {0, 0, rest(facts->width, 0), rest(facts->height, 0)};
  if (instruction.crop) {
    crop = *instruction.crop;
    crop.width = std::min(crop.width, rest(facts->width, crop.x));
    crop.height = std::min(crop.height, rest(facts->height, crop.y));
  }
  const Draw draw = {layer,
                     instruction.x,
                     instruction.y,
                     instruction.width.value_or(crop.width),
                     instruction.height.value_or(crop.height),
                     crop,
                     facts->format.opacity == Opacity::kNone,
                     facts->levels};
  const bool is_visible = draw.width > 0 && draw.height > 0 && crop.width > 0 && crop.height > 0 &&
                          draw.x < format_.width && draw.y < format_.height;
  if (!is_visible) return std::nullopt;
  return draw;
}

bool CompositionPlan::execute(const Instruction& instruction, uint64_t number) {
  const auto used_again = again_.find(number);
  const uint64_t layer = used_again != again_.end() ? used_again->second : next_layer_;
  if (used_again == again_.end()) {
    if (next_layer_ >= file_.layers()) return false;
    ++next_layer_;
  } else {
    again_.erase(used_again);
  }
  if (instruction.next_use > 0) again_[number + instruction.next_use] = layer;
  if (const std::optional<Draw> draw = place(instruction, layer)) {
    add_draw(current_, *draw);
    if (instruction.persists) add_draw(lasting_, *draw);
  }
  has_drawn_ = true;
  if (instruction.life > 0) end_frame(instruction.life);
  return true;
}

void CompositionPlan::execute(const CompositionBox& box) {
  uint64_t number = 0;
  bool has_layers = true;
  for (const InstructionSet& set : box.sets) {
    const uint64_t passes = set.repeat == kForeverSet ? UINT64_MAX : uint64_t{set.repeat} + 1;
    for (uint64_t pass = 0; pass < passes && has_layers; ++pass) {
      const uint64_t layers_before = next_layer_;
      for (const Instruction& instruction : set.instructions) {
        if (number == kMostInstructions) {
          notes_.add("only the first " + std::to_string(number) + " instructions are followed");
          has_layers = false;
        }
        has_layers = has_layers && execute(instruction, number);
        if (!has_layers) break;
        ++number;
      }
      // Without a new layer it goes on like this for ever.
      if (set.repeat == kForeverSet && next_layer_ == layers_before) {
        repetitions_ = 0;
        has_layers = false;
      }
    }
  }
  if (has_drawn_) end_frame(0);
}

void CompositionPlan::end_frame(uint32_t life) {
  draws_ += current_.size();
  if (draws_ > kMostDraws) {
    throw Error(Error::Kind::kTooLarge, "the composition has too many instructions");
  }
  frames_.push_back({life, current_});
  current_ = lasting_;
  has_drawn_ = false;
}

// Whether opaque layers cover all of a frame: whether they cover every cell between their edges.
bool CompositionPlan::is_covered(const FramePlan& frame) const {
  constexpr size_t kFew = 64;
  std::vector<const Draw*> opaque;
  for (const Draw& draw : frame.draws) {
    if (draw.is_opaque) opaque.push_back(&draw);
  }
  if (opaque.size() > kFew) return false;
  std::vector<uint64_t> columns = {0}, rows = {0};
  for (const Draw* draw : opaque) {
    for (const uint64_t x : {draw->x, draw->x + draw->width}) {
      if (x < format_.width) columns.push_back(x);
    }
    for (const uint64_t y : {draw->y, draw->y + draw->height}) {
      if (y < format_.height) rows.push_back(y);
    }
  }
  for (const uint64_t x : columns) {
    for (const uint64_t y : rows) {
      const bool is_in_one = std::any_of(opaque.begin(), opaque.end(), [&](const Draw* draw) {
        return draw->x <= x && x < draw->x + draw->width && draw->y <= y &&
               y < draw->y + draw->height;
      });
      if (!is_in_one) return false;
    }
  }
  return true;
}

void CompositionPlan::choose_format() {
  const uint32_t width = format_.width;
  const uint32_t height = format_.height;
  const Format* first = nullptr;
  bool is_alike = true;
  bool is_grey = true;
  uint32_t depth = 1;
  for (const auto& [layer, facts] : facts_) {
    if (!facts) continue;
    if (first == nullptr) first = &facts->format;
    is_alike = is_alike && has_same_colours(*first, facts->format);
    is_grey = is_grey && facts->format.model == Model::kGrey;
    depth = std::max(depth, facts->format.depth);
  }
  if (first == nullptr) throw Error(Error::Kind::kUndecodable, "no layer can be decoded");
  format_ = *first;
  if (!is_alike) {
    notes_.add("layers of different colour spaces are shown in sRGB");
    format_ = srgb_of(format_);
    depth = std::max(depth, 8U);
    format_.model = is_grey ? Model::kGrey : Model::kRgb;
    format_.colours = is_grey ? 1 : 3;
  }
  format_.width = width;
  format_.height = height;
  format_.depth = depth;
  const bool is_opaque = std::all_of(frames_.begin(), frames_.end(),
                                     [this](const FramePlan& frame) { return is_covered(frame); });
  format_.opacity = is_opaque ? Opacity::kNone : Opacity::kStraight;
}

Placement::Placement(const Direction& direction, uint32_t reduction)
    : direction_(direction), reduction_(reduction) {
  const uint64_t scale = uint64_t{1} << reduction;
  const uint64_t begin = direction.region_begin;
  const uint64_t end = direction.begin + direction.extent;
  const auto sample_from = [&](uint64_t place) {
    return place <= begin ? 0 : (place - begin + scale - 1) / scale;
  };
  const uint64_t last = sample_from(std::min(end, direction.region_end));
  first_ = static_cast<uint32_t>(sample_from(direction.begin));
  count_ = static_cast<uint32_t>(last > first_ ? last - first_ : 0);
}

uint64_t Placement::begin_of(uint32_t sample) const {
  return direction_.region_begin + (uint64_t{sample} << reduction_);
}

uint64_t Placement::end_of(uint32_t sample) const {
  return std::min(begin_of(sample + 1), direction_.begin + direction_.extent);
}

double Placement::layer_position(uint64_t of_result) const {
  return static_cast<double>(of_result - direction_.begin) *
         static_cast<double>(direction_.crop_extent) / static_cast<double>(direction_.extent);
}

uint32_t Placement::layer_reduction() const {
  uint32_t reduction = 0;
  const double scale =
      std::ldexp(static_cast<double>(direction_.crop_extent), static_cast<int>(reduction_)) /
      static_cast<double>(direction_.extent);
  while (reduction < 31 && std::ldexp(1.0, static_cast<int>(reduction) + 1) <= scale) ++reduction;
  return reduction;
}

uint64_t Placement::needed_begin(uint32_t layer_reduction) const {
  const auto begin = static_cast<uint64_t>(layer_position(begin_of(first_)));
  return direction_.crop_begin + (begin >> layer_reduction << layer_reduction);
}

uint64_t Placement::needed_end() const {
  const auto end = static_cast<uint64_t>(std::ceil(layer_position(end_of(first_ + count_ - 1))));
  return direction_.crop_begin + std::clamp<uint64_t>(end, 1, direction_.crop_extent);
}

std::vector<Placement::Mean> Placement::means(uint32_t layer_reduction, uint32_t available) const {
  const auto origin = static_cast<double>(needed_begin(layer_reduction) - direction_.crop_begin);
  const auto sample_at = [&](uint64_t of_result) {
    return std::ldexp(layer_position(of_result) - origin, -static_cast<int>(layer_reduction));
  };
  std::vector<Mean> means(count_);
  for (uint32_t i = 0; i < count_; ++i) {
    const double begin = std::max(sample_at(begin_of(first_ + i)), 0.0);
    const double end = sample_at(end_of(first_ + i));
    Mean& mean = means[i];
    mean.first = std::min(static_cast<uint32_t>(begin), available - 1);
    for (uint32_t k = mean.first; k < available && (k == mean.first || k < end); ++k) {
      const double weight = std::min<double>(k + 1, end) - std::max<double>(k, begin);
      mean.weights.push_back(static_cast<float>(std::max(weight, 1e-6)));
    }
  }
  return means;
}

FrameRows::FrameRows(const File& file, const CompositionPlan& plan, size_t frame,
                     const Rectangle& wanted, const Effort& effort, Notes& notes)
    : file_(file), notes_(notes) {
  format_ = plan.format();
  if (wanted.left >= format_.width || wanted.top >= format_.height) {
    throw Error(Error::Kind::kUndecodable, "the region lies outside the image of " +
                                               std::to_string(format_.width) + " x " +
                                               std::to_string(format_.height));
  }
  Rectangle region = wanted;
  region.right = std::min<uint64_t>(region.right, format_.width);
  region.bottom = std::min<uint64_t>(region.bottom, format_.height);
  const uint64_t round = (uint64_t{1} << effort.reduction) - 1;
  format_.width = static_cast<uint32_t>((region.right - region.left + round) >> effort.reduction);
  format_.height = static_cast<uint32_t>((region.bottom - region.top + round) >> effort.reduction);
  format_.dots_per_metre_x =
      std::ldexp(format_.dots_per_metre_x, -static_cast<int>(effort.reduction));
  format_.dots_per_metre_y =
      std::ldexp(format_.dots_per_metre_y, -static_cast<int>(effort.reduction));
  check_size(format_.width, format_.height, format_.channels(), 1, effort.sample_limit);
  for (const Draw& draw : plan.frames()[frame].draws) place(draw, region, effort);
}

void FrameRows::place(const Draw& draw, const Rectangle& region, const Effort& effort) {
  const Placement x({region.left, region.right, draw.x, draw.width, draw.crop.x, draw.crop.width},
                    effort.reduction);
  const Placement y({region.top, region.bottom, draw.y, draw.height, draw.crop.y, draw.crop.height},
                    effort.reduction);
  if (x.count() == 0 || y.count() == 0) return;
  Placed placed{x, y, {}, effort};
  placed.effort.reduction = std::min({x.layer_reduction(), y.layer_reduction(), draw.levels});
  placed.part.number = draw.layer;
  placed.part.region = {x.needed_begin(placed.effort.reduction),
                        y.needed_begin(placed.effort.reduction), x.needed_end(), y.needed_end()};
  open(placed);
  const Format& source = placed.source->format();
  const uint64_t rows = source.height / placed.rows.size() + 1;
  placed.bytes_a_row = source.row_samples() * rows * 3 * sizeof(uint32_t);
  if (placed_.size() >= kMostOpen) close(placed);
  placed_.push_back(std::move(placed));
}

void FrameRows::open(Placed& placed) {
  auto layer = std::make_unique<LayerRows>(file_, placed.part, placed.effort, notes_);
  placed.layer = layer.get();
  placed.columns = placed.x.means(placed.effort.reduction, layer->format().width);
  placed.rows = placed.y.means(placed.effort.reduction, layer->format().height);
  const auto is_one = [](const Placement::Mean& mean) { return mean.weights.size() == 1; };
  placed.is_plain = std::all_of(placed.columns.begin(), placed.columns.end(), is_one) &&
                    std::all_of(placed.rows.begin(), placed.rows.end(), is_one);
  Format wanted = format_;
  wanted.width = layer->format().width;
  wanted.height = layer->format().height;
  wanted.opacity = layer->format().opacity == Opacity::kNone ? Opacity::kNone : Opacity::kStraight;
  placed.source = std::make_unique<ConvertedRows>(std::move(layer), wanted);
}

void FrameRows::close(Placed& placed) {
  was_anything_there_ = was_anything_there_ || placed.layer->is_anything_there();
  placed.source = nullptr;
  placed.columns = {};
  placed.rows = {};
}

bool FrameRows::is_anything_there() const {
  return placed_.empty() || was_anything_there_ ||
         std::any_of(placed_.begin(), placed_.end(), [](const Placed& placed) {
           return placed.source != nullptr && placed.layer->is_anything_there();
         });
}

void FrameRows::read(uint32_t first, uint32_t count, uint16_t* out) {
  std::fill_n(out, format_.row_samples() * count, uint16_t{0});
  for (size_t i = 0; i < placed_.size(); ++i) {
    Placed& placed = placed_[i];
    const uint32_t begin = placed.y.first();
    if (begin >= first + count || begin + placed.y.count() <= first) continue;
    if (placed.source == nullptr) open(placed);
    draw(placed, first, count, out);
    if (i >= kMostOpen) close(placed);
  }
}

uint32_t FrameRows::good_count(uint32_t first) const {
  uint64_t bytes = format_.row_samples() * sizeof(uint16_t);
  uint64_t largest = 0;  // of those that are open one at a time
  for (size_t i = 0; i < placed_.size(); ++i) {
    const uint64_t here = placed_[i].bytes_a_row;
    if (i < kMostOpen) {
      bytes += here;
    } else {
      largest = std::max(largest, here);
    }
  }
  bytes += largest;
  return std::min(rows_of_strip(format_, bytes), format_.height - first);
}

void FrameRows::draw(Placed& placed, uint32_t first, uint32_t count, uint16_t* out) {
  const uint32_t top = placed.y.first();
  const uint32_t begin = std::max(first, top);
  const uint32_t end = std::min(first + count, top + placed.y.count());
  const Placement::Mean& uppermost = placed.rows[begin - top];
  const Placement::Mean& lowest = placed.rows[end - 1 - top];
  const uint32_t source_begin = uppermost.first;
  const auto source_end = static_cast<uint32_t>(lowest.first + lowest.weights.size());
  const Format& source = placed.source->format();
  strip_.resize(source.row_samples() * (source_end - source_begin));
  placed.source->read(source_begin, source_end - source_begin, strip_.data());

  const uint32_t channels = source.channels();
  const uint32_t greatest = (1U << source.depth) - 1;
  const bool has_opacity = source.opacity != Opacity::kNone;
  row_.resize(placed.columns.size() * channels);
  for (uint32_t y = begin; y < end; ++y) {
    const Placement::Mean& down = placed.rows[y - top];
    const uint16_t* const rows_from =
        strip_.data() + source.row_samples() * (down.first - source_begin);
    uint16_t* pixel = row_.data();
    for (const Placement::Mean& across : placed.columns) {
      const uint16_t* const corner = rows_from + size_t{across.first} * channels;
      if (placed.is_plain) {
        std::copy_n(corner, channels, pixel);
        pixel += channels;
        continue;
      }
      // Colours count by their opacity.
      for (uint32_t k = 0; k < channels; ++k, ++pixel) {
        const bool is_opacity = has_opacity && k == source.colours;
        double sum = 0, total = 0;
        for (size_t j = 0; j < down.weights.size(); ++j) {
          const uint16_t* from = corner + source.row_samples() * j;
          for (const float across_weight : across.weights) {
            double weight = double{down.weights[j]} * across_weight;
            if (has_opacity && !is_opacity) weight *= from[source.colours];
            sum += weight * from[k];
            total += weight;
            from += channels;
          }
        }
        const double mean = total > 0 ? sum / total + 0.5 : 0;
        *pixel = static_cast<uint16_t>(std::min<double>(mean, greatest));
      }
    }
    blend_row(
        placed, row_.data(),
        out + format_.row_samples() * (y - first) + size_t{placed.x.first()} * format_.channels());
  }
}

void FrameRows::blend_row(const Placed& placed, const uint16_t* from, uint16_t* to) const {
  const Format& source = placed.source->format();
  const auto greatest = static_cast<uint16_t>((1U << format_.depth) - 1);
  const bool has_below = format_.opacity != Opacity::kNone;
  const uint32_t colours = format_.colours;
  for (size_t i = 0; i < placed.columns.size();
       ++i, from += source.channels(), to += format_.channels()) {
    const uint16_t opacity = source.opacity == Opacity::kNone ? greatest : from[colours];
    if (opacity == 0) continue;
    if (opacity == greatest) {
      std::copy_n(from, colours, to);
      if (has_below) to[colours] = greatest;
      continue;
    }
    const double upper = static_cast<double>(opacity) / greatest;
    const double below =
        (has_below ? static_cast<double>(to[colours]) / greatest : 1) * (1 - upper);
    for (uint32_t k = 0; k < colours; ++k) {
      to[k] =
          static_cast<uint16_t>(std::lround((from[k] * upper + to[k] * below) / (upper + below)));
    }
    if (has_below) to[colours] = static_cast<uint16_t>(std::lround((upper + below) * greatest));
  }
}

}  // namespace kvjpx_picture
