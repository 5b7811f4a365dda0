// Field tables: each box type lists its fields, one a row, in the order of its format. The integer
// and byte operations of all box types are served from these rows, their numbers are read and
// written by them (typed_box.h), and they are the public table of fields.
#ifndef KVJPX_BOX_FIELD_TABLE_H_
#define KVJPX_BOX_FIELD_TABLE_H_

#include "box/box.h"
#include "box/buffer_field.h"
#include "box/slot.h"
#include "kvjpx_fields.h"

namespace kvjpx {

// Whether a box takes the value; a refusal is code 3.
using CheckFn = bool(const Box* box, uint64_t value);

// By what rules fields are served. Those of the standard are for inputs of which everything is
// kept: no list has habits, and a value must fit the bytes that it is written in.
enum class Rules { kCompatible, kStandard };

// What a list of entries does apart from the rules that hold for all; bits.
enum ListHabit : uint32_t {
  kGetTakesCount = 1,       // get takes index = count and reads the spare slot
  kAppendsBeforeCheck = 2,  // a refused value leaves an appended entry behind
};

// The list of entries that repeating fields live in.
struct ListTraits {
  EntryList* (*list_of)(Box*);
  uint64_t entry_size;
  uint32_t count_width;  // bytes of the count in front of the entries; 0: they go on to the end
  uint32_t habits;
  const void* fresh;  // what an appended entry holds; null: zeros
};

template <auto Member>
struct ListAccess;

template <class Record, EntryList Record::*Member>
struct ListAccess<Member> {
  static EntryList* of(Box* box) { return &(static_cast<Record*>(box)->*Member); }
};

// The list that is a member of a box's record.
template <auto Member, class Entry>
constexpr ListTraits list_of(uint32_t count_width = 0, uint32_t habits = 0,
                             const Entry* fresh = nullptr) {
  return {ListAccess<Member>::of, sizeof(Entry), count_width, habits, fresh};
}

struct Field;

// Operations of a field that the engine's rules do not fit; null: the engine's.
struct FieldOperations {
  int32_t (*set)(const Field&, Box*, Environment*, uint64_t index, uint64_t value) = nullptr;
  int32_t (*get)(const Field&, Box*, uint64_t index, uint64_t* value) = nullptr;
  int32_t (*count)(const Field&, Box*, uint64_t* count, uint32_t* element_size) = nullptr;
  int32_t (*set_bytes)(const Field&, Box*, Environment*, const BufferSource&) = nullptr;
  int32_t (*get_bytes)(const Field&, Box*, Environment*, const BufferRequest&) = nullptr;
  int32_t (*resize)(const Field&, Box*, Environment*, uint64_t count) = nullptr;
};

// A number of the content: its bytes there, and the place that it is read to and written from.
struct WireNumber {
  uint32_t width;  // 0: none, or the box type reads and writes it itself
  Slot slot;
};

struct Field {
  uint32_t key;
  const char* name;
  uint32_t width;          // of one entry, as reported
  uint32_t access;         // bits of kv_jpx_field_access
  Slot slot;               // in the box, or in an entry of the list
  WireNumber wire;         // the same unless stored_as says otherwise
  CheckFn* check;          // null: every value is taken
  const ListTraits* list;  // null: a single field
  bool is_list_count;      // a single field that says how many entries the list has
  FieldOperations custom;
  CheckFn* standard_check = nullptr;  // by the rules of the standard; null: check, and the width
};

constexpr Slot kNoSlot = {nullptr, nullptr};

// Rows. One number, index 0:
constexpr Field single(uint32_t key, const char* name, uint32_t width, Slot slot,
                       CheckFn* check = nullptr) {
  return {key, name, width, KV_JPX_FIELD_INTEGER, slot, {width, slot}, check, nullptr, false, {}};
}

// One number for each entry. Setting an index at or past the count appends one entry.
constexpr Field repeating(uint32_t key, const char* name, uint32_t width, const ListTraits& list,
                          Slot slot, CheckFn* check = nullptr) {
  constexpr uint32_t kAccess = KV_JPX_FIELD_INTEGER | KV_JPX_FIELD_REPEATS;
  return {key, name, width, kAccess, slot, {width, slot}, check, &list, false, {}};
}

// The number of entries; setting it resizes the list to the low 16 bits of the value.
constexpr Field list_count(uint32_t key, const char* name, const ListTraits& list, CheckFn* check) {
  return {key, name, 2, KV_JPX_FIELD_INTEGER, kNoSlot, {0, kNoSlot}, check, &list, true, {}};
}

// A number that its own operations serve, and bytes that they do.
constexpr Field custom_number(uint32_t key, const char* name, uint32_t width,
                              const FieldOperations& operations) {
  return {key,     name,  width,     KV_JPX_FIELD_INTEGER, kNoSlot, {0, kNoSlot}, nullptr,
          nullptr, false, operations};
}
constexpr Field bytes_field(uint32_t key, const char* name, uint32_t width,
                            const FieldOperations& operations) {
  return {key,     name,    width, KV_JPX_FIELD_BYTES, kNoSlot, {0, kNoSlot},
          nullptr, nullptr, false, operations};
}

// The same field, also reachable in the given way.
constexpr Field also(Field field, uint32_t access) {
  field.access |= access;
  return field;
}

// The same field with operations of its own.
constexpr Field custom(Field field, const FieldOperations& operations) {
  field.custom = operations;
  return field;
}

// The same field, which takes other values by the rules of the standard.
constexpr Field by_standard(Field field, CheckFn* check) {
  field.standard_check = check;
  return field;
}

// The same field, in the content another number than the one that is set and got.
constexpr Field stored_as(Field field, uint32_t width, Slot slot) {
  field.wire = {width, slot};
  return field;
}

// The same field, which the box type reads and writes itself.
constexpr Field stored_apart(const Field& field) { return stored_as(field, 0, kNoSlot); }

// What a field answers to the operations of its box.
int32_t set_field(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value,
                  Rules rules = Rules::kCompatible);
int32_t get_field(const Field& field, Box* box, uint64_t index, uint64_t* value,
                  Rules rules = Rules::kCompatible);
int32_t count_field(const Field& field, Box* box, uint64_t* count, uint32_t* element_size);
int32_t set_field_bytes(const Field& field, Box* box, Environment* env, const BufferSource& source);
int32_t get_field_bytes(const Field& field, Box* box, Environment* env,
                        const BufferRequest& request);

// Gives the list of a repeating field another number of entries; new ones are as appended ones.
int32_t resize_field(const Field& field, Box* box, Environment* env, uint64_t count);

// Whether a value passes the field's checks.
bool is_taken(const Field& field, const Box* box, uint64_t value, Rules rules);

// Gives back index if it is below the count; else appends an entry and gives back its index.
uint64_t index_or_append(Environment* env, EntryList* list, const ListTraits& traits,
                         uint64_t index);

// Checks that several box types use.
inline bool is_nonzero(const Box*, uint64_t value) { return value != 0; }
inline bool is_flag(const Box*, uint64_t value) { return value <= 1; }
inline bool fits_8_bits(const Box*, uint64_t value) { return value <= 0xFF; }
inline bool fits_16_bits(const Box*, uint64_t value) { return value <= 0xFFFF; }
inline bool fits_32_bits(const Box*, uint64_t value) { return value <= 0xFFFFFFFF; }

// A signed byte, also in the form in which it is got: -128 to 255.
inline bool is_byte_of_either_sign(const Box*, uint64_t value) {
  return value <= 0xFF || value >= static_cast<uint64_t>(int64_t{INT8_MIN});
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_FIELD_TABLE_H_
