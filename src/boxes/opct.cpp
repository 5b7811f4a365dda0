// opct, the opacity box (ISO/IEC 15444-2, M.11).
//
//   1 OTyp, and if that is 2: 1 nch, then nch times: 1 chroma-key value
//
// A value is one byte on disk, whatever the depth of its channel. By the rules of the standard, at
// the end of this file, it is as wide as its channel.
#include <stdio.h>
#include <string.h>

#include "boxes/bit_depth.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kFreshChannels = 2;
constexpr uint32_t kValueSize = sizeof(int64_t);

struct OpctBox : Box {
  uint8_t opacity_type;
  uint8_t equal_width;  // by the rules of the standard: of values that do not follow the image
  EntryList values;     // int64_t each; nch is their count
  EntryList widths;     // by the rules of the standard: bytes of each value, uint8_t each
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
bool is_opacity_type(const Box*, uint64_t value) { return value <= KV_JPX_OTYP_CHROMA_KEY; }
constexpr Field kType =
    single(JPX_FIELD_OPCT_OTyp, "OTyp", 1, member<&OpctBox::opacity_type>, is_opacity_type);
constexpr Field kFields[] = {
    custom(kType, kOpacityType),
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

void release_key(Box* box, Environment* env) {
  list_release(env, values_of(box));
  list_release(env, &opct(box)->widths);
}

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

// ------------------------------------------------------------------- by the rules of the standard
//
// Values are kept as they are written, whatever their sign, and those that OTyp or a smaller nch
// hides come back with them.

constexpr uint32_t kMaxWidth = sizeof(int64_t);

Box* child_of(Box* parent, uint32_t type) {
  Box* child = static_cast<SuperBox*>(parent)->first_child;
  while (child != nullptr && child->type != type) child = child->next;
  return child;
}

// Of a field of a box in the image's header; false when there is none.
bool find_number(Box* header, uint32_t type, uint32_t key, uint64_t index, uint64_t* number) {
  Box* const box = child_of(header, type);
  return box != nullptr && box->get_int_field(box, key, index, number) == JPX_OK;
}

// As the palette, the depths of the components or the one of all say.
uint64_t channel_depth(Box* header, uint64_t channel) {
  uint64_t component = channel;
  uint64_t column;
  uint64_t is_mapped = 0;
  uint64_t depth = 0;
  find_number(header, code("cmap"), JPX_FIELD_CMAP_CMP, channel, &component);
  find_number(header, code("cmap"), JPX_FIELD_CMAP_MTYP, channel, &is_mapped);
  const bool is_known =
      (is_mapped != 0 && find_number(header, code("cmap"), JPX_FIELD_CMAP_PCOL, channel, &column) &&
       find_number(header, code("pclr"), JPX_FIELD_PCLR_B, column, &depth)) ||
      find_number(header, code("bpcc"), JPX_FIELD_BPCC_BPC, component, &depth) ||
      find_number(header, code("ihdr"), JPX_FIELD_IHDR_BPC, 0, &depth);
  return is_known ? depth_of(static_cast<uint8_t>(depth)) : 1;
}

uint8_t width_in_image(const Box* box, uint64_t channel) {
  Box* root = box->parent;
  while (root != nullptr && root->parent != nullptr) root = root->parent;
  Box* const header =
      root != nullptr && root->kind == kSuper ? child_of(root, code("jp2h")) : nullptr;
  if (header == nullptr || header->kind != kSuper) return 1;
  const uint64_t width = (channel_depth(header, channel) + 7) / 8;
  return static_cast<uint8_t>(width <= kMaxWidth ? width : 1);
}

uint8_t* width_at(Box* box, uint64_t channel) {
  return entry_at<uint8_t>(opct(box)->widths, channel);
}

uint64_t total_width(Box* box) {
  uint64_t total = 0;
  for (uint64_t i = 0; i < values_of(box)->count; ++i) total += *width_at(box, i);
  return total;
}

// Channels that the box never had are as wide as in the image, or as the others of the box.
void set_channels(Environment* env, Box* box, uint64_t count) {
  EntryList* const widths = &opct(box)->widths;
  for (uint64_t i = widths->count; i < count; ++i) {
    const uint8_t equal = opct(box)->equal_width;
    const uint8_t width = equal != 0 ? equal : width_in_image(box, i);
    list_append(env, widths, sizeof(width), &width);
  }
  list_set_count(env, values_of(box), kValueSize, count);
}

int32_t set_standard_channel_count(const Field& field, Box* box, Environment* env, uint64_t index,
                                   uint64_t value) {
  if (index != 0 || !has_chroma_key(box)) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, Rules::kStandard)) return JPX_ERR_INVALID_ARGUMENT;
  set_channels(env, box, value);
  return JPX_OK;
}

