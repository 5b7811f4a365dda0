/* Reads a field through the public headers alone, as a C99 program. */
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

static const unsigned char kFile[] = {
    0,   0,   0,   12,  'j', 'P', ' ', ' ', 0x0D, 0x0A, 0x87, 0x0A, /* signature */
    0,   0,   0,   30,  'j', 'p', '2', 'h', 0,    0,    0,    22,   /* header ... */
    'i', 'h', 'd', 'r', 0,   0,   0,   3,   0,    0,    0,    5,
    0,   1,   7,   7,   0,   0}; /* ... of 5 x 3 samples */

int main(void) {
  kv_jpx_context* context = NULL;
  uint32_t id = KV_JPX_ROOT;
  uint64_t width = 0;
  int32_t failed =
      kv_jpx_create(&context) != JPX_OK ||
      kv_jpx_set_input_image(context, kFile, sizeof(kFile)) != JPX_OK ||
      kv_jpx_get_next_box_id_by_type(context, KV_JPX_TYPE('i', 'h', 'd', 'r'), 0, &id) != JPX_OK ||
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
