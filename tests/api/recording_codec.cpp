// A stand-in for libkvj2k (see recording_codec.h).
#include "api/recording_codec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kv_j2k.h"
#include "support/bytes.h"

namespace kvjpx::test {
namespace {

RecordingCodec the_codec;

template <class... Arguments>
int32_t note(Arguments... call) {
  the_codec.calls.push_back(spaced(call...));
  return the_codec.answer;
}

Picture& of(void* handle) { return *static_cast<Picture*>(handle); }

}  // namespace

RecordingCodec& codec() { return the_codec; }

extern "C" {

int32_t kv_j2k_create(void** handle) {
  note("create");
  if (the_codec.create_fails) return 1;
  *handle = new Picture();
  ++the_codec.instances;
  return 0;
}

int32_t kv_j2k_destroy(void* handle) {
  delete &of(handle);
  --the_codec.instances;
  return note("destroy");
}

int32_t kv_j2k_set_input_image(void* handle, const void* data, uint32_t length) {
  memcpy(&of(handle), data, std::min(sizeof(Picture), size_t{length}));
  return note("input", length);
}

int32_t kv_j2k_set_input_image_raw(void*, const void* samples, uint32_t height, uint32_t width,
                                   uint32_t components, uint32_t bits, uint32_t flags) {
  const size_t size = size_t{height} * width * components;
  if (size != 0) the_codec.final_image.assign(static_cast<const char*>(samples), size);
  return note("raw", height, width, components, bits, flags);
}

int32_t kv_j2k_get_input_image_info(void* handle, uint32_t* width, uint32_t* height,
                                    uint32_t* unused, uint32_t* components) {
  if (the_codec.tells_no_size) return 1;
  *width = of(handle).width;
  *height = of(handle).height;
  *unused = 77;
  *components = of(handle).components;
  return the_codec.answer;
}

int32_t kv_j2k_get_input_j2k_tile_info(void* handle, uint32_t* a, uint32_t* b, uint32_t* c,
                                       uint32_t* d, uint32_t* x_offset, uint32_t* y_offset) {
  *x_offset = of(handle).x_offset;
  *y_offset = of(handle).y_offset;
  return note("tile", a == nullptr && b == nullptr && c == nullptr && d == nullptr);
}

int32_t kv_j2k_set_input_j2k_region_level(void*, uint64_t left, uint64_t top, uint64_t right,
                                          uint64_t bottom) {
  return note("region", left, top, right, bottom);
}

int32_t kv_j2k_set_input_j2k_resolution_level(void*, int32_t level, int32_t flag) {
  return note("resolution", level, flag);
}

int32_t kv_j2k_set_input_j2k_quality_level(void*, int32_t level) { return note("quality", level); }

int32_t kv_j2k_set_output_type(void*, int32_t type) { return note("type", type); }

int32_t kv_j2k_get_output_image(void* handle, void** data, uint32_t* length) {
  const bool is_query = *data != nullptr && *length == 0;
  note("output", *data != nullptr, *length);
  const std::string raw(the_codec.delivery, static_cast<char>(of(handle).value));
  const std::string& output = *data == nullptr ? raw : the_codec.final_image;
  *length = the_codec.delivers_nothing ? 0 : static_cast<uint32_t>(output.size());
  if (is_query || the_codec.delivers_nothing) return the_codec.answer;
  if (*data == nullptr) {
    *data = malloc(output.size() + 1);
    ++the_codec.blocks;
  }
  memcpy(*data, output.data(), output.size());
  return the_codec.answer;
}

int32_t kv_j2k_get_output_image_file(void*, const char* path) {
  note("file", path);
  return the_codec.file_answer;
}

int32_t kv_j2k_free(void*, void* block) {
  if (block != nullptr) --the_codec.blocks;
  free(block);
  return note("free", block != nullptr);
}

}  // extern "C"
}  // namespace kvjpx::test
