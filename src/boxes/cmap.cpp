// cmap, the component mapping box (ISO/IEC 15444-1, I.5.3.5).
//
//   for each channel, to the end: 2 CMP, 1 MTYP, 1 PCOL
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("cmap");
constexpr uint64_t kMaxComponent = 16384;

struct Mapping {
  uint16_t component;
  uint8_t type;  // 0: direct, 1: through the palette
  uint8_t column;
};

struct CmapBox : Box {
  EntryList mappings;
};

EntryList* mappings_of(Box* box) { return &static_cast<CmapBox*>(box)->mappings; }

// 0 is refused although the standard counts components from 0: hosts count from 1 here.
bool is_component(const Box*, uint64_t value) { return value >= 1 && value <= kMaxComponent; }

constexpr ListTraits kMappings = {mappings_of, sizeof(Mapping), nullptr, false, false};
constexpr Field kFields[] = {
    repeating(JPX_FIELD_CMAP_CMP, "CMP", 2, kMappings, member<&Mapping::component>, is_component),
    repeating(JPX_FIELD_CMAP_MTYP, "MTYP", 1, kMappings, member<&Mapping::type>, is_flag),
    repeating(JPX_FIELD_CMAP_PCOL, "PCOL", 1, kMappings, member<&Mapping::column>),
};
constexpr WireNumber kNumbers[] = {
    {2, member<&Mapping::component>}, {1, member<&Mapping::type>}, {1, member<&Mapping::column>}};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_cmap_length(Box* box) {
  return box->type == kType ? kWire.size * mappings_of(box)->count : 0;
}

void jpx_cmap_render(Box* box, Environment* env, Stream* stream) {
  if (box->type == kType) render_entries(env, stream, kWire, *mappings_of(box), sizeof(Mapping));
}

void jpx_cmap_print(Box* box) {
  if (box->type != kType) return;
  const EntryList& mappings = *mappings_of(box);
  const auto count = static_cast<uint32_t>(mappings.count);
  printf("cmap box length %llu\n", printable(box->box_length(box)));
  printf("%u components mapped\n", count);
  for (uint32_t k = 0; k < count; ++k) {
    const Mapping* const mapping = entry_at<Mapping>(mappings, k);
    printf("CMP[%u]  = %u\n", k, mapping->component);
    printf("MTYP[%u] = %u\n", k, mapping->type);
    printf("PCOL[%u] = %u\n", k, mapping->column);
  }
}

void jpx_cmap_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, mappings_of(box));
}

int32_t jpx_cmap_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_cmap_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_cmap_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_cmap_length, jpx_cmap_render, jpx_cmap_print, jpx_cmap_destroy,
                    jpx_cmap_set_int_field, jpx_cmap_get_int_field, jpx_cmap_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bytes_left(env, stream) / kWire.size;
  read_entries(env, stream, kWire, mappings_of(box), sizeof(Mapping), count);
}

}  // namespace

const FieldTable kCmapFields = kTable;

extern "C" {

Box* jpx_make_cmap_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<CmapBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_cmap_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_cmap_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
