// creg, the codestream registration box (ISO/IEC 15444-2, M.11).
//
//   2 XS, 2 YS, then for each codestream, to the end: 2 CDN, 1 XR, 1 YR, 1 XO, 1 YO
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

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
bool is_x_offset(const Box* box, uint64_t value) {
  return fits_8_bits(box, value) && value < creg(box)->x_grid;
}
bool is_y_offset(const Box* box, uint64_t value) {
  return fits_8_bits(box, value) && value < creg(box)->y_grid;
}

// Kept for compatibility: a refused value leaves an appended registration behind, and a get takes
// one index more than there are registrations. Without the first, the same calls would give a list
// of another length; without the second, a loop up to the count inclusive would end with an error.
constexpr ListTraits kRegistrations =
    list_of<&CregBox::registrations, Registration>(0, kGetTakesCount | kAppendsBeforeCheck);
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

void jpx_creg_print(Box* box) {
  print_heading(box);
  printf("XS: %u\nYS: %u\n", creg(box)->x_grid, creg(box)->y_grid);
  const EntryList& registrations = static_cast<CregBox*>(box)->registrations;
  for (uint64_t k = 0; k < registrations.count; ++k) {
    const Registration* const entry = entry_at<Registration>(registrations, k);
    printf("CDN[%llu]:%u\n", printable(k), entry->codestream);
    printf("XR[%llu]: %u\n", printable(k), entry->x_resolution);
    printf("YR[%llu]: %u\n", printable(k), entry->y_resolution);
    printf("XO[%llu]: %u\n", printable(k), entry->x_offset);
    printf("YO[%llu]: %u\n", printable(k), entry->y_offset);
  }
}

}  // namespace

constexpr BoxLayout kCreg = box_layout<CregBox, kFields>(code("creg"), jpx_creg_print);

}  // namespace kvjpx
