// rreq, the reader requirements box (ISO/IEC 15444-2, M.11).
//
//   1 ML, ML FUAM, ML DCM
//   2 NSF, then NSF times: 2 SF, ML SM
//   2 NVF, then NVF times: 16 VF, ML VM
//
// Masks are ML bytes on disk, whatever ML is, and 64 bits in memory.
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kCountSize = 2;  // of NSF and NVF
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

bool is_mask_length(const Box*, uint64_t value) {
  return value == 1 || value == 2 || value == 4 || value == 8;
}

// Kept for compatibility: the limit is computed in 32 bits, so it is 1 for masks of 4 and 8 bytes,
// of which only 0 can be set, and for the ML of 0 of a new box. Without it, those masks could be
// set.
bool is_mask(const Box* box, uint64_t value) {
  const uint32_t shift = static_cast<const RreqBox*>(box)->mask_length * 8 % 32;
  return value < uint32_t{1} << shift;
}

// By the rules of the standard: a mask has its ML bytes, and ML is one that holds all masks.
bool fits_mask(uint32_t mask_length, uint64_t mask) {
  return mask_length >= sizeof(mask) || mask >> 8 * mask_length == 0;
}

bool is_whole_mask(const Box* box, uint64_t value) {
  return fits_mask(static_cast<const RreqBox*>(box)->mask_length, value);
}

bool holds_masks(const RreqBox* self, uint32_t mask_length) {
  uint64_t all = self->fully_understand | self->display_completely;
  for (uint64_t i = 0; i < self->standard.count; ++i) {
    all |= entry_at<StandardFeature>(self->standard, i)->mask;
  }
  for (uint64_t i = 0; i < self->vendor.count; ++i) {
    all |= entry_at<VendorFeature>(self->vendor, i)->mask;
  }
  return fits_mask(mask_length, all);
}

constexpr ListTraits kStandard = list_of<&RreqBox::standard, StandardFeature>();
constexpr ListTraits kVendor = list_of<&RreqBox::vendor, VendorFeature>();

// The UUID of a vendor feature is counted but neither set nor read: its bytes come from files only.
constexpr Field vendor_uuid() {
  Field field = repeating(JPX_FIELD_RREQ_VF, "VF", kUuidSize, kVendor, kNoSlot);
  field.access = KV_JPX_FIELD_REPEATS;
  return field;
}

int32_t set_fitting_mask_length(const Field& field, Box* box, Environment*, uint64_t index,
                                uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  const bool is_known = is_taken(field, box, value, Rules::kStandard);
  if (!is_known || !holds_masks(rreq(box), static_cast<uint32_t>(value))) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  rreq(box)->mask_length = static_cast<uint32_t>(value);
  return JPX_OK;
}

constexpr Field kMaskLength =
    stored_as(single(JPX_FIELD_RREQ_ML, "ML", 4, member<&RreqBox::mask_length>, is_mask_length), 1,
              member<&RreqBox::mask_length>);
constexpr Field mask_field(const Field& field) { return by_standard(field, is_whole_mask); }

constexpr Field kFields[] = {
    kMaskLength,
    mask_field(stored_apart(
        single(JPX_FIELD_RREQ_FUAM, "FUAM", 8, member<&RreqBox::fully_understand>, is_mask))),
    mask_field(stored_apart(
        single(JPX_FIELD_RREQ_DCM, "DCM", 8, member<&RreqBox::display_completely>, is_mask))),
    list_count(JPX_FIELD_RREQ_NSF, "NSF", kStandard, fits_16_bits),
    repeating(JPX_FIELD_RREQ_SF, "SF", 2, kStandard, member<&StandardFeature::number>,
              fits_16_bits),
    mask_field(
        repeating(JPX_FIELD_RREQ_SM, "SM", 8, kStandard, member<&StandardFeature::mask>, is_mask)),
    list_count(JPX_FIELD_RREQ_NVF, "NVF", kVendor, fits_16_bits),
    mask_field(
        repeating(JPX_FIELD_RREQ_VM, "VM", 8, kVendor, member<&VendorFeature::mask>, is_mask)),
    vendor_uuid(),
};
// In front of the others, which are the same.
constexpr Field kStandardFields[] = {custom(kMaskLength, {set_fitting_mask_length})};

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

uint64_t length_of_masks(Box* box) {
  const RreqBox* const self = rreq(box);
  const uint64_t mask_length = self->mask_length;
  return 2 * kCountSize + 2 * mask_length + (kFeatureSize + mask_length) * self->standard.count +
         (kUuidSize + mask_length) * self->vendor.count;
}

void render_masks(Box* box, Environment* env, Stream* stream) {
  const RreqBox* const self = rreq(box);
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
  const RreqBox* const self = rreq(box);
  const uint32_t mask_length = self->mask_length;
  print_heading(box);
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

void read_standard_features(Environment* env, Stream* stream, RreqBox* self) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  if (!has_content(env, stream, count, kFeatureSize + self->mask_length)) return;
  list_resize(env, &self->standard, sizeof(StandardFeature), count);
  for (uint64_t i = 0; i < count; ++i) {
    auto* const feature = entry_at<StandardFeature>(self->standard, i);
    feature->number = static_cast<uint16_t>(bs_read_2_byte_big(env, stream));
    feature->mask = read_mask(env, stream, self->mask_length);
  }
}

void read_vendor_features(Environment* env, Stream* stream, RreqBox* self) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  if (!has_content(env, stream, count, kUuidSize + self->mask_length)) return;
  list_resize(env, &self->vendor, sizeof(VendorFeature), count);
  for (uint64_t i = 0; i < count; ++i) {
    auto* const feature = entry_at<VendorFeature>(self->vendor, i);
    jpx_read_uuid(env, stream, feature->uuid);
    feature->mask = read_mask(env, stream, self->mask_length);
  }
}

void read_masks(Environment* env, Stream* stream, Box* box) {
  RreqBox* const self = rreq(box);
  self->fully_understand = read_mask(env, stream, self->mask_length);
  self->display_completely = read_mask(env, stream, self->mask_length);
  read_standard_features(env, stream, self);
  read_vendor_features(env, stream, self);
}

void read_whole_masks(Environment* env, Stream* stream, Box* box) {
  if (rreq(box)->mask_length > sizeof(uint64_t)) {
    stream->content_is_bad = 1;
  } else {
    read_masks(env, stream, box);
  }
}

void release_features(Box* box, Environment* env) {
  list_release(env, &rreq(box)->standard);
  list_release(env, &rreq(box)->vendor);
}

constexpr BoxLayout standard_layout() {
  BoxLayout layout = box_layout<RreqBox, kStandardFields>(
      code("rreq"), jpx_rreq_print,
      {length_of_masks, render_masks, read_whole_masks, release_features});
  layout.base = &kRreq;
  return layout;
}

}  // namespace

constexpr BoxLayout kRreq = box_layout<RreqBox, kFields>(
    code("rreq"), jpx_rreq_print, {length_of_masks, render_masks, read_masks});
constexpr BoxLayout kStandardRreq = standard_layout();

}  // namespace kvjpx
