// roid, the region of interest description box (ISO/IEC 15444-2, M.11).
//
//   1 count, then so many times: 1 Ri, 1 Rtyp, 1 Rcp, 4 Rlcx, 4 Rlcy, 4 Rwdt, 4 Rht
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

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

// Kept for compatibility, as in creg: a refused value leaves an appended region behind, all zeros,
// and a get takes one index more than there are regions.
constexpr ListTraits kRegions =
    list_of<&RoidBox::regions, Region>(1, kGetTakesCount | kAppendsBeforeCheck);
constexpr Field kFields[] = {
    repeating(JPX_FIELD_ROID_RI, "RI", 1, kRegions, member<&Region::in_codestream>),
    repeating(JPX_FIELD_ROID_RTYP, "RTYP", 1, kRegions, member<&Region::type>, is_flag),
    repeating(JPX_FIELD_ROID_RCP, "RCP", 1, kRegions, member<&Region::priority>, fits_8_bits),
    repeating(JPX_FIELD_ROID_RLCX, "RLCX", 4, kRegions, member<&Region::x>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RLCY, "RLCY", 4, kRegions, member<&Region::y>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RWDT, "RWDT", 4, kRegions, member<&Region::width>, fits_32_bits),
    repeating(JPX_FIELD_ROID_RHT, "RHT", 4, kRegions, member<&Region::height>, fits_32_bits),
};

const char* type_name(uint8_t type) {
  if (type == 0) return "Rectangle";
  return type == 1 ? "Ellipse" : "Unknown";
}

void jpx_roid_print(Box* box) {
  print_heading(box);
  const EntryList& regions = static_cast<RoidBox*>(box)->regions;
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

}  // namespace

constexpr BoxLayout kRoid = box_layout<RoidBox, kFields>(code("roid"), jpx_roid_print);

}  // namespace kvjpx
