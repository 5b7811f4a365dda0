// What the codec knows of a codestream before OpenJPEG sees it (ISO/IEC 15444-1, Annex A).
#ifndef KVJ2K_CODESTREAM_HEADER_H_
#define KVJ2K_CODESTREAM_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "image.h"
#include "work_limits.h"

namespace kvj2k {

struct ComponentHeader {
  uint32_t precision = 0;
  bool is_signed = false;
  uint32_t dx = 1;  // spacing of its samples on the reference grid
  uint32_t dy = 1;
};

// One direction of the reference grid: the image area and its cutting into tiles.
struct GridAxis {
  uint32_t begin = 0;
  uint32_t end = 0;
  uint32_t tile_begin = 0;
  uint32_t tile_size = 0;

  uint32_t tile_count() const { return tile_index(uint64_t{end} - 1) + 1; }
  uint32_t tile_index(uint64_t position) const {
    return static_cast<uint32_t>((position - tile_begin) / tile_size);
  }
};

// A tile-part, from its SOT marker on.
struct TilePart {
  uint64_t offset : 63;
  uint64_t is_cut : 1;  // its end is missing, or where it ends is not certain
  uint32_t length;      // of what is there
  uint16_t tile;        // Isot
  uint8_t index;        // TPsot
  uint8_t count;        // TNsot; 0: not told
};

struct CodestreamHeader {
  GridAxis x;
  GridAxis y;
  std::vector<ComponentHeader> components;
  uint32_t fewest_levels = 0;  // decomposition levels that every tile and component has
  uint32_t most_layers = 1;    // quality layers that a tile has
  // Components are coded together, so that a few of them can't be decoded alone.
  bool has_component_transform = false;
  bool has_packed_headers = false;  // PPM: no tile can be decoded without the others' headers
  // The marker segments of the main header that all tiles share, SIZ left out.
  std::vector<ByteView> shared_segments;
  std::vector<TilePart> parts;  // by tile, then as they stand
  bool is_chain_whole = false;  // every tile-part ends where the next one begins
  std::string chain_failure;    // what makes a tile-part's header unreadable; "" when nothing does
  Cost tile_cost = 0;           // work of one tile besides that on its samples
  Cost base_cost = 0;           // work of the codestream before the first tile is decoded
  Cost opening_cost = 0;        // work of reading one tile's headers, when it is decoded alone

  uint32_t tile_count() const { return x.tile_count() * y.tile_count(); }
};

enum class Chain {
  kStrict,    // ends at the first tile-part that does not end at another one, as OpenJPEG does
  kRecovered  // goes on at the next tile-part that can be found
};

// Reads the main header and all tile-part headers; the packet data between them is stepped over,
// and searched only where a chain is recovered. The header refers to `codestream`.
// Throws Failure (18) for a codestream that OpenJPEG should not be given.
CodestreamHeader read_codestream_header(ByteView codestream, Chain chain = Chain::kStrict);

}  // namespace kvj2k

#endif  // KVJ2K_CODESTREAM_HEADER_H_
