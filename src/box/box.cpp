// The box record and the operations that box types share (see box.h).
#include "box/box.h"

#include <stdio.h>
#include <string.h>

#include "box/super.h"

namespace kvjpx {
namespace {

constexpr uint64_t kHeader = 8;
constexpr uint64_t kLongHeader = 16;  // with XLBox
constexpr uint64_t kShortLimit = 0xFFFFFFFF;

void unlink_box(Box* box) {
  if (box->next != nullptr) box->next->previous = box->previous;
  if (box->previous != nullptr) {
    box->previous->next = box->next;
  } else if (box->parent != nullptr && box->parent->kind == kSuper) {
    static_cast<SuperBox*>(box->parent)->first_child = box->next;
  }
}

}  // namespace

Box* make_record(Environment* env, size_t size, uint32_t kind, uint32_t type, Box* parent,
                 uint32_t id, const BoxOperations& op) {
  auto* box = static_cast<Box*>(allocate(env, size));
  *box = {{kind, type, id, parent, nullptr, nullptr}, op};
  if (size > sizeof(Box)) memset(box + 1, 0, size - sizeof(Box));
  mark_block(box, kBoxInTree);
  return box;
}

extern "C" {

Box* jpx_make_box(Environment* env, size_t record_size, uint32_t kind, uint32_t type, Box* parent,
                  uint32_t id, LengthFn* length, RenderFn* render, PrintFn* print,
                  DestroyFn* destroy, FindByIdFn* find_by_id, FindByTypeFn* find_by_type,
                  SetIntFieldFn* set_int_field, GetIntFieldFn* get_int_field,
                  GetFieldCountFn* get_field_count, SetBufferFieldFn* set_buffer_field,
                  GetBufferFieldFn* get_buffer_field) {
  return make_record(
      env, record_size, kind, type, parent, id,
      operations_of(length, render, print, destroy, find_by_id, find_by_type, set_int_field,
                    get_int_field, get_field_count, set_buffer_field, get_buffer_field));
}

uint64_t jpx_box_length(Box* box) {
  const uint64_t content = box->length(box);
  if (box->type == kRoot) return content;
  return content + kHeader > kShortLimit ? content + kLongHeader : content + kHeader;
}

void jpx_box_render(Box* box, Environment* env, Stream* stream) {
  const uint64_t total = box->box_length(box);
  if (box->type != kRoot) {
    const bool is_long = total > kShortLimit;
    bs_write_4_byte_big(env, stream, is_long ? 1 : total);
    bs_write_4_byte_big(env, stream, box->type);
    if (is_long) bs_write_8_byte_big(env, stream, total);
  }
  box->render(box, env, stream);
}

void jpx_box_destroy(Box* box, Environment* env) {
  box->destroy(box, env);
  unlink_box(box);
  JPX_SafeFreeInternal(env, box);
}

void jpx_generic_destroy(Box*, Environment*) {}

Box* jpx_generic_find_by_id(Box* box, uint32_t id) { return box->id == id ? box : nullptr; }

Box* jpx_generic_find_by_type(Box* box, uint32_t type, uint32_t after) {
  return box->id > after && box->type == type ? box : nullptr;
}

int32_t jpx_generic_set_int_field(Box*, Environment*, uint32_t, uint64_t, uint64_t) {
  return JPX_ERR_NO_SUCH_FIELD;
}

int32_t jpx_generic_get_int_field(Box*, uint32_t, uint64_t, uint64_t*) {
  return JPX_ERR_NO_SUCH_FIELD;
}

int32_t jpx_generic_get_field_count(Box*, uint32_t, uint64_t*, uint32_t*) {
  return JPX_ERR_NO_SUCH_FIELD;
}

int32_t jpx_generic_set_buffer_field(Box*, Environment*, uint32_t, uint64_t, uint32_t,
                                     const void*) {
  return JPX_ERR_NO_SUCH_FIELD;
}

int32_t jpx_generic_get_buffer_field(Box*, Environment*, uint32_t, uint64_t*, uint32_t*, void**) {
  return JPX_ERR_NO_SUCH_FIELD;
}

void jpx_remove_box(Box* box) {
  note_outside_change();
  unlink_box(box);
}

// Kept for compatibility: the box that follows keeps pointing back at the box in front, not at the
// inserted one. Without it, walking backwards would come by the inserted box.
void jpx_insert_box(Box* box, Box* after) {
  note_outside_change();
  box->next = after->next;
  after->next = box;
  box->previous = after;
  if (box->next != nullptr) box->next->previous = after;
}

uint32_t jpx_count_boxes_of_type(Box* box, uint32_t type) {
  uint32_t count = 0;
  for (; box != nullptr; box = box->next) {
    if (box->type == type) ++count;
    if (box->kind == kSuper) {
      count += jpx_count_boxes_of_type(static_cast<SuperBox*>(box)->first_child, type);
    }
  }
  return count;
}

void jpx_print_atom(uint32_t type) {
  printf("%c%c%c%c", static_cast<int>(type >> 24), static_cast<int>(type >> 16 & 0xFF),
         static_cast<int>(type >> 8 & 0xFF), static_cast<int>(type & 0xFF));
}

void jpx_render_uuid(Environment* env, Stream* stream, const uint8_t* uuid) {
  for (uint32_t i = 0; i < kUuidSize; ++i) bs_write_1_byte(env, stream, uuid[i]);
}

void jpx_read_uuid(Environment* env, Stream* stream, uint8_t* uuid) {
  for (uint32_t i = 0; i < kUuidSize; ++i) {
    uuid[i] = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  }
}

void jpx_print_uuid(const uint8_t* uuid) {
  for (uint32_t i = 0; i < kUuidSize; ++i) printf(" %02x", uuid[i]);
}

}  // extern "C"
}  // namespace kvjpx
