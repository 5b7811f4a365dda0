// Public functions: version, context, caller's blocks and settings for decoding.
#include <string.h>

#include "api/lookup.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

constexpr uint32_t kVersion = 1000200;
constexpr char kBanner[] = "JPX by Kovra v. 1.0.2 for Win32";
// Kept for compatibility: what an ended query reports and what it then takes differ by one, so a
// caller that offers just the reported size is refused once more. Were they equal, it would
// succeed.
constexpr uint32_t kReportedBannerSize = 32;
constexpr uint32_t kSmallestBannerSize = 33;
static_assert(sizeof(kBanner) == 32, "the banner is copied with its terminating zero");

constexpr int32_t kNoResolutionLevel = -1;
constexpr int32_t kBestQuality = 1;

}  // namespace
}  // namespace kvjpx

using namespace kvjpx;

int32_t kv_jpx_get_library_version(uint32_t* version, char* banner, uint32_t* banner_size) {
  if (version != nullptr) *version = kVersion;
  if (banner == nullptr || banner_size == nullptr) return JPX_OK;
  if (*banner_size < kSmallestBannerSize) {
    *banner_size = kReportedBannerSize;
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  memcpy(banner, kBanner, sizeof(kBanner));
  return JPX_OK;
}

int32_t kv_jpx_create(kv_jpx_context** out) {
  return kv_jpx_create_with_memory_manager(out, nullptr, nullptr, nullptr);
}

int32_t kv_jpx_create_with_memory_manager(kv_jpx_context** out, void* user_data,
                                          void* (*allocate)(void*, size_t),
                                          void (*release)(void*, void*)) {
  if (out == nullptr) return JPX_ERR_MEMORY;
  const MemoryManager manager = {user_data, {}, allocate, release};
  auto* context = static_cast<Context*>(JPX_KovraMalloc(&manager, sizeof(Context)));
  if (context == nullptr) return JPX_ERR_MEMORY;
  memset(context, 0, sizeof(*context));
  Environment* const env = &context->environment;
  env->manager = static_cast<MemoryManager*>(JPX_KovraMalloc(&manager, sizeof(MemoryManager)));
  if (env->manager != nullptr) {
    *env->manager = manager;
    JPX_Kv_StartupCompressionSystem(env);
  }
  if (is_spent(env)) {
    JPX_KovraFree(&manager, env->manager);
    JPX_KovraFree(&manager, context);
    return JPX_ERR_MEMORY;
  }
  context->magic = kContextMagic;
  context->resolution_level = kNoResolutionLevel;
  context->quality_level = kBestQuality;
  context->output_type = KV_JPX_OUTPUT_JPX;
  *out = context;
  return JPX_OK;
}

int32_t kv_jpx_destroy(kv_jpx_context* context) {
  return guarded(context, [](Context& live) -> int32_t {
    Environment* const env = &live.environment;
    destroy_tree(live);
    destroy_stream(env, live.input);
    JPX_Kv_ShutdownCompressionSystem(env);
    const MemoryManager manager = *env->manager;
    live.magic = 0;
    JPX_KovraFree(&manager, env->manager);
    JPX_KovraFree(&manager, &live);
    return JPX_OK;
  });
}

int32_t kv_jpx_register_callbacks(kv_jpx_context* context, void* first, void* second, void* third,
                                  void* fourth, void* fifth) {
  return guarded(context, [&](Context& live) -> int32_t {
    void** const callbacks = live.environment.manager->callbacks;
    callbacks[0] = first;
    callbacks[1] = second;
    callbacks[2] = third;
    callbacks[3] = fourth;
    callbacks[4] = fifth;
    return JPX_OK;
  });
}

int32_t kv_jpx_free(kv_jpx_context* context, void* block) {
  return guarded(context, [&](Context& live) -> int32_t {
    JPX_SafeFreeInternal(&live.environment, block);
    return JPX_OK;
  });
}

int32_t kv_jpx_set_input_jpx_region_level(kv_jpx_context* context, uint64_t left, uint64_t top,
                                          uint64_t right, uint64_t bottom) {
  return guarded(context, [&](Context& live) -> int32_t {
    live.region_left = left;
    live.region_right = right;
    live.region_top = top;
    live.region_bottom = bottom;
    return JPX_OK;
  });
}

int32_t kv_jpx_set_input_jpx_resolution_level(kv_jpx_context* context, int16_t level,
                                              int16_t flag) {
  return guarded(context, [&](Context& live) -> int32_t {
    if (level < 1) return JPX_ERR_INVALID_ARGUMENT;
    live.resolution_level = level;
    live.resolution_flag = flag;
    return JPX_OK;
  });
}

int32_t kv_jpx_set_decode_limits(kv_jpx_context* context, uint64_t max_samples,
                                 uint32_t max_components) {
  return guarded(context, [&](Context& live) -> int32_t {
    live.most_samples = max_samples;
    live.most_components = max_components;
    return JPX_OK;
  });
}

int32_t kv_jpx_set_input_jpx_quality_level(kv_jpx_context* context, int16_t level) {
  return guarded(context, [&](Context& live) -> int32_t {
    if (level < 1) return JPX_ERR_INVALID_ARGUMENT;
    live.quality_level = level;
    return JPX_OK;
  });
}
