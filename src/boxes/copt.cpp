// copt, the composition options box (ISO/IEC 15444-2, M.11).
//
//   4 HEIGHT, 4 WIDTH, 1 LOOP
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

struct CoptBox : Box {
  uint32_t height;  // of the rendered result
  uint32_t width;
  uint8_t loop;
};

constexpr Field kFields[] = {
    single(JPX_FIELD_COPT_HEIGHT, "HEIGHT", 4, member<&CoptBox::height>, fits_32_bits),
    single(JPX_FIELD_COPT_WIDTH, "WIDTH", 4, member<&CoptBox::width>, fits_32_bits),
    single(JPX_FIELD_COPT_LOOP, "LOOP", 1, member<&CoptBox::loop>, fits_8_bits),
};

void jpx_copt_print(Box* box) {
  const auto* self = static_cast<CoptBox*>(box);
  print_heading(box);
  printf("Rendered result HEIGHT: %u\n", self->height);
  printf("Rendered result WIDTH:  %u\n", self->width);
  if (self->loop == KV_JPX_LOOP_FOREVER) {
    puts("Repetition count: infinite");
  } else {
    printf("Repetition count: %u\n", self->loop);
  }
}

}  // namespace

constexpr BoxLayout kCopt = box_layout<CoptBox, kFields>(code("copt"), jpx_copt_print);

}  // namespace kvjpx
