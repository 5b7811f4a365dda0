// creg, the codestream registration box (ISO/IEC 15444-2, M.11).
//
//   2 XS, 2 YS, then for each codestream, to the end: 2 CDN, 1 XR, 1 YR, 1 XO, 1 YO
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("creg");

struct Registration {
  uint16_t codestream;
  uint8_t x_resolution;
  uint8_t y_resolution;
  uint8_t x_offset;
  uint8_t y_offset;
};

struct CregBox : Box {
  uint16_t x_grid;
  uint16_t y_grid;
  EntryList registrations;
};

const CregBox* creg(const Box* box) { return static_cast<const CregBox*>(box); }
EntryList* registrations_of(Box* box) { return &static_cast<CregBox*>(box)->registrations; }

bool is_x_offset(const Box* box, uint64_t value) {
  return fits_8_bits(box, value) && value < creg(box)->x_grid;
}
bool is_y_offset(const Box* box, uint64_t value) {
  return fits_8_bits(box, value) && value < creg(box)->y_grid;
}

// A refused value leaves an appended registration behind: hosts reserve entries by setting an
// offset that the grid does not take yet. A get takes one index more than there are registrations.
constexpr ListTraits kRegistrations = {registrations_of, sizeof(Registration), nullptr, true, true};
constexpr Field kFields[] = {
    single(JPX_FIELD_CREG_XS, "XS", 2, member<&CregBox::x_grid>, fits_16_bits),
    single(JPX_FIELD_CREG_YS, "YS", 2, member<&CregBox::y_grid>, fits_16_bits),
    repeating(JPX_FIELD_CREG_CDN, "CDN", 2, kRegistrations, member<&Registration::codestream>,
              fits_16_bits),
    repeating(JPX_FIELD_CREG_XR, "XR", 1, kRegistrations, member<&Registration::x_resolution>,
              fits_8_bits),
    repeating(JPX_FIELD_CREG_YR, "YR", 1, kRegistrations, member<&Registration::y_resolution>,
              fits_8_bits),
    repeating(JPX_FIELD_CREG_XO, "XO", 1, kRegistrations, member<&Registration::x_offset>,
              is_x_offset),
    repeating(JPX_FIELD_CREG_YO, "YO", 1, kRegistrations, member<&Registration::y_offset>,
              is_y_offset),
};
constexpr WireNumber kGridNumbers[] = {{2, member<&CregBox::x_grid>},
                                       {2, member<&CregBox::y_grid>}};
constexpr WireNumber kRegistrationNumbers[] = {{2, member<&Registration::codestream>},
                                               {1, member<&Registration::x_resolution>},
                                               {1, member<&Registration::y_resolution>},
                                               {1, member<&Registration::x_offset>},
                                               {1, member<&Registration::y_offset>}};
constexpr WireTable kGridWire = wire_table(kGridNumbers);
constexpr WireTable kWire = wire_table(kRegistrationNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_creg_length(Box* box) {
  return box->type == kType ? kGridWire.size + kWire.size * registrations_of(box)->count : 0;
}

void jpx_creg_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  render_wire(env, stream, kGridWire, box);
  render_entries(env, stream, kWire, *registrations_of(box), sizeof(Registration));
}

void jpx_creg_print(Box* box) {
  if (box->type != kType) return;
  printf("creg box length %llu\n", printable(box->box_length(box)));
  printf("XS: %u\nYS: %u\n", creg(box)->x_grid, creg(box)->y_grid);
  const EntryList& registrations = *registrations_of(box);
  for (uint64_t k = 0; k < registrations.count; ++k) {
    const Registration* const entry = entry_at<Registration>(registrations, k);
    printf("CDN[%llu]:%u\n", printable(k), entry->codestream);
    printf("XR[%llu]: %u\n", printable(k), entry->x_resolution);
    printf("YR[%llu]: %u\n", printable(k), entry->y_resolution);
    printf("XO[%llu]: %u\n", printable(k), entry->x_offset);
    printf("YO[%llu]: %u\n", printable(k), entry->y_offset);
  }
}

void jpx_creg_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, registrations_of(box));
}

int32_t jpx_creg_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_creg_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_creg_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_creg_length, jpx_creg_render, jpx_creg_print, jpx_creg_destroy,
                    jpx_creg_set_int_field, jpx_creg_get_int_field, jpx_creg_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  read_wire(env, stream, kGridWire, box);
  const uint64_t count = bytes_left(env, stream) / kWire.size;
  read_entries(env, stream, kWire, registrations_of(box), sizeof(Registration), count);
}

}  // namespace

const FieldTable kCregFields = kTable;

extern "C" {

Box* jpx_make_creg_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<CregBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_creg_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_creg_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
