// ftyp, the file type box (ISO/IEC 15444-1, I.5.2).
//
//   4 BR, 4 MinV, then CL: 4 for each compatible brand, to the end
//
// The three brands that this library knows are flags, not entries of the list: a brand that stands
// twice is kept once, and a written file has the known brands in front, in a fixed order.
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

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
constexpr ListTraits kOthers = list_of<&FtypBox::others, uint32_t>();

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

// Kept for compatibility: unlike a get, a set takes the index as the position among the other
// brands, without the known ones in front, and a known brand is never cleared and no entry ever
// removed. By the index of a get, a set would change another entry than it does.
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

// The brands behind go first, then the known ones, from the last.
int32_t resize_compatible_brands(const Field&, Box* box, Environment* env, uint64_t count) {
  FtypBox* const self = ftyp(box);
  for (uint32_t i = 3; i-- > 0 && total_count(self) - self->others.count > count;) {
    self->known_brands &= static_cast<uint8_t>(~(1 << i));
  }
  list_resize(env, &self->others, kBrandSize, count - (total_count(self) - self->others.count));
  return JPX_OK;
}

constexpr FieldOperations kCompatibility = {
    set_compatible_brand,    get_compatible_brand, count_compatible_brands, nullptr, nullptr,
    resize_compatible_brands};
constexpr Field kBrand = single(JPX_FIELD_FTYP_BR, "BR", 4, member<&FtypBox::brand>);
constexpr Field kVersion =
    single(JPX_FIELD_FTYP_MinV, "MinV", 4, member<&FtypBox::minimum_version>);
constexpr Field kList = repeating(JPX_FIELD_FTYP_CL, "CL", 4, kOthers, number<uint32_t>);
constexpr Field kFields[] = {kBrand, kVersion, custom(kList, kCompatibility)};
// All brands are others.
constexpr Field kStandardFields[] = {kBrand, kVersion, kList};

uint64_t length_of_brands(Box* box) { return kBrandSize * total_count(ftyp(box)); }

void render_brands(Box* box, Environment* env, Stream* stream) {
  const uint64_t count = total_count(ftyp(box));
  for (uint64_t i = 0; i < count; ++i) bs_write_4_byte_big(env, stream, brand_at(ftyp(box), i));
}

void jpx_ftyp_print(Box* box) {
  print_heading(box);
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

void read_brands(Environment* env, Stream* stream, Box* box) {
  FtypBox* const self = ftyp(box);
  for (uint64_t left = bytes_left(stream) / kBrandSize; left != 0; --left) {
    const auto brand = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
    const uint8_t flag = flag_of(brand);
    self->known_brands |= flag;
    if (flag != 0) continue;
    list_append(env, &self->others, sizeof(brand), &brand);
  }
}

}  // namespace

constexpr BoxLayout kFtyp = box_layout<FtypBox, kFields>(
    code("ftyp"), jpx_ftyp_print, {length_of_brands, render_brands, read_brands});
constexpr BoxLayout kStandardFtyp =
    box_layout<FtypBox, kStandardFields>(code("ftyp"), jpx_ftyp_print);

}  // namespace kvjpx
