// url , the data entry URL box (ISO/IEC 15444-1, I.7.3.2).
//
//   1 VERS, 3 FLAG, then LOC, to the end
//
// The location is kept like the payload of an opaque box.
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint32_t kFlagSize = 3;

struct UrlBox : BasicBox {
  uint8_t version;
  uint32_t flags;  // 24 bits
};

UrlBox* url(Box* box) { return static_cast<UrlBox*>(box); }

// Kept for compatibility: the standard allows 0 only, in both; a value passes by its low byte and
// is stored as 0. Judged as a whole, values such as 256 would be refused.
bool has_zero_low_byte(const Box*, uint64_t value) { return (value & 0xFF) == 0; }

void store_no_version(void* record, uint64_t) { static_cast<UrlBox*>(record)->version = 0; }
void store_no_flags(void* record, uint64_t) { static_cast<UrlBox*>(record)->flags = 0; }

constexpr Field kLocation =
    bytes_field(JPX_FIELD_URL_LOC, "LOC", 1,
                {nullptr, nullptr, count_payload, set_payload, get_opaque_payload});
constexpr Field kFields[] = {
    stored_as(single(JPX_FIELD_URL_VERS, "VERS", 1,
                     {member<&UrlBox::version>.load, store_no_version}, has_zero_low_byte),
              1, member<&UrlBox::version>),
    stored_apart(single(JPX_FIELD_URL_FLAG, "FLAG", kFlagSize,
                        {member<&UrlBox::flags>.load, store_no_flags}, has_zero_low_byte)),
    kLocation,
};

bool is_zero(const Box*, uint64_t value) { return value == 0; }
constexpr Field kStandardFields[] = {
    single(JPX_FIELD_URL_VERS, "VERS", 1, member<&UrlBox::version>, is_zero),
    single(JPX_FIELD_URL_FLAG, "FLAG", kFlagSize, member<&UrlBox::flags>, is_zero),
    kLocation,
};

uint64_t length_of_rest(Box* box) { return kFlagSize + payload_length(box); }

void render_rest(Box* box, Environment* env, Stream* stream) {
  bs_write_n_byte(env, stream, url(box)->flags, kFlagSize, 0);
  render_payload(box, env, stream);
}

// In two numbers: of flags that are cut short, the byte that is there counts and the rest is 0.
void read_rest(Environment* env, Stream* stream, Box* box) {
  const uint64_t high = bs_read_1_byte(env, stream);
  url(box)->flags = static_cast<uint32_t>(high << 16 | bs_read_2_byte_big(env, stream));
  jpx_read_basic_box_data(env, stream, box);
}

void jpx_url_print(Box* box) {
  printf("url_ box length %llu\n", printable(box->box_length(box)));
  printf("version: %u\n", url(box)->version);
  printf("flag: %u\n", url(box)->flags);
  printf("URL of length %llu\n", printable(url(box)->payload_length));
}

}  // namespace

constexpr BoxLayout kUrl = box_layout<UrlBox, kFields>(
    code("url "), jpx_url_print, {length_of_rest, render_rest, read_rest, release_payload});
constexpr BoxLayout kStandardUrl = box_layout<UrlBox, kStandardFields>(
    code("url "), jpx_url_print,
    {payload_length, render_payload, jpx_read_basic_box_data, release_payload});

}  // namespace kvjpx
