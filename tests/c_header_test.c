/* Sets a field and reads it through the public headers alone, as a C99 program. */
#include <stdio.h>

#include "kv_j2k.h"
#include "kvjpx.h"

#ifdef KVJPX_BROKEN_CODEC
/* The only functions of a codec that this program has; they must not be taken for one. */
int32_t kv_j2k_create(void** codec) {
  *codec = stderr;
  return 0;
}
int32_t kv_j2k_destroy(void* codec) { return codec == stderr ? 0 : 2; }
#endif

int main(void) {
  kv_jpx_context* context = NULL;
  uint32_t header = KV_JPX_ROOT, id = KV_JPX_ROOT;
  uint64_t width = 0;
  int32_t failed = kv_jpx_create(&context) != JPX_OK ||
                   kv_jpx_set_input_image(context, "", 0) != JPX_OK ||
                   kv_jpx_add_box(context, KV_JPX_TYPE('j', 'p', '2', 'h'), KV_JPX_ROOT,
                                  KV_JPX_PLACE_FIRST_CHILD, &header) != JPX_OK ||
                   kv_jpx_add_box(context, KV_JPX_TYPE('i', 'h', 'd', 'r'), header,
                                  KV_JPX_PLACE_FIRST_CHILD, &id) != JPX_OK ||
                   kv_jpx_set_box_field_int(context, id, JPX_FIELD_IHDR_WIDTH, 0, 5) != JPX_OK ||
                   kv_jpx_get_box_field_int(context, id, JPX_FIELD_IHDR_WIDTH, 0, &width) != JPX_OK;
#ifdef KVJPX_BROKEN_CODEC
  {
    void* image = NULL;
    uint64_t length = 1;
    failed = failed || kv_jpx_set_output_type(context, 64) != JPX_OK ||
             kv_jpx_get_output_image(context, &image, &length) != JPX_OK || length != 0;
  }
#endif
  failed = kv_jpx_destroy(context) != JPX_OK || failed || width != 5;
  if (failed) fprintf(stderr, "width %lu\n", (unsigned long)width);
  return failed ? 1 : 0;
}
