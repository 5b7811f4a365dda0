// jP, the signature box that opens every file (ISO/IEC 15444-1, I.5.1).
//
//   4 bytes  0D 0A 87 0A
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint8_t kSignature[] = {0x0D, 0x0A, 0x87, 0x0A};

uint64_t length_of_signature(Box*) { return sizeof(kSignature); }

bool reads_signature(Environment* env, Stream* stream) {
  bool matches = true;
  for (const uint8_t byte : kSignature) {
    if (bs_read_1_byte(env, stream) != byte) matches = false;
  }
  return matches;
}

// Where everything is kept, a wrong signature makes the box an opaque one.
void read_signature(Environment* env, Stream* stream, Box*) {
  if (!reads_signature(env, stream)) stream->content_is_bad = 1;
}

void render_signature(Box*, Environment* env, Stream* stream) {
  for (const uint8_t byte : kSignature) bs_write_1_byte(env, stream, byte);
}

}  // namespace

constexpr BoxLayout kJp = {code("jP  "),
                           0,
                           sizeof(Box),
                           {},
                           print_heading,
                           {length_of_signature, render_signature, read_signature},
                           {},
                           {},
                           {},
                           nullptr};

extern "C" {

Box* jpx_make_jP___box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  if (!may_stand(code("jP  "), parent)) return nullptr;
  return make_record(env, sizeof(Box), kParsed, type, parent, id, Typed<kJp>::kOperations);
}

// The signature is judged before the place: a wrong one fails the load wherever it stands.
Box* jpx_read_jP___box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  if (!reads_signature(env, stream)) JPX_ErrorExit(env, JPX_ERR_BAD_SIGNATURE);
  skip_content(env, stream);
  return jpx_make_jP___box(env, type, parent, *counter);
}

}  // extern "C"
}  // namespace kvjpx
