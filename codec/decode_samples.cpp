// Plans which tiles are needed, decodes them side by side, and puts their samples together.
#include "decode_samples.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "broken_tile.h"
#include "failure.h"
#include "tile_source.h"

namespace kvj2k {
namespace {

// Fewer samples are decoded before a second thread has started.
constexpr uint64_t kSamplesForThreads = uint64_t{1} << 16;
constexpr size_t kMostRangesInWords = 20;
// A decoder that is there already reads headers of packets again, but makes nothing anew.
constexpr Cost kReuseDiscount = 4;

// A part of the work: a tile's, or that of all tiles where they can't be taken apart.
struct Unit {
  uint32_t tile = 0;
  bool is_of_all_tiles = false;
  Area area;     // whose samples are wanted
  Area decoded;  // whose samples OpenJPEG is asked for
  DecoderSettings settings;
  std::unique_ptr<AreaDecoder> decoder;

  // What came of it.
  bool is_missing = false;
  bool is_damaged = false;
  std::exception_ptr failure;
};

// Runs body(0), body(1)... on several threads, the calling one included. The body must not throw.
template <typename Body>
void run_side_by_side(size_t count, size_t workers, const Body& body) {
  std::atomic<size_t> next{0};
  const auto work = [&] {
    for (size_t i; (i = next.fetch_add(1)) < count;) body(i);
  };
  std::vector<std::thread> threads;
  try {
    for (size_t i = 1; i < workers; ++i) threads.emplace_back(work);
  } catch (const std::exception&) {
    // With fewer threads it takes longer.
  }
  work();
  for (std::thread& thread : threads) thread.join();
}

// "3, 5 and 7 to 9"
std::string number_words(const std::vector<uint32_t>& numbers) {
  std::vector<std::string> ranges;
  for (size_t i = 0; i < numbers.size() && ranges.size() <= kMostRangesInWords;) {
    size_t end = i + 1;
    while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) ++end;
    std::string range = std::to_string(numbers[i]);
    if (end - i > 1) range += (end - i > 2 ? " to " : ", ") + std::to_string(numbers[end - 1]);
    ranges.push_back(range);
    i = end;
  }
  if (ranges.size() > kMostRangesInWords) ranges.back() = "others";
  std::string words;
  for (size_t i = 0; i < ranges.size(); ++i) {
    if (i > 0) words += i + 1 < ranges.size() ? ", " : " and ";
    words += ranges[i];
  }
  return words;
}

std::string tile_words(const std::vector<uint32_t>& tiles) {
  return (tiles.size() == 1 ? "tile " : "tiles ") + number_words(tiles);
}

class SampleDecoding {
 public:
  SampleDecoding(const SampleInput& input, const SampleRequest& request)
      : input_(input),
        header_(input.header),
        request_(request),
        result_(std::make_unique<SampleSet>()) {}

  SampleSetPointer run(TileDecoders& decoders, Cost* work) {
    *work = 0;
    plan_planes();
    plan_units();
    take(decoders);
    const Cost planned = cost();
    input_.limits.check(planned, input_.codestream.length);
    *work = planned;
    decode_units();
    *work += static_cast<Cost>(attempts_) * (header_.opening_cost + header_.tile_cost);
    for (const Unit& unit : units_) {
      if (unit.failure != nullptr) std::rethrow_exception(unit.failure);
    }
    report();
    keep(decoders);
    return std::move(result_);
  }

 private:
  uint64_t x_spacing(uint32_t component) const {
    return uint64_t{header_.components[component].dx} << request_.reduction;
  }
  uint64_t y_spacing(uint32_t component) const {
    return uint64_t{header_.components[component].dy} << request_.reduction;
  }
  Area samples_in(const Area& area, uint32_t component) const {
    return {area.x.points(x_spacing(component)), area.y.points(y_spacing(component))};
  }

  void plan_planes() {
    for (const uint32_t component : request_.components) {
      const ComponentHeader& layout = header_.components[component];
      const Area samples = samples_in(request_.area, component);
      kv_j2k_plane plane = {};
      plane.component = component;
      plane.precision = layout.precision;
      plane.is_signed = layout.is_signed;
      plane.dx = layout.dx;
      plane.dy = layout.dy;
      plane.x0 = static_cast<uint32_t>(samples.x.begin);
      plane.y0 = static_cast<uint32_t>(samples.y.begin);
      plane.width = static_cast<uint32_t>(samples.x.size());
      plane.height = static_cast<uint32_t>(samples.y.size());
      result_->all_planes.push_back(plane);
    }
    result_->buffers.resize(result_->all_planes.size());
  }

