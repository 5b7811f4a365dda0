// The growing array behind every repeating field (see entry_list.h).
#include "box/entry_list.h"

#include <string.h>

namespace kvjpx {
namespace {

void reserve(Environment* env, EntryList* list, uint64_t entry_size, uint64_t slots) {
  if (slots <= list->capacity) return;
  const uint64_t in_room = sizeof(list->room) / entry_size;
  if (slots <= in_room) {  // it had none
    memset(list->room, 0, sizeof(list->room));
    list->entries = list->room;
    list->capacity = in_room;
    return;
  }
  const uint64_t step = list->capacity + list->capacity / 2;
  const uint64_t capacity = slots > step ? slots : step;
  uint64_t size;
  if (__builtin_mul_overflow(capacity, entry_size, &size)) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  const uint64_t old_size = list->capacity * entry_size;
  if (list->entries == list->room) {
    list->entries = static_cast<uint8_t*>(allocate(env, size));
    memcpy(list->entries, list->room, old_size);
  } else {
    list->entries = static_cast<uint8_t*>(reallocate(env, list->entries, size));
  }
  memset(list->entries + old_size, 0, size - old_size);
  list->capacity = capacity;
}

}  // namespace

void list_resize(Environment* env, EntryList* list, uint64_t entry_size, uint64_t count) {
  // What is cut off, and what a box may have put into the spare slot, must not come back.
  if (list->entries != nullptr) {
    const uint64_t kept = count < list->count ? count : list->count;
    memset(list->entries + kept * entry_size, 0, (list->count - kept + 1) * entry_size);
  }
  if (count != 0) reserve(env, list, entry_size, count + 1);
  list->count = count;
}

void list_set_count(Environment* env, EntryList* list, uint64_t entry_size, uint64_t count) {
  if (count != 0) reserve(env, list, entry_size, count + 1);
  list->count = count;
}

void list_append(Environment* env, EntryList* list, uint64_t entry_size, const void* fresh) {
  reserve(env, list, entry_size, list->count + 2);
  uint8_t* const entry = list->entries + list->count * entry_size;
  if (fresh != nullptr) {
    memcpy(entry, fresh, entry_size);
  } else {
    memset(entry, 0, entry_size);
  }
  ++list->count;
}

void list_provide_spare(Environment* env, EntryList* list, uint64_t entry_size) {
  reserve(env, list, entry_size, list->count + 1);
}

void list_release(Environment* env, EntryList* list) {
  if (list->entries == list->room) list->entries = nullptr;
  release(env, list->entries);
  list->count = 0;
  list->capacity = 0;
}

}  // namespace kvjpx
