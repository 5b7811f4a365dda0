// The bit-depth byte of image header, bits-per-component and palette boxes: bits 0 to 6 are the
// depth less one, bit 7 says signed (ISO/IEC 15444-1, table I.6).
#ifndef KVJPX_BOXES_BIT_DEPTH_H_
#define KVJPX_BOXES_BIT_DEPTH_H_

#include "box/box.h"
#include "kvjpx_fields.h"

namespace kvjpx {

inline uint32_t depth_of(uint8_t byte) { return (byte & 127u) + 1; }
inline const char* sign_text(uint8_t byte) { return byte > 127 ? " (signed)" : ""; }

// Depths 1 to 38 of either sign, or 255. The mask drops bit 0; as 37 is odd, that lets exactly the
// depths up to 38 through.
inline bool is_bit_depth(const Box*, uint64_t value) {
  return value <= 255 && (value == KV_JPX_BPC_VARIES || (value & 0x7E) <= 37);
}

}  // namespace kvjpx

#endif  // KVJPX_BOXES_BIT_DEPTH_H_
