// What the files of the box catalogue share: the common shape of a make and a read function.
#ifndef KVJPX_BOXES_TYPED_BOX_H_
#define KVJPX_BOXES_TYPED_BOX_H_

#include "box/box.h"
#include "box/registry.h"

namespace kvjpx {

// Makes an empty parsed box of the row `code`; null when it may not stand in the parent. The record
// takes the caller's type, which only differs for outside callers that want it to.
template <class Record>
Record* make_parsed(Environment* env, uint32_t code, uint32_t type, Box* parent, uint32_t id,
                    const BoxOperations& operations) {
  if (!may_stand(code, parent)) return nullptr;
  return make_record<Record>(env, kParsed, type, parent, id, operations);
}

// What a reader does with a box that stands where its type may not.
enum class Misplaced {
  kRefused,  // skipped; ends the parse of its container
  kOpaque,   // kept as an opaque box of its type, so that nothing is lost
};

using ReadPayloadFn = void(Environment*, Stream*, Box*);

Box* read_parsed(Environment* env, uint32_t type, Stream* stream, Box* parent, uint32_t* counter,
                 MakeFn* make, ReadPayloadFn* read_payload, Misplaced misplaced);

// The operations of a leaf box without buffer fields.
constexpr BoxOperations leaf_operations(LengthFn* length, RenderFn* render, PrintFn* print,
                                        DestroyFn* destroy, SetIntFieldFn* set_int_field,
                                        GetIntFieldFn* get_int_field,
                                        GetFieldCountFn* get_field_count) {
  return {length,
          render,
          print,
          destroy,
          jpx_generic_find_by_id,
          jpx_generic_find_by_type,
          set_int_field,
          get_int_field,
          get_field_count,
          jpx_generic_set_buffer_field,
          jpx_generic_get_buffer_field};
}

// The same with buffer fields.
constexpr BoxOperations with_buffers(BoxOperations operations, SetBufferFieldFn* set,
                                     GetBufferFieldFn* get) {
  operations.set_buffer_field = set;
  operations.get_buffer_field = get;
  return operations;
}

}  // namespace kvjpx

#endif  // KVJPX_BOXES_TYPED_BOX_H_
