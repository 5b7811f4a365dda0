// What the codec knows of a codestream before OpenJPEG sees it (ISO/IEC 15444-1, Annex A).
#ifndef KVJ2K_CODESTREAM_HEADER_H_
#define KVJ2K_CODESTREAM_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

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

struct CodestreamHeader {
  GridAxis x;
  GridAxis y;
  std::vector<ComponentHeader> components;
  uint32_t fewest_levels = 0;  // decomposition levels that every tile and component has
  Cost tile_cost = 0;          // work of one tile besides that on its samples
  Cost base_cost = 0;          // work of the codestream before the first tile is decoded
};

// Reads the main header and all tile-part headers; the packet data between them is stepped over.
// Throws Failure (18) for a codestream that OpenJPEG should not be given.
CodestreamHeader read_codestream_header(const uint8_t* data, size_t length);

}  // namespace kvj2k

#endif  // KVJ2K_CODESTREAM_HEADER_H_
