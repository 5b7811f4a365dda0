// copt, the composition options box (ISO/IEC 15444-2, M.11).
//
//   4 HEIGHT, 4 WIDTH, 1 LOOP
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("copt");
constexpr uint8_t kForever = 255;

struct CoptBox : Box {
  uint32_t height;  // of the rendered result
  uint32_t width;
  uint8_t loop;
};

constexpr Field kFields[] = {
    single(JPX_FIELD_COPT_HEIGHT, "HEIGHT", 4, member<&CoptBox::height>, fits_32_bits),
    single(JPX_FIELD_COPT_WIDTH, "WIDTH", 4, member<&CoptBox::width>, fits_32_bits),
    single(JPX_FIELD_COPT_LOOP, "LOOP", 1, member<&CoptBox::loop>, fits_8_bits),
};
constexpr WireNumber kNumbers[] = {
    {4, member<&CoptBox::height>}, {4, member<&CoptBox::width>}, {1, member<&CoptBox::loop>}};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_copt_length(Box* box) { return box->type == kType ? kWire.size : 0; }

void jpx_copt_render(Box* box, Environment* env, Stream* stream) {
  if (box->type == kType) render_wire(env, stream, kWire, box);
}

void jpx_copt_print(Box* box) {
  if (box->type != kType) return;
  const auto* self = static_cast<CoptBox*>(box);
  printf("copt box length %llu\n", printable(box->box_length(box)));
  printf("Rendered result HEIGHT: %u\n", self->height);
  printf("Rendered result WIDTH:  %u\n", self->width);
  if (self->loop == kForever) {
    puts("Repetition count: infinite");
  } else {
    printf("Repetition count: %u\n", self->loop);
  }
}

int32_t jpx_copt_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_copt_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_copt_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_copt_length, jpx_copt_render, jpx_copt_print, jpx_generic_destroy,
                    jpx_copt_set_int_field, jpx_copt_get_int_field, jpx_copt_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  read_wire(env, stream, kWire, box);
}

}  // namespace

const FieldTable kCoptFields = kTable;

extern "C" {

Box* jpx_make_copt_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<CoptBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_copt_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_copt_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
