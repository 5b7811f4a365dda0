// Cuts a tile out of its codestream.
#include "tile_source.h"

#include <algorithm>
#include <utility>

namespace kvj2k {
namespace {

constexpr size_t kSizBegin = 2;  // behind SOC
constexpr size_t kSotSize = 12;
constexpr uint32_t kMostParts = 255;
constexpr uint8_t kUsesEph = 4;  // of Scod
// The second bytes of markers.
constexpr uint8_t kCod = 0x52;
constexpr uint8_t kPpt = 0x61;
constexpr uint8_t kEph = 0x92;
constexpr uint8_t kSod = 0x93;

void store(uint8_t* to, uint64_t value, size_t bytes) {
  for (size_t i = bytes; i-- > 0; value >>= 8) to[i] = static_cast<uint8_t>(value);
}

Span tile_span(const GridAxis& axis, uint32_t index) {
  const uint64_t begin = axis.tile_begin + uint64_t{index} * axis.tile_size;
  return Span{begin, begin + axis.tile_size}.intersected({axis.begin, axis.end});
}

// SOC and SIZ (ISO/IEC 15444-1, A.5.1) of an image that is one tile.
Bytes make_size_segment(ByteView codestream, const CodestreamHeader& header, uint32_t tile) {
  const size_t length = 4 + (size_t{codestream.data[4]} << 8 | codestream.data[5]);
  Bytes result(codestream.data, codestream.data + length);
  const Area area = tile_area(header, tile);
  const auto set = [&](size_t at, const GridAxis& axis, uint32_t index, const Span& span) {
    const uint64_t grid = axis.tile_begin + uint64_t{index} * axis.tile_size;
    store(&result[at], span.end, 4);
    store(&result[at + 8], span.begin, 4);
    store(&result[at + 16], span.end - grid, 4);
    store(&result[at + 24], grid, 4);
  };
  const uint32_t across = header.x.tile_count();
  set(kSizBegin + 6, header.x, tile % across, area.x);
  set(kSizBegin + 10, header.y, tile / across, area.y);
  return result;
}

Bytes make_sot_segment(uint32_t tile_parts, uint32_t index, size_t length) {
  Bytes sot = {0xFF, 0x90, 0, kSotSize - 2, 0, 0, 0, 0, 0, 0, 0, 0};
  store(&sot[6], length, 4);
  sot[10] = static_cast<uint8_t>(index);
  sot[11] = static_cast<uint8_t>(tile_parts);
  return sot;
}

// Calls see(marker, where its segment begins) of each up to the end or SOD. Returns what is behind
// that.
template <typename See>
size_t walk_segments(const uint8_t* bytes, size_t length, const See& see) {
  size_t at = 0;
  while (at + 4 < length && bytes[at + 1] != kSod) {
    see(bytes[at + 1], at);
    at += 2 + (size_t{bytes[at + 2]} << 8 | bytes[at + 3]);
  }
  return std::min(at + 2, length);
}

// Packet headers may stand in the tile-part headers, with their markers.
bool has_packed_headers(ByteView codestream, const TileData& data) {
  bool has_some = false;
  for (uint32_t i = 0; i < data.count; ++i) {
    const TilePart& part = data.parts[i];
    walk_segments(codestream.data + part.offset + kSotSize, part.length - kSotSize,
                  [&](uint8_t marker, size_t) { has_some = has_some || marker == kPpt; });
  }
  return has_some;
}

// Lets COD segments say that there are no EPH markers, and adds to `uses_eph` whether there were;
// both not when null. Returns where packets begin.
size_t clear_eph(Bytes& segments, bool* uses_eph) {
  return walk_segments(segments.data(), segments.size(), [&](uint8_t marker, size_t at) {
    if (marker != kCod || uses_eph == nullptr) return;
    *uses_eph = *uses_eph || (segments[at + 4] & kUsesEph) != 0;
    segments[at + 4] &= static_cast<uint8_t>(~kUsesEph);
  });
}

// Nothing else in the data of packets can be 0xFF92.
void remove_eph(Bytes& data, size_t at) {
  auto to = data.begin() + static_cast<ptrdiff_t>(at);
  for (auto from = to; from != data.end(); ++from) {
    if (*from == 0xFF && from + 1 != data.end() && from[1] == kEph) {
      ++from;
    } else {
      *to++ = *from;
    }
  }
  data.erase(to, data.end());
}

}  // namespace

TileData find_tile(const CodestreamHeader& header, uint32_t tile) {
  const auto is_before = [](const TilePart& part, uint32_t wanted) { return part.tile < wanted; };
  const auto first = std::lower_bound(header.parts.begin(), header.parts.end(), tile, is_before);
  TileData data;
  uint32_t told = 0;
  bool is_cut = false;
  auto part = first;
  for (; part != header.parts.end() && part->tile == tile; ++part) {
    told = std::max<uint32_t>(told, part->count);
    if (is_cut || part->index != data.count || data.count == kMostParts) continue;
    ++data.count;
    is_cut = part->is_cut;
  }
  if (data.count > 0) data.parts = &*first;
  const auto all = static_cast<uint32_t>(part - first);
  data.is_complete = data.count > 0 && data.count == all && data.count >= told && !is_cut;
  return data;
}

size_t length_of(const TileData& data) {
  size_t length = 0;
  for (uint32_t i = 0; i < data.count; ++i) length += data.parts[i].length;
  return length;
}

Area tile_area(const CodestreamHeader& header, uint32_t tile) {
  const uint32_t across = header.x.tile_count();
  return {tile_span(header.x, tile % across), tile_span(header.y, tile / across)};
}

Source make_tile_source(ByteView codestream, const CodestreamHeader& header, uint32_t tile,
                        const TileData& data) {
  Source source;
  source.append(make_size_segment(codestream, header, tile));
  for (const ByteView& segments : header.shared_segments) source.append(segments);
  for (uint32_t i = 0; i < data.count; ++i) {
    const TilePart& part = data.parts[i];
    source.append(make_sot_segment(data.count, i, part.length));
    source.append(ByteView{codestream.data + part.offset + kSotSize, part.length - kSotSize});
  }
  source.append(Bytes{0xFF, 0xD9});
  return source;
}

Source make_mended_tile_source(ByteView codestream, const CodestreamHeader& header, uint32_t tile,
                               const TileData& data, TileEnd end) {
  Source source;
  source.append(make_size_segment(codestream, header, tile));
  const bool is_packed = has_packed_headers(codestream, data);
  bool uses_eph = false;
  for (const ByteView& segments : header.shared_segments) {
    Bytes copy(segments.data, segments.data + segments.length);
    clear_eph(copy, is_packed ? nullptr : &uses_eph);
    source.append(std::move(copy));
  }
  std::vector<Bytes> parts(data.count);
  std::vector<size_t> begins(data.count);  // of packets
  for (uint32_t i = 0; i < data.count; ++i) {
    const TilePart& part = data.parts[i];
    const uint8_t* const begin = codestream.data + part.offset;
    parts[i].assign(begin + kSotSize, begin + part.length);
    begins[i] = clear_eph(parts[i], is_packed ? nullptr : &uses_eph);
    if (uses_eph) remove_eph(parts[i], begins[i]);
  }
  for (uint32_t i = data.count; i-- > 0 && end.trimmed > 0;) {
    const size_t less = std::min(end.trimmed, parts[i].size() - begins[i]);
    parts[i].resize(parts[i].size() - less);
    end.trimmed -= less;
  }
  parts.back().resize(parts.back().size() + end.padding, 0xFF);
  for (uint32_t i = 0; i < data.count; ++i) {
    source.append(make_sot_segment(data.count, i, kSotSize + parts[i].size()));
    source.append(std::move(parts[i]));
  }
  source.append(Bytes{0xFF, 0xD9});
  return source;
}

}  // namespace kvj2k
