// Stands in for the codec's functions and passes the calls on.
#include "codec_loader.h"

#include <dlfcn.h>

#include <algorithm>

#include "failure.h"
#include "kv_j2k_samples.h"

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
  // Not every codec explains and limits itself; these may be null.
  decltype(&kv_j2k_get_error_text) get_error_text;
  decltype(&kv_j2k_set_limits) set_limits;
  decltype(&kv_j2k_get_work) get_work;
  // The interface of kv_j2k_samples.h.
  decltype(&kv_j2k_set_input_borrowed) set_input_borrowed;
  decltype(&kv_j2k_get_codestream) get_codestream;
  decltype(&kv_j2k_get_component) get_component;
  decltype(&kv_j2k_decode_samples) decode_samples;
  decltype(&kv_j2k_free_samples) free_samples;
};

const char kLibraryName[] = "libkvj2k.so";

Codec codec;
DecodingLimit limit;
uint64_t work = 0;  // done for this file
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

template <typename Function>
void find_optional(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
}

void* open_library() {
  void* library = dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
  if (!library) throw no_codec();
  return library;
}

// From then on the codec gets and delivers nothing: without limit or memory for everything, a
// picture of something would not be what the file says, nor the same the next time.
void stop(int32_t code) { record.stopped_by = code; }

int32_t note_result(void* handle, int32_t code) {
  if (code == KV_J2K_OK) return code;
  if (codec.get_error_text) record.error = codec.get_error_text(handle);
  if (code == KV_J2K_ERR_LIMIT || code == KV_J2K_ERR_MEMORY) stop(code);
  return code;
}

void grant_the_rest(void* handle) {
  const uint64_t rest = limit.work - work;
  // No work at all cannot be granted: 0 stands for the codec's own limit.
  if (codec.set_limits) {
    codec.set_limits(handle, std::max<uint64_t>(rest, 1), 0,
                     std::clamp<uint64_t>(limit.free, 1, std::max<uint64_t>(rest, 1)));
  }
}

void count_work(void* handle) {
  uint64_t done = 0;
  if (codec.get_work && codec.get_work(handle, &done) == KV_J2K_OK) {
    work += std::min(done, limit.work - work);
  }
}

}  // namespace

namespace {

bool find_sample_functions() {
  void* library = open_library();
  find(library, "kv_j2k_create", codec.create);
  find(library, "kv_j2k_destroy", codec.destroy);
  find_optional(library, "kv_j2k_get_error_text", codec.get_error_text);
  find_optional(library, "kv_j2k_set_limits", codec.set_limits);
  find_optional(library, "kv_j2k_get_work", codec.get_work);
  find(library, "kv_j2k_set_input_borrowed", codec.set_input_borrowed);
  find(library, "kv_j2k_get_codestream", codec.get_codestream);
  find(library, "kv_j2k_get_component", codec.get_component);
  find(library, "kv_j2k_decode_samples", codec.decode_samples);
  find(library, "kv_j2k_free_samples", codec.free_samples);
  return true;
}

}  // namespace

void load_sample_codec() {
  // By one thread; where it fails, the next one tries again.
  [[maybe_unused]] static const bool is_loaded = find_sample_functions();
}

void load_codec(const DecodingLimit& limit_of_file) {
  limit = limit_of_file;
  void* library = open_library();
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
  find_optional(library, "kv_j2k_get_error_text", codec.get_error_text);
  find_optional(library, "kv_j2k_set_limits", codec.set_limits);
  find_optional(library, "kv_j2k_get_work", codec.get_work);
}

const DecodingRecord& decoding_record() { return record; }

}  // namespace kvjpx_tool

// The library and picture/ call these while they decode, which happens only after one of the loads.
using kvjpx_tool::codec;
using kvjpx_tool::is_accounted_for;
using kvjpx_tool::limit;
using kvjpx_tool::note_result;
using kvjpx_tool::record;

int32_t kv_j2k_create(void** handle) {
  const int32_t code = codec.create(handle);
  // Without a limit nothing is recorded: other threads may be at it.
  if (code == KV_J2K_ERR_MEMORY && limit.work != 0) kvjpx_tool::stop(code);
  return code;
}

int32_t kv_j2k_destroy(void* handle) { return codec.destroy(handle); }

int32_t kv_j2k_set_input_image(void* handle, const void* data, uint32_t length) {
  if (record.stopped_by != KV_J2K_OK) return record.stopped_by;
  kvjpx_tool::grant_the_rest(handle);
  const int32_t code = note_result(handle, codec.set_input_image(handle, data, length));
  is_accounted_for = code != KV_J2K_OK;
  if (code != KV_J2K_OK) ++record.failed;
  return code;
}

int32_t kv_j2k_set_input_image_raw(void* handle, const void* samples, uint32_t height,
                                   uint32_t width, uint32_t components, uint32_t reserved1,
                                   uint32_t reserved2) {
  if (record.stopped_by != KV_J2K_OK) return record.stopped_by;
  is_accounted_for = true;
  return note_result(handle, codec.set_input_image_raw(handle, samples, height, width, components,
                                                       reserved1, reserved2));
}

int32_t kv_j2k_get_input_image_info(void* handle, uint32_t* width, uint32_t* height,
                                    uint32_t* reserved, uint32_t* components) {
  const int32_t code = codec.get_input_image_info(handle, width, height, reserved, components);
  if (code == KV_J2K_OK && limit.plane_size != 0 && *components > limit.work / limit.plane_size) {
    kvjpx_tool::stop(KV_J2K_ERR_LIMIT);
    *components = 0;  // so that the library makes no planes for them
  }
  return code;
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
  if (record.stopped_by != KV_J2K_OK) {
    *length = 0;
    return record.stopped_by;
  }
  const int32_t code = note_result(handle, codec.get_output_image(handle, data, length));
  if (!is_accounted_for) {
    kvjpx_tool::count_work(handle);
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

const char* kv_j2k_get_error_text(void* handle) {
  return codec.get_error_text ? codec.get_error_text(handle) : "";
}

int32_t kv_j2k_set_limits(void* handle, uint64_t max, uint64_t max_per_byte, uint64_t free) {
  return codec.set_limits ? codec.set_limits(handle, max, max_per_byte, free) : KV_J2K_OK;
}

int32_t kv_j2k_get_work(void* handle, uint64_t* work) {
  return codec.get_work ? codec.get_work(handle, work) : KV_J2K_ERR_INVALID_ARGUMENT;
}

int32_t kv_j2k_set_input_borrowed(void* handle, const void* data, uint64_t length) {
  return codec.set_input_borrowed(handle, data, length);
}

int32_t kv_j2k_get_codestream(void* handle, kv_j2k_codestream* out) {
  return codec.get_codestream(handle, out);
}

int32_t kv_j2k_get_component(void* handle, uint32_t index, kv_j2k_component* out) {
  return codec.get_component(handle, index, out);
}

int32_t kv_j2k_decode_samples(void* handle, const kv_j2k_sample_request* request,
                              kv_j2k_samples** samples) {
  return codec.decode_samples(handle, request, samples);
}

void kv_j2k_free_samples(kv_j2k_samples* samples) { codec.free_samples(samples); }
