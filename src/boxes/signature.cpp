// jP, the signature box that opens every file (ISO/IEC 15444-1, I.5.1).
//
//   4 bytes  0D 0A 87 0A
#include <stdio.h>

#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("jP  ");
constexpr uint8_t kSignature[] = {0x0D, 0x0A, 0x87, 0x0A};

uint64_t jpx_jP_length(Box* box) { return box->type == kType ? sizeof(kSignature) : 0; }

void jpx_jP_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  for (const uint8_t byte : kSignature) bs_write_1_byte(env, stream, byte);
}

void jpx_jP_print(Box* box) {
  if (box->type != kType) return;
  printf("jP   box length %llu\n", printable(box->box_length(box)));
}

constexpr BoxOperations kOperations = leaf_operations(
    jpx_jP_length, jpx_jP_render, jpx_jP_print, jpx_generic_destroy, jpx_generic_set_int_field,
    jpx_generic_get_int_field, jpx_generic_get_field_count);

}  // namespace

extern "C" {

Box* jpx_make_jP___box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<Box>(env, kType, type, parent, id, kOperations);
}

// The signature is judged before the place: a wrong one fails the load wherever it stands.
Box* jpx_read_jP___box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  bool matches = true;
  for (const uint8_t byte : kSignature) {
    if (bs_read_1_byte(env, stream) != byte) matches = false;
  }
  if (!matches) JPX_ErrorExit(env, JPX_ERR_BAD_SIGNATURE);
  skip_content(env, stream);
  return jpx_make_jP___box(env, type, parent, *counter);
}

}  // extern "C"
}  // namespace kvjpx
