// Typed boxes: what a box type's tables say, and the one reader, writer and set of operations that
// serve all types from them.
#ifndef KVJPX_BOX_TYPED_BOX_H_
#define KVJPX_BOX_TYPED_BOX_H_

#include <type_traits>

#include "box/field_table.h"

namespace kvjpx {

using ReadContentFn = void(Environment*, Stream*, Box*);

// What a box type does itself, because its field rows do not say it all. Length, render and read
// deal with what stands behind the plain numbers; where one is null, that is the rows' list.
struct OwnContent {
  LengthFn* length = nullptr;
  RenderFn* render = nullptr;
  ReadContentFn* read = nullptr;
  DestroyFn* destroy = nullptr;  // of what no list of the rows holds
};

constexpr uint32_t kMaxLists = 2;

struct FieldRows {
  const Field* first;
  uint32_t count;
  constexpr const Field* begin() const { return first; }
  constexpr const Field* end() const { return first + count; }
};

// The numbers of the content among the rows that belong to a list, or the single ones for null.
struct Numbers {
  FieldRows rows;
  const ListTraits* list;
  uint64_t size;                                     // on disk, in bytes
  void (*take)(void* record, const uint8_t* bytes);  // reads them all
};

constexpr bool is_stored(const Field& field, const ListTraits* list) {
  return field.list == list && field.wire.width != 0;
}

// A row of an array of fields, or of a record that has one for its `rows`.
template <const auto& Fields, uint32_t I>
constexpr const Field& row_of() {
  if constexpr (std::is_array_v<std::remove_reference_t<decltype(Fields)>>) {
    return Fields[I];
  } else {
    return Fields.rows[I];
  }
}

template <const auto& Fields>
constexpr uint32_t kRowCount = sizeof(Fields) / sizeof(Field);

// Reads the numbers of the rows from I to End from bytes at hand. Made for each layout by the
// compiler: going through the rows at run time takes three times the instructions.
template <const auto& Fields, const ListTraits* List, uint32_t I, uint32_t End>
void take_numbers(void* record, const uint8_t* bytes) {
  if constexpr (I < End) {
    constexpr const Field& kField = row_of<Fields, I>();
    if constexpr (is_stored(kField, List)) {
      kField.wire.slot.store(record, number_at(bytes, kField.wire.width));
      bytes += kField.wire.width;
    }
    take_numbers<Fields, List, I + 1, End>(record, bytes);
  }
}

template <const auto& Fields, const ListTraits* List, uint32_t First = 0,
          uint32_t End = kRowCount<Fields>>
constexpr Numbers numbers_of() {
  Numbers numbers = {
      {&row_of<Fields, First>(), End - First}, List, 0, take_numbers<Fields, List, First, End>};
  for (const Field& field : numbers.rows) {
    if (is_stored(field, List)) numbers.size += field.wire.width;
  }
  return numbers;
}

// The list with this number, from 0, among those of the rows; null when there are fewer.
constexpr const ListTraits* list_among(const FieldRows& rows, uint32_t number) {
  const ListTraits* lists[kMaxLists] = {};
  uint32_t count = 0;
  for (const Field& field : rows) {
    bool is_new = field.list != nullptr;
    for (uint32_t i = 0; i < count; ++i) is_new = is_new && lists[i] != field.list;
    if (is_new) lists[count++] = field.list;
  }
  return lists[number];
}

// A box type: its record, its fields and, where those are not enough, functions of its own. The
// content is the numbers of the single rows in their order, then the list of the repeating rows
// with its count, or what the type does itself.
struct BoxLayout {
  uint32_t type;  // 0: every opaque box
  uint32_t twin;  // a second type with the same content, or 0
  size_t record_size;
  FieldRows fields;
  PrintFn* print;
  OwnContent own;
  // What follows from the rows:
  Numbers single;
  Numbers repeating;                   // of the first list; without a list they are none
  const ListTraits* lists[kMaxLists];  // null: none further
  const BoxLayout* base;               // its fields are this one's as well; null: none
};

template <class Record, const auto& Fields>
constexpr BoxLayout box_layout(uint32_t type, PrintFn* print, const OwnContent& own = {},
                               uint32_t twin = 0) {
  constexpr FieldRows kRows = {&row_of<Fields, 0>(), kRowCount<Fields>};
  constexpr const ListTraits* kList = list_among(kRows, 0);
  return {type,
          twin,
          sizeof(Record),
          kRows,
          print,
          own,
          numbers_of<Fields, nullptr>(),
          kList != nullptr ? numbers_of<Fields, kList>() : Numbers{},
          {kList, list_among(kRows, 1)},
          nullptr};
}

// For box types that read and write some numbers themselves.
void read_numbers(Environment* env, Stream* stream, const Numbers& numbers, void* record);
void render_numbers(Environment* env, Stream* stream, const Numbers& numbers, const void* record);

// The list of the repeating rows, with `count` entries or as many as the content has or says.
void read_list(Environment* env, Stream* stream, const BoxLayout& layout, Box* box);

// Reads the content of a box, up to the read limit, and leaves the stream there: the bytes that the
// layout has no use for are passed over.
void read_typed(Environment* env, Stream* stream, const BoxLayout& layout, Box* box);

// The operations. Every one does nothing, or answers 4, for a box that has another type by now.
uint64_t typed_length(const BoxLayout& layout, Box* box);
void typed_render(const BoxLayout& layout, Box* box, Environment* env, Stream* stream);
void typed_print(const BoxLayout& layout, Box* box);
void typed_destroy(const BoxLayout& layout, Box* box, Environment* env);

// The row of a key; null for a key that the layout does not have or a box of another type.
const Field* find_field(const BoxLayout& layout, const Box* box, uint32_t key);

// Box operations get no table, so each layout has its own set, which passes it on.
template <const BoxLayout& Layout>
struct Typed {
  static uint64_t length(Box* box) { return typed_length(Layout, box); }
  static void render(Box* box, Environment* env, Stream* stream) {
    typed_render(Layout, box, env, stream);
  }
  static void print(Box* box) { typed_print(Layout, box); }
  static void destroy(Box* box, Environment* env) { typed_destroy(Layout, box, env); }
  static int32_t set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
    const Field* const field = find_field(Layout, box, key);
    return field != nullptr ? set_field(*field, box, env, index, value) : JPX_ERR_NO_SUCH_FIELD;
  }
  static int32_t get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
    const Field* const field = find_field(Layout, box, key);
    return field != nullptr ? get_field(*field, box, index, value) : JPX_ERR_NO_SUCH_FIELD;
  }
  static int32_t get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
    const Field* const field = find_field(Layout, box, key);
    return field != nullptr ? count_field(*field, box, count, element_size) : JPX_ERR_NO_SUCH_FIELD;
  }
  static int32_t set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
    const Field* const field = find_field(Layout, box, key);
    if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    return set_field_bytes(*field, box, env, {count, element_size, source});
  }
  static int32_t get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
    const Field* const field = find_field(Layout, box, key);
    if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    return get_field_bytes(*field, box, env, {count, element_size, buffer});
  }

  static constexpr BoxOperations kOperations = operations_of(
      length, render, print, destroy, jpx_generic_find_by_id, jpx_generic_find_by_type,
      set_int_field, get_int_field, get_field_count, set_buffer_field, get_buffer_field);
};

// The line that nearly every print-out starts with.
void print_heading(Box* box);

}  // namespace kvjpx

#endif  // KVJPX_BOX_TYPED_BOX_H_
