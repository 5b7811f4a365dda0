// The engine behind field tables (see field_table.h).
#include "box/field_table.h"

namespace kvjpx {
namespace {

bool has_integers(const Field& field) { return (field.access & KV_JPX_FIELD_INTEGER) != 0; }

bool repeats(const Field& field) { return field.list != nullptr && !field.is_list_count; }

bool is_byte_list(const Field& field) {
  return repeats(field) && (field.access & KV_JPX_FIELD_BYTES) != 0;
}

// As the format counts, or far more than a file has where it does not.
uint64_t most_entries(const ListTraits& traits) {
  if (traits.count_width == 1) return 0xFF;
  return traits.count_width == 2 ? 0xFFFF : 0xFFFFFF;
}

bool has_habit(const ListTraits& traits, ListHabit habit, Rules rules) {
  return rules == Rules::kCompatible && (traits.habits & habit) != 0;
}

// A number of the box itself, or the count of its list.
int32_t set_single(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value,
                   Rules rules) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, rules)) return JPX_ERR_INVALID_ARGUMENT;
  if (field.list != nullptr && rules == Rules::kStandard) {
    list_set_count(env, field.list->list_of(box), field.list->entry_size, value);
  } else if (field.list != nullptr) {
    list_resize(env, field.list->list_of(box), field.list->entry_size,
                static_cast<uint16_t>(value));
  } else {
    field.slot.store(box, value);
  }
  return JPX_OK;
}

int32_t set_entry(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value,
                  Rules rules) {
  const ListTraits& traits = *field.list;
  EntryList* const list = traits.list_of(box);
  const bool appends_first = has_habit(traits, kAppendsBeforeCheck, rules);
  const bool is_full = rules == Rules::kStandard && list->count >= most_entries(traits);
  if (!appends_first && !is_taken(field, box, value, rules)) return JPX_ERR_INVALID_ARGUMENT;
  if (index >= list->count && is_full) return JPX_ERR_INVALID_ARGUMENT;
  index = index_or_append(env, list, traits, index);
  if (appends_first && !is_taken(field, box, value, rules)) return JPX_ERR_INVALID_ARGUMENT;
  field.slot.store(list->entries + index * traits.entry_size, value);
  return JPX_OK;
}

int32_t get_entry(const Field& field, Box* box, uint64_t index, uint64_t* value, Rules rules) {
  const EntryList& list = *field.list->list_of(box);
  const bool takes_count = has_habit(*field.list, kGetTakesCount, rules);
  if (index > list.count || (index == list.count && !takes_count)) return JPX_ERR_NO_SUCH_FIELD;
  // A list that was never sized has no spare slot yet; it reads like the zeros of one.
  *value =
      list.entries == nullptr ? 0 : field.slot.load(list.entries + index * field.list->entry_size);
  return JPX_OK;
}

}  // namespace

bool is_taken(const Field& field, const Box* box, uint64_t value, Rules rules) {
  if (rules == Rules::kStandard) {
    if (field.standard_check != nullptr) return field.standard_check(box, value);
    if (field.width < sizeof(value) && value >> 8 * field.width != 0) return false;
  }
  return field.check == nullptr || field.check(box, value);
}

uint64_t index_or_append(Environment* env, EntryList* list, const ListTraits& traits,
                         uint64_t index) {
  if (index < list->count) return index;
  list_append(env, list, traits.entry_size, traits.fresh);
  return list->count - 1;
}

int32_t set_field(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value,
                  Rules rules) {
  if (field.custom.set != nullptr) return field.custom.set(field, box, env, index, value);
  if (!has_integers(field)) return JPX_ERR_NO_SUCH_FIELD;
  return repeats(field) ? set_entry(field, box, env, index, value, rules)
                        : set_single(field, box, env, index, value, rules);
}

int32_t get_field(const Field& field, Box* box, uint64_t index, uint64_t* value, Rules rules) {
  if (field.custom.get != nullptr) return field.custom.get(field, box, index, value);
  if (!has_integers(field)) return JPX_ERR_NO_SUCH_FIELD;
  if (repeats(field)) return get_entry(field, box, index, value, rules);
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  *value = field.list != nullptr ? field.list->list_of(box)->count : field.slot.load(box);
  return JPX_OK;
}

int32_t count_field(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (field.custom.count != nullptr) return field.custom.count(field, box, count, element_size);
  return report_count(repeats(field) ? field.list->list_of(box)->count : 1, field.width, count,
                      element_size);
}

int32_t resize_field(const Field& field, Box* box, Environment* env, uint64_t count) {
  if (field.list == nullptr && field.custom.resize != nullptr) {
    return field.custom.resize(field, box, env, count);
  }
  if (!repeats(field)) return JPX_ERR_NO_SUCH_FIELD;
  if (count > most_entries(*field.list)) return JPX_ERR_INVALID_ARGUMENT;
  if (field.custom.resize != nullptr) return field.custom.resize(field, box, env, count);
  const ListTraits& traits = *field.list;
  EntryList* const list = traits.list_of(box);
  if (count < list->count) list_resize(env, list, traits.entry_size, count);
  while (list->count < count) list_append(env, list, traits.entry_size, traits.fresh);
  return JPX_OK;
}

// Bytes set into a list replace it; their values are not judged, as those of a file are not.
int32_t set_field_bytes(const Field& field, Box* box, Environment* env,
                        const BufferSource& source) {
  if (field.custom.set_bytes != nullptr) return field.custom.set_bytes(field, box, env, source);
  if (!is_byte_list(field)) return JPX_ERR_NO_SUCH_FIELD;
  return list_replace(env, field.list->list_of(box), field.list->entry_size, source);
}

int32_t get_field_bytes(const Field& field, Box* box, Environment* env,
                        const BufferRequest& request) {
  if (field.custom.get_bytes != nullptr) return field.custom.get_bytes(field, box, env, request);
  if (!is_byte_list(field)) return JPX_ERR_NO_SUCH_FIELD;
  const EntryList& list = *field.list->list_of(box);
  return copy_out(env, request, list.entries, list.count, field.width);
}

}  // namespace kvjpx
