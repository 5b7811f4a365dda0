// decode --raw.
#ifndef KVJPX_TOOLS_DECODE_RAW_H_
#define KVJPX_TOOLS_DECODE_RAW_H_

#include <cstdint>
#include <string>

#include "commands.h"

namespace kvjpx_tool {

struct Region {
  uint64_t left = 0;
  uint64_t top = 0;
  uint64_t right = 0;  // exclusive; 0 is the image's edge, as is bottom
  uint64_t bottom = 0;
};

// Writes the planes that the library composes, in a format that the codec writes: its name and its
// number (kv_j2k_output_type).
void decode_raw(const DecodeRequest& request, const Region& region, const std::string& format,
                int32_t output_type, const Target& target);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_DECODE_RAW_H_
