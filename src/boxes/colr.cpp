// colr, how samples are to be read as colour (ISO/IEC 15444-1, I.5.3.3; 15444-2, M.11).
//
//   1 METH, 1 PREC, 1 APPROX, then by METH:
//     1     4 EnumCS
//     2, 3  the ICC profile, to the end
//     4     16 UUID, then the vendor's data, to the end
//
// Only the part that METH names is live; changing METH empties it.
#include <stdio.h>
#include <string.h>

#include "box/buffer_field.h"
#include "box/field_table.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("colr");
constexpr uint64_t kFixedSize = 3;
constexpr uint64_t kEnumCsSize = 4;

enum Method : uint8_t { kEnumerated = 1, kRestrictedIcc = 2, kAnyIcc = 3, kVendor = 4 };

// Colour spaces with parameters of their own.
constexpr uint32_t kCieLab = 14;
constexpr uint32_t kCieJab = 19;
constexpr uint32_t kLabParameters = 7;
constexpr uint32_t kJabParameters = 6;

struct ColrBox : Box {
  uint8_t method;
  uint8_t precedence;
  uint8_t approximation;
  uint32_t colour_space;     // METH 1
  uint32_t parameter_count;  // METH 1; see set_parameter
  uint32_t* parameters;
  uint8_t uuid[kUuidSize];  // METH 4
  uint32_t data_length;
  uint8_t* data;  // ICC profile or vendor data
};

ColrBox* colr(Box* box) { return static_cast<ColrBox*>(box); }
const ColrBox* colr(const Box* box) { return static_cast<const ColrBox*>(box); }

bool has_profile(const Box* box) {
  return colr(box)->method == kRestrictedIcc || colr(box)->method == kAnyIcc;
}
bool has_vendor_data(const Box* box) { return colr(box)->method == kVendor; }
bool is_enumerated(const Box* box) { return colr(box)->method == kEnumerated; }

const char* colour_space_name(uint64_t colour_space) {
  static const char* const kNames[] = {
      "Bi-level",
      "YCbCr(1)",
      nullptr,
      "YCbCr(2)",
      "YCbCr(3)",
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      "PhotoYcc",
      nullptr,
      "CMY",
      "CMYK",
      "YCCK",
      "CIELab",
      "Bi-level(2)",
      "sRGB",
      "greyscale",
      "sYCC",
      "CIEJab",
      "e-sRGB",
      "ROMM-RGB",
      "YPbPr (1125/60)",
      "YPbPr (1250/50)",
      "e-sYCC",
  };
  constexpr uint64_t kCount = sizeof(kNames) / sizeof(kNames[0]);
  return colour_space < kCount ? kNames[colour_space] : nullptr;
}

bool is_method(const Box*, uint64_t value) { return value >= kEnumerated && value <= kVendor; }
bool is_approximation(const Box*, uint64_t value) { return value >= 1 && value <= 4; }

void discard_parameters(ColrBox* self, Environment* env) {
  release(env, self->parameters);
  self->parameter_count = 0;
}

void discard_data(ColrBox* self, Environment* env) {
  release(env, self->data);
  self->data_length = 0;
}

// The UUID outlives a change of method: hosts switch a vendor's colour off and on again.
int32_t set_method(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  ColrBox* const self = colr(box);
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_method(box, value)) return JPX_ERR_INVALID_ARGUMENT;
  discard_parameters(self, env);
  discard_data(self, env);
  if (value != self->method) self->colour_space = 0;
  self->method = static_cast<uint8_t>(value);
  return JPX_OK;
}

int32_t set_colour_space(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  if (index != 0 || !is_enumerated(box)) return JPX_ERR_NO_SUCH_FIELD;
  if (colour_space_name(value) == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  colr(box)->colour_space = static_cast<uint32_t>(value);
  discard_parameters(colr(box), env);
  return JPX_OK;
}

int32_t get_colour_space(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index != 0 || !is_enumerated(box)) return JPX_ERR_NO_SUCH_FIELD;
  *value = colr(box)->colour_space;
  return JPX_OK;
}

// Hosts tell a box with an enumerated space by the method, never by a count.
int32_t no_count(const Field&, Box*, uint64_t*, uint32_t*) { return JPX_ERR_NO_SUCH_FIELD; }

