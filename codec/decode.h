// Decodes a codestream, or a part of it.
#ifndef KVJ2K_DECODE_H_
#define KVJ2K_DECODE_H_

#include <cstdint>

#include "codestream_header.h"
#include "image.h"
#include "work_limits.h"

namespace kvj2k {

struct DecodeSettings {
  // Rectangle of the reference grid, right and bottom exclusive; four zeros are the whole image.
  uint64_t left = 0;
  uint64_t top = 0;
  uint64_t right = 0;
  uint64_t bottom = 0;
  uint32_t reduction = 0;        // halvings, 0 to 31
  bool is_kept_at_size = false;  // enlarge again what the reduction made smaller
  uint32_t layers = 0;           // 0: all
  Limits limits;
};

// The picture is empty when nothing of the image lies in the rectangle. `work` receives what was
// spent on it, before it is spent. Throws Failure.
Image decode(ByteView codestream, const CodestreamHeader& header, const DecodeSettings& settings,
             Cost* work);

}  // namespace kvj2k

#endif  // KVJ2K_DECODE_H_
