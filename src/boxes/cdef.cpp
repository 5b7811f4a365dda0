// cdef, the channel definition box (ISO/IEC 15444-1, I.5.3.6).
//
//   2 N, then N times: 2 Cn, 2 Typ, 2 Asoc
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct Definition {
  uint16_t channel;
  uint16_t type;
  uint16_t association;
};

struct CdefBox : Box {
  EntryList definitions;
};

// Both judge what would be stored, the low 16 bits.
bool is_count(const Box*, uint64_t value) { return static_cast<uint16_t>(value) != 0; }

bool is_channel_type(const Box*, uint64_t value) {
  const auto type = static_cast<uint16_t>(value);
  return type <= KV_JPX_TYP_PREMULTIPLIED_OPACITY || type == KV_JPX_TYP_UNSPECIFIED;
}

// Kept for compatibility: a get takes one index more than there are definitions and reads zeros
// there. Without it, a loop up to N inclusive would end with an error.
constexpr ListTraits kDefinitions = list_of<&CdefBox::definitions, Definition>(2, kGetTakesCount);
constexpr Field kFields[] = {
    list_count(JPX_FIELD_CDEF_N, "N", kDefinitions, is_count),
    repeating(JPX_FIELD_CDEF_Cn, "Cn", 2, kDefinitions, member<&Definition::channel>),
    repeating(JPX_FIELD_CDEF_Typ, "Typ", 2, kDefinitions, member<&Definition::type>,
              is_channel_type),
    repeating(JPX_FIELD_CDEF_Asoc, "Asoc", 2, kDefinitions, member<&Definition::association>),
};

// Kept for compatibility: the labels are those of a component mapping's print-out. Under the names
// of the fields, print-outs that are compared as text would differ.
void jpx_cdef_print(Box* box) {
  const EntryList& definitions = static_cast<CdefBox*>(box)->definitions;
  const auto count = static_cast<uint32_t>(definitions.count);
  print_heading(box);
  printf("%u channels defined\n", count);
  for (uint32_t k = 0; k < count; ++k) {
    const Definition* const definition = entry_at<Definition>(definitions, k);
    printf("CMP[%u]  = %u\n", k, definition->channel);
    printf("MTYP[%u] = %u\n", k, definition->type);
    printf("PCOL[%u] = %u\n", k, definition->association);
  }
}

}  // namespace

constexpr BoxLayout kCdef = box_layout<CdefBox, kFields>(code("cdef"), jpx_cdef_print);

}  // namespace kvjpx