// The parameters of one colour space.
struct ParameterSpace {
  uint32_t colour_space;
  uint32_t count;
  uint32_t first_key;  // the keys stand in the table in the order of the parameters
};
constexpr ParameterSpace kLab = {kCieLab, kLabParameters, JPX_FIELD_COLR_RL};
constexpr ParameterSpace kJab = {kCieJab, kJabParameters, JPX_FIELD_COLR_JAB_RJ};

uint32_t parameter_number(const Field& field, const ParameterSpace& space);

bool is_live_for(const Box* box, uint32_t colour_space) {
  return is_enumerated(box) && colr(box)->colour_space == colour_space;
}

// The count stays as it is, 0 that is, since no file with parameters loads: parameters that are set
// are neither returned nor written. Hosts set them for their own renderers, which share the array,
// and expect the file to stay a plain enumerated one.
int32_t set_parameter(const Field& field, const ParameterSpace& space, Box* box, Environment* env,
                      uint64_t index, uint64_t value) {
  if (index != 0 || !is_live_for(box, space.colour_space)) return JPX_ERR_NO_SUCH_FIELD;
  ColrBox* const self = colr(box);
  if (self->parameters == nullptr) {
    self->parameters = static_cast<uint32_t*>(allocate_zeroed(env, space.count * sizeof(uint32_t)));
  }
  self->parameters[parameter_number(field, space)] = static_cast<uint32_t>(value);
  return JPX_OK;
}

// A CIEJab parameter is set under EnumCS 19 but looked for under 14: a renderer that asks for both
// kinds must find a CIEJab box without parameters, or it would take its numbers for CIELab ranges.
int32_t get_parameter(const Field& field, const ParameterSpace& space, Box* box, uint64_t index,
                      uint64_t* value) {
  const ColrBox* const self = colr(box);
  if (index != 0 || !is_live_for(box, kCieLab) || self->parameter_count != space.count) {
    return JPX_ERR_NO_SUCH_FIELD;
  }
  *value = self->parameters[parameter_number(field, space)];
  return JPX_OK;
}

int32_t count_parameter(const Field& field, const ParameterSpace& space, Box* box, uint64_t* count,
                        uint32_t* element_size) {
  if (!is_live_for(box, space.colour_space)) return JPX_ERR_NO_SUCH_FIELD;
  const bool is_given = colr(box)->parameter_count == space.count;
  return report_count(is_given ? 1 : 0, field.width, count, element_size);
}

template <const ParameterSpace& Space>
struct Parameter {
  static int32_t set(const Field& field, Box* box, Environment* env, uint64_t index,
                     uint64_t value) {
    return set_parameter(field, Space, box, env, index, value);
  }
  static int32_t get(const Field& field, Box* box, uint64_t index, uint64_t* value) {
    return get_parameter(field, Space, box, index, value);
  }
  static int32_t count(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
    return count_parameter(field, Space, box, count, element_size);
  }
};

