// Basic boxes: boxes whose payload stays opaque. A parsed one refers to its payload in the input
// stream, so opening a file costs its headers only; setting the data gives it a stream of its own.
#ifndef KVJPX_BOX_BASIC_H_
#define KVJPX_BOX_BASIC_H_

#include "box/registry.h"
#include "box/typed_box.h"

namespace kvjpx {

struct BasicBox : Box {
  uint64_t payload_length;
  uint64_t payload_offset;  // in the source
  Stream* source;           // null: made and still empty
  uint8_t owns_stream;
};

// The payload as such, whatever the kind of the box: uuid and url boxes build on it.
LengthFn payload_length;
RenderFn render_payload;
DestroyFn release_payload;

// Copies the payload to a buffer that has room for it.
void copy_payload(BasicBox* box, Environment* env, void* destination);

// The operations of a field that is the payload. Kept for compatibility: that of opaque boxes
// answers 3 to a buffer without its size. Without it, the answer would be 5 as from other fields.
int32_t count_payload(const Field& field, Box* box, uint64_t* count, uint32_t* element_size);
int32_t set_payload(const Field& field, Box* box, Environment* env, const BufferSource& source);
int32_t get_payload(const Field& field, Box* box, Environment* env, const BufferRequest& request);
int32_t get_opaque_payload(const Field& field, Box* box, Environment* env,
                           const BufferRequest& request);

// Every opaque box, whatever its type.
extern const BoxLayout kOpaque;

extern "C" {
KVJPX_EXPORT MakeFn jpx_make_basic_box;
KVJPX_EXPORT ReadFn jpx_read_basic_box;
KVJPX_EXPORT void jpx_read_basic_box_data(Environment* env, Stream* stream, Box* box);
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_BASIC_H_