  void plan_units() {
    if (header_.has_packed_headers) {
      add_unit(0, true, request_.area);
      return;
    }
    const Area& area = request_.area;
    const uint32_t across = header_.x.tile_count();
    const Span rows = tiles_touched(header_.y, area.y);
    const Span columns = tiles_touched(header_.x, area.x);
    // The plan itself takes memory for each tile and component.
    const Cost tiles = static_cast<Cost>(rows.size() * columns.size());
    input_.limits.check(tiles * (header_.opening_cost + header_.tile_cost) / kReuseDiscount,
                        input_.codestream.length);
    for (auto row = static_cast<uint32_t>(rows.begin); row < rows.end; ++row) {
      for (auto column = static_cast<uint32_t>(columns.begin); column < columns.end; ++column) {
        const uint32_t tile = row * across + column;
        const Area whole = tile_area(header_, tile);
        add_unit(tile, false, {whole.x.intersected(area.x), whole.y.intersected(area.y)});
      }
    }
  }

  static Span tiles_touched(const GridAxis& axis, const Span& span) {
    return {axis.tile_index(span.begin), uint64_t{axis.tile_index(span.end - 1)} + 1};
  }

  void add_unit(uint32_t tile, bool is_of_all_tiles, const Area& area) {
    Unit unit;
    unit.tile = tile;
    unit.is_of_all_tiles = is_of_all_tiles;
    unit.area = unit.decoded = area;
    std::vector<uint32_t>& components = unit.settings.components;
    for (const uint32_t component : request_.components) {
      if (!samples_in(area, component).is_empty()) components.push_back(component);
    }
    if (components.empty()) return;
    if (header_.has_component_transform || components.size() == header_.components.size()) {
      components = {};
      extend_to_all_components(unit);
    }
    unit.settings.reduction = request_.reduction;
    unit.settings.layers = request_.layers;
    unit.settings.notes_damage = request_.is_partial;
    unit.settings.is_single_tile = !unit.is_of_all_tiles || header_.tile_count() == 1;
    units_.push_back(std::move(unit));
  }

  // OpenJPEG decodes no area in which one of the components has no sample.
  void extend_to_all_components(Unit& unit) const {
    if (!unit.is_of_all_tiles && extend(unit, tile_area(header_, unit.tile))) return;
    unit.is_of_all_tiles = true;
    if (!extend(unit, {{header_.x.begin, header_.x.end}, {header_.y.begin, header_.y.end}})) {
      throw Failure(KV_J2K_ERR_INTERNAL,
                    "OpenJPEG can't decode components that have no sample at this reduction");
    }
  }

  bool extend(Unit& unit, const Area& limits) const {
    Area area = unit.area;
    for (uint32_t i = 0; i < header_.components.size(); ++i) {
      if (!extend(area.x, limits.x, x_spacing(i)) || !extend(area.y, limits.y, y_spacing(i))) {
        return false;
      }
    }
    unit.decoded = area;
    return true;
  }

  static bool extend(Span& span, const Span& limits, uint64_t spacing) {
    if (!span.points(spacing).is_empty()) return true;
    const uint64_t before = span.begin / spacing * spacing;
    if (before >= limits.begin) {
      span.begin = before;
    } else if (before + spacing < limits.end) {
      span.end = before + spacing + 1;
    } else {
      return false;
    }
    return true;
  }

  void take(TileDecoders& decoders) {
    for (Unit& unit : units_) {
      const auto found = decoders.find(unit.tile);
      if (found == decoders.end() || unit.is_of_all_tiles) continue;
      if (found->second->settings().is_like(unit.settings)) unit.decoder = std::move(found->second);
    }
    decoders.clear();
  }

  void keep(TileDecoders& decoders) {
    for (Unit& unit : units_) {
      if (unit.decoder == nullptr || unit.is_of_all_tiles) continue;
      if (unit.decoder->is_reusable()) decoders[unit.tile] = std::move(unit.decoder);
    }
  }

  uint64_t samples_of(const Unit& unit) const {
    uint64_t samples = 0;
    const auto add = [&](uint32_t component) {
      const Area wanted = samples_in(unit.decoded, component);
      samples += wanted.x.size() * wanted.y.size();
    };
    if (unit.settings.components.empty()) {
      for (uint32_t i = 0; i < header_.components.size(); ++i) add(i);
    } else {
      for (const uint32_t component : unit.settings.components) add(component);
    }
    return samples;
  }

  Cost cost() const {
    Cost cost = 0;
    for (const Unit& unit : units_) {
      const Cost records = unit.is_of_all_tiles
                               ? header_.base_cost + header_.tile_count() * header_.tile_cost
                               : header_.opening_cost + header_.tile_cost;
      cost += static_cast<Cost>(samples_of(unit)) +
              (unit.decoder != nullptr ? records / kReuseDiscount : records);
    }
    return cost;
  }

