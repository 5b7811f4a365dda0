// The codec library as this library imports it: ordinary undefined symbols that libkvj2k.so, or a
// host's own codec in its place, provides.
#ifndef KVJPX_API_CODEC_H_
#define KVJPX_API_CODEC_H_

#include "kv_j2k.h"

// Every function of the codec that decoding calls.
#define KVJPX_CODEC_FUNCTIONS(apply)            \
  apply(kv_j2k_create);                         \
  apply(kv_j2k_destroy);                        \
  apply(kv_j2k_set_input_image);                \
  apply(kv_j2k_set_input_image_raw);            \
  apply(kv_j2k_get_input_image_info);           \
  apply(kv_j2k_get_input_j2k_tile_info);        \
  apply(kv_j2k_set_input_j2k_region_level);     \
  apply(kv_j2k_set_input_j2k_resolution_level); \
  apply(kv_j2k_set_input_j2k_quality_level);    \
  apply(kv_j2k_set_output_type);                \
  apply(kv_j2k_get_output_image);               \
  apply(kv_j2k_get_output_image_file);          \
  apply(kv_j2k_free)

// In a library that is to load without a codec the symbols may stay unresolved, each for itself.
#if defined(KVJPX_RUN_WITHOUT_CODEC)
#define KVJPX_DECLARE_WEAK(function) extern "C" __attribute__((weak)) decltype(function) function
KVJPX_CODEC_FUNCTIONS(KVJPX_DECLARE_WEAK);
#undef KVJPX_DECLARE_WEAK
#endif

namespace kvjpx {

// A codec with functions missing is none.
inline bool has_codec() {
#if defined(KVJPX_RUN_WITHOUT_CODEC)
#define KVJPX_TEST_FUNCTION(function) \
  if (&(function) == nullptr) return false
  KVJPX_CODEC_FUNCTIONS(KVJPX_TEST_FUNCTION);
#undef KVJPX_TEST_FUNCTION
#endif
  return true;
}

}  // namespace kvjpx

#endif  // KVJPX_API_CODEC_H_
