// rreq, the reader requirements box (ISO/IEC 15444-2, M.11).
//
//   1 ML, ML FUAM, ML DCM
//   2 NSF, then NSF times: 2 SF, ML SM
//   2 NVF, then NVF times: 16 VF, ML VM
//
// Masks are ML bytes on disk, whatever ML is, and 64 bits in memory.
#include <stdio.h>

#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("rreq");
constexpr uint64_t kFixedSize = 5;  // ML, NSF, NVF
constexpr uint64_t kFeatureSize = 2;

struct StandardFeature {
  uint16_t number;
  uint64_t mask;
};

struct VendorFeature {
  uint8_t uuid[kUuidSize];
  uint64_t mask;
};

struct RreqBox : Box {
  uint32_t mask_length;
  uint64_t fully_understand;
  uint64_t display_completely;
  EntryList standard;
  EntryList vendor;
};

RreqBox* rreq(Box* box) { return static_cast<RreqBox*>(box); }
EntryList* standard_of(Box* box) { return &rreq(box)->standard; }
EntryList* vendor_of(Box* box) { return &rreq(box)->vendor; }

bool is_mask_length(const Box*, uint64_t value) {
  return value == 1 || value == 2 || value == 4 || value == 8;
}

// The limit is computed in 32 bits, so it is 1 for masks of 4 and 8 bytes: only 0 can be set into
// those, and hosts that need more write such boxes whole. A new box has ML 0 and the same limit.
bool is_mask(const Box* box, uint64_t value) {
  const uint32_t shift = static_cast<const RreqBox*>(box)->mask_length * 8 % 32;
  return value < uint32_t{1} << shift;
}

constexpr ListTraits kStandard = {standard_of, sizeof(StandardFeature), nullptr, false, false};
constexpr ListTraits kVendor = {vendor_of, sizeof(VendorFeature), nullptr, false, false};

// The UUID of a vendor feature is counted but neither set nor read: its bytes come from files only.
constexpr Field vendor_uuid() {
  Field field = repeating(JPX_FIELD_RREQ_VF, "VF", kUuidSize, kVendor, {nullptr, nullptr});
  field.access = KV_JPX_FIELD_REPEATS;
  return field;
}

constexpr Field kFields[] = {
    single(JPX_FIELD_RREQ_ML, "ML", 4, member<&RreqBox::mask_length>, is_mask_length),
    single(JPX_FIELD_RREQ_FUAM, "FUAM", 8, member<&RreqBox::fully_understand>, is_mask),
    single(JPX_FIELD_RREQ_DCM, "DCM", 8, member<&RreqBox::display_completely>, is_mask),
    list_count(JPX_FIELD_RREQ_NSF, "NSF", kStandard, fits_16_bits),
    repeating(JPX_FIELD_RREQ_SF, "SF", 2, kStandard, member<&StandardFeature::number>,
              fits_16_bits),
    repeating(JPX_FIELD_RREQ_SM, "SM", 8, kStandard, member<&StandardFeature::mask>, is_mask),
    list_count(JPX_FIELD_RREQ_NVF, "NVF", kVendor, fits_16_bits),
    repeating(JPX_FIELD_RREQ_VM, "VM", 8, kVendor, member<&VendorFeature::mask>, is_mask),
    vendor_uuid(),
};
constexpr FieldTable kTable = field_table(kType, kFields);

// Longer masks than 8 bytes keep the last 8; bytes that the payload lacks are 0.
uint64_t read_mask(Environment* env, Stream* stream, uint32_t mask_length) {
  uint64_t mask = 0;
  for (uint32_t k = 0; k < mask_length; ++k) mask = mask << 8 | bs_read_1_byte(env, stream);
  return mask;
}

void render_mask(Environment* env, Stream* stream, uint32_t mask_length, uint64_t mask) {
  for (uint32_t k = mask_length; k != 0; --k) {
    bs_write_1_byte(env, stream, mask >> ((k - 1) * 8 % 64));
  }
}

void print_mask(uint32_t mask_length, uint64_t mask) {
  for (uint32_t bit = mask_length * 8; bit != 0; --bit) {
    printf("%d", static_cast<int>(mask >> (bit - 1) % 64 & 1));
  }
}

uint64_t jpx_rreq_length(Box* box) {
  if (box->type != kType) return 0;
  const RreqBox* const self = rreq(box);
  const uint64_t mask_length = self->mask_length;
  return kFixedSize + 2 * mask_length + (kFeatureSize + mask_length) * self->standard.count +
         (kUuidSize + mask_length) * self->vendor.count;
}

