// ulst, the UUID list box (ISO/IEC 15444-1, I.7.3.1).
//
//   2 NU, then NU times: 16 ID
//
// NU is a number of its own: setting it changes no UUID, and those that are missing then count as
// zeros.
#include <stdio.h>
#include <string.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("ulst");
constexpr uint64_t kCountSize = 2;
constexpr uint8_t kZeroUuid[kUuidSize] = {};

struct UlstBox : Box {
  uint32_t count;   // NU
  EntryList uuids;  // 16 bytes each
};

UlstBox* ulst(Box* box) { return static_cast<UlstBox*>(box); }

void store_count(void* record, uint64_t value) {
  static_cast<UlstBox*>(record)->count = static_cast<uint16_t>(value);
}

// UUIDs are no integers: the integer calls name the field but refuse it.
int32_t refuse_set(const Field&, Box*, Environment*, uint64_t, uint64_t) {
  return JPX_ERR_INVALID_ARGUMENT;
}
int32_t refuse_get(const Field&, Box* box, uint64_t index, uint64_t*) {
  return index > ulst(box)->count ? JPX_ERR_NO_SUCH_FIELD : JPX_ERR_INVALID_ARGUMENT;
}
int32_t count_uuids(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(ulst(box)->count, field.width, count, element_size);
}

constexpr CustomField kUuids = {refuse_set, refuse_get, count_uuids};
constexpr Field kFields[] = {
    single(JPX_FIELD_ULST_NU, "NU", 2, {member<&UlstBox::count>.load, store_count}),
    custom(also(bytes_field(JPX_FIELD_ULST_ID, "ID", kUuidSize), KV_JPX_FIELD_REPEATS), kUuids),
};
constexpr FieldTable kTable = field_table(kType, kFields);

const uint8_t* uuid_at(const UlstBox* self, uint32_t index) {
  return index < self->uuids.count ? self->uuids.entries + uint64_t{index} * kUuidSize : kZeroUuid;
}

uint64_t jpx_ulst_length(Box* box) {
  return box->type == kType ? kCountSize + uint64_t{kUuidSize} * ulst(box)->count : 0;
}

void jpx_ulst_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const UlstBox* const self = ulst(box);
  bs_write_2_byte_big(env, stream, self->count);
  for (uint32_t i = 0; i < self->count; ++i) jpx_render_uuid(env, stream, uuid_at(self, i));
}

// The label is the same for every UUID: no number stands between its brackets.
void jpx_ulst_print(Box* box) {
  if (box->type != kType) return;
  const UlstBox* const self = ulst(box);
  printf("ulst box length %llu\n", printable(box->box_length(box)));
  printf("UUID count: %u\n", self->count);
  for (uint32_t i = 0; i < self->count; ++i) {
    printf("UUID[i]:");
    jpx_print_uuid(uuid_at(self, i));
    printf("\n");
  }
}

void jpx_ulst_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, &ulst(box)->uuids);
}

int32_t jpx_ulst_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_ulst_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_ulst_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

// As many UUIDs as NU says are copied over the ones held, and those behind stay; any other number
// replaces the list.
int32_t jpx_ulst_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (box->type != kType || key != JPX_FIELD_ULST_ID) return JPX_ERR_NO_SUCH_FIELD;
  UlstBox* const self = ulst(box);
  if (count != self->count || count > self->uuids.count) {
    const int32_t result = list_replace(env, &self->uuids, kUuidSize, count, element_size, source);
    if (result == JPX_OK) self->count = static_cast<uint32_t>(count);
    return result;
  }
  uint64_t size;
  if (element_size != kUuidSize || !is_valid_source(count, element_size, source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  if (size != 0) memcpy(self->uuids.entries, source, size);
  return JPX_OK;
}

int32_t jpx_ulst_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (box->type != kType || key != JPX_FIELD_ULST_ID) return JPX_ERR_NO_SUCH_FIELD;
  const UlstBox* const self = ulst(box);
  const int32_t result = grant_buffer(env, {count, element_size, buffer}, self->count, kUuidSize);
  if (result != JPX_OK) return result;
  auto* out = static_cast<uint8_t*>(*buffer);
  for (uint32_t i = 0; i < self->count; ++i, out += kUuidSize) {
    memcpy(out, uuid_at(self, i), kUuidSize);
  }
  return JPX_OK;
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_ulst_length, jpx_ulst_render, jpx_ulst_print, jpx_ulst_destroy,
                    jpx_ulst_set_int_field, jpx_ulst_get_int_field, jpx_ulst_get_field_count),
    jpx_ulst_set_buffer_field, jpx_ulst_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  UlstBox* const self = ulst(box);
  self->count = static_cast<uint32_t>(bs_read_2_byte_big(env, stream));
  require_content(env, stream, self->count, kUuidSize);
  list_resize(env, &self->uuids, kUuidSize, self->count);
  for (uint32_t i = 0; i < self->count; ++i) {
    jpx_read_uuid(env, stream, self->uuids.entries + uint64_t{i} * kUuidSize);
  }
}

}  // namespace

const FieldTable kUlstFields = kTable;

extern "C" {

Box* jpx_make_ulst_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<UlstBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_ulst_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_ulst_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
