// Basic boxes (see basic.h).
#include "box/basic.h"

#include <stdio.h>

#include "box/field_table.h"
#include "kvjpx_fields.h"

namespace kvjpx {
namespace {

bool is_payload_of_basic(const Box* box, uint32_t key) {
  return box->kind == kBasic && key == JPX_FIELD_JP2C_DATA;
}

uint64_t jpx_basic_length(Box* box) {
  return box->kind == kBasic ? static_cast<BasicBox*>(box)->payload_length : 0;
}

void jpx_basic_render(Box* box, Environment* env, Stream* stream) {
  if (box->kind == kBasic) render_payload(static_cast<BasicBox*>(box), env, stream);
}

void jpx_basic_print(Box* box) {
  if (box->kind != kBasic) return;
  printf("Basic box of type ");
  jpx_print_atom(box->type);
  printf(" length %llu\n", printable(box->box_length(box)));
}

void jpx_basic_destroy(Box* box, Environment* env) {
  if (box->kind == kBasic) release_payload(static_cast<BasicBox*>(box), env);
}

int32_t jpx_basic_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  if (!is_payload_of_basic(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(static_cast<BasicBox*>(box)->payload_length, 1, count, element_size);
}

int32_t jpx_basic_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                   uint32_t element_size, const void* source) {
  if (!is_payload_of_basic(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return set_payload(static_cast<BasicBox*>(box), env, count, element_size, source);
}

int32_t jpx_basic_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                   uint32_t* element_size, void** buffer) {
  if (!is_payload_of_basic(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return get_payload(static_cast<BasicBox*>(box), env, opaque_request(count, element_size, buffer));
}

constexpr BoxOperations kBasicOperations = {
    jpx_basic_length,           jpx_basic_render,          jpx_basic_print,
    jpx_basic_destroy,          jpx_generic_find_by_id,    jpx_generic_find_by_type,
    jpx_generic_set_int_field,  jpx_generic_get_int_field, jpx_basic_get_field_count,
    jpx_basic_set_buffer_field, jpx_basic_get_buffer_field};

constexpr Field kFields[] = {
    bytes_field(JPX_FIELD_JP2C_DATA, "DATA", 1),
};

}  // namespace

// Stands for every opaque box, whatever its type.
const FieldTable kPayloadFields = field_table(0, kFields);

void render_payload(BasicBox* box, Environment* env, Stream* stream) {
  if (box->source == nullptr) return;
  require_present(env, box->source, box->payload_offset, box->payload_length);
  bs_set_current_position(env, box->source, box->payload_offset);
  bs_write_from_bs(env, stream, box->source, box->payload_length);
}

void release_payload(BasicBox* box, Environment* env) {
  if (box->owns_stream != 0) destroy_stream(env, box->source);
  box->source = nullptr;
  box->owns_stream = 0;
}

int32_t set_payload(BasicBox* box, Environment* env, uint64_t count, uint32_t element_size,
                    const void* source) {
  uint64_t size;
  if (!is_valid_source(count, element_size, source, &size)) return JPX_ERR_INVALID_ARGUMENT;
  release_payload(box, env);
  box->source = bs_reader_from_buffer(env, source, size);
  box->payload_offset = 0;
  box->payload_length = size;
  box->owns_stream = 1;
  return JPX_OK;
}

void copy_payload(BasicBox* box, Environment* env, void* destination) {
  if (box->source == nullptr) return;
  require_present(env, box->source, box->payload_offset, box->payload_length);
  bs_set_current_position(env, box->source, box->payload_offset);
  bs_read_memcpy(env, box->source, destination, box->payload_length);
}

int32_t get_payload(BasicBox* box, Environment* env, const BufferRequest& request) {
  const int32_t result = grant_buffer(env, request, box->payload_length, 1);
  if (result == JPX_OK) copy_payload(box, env, *request.buffer);
  return result;
}

extern "C" {

Box* jpx_make_basic_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_record<BasicBox>(env, kBasic, type, parent, id, kBasicOperations);
}

void jpx_read_basic_box_data(Environment* env, Stream* stream, Box* box) {
  auto* basic = static_cast<BasicBox*>(box);
  release_payload(basic, env);
  basic->payload_offset = bs_get_current_position(env, stream);
  basic->payload_length = bytes_left(env, stream);
  basic->source = stream;
  skip_content(env, stream);
}

Box* jpx_read_basic_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                        uint32_t* counter) {
  Box* const box = jpx_make_basic_box(env, type, parent, *counter);
  jpx_read_basic_box_data(env, stream, box);
  return box;
}

}  // extern "C"
}  // namespace kvjpx
