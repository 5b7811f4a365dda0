// Finds an end for the data of a tile that end inside a packet.
//
// OpenJPEG can't be told to make do with what is there without letting it out of its memory; but it
// tells which packet lacks data. So another end is found by trying: what the packet's body lacks is
// filled up, so that what there is of it counts; or it is left out.
#ifndef KVJ2K_BROKEN_TILE_H_
#define KVJ2K_BROKEN_TILE_H_

#include <functional>
#include <optional>

#include "opj.h"
#include "tile_source.h"

namespace kvj2k {

// Which packet lacks data with such an end; nothing when none does.
using FindShortage = std::function<std::optional<BrokenPacket>(TileEnd)>;

struct CutData {
  BrokenPacket packet;  // as it is found with the end that they have
  size_t length;        // of all data of the tile
  bool has_layers;      // several, so that packets may refine code-blocks that are there
};
// Throws Failure.
TileEnd mended_end(const CutData& data, const FindShortage& shortage);

}  // namespace kvj2k

#endif  // KVJ2K_BROKEN_TILE_H_
