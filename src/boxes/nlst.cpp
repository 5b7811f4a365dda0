// nlst, the number list box (ISO/IEC 15444-2, M.11).
//
//   4 AN for each number, to the end
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct NlstBox : Box {
  EntryList numbers;  // uint32_t each
};

constexpr ListTraits kNumbers = list_of<&NlstBox::numbers, uint32_t>(0, kGetTakesCount);

// Kept for compatibility: a number set at or past the count is kept behind the last entry without
// being counted. A get at index = count returns it, but it is neither reported nor written. Were it
// appended, such a set would change the file; the list grows by the buffer field alone.
int32_t set_number(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  EntryList* const numbers = &static_cast<NlstBox*>(box)->numbers;
  list_provide_spare(env, numbers, sizeof(uint32_t));
  *entry_at<uint32_t>(*numbers, index < numbers->count ? index : numbers->count) =
      static_cast<uint32_t>(value);
  return JPX_OK;
}

constexpr FieldOperations kBehindTheLast = {set_number};
constexpr Field kNumber =
    also(repeating(JPX_FIELD_NLST_AN, "AN", 4, kNumbers, number<uint32_t>), KV_JPX_FIELD_BYTES);
constexpr Field kFields[] = {custom(kNumber, kBehindTheLast)};
constexpr Field kStandardFields[] = {kNumber};

void jpx_nlst_print(Box* box) {
  const EntryList& numbers = static_cast<NlstBox*>(box)->numbers;
  const auto count = static_cast<uint32_t>(numbers.count);
  print_heading(box);
  printf("Number of entries: %u\n", count);
  puts("Entries:");
  for (uint32_t i = 0; i < count; ++i) {
    printf("  AN[%u]: %u\n", i, *entry_at<uint32_t>(numbers, i));
  }
}

}  // namespace

constexpr BoxLayout kNlst = box_layout<NlstBox, kFields>(code("nlst"), jpx_nlst_print);
constexpr BoxLayout kStandardNlst =
    box_layout<NlstBox, kStandardFields>(code("nlst"), jpx_nlst_print);

}  // namespace kvjpx
