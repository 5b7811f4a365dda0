// cmap, the component mapping box (ISO/IEC 15444-1, I.5.3.5).
//
//   for each channel, to the end: 2 CMP, 1 MTYP, 1 PCOL
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kMaxComponent = 16384;

struct Mapping {
  uint16_t component;
  uint8_t type;  // 0: direct, 1: through the palette
  uint8_t column;
};

struct CmapBox : Box {
  EntryList mappings;
};

// Kept for compatibility: 0 is refused although the standard counts components from 0. Without it,
// a set of 0 would be taken and written.
bool is_component(const Box*, uint64_t value) { return value >= 1 && value <= kMaxComponent; }

bool is_component_index(const Box*, uint64_t value) { return value < kMaxComponent; }

constexpr ListTraits kMappings = list_of<&CmapBox::mappings, Mapping>();
constexpr Field kFields[] = {
    by_standard(repeating(JPX_FIELD_CMAP_CMP, "CMP", 2, kMappings, member<&Mapping::component>,
                          is_component),
                is_component_index),
    repeating(JPX_FIELD_CMAP_MTYP, "MTYP", 1, kMappings, member<&Mapping::type>, is_flag),
    repeating(JPX_FIELD_CMAP_PCOL, "PCOL", 1, kMappings, member<&Mapping::column>),
};

void jpx_cmap_print(Box* box) {
  const EntryList& mappings = static_cast<CmapBox*>(box)->mappings;
  const auto count = static_cast<uint32_t>(mappings.count);
  print_heading(box);
  printf("%u components mapped\n", count);
  for (uint32_t k = 0; k < count; ++k) {
    const Mapping* const mapping = entry_at<Mapping>(mappings, k);
    printf("CMP[%u]  = %u\n", k, mapping->component);
    printf("MTYP[%u] = %u\n", k, mapping->type);
    printf("PCOL[%u] = %u\n", k, mapping->column);
  }
}

}  // namespace

constexpr BoxLayout kCmap = box_layout<CmapBox, kFields>(code("cmap"), jpx_cmap_print);

}  // namespace kvjpx