void jpx_rreq_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const RreqBox* const self = rreq(box);
  bs_write_1_byte(env, stream, self->mask_length);
  render_mask(env, stream, self->mask_length, self->fully_understand);
  render_mask(env, stream, self->mask_length, self->display_completely);
  bs_write_2_byte_big(env, stream, self->standard.count);
  for (uint64_t i = 0; i < self->standard.count; ++i) {
    const auto* const feature = entry_at<StandardFeature>(self->standard, i);
    bs_write_2_byte_big(env, stream, feature->number);
    render_mask(env, stream, self->mask_length, feature->mask);
  }
  bs_write_2_byte_big(env, stream, self->vendor.count);
  for (uint64_t i = 0; i < self->vendor.count; ++i) {
    const auto* const feature = entry_at<VendorFeature>(self->vendor, i);
    jpx_render_uuid(env, stream, feature->uuid);
    render_mask(env, stream, self->mask_length, feature->mask);
  }
}

void jpx_rreq_print(Box* box) {
  if (box->type != kType) return;
  const RreqBox* const self = rreq(box);
  const uint32_t mask_length = self->mask_length;
  printf("rreq box length %llu\n", printable(box->box_length(box)));
  printf("Mask Length: %d\n", static_cast<int>(mask_length));
  printf("FUAM: ");
  print_mask(mask_length, self->fully_understand);
  printf("\nDCM:  ");
  print_mask(mask_length, self->display_completely);
  printf("\nNumber of Standard Feature flags: %d", static_cast<int>(self->standard.count));
  for (uint64_t i = 0; i < self->standard.count; ++i) {
    const auto* const feature = entry_at<StandardFeature>(self->standard, i);
    printf("\nFeature: %d\nMask:    ", feature->number);
    print_mask(mask_length, feature->mask);
  }
  printf("\nNumber of Vendor Feature flags: %d", static_cast<int>(self->vendor.count));
  for (uint64_t i = 0; i < self->vendor.count; ++i) {
    const auto* const feature = entry_at<VendorFeature>(self->vendor, i);
    printf("\nFeature: ");
    jpx_print_uuid(feature->uuid);
    printf("\nMask:    ");
    print_mask(mask_length, feature->mask);
  }
  printf("\n");
}

void jpx_rreq_destroy(Box* box, Environment* env) {
  if (box->type != kType) return;
  list_release(env, standard_of(box));
  list_release(env, vendor_of(box));
}

int32_t jpx_rreq_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_rreq_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_rreq_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_rreq_length, jpx_rreq_render, jpx_rreq_print, jpx_rreq_destroy,
                    jpx_rreq_set_int_field, jpx_rreq_get_int_field, jpx_rreq_get_field_count);

void read_standard_features(Environment* env, Stream* stream, RreqBox* self) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  require_content(env, stream, count, kFeatureSize + self->mask_length);
  list_resize(env, &self->standard, sizeof(StandardFeature), count);
  for (uint64_t i = 0; i < count; ++i) {
    auto* const feature = entry_at<StandardFeature>(self->standard, i);
    feature->number = static_cast<uint16_t>(bs_read_2_byte_big(env, stream));
    feature->mask = read_mask(env, stream, self->mask_length);
  }
}

void read_vendor_features(Environment* env, Stream* stream, RreqBox* self) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  require_content(env, stream, count, kUuidSize + self->mask_length);
  list_resize(env, &self->vendor, sizeof(VendorFeature), count);
  for (uint64_t i = 0; i < count; ++i) {
    auto* const feature = entry_at<VendorFeature>(self->vendor, i);
    jpx_read_uuid(env, stream, feature->uuid);
    feature->mask = read_mask(env, stream, self->mask_length);
  }
}

void read_payload(Environment* env, Stream* stream, Box* box) {
  RreqBox* const self = rreq(box);
  self->mask_length = static_cast<uint32_t>(bs_read_1_byte(env, stream));
  self->fully_understand = read_mask(env, stream, self->mask_length);
  self->display_completely = read_mask(env, stream, self->mask_length);
  read_standard_features(env, stream, self);
  read_vendor_features(env, stream, self);
}

}  // namespace

const FieldTable kRreqFields = kTable;

extern "C" {

Box* jpx_make_rreq_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<RreqBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_rreq_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_rreq_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
