// opct, the opacity box (ISO/IEC 15444-2, M.11).
//
//   1 OTyp, and if that is 2: 1 nch, then nch times: 1 chroma-key value
//
// A value is one byte on disk, whatever the depth of its channel.
#include <stdio.h>
#include <string.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("opct");
constexpr uint8_t kOpacity = 0;
constexpr uint8_t kPremultiplied = 1;
constexpr uint8_t kChromaKey = 2;
constexpr uint64_t kFreshChannels = 2;
constexpr uint32_t kValueSize = sizeof(int64_t);

struct OpctBox : Box {
  uint8_t opacity_type;
  EntryList values;  // int64_t each; nch is their count
};

OpctBox* opct(Box* box) { return static_cast<OpctBox*>(box); }
EntryList* values_of(Box* box) { return &opct(box)->values; }
bool has_chroma_key(Box* box) { return opct(box)->opacity_type == kChromaKey; }

void start_values(Environment* env, EntryList* values, uint64_t count) {
  list_release(env, values);
  list_resize(env, values, kValueSize, static_cast<uint8_t>(count));
}

// A change to 0 or 1 is made and answered with 4 nonetheless: by that, hosts learn that the box has
// no chroma key any more.
int32_t set_opacity_type(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (value > kChromaKey) return JPX_ERR_INVALID_ARGUMENT;
  opct(box)->opacity_type = static_cast<uint8_t>(value);
  if (value != kChromaKey) {
    list_release(env, values_of(box));
    return JPX_ERR_NO_SUCH_FIELD;
  }
  start_values(env, values_of(box), kFreshChannels);
  return JPX_OK;
}

// Always starts the values anew, also when their number stays.
int32_t set_channel_count(const Field&, Box* box, Environment* env, uint64_t index,
                          uint64_t value) {
  if (index != 0 || !has_chroma_key(box)) return JPX_ERR_NO_SUCH_FIELD;
  start_values(env, values_of(box), value);
  return JPX_OK;
}

int32_t get_channel_count(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index != 0 || !has_chroma_key(box)) return JPX_ERR_NO_SUCH_FIELD;
  *value = values_of(box)->count;
  return JPX_OK;
}

int32_t count_channel_count(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(has_chroma_key(box) ? 1 : 0, field.width, count, element_size);
}

// It is the value, not the index, that is compared with nch; a greater value goes behind the last
// entry, wherever the index points. Hosts set small palette indices, for which this is the plain
// thing, and rely on a large value never disturbing an entry.
int32_t set_value(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (!has_chroma_key(box)) return JPX_ERR_NO_SUCH_FIELD;
  EntryList* const values = values_of(box);
  const uint64_t place = values->count >= value ? index : values->count;
  if (place > values->count) return JPX_ERR_NO_SUCH_FIELD;
  list_provide_spare(env, values, kValueSize);
  *entry_at<int64_t>(*values, place) = static_cast<int64_t>(value);
  return JPX_OK;
}

int32_t get_value(const Field&, Box* box, uint64_t index, uint64_t* value) {
  const EntryList& values = *values_of(box);
  if (!has_chroma_key(box) || index > values.count) return JPX_ERR_NO_SUCH_FIELD;
  *value = values.entries == nullptr ? 0 : static_cast<uint64_t>(*entry_at<int64_t>(values, index));
  return JPX_OK;
}

int32_t count_values(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  return report_count(has_chroma_key(box) ? values_of(box)->count : 0, field.width, count,
                      element_size);
}

constexpr CustomField kOpacityType = {set_opacity_type, nullptr, nullptr};
constexpr CustomField kChannelCount = {set_channel_count, get_channel_count, count_channel_count};
constexpr CustomField kValue = {set_value, get_value, count_values};
constexpr Field kFields[] = {
    custom(single(JPX_FIELD_OPCT_OTyp, "OTyp", 1, member<&OpctBox::opacity_type>), kOpacityType),
    custom_number(JPX_FIELD_OPCT_nch, "nch", 1, kChannelCount),
    also(custom_number(JPX_FIELD_OPCT_Cv, "Cv", kValueSize, kValue),
         KV_JPX_FIELD_BYTES | KV_JPX_FIELD_REPEATS),
};
constexpr FieldTable kTable = field_table(kType, kFields);

