// ulst, the UUID list box (ISO/IEC 15444-1, I.7.3.1).
//
//   2 NU, then NU times: 16 ID
//
// NU is a number of its own: setting it changes no UUID, and those that are missing then count as
// zeros.
#include <stdio.h>
#include <string.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

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

const uint8_t* uuid_at(const UlstBox* self, uint32_t index) {
  return index < self->uuids.count ? self->uuids.entries + uint64_t{index} * kUuidSize : kZeroUuid;
}

// As many UUIDs as NU says are copied over the ones held, and those behind stay; any other number
// replaces the list.
int32_t set_uuids(const Field&, Box* box, Environment* env, const BufferSource& source) {
  UlstBox* const self = ulst(box);
  if (source.count != self->count || source.count > self->uuids.count) {
    const int32_t result = list_replace(env, &self->uuids, kUuidSize, source);
    if (result == JPX_OK) self->count = static_cast<uint32_t>(source.count);
    return result;
  }
  uint64_t size;
  if (source.element_size != kUuidSize || !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  if (size != 0) memcpy(self->uuids.entries, source.data, size);
  return JPX_OK;
}

// No more than the format can count.
int32_t set_countable_uuids(const Field& field, Box* box, Environment* env,
                            const BufferSource& source) {
  return source.count > 0xFFFF ? JPX_ERR_INVALID_ARGUMENT : set_uuids(field, box, env, source);
}

int32_t get_uuids(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const UlstBox* const self = ulst(box);
  const int32_t result = grant_buffer(env, request, self->count, kUuidSize);
  if (result != JPX_OK) return result;
  auto* out = static_cast<uint8_t*>(*request.buffer);
  for (uint32_t i = 0; i < self->count; ++i, out += kUuidSize) {
    memcpy(out, uuid_at(self, i), kUuidSize);
  }
  return JPX_OK;
}

constexpr Field uuids_field(const FieldOperations& operations) {
  return also(bytes_field(JPX_FIELD_ULST_ID, "ID", kUuidSize, operations), KV_JPX_FIELD_REPEATS);
}

constexpr Field kCount =
    single(JPX_FIELD_ULST_NU, "NU", 2, {member<&UlstBox::count>.load, store_count});
constexpr Field kFields[] = {
    kCount, uuids_field({refuse_set, refuse_get, count_uuids, set_uuids, get_uuids})};
constexpr Field kStandardFields[] = {
    kCount, uuids_field({refuse_set, refuse_get, count_uuids, set_countable_uuids, get_uuids})};

uint64_t length_of_uuids(Box* box) { return uint64_t{kUuidSize} * ulst(box)->count; }

void render_uuids(Box* box, Environment* env, Stream* stream) {
  const UlstBox* const self = ulst(box);
  for (uint32_t i = 0; i < self->count; ++i) jpx_render_uuid(env, stream, uuid_at(self, i));
}

// The label is the same for every UUID: no number stands between its brackets.
void jpx_ulst_print(Box* box) {
  const UlstBox* const self = ulst(box);
  print_heading(box);
  printf("UUID count: %u\n", self->count);
  for (uint32_t i = 0; i < self->count; ++i) {
    printf("UUID[i]:");
    jpx_print_uuid(uuid_at(self, i));
    printf("\n");
  }
}

void release_uuids(Box* box, Environment* env) { list_release(env, &ulst(box)->uuids); }

void read_uuids(Environment* env, Stream* stream, Box* box) {
  UlstBox* const self = ulst(box);
  if (!has_content(env, stream, self->count, kUuidSize)) return;
  list_resize(env, &self->uuids, kUuidSize, self->count);
  for (uint32_t i = 0; i < self->count; ++i) {
    jpx_read_uuid(env, stream, self->uuids.entries + uint64_t{i} * kUuidSize);
  }
}

}  // namespace

constexpr BoxLayout kUlst = box_layout<UlstBox, kFields>(
    code("ulst"), jpx_ulst_print, {length_of_uuids, render_uuids, read_uuids, release_uuids});
constexpr BoxLayout kStandardUlst = box_layout<UlstBox, kStandardFields>(
    code("ulst"), jpx_ulst_print, {length_of_uuids, render_uuids, read_uuids, release_uuids});

}  // namespace kvjpx
