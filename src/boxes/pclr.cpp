// pclr, the palette box (ISO/IEC 15444-1, I.5.3.4).
//
//   2 NE, 1 NPC, NPC times 1 B, then for each of NE entries and NPC columns: its value
//
// A value takes 1 to 5 bytes by its column's depth, see value_width.
#include <stdio.h>
#include <string.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/bit_depth.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("pclr");
constexpr uint64_t kMaxEntries = 1024;
constexpr uint64_t kMaxColumns = 255;
constexpr uint64_t kMaxDepthByte = 0xA5;
constexpr uint8_t kDroppedDepthBit = 0x40;
constexpr uint8_t kSignBit = 0x80;
constexpr uint32_t kValueSize = sizeof(uint32_t);

// One for every column that a byte can count, and one behind.
constexpr uint32_t kDepths = 256;

struct PclrBox : Box {
  uint16_t entry_count;     // NE
  uint8_t column_count;     // NPC
  uint8_t depths[kDepths];  // B
  EntryList values;         // C, entry by entry, uint32_t each; without storage until needed
};

PclrBox* pclr(Box* box) { return static_cast<PclrBox*>(box); }

uint64_t value_count(const PclrBox* self) {
  return uint64_t{self->entry_count} * self->column_count;
}

bool has_table(const PclrBox* self) { return self->values.entries != nullptr; }

uint8_t depth_byte(const PclrBox* self, uint64_t column) {
  return column < kDepths ? self->depths[column] : 0;
}

// Values that have no table yet are zeros.
uint32_t value_at(const PclrBox* self, uint64_t index) {
  return index < self->values.count ? *entry_at<uint32_t>(self->values, index) : 0;
}

// The values stay where they are in their block; new ones are zero.
void size_table(PclrBox* self, Environment* env) {
  if (value_count(self) != 0) list_resize(env, &self->values, kValueSize, value_count(self));
}

int32_t set_entry_count(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (value < 1 || value > kMaxEntries) return JPX_ERR_INVALID_ARGUMENT;
  PclrBox* const self = pclr(box);
  const uint16_t old_count = self->entry_count;
  if (value == old_count) return JPX_OK;
  self->entry_count = static_cast<uint16_t>(value);
  // The depths are taken to be one for each entry, so those of new entries start at 0.
  for (uint32_t i = old_count; i < self->entry_count && i < kDepths; ++i) self->depths[i] = 0;
  size_table(self, env);
  return JPX_OK;
}

// The depths are left as they are, and values are not moved to their new places: hosts set the
// columns first and then every value.
int32_t set_column_count(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (value < 1 || value > kMaxColumns) return JPX_ERR_INVALID_ARGUMENT;
  PclrBox* const self = pclr(box);
  if (value == self->column_count) return JPX_OK;
  self->column_count = static_cast<uint8_t>(value);
  size_table(self, env);
  return JPX_OK;
}

// One column more than there are is taken, on set and get: hosts clear the byte behind the last.
int32_t set_depth(const Field&, Box* box, Environment*, uint64_t index, uint64_t value) {
  PclrBox* const self = pclr(box);
  if (index > self->column_count) return JPX_ERR_NO_SUCH_FIELD;
  if (value > kMaxDepthByte) return JPX_ERR_INVALID_ARGUMENT;
  self->depths[index] = static_cast<uint8_t>(value & ~uint64_t{kDroppedDepthBit});
  return JPX_OK;
}

int32_t get_depth(const Field&, Box* box, uint64_t index, uint64_t* value) {
  const PclrBox* const self = pclr(box);
  if (index > self->column_count) return JPX_ERR_NO_SUCH_FIELD;
  *value = depth_byte(self, index);
  return JPX_OK;
}

int32_t count_columns(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(pclr(box)->column_count, field.width, count, element_size);
}

// Where an index leads. It is divided by the number of entries, not of columns: the index that
// hosts compute is entry + column * NE for square palettes, and this is what they have always got
// for it.
struct Cell {
  uint64_t column;  // whose depth byte rules
  uint64_t place;   // in the block of values
};

Cell cell_of(const PclrBox* self, uint64_t index) {
  const uint64_t row = self->entry_count == 0 ? 0 : index / self->entry_count;
  const uint64_t column = index - row * self->entry_count;
  return {column, row * self->column_count + column};
}

// Inside the table, or on the spare slot behind it by the one index that is taken beyond the last.
bool is_inside(const PclrBox* self, uint64_t index, const Cell& cell) {
  if (!has_table(self)) return false;
  return cell.place < self->values.count ||
         (cell.place == self->values.count && index == value_count(self));
}

