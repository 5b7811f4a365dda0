/* Width of a picture, and what the codec says of itself. */
#include <kv_j2k.h>
#include <kvjpx.h>
#include <stdio.h>

int main(int argc, char** argv) {
  kv_jpx_context* context;
  uint32_t header;
  uint64_t width = 0;
  uint64_t length = 0;
  void* samples = NULL;
  if (argc < 2 || kv_jpx_create(&context) != JPX_OK) return 1;
  if (kv_jpx_set_input_image_mapped(context, argv[1]) != JPX_OK) return 1;
  kv_jpx_get_next_box_id_by_type(context, KV_JPX_TYPE('i', 'h', 'd', 'r'), 0, &header);
  kv_jpx_get_box_field_int(context, header, JPX_FIELD_IHDR_WIDTH, 0, &width);
  kv_jpx_set_output_type(context, KV_J2K_OUTPUT_PLANES);
  kv_jpx_get_output_image(context, &samples, &length);
  printf("%d columns, %d bytes\n", (int)width, (int)length);
  return kv_jpx_destroy(context);
}
