// Basic boxes: boxes whose payload stays opaque. A parsed one refers to its payload in the input
// stream, so opening a file costs its headers only; setting the data gives it a stream of its own.
#ifndef KVJPX_BOX_BASIC_H_
#define KVJPX_BOX_BASIC_H_

#include "box/box.h"
#include "box/buffer_field.h"
#include "box/registry.h"

namespace kvjpx {

struct BasicBox : Box {
  uint64_t payload_length;
  uint64_t payload_offset;  // in the source
  Stream* source;           // null: made and still empty
  uint8_t owns_stream;
};

// The payload as such, whatever the kind of the box: uuid and url boxes build on it.
void render_payload(BasicBox* box, Environment* env, Stream* stream);
void release_payload(BasicBox* box, Environment* env);
int32_t set_payload(BasicBox* box, Environment* env, uint64_t count, uint32_t element_size,
                    const void* source);
int32_t get_payload(BasicBox* box, Environment* env, const BufferRequest& request);
// A request as opaque boxes answer it: unlike other fields, their payload answers 3 to a buffer
// without its size; hosts probe for opaque boxes with that.
inline BufferRequest opaque_request(uint64_t* count, uint32_t* element_size, void** buffer) {
  return {count, element_size, buffer, JPX_ERR_INVALID_ARGUMENT};
}

// Copies the payload to a buffer that has room for it.
void copy_payload(BasicBox* box, Environment* env, void* destination);

extern const FieldTable kPayloadFields;

extern "C" {
KVJPX_EXPORT MakeFn jpx_make_basic_box;
KVJPX_EXPORT ReadFn jpx_read_basic_box;
KVJPX_EXPORT void jpx_read_basic_box_data(Environment* env, Stream* stream, Box* box);
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_BASIC_H_
