// Wire tables (see wire.h).
#include "box/wire.h"

#include "box/box.h"

namespace kvjpx {

void read_wire(Environment* env, Stream* stream, const WireTable& table, void* record) {
  for (uint32_t i = 0; i < table.count; ++i) {
    const WireNumber& number = table.numbers[i];
    number.slot.store(record, bs_read_n_byte(env, stream, number.width, 0));
  }
}

void render_wire(Environment* env, Stream* stream, const WireTable& table, const void* record) {
  for (uint32_t i = 0; i < table.count; ++i) {
    const WireNumber& number = table.numbers[i];
    bs_write_n_byte(env, stream, number.slot.load(record), number.width, 0);
  }
}

void read_entries(Environment* env, Stream* stream, const WireTable& table, EntryList* list,
                  uint64_t entry_size, uint64_t count) {
  require_content(env, stream, count, table.size);
  list_resize(env, list, entry_size, count);
  for (uint64_t i = 0; i < count; ++i) {
    read_wire(env, stream, table, list->entries + i * entry_size);
  }
}

void render_entries(Environment* env, Stream* stream, const WireTable& table, const EntryList& list,
                    uint64_t entry_size) {
  for (uint64_t i = 0; i < list.count; ++i) {
    render_wire(env, stream, table, list.entries + i * entry_size);
  }
}

}  // namespace kvjpx