// For an unsigned column of 32 bits the limit wraps to 0 and every value is refused: hosts replace
// the values of such columns as a whole, and learn by the refusal that they have one.
bool is_in_range(uint8_t depth, uint64_t value) {
  const uint32_t shift = (depth & 0x7Fu) % 32;
  if ((depth & kSignBit) == 0) return static_cast<uint32_t>(value) < uint32_t{2} << shift;
  const int64_t limit = int64_t{1} << shift;
  const int64_t number = static_cast<int32_t>(value);
  return number >= -limit && number < limit;
}

int32_t set_value(const Field&, Box* box, Environment*, uint64_t index, uint64_t value) {
  PclrBox* const self = pclr(box);
  if (index > value_count(self)) return JPX_ERR_NO_SUCH_FIELD;
  const Cell cell = cell_of(self, index);
  if (!is_in_range(depth_byte(self, cell.column), value)) return JPX_ERR_INVALID_ARGUMENT;
  if (!is_inside(self, index, cell)) return JPX_ERR_NO_SUCH_FIELD;
  *entry_at<uint32_t>(self->values, cell.place) = static_cast<uint32_t>(value);
  return JPX_OK;
}

int32_t get_value(const Field&, Box* box, uint64_t index, uint64_t* value) {
  const PclrBox* const self = pclr(box);
  if (index > value_count(self)) return JPX_ERR_NO_SUCH_FIELD;
  const Cell cell = cell_of(self, index);
  if (!is_inside(self, index, cell)) return JPX_ERR_NO_SUCH_FIELD;
  *value = *entry_at<uint32_t>(self->values, cell.place);
  return JPX_OK;
}

int32_t count_values(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(value_count(pclr(box)), field.width, count, element_size);
}

constexpr uint32_t kRepeatsAndBytes = KV_JPX_FIELD_REPEATS | KV_JPX_FIELD_BYTES;
constexpr CustomField kEntryCount = {set_entry_count, nullptr, nullptr};
constexpr CustomField kColumnCount = {set_column_count, nullptr, nullptr};
constexpr CustomField kDepth = {set_depth, get_depth, count_columns};
constexpr CustomField kValue = {set_value, get_value, count_values};
constexpr Field kFields[] = {
    custom(single(JPX_FIELD_PCLR_NE, "NE", 2, member<&PclrBox::entry_count>), kEntryCount),
    custom(single(JPX_FIELD_PCLR_NPC, "NPC", 1, member<&PclrBox::column_count>), kColumnCount),
    also(custom_number(JPX_FIELD_PCLR_B, "B", 1, kDepth), kRepeatsAndBytes),
    also(custom_number(JPX_FIELD_PCLR_C, "C", kValueSize, kValue), kRepeatsAndBytes),
};
constexpr FieldTable kTable = field_table(kType, kFields);

// The fixed part counts NE where the payload has NPC bytes, and a column of depth 1 counts nothing
// although it is written as a byte: a palette's length and its rendered size differ. Writers that
// place boxes by their length depend on it.
uint64_t jpx_pclr_length(Box* box) {
  if (box->type != kType) return 0;
  const PclrBox* const self = pclr(box);
  uint64_t length = self->entry_count + uint64_t{3};
  for (uint32_t i = 0; i < self->column_count; ++i) {
    const uint64_t less_one = depth_byte(self, i) & 0x7F;
    length += self->entry_count * ((less_one + 7) / 8);
  }
  return length;
}

// The thresholds compare the depth less one with 8, 16, 24 and 32, so a depth of 9 still takes one
// byte; files written with this library agree with it.
uint32_t value_width(uint8_t depth) {
  const uint32_t less_one = depth & 0x7F;
  if (less_one <= 8) return 1;
  if (less_one <= 16) return 2;
  if (less_one <= 24) return 3;
  return less_one <= 32 ? 4 : 5;
}

// The fifth byte follows the number and carries nothing.
void render_value(Environment* env, Stream* stream, uint8_t depth, uint32_t value) {
  const uint32_t width = value_width(depth);
  bs_write_n_byte(env, stream, value, width > 4 ? 4 : width, 0);
  if (width > 4) bs_write_1_byte(env, stream, 0);
}

uint32_t read_value(Environment* env, Stream* stream, uint8_t depth) {
  const uint32_t width = value_width(depth);
  if (width == 3) {
    const uint64_t high = bs_read_2_byte_big(env, stream);
    return static_cast<uint32_t>(high << 8 | bs_read_1_byte(env, stream));
  }
  const uint64_t value = bs_read_n_byte(env, stream, width > 4 ? 4 : width, 0);
  if (width > 4) bs_read_1_byte(env, stream);
  return static_cast<uint32_t>(value);
}

