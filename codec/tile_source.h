// One tile of a codestream as a codestream of its own.
//
// A tile is coded independently of the others, by its place on the reference grid. So its
// tile-parts behind the main header, with SIZ telling of an image that is just the tile, are a
// codestream of one tile. Decoding tiles that way, a broken one costs no other, tiles far away need
// not be stepped over, and several can be decoded side by side.
#ifndef KVJ2K_TILE_SOURCE_H_
#define KVJ2K_TILE_SOURCE_H_

#include <cstdint>

#include "area_decoder.h"
#include "codestream_header.h"
#include "opj.h"

namespace kvj2k {

// What there is of a tile: the tile-parts that follow each other without a gap.
struct TileData {
  const TilePart* parts = nullptr;
  uint32_t count = 0;
  bool is_complete = false;
};
TileData find_tile(const CodestreamHeader& header, uint32_t tile);
size_t length_of(const TileData& data);

// The tile's part of the image area.
Area tile_area(const CodestreamHeader& header, uint32_t tile);

// Refers to `codestream`, which `header` is that of. Not for one with packed packet headers.
Source make_tile_source(ByteView codestream, const CodestreamHeader& header, uint32_t tile,
                        const TileData& data);

// Another end of a tile's data: so many bytes less, and then so many of 0xFF, which decode to what
// is most likely: a code-block of nothing else to zeros.
struct TileEnd {
  size_t trimmed = 0;
  size_t padding = 0;
};
// The same with that end; and without the markers that stand behind packet headers (EPH), so that
// what is read of packets behind the end are empty ones.
Source make_mended_tile_source(ByteView codestream, const CodestreamHeader& header, uint32_t tile,
                               const TileData& data, TileEnd end);

}  // namespace kvj2k

#endif  // KVJ2K_TILE_SOURCE_H_
