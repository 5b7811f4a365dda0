// The box record: one common header with a table of operations for every box of a file, read or
// made, and the operations that box types share.
#ifndef KVJPX_BOX_BOX_H_
#define KVJPX_BOX_BOX_H_

#include "frame/context.h"
#include "stream/stream.h"

namespace kvjpx {

// A four-character code, e.g. code("jp2h").
constexpr uint32_t code(const char (&text)[5]) {
  return static_cast<uint32_t>(static_cast<unsigned char>(text[0])) << 24 |
         static_cast<uint32_t>(static_cast<unsigned char>(text[1])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(text[2])) << 8 |
         static_cast<uint32_t>(static_cast<unsigned char>(text[3]));
}

enum Kind : uint32_t {
  kBasic = 1,   // opaque payload
  kSuper = 2,   // holds child boxes
  kParsed = 3,  // payload decoded into fields
};

using LengthFn = uint64_t(Box*);
using RenderFn = void(Box*, Environment*, Stream*);
using PrintFn = void(Box*);
using DestroyFn = void(Box*, Environment*);
using FindByIdFn = Box*(Box*, uint32_t id);
using FindByTypeFn = Box*(Box*, uint32_t type, uint32_t after);
using SetIntFieldFn = int32_t(Box*, Environment*, uint32_t key, uint64_t index, uint64_t value);
using GetIntFieldFn = int32_t(Box*, uint32_t key, uint64_t index, uint64_t* value);
using GetFieldCountFn = int32_t(Box*, uint32_t key, uint64_t* count, uint32_t* element_size);
using SetBufferFieldFn = int32_t(Box*, Environment*, uint32_t key, uint64_t count,
                                 uint32_t element_size, const void* source);
using GetBufferFieldFn = int32_t(Box*, Environment*, uint32_t key, uint64_t* count,
                                 uint32_t* element_size, void** buffer);

// Where a box stands, then what it does: the two parts of its record.
struct BoxPlace {
  uint32_t kind;
  uint32_t type;
  uint32_t id;
  Box* parent;
  Box* next;
  Box* previous;
};
struct BoxOperations {
  LengthFn* length;      // of the content, in bytes
  LengthFn* box_length;  // with the header
  RenderFn* render;
  RenderFn* box_render;
  PrintFn* print;
  DestroyFn* box_destroy;  // releases, unlinks and frees the box
  DestroyFn* destroy;      // releases what the box owns
  FindByIdFn* find_by_id;
  FindByTypeFn* find_by_type;
  SetIntFieldFn* set_int_field;
  GetIntFieldFn* get_int_field;
  GetFieldCountFn* get_field_count;
  SetBufferFieldFn* set_buffer_field;
  GetBufferFieldFn* get_buffer_field;
};
struct Box : BoxPlace, BoxOperations {};
static_assert(offsetof(BoxPlace, id) == 8 && offsetof(BoxPlace, parent) == 16 &&
                  (sizeof(void*) != 8 ||
                   (sizeof(BoxPlace) == 40 && offsetof(BoxOperations, print) == 32 &&
                    offsetof(BoxOperations, find_by_id) == 56 &&
                    offsetof(BoxOperations, get_buffer_field) == 104 && sizeof(Box) == 152)),
              "the record's layout is part of the interface");

extern "C" {

// Makes a zero-filled record of record_size bytes; does not link it into its parent.
KVJPX_EXPORT Box* jpx_make_box(Environment* env, size_t record_size, uint32_t kind, uint32_t type,
                               Box* parent, uint32_t id, LengthFn* length, RenderFn* render,
                               PrintFn* print, DestroyFn* destroy, FindByIdFn* find_by_id,
                               FindByTypeFn* find_by_type, SetIntFieldFn* set_int_field,
                               GetIntFieldFn* get_int_field, GetFieldCountFn* get_field_count,
                               SetBufferFieldFn* set_buffer_field,
                               GetBufferFieldFn* get_buffer_field);

// Installed in every box.
KVJPX_EXPORT uint64_t jpx_box_length(Box* box);
KVJPX_EXPORT void jpx_box_render(Box* box, Environment* env, Stream* stream);
KVJPX_EXPORT void jpx_box_destroy(Box* box, Environment* env);

// For boxes that own nothing, have no children, have no such fields (4).
KVJPX_EXPORT DestroyFn jpx_generic_destroy;
KVJPX_EXPORT FindByIdFn jpx_generic_find_by_id;
KVJPX_EXPORT FindByTypeFn jpx_generic_find_by_type;
KVJPX_EXPORT SetIntFieldFn jpx_generic_set_int_field;
KVJPX_EXPORT GetIntFieldFn jpx_generic_get_int_field;
KVJPX_EXPORT GetFieldCountFn jpx_generic_get_field_count;
KVJPX_EXPORT SetBufferFieldFn jpx_generic_set_buffer_field;
KVJPX_EXPORT GetBufferFieldFn jpx_generic_get_buffer_field;

KVJPX_EXPORT void jpx_remove_box(Box* box);
KVJPX_EXPORT void jpx_insert_box(Box* box, Box* after);

// Counts in the chain of siblings that starts at the box, at every depth under super boxes.
KVJPX_EXPORT uint32_t jpx_count_boxes_of_type(Box* box, uint32_t type);

KVJPX_EXPORT void jpx_print_atom(uint32_t type);
KVJPX_EXPORT void jpx_render_uuid(Environment* env, Stream* stream, const uint8_t* uuid);
KVJPX_EXPORT void jpx_read_uuid(Environment* env, Stream* stream, uint8_t* uuid);
KVJPX_EXPORT void jpx_print_uuid(const uint8_t* uuid);

}  // extern "C"

constexpr uint32_t kUuidSize = 16;

// The operations that a box type brings, in the order of jpx_make_box, with those that are
// installed in every box.
constexpr BoxOperations operations_of(LengthFn* length, RenderFn* render, PrintFn* print,
                                      DestroyFn* destroy, FindByIdFn* find_by_id,
                                      FindByTypeFn* find_by_type, SetIntFieldFn* set_int_field,
                                      GetIntFieldFn* get_int_field,
                                      GetFieldCountFn* get_field_count,
                                      SetBufferFieldFn* set_buffer_field,
                                      GetBufferFieldFn* get_buffer_field) {
  return {length,          jpx_box_length,  render,           jpx_box_render,  print,
          jpx_box_destroy, destroy,         find_by_id,       find_by_type,    set_int_field,
          get_int_field,   get_field_count, set_buffer_field, get_buffer_field};
}

// Makes a record that extends Box. Everything behind the common part is zero.
Box* make_record(Environment* env, size_t size, uint32_t kind, uint32_t type, Box* parent,
                 uint32_t id, const BoxOperations& op);

// For print-outs, whose formats count in unsigned long long.
inline unsigned long long printable(uint64_t number) { return number; }

// Moves the stream to the end of the content, whatever the reader took of it.
inline void skip_content(Environment* env, Stream* stream) {
  stream->unread = bytes_left(stream);
  if (stream->unread != 0) move_to(env, stream, limit_of(stream));
}

// Whether the rest of the content can hold a count, before anything is allocated for it. Raises 18
// if it cannot, unless everything is kept: then the content is bad, and its reader stops.
inline bool has_content(Environment* env, Stream* stream, uint64_t count, uint64_t smallest_entry) {
  if (count <= bytes_left(stream) / smallest_entry) return true;
  if (stream->keeps_everything == 0) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  stream->content_is_bad = 1;
  return false;
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_BOX_H_