void jpx_pclr_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const PclrBox* const self = pclr(box);
  bs_write_2_byte_big(env, stream, self->entry_count);
  bs_write_1_byte(env, stream, self->column_count);
  for (uint32_t i = 0; i < self->column_count; ++i) {
    bs_write_1_byte(env, stream, depth_byte(self, i));
  }
  const uint64_t count = value_count(self);
  for (uint64_t place = 0; place < count; ++place) {
    render_value(env, stream, depth_byte(self, place % self->column_count), value_at(self, place));
  }
}

void jpx_pclr_print(Box* box) {
  if (box->type != kType) return;
  const PclrBox* const self = pclr(box);
  printf("pclr box length %llu\n", printable(box->box_length(box)));
  printf("Number of entries: %u\n", self->entry_count);
  printf("number of palette columns: %u\n", self->column_count);
  puts("bit depth of columns:");
  for (uint32_t i = 0; i < self->column_count; ++i) {
    const uint8_t depth = depth_byte(self, i);
    printf("  Column %d: %d%s\n", static_cast<int>(i), static_cast<int>(depth_of(depth)),
           sign_text(depth));
  }
  puts("Color palette entries:");
  for (uint32_t j = 0; j < self->entry_count; ++j) {
    for (uint32_t i = 0; i < self->column_count; ++i) {
      printf("  C[%u][%u]: %u\n", j, i, value_at(self, uint64_t{j} * self->column_count + i));
    }
  }
}

void jpx_pclr_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, &pclr(box)->values);
}

int32_t jpx_pclr_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_pclr_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_pclr_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

int32_t set_all_values(PclrBox* self, Environment* env, uint64_t count, uint32_t element_size,
                       const void* source) {
  uint64_t size;
  if (element_size != kValueSize || count != value_count(self) ||
      !is_valid_source(count, element_size, source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  size_table(self, env);
  if (size != 0) memcpy(self->values.entries, source, size);
  return JPX_OK;
}

// Another number of depths changes the number of columns.
int32_t set_all_depths(PclrBox* self, Environment* env, uint64_t count, uint32_t element_size,
                       const void* source) {
  uint64_t size;
  if (element_size != 1 || !is_valid_source(count, element_size, source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  if (size != self->column_count) {
    if (size < 1 || size > kMaxColumns) return JPX_ERR_INVALID_ARGUMENT;
    self->column_count = static_cast<uint8_t>(size);
    if (has_table(self)) size_table(self, env);
    memset(self->depths, 0, kDepths);
  }
  if (size != 0) memcpy(self->depths, source, size);
  return JPX_OK;
}

int32_t jpx_pclr_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (box->type != kType) return JPX_ERR_NO_SUCH_FIELD;
  if (key == JPX_FIELD_PCLR_C) {
    return set_all_values(pclr(box), env, count, element_size, source);
  }
  if (key == JPX_FIELD_PCLR_B) {
    return set_all_depths(pclr(box), env, count, element_size, source);
  }
  return JPX_ERR_NO_SUCH_FIELD;
}

int32_t jpx_pclr_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  const bool wants_depths = key == JPX_FIELD_PCLR_B;
  if (box->type != kType || (!wants_depths && key != JPX_FIELD_PCLR_C)) {
    return JPX_ERR_NO_SUCH_FIELD;
  }
  const PclrBox* const self = pclr(box);
  const uint64_t entries = wants_depths ? self->column_count : value_count(self);
  const int32_t result =
      grant_buffer(env, {count, element_size, buffer}, entries, wants_depths ? 1 : kValueSize);
  if (result != JPX_OK) return result;
  for (uint64_t i = 0; i < entries; ++i) {
    if (wants_depths) {
      static_cast<uint8_t*>(*buffer)[i] = depth_byte(self, i);
    } else {
      const uint32_t value = value_at(self, i);
      memcpy(static_cast<uint8_t*>(*buffer) + i * kValueSize, &value, kValueSize);
    }
  }
  return JPX_OK;
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_pclr_length, jpx_pclr_render, jpx_pclr_print, jpx_pclr_destroy,
                    jpx_pclr_set_int_field, jpx_pclr_get_int_field, jpx_pclr_get_field_count),
    jpx_pclr_set_buffer_field, jpx_pclr_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  PclrBox* const self = pclr(box);
  self->entry_count = static_cast<uint16_t>(bs_read_2_byte_big(env, stream));
  self->column_count = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  require_content(env, stream, self->column_count + value_count(self), 1);
  bs_read_memcpy(env, stream, self->depths, self->column_count);
  size_table(self, env);
  for (uint64_t place = 0; place < value_count(self); ++place) {
    *entry_at<uint32_t>(self->values, place) =
        read_value(env, stream, self->depths[place % self->column_count]);
  }
}

}  // namespace

const FieldTable kPclrFields = kTable;

extern "C" {

Box* jpx_make_pclr_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<PclrBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_pclr_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_pclr_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
