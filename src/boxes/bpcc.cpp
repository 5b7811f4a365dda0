// bpcc, the bits-per-component box (ISO/IEC 15444-1, I.5.3.2).
//
//   1 BPC for each component, to the end
#include <stdio.h>

#include "boxes/bit_depth.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

// Kept for compatibility: more entries than a byte can count fail the load. Without it, files with
// more components would load.
constexpr uint64_t kMaxReadEntries = 255;

struct BpccBox : Box {
  EntryList depths;  // uint8_t each
};

constexpr ListTraits kDepths = list_of<&BpccBox::depths, uint8_t>();
constexpr Field kFields[] = {
    also(repeating(JPX_FIELD_BPCC_BPC, "BPC", 1, kDepths, number<uint8_t>, is_bit_depth),
         KV_JPX_FIELD_BYTES),
};

void read_depths(Environment* env, Stream* stream, Box* box) {
  if (bytes_left(stream) > kMaxReadEntries) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  read_list(env, stream, kBpcc, box);
}

void jpx_bpcc_print(Box* box) {
  print_heading(box);
  const EntryList& depths = static_cast<BpccBox*>(box)->depths;
  for (uint32_t i = 0; i < depths.count; ++i) {
    const uint8_t byte = depths.entries[i];
    if (byte == KV_JPX_BPC_VARIES) {
      printf("BPC[%u]: bitdepth varies\n", i);
    } else {
      printf("BPC[%u]: %u%s\n", i, depth_of(byte), sign_text(byte));
    }
  }
}

}  // namespace

constexpr BoxLayout kBpcc =
    box_layout<BpccBox, kFields>(code("bpcc"), jpx_bpcc_print, {nullptr, nullptr, read_depths});
constexpr BoxLayout kStandardBpcc = box_layout<BpccBox, kFields>(code("bpcc"), jpx_bpcc_print);

}  // namespace kvjpx
