/* A stand-in for libkvj2k.so that takes its time and fails. */
#include <unistd.h>

int kv_j2k_create(void** handle) {
  *handle = handle;
  return 0;
}

int kv_j2k_set_input_borrowed(void) {
  usleep(1300000);
  return 99;
}

#define FAILING(name) \
  int kv_j2k_##name(void) { return 99; }
FAILING(decode_samples)
FAILING(destroy)
FAILING(free)
FAILING(free_samples)
FAILING(get_codestream)
FAILING(get_component)
FAILING(get_input_image_info)
FAILING(get_input_j2k_tile_info)
FAILING(get_output_image)
FAILING(get_output_image_file)
FAILING(set_input_image)
FAILING(set_input_image_raw)
FAILING(set_input_j2k_quality_level)
FAILING(set_input_j2k_region_level)
FAILING(set_input_j2k_resolution_level)
FAILING(set_output_type)
