// flst, the fragment list box (ISO/IEC 15444-2, M.11).
//
//   2 NF, then NF times: 8 OFF, 4 LEN, 2 DR
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct Fragment {
  uint64_t offset;
  uint32_t length;
  uint16_t reference;  // into the data references; 0 is this file
};

struct FlstBox : Box {
  EntryList fragments;
};

// Kept for compatibility: a get takes one index more than there are fragments and reads zeros
// there. Without it, a loop that looks for such an end would meet an error instead.
constexpr ListTraits kFragments = list_of<&FlstBox::fragments, Fragment>(2, kGetTakesCount);
constexpr Field kFields[] = {
    repeating(JPX_FIELD_FLST_OFF, "OFF", 8, kFragments, member<&Fragment::offset>),
    repeating(JPX_FIELD_FLST_LEN, "LEN", 4, kFragments, member<&Fragment::length>),
    repeating(JPX_FIELD_FLST_DR, "DR", 2, kFragments, member<&Fragment::reference>),
};

// Kept for compatibility: the number of fragments has no line end of its own, so the first
// fragment, or the next box, follows on its line. A line end would change every line of the
// print-out behind.
void jpx_flst_print(Box* box) {
  const EntryList& fragments = static_cast<FlstBox*>(box)->fragments;
  const auto count = static_cast<uint32_t>(fragments.count);
  print_heading(box);
  printf("Number of fragments: %u", count);
  for (uint32_t i = 0; i < count; ++i) {
    const Fragment* const fragment = entry_at<Fragment>(fragments, i);
    printf("OFF[%u]: %llu\n", i, printable(fragment->offset));
    printf("LEN[%u]: %u\n", i, fragment->length);
    printf("DR [%u]: %u\n", i, fragment->reference);
  }
}

}  // namespace

constexpr BoxLayout kFlst = box_layout<FlstBox, kFields>(code("flst"), jpx_flst_print);

}  // namespace kvjpx
