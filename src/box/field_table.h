// Field tables: each box type lists its fields, one a row, and one engine serves the integer field
// operations of all of them. The same rows are the public table of fields.
#ifndef KVJPX_BOX_FIELD_TABLE_H_
#define KVJPX_BOX_FIELD_TABLE_H_

#include "box/box.h"
#include "box/entry_list.h"
#include "box/slot.h"
#include "kvjpx_fields.h"

namespace kvjpx {

// Whether a box takes the value; a refusal is code 3.
using CheckFn = bool(const Box* box, uint64_t value);

// The list of entries that repeating fields live in, and the habits of its box type.
struct ListTraits {
  EntryList* (*list_of)(Box*);
  uint64_t entry_size;
  const void* fresh;          // what an appended entry holds; null: zeros
  bool get_accepts_count;     // get takes index = count and reads the spare slot
  bool appends_before_check;  // a refused value leaves an appended entry behind
};

struct Field;

// Replacement operations of a field that the engine's rules do not fit; null: the engine's.
struct CustomField {
  int32_t (*set)(const Field&, Box*, Environment*, uint64_t index, uint64_t value);
  int32_t (*get)(const Field&, Box*, uint64_t index, uint64_t* value);
  int32_t (*count)(const Field&, Box*, uint64_t* count, uint32_t* element_size);
};

struct Field {
  uint32_t key;
  const char* name;
  uint32_t width;          // of one entry, as reported
  uint32_t access;         // bits of kv_jpx_field_access
  Slot slot;               // in the box, or in an entry of the list
  CheckFn* check;          // null: every value is taken
  const ListTraits* list;  // null: a single field
  bool is_list_count;      // a single field that says how many entries the list has
  const CustomField* custom;
};

struct FieldTable {
  uint32_t type;  // of the boxes that have the fields; 0: every opaque box
  uint32_t twin;  // a second type with the same fields, or 0
  const Field* fields;
  uint32_t count;
  const Field* begin() const { return fields; }
  const Field* end() const { return fields + count; }
};

template <uint32_t N>
constexpr FieldTable field_table(uint32_t type, const Field (&fields)[N], uint32_t twin = 0) {
  return {type, twin, fields, N};
}

// Rows. One number, index 0:
constexpr Field single(uint32_t key, const char* name, uint32_t width, Slot slot,
                       CheckFn* check = nullptr) {
  return {key, name, width, KV_JPX_FIELD_INTEGER, slot, check, nullptr, false, nullptr};
}

// One number for each entry. Setting an index at or past the count appends one entry.
constexpr Field repeating(uint32_t key, const char* name, uint32_t width, const ListTraits& list,
                          Slot slot, CheckFn* check = nullptr) {
  constexpr uint32_t kAccess = KV_JPX_FIELD_INTEGER | KV_JPX_FIELD_REPEATS;
  return {key, name, width, kAccess, slot, check, &list, false, nullptr};
}

// The number of entries; setting it resizes the list to the low 16 bits of the value.
constexpr Field list_count(uint32_t key, const char* name, const ListTraits& list, CheckFn* check) {
  return {key, name, 2, KV_JPX_FIELD_INTEGER, {nullptr, nullptr}, check, &list, true, nullptr};
}

// A field held as bytes, which the box's buffer operations serve.
constexpr Field bytes_field(uint32_t key, const char* name, uint32_t width) {
  constexpr uint32_t kAccess = KV_JPX_FIELD_BYTES;
  return {key, name, width, kAccess, {nullptr, nullptr}, nullptr, nullptr, false, nullptr};
}

// A single number whose operations are the box's own.
constexpr Field custom_number(uint32_t key, const char* name, uint32_t width,
                              const CustomField& operations) {
  return {key,     name,    width, KV_JPX_FIELD_INTEGER, {nullptr, nullptr},
          nullptr, nullptr, false, &operations};
}

// The same field, also reachable in the given way.
constexpr Field also(Field field, uint32_t access) {
  field.access |= access;
  return field;
}

// The same field with operations of its own.
constexpr Field custom(Field field, const CustomField& operations) {
  field.custom = &operations;
  return field;
}

// The field operations of a box type. All answer 4 to a key that the table does not have and to a
// box of another type.
int32_t set_int_field(const FieldTable& table, Box* box, Environment* env, uint32_t key,
                      uint64_t index, uint64_t value);
int32_t get_int_field(const FieldTable& table, Box* box, uint32_t key, uint64_t index,
                      uint64_t* value);
int32_t get_field_count(const FieldTable& table, Box* box, uint32_t key, uint64_t* count,
                        uint32_t* element_size);

// Gives back index if it is below the count; else appends an entry and gives back its index.
uint64_t index_or_append(Environment* env, EntryList* list, const ListTraits& traits,
                         uint64_t index);

// Checks that several box types use.
inline bool is_nonzero(const Box*, uint64_t value) { return value != 0; }
inline bool is_flag(const Box*, uint64_t value) { return value <= 1; }
inline bool fits_8_bits(const Box*, uint64_t value) { return value <= 0xFF; }
inline bool fits_16_bits(const Box*, uint64_t value) { return value <= 0xFFFF; }
inline bool fits_32_bits(const Box*, uint64_t value) { return value <= 0xFFFFFFFF; }

}  // namespace kvjpx

#endif  // KVJPX_BOX_FIELD_TABLE_H_
