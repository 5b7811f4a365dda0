// ftyp, the file type box (ISO/IEC 15444-1, I.5.2).
//
//   4 BR, 4 MinV, then CL: 4 for each compatible brand, to the end
//
// The three brands that this library knows are flags, not entries of the list: a brand that stands
// twice is kept once, and a written file has the known brands in front, in a fixed order.
#include <stdio.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("ftyp");
constexpr uint64_t kFixedSize = 8;
constexpr uint64_t kBrandSize = 4;
// Bit i of known_brands stands for entry i.
constexpr uint32_t kKnownBrands[] = {code("jp2 "), code("jpx "), code("jpxb")};

struct FtypBox : Box {
  uint32_t brand;
  uint32_t minimum_version;
  uint8_t known_brands;
  EntryList others;  // uint32_t each
};

FtypBox* ftyp(Box* box) { return static_cast<FtypBox*>(box); }
EntryList* others_of(Box* box) { return &ftyp(box)->others; }
constexpr ListTraits kOthers = {others_of, sizeof(uint32_t), nullptr, false, false};

// 0 for a brand that has no flag.
uint8_t flag_of(uint32_t brand) {
  for (uint32_t i = 0; i < 3; ++i) {
    if (kKnownBrands[i] == brand) return static_cast<uint8_t>(1 << i);
  }
  return 0;
}

// The compatibility list as readers and the file see it: known brands in fixed order, then the
// others.
uint64_t total_count(const FtypBox* box) {
  return box->others.count + static_cast<uint64_t>(__builtin_popcount(box->known_brands));
}

uint32_t brand_at(const FtypBox* box, uint64_t index) {
  for (const uint32_t brand : kKnownBrands) {
    if ((box->known_brands & flag_of(brand)) == 0) continue;
    if (index == 0) return brand;
    --index;
  }
  return *entry_at<uint32_t>(box->others, index);
}

// Unlike a get, a set takes the index as the position among the other brands, without the known
// ones in front: editors that rewrite entry after entry rely on known brands not moving the rest. A
// known brand is never cleared and no entry ever removed.
int32_t set_compatible_brand(const Field&, Box* box, Environment* env, uint64_t index,
                             uint64_t value) {
  FtypBox* const self = ftyp(box);
  const auto brand = static_cast<uint32_t>(value);
  const uint8_t flag = flag_of(brand);
  if (flag != 0) {
    self->known_brands |= flag;
    return JPX_OK;
  }
  if (index >= total_count(self)) {
    index = index_or_append(env, &self->others, kOthers, self->others.count);
  }
  if (index >= self->others.count) return JPX_ERR_NO_SUCH_FIELD;
  *entry_at<uint32_t>(self->others, index) = brand;
  return JPX_OK;
}

int32_t get_compatible_brand(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index >= total_count(ftyp(box))) return JPX_ERR_NO_SUCH_FIELD;
  *value = brand_at(ftyp(box), index);
  return JPX_OK;
}

int32_t count_compatible_brands(const Field& field, Box* box, uint64_t* count,
                                uint32_t* element_size) {
  return report_count(total_count(ftyp(box)), field.width, count, element_size);
}

constexpr CustomField kCompatibility = {set_compatible_brand, get_compatible_brand,
                                        count_compatible_brands};
constexpr Field kFields[] = {
    single(JPX_FIELD_FTYP_BR, "BR", 4, member<&FtypBox::brand>),
    single(JPX_FIELD_FTYP_MinV, "MinV", 4, member<&FtypBox::minimum_version>),
    custom(repeating(JPX_FIELD_FTYP_CL, "CL", 4, kOthers, number<uint32_t>), kCompatibility),
};

constexpr WireNumber kFixed[] = {{4, member<&FtypBox::brand>},
                                 {4, member<&FtypBox::minimum_version>}};
constexpr WireTable kWire = wire_table(kFixed);

uint64_t jpx_ftyp_length(Box* box) {
  return box->type == kType ? kFixedSize + kBrandSize * total_count(ftyp(box)) : 0;
}

void jpx_ftyp_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  render_wire(env, stream, kWire, box);
  const uint64_t count = total_count(ftyp(box));
  for (uint64_t i = 0; i < count; ++i) bs_write_4_byte_big(env, stream, brand_at(ftyp(box), i));
}

void jpx_ftyp_print(Box* box) {
  if (box->type != kType) return;
  printf("ftyp box length %llu\n", printable(box->box_length(box)));
  printf("Brand: ");
  jpx_print_atom(ftyp(box)->brand);
  printf("\nMinimum version: %u\n", ftyp(box)->minimum_version);
  puts("Compatibility list:");
  const uint64_t count = total_count(ftyp(box));
  for (uint64_t i = 0; i < count; ++i) {
    printf("  `");
    jpx_print_atom(brand_at(ftyp(box), i));
    puts("'");
  }
}

void jpx_ftyp_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, &ftyp(box)->others);
}

constexpr FieldTable kTable = field_table(kType, kFields);

int32_t jpx_ftyp_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_ftyp_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_ftyp_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_ftyp_length, jpx_ftyp_render, jpx_ftyp_print, jpx_ftyp_destroy,
                    jpx_ftyp_set_int_field, jpx_ftyp_get_int_field, jpx_ftyp_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  read_wire(env, stream, kWire, box);
  FtypBox* const self = ftyp(box);
  for (uint64_t left = bytes_left(env, stream) / kBrandSize; left != 0; --left) {
    const auto brand = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
    const uint8_t flag = flag_of(brand);
    self->known_brands |= flag;
    if (flag != 0) continue;
    list_append(env, &self->others, sizeof(brand), &brand);
  }
}

}  // namespace

const FieldTable kFtypFields = kTable;

extern "C" {

Box* jpx_make_ftyp_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<FtypBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_ftyp_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_ftyp_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
