// url , the data entry URL box (ISO/IEC 15444-1, I.7.3.2).
//
//   1 VERS, 3 FLAG, then LOC, to the end
//
// The location is kept like the payload of an opaque box.
#include <stdio.h>

#include "box/basic.h"
#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("url ");
constexpr uint64_t kFixedSize = 4;

struct UrlBox : BasicBox {
  uint8_t version;
  uint32_t flags;  // 24 bits
};

UrlBox* url(Box* box) { return static_cast<UrlBox*>(box); }

// The standard allows 0 only, in both; a value passes by its low byte and is stored as 0.
bool has_zero_low_byte(const Box*, uint64_t value) { return (value & 0xFF) == 0; }

void store_no_version(void* record, uint64_t) { static_cast<UrlBox*>(record)->version = 0; }
void store_no_flags(void* record, uint64_t) { static_cast<UrlBox*>(record)->flags = 0; }

int32_t count_location(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(url(box)->payload_length, field.width, count, element_size);
}

constexpr CustomField kLocation = {nullptr, nullptr, count_location};
constexpr Field kFields[] = {
    single(JPX_FIELD_URL_VERS, "VERS", 1, {member<&UrlBox::version>.load, store_no_version},
           has_zero_low_byte),
    single(JPX_FIELD_URL_FLAG, "FLAG", 3, {member<&UrlBox::flags>.load, store_no_flags},
           has_zero_low_byte),
    custom(bytes_field(JPX_FIELD_URL_LOC, "LOC", 1), kLocation),
};
constexpr FieldTable kTable = field_table(kType, kFields);

bool is_location(const Box* box, uint32_t key) {
  return box->type == kType && key == JPX_FIELD_URL_LOC;
}

uint64_t jpx_url_length(Box* box) {
  return box->type == kType ? kFixedSize + url(box)->payload_length : 0;
}

void jpx_url_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  bs_write_1_byte(env, stream, url(box)->version);
  bs_write_n_byte(env, stream, url(box)->flags, 3, 0);
  render_payload(url(box), env, stream);
}

void jpx_url_print(Box* box) {
  if (box->type != kType) return;
  printf("url_ box length %llu\n", printable(box->box_length(box)));
  printf("version: %u\n", url(box)->version);
  printf("flag: %u\n", url(box)->flags);
  printf("URL of length %llu\n", printable(url(box)->payload_length));
}

void jpx_url_destroy(Box* box, Environment* env) {
  if (box->type == kType) release_payload(url(box), env);
}

int32_t jpx_url_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                              uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_url_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_url_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

int32_t jpx_url_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                 uint32_t element_size, const void* source) {
  if (!is_location(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return set_payload(url(box), env, count, element_size, source);
}

int32_t jpx_url_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                 uint32_t* element_size, void** buffer) {
  if (!is_location(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return get_payload(url(box), env, opaque_request(count, element_size, buffer));
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_url_length, jpx_url_render, jpx_url_print, jpx_url_destroy,
                    jpx_url_set_int_field, jpx_url_get_int_field, jpx_url_get_field_count),
    jpx_url_set_buffer_field, jpx_url_get_buffer_field);

// Read number by number: of a payload that is too short, what is there counts and the rest is 0.
void read_payload(Environment* env, Stream* stream, Box* box) {
  url(box)->version = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  const uint64_t high = bs_read_1_byte(env, stream);
  url(box)->flags = static_cast<uint32_t>(high << 16 | bs_read_2_byte_big(env, stream));
  jpx_read_basic_box_data(env, stream, box);
}

}  // namespace

const FieldTable kUrlFields = kTable;

extern "C" {

Box* jpx_make_url__box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<UrlBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_url__box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_url__box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
