// colr, how samples are to be read as colour (ISO/IEC 15444-1, I.5.3.3; 15444-2, M.11).
//
//   1 METH, 1 PREC, 1 APPROX, then by METH:
//     1     4 EnumCS, and for CIELab and CIEJab 7 and 6 parameters of 4, or none
//     2, 3  the ICC profile, to the end
//     4     16 UUID, then the vendor's data, to the end
//
// Only the part that METH names is live; changing METH empties it. By the rules of the standard the
// other parts stay, so that what METH or EnumCS hid comes back with them.
#include <stdio.h>
#include <string.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kEnumCsSize = 4;
constexpr uint32_t kMostParameters = 7;

// Of a colour space.
struct Parameters {
  bool are_given;
  uint32_t numbers[kMostParameters];
};

struct Data {
  uint32_t length;
  uint8_t* bytes;
};

struct ColrBox : Box {
  uint8_t method;
  uint8_t precedence;
  uint8_t approximation;
  uint32_t colour_space;    // METH 1
  Parameters lab;           // EnumCS 14; see set_parameter
  Parameters jab;           // EnumCS 19
  Data profile;             // METH 2 and 3
  uint8_t uuid[kUuidSize];  // METH 4
  Data vendor_data;
};

ColrBox* colr(Box* box) { return static_cast<ColrBox*>(box); }
const ColrBox* colr(const Box* box) { return static_cast<const ColrBox*>(box); }

bool has_profile(const Box* box) {
  return colr(box)->method == KV_JPX_METH_RESTRICTED_ICC ||
         colr(box)->method == KV_JPX_METH_ANY_ICC;
}
bool has_vendor_data(const Box* box) { return colr(box)->method == KV_JPX_METH_VENDOR; }
bool is_enumerated(const Box* box) { return colr(box)->method == KV_JPX_METH_ENUMERATED; }

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

bool is_method(const Box*, uint64_t value) {
  return value >= KV_JPX_METH_ENUMERATED && value <= KV_JPX_METH_VENDOR;
}
bool is_approximation(const Box*, uint64_t value) { return value >= 1 && value <= 4; }
// ISO/IEC 15444-1 has 0 only.
bool is_approximation_or_none(const Box*, uint64_t value) { return value <= 4; }

void discard(Data* data, Environment* env) {
  release(env, data->bytes);
  data->length = 0;
}

void release_method(Box* box, Environment* env) {
  discard(&colr(box)->profile, env);
  discard(&colr(box)->vendor_data, env);
}

// Kept for compatibility: the UUID outlives a change of method. Emptied like the rest, it would be
// zeros when METH 4 is set again.
int32_t set_method(const Field&, Box* box, Environment* env, uint64_t index, uint64_t value) {
  ColrBox* const self = colr(box);
  if (index != 0) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_method(box, value)) return JPX_ERR_INVALID_ARGUMENT;
  release_method(box, env);
  if (value != self->method) self->colour_space = 0;
  self->method = static_cast<uint8_t>(value);
  return JPX_OK;
}

bool is_colour_space(const Box*, uint64_t value) { return colour_space_name(value) != nullptr; }

int32_t set_colour_space(const Field& field, Box* box, Environment*, uint64_t index,
                         uint64_t value) {
  if (index != 0 || !is_enumerated(box)) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, Rules::kStandard)) return JPX_ERR_INVALID_ARGUMENT;
  colr(box)->colour_space = static_cast<uint32_t>(value);
  return JPX_OK;
}

int32_t get_colour_space(const Field&, Box* box, uint64_t index, uint64_t* value) {
  if (index != 0 || !is_enumerated(box)) return JPX_ERR_NO_SUCH_FIELD;
  *value = colr(box)->colour_space;
  return JPX_OK;
}

// Kept for compatibility: EnumCS is never counted, not even under METH 1. Counted, a caller that
// asks for the count would get 0 and 1 where it gets 4.
int32_t no_count(const Field&, Box*, uint64_t*, uint32_t*) { return JPX_ERR_NO_SUCH_FIELD; }

