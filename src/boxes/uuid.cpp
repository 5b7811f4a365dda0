// uuid, the UUID box (ISO/IEC 15444-1, I.7.2): an opaque box with a UUID in front of its payload.
//
//   16 UUID, then the payload, to the end
#include <stdio.h>
#include <string.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct UuidBox : BasicBox {
  uint8_t uuid[kUuidSize];
};

UuidBox* uuid(Box* box) { return static_cast<UuidBox*>(box); }

int32_t set_id(const Field&, Box* box, Environment*, const BufferSource& source) {
  if (source.count != 1 || source.element_size != kUuidSize || source.data == nullptr) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  memcpy(uuid(box)->uuid, source.data, kUuidSize);
  return JPX_OK;
}

// Room for a UUID is one entry of 16 bytes or more, not 16 of one.
int32_t get_id(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const bool is_given = request.buffer != nullptr && *request.buffer != nullptr;
  if (is_given && request.count != nullptr && request.element_size != nullptr &&
      (*request.count < 1 || *request.element_size < kUuidSize)) {
    report_count(1, kUuidSize, request.count, request.element_size);
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  return copy_out(env, request, uuid(box)->uuid, 1, kUuidSize);
}

constexpr Field kFields[] = {
    bytes_field(JPX_FIELD_UUID_ID, "ID", kUuidSize, {nullptr, nullptr, nullptr, set_id, get_id}),
    bytes_field(JPX_FIELD_UUID_DATA, "DATA", 1,
                {nullptr, nullptr, count_payload, set_payload, get_payload}),
};

uint64_t length_of_content(Box* box) { return kUuidSize + payload_length(box); }

void render_content(Box* box, Environment* env, Stream* stream) {
  jpx_render_uuid(env, stream, uuid(box)->uuid);
  render_payload(box, env, stream);
}

void read_content(Environment* env, Stream* stream, Box* box) {
  jpx_read_uuid(env, stream, uuid(box)->uuid);
  jpx_read_basic_box_data(env, stream, box);
}

void jpx_uuid_print(Box* box) {
  print_heading(box);
  printf("UUID:");
  jpx_print_uuid(uuid(box)->uuid);
  printf("\ndata of length %llu\n", printable(uuid(box)->payload_length));
}

// The payload answers to the key of all opaque payloads as well, so that code that walks them need
// not tell a uuid box apart.
constexpr BoxLayout uuid_layout() {
  BoxLayout layout = box_layout<UuidBox, kFields>(
      code("uuid"), jpx_uuid_print,
      {length_of_content, render_content, read_content, release_payload});
  layout.base = &kOpaque;
  return layout;
}

}  // namespace

constexpr BoxLayout kUuid = uuid_layout();

}  // namespace kvjpx
