// bpcc, the bits-per-component box (ISO/IEC 15444-1, I.5.3.2).
//
//   1 BPC for each component, to the end
#include <stdio.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/bit_depth.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("bpcc");

// Files with more components than a byte can count are refused; readers of this format have always
// counted them in one.
constexpr uint64_t kMaxReadEntries = 255;

struct BpccBox : Box {
  EntryList depths;  // uint8_t each
};

EntryList* depths_of(Box* box) { return &static_cast<BpccBox*>(box)->depths; }

constexpr ListTraits kDepths = {depths_of, 1, nullptr, false, false};
constexpr Field kFields[] = {
    also(repeating(JPX_FIELD_BPCC_BPC, "BPC", 1, kDepths, number<uint8_t>, is_bit_depth),
         KV_JPX_FIELD_BYTES),
};
constexpr WireNumber kNumbers[] = {{1, number<uint8_t>}};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

bool is_depths(const Box* box, uint32_t key) {
  return box->type == kType && key == JPX_FIELD_BPCC_BPC;
}

uint64_t jpx_bpcc_length(Box* box) { return box->type == kType ? depths_of(box)->count : 0; }

void jpx_bpcc_render(Box* box, Environment* env, Stream* stream) {
  if (box->type == kType) render_entries(env, stream, kWire, *depths_of(box), 1);
}

void jpx_bpcc_print(Box* box) {
  if (box->type != kType) return;
  printf("bpcc box length %llu\n", printable(box->box_length(box)));
  const EntryList& depths = *depths_of(box);
  for (uint32_t i = 0; i < depths.count; ++i) {
    const uint8_t byte = depths.entries[i];
    if (byte == kDepthsVary) {
      printf("BPC[%u]: bitdepth varies\n", i);
    } else {
      printf("BPC[%u]: %u%s\n", i, depth_of(byte), sign_text(byte));
    }
  }
}

void jpx_bpcc_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, depths_of(box));
}

int32_t jpx_bpcc_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_bpcc_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_bpcc_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

// The values of a whole buffer are not judged, as those of a file are not.
int32_t jpx_bpcc_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (!is_depths(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return list_replace(env, depths_of(box), 1, count, element_size, source);
}

int32_t jpx_bpcc_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (!is_depths(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  const EntryList& depths = *depths_of(box);
  return copy_out(env, {count, element_size, buffer}, depths.entries, depths.count, 1);
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_bpcc_length, jpx_bpcc_render, jpx_bpcc_print, jpx_bpcc_destroy,
                    jpx_bpcc_set_int_field, jpx_bpcc_get_int_field, jpx_bpcc_get_field_count),
    jpx_bpcc_set_buffer_field, jpx_bpcc_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bytes_left(env, stream);
  if (count > kMaxReadEntries) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  read_entries(env, stream, kWire, depths_of(box), 1, count);
}

}  // namespace

const FieldTable kBpccFields = kTable;

extern "C" {

Box* jpx_make_bpcc_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<BpccBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_bpcc_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_bpcc_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
