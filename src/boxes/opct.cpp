// opct, the opacity box (ISO/IEC 15444-2, M.11).
//
//   1 OTyp, and if that is 2: 1 nch, then nch times: 1 chroma-key value
//
// A value is one byte on disk, whatever the depth of its channel.
#include <stdio.h>
#include <string.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kFreshChannels = 2;
constexpr uint32_t kValueSize = sizeof(int64_t);

struct OpctBox : Box {
  uint8_t opacity_type;
  EntryList values;  // int64_t each; nch is their count
};

OpctBox* opct(Box* box) { return static_cast<OpctBox*>(box); }
EntryList* values_of(Box* box) { return &opct(box)->values; }
bool has_chroma_key(Box* box) { return opct(box)->opacity_type == KV_JPX_OTYP_CHROMA_KEY; }

void start_values(Environment* env, EntryList* values, uint64_t count) {
  list_release(env, values);
  list_resize(env, values, kValueSize, static_cast<uint8_t>(count));
}

// Kept for compatibility: a change to 0 or 1 is made and answered with 4 nonetheless. Without it,
// the same calls would answer 0.
int32_t set_opacity_type(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (value > KV_JPX_OTYP_CHROMA_KEY) return JPX_ERR_INVALID_ARGUMENT;
  opct(box)->opacity_type = static_cast<uint8_t>(value);
  if (value != KV_JPX_OTYP_CHROMA_KEY) {
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

// Kept for compatibility: it is the value, not the index, that is compared with nch; a greater
// value goes behind the last entry, wherever the index points. Were the index compared, values
// greater than nch would reach the entries and the file.
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

// OTyp is not asked; of more than 255 values the low 8 bits of their number are kept.
int32_t set_values(const Field&, Box* box, Environment* env, const BufferSource& source) {
  uint64_t size;
  if (source.element_size != kValueSize || !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  EntryList* const values = values_of(box);
  start_values(env, values, source.count);
  if (values->count != 0) memcpy(values->entries, source.data, values->count * kValueSize);
  return JPX_OK;
}

// The caller's count and size are judged each by itself, not by their product.
int32_t get_values(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  const EntryList& values = *values_of(box);
  const bool is_given = request.buffer != nullptr && *request.buffer != nullptr;
  if (is_given && request.count != nullptr && request.element_size != nullptr &&
      (*request.element_size != kValueSize || *request.count < values.count)) {
    report_count(values.count, kValueSize, request.count, request.element_size);
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  return copy_out(env, request, values.entries, values.count, kValueSize);
}

constexpr FieldOperations kOpacityType = {set_opacity_type};
constexpr FieldOperations kChannelCount = {set_channel_count, get_channel_count,
                                           count_channel_count};
constexpr FieldOperations kValue = {set_value, get_value, count_values, set_values, get_values};
constexpr Field kFields[] = {
    custom(single(JPX_FIELD_OPCT_OTyp, "OTyp", 1, member<&OpctBox::opacity_type>), kOpacityType),
    custom_number(JPX_FIELD_OPCT_nch, "nch", 1, kChannelCount),
    also(custom_number(JPX_FIELD_OPCT_Cv, "Cv", kValueSize, kValue),
         KV_JPX_FIELD_BYTES | KV_JPX_FIELD_REPEATS),
};

uint64_t length_of_key(Box* box) { return has_chroma_key(box) ? 1 + values_of(box)->count : 0; }

void render_key(Box* box, Environment* env, Stream* stream) {
  if (!has_chroma_key(box)) return;
  const EntryList& values = *values_of(box);
  bs_write_1_byte(env, stream, values.count);
  for (uint64_t i = 0; i < values.count; ++i) {
    bs_write_1_byte(env, stream, static_cast<uint64_t>(*entry_at<int64_t>(values, i)));
  }
}

void read_key(Environment* env, Stream* stream, Box* box) {
  if (!has_chroma_key(box)) return;
  const uint64_t count = bs_read_1_byte(env, stream);
  if (!has_content(env, stream, count, 1)) return;
  EntryList* const values = values_of(box);
  list_resize(env, values, kValueSize, count);
  for (uint64_t i = 0; i < count; ++i) {
    *entry_at<int64_t>(*values, i) = static_cast<int64_t>(bs_read_1_byte(env, stream));
  }
}

void release_key(Box* box, Environment* env) { list_release(env, values_of(box)); }

// Kept for compatibility: none of the three sentences has a line end of its own. A line end would
// change every print-out with such a box.
void jpx_opct_print(Box* box) {
  print_heading(box);
  if (opct(box)->opacity_type == KV_JPX_OTYP_OPACITY) {
    printf("The last channel of the compositing layer contains the opacity.");
  } else if (opct(box)->opacity_type == KV_JPX_OTYP_PREMULTIPLIED_OPACITY) {
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

}  // namespace

constexpr BoxLayout kOpct = box_layout<OpctBox>(code("opct"), kFields, jpx_opct_print,
                                                {length_of_key, render_key, read_key, release_key});

}  // namespace kvjpx