  void decode_units() {
    if (units_.size() != 1) {
      for (size_t i = 0; i < result_->buffers.size(); ++i) allocate(i);
    }
    const uint32_t threads = thread_count(request_.threads);
    const size_t workers = std::clamp<size_t>(units_.size(), 1, threads);
    for (Unit& unit : units_) {
      const bool is_small = samples_of(unit) < kSamplesForThreads;
      unit.settings.threads = is_small ? 1 : threads / static_cast<uint32_t>(workers);
    }
    std::atomic<bool> is_over{false};
    run_side_by_side(units_.size(), workers, [&](size_t i) {
      if (is_over) return;
      decode_unit(units_[i]);
      if (units_[i].failure != nullptr) is_over = true;
    });
  }

  void decode_unit(Unit& unit) noexcept {
    try {
      try {
        fill_from(unit, *decode(unit));
      } catch (const Failure& failure) {
        if (!request_.is_partial || failure.code() != KV_J2K_ERR_BROKEN_CODESTREAM) throw;
        fill_with_nothing(unit);
      }
    } catch (const std::exception&) {
      unit.failure = std::current_exception();
    }
  }

  OpjImage decode(Unit& unit) {
    const TileData data = unit.is_of_all_tiles ? TileData() : data_of(unit);
    OpjImage image;
    try {
      if (unit.decoder == nullptr) unit.decoder = open(unit, data);
      image = unit.decoder->decode(unit.decoded);
    } catch (const Failure& failure) {
      const bool can_be_mended = request_.is_partial && !unit.is_of_all_tiles;
      if (!can_be_mended || failure.code() != KV_J2K_ERR_BROKEN_CODESTREAM) throw;
      unit.decoder = open_broken(unit, data);
      image = unit.decoder->decode(unit.decoded);
      unit.is_damaged = true;
    }
    unit.is_damaged = unit.is_damaged || unit.decoder->has_met_damage();
    return image;
  }

  std::unique_ptr<AreaDecoder> open_broken(const Unit& unit, const TileData& data) {
    const auto shortage = [&](TileEnd end) { return shortage_of(unit, data, end); };
    TileEnd end;
    if (const auto packet = shortage(end)) {
      end = mended_end({*packet, length_of(data), header_.most_layers > 1}, shortage);
    }
    return open_mended(unit, unit.settings, data, end);
  }

  std::optional<BrokenPacket> shortage_of(const Unit& unit, const TileData& data, TileEnd end) {
    constexpr uint64_t kWidestSpacing = 255;
    ++attempts_;
    DecoderSettings settings = unit.settings;
    settings.threads = 1;
    // A part with a sample of each component, as it is packets that are looked at.
    const uint64_t few = kWidestSpacing << request_.reduction;
    Area area = unit.decoded;
    area.x.end = std::min(area.x.end, area.x.begin + few);
    area.y.end = std::min(area.y.end, area.y.begin + few);
    try {
      open_mended(unit, settings, data, end)->decode(area);
    } catch (const Failure& failure) {
      if (failure.code() != KV_J2K_ERR_BROKEN_CODESTREAM) throw;
      return broken_packet(failure);
    }
    return std::nullopt;
  }

  std::unique_ptr<AreaDecoder> open_mended(const Unit& unit, const DecoderSettings& settings,
                                           const TileData& data, TileEnd end) const {
    return std::make_unique<AreaDecoder>(
        make_mended_tile_source(input_.codestream, header_, unit.tile, data, end), settings);
  }

  std::unique_ptr<AreaDecoder> open(const Unit& unit, const TileData& data) const {
    Source source;
    if (unit.is_of_all_tiles) {
      source.append(input_.codestream);
    } else {
      source = make_tile_source(input_.codestream, header_, unit.tile, data);
    }
    return std::make_unique<AreaDecoder>(std::move(source), unit.settings);
  }

  TileData data_of(Unit& unit) const {
    const TileData data = find_tile(header_, unit.tile);
    unit.is_damaged = !data.is_complete;
    if (data.count == 0 || (!data.is_complete && !request_.is_partial)) {
      throw Failure(
          KV_J2K_ERR_BROKEN_CODESTREAM,
          (data.count == 0 ? "there is nothing of tile " : "there is only a part of tile ") +
              std::to_string(unit.tile));
    }
    return data;
  }

  void allocate(size_t i) {
    const kv_j2k_plane& plane = result_->all_planes[i];
    const size_t count = size_t{plane.width} * plane.height;
    if (count == 0) return;
    auto* samples = static_cast<int32_t*>(opj_image_data_alloc(count * sizeof(int32_t)));
    if (samples == nullptr) throw std::bad_alloc();
    result_->buffers[i].reset(samples);
  }

  // Where the samples of a unit begin in a plane.
  int32_t* place(size_t i, const Area& samples) {
    const kv_j2k_plane& plane = result_->all_planes[i];
    return result_->buffers[i].get() + (samples.y.begin - plane.y0) * plane.width +
           (samples.x.begin - plane.x0);
  }

