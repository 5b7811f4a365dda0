// Cuts a tile out of its codestream.
#include "tile_source.h"

#include <algorithm>
#include <utility>

namespace kvj2k {
namespace {

constexpr size_t kSizBegin = 2;  // behind SOC
constexpr size_t kSotSize = 12;
constexpr uint32_t kMostParts = 255;

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
    Bytes sot = {0xFF, 0x90, 0, kSotSize - 2, 0, 0, 0, 0, 0, 0, 0, 0};
    store(&sot[6], part.length, 4);
    sot[10] = static_cast<uint8_t>(i);
    sot[11] = static_cast<uint8_t>(data.count);
    source.append(std::move(sot));
    source.append(ByteView{codestream.data + part.offset + kSotSize, part.length - kSotSize});
  }
  source.append(Bytes{0xFF, 0xD9});
  return source;
}

}  // namespace kvj2k
