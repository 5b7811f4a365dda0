// Reads rows of a layer.
#include "layer.h"

#include <algorithm>
#include <set>

#include "error.h"

namespace kvjpx_picture {
namespace {

constexpr uint32_t kMostChannels = 4096;

uint64_t divided_up(uint64_t value, uint64_t by) { return (value + by - 1) / by; }

std::string numbered(const char* what, uint64_t number) {
  return std::string(what) + " " + std::to_string(number);
}

}  // namespace

uint64_t GridAxis::extent() const {
  return divided_up(uint64_t{end_ - begin_} * placement_.step + placement_.offset, placement_.unit);
}

uint32_t GridAxis::set_part(uint64_t from, uint64_t to, uint32_t reduction) {
  reduction_ = reduction;
  const uint64_t scale = uint64_t{1} << reduction;
  if (!is_plain()) {
    from_ = from;
    return static_cast<uint32_t>(divided_up(to - from, scale));
  }
  from_ = divided_up(begin_ + from, scale);
  return static_cast<uint32_t>(divided_up(begin_ + to, scale) - from_);
}

uint64_t GridAxis::grid_position(uint32_t pixel) const {
  if (is_plain()) return (from_ + pixel) << reduction_;
  const uint64_t place = (from_ + (uint64_t{pixel} << reduction_)) * placement_.unit;
  const uint64_t distance = place > placement_.offset ? place - placement_.offset : 0;
  return std::min<uint64_t>(begin_ + distance / placement_.step, end_ - 1);
}

LayerRows::LayerRows(const File& file, const Part& part, const Effort& effort, Notes& notes)
    : notes_(notes), is_strict_(effort.is_strict) {
  const bool is_bare = file.is_bare() || part.is_codestream_alone;
  LayerHeader header;
  if (is_bare) {
    header.registrations.emplace_back();
    header.registrations.back().codestream = part.number;
  } else {
    header = file.layer_header(part.number);
  }
  for (const Registration& registration : header.registrations) {
    add_source(file, registration, effort, !is_bare);
  }
  whole_width_ = sources_[0].x.extent();
  whole_height_ = sources_[0].y.extent();
  for (size_t i = 0; i < sources_.size(); ++i) add_channels(i);
  define_channels(header, is_bare);
  set_colours(header, is_bare);
  use_components();
  set_region(part.region, effort);
  set_format(file, header, effort.reduction);
}

void LayerRows::add_source(const File& file, const Registration& registration, const Effort& effort,
                           bool uses_boxes) {
  const uint64_t number = registration.codestream;
  if (number >= file.codestreams()) {
    throw Error(Error::Kind::kNoSuchPart,
                "there is no " + numbered("codestream", number) + "; the file has " +
                    std::to_string(file.codestreams()) + ", counted from 0");
  }
  CodestreamBytes bytes = file.codestream(number);
  if (bytes.all().empty()) {
    throw Error(Error::Kind::kUndecodable, numbered("codestream", number) + " is not in the file");
  }
  auto codestream = std::make_unique<Codestream>(bytes.all(), effort);
  const kv_j2k_codestream& grid = codestream->header();
  Source source{std::move(bytes),
                std::move(codestream),
                0,
                GridAxis(grid.left, grid.right,
                         {registration.unit_x, registration.step_x, registration.offset_x}),
                GridAxis(grid.top, grid.bottom,
                         {registration.unit_y, registration.step_y, registration.offset_y}),
                {},
                {}};
  if (!source.bytes.is_whole) tell_damage(numbered("codestream", number) + " is cut short");
  if (uses_boxes) source.header = file.codestream_header(number);
  if (source.header.image) compare_with_header(source);
  source.reduction = std::min(effort.reduction, grid.levels);
  if (effort.reduction > grid.levels) {
    notes_.add("the codestream can be halved " + std::to_string(grid.levels) +
               " times; the rest of the reduction leaves samples out");
  }
  sources_.push_back(std::move(source));
}

void LayerRows::compare_with_header(const Source& source) {
  const ImageHeader& told = *source.header.image;
  Codestream& codestream = *source.codestream;
  const uint32_t components = codestream.header().components;
  const auto tell = [&](const std::string& there, const std::string& in_codestream) {
    notes_.add("the image header says " + there + ", the codestream " + in_codestream +
               ": that holds");
  };
  const auto size = [](uint32_t width, uint32_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
  };
  if (told.width != codestream.width() || told.height != codestream.height()) {
    tell(size(told.width, told.height), size(codestream.width(), codestream.height()));
  }
  if (told.components != components) {
    tell(std::to_string(told.components) + " components", std::to_string(components));
  }
  for (size_t i = 0; i < std::min<size_t>(told.depths.size(), components); ++i) {
    const uint32_t depth = (told.depths[i] & 0x7F) + 1;
    const kv_j2k_component& real = codestream.component(static_cast<uint32_t>(i));
    const bool is_signed = (told.depths[i] & KV_JPX_BPC_SIGNED) != 0;
    if (depth == real.precision && is_signed == (real.is_signed != 0)) continue;
    const auto words = [](uint32_t bits, bool with_sign) {
      return std::to_string(bits) + (with_sign ? " bits with sign" : " bits");
    };
    tell(words(depth, is_signed), words(real.precision, real.is_signed != 0));
    return;
  }
}

// Components that no channel in use is made of are not decoded.
void LayerRows::use_components() {
  std::vector<size_t> wanted = colours_;
  wanted.insert(wanted.end(), opacity_.begin(), opacity_.end());
  std::vector<std::set<uint32_t>> numbers(sources_.size());
  for (const size_t channel : wanted) {
    numbers[channels_[channel].source].insert(static_cast<uint32_t>(channels_[channel].component));
  }
  for (size_t i = 0; i < sources_.size(); ++i) {
    for (const uint32_t number : numbers[i]) {
      const kv_j2k_component& found = sources_[i].codestream->component(number);
      Used used;
      used.number = number;
      used.depth = {found.precision, found.is_signed != 0};
      used.dx = found.dx;
      used.dy = found.dy;
      sources_[i].components.push_back(std::move(used));
    }
  }
  for (const size_t number : wanted) {
    Channel& channel = channels_[number];
    const auto& used = numbers[channel.source];
    const auto place = used.find(static_cast<uint32_t>(channel.component));
    channel.component = static_cast<size_t>(std::distance(used.begin(), place));
  }
}

void LayerRows::add_channels(size_t index) {
  Source& source = sources_[index];
  const uint32_t components = source.codestream->header().components;
  const CodestreamHeader& header = source.header;
  std::vector<Mapping> mapping = header.mapping;
  if (mapping.empty() && header.palette) {
    notes_.add("the palette has no component mapping; component 0 goes through it");
    const auto columns = static_cast<uint32_t>(header.palette->columns.size());
    for (uint32_t i = 0; i < columns; ++i) mapping.push_back({0, true, i});
  }
  if (mapping.empty()) {
    for (uint32_t i = 0; i < components; ++i) mapping.push_back({i, false, 0});
  }
  for (const Mapping& one : mapping) {
    if (channels_.size() >= kMostChannels) {
      throw Error(Error::Kind::kTooLarge,
                  "more than " + std::to_string(kMostChannels) + " channels");
    }
    if (one.component >= components) {
      notes_.add("the component mapping names " + numbered("component", one.component) +
                 ", which the codestream does not have");
      continue;
    }
    Channel channel{index, 0, {}, {}};
    channel.component = one.component;
    const kv_j2k_component& component = source.codestream->component(one.component);
    channel.depth = {component.precision, component.is_signed != 0};
    if (one.is_palette && (!header.palette || one.column >= header.palette->columns.size())) {
      notes_.add("the component mapping names a column that the palette does not have");
    } else if (one.is_palette) {
      const Palette::Column& column = header.palette->columns[one.column];
      channel.palette = column.values;
      channel.depth = {column.depth, column.is_signed};
    }
    channels_.push_back(std::move(channel));
  }
  if (channels_.empty()) throw Error(Error::Kind::kUndecodable, "the picture has no channel");
}

void LayerRows::define_by_boxes(const std::vector<ChannelDefinition>& definitions) {
  constexpr size_t kNone = SIZE_MAX;
  std::vector<size_t> colours(channels_.size(), kNone);
  std::vector<bool> is_defined(channels_.size(), false);
  for (const ChannelDefinition& definition : definitions) {
    const size_t channel = definition.channel;
    if (channel >= channels_.size() || is_defined[channel]) continue;
    is_defined[channel] = true;
    const uint32_t colour = definition.association;
    const bool is_opacity = definition.type == KV_JPX_TYP_OPACITY ||
                            definition.type == KV_JPX_TYP_PREMULTIPLIED_OPACITY;
    if (definition.type == KV_JPX_TYP_COLOUR) {
      // A colour for the whole image is the only one there is.
      const size_t place = colour == KV_JPX_ASOC_WHOLE_IMAGE ? 0 : size_t{colour} - 1;
      if (place < colours.size() && colours[place] == kNone) colours[place] = channel;
    } else if (is_opacity && colour == KV_JPX_ASOC_WHOLE_IMAGE && opacity_.empty()) {
      opacity_.push_back(channel);
      is_premultiplied_ = definition.type == KV_JPX_TYP_PREMULTIPLIED_OPACITY;
    } else if (is_opacity) {
      notes_.add(numbered("channel", channel) + " is the opacity of one colour: left out");
    } else {
      notes_.add(numbered("channel", channel) + " has no meaning that is known: left out");
    }
  }
  for (size_t place = 0; place < colours.size(); ++place) {
    if (colours[place] != kNone) colours_.push_back(colours[place]);
  }
  if (!colours_.empty()) return;
  notes_.add("the channel definition has no colours; channels are taken in their order");
  for (size_t i = 0; i < channels_.size(); ++i) {
    if (opacity_.empty() || opacity_[0] != i) colours_.push_back(i);
  }
}

void LayerRows::define_by_order(const LayerHeader& header, bool is_bare) {
  for (size_t i = 0; i < channels_.size(); ++i) colours_.push_back(i);
  const bool has_opacity_box =
      header.opacity && header.opacity->type <= KV_JPX_OTYP_PREMULTIPLIED_OPACITY;
  const bool looks_like_opacity = is_bare && (colours_.size() == 2 || colours_.size() == 4);
  if ((!has_opacity_box && !looks_like_opacity) || colours_.size() < 2) return;
  is_premultiplied_ = has_opacity_box && header.opacity->type == KV_JPX_OTYP_PREMULTIPLIED_OPACITY;
  opacity_.push_back(colours_.back());
  colours_.pop_back();
}

void LayerRows::define_channels(const LayerHeader& header, bool is_bare) {
  if (header.definitions.empty()) {
    define_by_order(header, is_bare);
  } else {
    define_by_boxes(header.definitions);
  }
  if (!header.opacity || header.opacity->type != KV_JPX_OTYP_CHROMA_KEY) return;
  const size_t last = *std::max_element(colours_.begin(), colours_.end());
  if (header.opacity->key.size() <= last) {
    notes_.add("the chroma key has too few values: not used");
  } else if (opacity_.empty()) {
    key_ = header.opacity->key;
  }
}

void LayerRows::set_colours(const LayerHeader& header, bool is_bare) {
  const auto count = static_cast<uint32_t>(colours_.size());
  space_ = is_bare ? colour_by_count(count) : choose_colour(header.colours, count, notes_);
  const bool is_told = space_.coding != Coding::kDirect || !space_.icc.empty() || !is_bare;
  if (!is_told && count == 3) {
    const auto sampling = [&](size_t i) {
      const Channel& channel = channels_[colours_[i]];
      const kv_j2k_component& c =
          sources_[channel.source].codestream->component(static_cast<uint32_t>(channel.component));
      return c.dx * c.dy;
    };
    if (sampling(0) == 1 && sampling(1) > 1 && sampling(2) > 1) {
      notes_.add("components 1 and 2 have fewer samples, so they are taken for sYCC's");
      space_.coding = Coding::kYcc;
    }
  }
  for (size_t i = space_.channels; i < colours_.size(); ++i) {
    notes_.add(numbered("channel", colours_[i]) + " has no definition: left out");
  }
  colours_.resize(std::min<size_t>(colours_.size(), space_.channels));
}

void LayerRows::set_region(const Rectangle& region, const Effort& effort) {
  if (region.left >= whole_width_ || region.top >= whole_height_) {
    throw Error(Error::Kind::kUndecodable, "the region lies outside the image of " +
                                               std::to_string(whole_width_) + " x " +
                                               std::to_string(whole_height_));
  }
  const uint64_t right = std::min(region.right, whole_width_);
  const uint64_t bottom = std::min(region.bottom, whole_height_);
  for (Source& source : sources_) {
    const uint32_t width = source.x.set_part(region.left, right, effort.reduction);
    const uint32_t height = source.y.set_part(region.top, bottom, effort.reduction);
    if (&source != &sources_[0]) continue;
    format_.width = width;
    format_.height = height;
  }
  if (format_.width == 0 || format_.height == 0) {
    throw Error(Error::Kind::kUndecodable, "at this reduction nothing is left of the picture");
  }
  check_size(format_.width, format_.height, colours_.size() + opacity_.size(), 1,
             effort.sample_limit);
  for (Source& source : sources_) {
    // Not so many halvings that a component is left without a sample.
    for (Used& used : source.components) {
      const auto has_samples = [&] {
        const uint64_t x = uint64_t{used.dx} << source.reduction;
        const uint64_t y = uint64_t{used.dy} << source.reduction;
        return divided_up(source.x.begin(), x) < divided_up(source.x.end(), x) &&
               divided_up(source.y.begin(), y) < divided_up(source.y.end(), y);
      };
      while (source.reduction > 0 && !has_samples()) --source.reduction;
      used.has_samples = has_samples();
    }
    for (Used& used : source.components) place_component(source, used);
  }
}

void LayerRows::place_component(Source& source, Used& used) {
  if (!used.has_samples) return;
  const uint64_t x = uint64_t{used.dx} << source.reduction;
  const uint64_t y = uint64_t{used.dy} << source.reduction;
  used.first_row = divided_up(source.y.begin(), y);
  used.last_row = divided_up(source.y.end(), y) - 1;
  const uint64_t first = divided_up(source.x.begin(), x);
  const uint64_t last = divided_up(source.x.end(), x) - 1;
  const auto column = [&](uint32_t pixel) {
    return std::clamp(source.x.grid_position(pixel) / x, first, last);
  };
  used.first_column = column(0);
  used.last_column = column(format_.width - 1);
  bool is_each_its_own = true;
  std::vector<uint32_t> columns(format_.width);
  for (uint32_t i = 0; i < format_.width; ++i) {
    columns[i] = static_cast<uint32_t>(column(i) - used.first_column);
    is_each_its_own = is_each_its_own && columns[i] == i;
  }
  if (!is_each_its_own) used.columns = std::move(columns);
}

void LayerRows::set_format(const File& file, const LayerHeader& header, uint32_t reduction) {
  uint32_t depth = 1;
  std::vector<SampleDepth> depths;
  for (const size_t channel : colours_) depths.push_back(channels_[channel].depth);
  std::vector<SampleDepth> all = depths;
  for (const size_t channel : opacity_) all.push_back(channels_[channel].depth);
  for (const SampleDepth& one : all) depth = std::max(depth, one.depth);
  if (depth > 16) {
    notes_.add("samples of " + std::to_string(depth) + " bits keep their upper 16");
    depth = 16;
  }
  // Ranges and offsets of the box are not those of the format, so 8 bits would lose by them.
  if (space_.model == Model::kLab) depth = 16;
  format_.depth = depth;
  format_.model = space_.model;
  format_.colours = static_cast<uint32_t>(colours_.size());
  format_.icc = space_.icc;
  format_.is_srgb = space_.is_srgb;
  format_.opacity = opacity_.empty() && key_.empty() ? Opacity::kNone
                    : is_premultiplied_              ? Opacity::kPremultiplied
                                                     : Opacity::kStraight;
  const double scale = static_cast<double>(uint64_t{1} << reduction);
  format_.dots_per_metre_x = header.resolution.x / scale;
  format_.dots_per_metre_y = header.resolution.y / scale;
  format_.xmp = file.xmp();
  format_.exif = file.exif();
  kernel_ = make_kernel(space_, depths, depth);
  if (!opacity_.empty()) {
    opacity_map_ = std::make_unique<DepthMap>(channels_[opacity_[0]].depth, depth);
  }
}

void LayerRows::tell_damage(const std::string& damage) {
  if (is_strict_) throw Error(Error::Kind::kUndecodable, damage);
  notes_.add(damage);
}

// Which row of a component a row of the picture shows.
uint64_t LayerRows::row_of(const Source& source, const Used& used, uint32_t row) const {
  const uint64_t spacing = uint64_t{used.dy} << source.reduction;
  return std::clamp(source.y.grid_position(row) / spacing, used.first_row, used.last_row);
}

LayerRows::Strip LayerRows::decode(Source& source, uint32_t first, uint32_t count) {
  GridRectangle part = {UINT64_MAX, UINT64_MAX, 0, 0};
  std::vector<uint32_t> components;
  for (const Used& used : source.components) {
    components.push_back(used.number);
    if (!used.has_samples) continue;
    const uint64_t x = uint64_t{used.dx} << source.reduction;
    const uint64_t y = uint64_t{used.dy} << source.reduction;
    part.left = std::min(part.left, used.first_column * x);
    part.right = std::max(part.right, used.last_column * x + 1);
    part.top = std::min(part.top, row_of(source, used, first) * y);
    part.bottom = std::max(part.bottom, row_of(source, used, first + count - 1) * y + 1);
  }
  Strip strip;
  if (part.right == 0) return strip;
  std::string damage;
  strip.samples = source.codestream->decode(part, source.reduction, components, damage);
  if (!damage.empty()) notes_.add(damage);
  if (strip.samples) is_anything_there_ = true;
  return strip;
}

// A row of a channel's samples, a pixel each.
const int32_t* LayerRows::channel_row(const Channel& channel, const Strip& strip, uint32_t row,
                                      std::vector<int32_t>& scratch) const {
  const Source& source = sources_[channel.source];
  const Used& used = source.components[channel.component];
  const int32_t* samples = nullptr;
  if (strip.samples && used.has_samples) {
    const kv_j2k_plane& plane = strip.samples->planes[channel.component];
    const uint64_t wanted = row_of(source, used, row);
    const bool is_there = wanted >= plane.y0 && wanted - plane.y0 < plane.height &&
                          used.first_column >= plane.x0 &&
                          used.last_column - plane.x0 < plane.width;
    if (is_there) {
      samples = plane.samples + (wanted - plane.y0) * plane.width + (used.first_column - plane.x0);
    }
  }
  if (samples != nullptr && used.columns.empty() && channel.palette.empty()) return samples;
  scratch.resize(format_.width);
  if (samples == nullptr) {
    const auto middle = used.depth.is_signed ? 0 : int32_t{1} << (used.depth.depth - 1);
    std::fill(scratch.begin(), scratch.end(), middle);
  } else if (used.columns.empty()) {
    std::copy_n(samples, format_.width, scratch.begin());
  } else {
    for (uint32_t i = 0; i < format_.width; ++i) scratch[i] = samples[used.columns[i]];
  }
  if (!channel.palette.empty()) {
    const auto last = static_cast<int32_t>(channel.palette.size() - 1);
    for (int32_t& sample : scratch) {
      sample = channel.palette[static_cast<size_t>(std::clamp(sample, 0, last))];
    }
  }
  return scratch.data();
}

void LayerRows::write_opacity(const std::vector<const int32_t*>& rows, uint16_t* out) const {
  const size_t stride = format_.channels();
  out += format_.colours;
  if (!opacity_.empty()) {
    const int32_t* opacity = rows.back();
    for (uint32_t i = 0; i < format_.width; ++i) out[i * stride] = (*opacity_map_)(opacity[i]);
    return;
  }
  const auto opaque = static_cast<uint16_t>((1U << format_.depth) - 1);
  for (uint32_t i = 0; i < format_.width; ++i) {
    bool is_key = true;
    for (size_t colour = 0; colour < colours_.size() && is_key; ++colour) {
      // As the file holds it: of negative samples the lower bits.
      const auto mask = static_cast<uint64_t>(channels_[colours_[colour]].depth.greatest());
      is_key = (static_cast<uint64_t>(rows[colour][i]) & mask) == (key_[colours_[colour]] & mask);
    }
    out[i * stride] = is_key ? 0 : opaque;
  }
}

void LayerRows::read(uint32_t first, uint32_t count, uint16_t* out) {
  std::vector<Strip> strips;
  for (Source& source : sources_) strips.push_back(decode(source, first, count));
  std::vector<size_t> wanted = colours_;
  wanted.insert(wanted.end(), opacity_.begin(), opacity_.end());
  std::vector<std::vector<int32_t>> scratch(wanted.size());
  std::vector<const int32_t*> rows(wanted.size());
  for (uint32_t row = first; row < first + count; ++row, out += format_.row_samples()) {
    for (size_t i = 0; i < wanted.size(); ++i) {
      const Channel& channel = channels_[wanted[i]];
      rows[i] = channel_row(channel, strips[channel.source], row, scratch[i]);
    }
    kernel_->convert(rows.data(), format_.width, out, format_.channels());
    if (format_.opacity != Opacity::kNone) write_opacity(rows, out);
  }
}

uint32_t LayerRows::levels() const {
  uint32_t levels = UINT32_MAX;
  for (const Source& source : sources_) {
    levels = std::min(levels, source.codestream->header().levels);
  }
  return levels;
}

uint32_t LayerRows::good_count(uint32_t first) const {
  constexpr uint64_t kDecodedSample = 24;  // with what the codec works in
  uint64_t bytes = format_.row_samples() * sizeof(uint16_t);
  for (const Source& source : sources_) {
    for (const Used& used : source.components) {
      if (used.has_samples) {
        bytes += (used.last_column - used.first_column + 1) * kDecodedSample / used.dy;
      }
    }
  }
  const uint32_t affordable = std::min(rows_of_strip(format_, bytes), format_.height - first);
  // Up to the edge of a row of tiles, so that no tile is decoded twice, where that can be afforded.
  const Source& source = sources_[0];
  const kv_j2k_codestream& grid = source.codestream->header();
  if (grid.tile_height == 0) return affordable;
  const auto tile_of = [&](uint32_t row) {
    return (source.y.grid_position(row) - grid.tile_top) / grid.tile_height;
  };
  uint32_t last = first + affordable - 1;
  const uint64_t tile = tile_of(last);
  if (tile_of(first) == tile) return affordable;
  if (last + 1 < format_.height && tile_of(last + 1) == tile) {
    uint32_t low = first, high = last;  // low in a tile before, high in that one
    while (high - low > 1) {
      const uint32_t middle = low + (high - low) / 2;
      (tile_of(middle) == tile ? high : low) = middle;
    }
    last = low;
  }
  return last - first + 1;
}

}  // namespace kvjpx_picture
