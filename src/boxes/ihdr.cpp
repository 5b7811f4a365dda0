// ihdr, the image header box (ISO/IEC 15444-1, I.5.3.1).
//
//   4 HEIGHT, 4 WIDTH, 2 NC, 1 BPC, 1 C, 1 UnkC, 1 IPR
//
// Reading judges nothing, so that a file with a strange header can be shown and mended; setting
// does.
#include <stdio.h>

#include "boxes/bit_depth.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint64_t kMaxComponents = 16384;

struct IhdrBox : Box {
  uint32_t height;
  uint32_t width;
  uint16_t components;
  uint8_t bit_depth;
  uint8_t compression;
  uint8_t unknown_colourspace;
  uint8_t property_rights;
};

bool is_component_count(const Box*, uint64_t value) {
  return value >= 1 && value <= kMaxComponents;
}

bool is_jpeg2000(const Box*, uint64_t value) { return value == KV_JPX_C_JPEG2000; }

// ISO/IEC 15444-2 knows more of them.
bool is_compression(const Box*, uint64_t value) { return value <= KV_JPX_C_JBIG; }

// HEIGHT and WIDTH are tested in full and stored as their low 32 bits.
constexpr Field kFields[] = {
    single(JPX_FIELD_IHDR_HEIGHT, "HEIGHT", 4, member<&IhdrBox::height>, is_nonzero),
    single(JPX_FIELD_IHDR_WIDTH, "WIDTH", 4, member<&IhdrBox::width>, is_nonzero),
    single(JPX_FIELD_IHDR_NC, "NC", 2, member<&IhdrBox::components>, is_component_count),
    single(JPX_FIELD_IHDR_BPC, "BPC", 1, member<&IhdrBox::bit_depth>, is_bit_depth),
    by_standard(single(JPX_FIELD_IHDR_C, "C", 1, member<&IhdrBox::compression>, is_jpeg2000),
                is_compression),
    single(JPX_FIELD_IHDR_UnkC, "UnkC", 1, member<&IhdrBox::unknown_colourspace>, is_flag),
    single(JPX_FIELD_IHDR_IPR, "IPR", 1, member<&IhdrBox::property_rights>, is_flag),
};

const char* compression_name(uint8_t compression) {
  static const char* const kNames[] = {
      "uncompressed",
      "ITU-T Rec. T.4 (Modified Huffman)",
      "ITU-T Rec. T.4 (Modified READ)",
      "ITU-T Rec. T.6 (Modified Modified READ)",
      "ITU-T Rec.T.82|ISO/IEC 11544 (JBIG, bi-level images)",
      "ITU-T Rec.T.81|ISO/IEC 10918-1 or ITU-T Rec.T.84|ISO/IEC 10918-3 (JPEG)",
      "JPEG-LS",
      "ITU-T Rec.T.800|ISO/IEC 15444-1 (JPEG 2000)",
      "JBIG2",
      "ITU-T Rec.T.82|ISO/IEC 11544 (JBIG, any image)",
  };
  constexpr size_t kCount = sizeof(kNames) / sizeof(kNames[0]);
  return compression < kCount ? kNames[compression] : "Unknown";
}

const char* colourspace_text(uint8_t unknown_colourspace) {
  switch (unknown_colourspace) {
    case 0:
      return "Colourspace is known and correctly specified in image";
    case 1:
      return "Colourspace is not known";
    default:
      return "Unknown value for UnkC";
  }
}

void jpx_ihdr_print(Box* box) {
  const auto* self = static_cast<IhdrBox*>(box);
  print_heading(box);
  printf("HEIGHT: %u\n", self->height);
  printf("WIDTH: %u\n", self->width);
  printf("NC: %u\n", self->components);
  if (self->bit_depth == KV_JPX_BPC_VARIES) {
    puts("BPC: bitdepth varies");
  } else {
    printf("BPC: %u%s\n", depth_of(self->bit_depth), sign_text(self->bit_depth));
  }
  printf("Compression type: %s\n", compression_name(self->compression));
  puts(colourspace_text(self->unknown_colourspace));
  puts(self->property_rights == 0 ? "IPR not present in image" : "IPR present in image");
}

}  // namespace

constexpr BoxLayout kIhdr = box_layout<IhdrBox, kFields>(code("ihdr"), jpx_ihdr_print);

}  // namespace kvjpx
