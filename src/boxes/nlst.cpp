// nlst, the number list box (ISO/IEC 15444-2, M.11).
//
//   4 AN for each number, to the end
#include <stdio.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("nlst");

struct NlstBox : Box {
  EntryList numbers;  // uint32_t each
};

EntryList* numbers_of(Box* box) { return &static_cast<NlstBox*>(box)->numbers; }

// A number set at or past the count is kept behind the last entry without being counted: a get at
// index = count returns it, but it is neither reported nor written. Hosts keep a working value
// there; the list itself is replaced as a whole, by the buffer field.
int32_t set_number(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  EntryList* const numbers = numbers_of(box);
  list_provide_spare(env, numbers, sizeof(uint32_t));
  *entry_at<uint32_t>(*numbers, index < numbers->count ? index : numbers->count) =
      static_cast<uint32_t>(value);
  return JPX_OK;
}

constexpr ListTraits kNumbers = {numbers_of, sizeof(uint32_t), nullptr, true, false};
constexpr CustomField kBehindTheLast = {set_number, nullptr, nullptr};
constexpr Field kFields[] = {
    custom(
        also(repeating(JPX_FIELD_NLST_AN, "AN", 4, kNumbers, number<uint32_t>), KV_JPX_FIELD_BYTES),
        kBehindTheLast),
};
constexpr WireNumber kWireNumbers[] = {{4, number<uint32_t>}};
constexpr WireTable kWire = wire_table(kWireNumbers);
constexpr FieldTable kTable = field_table(kType, kFields);

bool is_number_list(const Box* box, uint32_t key) {
  return box->type == kType && key == JPX_FIELD_NLST_AN;
}

uint64_t jpx_nlst_length(Box* box) {
  return box->type == kType ? kWire.size * numbers_of(box)->count : 0;
}

void jpx_nlst_render(Box* box, Environment* env, Stream* stream) {
  if (box->type == kType) render_entries(env, stream, kWire, *numbers_of(box), sizeof(uint32_t));
}

void jpx_nlst_print(Box* box) {
  if (box->type != kType) return;
  const EntryList& numbers = *numbers_of(box);
  const auto count = static_cast<uint32_t>(numbers.count);
  printf("nlst box length %llu\n", printable(box->box_length(box)));
  printf("Number of entries: %u\n", count);
  puts("Entries:");
  for (uint32_t i = 0; i < count; ++i) {
    printf("  AN[%u]: %u\n", i, *entry_at<uint32_t>(numbers, i));
  }
}

void jpx_nlst_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, numbers_of(box));
}

int32_t jpx_nlst_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_nlst_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_nlst_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

int32_t jpx_nlst_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (!is_number_list(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  return list_replace(env, numbers_of(box), sizeof(uint32_t), count, element_size, source);
}

int32_t jpx_nlst_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (!is_number_list(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  const EntryList& numbers = *numbers_of(box);
  return copy_out(env, {count, element_size, buffer}, numbers.entries, numbers.count,
                  sizeof(uint32_t));
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_nlst_length, jpx_nlst_render, jpx_nlst_print, jpx_nlst_destroy,
                    jpx_nlst_set_int_field, jpx_nlst_get_int_field, jpx_nlst_get_field_count),
    jpx_nlst_set_buffer_field, jpx_nlst_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  const uint64_t count = bytes_left(env, stream) / kWire.size;
  read_entries(env, stream, kWire, numbers_of(box), sizeof(uint32_t), count);
}

}  // namespace

const FieldTable kNlstFields = kTable;

extern "C" {

Box* jpx_make_nlst_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<NlstBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_nlst_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_nlst_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
