// Public functions: the fields of boxes, forwarded to each box's own operations.
#include <stdio.h>
#include <string.h>

#include "api/lookup.h"
#include "box/basic.h"
#include "box/standard.h"
#include "kvjpx.h"

using namespace kvjpx;

int32_t kv_jpx_get_box_field_int(kv_jpx_context* context, uint32_t id, uint32_t key, uint64_t index,
                                 uint64_t* out) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (out == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    Box* const box = find_box(live, id);
    if (box == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    note_place(live, box);
    return box->get_int_field(box, key, index, out);
  });
}

// What the input has is taken although it is out of the field's range, so that every edit can be
// undone.
static int32_t set_back(Context& context, Box* box, uint32_t key, uint64_t index, uint64_t value) {
  Environment* const env = &context.environment;
  const BoxLayout* const layout = layout_of(box);
  const Field* const field = layout != nullptr ? find_field(*layout, box, key) : nullptr;
  if (field == nullptr || !stood_there(env, context.index, context.input, box, key, index, value)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  Field unjudged = *field;
  unjudged.check = nullptr;
  unjudged.standard_check = nullptr;
  return set_field(unjudged, box, env, index, value, Rules::kStandard);
}

int32_t kv_jpx_set_box_field_int(kv_jpx_context* context, uint32_t id, uint32_t key, uint64_t index,
                                 uint64_t value) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    index_note_change(&live.environment, live.index, box);
    const int32_t result = box->set_int_field(box, &live.environment, key, index, value);
    if (result != JPX_ERR_INVALID_ARGUMENT || live.index->keeps_everything == 0) return result;
    return set_back(live, box, key, index, value);
  });
}

int32_t kv_jpx_get_box_field_count(kv_jpx_context* context, uint32_t id, uint32_t key,
                                   uint64_t* count, uint32_t* element_size) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    return box->get_field_count(box, key, count, element_size);
  });
}

int32_t kv_jpx_set_box_field_count(kv_jpx_context* context, uint32_t id, uint32_t key,
                                   uint64_t count) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    const BoxLayout* const layout = layout_of(box);
    const Field* const field = layout != nullptr ? find_field(*layout, box, key) : nullptr;
    if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    index_note_change(&live.environment, live.index, box);
    return resize_field(*field, box, &live.environment, count);
  });
}

int32_t kv_jpx_set_box_field_buffer(kv_jpx_context* context, uint32_t id, uint32_t key,
                                    uint64_t count, uint32_t element_size, const void* data) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    index_note_change(&live.environment, live.index, box);
    return box->set_buffer_field(box, &live.environment, key, count, element_size, data);
  });
}

int32_t kv_jpx_get_box_field_buffer(kv_jpx_context* context, uint32_t id, uint32_t key,
                                    uint64_t* count, uint32_t* element_size, void** data) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    Environment* const env = &live.environment;
    if (data == nullptr) return box->get_buffer_field(box, env, key, count, element_size, nullptr);
    // The caller sees a block only once it is filled: an error exit on the way takes it back.
    void* block = *data;
    // cppcheck-suppress AssignmentAddressToInteger ; it takes the operation for a pointer
    const int32_t result = box->get_buffer_field(box, env, key, count, element_size, &block);
    *data = block;
    return result;
  });
}

int32_t kv_jpx_get_box_buffer(kv_jpx_context* context, uint32_t id, uint64_t* length, void** data) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    if (length == nullptr || data == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    // Parsed and super boxes have no opaque payload; xml and uuid boxes are basic and pass.
    if (box->kind != kBasic) return JPX_ERR_NO_SUCH_FIELD;
    auto* const opaque = static_cast<BasicBox*>(box);
    if (opaque->source == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    void* const block = allocate(&live.environment, opaque->payload_length);
    printf("%d %d %d %d\n", static_cast<int>(opaque->payload_length),
           static_cast<int>(opaque->payload_offset),
           static_cast<int>(reinterpret_cast<uintptr_t>(opaque->source)), opaque->owns_stream);
    copy_payload(opaque, &live.environment, block);
    *data = block;
    *length = opaque->payload_length;
    return JPX_OK;
  });
}

namespace {

// The row numbered `index`, or null; counts index down by the rows.
const Field* pick_field(const FieldRows& rows, uint32_t* index) {
  if (*index < rows.count) return rows.first + *index;
  *index -= rows.count;
  return nullptr;
}

// Whether the caller's record has room for all that is written now.
bool takes_all(const kv_jpx_field_info& info) {
  return info.size == 0 || info.size >= sizeof(info);
}

int32_t describe(uint32_t box_type, const Field& field, kv_jpx_field_info* info) {
  *info = {sizeof(*info), box_type, field.key, field.name, field.width, field.access};
  return JPX_OK;
}

}  // namespace

int32_t kv_jpx_get_field_info(uint32_t index, kv_jpx_field_info* info) {
  if (info == nullptr || !takes_all(*info)) return JPX_ERR_INVALID_ARGUMENT;
  for (const BoxType& row : all_box_types()) {
    if (row.layout == nullptr) continue;
    if (const Field* field = pick_field(row.layout->fields, &index))
      return describe(row.code, *field, info);
  }
  if (const Field* field = pick_field(kOpaque.fields, &index)) return describe(0, *field, info);
  return JPX_ERR_INVALID_ARGUMENT;
}

int32_t kv_jpx_find_field(uint32_t box_type, const char* name, kv_jpx_field_info* info) {
  if (name == nullptr || info == nullptr || !takes_all(*info)) return JPX_ERR_INVALID_ARGUMENT;
  const uint32_t types[] = {box_type, 0};
  for (const uint32_t type : types) {
    for (uint32_t index = 0; kv_jpx_get_field_info(index, info) == JPX_OK; ++index) {
      if (info->box_type == type && strcmp(info->name, name) == 0) return JPX_OK;
    }
  }
  return JPX_ERR_NO_SUCH_FIELD;
}
