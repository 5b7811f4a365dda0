// resc and resd, the capture and default display resolution boxes (ISO/IEC 15444-1, I.5.3.7). They
// differ in their type only.
//
//   2 VR_N, 2 VR_D, 2 HR_N, 2 HR_D, 1 VR_E, 1 HR_E
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("resc");
constexpr uint32_t kTwin = code("resd");

struct ResBox : Box {
  uint16_t vertical_numerator;
  uint16_t vertical_denominator;
  uint16_t horizontal_numerator;
  uint16_t horizontal_denominator;
  uint8_t vertical_exponent;  // a signed number, see the comment on the fields
  uint8_t horizontal_exponent;
};

bool is_resolution(const Box* box) { return box->type == kType || box->type == kTwin; }

bool is_ratio_part(const Box*, uint64_t value) { return value - 1 <= 65534; }

bool is_signed_byte(const Box*, uint64_t value) {
  const auto byte = static_cast<int8_t>(value);
  return static_cast<uint64_t>(static_cast<int64_t>(byte)) == value;
}

// Exponents are set as signed numbers but read back and printed as unsigned bytes, -3 as 253:
// readers do the sign themselves, and giving them a signed number would do it twice.
constexpr Field kFields[] = {
    single(JPX_FIELD_RESC_VR_N, "VR_N", 2, member<&ResBox::vertical_numerator>, is_ratio_part),
    single(JPX_FIELD_RESC_VR_D, "VR_D", 2, member<&ResBox::vertical_denominator>, is_ratio_part),
    single(JPX_FIELD_RESC_HR_N, "HR_N", 2, member<&ResBox::horizontal_numerator>, is_ratio_part),
    single(JPX_FIELD_RESC_HR_D, "HR_D", 2, member<&ResBox::horizontal_denominator>, is_ratio_part),
    single(JPX_FIELD_RESC_VR_E, "VR_E", 1, member<&ResBox::vertical_exponent>, is_signed_byte),
    single(JPX_FIELD_RESC_HR_E, "HR_E", 1, member<&ResBox::horizontal_exponent>, is_signed_byte),
};
constexpr WireNumber kNumbers[] = {
    {2, member<&ResBox::vertical_numerator>},   {2, member<&ResBox::vertical_denominator>},
    {2, member<&ResBox::horizontal_numerator>}, {2, member<&ResBox::horizontal_denominator>},
    {1, member<&ResBox::vertical_exponent>},    {1, member<&ResBox::horizontal_exponent>},
};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields, kTwin);

uint64_t jpx_res_length(Box* box) { return is_resolution(box) ? kWire.size : 0; }

void jpx_res_render(Box* box, Environment* env, Stream* stream) {
  if (is_resolution(box)) render_wire(env, stream, kWire, box);
}

void jpx_res_print(Box* box) {
  if (!is_resolution(box)) return;
  const auto* self = static_cast<ResBox*>(box);
  jpx_print_atom(box->type);
  printf(" box length %llu\n", printable(box->box_length(box)));
  printf("Vertical resolution numerator: %u\n", self->vertical_numerator);
  printf("Vertical resolution denominator: %u\n", self->vertical_denominator);
  printf("Horizontal resolution numerator: %u\n", self->horizontal_numerator);
  printf("Horizontal resolution denominator: %u\n", self->horizontal_denominator);
  printf("Vertical resolution exponent: %u\n", self->vertical_exponent);
  printf("Horizontal resolution exponent: %u\n", self->horizontal_exponent);
}

int32_t jpx_res_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                              uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_res_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_res_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_res_length, jpx_res_render, jpx_res_print, jpx_generic_destroy,
                    jpx_res_set_int_field, jpx_res_get_int_field, jpx_res_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  read_wire(env, stream, kWire, box);
}

}  // namespace

const FieldTable kResFields = kTable;

extern "C" {

Box* jpx_make_resc_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<ResBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_resc_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_resc_box, read_payload,
                     Misplaced::kRefused);
}

Box* jpx_make_resd_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return jpx_make_resc_box(env, type, parent, id);
}

Box* jpx_read_resd_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_resc_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
