// cref, the cross-reference box (ISO/IEC 15444-2, M.11).
//
//   4 Rtyp, then boxes
//
// Kept for compatibility: only a box that was made has the operations here. One that is read
// becomes a plain super box, which answers 4 to its field and is written without Rtyp. Read like it
// is made, a file's Rtyp would be answered and written.
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct CrefBox : SuperBox {
  uint32_t referenced_type;
};

constexpr Field kFields[] = {
    single(JPX_FIELD_CREF_RTYP, "RTYP", 4, member<&CrefBox::referenced_type>),
};

// Kept for compatibility: the type has no line end of its own, so the children follow on its line.
void jpx_cref_print(Box* box) {
  print_heading(box);
  printf("Rtyp: ");
  jpx_print_atom(static_cast<CrefBox*>(box)->referenced_type);
  jpx_super_print(box);
}

constexpr BoxOperations cref_operations() {
  using Made = Typed<kCref>;
  BoxOperations operations = container_operations(Made::length, Made::render, Made::print);
  operations.set_int_field = Made::set_int_field;
  operations.get_int_field = Made::get_int_field;
  operations.get_field_count = Made::get_field_count;
  return operations;
}

}  // namespace

constexpr BoxOperations kCrefOperations = cref_operations();

constexpr BoxLayout kCref = box_layout<CrefBox, kFields>(code("cref"), jpx_cref_print,
                                                         {jpx_super_length, jpx_super_render});

extern "C" {

Box* jpx_make_cref_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  if (!may_stand(code("cref"), parent)) return nullptr;
  return make_record(env, sizeof(CrefBox), kSuper, type, parent, id, kCrefOperations);
}

Box* jpx_read_cref_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  if (!may_stand(code("cref"), parent))
    return jpx_read_basic_box(env, type, stream, parent, counter);
  bs_read_4_byte_big(env, stream);
  return jpx_read_super_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
