// The codec library as this library imports it: ordinary undefined symbols that libkvj2k.so, or a
// host's own codec in its place, provides. Every function returns 0 for success.
#ifndef KVJPX_API_CODEC_H_
#define KVJPX_API_CODEC_H_

#include <stdint.h>

// In a build without the codec the symbols may stay unresolved; has_codec then says so.
#if defined(KVJPX_CODEC_IS_OPTIONAL)
#define KVJPX_IMPORT __attribute__((weak))
#else
#define KVJPX_IMPORT
#endif

extern "C" {

KVJPX_IMPORT int32_t kv_j2k_create(void** codec);
KVJPX_IMPORT int32_t kv_j2k_destroy(void* codec);
KVJPX_IMPORT int32_t kv_j2k_set_input_image(void* codec, const void* data, uint32_t length);
KVJPX_IMPORT int32_t kv_j2k_set_input_image_raw(void* codec, const void* samples, uint32_t height,
                                                uint32_t width, uint32_t components, uint32_t,
                                                uint32_t);
KVJPX_IMPORT int32_t kv_j2k_get_input_image_info(void* codec, uint32_t* width, uint32_t* height,
                                                 uint32_t* unused, uint32_t* components);
KVJPX_IMPORT int32_t kv_j2k_get_input_j2k_tile_info(void* codec, uint32_t*, uint32_t*, uint32_t*,
                                                    uint32_t*, uint32_t* x_offset,
                                                    uint32_t* y_offset);
KVJPX_IMPORT int32_t kv_j2k_set_input_j2k_region_level(void* codec, uint64_t left, uint64_t top,
                                                       uint64_t right, uint64_t bottom);
KVJPX_IMPORT int32_t kv_j2k_set_input_j2k_resolution_level(void* codec, int32_t level,
                                                           int32_t flag);
KVJPX_IMPORT int32_t kv_j2k_set_input_j2k_quality_level(void* codec, int32_t level);
KVJPX_IMPORT int32_t kv_j2k_set_output_type(void* codec, int32_t type);
KVJPX_IMPORT int32_t kv_j2k_get_output_image(void* codec, void** data, uint32_t* length);
KVJPX_IMPORT int32_t kv_j2k_get_output_image_file(void* codec, const char* path);
KVJPX_IMPORT int32_t kv_j2k_free(void* codec, void* block);

}  // extern "C"

namespace kvjpx {

inline bool has_codec() {
#if defined(KVJPX_CODEC_IS_OPTIONAL)
  return &kv_j2k_create != nullptr;
#else
  return true;
#endif
}

}  // namespace kvjpx

#endif  // KVJPX_API_CODEC_H_
