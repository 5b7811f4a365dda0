// JPEG through libjpeg, into memory.

// jpeglib.h expects <cstdio> before it.
// clang-format off
#include <cstdio>
#include <jerror.h>
#include <jpeglib.h>
// clang-format on

#include <csetjmp>
#include <new>
#include <string>
#include <utility>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

constexpr int kQuality = 95;
constexpr size_t kFirstSize = 1 << 16;

// libjpeg leaves its functions by longjmp, and only through functions that own nothing.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf target;
  char text[JMSG_LENGTH_MAX];
};

[[noreturn]] void leave(j_common_ptr jpeg) {
  auto* errors = reinterpret_cast<ErrorManager*>(jpeg->err);
  errors->base.format_message(jpeg, errors->text);
  std::longjmp(errors->target, 1);
}

void ignore_message(j_common_ptr) {}

// Grows as libjpeg fills it. (After a failure libjpeg's own memory target does not tell which block
// is to be released.)
struct Destination {
  jpeg_destination_mgr base;
  Bytes bytes;
};

Destination& destination_of(j_compress_ptr jpeg) {
  return *reinterpret_cast<Destination*>(jpeg->dest);
}

bool resize(Bytes& bytes, size_t size) {
  try {
    bytes.resize(size);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void offer_space(j_compress_ptr jpeg, size_t used, size_t size) {
  Destination& destination = destination_of(jpeg);
  if (!resize(destination.bytes, size)) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
  destination.base.next_output_byte = destination.bytes.data() + used;
  destination.base.free_in_buffer = size - used;
}

void begin_output(j_compress_ptr jpeg) { offer_space(jpeg, 0, kFirstSize); }

// Called when all of the space is used, whatever libjpeg's own counters say then.
boolean continue_output(j_compress_ptr jpeg) {
  const size_t used = destination_of(jpeg).bytes.size();
  offer_space(jpeg, used, used * 2);
  return TRUE;
}

void end_output(j_compress_ptr jpeg) {
  Destination& destination = destination_of(jpeg);
  destination.bytes.resize(destination.bytes.size() - destination.base.free_in_buffer);
}

void set_up(jpeg_compress_struct& jpeg, const Image& image) {
  jpeg.image_width = image.width;
  jpeg.image_height = image.height;
  jpeg.input_components = static_cast<int>(image.components);
  jpeg.in_color_space = image.components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, kQuality, TRUE);
  for (int i = 0; i < jpeg.num_components; ++i) {
    jpeg.comp_info[i].h_samp_factor = 1;
    jpeg.comp_info[i].v_samp_factor = 1;
  }
}

// Returns whether the picture was written. The caller releases the compressor.
bool compress(jpeg_compress_struct& jpeg, ErrorManager& errors, Destination& destination,
              const Image& image, uint8_t* row) {
  if (setjmp(errors.target) != 0) return false;
  jpeg_create_compress(&jpeg);
  jpeg.dest = &destination.base;
  set_up(jpeg, image);
  jpeg_start_compress(&jpeg, TRUE);
  while (jpeg.next_scanline < jpeg.image_height) {
    interleave_row(image, jpeg.next_scanline, row);
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  return true;
}

}  // namespace

Bytes write_jpeg(const Image& image) {
  if (image.components != 1 && image.components != 3) refuse_components(image, "JPEG");
  require_size(image, JPEG_MAX_DIMENSION, "JPEG");

  ErrorManager errors = {};
  jpeg_compress_struct jpeg = {};
  jpeg.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = &leave;
  errors.base.output_message = &ignore_message;
  Destination destination = {};
  destination.base.init_destination = &begin_output;
  destination.base.empty_output_buffer = &continue_output;
  destination.base.term_destination = &end_output;

  Bytes row(size_t{image.width} * image.components);
  const bool is_written = compress(jpeg, errors, destination, image, row.data());
  jpeg_destroy_compress(&jpeg);
  if (!is_written && errors.base.msg_code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
  if (!is_written) throw Failure(KV_J2K_ERR_UNSUPPORTED, std::string("JPEG: ") + errors.text);
  return std::move(destination.bytes);
}

}  // namespace kvj2k
