// cref, the cross-reference box (ISO/IEC 15444-2, M.11).
//
//   4 Rtyp, then boxes
//
// Only a box that was made has the operations here. One that is read becomes a plain super box: it
// answers 4 to its field and is written without Rtyp, which hosts know and make up for.
#include <stdio.h>

#include "box/basic.h"
#include "box/field_table.h"
#include "box/super.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("cref");
constexpr uint64_t kFixedSize = 4;

struct CrefBox : SuperBox {
  uint32_t referenced_type;
};

constexpr Field kFields[] = {
    single(JPX_FIELD_CREF_RTYP, "RTYP", 4, member<&CrefBox::referenced_type>),
};
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_cref_length(Box* box) {
  return box->type == kType ? kFixedSize + jpx_super_length(box) : 0;
}

void jpx_cref_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  bs_write_4_byte_big(env, stream, static_cast<CrefBox*>(box)->referenced_type);
  jpx_super_render(box, env, stream);
}

// The type has no line end of its own.
void jpx_cref_print(Box* box) {
  if (box->type != kType) return;
  printf("cref box length %llu\n", printable(box->box_length(box)));
  printf("Rtyp: ");
  jpx_print_atom(static_cast<CrefBox*>(box)->referenced_type);
  jpx_super_print(box);
}

int32_t jpx_cref_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_cref_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_cref_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations cref_operations() {
  BoxOperations operations = container_operations(jpx_cref_length, jpx_cref_render, jpx_cref_print);
  operations.set_int_field = jpx_cref_set_int_field;
  operations.get_int_field = jpx_cref_get_int_field;
  operations.get_field_count = jpx_cref_get_field_count;
  return operations;
}
constexpr BoxOperations kOperations = cref_operations();

}  // namespace

const FieldTable kCrefFields = kTable;

extern "C" {

Box* jpx_make_cref_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  if (!may_stand(kType, parent)) return nullptr;
  return make_record<CrefBox>(env, kSuper, type, parent, id, kOperations);
}

Box* jpx_read_cref_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  if (!may_stand(kType, parent)) return jpx_read_basic_box(env, type, stream, parent, counter);
  bs_read_4_byte_big(env, stream);
  return jpx_read_super_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