  void fill_from(const Unit& unit, opj_image_t& decoded) {
    const std::vector<uint32_t>& components = unit.settings.components;
    const size_t expected = components.empty() ? header_.components.size() : components.size();
    if (decoded.numcomps != expected) {
      throw Failure(KV_J2K_ERR_INTERNAL, "OpenJPEG sees another number of components");
    }
    for (size_t i = 0; i < result_->all_planes.size(); ++i) {
      const uint32_t component = result_->all_planes[i].component;
      const Area samples = samples_in(unit.area, component);
      if (samples.is_empty()) continue;
      const size_t at = components.empty()
                            ? component
                            : static_cast<size_t>(std::lower_bound(components.begin(),
                                                                   components.end(), component) -
                                                  components.begin());
      fill_plane(i, samples, samples_in(unit.decoded, component), decoded.comps[at]);
    }
  }

  void fill_plane(size_t i, const Area& samples, const Area& there, opj_image_comp_t& decoded) {
    if (decoded.data == nullptr || decoded.w != there.x.size() || decoded.h != there.y.size()) {
      throw Failure(KV_J2K_ERR_INTERNAL, "OpenJPEG decoded other samples than it should have");
    }
    if (units_.size() == 1 && samples == there) {
      result_->buffers[i].reset(std::exchange(decoded.data, nullptr));
      return;
    }
    if (result_->buffers[i] == nullptr) allocate(i);
    const size_t stride = result_->all_planes[i].width;
    const size_t columns = samples.x.size();
    const int32_t* from = decoded.data + (samples.y.begin - there.y.begin) * decoded.w +
                          (samples.x.begin - there.x.begin);
    int32_t* to = place(i, samples);
    for (uint64_t row = samples.y.begin; row < samples.y.end; ++row) {
      std::memcpy(to, from, columns * sizeof(int32_t));
      from += decoded.w;
      to += stride;
    }
  }

  // Mid-grey, as of a tile whose coefficients are all zero.
  void fill_with_nothing(Unit& unit) {
    unit.is_missing = true;
    unit.decoder.reset();
    for (size_t i = 0; i < result_->all_planes.size(); ++i) {
      const kv_j2k_plane& plane = result_->all_planes[i];
      const Area samples = samples_in(unit.area, plane.component);
      if (samples.is_empty()) continue;
      if (result_->buffers[i] == nullptr) allocate(i);
      const int32_t value = plane.is_signed ? 0 : int32_t{1} << (plane.precision - 1);
      int32_t* row = place(i, samples);
      for (uint64_t y = samples.y.begin; y < samples.y.end; ++y, row += plane.width) {
        std::fill_n(row, samples.x.size(), value);
      }
    }
  }

  void report() {
    std::vector<uint32_t> damaged;
    SampleSet& result = *result_;
    for (const Unit& unit : units_) {
      if (unit.is_missing) {
        result.missing_numbers.push_back(unit.tile);
      } else if (unit.is_damaged) {
        damaged.push_back(unit.tile);
      }
    }
    if (!units_.empty() && result.missing_numbers.size() == units_.size()) {
      throw Failure(KV_J2K_ERR_BROKEN_CODESTREAM, "nothing of what was asked for can be decoded");
    }
    std::string& words = result.missing_words;
    if (!result.missing_numbers.empty()) {
      words = tile_words(result.missing_numbers) + " of " + std::to_string(header_.tile_count());
    }
    if (!damaged.empty()) {
      if (!words.empty()) words += "; ";
      words += header_.tile_count() == 1 ? "a part of the image's data"
                                         : "a part of the data of " + tile_words(damaged);
    }
    finish(words.empty());
  }

  void finish(bool is_complete) {
    SampleSet& result = *result_;
    for (size_t i = 0; i < result.all_planes.size(); ++i) {
      result.all_planes[i].samples = result.buffers[i].get();
    }
    result.plane_count = static_cast<uint32_t>(result.all_planes.size());
    result.planes = result.all_planes.data();
    result.is_complete = is_complete;
    result.missing_tile_count = static_cast<uint32_t>(result.missing_numbers.size());
    result.missing_tiles = result.missing_numbers.data();
    result.missing = result.missing_words.c_str();
  }

  const SampleInput& input_;
  const CodestreamHeader& header_;
  const SampleRequest& request_;
  std::vector<Unit> units_;
  std::atomic<uint64_t> attempts_{0};  // at broken tiles
  SampleSetPointer result_;
};

}  // namespace

SampleSetPointer decode_samples(const SampleInput& input, const SampleRequest& request,
                                TileDecoders& decoders, Cost* work) {
  return SampleDecoding(input, request).run(decoders, work);
}

}  // namespace kvj2k