int32_t count_colour_space(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!is_enumerated(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(1, field.width, count, element_size);
}

// The parameters of a colour space, in the order of the format.
struct ParameterSpace {
  uint32_t colour_space;
  uint32_t count;
  uint32_t keys[kMostParameters];
  Parameters ColrBox::*parameters;
};
constexpr ParameterSpace kLab = {
    KV_JPX_ENUMCS_CIELAB,
    7,
    {JPX_FIELD_COLR_RL, JPX_FIELD_COLR_OL, JPX_FIELD_COLR_RA, JPX_FIELD_COLR_OA, JPX_FIELD_COLR_RB,
     JPX_FIELD_COLR_OB, JPX_FIELD_COLR_IL},
    &ColrBox::lab};
constexpr ParameterSpace kJab = {
    KV_JPX_ENUMCS_CIEJAB,
    6,
    {JPX_FIELD_COLR_JAB_RJ, JPX_FIELD_COLR_JAB_OJ, JPX_FIELD_COLR_JAB_RA, JPX_FIELD_COLR_JAB_OA,
     JPX_FIELD_COLR_JAB_RB, JPX_FIELD_COLR_JAB_OB},
    &ColrBox::jab};

uint32_t number_in(const ParameterSpace& space, const Field& field) {
  uint32_t number = 0;
  while (number < space.count && space.keys[number] != field.key) ++number;
  return number;
}

const ParameterSpace& space_of(const Field& field) {
  return number_in(kLab, field) < kLab.count ? kLab : kJab;
}

bool is_live_for(const Box* box, uint32_t colour_space) {
  return is_enumerated(box) && colr(box)->colour_space == colour_space;
}

// The space of the box, if it may have parameters.
const ParameterSpace* live_space(const Box* box) {
  if (is_live_for(box, kLab.colour_space)) return &kLab;
  return is_live_for(box, kJab.colour_space) ? &kJab : nullptr;
}

// Parameters that are given to the live space; 0 for another.
uint32_t parameter_count(const Box* box) {
  const ParameterSpace* const space = live_space(box);
  return space != nullptr && (colr(box)->*space->parameters).are_given ? space->count : 0;
}

// Kept for compatibility: parameters that are set are neither returned nor written. Were they given
// to the box by that, they would change the file.
int32_t set_parameter(const Field& field, Box* box, Environment*, uint64_t index, uint64_t) {
  const bool is_live = is_live_for(box, space_of(field).colour_space);
  return index == 0 && is_live ? JPX_OK : JPX_ERR_NO_SUCH_FIELD;
}
int32_t get_parameter(const Field&, Box*, uint64_t, uint64_t*) { return JPX_ERR_NO_SUCH_FIELD; }

// The first that is given gives the others, too, as zeros: the format has all or none.
int32_t give_parameter(const Field& field, Box* box, Environment*, uint64_t index, uint64_t value) {
  const ParameterSpace& space = space_of(field);
  if (index != 0 || live_space(box) != &space) return JPX_ERR_NO_SUCH_FIELD;
  if (!is_taken(field, box, value, Rules::kStandard)) return JPX_ERR_INVALID_ARGUMENT;
  Parameters& parameters = colr(box)->*space.parameters;
  parameters.are_given = true;
  parameters.numbers[number_in(space, field)] = static_cast<uint32_t>(value);
  return JPX_OK;
}

int32_t get_given_parameter(const Field& field, Box* box, uint64_t index, uint64_t* value) {
  const ParameterSpace& space = space_of(field);
  const Parameters& parameters = colr(box)->*space.parameters;
  if (index != 0 || live_space(box) != &space || !parameters.are_given) {
    return JPX_ERR_NO_SUCH_FIELD;
  }
  *value = parameters.numbers[number_in(space, field)];
  return JPX_OK;
}

int32_t count_parameter(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (live_space(box) != &space_of(field)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(parameter_count(box) != 0 ? 1 : 0, field.width, count, element_size);
}

// To 0: the box has no parameters.
int32_t resize_parameter(const Field& field, Box* box, Environment*, uint64_t count) {
  const ParameterSpace& space = space_of(field);
  if (live_space(box) != &space) return JPX_ERR_NO_SUCH_FIELD;
  if (count > 1) return JPX_ERR_INVALID_ARGUMENT;
  (colr(box)->*space.parameters).are_given = count == 1;
  return JPX_OK;
}

// The bytes that the method has: none for null.
Data* data_of(Box* box) {
  if (has_profile(box)) return &colr(box)->profile;
  return has_vendor_data(box) ? &colr(box)->vendor_data : nullptr;
}

int32_t count_profile(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_profile(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(colr(box)->profile.length, field.width, count, element_size);
}
int32_t count_uuid(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_vendor_data(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(1, field.width, count, element_size);
}
int32_t count_vendor_data(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  if (!has_vendor_data(box)) return JPX_ERR_NO_SUCH_FIELD;
  return report_count(colr(box)->vendor_data.length, field.width, count, element_size);
}

// Bytes that are live under the methods that the test takes.
int32_t set_data(bool is_live, Box* box, Environment* env, const BufferSource& source) {
  if (!is_live) return JPX_ERR_NO_SUCH_FIELD;
  uint64_t size;
  if (!is_valid_source(source, &size) || size > UINT32_MAX) return JPX_ERR_INVALID_ARGUMENT;
  Data* const data = data_of(box);
  discard(data, env);
  data->bytes = static_cast<uint8_t*>(allocate(env, size));
  data->length = static_cast<uint32_t>(size);
  if (size != 0) memcpy(data->bytes, source.data, size);
  return JPX_OK;
}

int32_t get_data(bool is_live, Box* box, Environment* env, const BufferRequest& request) {
  if (!is_live) return JPX_ERR_NO_SUCH_FIELD;
  return copy_out(env, request, data_of(box)->bytes, data_of(box)->length, 1);
}

int32_t set_profile(const Field&, Box* box, Environment* env, const BufferSource& source) {
  return set_data(has_profile(box), box, env, source);
}
int32_t get_profile(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  return get_data(has_profile(box), box, env, request);
}
int32_t set_vendor_data(const Field&, Box* box, Environment* env, const BufferSource& source) {
  return set_data(has_vendor_data(box), box, env, source);
}
int32_t get_vendor_data(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  return get_data(has_vendor_data(box), box, env, request);
}

int32_t set_uuid(const Field&, Box* box, Environment*, const BufferSource& source) {
  if (!has_vendor_data(box) || source.count > 1) return JPX_ERR_NO_SUCH_FIELD;
  if (source.element_size != kUuidSize) return JPX_ERR_INVALID_ARGUMENT;
  if (source.count == 0) return JPX_OK;
  if (source.data == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  memcpy(colr(box)->uuid, source.data, kUuidSize);
  return JPX_OK;
}

// Kept for compatibility: the UUID is handed out as 16 bytes, although it is counted as one entry
// of
// 16. Reported as counted, callers would get 1 and 16 back where they get 16 and 1.
int32_t get_uuid(const Field&, Box* box, Environment* env, const BufferRequest& request) {
  if (!has_vendor_data(box)) return JPX_ERR_NO_SUCH_FIELD;
  return copy_out(env, request, colr(box)->uuid, kUuidSize, 1);
}

constexpr FieldOperations kMethod = {set_method};
constexpr FieldOperations kColourSpace = {set_colour_space, get_colour_space, no_count};
constexpr FieldOperations kCountedColourSpace = {set_colour_space, get_colour_space,
                                                 count_colour_space};
constexpr FieldOperations kParameter = {set_parameter, get_parameter, count_parameter};
constexpr FieldOperations kGivenParameter = {
    give_parameter, get_given_parameter, count_parameter, nullptr, nullptr, resize_parameter};
constexpr FieldOperations kProfile = {nullptr, nullptr, count_profile, set_profile, get_profile};
constexpr FieldOperations kUuidOfVendor = {nullptr, nullptr, count_uuid, set_uuid, get_uuid};
constexpr FieldOperations kVendorData = {nullptr, nullptr, count_vendor_data, set_vendor_data,
                                         get_vendor_data};

constexpr Field kPlainMethod = single(JPX_FIELD_COLR_METH, "METH", 1, member<&ColrBox::method>);
constexpr Field kPrecedence = by_standard(
    single(JPX_FIELD_COLR_PREC, "PREC", 1, member<&ColrBox::precedence>), is_byte_of_either_sign);
constexpr Field kApproximation = by_standard(
    single(JPX_FIELD_COLR_APPROX, "APPROX", 1, member<&ColrBox::approximation>, is_approximation),
    is_approximation_or_none);

constexpr Field colour_space_field(const FieldOperations& operations) {
  Field field = custom_number(JPX_FIELD_COLR_EnumCS, "EnumCS", 4, operations);
  field.check = is_colour_space;
  return field;
}

struct Fields {
  Field rows[20];
};

// With those that the rules differ in.
constexpr Fields colr_fields(const Field& method, const FieldOperations& colour_space,
                             const FieldOperations& parameter) {
  return {{
      method,
      kPrecedence,
      kApproximation,
      colour_space_field(colour_space),
      custom_number(JPX_FIELD_COLR_RL, "RL", 4, parameter),
      custom_number(JPX_FIELD_COLR_OL, "OL", 4, parameter),
      custom_number(JPX_FIELD_COLR_RA, "RA", 4, parameter),
      custom_number(JPX_FIELD_COLR_OA, "OA", 4, parameter),
      custom_number(JPX_FIELD_COLR_RB, "RB", 4, parameter),
      custom_number(JPX_FIELD_COLR_OB, "OB", 4, parameter),
      custom_number(JPX_FIELD_COLR_IL, "IL", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_RJ, "JAB_RJ", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_OJ, "JAB_OJ", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_RA, "JAB_RA", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_OA, "JAB_OA", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_RB, "JAB_RB", 4, parameter),
      custom_number(JPX_FIELD_COLR_JAB_OB, "JAB_OB", 4, parameter),
      bytes_field(JPX_FIELD_COLR_ICC, "ICC", 1, kProfile),
      bytes_field(JPX_FIELD_COLR_UUID, "UUID", kUuidSize, kUuidOfVendor),
      bytes_field(JPX_FIELD_COLR_VENDOR_DATA, "VENDOR_DATA", 1, kVendorData),
  }};
}
constexpr Fields kFields = colr_fields(custom(kPlainMethod, kMethod), kColourSpace, kParameter);
constexpr Fields kStandardFields = colr_fields(kPlainMethod, kCountedColourSpace, kGivenParameter);

uint64_t length_of_method(Box* box) {
  const ColrBox* const self = colr(box);
  if (is_enumerated(box)) return kEnumCsSize + sizeof(uint32_t) * parameter_count(box);
  if (has_profile(box)) return self->profile.length;
  return has_vendor_data(box) ? uint64_t{kUuidSize} + self->vendor_data.length : 0;
}

void render_method(Box* box, Environment* env, Stream* stream) {
  const ColrBox* const self = colr(box);
  if (is_enumerated(box)) {
    bs_write_4_byte_big(env, stream, self->colour_space);
    for (uint32_t i = 0; i < parameter_count(box); ++i) {
      bs_write_4_byte_big(env, stream, (self->*live_space(box)->parameters).numbers[i]);
    }
  }
  if (has_vendor_data(box)) jpx_render_uuid(env, stream, self->uuid);
  if (const Data* data = data_of(box)) bs_write_memcpy(env, stream, data->bytes, data->length);
}

void print_colour_space(const Box* box) {
  const char* const name = colour_space_name(colr(box)->colour_space);
  printf("Enumerated colourspace: %s\n", name != nullptr ? name : "Unknown");
  if (parameter_count(box) != 0) printf("  With %u parameters\n", parameter_count(box));
}

void print_vendor(const ColrBox* self) {
  printf("Vendor Colour profile (UUID:");
  jpx_print_uuid(self->uuid);
  puts(")");
  const uint32_t length = self->vendor_data.length;
  if (length != 0) printf("  With %u-byte parameter data\n", length);
}

// PREC and APPROX are never printed.
void jpx_colr_print(Box* box) {
  print_heading(box);
  switch (colr(box)->method) {
    case KV_JPX_METH_ENUMERATED:
      print_colour_space(box);
      break;
    case KV_JPX_METH_RESTRICTED_ICC:
      puts("Restricted ICC profile");
      break;
    case KV_JPX_METH_ANY_ICC:
      puts("Any ICC profile");
      break;
    case KV_JPX_METH_VENDOR:
      print_vendor(colr(box));
      break;
    default:
      break;
  }
}

// Kept for compatibility: an enumerated space with parameters, or only a part of one, fails the
// load. Without it, files with CIELab parameters would load.
void read_plain_colour_space(Environment* env, Stream* stream, ColrBox* self) {
  const uint64_t left = bytes_left(stream);
  if (left != 0 && left != kEnumCsSize) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  self->colour_space = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
}

// With all parameters, if the space has any and the box has them all.
void read_colour_space(Environment* env, Stream* stream, Box* box) {
  colr(box)->colour_space = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
  const ParameterSpace* const space = live_space(box);
  if (space == nullptr || bytes_left(stream) < space->count * sizeof(uint32_t)) return;
  Parameters& parameters = colr(box)->*space->parameters;
  parameters.are_given = true;
  for (uint32_t i = 0; i < space->count; ++i) {
    parameters.numbers[i] = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
  }
}

void read_bytes(Environment* env, Stream* stream, Box* box) {
  if (has_vendor_data(box)) jpx_read_uuid(env, stream, colr(box)->uuid);
  Data* const data = data_of(box);
  if (data == nullptr) return;
  data->length = static_cast<uint32_t>(bytes_left(stream));
  data->bytes = static_cast<uint8_t*>(allocate(env, data->length));
  bs_read_memcpy(env, stream, data->bytes, data->length);
}

void read_plain_method(Environment* env, Stream* stream, Box* box) {
  if (is_enumerated(box)) read_plain_colour_space(env, stream, colr(box));
  read_bytes(env, stream, box);
}

void read_method(Environment* env, Stream* stream, Box* box) {
  if (is_enumerated(box)) read_colour_space(env, stream, box);
  read_bytes(env, stream, box);
}

}  // namespace

constexpr BoxLayout kColr = box_layout<ColrBox, kFields>(
    code("colr"), jpx_colr_print,
    {length_of_method, render_method, read_plain_method, release_method});
constexpr BoxLayout kStandardColr = box_layout<ColrBox, kStandardFields>(
    code("colr"), jpx_colr_print, {length_of_method, render_method, read_method, release_method});

}  // namespace kvjpx
