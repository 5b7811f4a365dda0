// flst, the fragment list box (ISO/IEC 15444-2, M.11).
//
//   2 NF, then NF times: 8 OFF, 4 LEN, 2 DR
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("flst");
constexpr uint64_t kCountSize = 2;

struct Fragment {
  uint64_t offset;
  uint32_t length;
  uint16_t reference;  // into the data references; 0 is this file
};

struct FlstBox : Box {
  EntryList fragments;
};

EntryList* fragments_of(Box* box) { return &static_cast<FlstBox*>(box)->fragments; }

// A get takes one index more than there are fragments and reads zeros there, by which hosts find
// the end of the list.
constexpr ListTraits kFragments = {fragments_of, sizeof(Fragment), nullptr, true, false};
constexpr Field kFields[] = {
    repeating(JPX_FIELD_FLST_OFF, "OFF", 8, kFragments, member<&Fragment::offset>),
    repeating(JPX_FIELD_FLST_LEN, "LEN", 4, kFragments, member<&Fragment::length>),
    repeating(JPX_FIELD_FLST_DR, "DR", 2, kFragments, member<&Fragment::reference>),
};
constexpr WireNumber kNumbers[] = {{8, member<&Fragment::offset>},
                                   {4, member<&Fragment::length>},
                                   {2, member<&Fragment::reference>}};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_flst_length(Box* box) {
  return box->type == kType ? kCountSize + kWire.size * fragments_of(box)->count : 0;
}

void jpx_flst_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const EntryList& fragments = *fragments_of(box);
  bs_write_2_byte_big(env, stream, fragments.count);
  render_entries(env, stream, kWire, fragments, sizeof(Fragment));
}

// The number of fragments has no line end of its own: the first fragment, or the next box, follows
// on its line, where line-based readers of these print-outs look for it.
void jpx_flst_print(Box* box) {
  if (box->type != kType) return;
  const EntryList& fragments = *fragments_of(box);
  const auto count = static_cast<uint32_t>(fragments.count);
  printf("flst box length %llu\n", printable(box->box_length(box)));
  printf("Number of fragments: %u", count);
  for (uint32_t i = 0; i < count; ++i) {
    const Fragment* const fragment = entry_at<Fragment>(fragments, i);
    printf("OFF[%u]: %llu\n", i, printable(fragment->offset));
    printf("LEN[%u]: %u\n", i, fragment->length);
    printf("DR [%u]: %u\n", i, fragment->reference);
  }
}

void jpx_flst_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, fragments_of(box));
}

int32_t jpx_flst_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_flst_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_flst_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_flst_length, jpx_flst_render, jpx_flst_print, jpx_flst_destroy,
                    jpx_flst_set_int_field, jpx_flst_get_int_field, jpx_flst_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  read_entries(env, stream, kWire, fragments_of(box), sizeof(Fragment), count);
}

}  // namespace

const FieldTable kFlstFields = kTable;

extern "C" {

Box* jpx_make_flst_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<FlstBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_flst_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_flst_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
