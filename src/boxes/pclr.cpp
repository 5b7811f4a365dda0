// pclr, the palette box (ISO/IEC 15444-1, I.5.3.4).
//
//   2 NE, 1 NPC, NPC times 1 B, then for each of NE entries and NPC columns: its value
//
// A value takes 1 to 5 bytes by its column's depth, see value_width. By the rules of the standard,
// at the end of this file, it takes as many as its depth needs.
#include <stdio.h>
#include <string.h>

#include "boxes/bit_depth.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kMaxEntries = 1024;
constexpr uint64_t kMaxColumns = 255;
constexpr uint64_t kMaxDepthByte = 0xA5;
constexpr uint8_t kDroppedDepthBit = 0x40;
constexpr uint8_t kSignBit = 0x80;
constexpr uint32_t kValueSize = sizeof(uint32_t);

// Depths: one for every column that a byte can count, and one behind. Few columns need no block.
constexpr uint32_t kDepths = 256;
constexpr uint32_t kFewDepths = 32;

struct PclrBox : Box {
  uint16_t entry_count;  // NE
  uint8_t column_count;  // NPC
  uint8_t stride;        // by the rules of the standard: columns that the table has room for
  uint8_t few_depths[kFewDepths];  // B, or
  uint8_t* all_depths;             // if it is not null, here
  EntryList values;                // C, entry by entry, uint32_t each; without storage until needed
};

PclrBox* pclr(Box* box) { return static_cast<PclrBox*>(box); }

uint64_t value_count(const PclrBox* self) {
  return uint64_t{self->entry_count} * self->column_count;
}

bool has_table(const PclrBox* self) { return self->values.entries != nullptr; }

uint32_t depth_room(const PclrBox* self) {
  return self->all_depths != nullptr ? kDepths : kFewDepths;
}

const uint8_t* depths_of(const PclrBox* self) {
  return self->all_depths != nullptr ? self->all_depths : self->few_depths;
}

uint8_t depth_byte(const PclrBox* self, uint64_t column) {
  return column < depth_room(self) ? depths_of(self)[column] : 0;
}

// The depths, with room for so many of them.
uint8_t* provide_depths(PclrBox* self, Environment* env, uint64_t count) {
  if (count > depth_room(self)) {
    self->all_depths = static_cast<uint8_t*>(allocate_zeroed(env, kDepths));
    memcpy(self->all_depths, self->few_depths, kFewDepths);
  }
  return self->all_depths != nullptr ? self->all_depths : self->few_depths;
}

// Values that have no table yet are zeros.
uint32_t value_at(const PclrBox* self, uint64_t index) {
  return index < self->values.count ? *entry_at<uint32_t>(self->values, index) : 0;
}

bool is_entry_count(const Box*, uint64_t value) { return value >= 1 && value <= kMaxEntries; }
bool is_column_count(const Box*, uint64_t value) { return value >= 1 && value <= kMaxColumns; }

// The values stay where they are in their block; new ones are zero.
void size_table(PclrBox* self, Environment* env) {
  if (value_count(self) != 0) list_resize(env, &self->values, kValueSize, value_count(self));
}

int32_t set_entry_count(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_entry_count(box, value)) return JPX_ERR_INVALID_ARGUMENT;
  PclrBox* const self = pclr(box);
  const uint16_t old_count = self->entry_count;
  if (value == old_count) return JPX_OK;
  self->entry_count = static_cast<uint16_t>(value);
  // The depths are taken to be one for each entry, so those of new entries start at 0.
  uint8_t* const depths = provide_depths(self, env, 0);
  for (uint32_t i = old_count; i < self->entry_count && i < depth_room(self); ++i) depths[i] = 0;
  size_table(self, env);
  return JPX_OK;
}

// Kept for compatibility: the depths are left as they are, and values are not moved to their new
// places. Moved, the same calls would give another palette.
int32_t set_column_count(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_column_count(box, value)) return JPX_ERR_INVALID_ARGUMENT;
  PclrBox* const self = pclr(box);
  if (value == self->column_count) return JPX_OK;
  self->column_count = static_cast<uint8_t>(value);
  size_table(self, env);
  return JPX_OK;
}