int32_t count_profile(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_profile(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(colr(box)->data_length, field.width, count, element_size);
}
int32_t count_uuid(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_vendor_data(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(1, field.width, count, element_size);
}
int32_t count_vendor_data(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_vendor_data(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(colr(box)->data_length, field.width, count, element_size);
}

constexpr CustomField kMethod = {set_method, nullptr, nullptr};
constexpr CustomField kColourSpace = {set_colour_space, get_colour_space, no_count};
constexpr CustomField kLabField = {Parameter<kLab>::set, Parameter<kLab>::get,
                                   Parameter<kLab>::count};
constexpr CustomField kJabField = {Parameter<kJab>::set, Parameter<kJab>::get,
                                   Parameter<kJab>::count};
constexpr CustomField kProfile = {nullptr, nullptr, count_profile};
constexpr CustomField kUuid = {nullptr, nullptr, count_uuid};
constexpr CustomField kVendorData = {nullptr, nullptr, count_vendor_data};

constexpr Field kFields[] = {
    custom(single(JPX_FIELD_COLR_METH, "METH", 1, member<&ColrBox::method>), kMethod),
    single(JPX_FIELD_COLR_PREC, "PREC", 1, member<&ColrBox::precedence>),
    single(JPX_FIELD_COLR_APPROX, "APPROX", 1, member<&ColrBox::approximation>, is_approximation),
    custom_number(JPX_FIELD_COLR_EnumCS, "EnumCS", 4, kColourSpace),
    custom_number(JPX_FIELD_COLR_RL, "RL", 4, kLabField),
    custom_number(JPX_FIELD_COLR_OL, "OL", 4, kLabField),
    custom_number(JPX_FIELD_COLR_RA, "RA", 4, kLabField),
    custom_number(JPX_FIELD_COLR_OA, "OA", 4, kLabField),
    custom_number(JPX_FIELD_COLR_RB, "RB", 4, kLabField),
    custom_number(JPX_FIELD_COLR_OB, "OB", 4, kLabField),
    custom_number(JPX_FIELD_COLR_IL, "IL", 4, kLabField),
    custom_number(JPX_FIELD_COLR_JAB_RJ, "JAB_RJ", 4, kJabField),
    custom_number(JPX_FIELD_COLR_JAB_OJ, "JAB_OJ", 4, kJabField),
    custom_number(JPX_FIELD_COLR_JAB_RA, "JAB_RA", 4, kJabField),
    custom_number(JPX_FIELD_COLR_JAB_OA, "JAB_OA", 4, kJabField),
    custom_number(JPX_FIELD_COLR_JAB_RB, "JAB_RB", 4, kJabField),
    custom_number(JPX_FIELD_COLR_JAB_OB, "JAB_OB", 4, kJabField),
    custom(bytes_field(JPX_FIELD_COLR_ICC, "ICC", 1), kProfile),
    custom(bytes_field(JPX_FIELD_COLR_UUID, "UUID", kUuidSize), kUuid),
    custom(bytes_field(JPX_FIELD_COLR_VENDOR_DATA, "VENDOR_DATA", 1), kVendorData),
};
constexpr FieldTable kTable = field_table(kType, kFields);

uint32_t parameter_number(const Field& field, const ParameterSpace& space) {
  const Field* first = kFields;
  while (first->key != space.first_key) ++first;
  return static_cast<uint32_t>(&field - first);
}

uint64_t jpx_colr_length(Box* box) {
  if (box->type != kType) return 0;
  const ColrBox* const self = colr(box);
  if (is_enumerated(box)) {
    return kFixedSize + kEnumCsSize + sizeof(uint32_t) * self->parameter_count;
  }
  if (has_profile(box)) return kFixedSize + self->data_length;
  return has_vendor_data(box) ? kFixedSize + kUuidSize + self->data_length : kFixedSize;
}

void jpx_colr_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  const ColrBox* const self = colr(box);
  bs_write_1_byte(env, stream, self->method);
  bs_write_1_byte(env, stream, self->precedence);
  bs_write_1_byte(env, stream, self->approximation);
  if (is_enumerated(box)) {
    bs_write_4_byte_big(env, stream, self->colour_space);
    for (uint32_t i = 0; i < self->parameter_count; ++i) {
      bs_write_4_byte_big(env, stream, self->parameters[i]);
    }
  }
  if (has_vendor_data(box)) jpx_render_uuid(env, stream, self->uuid);
  if (has_profile(box) || has_vendor_data(box)) {
    bs_write_memcpy(env, stream, self->data, self->data_length);
  }
}

void print_colour_space(const ColrBox* self) {
  const char* const name = colour_space_name(self->colour_space);
  printf("Enumerated colourspace: %s\n", name != nullptr ? name : "Unknown");
  if (self->parameter_count != 0) printf("  With %u parameters\n", self->parameter_count);
}

void print_vendor(const ColrBox* self) {
  printf("Vendor Colour profile (UUID:");
  jpx_print_uuid(self->uuid);
  puts(")");
  if (self->data_length != 0) printf("  With %u-byte parameter data\n", self->data_length);
}

// PREC and APPROX are never printed.
void jpx_colr_print(Box* box) {
  if (box->type != kType) return;
  printf("colr box length %llu\n", printable(box->box_length(box)));
  switch (colr(box)->method) {
    case kEnumerated:
      print_colour_space(colr(box));
      break;
    case kRestrictedIcc:
      puts("Restricted ICC profile");
      break;
    case kAnyIcc:
      puts("Any ICC profile");
      break;
    case kVendor:
      print_vendor(colr(box));
      break;
    default:
      break;
  }
}

void jpx_colr_destroy(Box* box, Environment* env) {
  if (box->type != kType) return;
  discard_parameters(colr(box), env);
  discard_data(colr(box), env);
}

int32_t jpx_colr_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_colr_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_colr_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

bool is_live_data(const Box* box, uint32_t key) {
  return (key == JPX_FIELD_COLR_ICC && has_profile(box)) ||
         (key == JPX_FIELD_COLR_VENDOR_DATA && has_vendor_data(box));
}

int32_t set_data(ColrBox* self, Environment* env, uint64_t count, uint32_t element_size,
                 const void* source) {
  uint64_t size;
  if (!is_valid_source(count, element_size, source, &size) || size > UINT32_MAX) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  replace_bytes(env, self->data, source, size);
  self->data_length = static_cast<uint32_t>(size);
  return JPX_OK;
}

int32_t set_uuid(ColrBox* self, uint64_t count, uint32_t element_size, const void* source) {
  if (count > 1) return JPX_ERR_NO_SUCH_FIELD;
  if (element_size != kUuidSize) return JPX_ERR_INVALID_ARGUMENT;
  if (count == 0) return JPX_OK;
  if (source == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  memcpy(self->uuid, source, kUuidSize);
  return JPX_OK;
}

int32_t jpx_colr_set_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t count,
                                  uint32_t element_size, const void* source) {
  if (box->type != kType) return JPX_ERR_NO_SUCH_FIELD;
  if (is_live_data(box, key)) return set_data(colr(box), env, count, element_size, source);
  if (key == JPX_FIELD_COLR_UUID && has_vendor_data(box)) {
    return set_uuid(colr(box), count, element_size, source);
  }
  return JPX_ERR_NO_SUCH_FIELD;
}

// The UUID is handed out as 16 bytes, although it is counted as one entry of 16.
int32_t jpx_colr_get_buffer_field(Box* box, Environment* env, uint32_t key, uint64_t* count,
                                  uint32_t* element_size, void** buffer) {
  if (box->type != kType) return JPX_ERR_NO_SUCH_FIELD;
  const BufferRequest request = {count, element_size, buffer};
  const ColrBox* const self = colr(box);
  if (is_live_data(box, key)) return copy_out(env, request, self->data, self->data_length, 1);
  if (key == JPX_FIELD_COLR_UUID && has_vendor_data(box)) {
    return copy_out(env, request, self->uuid, kUuidSize, 1);
  }
  return JPX_ERR_NO_SUCH_FIELD;
}

constexpr BoxOperations kOperations = with_buffers(
    leaf_operations(jpx_colr_length, jpx_colr_render, jpx_colr_print, jpx_colr_destroy,
                    jpx_colr_set_int_field, jpx_colr_get_int_field, jpx_colr_get_field_count),
    jpx_colr_set_buffer_field, jpx_colr_get_buffer_field);

// An enumerated space with parameters behind it is refused: readers of this format have always
// taken their number from the bytes that are left and then run out of them.
void read_colour_space(Environment* env, Stream* stream, ColrBox* self) {
  const uint64_t left = bytes_left(env, stream);
  if (left != 0 && left != kEnumCsSize) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  self->colour_space = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
}

void read_data(Environment* env, Stream* stream, ColrBox* self) {
  self->data_length = static_cast<uint32_t>(bytes_left(env, stream));
  self->data = static_cast<uint8_t*>(allocate(env, self->data_length));
  bs_read_memcpy(env, stream, self->data, self->data_length);
}

void read_payload(Environment* env, Stream* stream, Box* box) {
  ColrBox* const self = colr(box);
  self->method = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  self->precedence = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  self->approximation = static_cast<uint8_t>(bs_read_1_byte(env, stream));
  if (is_enumerated(box)) read_colour_space(env, stream, self);
  if (has_vendor_data(box)) jpx_read_uuid(env, stream, self->uuid);
  if (has_profile(box) || has_vendor_data(box)) read_data(env, stream, self);
}

}  // namespace

const FieldTable kColrFields = kTable;

extern "C" {

Box* jpx_make_colr_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<ColrBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_colr_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_colr_box, read_payload,
                     Misplaced::kRefused);
}

}  // extern "C"
}  // namespace kvjpx
