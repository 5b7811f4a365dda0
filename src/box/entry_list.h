// The growing array behind every repeating field.
//
// It is zero-filled and always has one spare slot behind the last entry, because several boxes let
// a reader look one entry past the end. It grows in steps, so appending n entries costs O(n).
#ifndef KVJPX_BOX_ENTRY_LIST_H_
#define KVJPX_BOX_ENTRY_LIST_H_

#include "frame/memory.h"

namespace kvjpx {

struct EntryList {
  uint8_t* entries;  // null until first sized
  uint64_t count;
  uint64_t capacity;  // slots, the spare one included
  // What a short list needs no block for: most lists of most files. So a list must not be copied.
  alignas(uint64_t) uint8_t room[40];

  EntryList(const EntryList&) = delete;
  EntryList& operator=(const EntryList&) = delete;
};

// Gives the list `count` entries. New ones are zero; those cut off are lost.
void list_resize(Environment* env, EntryList* list, uint64_t entry_size, uint64_t count);

// The same, but those cut off stay behind the end and come back when the list grows again by this.
void list_set_count(Environment* env, EntryList* list, uint64_t entry_size, uint64_t count);

// Adds one entry, a copy of *fresh or zeros when that is null.
void list_append(Environment* env, EntryList* list, uint64_t entry_size, const void* fresh);

// Makes sure that the spare slot exists.
void list_provide_spare(Environment* env, EntryList* list, uint64_t entry_size);

void list_release(Environment* env, EntryList* list);

template <class Entry>
Entry* entry_at(const EntryList& list, uint64_t index) {
  return reinterpret_cast<Entry*>(list.entries) + index;
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_ENTRY_LIST_H_
