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

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kEnumCsSize = 4;

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

void discard_parameters(ColrBox* self, Environment* env) {
  release(env, self->parameters);
  self->parameter_count = 0;
}

void discard_data(ColrBox* self, Environment* env) {
  release(env, self->data);
  self->data_length = 0;
}

// Kept for compatibility: the UUID outlives a change of method. Emptied like the rest, it would be
// zeros when METH 4 is set again.
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

// Kept for compatibility: EnumCS is never counted, not even under METH 1. Counted, a caller that
// asks for the count would get 0 and 1 where it gets 4.
int32_t no_count(const Field&, Box*, uint64_t*, uint32_t*) { return JPX_ERR_NO_SUCH_FIELD; }

// The parameters of a colour space, in the order of the format.
struct ParameterSpace {
  uint32_t colour_space;
  uint32_t count;
  uint32_t keys[7];
};
constexpr ParameterSpace kLab = {
    KV_JPX_ENUMCS_CIELAB,
    7,
    {JPX_FIELD_COLR_RL, JPX_FIELD_COLR_OL, JPX_FIELD_COLR_RA, JPX_FIELD_COLR_OA, JPX_FIELD_COLR_RB,
     JPX_FIELD_COLR_OB, JPX_FIELD_COLR_IL}};
constexpr ParameterSpace kJab = {
    KV_JPX_ENUMCS_CIEJAB,
    6,
    {JPX_FIELD_COLR_JAB_RJ, JPX_FIELD_COLR_JAB_OJ, JPX_FIELD_COLR_JAB_RA, JPX_FIELD_COLR_JAB_OA,
     JPX_FIELD_COLR_JAB_RB, JPX_FIELD_COLR_JAB_OB}};

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

// Kept for compatibility: the count stays as it is, 0 that is, since no file with parameters loads,
// so parameters that are set are neither returned nor written. Counted, they would change the file.
int32_t set_parameter(const Field& field, Box* box, Environment* env, uint64_t index,
                      uint64_t value) {
  const ParameterSpace& space = space_of(field);
  if (index != 0 || !is_live_for(box, space.colour_space)) return JPX_ERR_NO_SUCH_FIELD;
  ColrBox* const self = colr(box);
  if (self->parameters == nullptr) {
    self->parameters = static_cast<uint32_t*>(allocate_zeroed(env, space.count * sizeof(uint32_t)));
  }
  self->parameters[number_in(space, field)] = static_cast<uint32_t>(value);
  return JPX_OK;
}

// Kept for compatibility: a CIEJab parameter is set under EnumCS 19 but looked for under 14. While
// no box has counted parameters this changes no answer; it decides what one would be asked for.
int32_t get_parameter(const Field& field, Box* box, uint64_t index, uint64_t* value) {
  const ParameterSpace& space = space_of(field);
  const ColrBox* const self = colr(box);
  if (index != 0 || !is_live_for(box, kLab.colour_space) || self->parameter_count != space.count) {
    return JPX_ERR_NO_SUCH_FIELD;
  }
  *value = self->parameters[number_in(space, field)];
  return JPX_OK;
}

int32_t count_parameter(const Field& field, Box* box, uint64_t* count, uint32_t* element_size) {
  const ParameterSpace& space = space_of(field);
  if (!is_live_for(box, space.colour_space)) return JPX_ERR_NO_SUCH_FIELD;
  const bool is_given = colr(box)->parameter_count == space.count;
  return report_count(is_given ? 1 : 0, field.width, count, element_size);
}

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

// Bytes that are live under the methods that the test takes.
int32_t set_data(bool is_live, Box* box, Environment* env, const BufferSource& source) {
  if (!is_live) return JPX_ERR_NO_SUCH_FIELD;
  uint64_t size;
  if (!is_valid_source(source, &size) || size > UINT32_MAX) return JPX_ERR_INVALID_ARGUMENT;
  ColrBox* const self = colr(box);
  discard_data(self, env);
  self->data = static_cast<uint8_t*>(allocate(env, size));
  self->data_length = static_cast<uint32_t>(size);
  if (size != 0) memcpy(self->data, source.data, size);
  return JPX_OK;
}

