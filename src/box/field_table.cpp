// The engine behind field tables (see field_table.h).
#include "box/field_table.h"

#include "box/buffer_field.h"

namespace kvjpx {
namespace {

const Field* find_field(const FieldTable& table, const Box* box, uint32_t key) {
  if (box->type != table.type && (table.twin == 0 || box->type != table.twin)) return nullptr;
  for (const Field& field : table) {
    if (field.key == key) return &field;
  }
  return nullptr;
}

bool has_integers(const Field* field) {
  return field != nullptr && (field->access & KV_JPX_FIELD_INTEGER) != 0;
}

bool is_taken(const Field& field, const Box* box, uint64_t value) {
  return field.check == nullptr || field.check(box, value);
}

// A number of the box itself, or the count of its list.
int32_t set_single(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value)) return JPX_ERR_INVALID_ARGUMENT;
  if (field.list != nullptr) {
    list_resize(env, field.list->list_of(box), field.list->entry_size,
                static_cast<uint16_t>(value));
  } else {
    field.slot.store(box, value);
  }
  return JPX_OK;
}

int32_t set_entry(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value) {
  const ListTraits& traits = *field.list;
  EntryList* const list = traits.list_of(box);
  if (!traits.appends_before_check && !is_taken(field, box, value)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  index = index_or_append(env, list, traits, index);
  if (traits.appends_before_check && !is_taken(field, box, value)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  field.slot.store(list->entries + index * traits.entry_size, value);
  return JPX_OK;
}

int32_t get_entry(const Field& field, Box* box, uint64_t index, uint64_t* value) {
  const EntryList& list = *field.list->list_of(box);
  if (index > list.count || (index == list.count && !field.list->get_accepts_count)) {
    return JPX_ERR_NO_SUCH_FIELD;
  }
  // A list that was never sized has no spare slot yet; it reads like the zeros of one.
  *value =
      list.entries == nullptr ? 0 : field.slot.load(list.entries + index * field.list->entry_size);
  return JPX_OK;
}

}  // namespace

uint64_t index_or_append(Environment* env, EntryList* list, const ListTraits& traits,
                         uint64_t index) {
  if (index < list->count) return index;
  list_append(env, list, traits.entry_size, traits.fresh);
  return list->count - 1;
}

int32_t set_int_field(const FieldTable& table, Box* box, Environment* env, uint32_t key,
                      uint64_t index, uint64_t value) {
  const Field* const field = find_field(table, box, key);
  if (field != nullptr && field->custom != nullptr && field->custom->set != nullptr) {
    return field->custom->set(*field, box, env, index, value);
  }
  if (!has_integers(field)) return JPX_ERR_NO_SUCH_FIELD;
  if (field->list == nullptr || field->is_list_count) {
    return set_single(*field, box, env, index, value);
  }
  return set_entry(*field, box, env, index, value);
}

int32_t get_int_field(const FieldTable& table, Box* box, uint32_t key, uint64_t index,
                      uint64_t* value) {
  const Field* const field = find_field(table, box, key);
  if (field != nullptr && field->custom != nullptr && field->custom->get != nullptr) {
    return field->custom->get(*field, box, index, value);
  }
  if (!has_integers(field)) return JPX_ERR_NO_SUCH_FIELD;
  if (field->list != nullptr && !field->is_list_count) return get_entry(*field, box, index, value);
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  *value = field->list != nullptr ? field->list->list_of(box)->count : field->slot.load(box);
  return JPX_OK;
}

int32_t get_field_count(const FieldTable& table, Box* box, uint32_t key, uint64_t* count,
                        uint32_t* element_size) {
  const Field* const field = find_field(table, box, key);
  if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
  if (field->custom != nullptr && field->custom->count != nullptr) {
    return field->custom->count(*field, box, count, element_size);
  }
  const bool repeats = field->list != nullptr && !field->is_list_count;
  return report_count(repeats ? field->list->list_of(box)->count : 1, field->width, count,
                      element_size);
}

}  // namespace kvjpx
