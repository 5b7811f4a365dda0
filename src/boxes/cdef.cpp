// cdef, the channel definition box (ISO/IEC 15444-1, I.5.3.6).
//
//   2 N, then N times: 2 Cn, 2 Typ, 2 Asoc
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("cdef");
constexpr uint64_t kCountSize = 2;
constexpr uint16_t kUnspecified = 65535;

struct Definition {
  uint16_t channel;
  uint16_t type;         // 0 colour, 1 opacity, 2 pre-multiplied opacity, 65535 unspecified
  uint16_t association;  // 0 whole image, 65535 none, else the colour's number
};

struct CdefBox : Box {
  EntryList definitions;
};

EntryList* definitions_of(Box* box) { return &static_cast<CdefBox*>(box)->definitions; }

// Both judge what would be stored, the low 16 bits.
bool is_count(const Box*, uint64_t value) { return static_cast<uint16_t>(value) != 0; }

bool is_channel_type(const Box*, uint64_t value) {
  const auto type = static_cast<uint16_t>(value);
  return type <= 2 || type == kUnspecified;
}

// A get takes one index more than there are definitions: hosts read up to N inclusive and take the
// zeros behind the last one as the end.
constexpr ListTraits kDefinitions = {definitions_of, sizeof(Definition), nullptr, true, false};
constexpr Field kFields[] = {
    list_count(JPX_FIELD_CDEF_N, "N", kDefinitions, is_count),
    repeating(JPX_FIELD_CDEF_Cn, "Cn", 2, kDefinitions, member<&Definition::channel>),
    repeating(JPX_FIELD_CDEF_Typ, "Typ", 2, kDefinitions, member<&Definition::type>,
              is_channel_type),
    repeating(JPX_FIELD_CDEF_Asoc, "Asoc", 2, kDefinitions, member<&Definition::association>),
};
constexpr WireNumber kNumbers[] = {{2, member<&Definition::channel>},
                                   {2, member<&Definition::type>},
                                   {2, member<&Definition::association>}};
constexpr WireTable kWire = wire_table(kNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_cdef_length(Box* box) {
  return box->type == kType ? kCountSize + kWire.size * definitions_of(box)->count : 0;
}

void jpx_cdef_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const EntryList& definitions = *definitions_of(box);
  bs_write_2_byte_big(env, stream, definitions.count);
  render_entries(env, stream, kWire, definitions, sizeof(Definition));
}

// The labels are those of a component mapping's print-out: scripts that compare the two boxes line
// by line read them under the same names.
void jpx_cdef_print(Box* box) {
  if (box->type != kType) return;
  const EntryList& definitions = *definitions_of(box);
  const auto count = static_cast<uint32_t>(definitions.count);
  printf("cdef box length %llu\n", printable(box->box_length(box)));
  printf("%u channels defined\n", count);
  for (uint32_t k = 0; k < count; ++k) {
    const Definition* const definition = entry_at<Definition>(definitions, k);
    printf("CMP[%u]  = %u\n", k, definition->channel);
    printf("MTYP[%u] = %u\n", k, definition->type);
    printf("PCOL[%u] = %u\n", k, definition->association);
  }
}

void jpx_cdef_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, definitions_of(box));
}

int32_t jpx_cdef_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_cdef_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_cdef_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_cdef_length, jpx_cdef_render, jpx_cdef_print, jpx_cdef_destroy,
                    jpx_cdef_set_int_field, jpx_cdef_get_int_field, jpx_cdef_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bs_read_2_byte_big(env, stream);
  read_entries(env, stream, kWire, definitions_of(box), sizeof(Definition), count);
}

}  // namespace

const FieldTable kCdefFields = kTable;

extern "C" {

Box* jpx_make_cdef_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<CdefBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_cdef_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_cdef_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