int32_t get_data(bool is_live, Box* box, Environment* env, const BufferRequest& request) {
  if (!is_live) return JPX_ERR_NO_SUCH_FIELD;
  return copy_out(env, request, colr(box)->data, colr(box)->data_length, 1);
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
constexpr FieldOperations kParameter = {set_parameter, get_parameter, count_parameter};
constexpr FieldOperations kProfile = {nullptr, nullptr, count_profile, set_profile, get_profile};
constexpr FieldOperations kUuidOfVendor = {nullptr, nullptr, count_uuid, set_uuid, get_uuid};
constexpr FieldOperations kVendorData = {nullptr, nullptr, count_vendor_data, set_vendor_data,
                                         get_vendor_data};
constexpr Field kFields[] = {
    custom(single(JPX_FIELD_COLR_METH, "METH", 1, member<&ColrBox::method>), kMethod),
    single(JPX_FIELD_COLR_PREC, "PREC", 1, member<&ColrBox::precedence>),
    single(JPX_FIELD_COLR_APPROX, "APPROX", 1, member<&ColrBox::approximation>, is_approximation),
    custom_number(JPX_FIELD_COLR_EnumCS, "EnumCS", 4, kColourSpace),
    custom_number(JPX_FIELD_COLR_RL, "RL", 4, kParameter),
    custom_number(JPX_FIELD_COLR_OL, "OL", 4, kParameter),
    custom_number(JPX_FIELD_COLR_RA, "RA", 4, kParameter),
    custom_number(JPX_FIELD_COLR_OA, "OA", 4, kParameter),
    custom_number(JPX_FIELD_COLR_RB, "RB", 4, kParameter),
    custom_number(JPX_FIELD_COLR_OB, "OB", 4, kParameter),
    custom_number(JPX_FIELD_COLR_IL, "IL", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_RJ, "JAB_RJ", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_OJ, "JAB_OJ", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_RA, "JAB_RA", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_OA, "JAB_OA", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_RB, "JAB_RB", 4, kParameter),
    custom_number(JPX_FIELD_COLR_JAB_OB, "JAB_OB", 4, kParameter),
    bytes_field(JPX_FIELD_COLR_ICC, "ICC", 1, kProfile),
    bytes_field(JPX_FIELD_COLR_UUID, "UUID", kUuidSize, kUuidOfVendor),
    bytes_field(JPX_FIELD_COLR_VENDOR_DATA, "VENDOR_DATA", 1, kVendorData),
};

uint64_t length_of_method(Box* box) {
  const ColrBox* const self = colr(box);
  if (is_enumerated(box)) return kEnumCsSize + sizeof(uint32_t) * self->parameter_count;
  if (has_profile(box)) return self->data_length;
  return has_vendor_data(box) ? uint64_t{kUuidSize} + self->data_length : 0;
}

void render_method(Box* box, Environment* env, Stream* stream) {
  const ColrBox* const self = colr(box);
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
  print_heading(box);
  switch (colr(box)->method) {
    case KV_JPX_METH_ENUMERATED:
      print_colour_space(colr(box));
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

void release_method(Box* box, Environment* env) {
  discard_parameters(colr(box), env);
  discard_data(colr(box), env);
}

// Kept for compatibility: an enumerated space with parameters, or only a part of one, fails the
// load. Without it, files with CIELab parameters would load.
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

void read_method(Environment* env, Stream* stream, Box* box) {
  ColrBox* const self = colr(box);
  if (is_enumerated(box)) read_colour_space(env, stream, self);
  if (has_vendor_data(box)) jpx_read_uuid(env, stream, self->uuid);
  if (has_profile(box) || has_vendor_data(box)) read_data(env, stream, self);
}

}  // namespace

constexpr BoxLayout kColr =
    box_layout<ColrBox>(code("colr"), kFields, jpx_colr_print,
                        {length_of_method, render_method, read_method, release_method});

}  // namespace kvjpx
