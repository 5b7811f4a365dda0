// Super boxes: boxes whose content is nothing but other boxes. The whole file is one, the root,
// which has no header of its own. Their reader is the parser of the file.
#ifndef KVJPX_BOX_SUPER_H_
#define KVJPX_BOX_SUPER_H_

#include "box/box.h"

namespace kvjpx {

struct SuperBox : Box {
  Box* first_child;
};

// Containers nested deeper (the root not counted) are refused: printing, searching and destroying
// recurse, and a thread's stack may be small.
constexpr uint32_t kMaxDepth = 256;

// Reads boxes up to the current read limit into a box that is still empty. Every box takes the
// counter's next value.
void read_children(Environment* env, Stream* stream, SuperBox* box, uint32_t* counter);

// Links a box behind the last child; null when there is none.
void append_child(SuperBox* parent, Box* last, Box* box);

// How deep a container in this parent is nested; stops counting behind kMaxDepth.
uint32_t container_depth(const Box* parent);

// The same, while the parent's boxes are being read from a stream, which knows it.
inline uint32_t depth_of_child(const Stream* stream, const Box* parent) {
  return parent != nullptr && stream->container == parent ? stream->container_depth + 1
                                                          : container_depth(parent);
}

LengthFn jpx_super_length;
RenderFn jpx_super_render;
PrintFn jpx_super_print;
DestroyFn jpx_super_destroy;
FindByIdFn jpx_super_find_by_id;
FindByTypeFn jpx_super_find_by_type;

// The operations of a container whose content is its children and what else it may have.
constexpr BoxOperations container_operations(LengthFn* length, RenderFn* render, PrintFn* print) {
  return operations_of(length, render, print, jpx_super_destroy, jpx_super_find_by_id,
                       jpx_super_find_by_type, jpx_generic_set_int_field, jpx_generic_get_int_field,
                       jpx_generic_get_field_count, jpx_generic_set_buffer_field,
                       jpx_generic_get_buffer_field);
}

extern "C" {
KVJPX_EXPORT Box* jpx_make_super_box(Environment* env, uint32_t type, Box* parent, uint32_t id);

// Reads boxes up to the current read limit. Every box takes the counter's next value; the super box
// itself has the value that the counter comes with. Never returns null.
KVJPX_EXPORT Box* jpx_read_super_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                                     uint32_t* counter);
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_SUPER_H_