uint64_t jpx_opct_length(Box* box) {
  if (box->type != kType) return 0;
  return has_chroma_key(box) ? 2 + values_of(box)->count : 1;
}

void jpx_opct_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  bs_write_1_byte(env, stream, opct(box)->opacity_type);
  if (!has_chroma_key(box)) return;
  const EntryList& values = *values_of(box);
  bs_write_1_byte(env, stream, values.count);
  for (uint64_t i = 0; i < values.count; ++i) {
    bs_write_1_byte(env, stream, static_cast<uint64_t>(*entry_at<int64_t>(values, i)));
  }
}

// None of the three sentences has a line end of its own.
void jpx_opct_print(Box* box) {
  if (box->type != kType) return;
  printf("opct box length %llu\n", printable(box->box_length(box)));
  if (opct(box)->opacity_type == kOpacity) {
    printf("The last channel of the compositing layer contains the opacity.");
  } else if (opct(box)->opacity_type == kPremultiplied) {
    printf("The last channel of the compositing layer contains pre-multiplied opacity.");
  } else if (has_chroma_key(box)) {
    printf("Chroma-key value for full transparency:");
    const EntryList& values = *values_of(box);
    for (uint64_t i = 0; i < values.count; ++i) {
      printf("Channel[%d] = %lld\n", static_cast<int>(i),
             static_cast<long long>(*entry_at<int64_t>(values, i)));
    }
  }
}

void jpx_opct_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, values_of(box));
}

int32_t jpx_opct_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_opct_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_opct_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

bool is_values(const Box* box, uint32_t key) {
  return box->type == kType && key == JPX_FIELD_OPCT_Cv;
}

// OTyp is not asked; of more than 255 values the low 8 bits of their number are kept.
int32_t jpx_opct_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (!is_values(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  uint64_t size;
  if (element_size != kValueSize || !is_valid_source(count, element_size, source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  EntryList* const values = values_of(box);
  start_values(env, values, count);
  if (values->count != 0) memcpy(values->entries, source, values->count * kValueSize);
  return JPX_OK;
}

// The caller's count and size are judged each by itself, not by their product.
int32_t jpx_opct_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (!is_values(box, key)) return JPX_ERR_NO_SUCH_FIELD;
  const EntryList& values = *values_of(box);
  const bool is_given = buffer != nullptr && *buffer != nullptr;
  if (is_given && count != nullptr && element_size != nullptr &&
      (*element_size != kValueSize || *count < values.count)) {
    report_count(values.count, kValueSize, count, element_size);
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  return copy_out(env, {count, element_size, buffer}, values.entries, values.count, kValueSize);
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_opct_length, jpx_opct_render, jpx_opct_print, jpx_opct_destroy,
                    jpx_opct_set_int_field, jpx_opct_get_int_field, jpx_opct_get_field_count),
    jpx_opct_set_buffer_field, jpx_opct_get_buffer_field);

void read_payload(Environment* env, Stream* stream, Box* box) {
  opct(box)->opacity_type = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  if (!has_chroma_key(box)) return;
  const uint64_t count = bs_read_1_byte(env, stream);
  require_content(env, stream, count, 1);
  EntryList* const values = values_of(box);
  list_resize(env, values, kValueSize, count);
  for (uint64_t i = 0; i < count; ++i) {
    *entry_at<int64_t>(*values, i) = static_cast<int64_t>(bs_read_1_byte(env, stream));
  }
}

}  // namespace

const FieldTable kOpctFields = kTable;

extern "C" {

Box* jpx_make_opct_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<OpctBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_opct_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_opct_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
