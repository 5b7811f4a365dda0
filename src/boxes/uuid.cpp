// uuid, the UUID box (ISO/IEC 15444-1, I.7.2): an opaque box with a UUID in front of its payload.
//
//   16 UUID, then the payload, to the end
#include <stdio.h>
#include <string.h>

#include "box/basic.h"
#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("uuid");

struct UuidBox : BasicBox {
  uint8_t uuid[kUuidSize];
};

UuidBox* uuid(Box* box) { return static_cast<UuidBox*>(box); }

int32_t count_payload(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(uuid(box)->payload_length, field.width, count, element_size);
}

// The payload answers to the key of all opaque payloads as well, so that code that walks them need
// not tell a uuid box apart.
constexpr CustomField kPayload = {nullptr, nullptr, count_payload};
constexpr Field kFields[] = {
    bytes_field(JPX_FIELD_UUID_ID, "ID", kUuidSize),
    custom(bytes_field(JPX_FIELD_UUID_DATA, "DATA", 1), kPayload),
};
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_uuid_length(Box* box) {
  return box->type == kType ? kUuidSize + uuid(box)->payload_length : 0;
}

void jpx_uuid_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  jpx_render_uuid(env, stream, uuid(box)->uuid);
  render_payload(uuid(box), env, stream);
}

void jpx_uuid_print(Box* box) {
  if (box->type != kType) return;
  printf("uuid box length %llu\n", printable(box->box_length(box)));
  printf("UUID:");
  jpx_print_uuid(uuid(box)->uuid);
  printf("\ndata of length %llu\n", printable(uuid(box)->payload_length));
}

void jpx_uuid_destroy(Box* box, Environment* env) {
  if (box->type == kType) release_payload(uuid(box), env);
}

uint32_t own_key(uint32_t key) { return key == JPX_FIELD_JP2C_DATA ? JPX_FIELD_UUID_DATA : key; }

int32_t jpx_uuid_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, own_key(key), count, element_size);
}

int32_t set_id(UuidBox* self, uint64_t count, uint32_t element_size, const void* source) {
  if (count != 1 || element_size != kUuidSize || source == nullptr) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  memcpy(self->uuid, source, kUuidSize);
  return JPX_OK;
}

int32_t jpx_uuid_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (box->type != kType) return JPX_ERR_NO_SUCH_FIELD;
  if (key == JPX_FIELD_UUID_ID) return set_id(uuid(box), count, element_size, source);
  if (own_key(key) == JPX_FIELD_UUID_DATA) {
    return set_payload(uuid(box), env, count, element_size, source);
  }
  return JPX_ERR_NO_SUCH_FIELD;
}

// Room for a UUID is one entry of 16 bytes or more, not 16 of one.
int32_t get_id(UuidBox* self, Environment* env, const BufferRequest& request) {
  const bool is_given = request.buffer != nullptr && *request.buffer != nullptr;
  if (is_given && request.count != nullptr && request.element_size != nullptr &&
      (*request.count < 1 || *request.element_size < kUuidSize)) {
    report_count(1, kUuidSize, request.count, request.element_size);
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  return copy_out(env, request, self->uuid, 1, kUuidSize);
}

int32_t jpx_uuid_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (box->type != kType) return JPX_ERR_NO_SUCH_FIELD;
  const BufferRequest request = {count, element_size, buffer};
  if (key == JPX_FIELD_UUID_ID) return get_id(uuid(box), env, request);
  if (key == JPX_FIELD_UUID_DATA) return get_payload(uuid(box), env, request);
  if (key == JPX_FIELD_JP2C_DATA) {
    return get_payload(uuid(box), env, opaque_request(count, element_size, buffer));
  }
  return JPX_ERR_NO_SUCH_FIELD;
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_uuid_length, jpx_uuid_render, jpx_uuid_print, jpx_uuid_destroy,
                    jpx_generic_set_int_field, jpx_generic_get_int_field, jpx_uuid_get_field_count),
    jpx_uuid_set_buffer_field, jpx_uuid_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  jpx_read_uuid(env, stream, uuid(box)->uuid);
  jpx_read_basic_box_data(env, stream, box);
}

}  // namespace

const FieldTable kUuidFields = kTable;

extern "C" {

Box* jpx_make_uuid_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  if (!may_stand(kType, parent)) return nullptr;
  return make_record<UuidBox>(env, kBasic, type, parent, id, kOperations);
}

Box* jpx_read_uuid_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_uuid_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