// Kept for compatibility: one column more than there are is taken, on set and get. Without it, a
// depth that is set before its column is added would be refused.
int32_t set_depth(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  PclrBox* const self = pclr(box);
  if (index > self->column_count) return JPX_ERR_NO_SUCH_FIELD;
  if (value > kMaxDepthByte) return JPX_ERR_INVALID_ARGUMENT;
  provide_depths(self, env, index + 1)[index] =
      static_cast<uint8_t>(value & ~uint64_t{kDroppedDepthBit});
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

// Where an index leads. Kept for compatibility: it is divided by the number of entries, not of
// columns. Divided by the columns, every index but those of square palettes would lead elsewhere.
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

// Kept for compatibility: for an unsigned column of 32 bits the limit wraps to 0 and every value is
// refused. Without the wrap, such columns could be set value by value.
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

int32_t set_all_values(const Field&, Box* box, Environment* env, const BufferSource& source) {
  PclrBox* const self = pclr(box);
  uint64_t size;
  if (source.element_size != kValueSize || source.count != value_count(self) ||
      !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  // A table that is there has the right size, and its spare slot keeps what it holds.
  if (!has_table(self)) size_table(self, env);
  if (size != 0) memcpy(self->values.entries, source.data, size);
  return JPX_OK;
}

int32_t get_all_values(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const PclrBox* const self = pclr(box);
  const int32_t result = grant_buffer(env, request, value_count(self), kValueSize);
  if (result != JPX_OK) return result;
  for (uint64_t i = 0; i < value_count(self); ++i) {
    const uint32_t value = value_at(self, i);
    memcpy(static_cast<uint8_t*>(*request.buffer) + i * kValueSize, &value, kValueSize);
  }
  return JPX_OK;
}

// Another number of depths changes the number of columns.
int32_t set_all_depths(const Field&, Box* box, Environment* env, const BufferSource& source) {
  PclrBox* const self = pclr(box);
  uint64_t size;
  if (source.element_size != 1 || !is_valid_source(source, &size)) return JPX_ERR_INVALID_ARGUMENT;
  if (size != self->column_count) {
    if (size < 1 || size > kMaxColumns) return JPX_ERR_INVALID_ARGUMENT;
    self->column_count = static_cast<uint8_t>(size);
    if (has_table(self)) size_table(self, env);
    memset(provide_depths(self, env, size), 0, depth_room(self));
  }
  if (size != 0) memcpy(provide_depths(self, env, size), source.data, size);
  return JPX_OK;
}

int32_t get_all_depths(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  PclrBox* const self = pclr(box);
  const uint8_t* const depths = provide_depths(self, env, self->column_count);
  return copy_out(env, request, depths, self->column_count, 1);
}

constexpr uint32_t kRepeatsAndBytes = KV_JPX_FIELD_REPEATS | KV_JPX_FIELD_BYTES;
constexpr FieldOperations kEntryCount = {set_entry_count};
constexpr FieldOperations kColumnCount = {set_column_count};
constexpr FieldOperations kDepth = {set_depth, get_depth, count_columns, set_all_depths,
                                    get_all_depths};
constexpr FieldOperations kValue = {set_value, get_value, count_values, set_all_values,
                                    get_all_values};
constexpr Field kEntries =
    single(JPX_FIELD_PCLR_NE, "NE", 2, member<&PclrBox::entry_count>, is_entry_count);
constexpr Field kColumns =
    single(JPX_FIELD_PCLR_NPC, "NPC", 1, member<&PclrBox::column_count>, is_column_count);
constexpr Field kFields[] = {
    custom(kEntries, kEntryCount),
    custom(kColumns, kColumnCount),
    also(custom_number(JPX_FIELD_PCLR_B, "B", 1, kDepth), kRepeatsAndBytes),
    also(custom_number(JPX_FIELD_PCLR_C, "C", kValueSize, kValue), kRepeatsAndBytes),
};

// Kept for compatibility: NE is counted where the payload has NPC bytes, and a column of depth 1
// counts nothing although it is written as a byte, so a palette's length and its rendered size
// differ. Made equal, box headers and what kv_jpx_print_box says of lengths would change.
uint64_t length_of_table(Box* box) {
  const PclrBox* const self = pclr(box);
  uint64_t length = self->entry_count;
  for (uint32_t i = 0; i < self->column_count; ++i) {
    const uint64_t less_one = depth_byte(self, i) & 0x7F;
    length += self->entry_count * ((less_one + 7) / 8);
  }
  return length;
}

// Kept for compatibility: the thresholds compare the depth less one with 8, 16, 24 and 32, so a
// depth of 9 still takes one byte. By the standard's widths, files that were written so would be
// misread.
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

void render_table(Box* box, Environment* env, Stream* stream) {
  const PclrBox* const self = pclr(box);
  for (uint32_t i = 0; i < self->column_count; ++i) {
    bs_write_1_byte(env, stream, depth_byte(self, i));
  }
  const uint64_t count = value_count(self);
  for (uint64_t place = 0; place < count; ++place) {
    render_value(env, stream, depth_byte(self, place % self->column_count), value_at(self, place));
  }
}

void jpx_pclr_print(Box* box) {
  const PclrBox* const self = pclr(box);
  print_heading(box);
  printf("Number of entries: %u\n", self->entry_count);
  printf("number of palette columns: %u\n", self->column_count);
  puts("bit depth of columns:");
  for (uint32_t i = 0; i < self->column_count; ++i) {
    const uint8_t depth = depth_byte(self, i);
    printf("  Column %d: %d%s\n", static_cast<int>(i), static_cast<int>(depth_of(depth)),
           sign_text(depth));
  }
  puts("Color palette entries:");
  const uint64_t stride = self->stride != 0 ? self->stride : self->column_count;
  for (uint32_t j = 0; j < self->entry_count; ++j) {
    for (uint32_t i = 0; i < self->column_count; ++i) {
      printf("  C[%u][%u]: %u\n", j, i, value_at(self, j * stride + i));
    }
  }
}

void release_table(Box* box, Environment* env) {
  release(env, pclr(box)->all_depths);
  list_release(env, &pclr(box)->values);
}

void read_table(Environment* env, Stream* stream, Box* box) {
  PclrBox* const self = pclr(box);
  if (!has_content(env, stream, self->column_count + value_count(self), 1)) return;
  uint8_t* const depths = provide_depths(self, env, self->column_count);
  bs_read_memcpy(env, stream, depths, self->column_count);
  size_table(self, env);
  for (uint64_t place = 0; place < value_count(self); ++place) {
    *entry_at<uint32_t>(self->values, place) =
        read_value(env, stream, depths[place % self->column_count]);
  }
}

// ------------------------------------------------------------------- by the rules of the standard
//
// The table only ever grows, so that what a smaller NE or NPC hides comes back with them. Values
// are kept as they are written, whatever their sign.

constexpr uint32_t kMaxHeldDepth = 32;

uint32_t standard_width(uint8_t depth) { return (depth_of(depth) + 7) / 8; }

uint32_t written_bits(uint8_t depth) { return UINT32_MAX >> (32 - 8 * standard_width(depth)); }

bool is_held_depth(const Box*, uint64_t value) {
  return value <= 0xFF && depth_of(static_cast<uint8_t>(value)) <= kMaxHeldDepth;
}

// Room for `columns` and for all entries.
void widen_table(PclrBox* self, Environment* env, uint64_t columns) {
  if (columns <= self->stride) {
    const uint64_t places = uint64_t{self->entry_count} * self->stride;
    if (places > self->values.count) list_set_count(env, &self->values, kValueSize, places);
    return;
  }
  EntryList& values = self->values;
  const uint64_t rows = self->stride != 0 ? values.count / self->stride : 0;
  const uint64_t needed = rows > self->entry_count ? rows : self->entry_count;
  list_resize(env, &values, kValueSize, rows * self->stride);
  list_resize(env, &values, kValueSize, needed * columns);
  // From the last one, as each goes further back.
  for (uint64_t place = rows * self->stride; place-- != 0;) {
    uint32_t* const from = entry_at<uint32_t>(values, place);
    const uint32_t value = *from;
    *from = 0;
    *entry_at<uint32_t>(values, place / self->stride * columns + place % self->stride) = value;
  }
  self->stride = static_cast<uint8_t>(columns);
}

uint32_t* cell_at(const PclrBox* self, uint64_t index) {
  const uint64_t row = index / self->column_count;
  return entry_at<uint32_t>(self->values, row * self->stride + index % self->column_count);
}

int32_t set_number(const Field& field, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, Rules::kStandard)) return JPX_ERR_INVALID_ARGUMENT;
  field.slot.store(box, value);
  widen_table(pclr(box), env, pclr(box)->column_count);
  return JPX_OK;
}

