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

// The tile's part of the image area.
Area tile_area(const CodestreamHeader& header, uint32_t tile);

// Refers to `codestream`, which `header` is that of. Not for one with packed packet headers.
Source make_tile_source(ByteView codestream, const CodestreamHeader& header, uint32_t tile,
                        const TileData& data);

}  // namespace kvj2k

#endif  // KVJ2K_TILE_SOURCE_H_
