// Basic boxes (see basic.h).
#include "box/basic.h"

#include <stdio.h>

namespace kvjpx {
namespace {

BasicBox* basic(Box* box) { return static_cast<BasicBox*>(box); }

void jpx_basic_print(Box* box) {
  printf("Basic box of type ");
  jpx_print_atom(box->type);
  printf(" length %llu\n", printable(box->box_length(box)));
}

constexpr Field kFields[] = {
    bytes_field(JPX_FIELD_JP2C_DATA, "DATA", 1,
                {nullptr, nullptr, count_payload, set_payload, get_opaque_payload}),
};

}  // namespace

constexpr BoxLayout kOpaque = box_layout<BasicBox, kFields>(
    0, jpx_basic_print, {payload_length, render_payload, jpx_read_basic_box_data, release_payload});

uint64_t payload_length(Box* box) { return basic(box)->payload_length; }

void render_payload(Box* box, Environment* env, Stream* stream) {
  const BasicBox* const self = basic(box);
  if (self->source == nullptr) return;
  require_present(env, self->source, self->payload_offset, self->payload_length);
  bs_set_current_position(env, self->source, self->payload_offset);
  bs_write_from_bs(env, stream, self->source, self->payload_length);
}

void release_payload(Box* box, Environment* env) {
  BasicBox* const self = basic(box);
  if (self->owns_stream != 0) destroy_stream(env, self->source);
  self->source = nullptr;
  self->owns_stream = 0;
}

void copy_payload(BasicBox* box, Environment* env, void* destination) {
  if (box->source == nullptr) return;
  require_present(env, box->source, box->payload_offset, box->payload_length);
  bs_set_current_position(env, box->source, box->payload_offset);
  bs_read_memcpy(env, box->source, destination, box->payload_length);
}

int32_t count_payload(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(payload_length(box), field.width, count, element_size);
}

int32_t set_payload(const Field&, Box* box, Environment* env, const BufferSource& source) {
  BasicBox* const self = basic(box);
  uint64_t size;
  if (!is_valid_source(source, &size)) return JPX_ERR_INVALID_ARGUMENT;
  release_payload(box, env);
  self->source = bs_reader_from_buffer(env, source.data, size);
  self->payload_offset = 0;
  self->payload_length = size;
  self->owns_stream = 1;
  return JPX_OK;
}

int32_t get_payload(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const int32_t result = grant_buffer(env, request, payload_length(box), 1);
  if (result == JPX_OK) copy_payload(basic(box), env, *request.buffer);
  return result;
}

int32_t get_opaque_payload(const Field& field, Box* box, Environment* env,
                           const BufferRequest& request) {
  BufferRequest opaque = request;
  opaque.missing_size = JPX_ERR_INVALID_ARGUMENT;
  return get_payload(field, box, env, opaque);
}

extern "C" {

Box* jpx_make_basic_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_record(env, sizeof(BasicBox), kBasic, type, parent, id, Typed<kOpaque>::kOperations);
}

void jpx_read_basic_box_data(Environment* env, Stream* stream, Box* box) {
  release_payload(box, env);
  BasicBox* const self = basic(box);
  self->payload_offset = bs_get_current_position(env, stream);
  self->source = stream;
  skip_content(env, stream);
  self->payload_length = stream->unread;
  stream->unread = 0;
}

Box* jpx_read_basic_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                        uint32_t* counter) {
  Box* const box = jpx_make_basic_box(env, type, parent, *counter);
  jpx_read_basic_box_data(env, stream, box);
  return box;
}

}  // extern "C"
}  // namespace kvjpx
