// Wire tables: one ordered list of numbers drives reading, writing and measuring of a fixed layout.
// All numbers are big-endian.
#ifndef KVJPX_BOX_WIRE_H_
#define KVJPX_BOX_WIRE_H_

#include "box/entry_list.h"
#include "box/slot.h"
#include "stream/stream.h"

namespace kvjpx {

struct WireNumber {
  uint32_t width;  // bytes on disk
  Slot slot;
};

struct WireTable {
  const WireNumber* numbers;
  uint32_t count;
  uint64_t size;  // bytes on disk
};

template <uint32_t N>
constexpr WireTable wire_table(const WireNumber (&numbers)[N]) {
  uint64_t size = 0;
  for (const WireNumber& number : numbers) size += number.width;
  return {numbers, N, size};
}

void read_wire(Environment* env, Stream* stream, const WireTable& table, void* record);
void render_wire(Environment* env, Stream* stream, const WireTable& table, const void* record);

// Gives the list `count` entries from the stream; raises 18 for more than the content can hold.
void read_entries(Environment* env, Stream* stream, const WireTable& table, EntryList* list,
                  uint64_t entry_size, uint64_t count);
void render_entries(Environment* env, Stream* stream, const WireTable& table, const EntryList& list,
                    uint64_t entry_size);

}  // namespace kvjpx

#endif  // KVJPX_BOX_WIRE_H_
