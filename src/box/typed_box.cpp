// The reader, the writer and the operations of all typed boxes (see typed_box.h).
#include "box/typed_box.h"

#include <stdio.h>

namespace kvjpx {
namespace {

bool is_of(const BoxLayout& layout, const Box* box) {
  if (layout.type == 0) return box->kind == kBasic;
  return box->type == layout.type || (layout.twin != 0 && box->type == layout.twin);
}

// The list of the repeating rows; null for a layout without one.
EntryList* list_in(const BoxLayout& layout, Box* box) {
  const ListTraits* const list = layout.lists[0];
  return list != nullptr ? list->list_of(box) : nullptr;
}

uint64_t length_of_list(const BoxLayout& layout, Box* box) {
  const EntryList* const entries = list_in(layout, box);
  if (entries == nullptr) return 0;
  return layout.lists[0]->count_width + layout.repeating.size * entries->count;
}

void render_list(const BoxLayout& layout, Box* box, Environment* env, Stream* stream) {
  const EntryList* const entries = list_in(layout, box);
  if (entries == nullptr) return;
  const ListTraits& list = *layout.lists[0];
  bs_write_n_byte(env, stream, entries->count, list.count_width, 0);
  for (uint64_t i = 0; i < entries->count; ++i) {
    render_numbers(env, stream, layout.repeating, entries->entries + i * list.entry_size);
  }
}

}  // namespace

void read_numbers(Environment* env, Stream* stream, const Numbers& numbers, void* record) {
  if (numbers.size == 0) return;
  if (has_at_hand(stream, numbers.size)) {
    numbers.take(record, stream->cursor);
    stream->cursor += numbers.size;
    return;
  }
  for (const Field& field : numbers.rows) {
    if (!is_stored(field, numbers.list)) continue;
    field.wire.slot.store(record, read_number(env, stream, field.wire.width));
  }
}

void render_numbers(Environment* env, Stream* stream, const Numbers& numbers, const void* record) {
  for (const Field& field : numbers.rows) {
    if (!is_stored(field, numbers.list)) continue;
    bs_write_n_byte(env, stream, field.wire.slot.load(record), field.wire.width, 0);
  }
}

void read_list(Environment* env, Stream* stream, const BoxLayout& layout, Box* box) {
  EntryList* const entries = list_in(layout, box);
  if (entries == nullptr) return;
  const ListTraits& list = *layout.lists[0];
  const uint64_t entry_width = layout.repeating.size;
  const uint64_t count = list.count_width != 0 ? read_number(env, stream, list.count_width)
                                               : bytes_left(stream) / entry_width;
  if (!has_content(env, stream, count, entry_width)) return;
  list_resize(env, entries, list.entry_size, count);
  for (uint64_t i = 0; i < count; ++i) {
    read_numbers(env, stream, layout.repeating, entries->entries + i * list.entry_size);
  }
}

void read_typed(Environment* env, Stream* stream, const BoxLayout& layout, Box* box) {
  read_numbers(env, stream, layout.single, box);
  if (layout.own.read != nullptr) {
    layout.own.read(env, stream, box);
  } else {
    read_list(env, stream, layout, box);
  }
  skip_content(env, stream);
}

uint64_t typed_length(const BoxLayout& layout, Box* box) {
  if (!is_of(layout, box)) return 0;
  return layout.single.size +
         (layout.own.length != nullptr ? layout.own.length(box) : length_of_list(layout, box));
}

void typed_render(const BoxLayout& layout, Box* box, Environment* env, Stream* stream) {
  if (!is_of(layout, box)) return;
  render_numbers(env, stream, layout.single, box);
  if (layout.own.render != nullptr) {
    layout.own.render(box, env, stream);
  } else {
    render_list(layout, box, env, stream);
  }
}

void typed_print(const BoxLayout& layout, Box* box) {
  if (is_of(layout, box)) layout.print(box);
}

void typed_destroy(const BoxLayout& layout, Box* box, Environment* env) {
  if (!is_of(layout, box)) return;
  for (const ListTraits* const list : layout.lists) {
    if (list != nullptr) list_release(env, list->list_of(box));
  }
  if (layout.own.destroy != nullptr) layout.own.destroy(box, env);
}

const Field* find_field(const BoxLayout& layout, const Box* box, uint32_t key) {
  if (!is_of(layout, box)) return nullptr;
  for (const BoxLayout* own = &layout; own != nullptr; own = own->base) {
    for (const Field& field : own->fields) {
      if (field.key == key) return &field;
    }
  }
  return nullptr;
}

void print_heading(Box* box) {
  jpx_print_atom(box->type);
  printf(" box length %llu\n", printable(box->box_length(box)));
}

}  // namespace kvjpx
