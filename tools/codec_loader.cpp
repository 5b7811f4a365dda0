// Stands in for the codec's functions and passes the calls on.
#include "codec_loader.h"

#include <dlfcn.h>

#include "failure.h"
#include "kv_j2k.h"

namespace kvjpx_tool {
namespace {

struct Codec {
  decltype(&kv_j2k_create) create;
  decltype(&kv_j2k_destroy) destroy;
  decltype(&kv_j2k_set_input_image) set_input_image;
  decltype(&kv_j2k_set_input_image_raw) set_input_image_raw;
  decltype(&kv_j2k_get_input_image_info) get_input_image_info;
  decltype(&kv_j2k_get_input_j2k_tile_info) get_input_j2k_tile_info;
  decltype(&kv_j2k_set_input_j2k_region_level) set_region_level;
  decltype(&kv_j2k_set_input_j2k_resolution_level) set_resolution_level;
  decltype(&kv_j2k_set_input_j2k_quality_level) set_quality_level;
  decltype(&kv_j2k_set_output_type) set_output_type;
  decltype(&kv_j2k_get_output_image) get_output_image;
  decltype(&kv_j2k_get_output_image_file) get_output_image_file;
  decltype(&kv_j2k_free) free;
  // Not every codec explains itself; null then.
  decltype(&kv_j2k_get_error_text) get_error_text;
};

const char kLibraryName[] = "libkvj2k.so";

Codec codec;
DecodingRecord record;
// The codestream in hand has been counted as failed, or there is none in hand any more.
bool is_accounted_for = true;

Failure no_codec() {
  const char* reason = dlerror();
  return Failure(kNothingDecoded,
                 std::string("decoding needs the codec ") + kLibraryName +
                     ", which cannot be used: " + (reason ? reason : "unknown reason"));
}

template <typename Function>
void find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (!function) throw no_codec();
}

void remember_error(void* handle) {
  if (codec.get_error_text) record.error = codec.get_error_text(handle);
}

}  // namespace

void load_codec() {
  void* library = dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
  if (!library) throw no_codec();
  find(library, "kv_j2k_create", codec.create);
  find(library, "kv_j2k_destroy", codec.destroy);
  find(library, "kv_j2k_set_input_image", codec.set_input_image);
  find(library, "kv_j2k_set_input_image_raw", codec.set_input_image_raw);
  find(library, "kv_j2k_get_input_image_info", codec.get_input_image_info);
  find(library, "kv_j2k_get_input_j2k_tile_info", codec.get_input_j2k_tile_info);
  find(library, "kv_j2k_set_input_j2k_region_level", codec.set_region_level);
  find(library, "kv_j2k_set_input_j2k_resolution_level", codec.set_resolution_level);
  find(library, "kv_j2k_set_input_j2k_quality_level", codec.set_quality_level);
  find(library, "kv_j2k_set_output_type", codec.set_output_type);
  find(library, "kv_j2k_get_output_image", codec.get_output_image);
  find(library, "kv_j2k_get_output_image_file", codec.get_output_image_file);
  find(library, "kv_j2k_free", codec.free);
  codec.get_error_text =
      reinterpret_cast<decltype(codec.get_error_text)>(dlsym(library, "kv_j2k_get_error_text"));
}

const DecodingRecord& decoding_record() { return record; }

}  // namespace kvjpx_tool

// The library calls these while it decodes, which happens only after load_codec.
using kvjpx_tool::codec;
using kvjpx_tool::is_accounted_for;
using kvjpx_tool::record;

int32_t kv_j2k_create(void** handle) { return codec.create(handle); }

int32_t kv_j2k_destroy(void* handle) { return codec.destroy(handle); }

int32_t kv_j2k_set_input_image(void* handle, const void* data, uint32_t length) {
  const int32_t code = codec.set_input_image(handle, data, length);
  is_accounted_for = code != KV_J2K_OK;
  if (code != KV_J2K_OK) {
    ++record.failed;
    kvjpx_tool::remember_error(handle);
  }
  return code;
}

int32_t kv_j2k_set_input_image_raw(void* handle, const void* samples, uint32_t height,
                                   uint32_t width, uint32_t components, uint32_t reserved1,
                                   uint32_t reserved2) {
  is_accounted_for = true;
  return codec.set_input_image_raw(handle, samples, height, width, components, reserved1,
                                   reserved2);
}

int32_t kv_j2k_get_input_image_info(void* handle, uint32_t* width, uint32_t* height,
                                    uint32_t* reserved, uint32_t* components) {
  return codec.get_input_image_info(handle, width, height, reserved, components);
}

int32_t kv_j2k_get_input_j2k_tile_info(void* handle, uint32_t* tile_width, uint32_t* tile_height,
                                       uint32_t* tiles_across, uint32_t* tiles_down,
                                       uint32_t* x_offset, uint32_t* y_offset) {
  return codec.get_input_j2k_tile_info(handle, tile_width, tile_height, tiles_across, tiles_down,
                                       x_offset, y_offset);
}

int32_t kv_j2k_set_input_j2k_region_level(void* handle, uint64_t left, uint64_t top, uint64_t right,
                                          uint64_t bottom) {
  return codec.set_region_level(handle, left, top, right, bottom);
}

int32_t kv_j2k_set_input_j2k_resolution_level(void* handle, int32_t level, int32_t flag) {
  return codec.set_resolution_level(handle, level, flag);
}

int32_t kv_j2k_set_input_j2k_quality_level(void* handle, int32_t level) {
  return codec.set_quality_level(handle, level);
}

int32_t kv_j2k_set_output_type(void* handle, int32_t type) {
  return codec.set_output_type(handle, type);
}

int32_t kv_j2k_get_output_image(void* handle, void** data, uint32_t* length) {
  const int32_t code = codec.get_output_image(handle, data, length);
  if (code != KV_J2K_OK) kvjpx_tool::remember_error(handle);
  if (!is_accounted_for) {
    const bool is_delivered = code == KV_J2K_OK && *length > 0;
    ++(is_delivered ? record.delivered : record.failed);
    is_accounted_for = true;
  }
  return code;
}

int32_t kv_j2k_get_output_image_file(void* handle, const char* path) {
  return codec.get_output_image_file(handle, path);
}

int32_t kv_j2k_free(void* handle, void* block) { return codec.free(handle, block); }