// A number of either sign that fits so many bytes, as they are; false for others.
bool take_bytes(uint64_t* value, uint32_t width) {
  const uint64_t written = width == 0 ? 0 : UINT64_MAX >> (64 - 8 * width);
  if (*value > written && *value < ~(written >> 1)) return false;
  *value &= written;
  return true;
}

int32_t set_standard_value(const Field&, Box* box, Environment*, uint64_t index, uint64_t value) {
  EntryList* const values = values_of(box);
  if (!has_chroma_key(box) || index >= values->count) return JPX_ERR_NO_SUCH_FIELD;
  if (!take_bytes(&value, *width_at(box, index))) return JPX_ERR_INVALID_ARGUMENT;
  *entry_at<uint64_t>(*values, index) = value;
  return JPX_OK;
}

int32_t get_standard_value(const Field&, Box* box, uint64_t index, uint64_t* value) {
  const EntryList& values = *values_of(box);
  if (!has_chroma_key(box) || index >= values.count) return JPX_ERR_NO_SUCH_FIELD;
  *value = *entry_at<uint64_t>(values, index);
  return JPX_OK;
}

int32_t set_standard_values(const Field&, Box* box, Environment* env, const BufferSource& source) {
  uint64_t size;
  if (!has_chroma_key(box)) return JPX_ERR_NO_SUCH_FIELD;
  if (source.element_size != kValueSize || source.count > UINT8_MAX ||
      !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  const uint64_t count = values_of(box)->count;
  uint64_t numbers[UINT8_MAX] = {};
  if (size != 0) memcpy(numbers, source.data, size);
  set_channels(env, box, source.count);
  for (uint64_t i = 0; i < source.count; ++i) {
    if (take_bytes(numbers + i, *width_at(box, i))) continue;
    set_channels(env, box, count);
    return JPX_ERR_INVALID_ARGUMENT;
  }
  if (size != 0) memcpy(values_of(box)->entries, numbers, size);
  return JPX_OK;
}

int32_t get_standard_values(const Field& field, Box* box, Environment* env,
                            const BufferRequest& request) {
  return has_chroma_key(box) ? get_values(field, box, env, request) : JPX_ERR_NO_SUCH_FIELD;
}

constexpr FieldOperations kStandardChannelCount = {set_standard_channel_count, get_channel_count,
                                                   count_channel_count};
constexpr FieldOperations kStandardValue = {set_standard_value, get_standard_value, count_values,
                                            set_standard_values, get_standard_values};
constexpr Field kStandardFields[] = {
    kType,
    custom_number(JPX_FIELD_OPCT_nch, "nch", 1, kStandardChannelCount),
    also(custom_number(JPX_FIELD_OPCT_Cv, "Cv", kValueSize, kStandardValue),
         KV_JPX_FIELD_BYTES | KV_JPX_FIELD_REPEATS),
};

uint64_t length_of_wide_key(Box* box) { return has_chroma_key(box) ? 1 + total_width(box) : 0; }

void render_wide_key(Box* box, Environment* env, Stream* stream) {
  if (!has_chroma_key(box)) return;
  const EntryList& values = *values_of(box);
  bs_write_1_byte(env, stream, values.count);
  for (uint64_t i = 0; i < values.count; ++i) {
    bs_write_n_byte(env, stream, *entry_at<uint64_t>(values, i), *width_at(box, i), 0);
  }
}

// Values that have not the widths of the image's channels are taken to be equally wide.
void read_wide_key(Environment* env, Stream* stream, Box* box) {
  if (!has_chroma_key(box)) return;
  const uint64_t count = bs_read_1_byte(env, stream);
  set_channels(env, box, count);
  const uint64_t left = bytes_left(stream);
  if (total_width(box) > left) {
    if (left % count != 0 || left == 0 || left / count > kMaxWidth) {
      stream->content_is_bad = 1;
      return;
    }
    opct(box)->equal_width = static_cast<uint8_t>(left / count);
    memset(width_at(box, 0), opct(box)->equal_width, count);
  }
  for (uint64_t i = 0; i < count; ++i) {
    *entry_at<uint64_t>(*values_of(box), i) = bs_read_n_byte(env, stream, *width_at(box, i), 0);
  }
}

}  // namespace

constexpr BoxLayout kOpct = box_layout<OpctBox, kFields>(
    code("opct"), jpx_opct_print, {length_of_key, render_key, read_key, release_key});
constexpr BoxLayout kStandardOpct = box_layout<OpctBox, kStandardFields>(
    code("opct"), jpx_opct_print,
    {length_of_wide_key, render_wide_key, read_wide_key, release_key});

}  // namespace kvjpx
