// roid, the region of interest description box (ISO/IEC 15444-2, M.11).
//
//   1 count, then so many times: 1 Ri, 1 Rtyp, 1 Rcp, 4 Rlcx, 4 Rlcy, 4 Rwdt, 4 Rht
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("roid");
constexpr uint64_t kCountSize = 1;

struct Region {
  uint8_t in_codestream;
  uint8_t type;  // 0 rectangle, 1 ellipse
  uint8_t priority;
  uint32_t x;
  uint32_t y;
  uint32_t width;
  uint32_t height;
};

struct RoidBox : Box {
  EntryList regions;
};

EntryList* regions_of(Box* box) { return &static_cast<RoidBox*>(box)->regions; }

// A refused value leaves an appended region behind, all zeros; a get takes one index more than
// there are regions. Both as in the other boxes whose entries hosts reserve before they fill them.
constexpr ListTraits kRegions = {regions_of, sizeof(Region), nullptr, true, true};
constexpr Field kFields[] = {
    repeating(JPX_FIELD_ROID_RI, "RI", 1, kRegions, member<&Region::in_codestream>),
    repeating(JPX_FIELD_ROID_RTYP, "RTYP", 1, kRegions, member<&Region::type>, is_flag),
    repeating(JPX_FIELD_ROID_RCP, "RCP", 1, kRegions, member<&Region::priority>, fits_8_bits),
    repeating(JPX_FIELD_ROID_RLCX, "RLCX", 4, kRegions, member<&Region::x>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RLCY, "RLCY", 4, kRegions, member<&Region::y>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RWDT, "RWDT", 4, kRegions, member<&Region::width>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RHT, "RHT", 4, kRegions, member<&Region::height>, fits_32_bits),
};
constexpr WireNumber kNumbers[] = {
    {1, member<&Region::in_codestream>},
    {1, member<&Region::type>},
    {1, member<&Region::priority>},
    {4, member<&Region::x>},
    {4, member<&Region::y>},
    {4, member<&Region::width>},
    {4, member<&Region::height>},
};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_roid_length(Box* box) {
  return box->type == kType ? kCountSize + kWire.size * regions_of(box)->count : 0;
}

void jpx_roid_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const EntryList& regions = *regions_of(box);
  bs_write_1_byte(env, stream, regions.count);
  render_entries(env, stream, kWire, regions, sizeof(Region));
}

const char* type_name(uint8_t type) {
  if (type == 0) return "Rectangle";
  return type == 1 ? "Ellipse" : "Unknown";
}

void jpx_roid_print(Box* box) {
  if (box->type != kType) return;
  printf("roid box length %llu\n", printable(box->box_length(box)));
  const EntryList& regions = *regions_of(box);
  for (uint64_t k = 0; k < regions.count; ++k) {
    const Region* const region = entry_at<Region>(regions, k);
    const unsigned long long i = printable(k);
    printf("Ri[%llu]: %s\n", i,
           region->in_codestream != 0 ? "true (codestream contains the ROI)"
                                      : "false (codestream does not contain the ROI)");
    printf("Rtypi[%llu]: %s\n", i, type_name(region->type));
    printf("Rcpi[%llu]: %u\n", i, region->priority);
    printf("Rlcxi[%llu]: %u\n", i, region->x);
    printf("Rlcyi[%llu]: %u\n", i, region->y);
    printf("Rwdti[%llu]: %u\n", i, region->width);
    printf("Rhthi[%llu]: %u\n", i, region->height);
  }
}

void jpx_roid_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, regions_of(box));
}

int32_t jpx_roid_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_roid_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_roid_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_roid_length, jpx_roid_render, jpx_roid_print, jpx_roid_destroy,
                    jpx_roid_set_int_field, jpx_roid_get_int_field, jpx_roid_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bs_read_1_byte(env, stream);
  read_entries(env, stream, kWire, regions_of(box), sizeof(Region), count);
}

}  // namespace

const FieldTable kRoidFields = kTable;

extern "C" {

Box* jpx_make_roid_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<RoidBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_roid_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_roid_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
