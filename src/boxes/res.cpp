// resc and resd, the capture and default display resolution boxes (ISO/IEC 15444-1, I.5.3.7). They
// differ in their type only.
//
//   2 VR_N, 2 VR_D, 2 HR_N, 2 HR_D, 1 VR_E, 1 HR_E
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct ResBox : Box {
  uint16_t vertical_numerator;
  uint16_t vertical_denominator;
  uint16_t horizontal_numerator;
  uint16_t horizontal_denominator;
  uint8_t vertical_exponent;  // a signed number, see the comment on the fields
  uint8_t horizontal_exponent;
};

bool is_ratio_part(const Box*, uint64_t value) { return value - 1 <= 65534; }

bool is_signed_byte(const Box*, uint64_t value) {
  const auto byte = static_cast<int8_t>(value);
  return static_cast<uint64_t>(static_cast<int64_t>(byte)) == value;
}

// Kept for compatibility: exponents are set as signed numbers but read back and printed as unsigned
// bytes, -3 as 253. A signed answer would be another number to callers that extend the sign.
constexpr Field kFields[] = {
    single(JPX_FIELD_RESC_VR_N, "VR_N", 2, member<&ResBox::vertical_numerator>, is_ratio_part),
    single(JPX_FIELD_RESC_VR_D, "VR_D", 2, member<&ResBox::vertical_denominator>, is_ratio_part),
    single(JPX_FIELD_RESC_HR_N, "HR_N", 2, member<&ResBox::horizontal_numerator>, is_ratio_part),
    single(JPX_FIELD_RESC_HR_D, "HR_D", 2, member<&ResBox::horizontal_denominator>, is_ratio_part),
    by_standard(
        single(JPX_FIELD_RESC_VR_E, "VR_E", 1, member<&ResBox::vertical_exponent>, is_signed_byte),
        is_byte_of_either_sign),
    by_standard(single(JPX_FIELD_RESC_HR_E, "HR_E", 1, member<&ResBox::horizontal_exponent>,
                       is_signed_byte),
                is_byte_of_either_sign),
};

void jpx_res_print(Box* box) {
  const auto* self = static_cast<ResBox*>(box);
  print_heading(box);
  printf("Vertical resolution numerator: %u\n", self->vertical_numerator);
  printf("Vertical resolution denominator: %u\n", self->vertical_denominator);
  printf("Horizontal resolution numerator: %u\n", self->horizontal_numerator);
  printf("Horizontal resolution denominator: %u\n", self->horizontal_denominator);
  printf("Vertical resolution exponent: %u\n", self->vertical_exponent);
  printf("Horizontal resolution exponent: %u\n", self->horizontal_exponent);
}

}  // namespace

constexpr BoxLayout kRes =
    box_layout<ResBox, kFields>(code("resc"), jpx_res_print, {}, code("resd"));

}  // namespace kvjpx