int32_t set_held_depth(const Field& field, Box* box, Environment* env, uint64_t index,
                       uint64_t value) {
  if (index >= pclr(box)->column_count) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, Rules::kStandard)) return JPX_ERR_INVALID_ARGUMENT;
  provide_depths(pclr(box), env, index + 1)[index] = static_cast<uint8_t>(value);
  return JPX_OK;
}

int32_t get_held_depth(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index >= pclr(box)->column_count) return JPX_ERR_NO_SUCH_FIELD;
  *value = depth_byte(pclr(box), index);
  return JPX_OK;
}

int32_t set_held_depths(const Field&, Box* box, Environment* env, const BufferSource& source) {
  uint64_t size;
  if (source.element_size != 1 || !is_valid_source(source, &size) || !is_column_count(box, size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  const auto* const depths = static_cast<const uint8_t*>(source.data);
  for (uint64_t i = 0; i < size; ++i) {
    if (!is_held_depth(box, depths[i])) return JPX_ERR_INVALID_ARGUMENT;
  }
  pclr(box)->column_count = static_cast<uint8_t>(size);
  widen_table(pclr(box), env, size);
  memcpy(provide_depths(pclr(box), env, size), depths, size);
  return JPX_OK;
}

// A number of the depth, as such or as it is written: with its sign in the bits above.
bool fits_depth(uint8_t depth, uint64_t value) {
  if (value >> depth_of(depth) == 0) return true;
  const uint64_t lowest = ~uint64_t{0} << (depth & 0x7F);
  const uint64_t written = written_bits(depth);
  const bool is_negative = value >= lowest || (value <= written && (value | ~written) >= lowest);
  return (depth & kSignBit) != 0 && is_negative;
}

int32_t set_cell(const Field& field, Box* box, Environment*, uint64_t index, uint64_t value) {
  const PclrBox* const self = pclr(box);
  if (index >= value_count(self)) return JPX_ERR_NO_SUCH_FIELD;
  const uint8_t depth = depth_byte(self, index % self->column_count);
  if (field.check != nullptr && !fits_depth(depth, value)) return JPX_ERR_INVALID_ARGUMENT;
  *cell_at(self, index) = static_cast<uint32_t>(value) & written_bits(depth);
  return JPX_OK;
}

int32_t get_cell(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index >= value_count(pclr(box))) return JPX_ERR_NO_SUCH_FIELD;
  *value = *cell_at(pclr(box), index);
  return JPX_OK;
}

// The bytes of a value among a caller's.
uint32_t value_in(const BufferSource& source, uint64_t index) {
  uint32_t value;
  memcpy(&value, static_cast<const uint8_t*>(source.data) + index * kValueSize, kValueSize);
  return value;
}

// Judged by nothing but the width; the sign of a negative number may go on above it.
int32_t set_all_cells(const Field&, Box* box, Environment*, const BufferSource& source) {
  const PclrBox* const self = pclr(box);
  uint64_t size;
  if (source.element_size != kValueSize || source.count != value_count(self) ||
      !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  for (uint64_t i = 0; i < source.count; ++i) {
    const uint32_t written = written_bits(depth_byte(self, i % self->column_count));
    const uint32_t above = value_in(source, i) & ~written;
    if (above != 0 && above != ~written) return JPX_ERR_INVALID_ARGUMENT;
  }
  for (uint64_t i = 0; i < source.count; ++i) {
    const uint32_t written = written_bits(depth_byte(self, i % self->column_count));
    *cell_at(self, i) = value_in(source, i) & written;
  }
  return JPX_OK;
}

int32_t get_all_cells(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const PclrBox* const self = pclr(box);
  const int32_t result = grant_buffer(env, request, value_count(self), kValueSize);
  if (result != JPX_OK) return result;
  for (uint64_t i = 0; i < value_count(self); ++i) {
    memcpy(static_cast<uint8_t*>(*request.buffer) + i * kValueSize, cell_at(self, i), kValueSize);
  }
  return JPX_OK;
}

constexpr Field checked(Field field, CheckFn* check) {
  field.check = check;
  return also(field, kRepeatsAndBytes);
}

constexpr FieldOperations kNumber = {set_number};
constexpr FieldOperations kHeldDepth = {set_held_depth, get_held_depth, count_columns,
                                        set_held_depths, get_all_depths};
constexpr FieldOperations kCell = {set_cell, get_cell, count_values, set_all_cells, get_all_cells};
constexpr Field kStandardFields[] = {
    custom(kEntries, kNumber),
    custom(kColumns, kNumber),
    checked(custom_number(JPX_FIELD_PCLR_B, "B", 1, kHeldDepth), is_held_depth),
    checked(custom_number(JPX_FIELD_PCLR_C, "C", kValueSize, kCell), fits_32_bits),
};

uint64_t entry_length(const PclrBox* self) {
  uint64_t length = 0;
  for (uint32_t i = 0; i < self->column_count; ++i) length += standard_width(depth_byte(self, i));
  return length;
}

uint64_t length_of_cells(Box* box) {
  return pclr(box)->column_count + pclr(box)->entry_count * entry_length(pclr(box));
}

void render_cells(Box* box, Environment* env, Stream* stream) {
  const PclrBox* const self = pclr(box);
  for (uint32_t i = 0; i < self->column_count; ++i) {
    bs_write_1_byte(env, stream, depth_byte(self, i));
  }
  for (uint64_t i = 0; i < value_count(self); ++i) {
    const uint32_t width = standard_width(depth_byte(self, i % self->column_count));
    bs_write_n_byte(env, stream, *cell_at(self, i), width, 0);
  }
}

void read_cells(Environment* env, Stream* stream, Box* box) {
  PclrBox* const self = pclr(box);
  if (!has_content(env, stream, self->column_count, 1)) return;
  uint8_t* const depths = provide_depths(self, env, self->column_count);
  bs_read_memcpy(env, stream, depths, self->column_count);
  for (uint32_t i = 0; i < self->column_count; ++i) {
    if (!is_held_depth(box, depths[i])) stream->content_is_bad = 1;
  }
  if (stream->content_is_bad != 0) return;
  if (!has_content(env, stream, self->entry_count * entry_length(self), 1)) return;
  widen_table(self, env, self->column_count);
  for (uint64_t i = 0; i < value_count(self); ++i) {
    const uint32_t width = standard_width(depth_byte(self, i % self->column_count));
    *cell_at(self, i) = static_cast<uint32_t>(bs_read_n_byte(env, stream, width, 0));
  }
}

}  // namespace

constexpr BoxLayout kPclr = box_layout<PclrBox, kFields>(
    code("pclr"), jpx_pclr_print, {length_of_table, render_table, read_table, release_table});
constexpr BoxLayout kStandardPclr = box_layout<PclrBox, kStandardFields>(
    code("pclr"), jpx_pclr_print, {length_of_cells, render_cells, read_cells, release_table});

}  // namespace kvjpx
