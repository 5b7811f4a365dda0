// A stand-in for libkvj2k (see recording_codec.h).
#include "api/recording_codec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kv_j2k.h"

namespace kvjpx::test {
namespace {

struct Instance {
  std::string payload;
  uint64_t region[4];
  int32_t level = 1;
  int32_t flag = 0;
};

RecordingCodec the_codec;

template <class... Numbers>
void note(const char* name, Numbers... numbers) {
  std::string line = name;
  ((line += " " + std::to_string(numbers)), ...);
  the_codec.calls.push_back(line);
}

Instance& of(void* handle) { return *static_cast<Instance*>(handle); }

uint32_t number_at(const std::string& payload, size_t offset, size_t width) {
  return type_code(payload.substr(offset, width));
}

uint64_t reduced(uint64_t from, uint64_t to, uint32_t shift) {
  const uint64_t round = (uint64_t{1} << shift) - 1;
  return ((to + round) >> shift) - ((from + round) >> shift);
}

// The rectangle [max(left, offset), min(right, extent)) of every plane.
std::string raw_planes(const Instance& self) {
  const std::string& p = self.payload;
  const uint32_t shift = self.level >= 2 && self.flag != 1 ? (self.level & 0xFF) - 1 : 0;
  const uint64_t width = reduced(std::max<uint64_t>(self.region[0], number_at(p, 6, 1)),
                                 std::min<uint64_t>(self.region[2], number_at(p, 0, 2)), shift);
  const uint64_t height = reduced(std::max<uint64_t>(self.region[1], number_at(p, 7, 1)),
                                  std::min<uint64_t>(self.region[3], number_at(p, 2, 2)), shift);
  std::string samples;
  for (uint32_t plane = 0; plane < number_at(p, 4, 1); ++plane) {
    samples.append(width * height, static_cast<char>(number_at(p, 5, 1) + plane));
  }
  return samples.substr(0, the_codec.largest_delivery);
}

}  // namespace

RecordingCodec& codec() { return the_codec; }
void reset_codec() { the_codec = RecordingCodec(); }

extern "C" {

int32_t kv_j2k_create(void** handle) {
  note("create");
  if (the_codec.create_fails) return 1;
  *handle = new Instance();
  ++the_codec.instances;
  return 0;
}

int32_t kv_j2k_destroy(void* handle) {
  note("destroy");
  delete static_cast<Instance*>(handle);
  --the_codec.instances;
  return the_codec.answer;
}

int32_t kv_j2k_set_input_image(void* handle, const void* data, uint32_t length) {
  note("input", length);
  of(handle).payload.assign(static_cast<const char*>(data), length);
  return the_codec.answer;
}

int32_t kv_j2k_set_input_image_raw(void*, const void* samples, uint32_t height, uint32_t width,
                                   uint32_t components, uint32_t bits, uint32_t flags) {
  note("raw", height, width, components, bits, flags);
  const size_t size = size_t{height} * width * components;
  if (size != 0) the_codec.final_image.assign(static_cast<const char*>(samples), size);
  return the_codec.answer;
}

int32_t kv_j2k_get_input_image_info(void* handle, uint32_t* width, uint32_t* height,
                                    uint32_t* unused, uint32_t* components) {
  if (the_codec.tells_no_size) return 1;
  const std::string& payload = of(handle).payload;
  *width = number_at(payload, 0, 2);
  *height = number_at(payload, 2, 2);
  *unused = 77;
  *components = number_at(payload, 4, 1);
  return the_codec.answer;
}

int32_t kv_j2k_get_input_j2k_tile_info(void* handle, uint32_t* a, uint32_t* b, uint32_t* c,
                                       uint32_t* d, uint32_t* x_offset, uint32_t* y_offset) {
  const std::string& payload = of(handle).payload;
  note("tile", a == nullptr && b == nullptr && c == nullptr && d == nullptr);
  *x_offset = number_at(payload, 6, 1);
  *y_offset = number_at(payload, 7, 1);
  return the_codec.answer;
}

int32_t kv_j2k_set_input_j2k_region_level(void* handle, uint64_t left, uint64_t top, uint64_t right,
                                          uint64_t bottom) {
  note("region", left, top, right, bottom);
  const uint64_t region[] = {left, top, right, bottom};
  std::copy_n(region, 4, of(handle).region);
  return the_codec.answer;
}

int32_t kv_j2k_set_input_j2k_resolution_level(void* handle, int32_t level, int32_t flag) {
  note("resolution", level, flag);
  of(handle).level = level;
  of(handle).flag = flag;
  return the_codec.answer;
}

int32_t kv_j2k_set_input_j2k_quality_level(void*, int32_t level) {
  note("quality", level);
  return the_codec.answer;
}

int32_t kv_j2k_set_output_type(void*, int32_t type) {
  note("type", type);
  return the_codec.answer;
}

int32_t kv_j2k_get_output_image(void* handle, void** data, uint32_t* length) {
  note("output", *data != nullptr, *length);
  const bool is_query = *data != nullptr && *length == 0;
  const std::string output = *data == nullptr ? raw_planes(of(handle)) : the_codec.final_image;
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
  the_codec.calls.push_back(std::string("file ") + path);
  return the_codec.file_answer;
}

int32_t kv_j2k_free(void*, void* block) {
  note("free", block != nullptr);
  if (block != nullptr) --the_codec.blocks;
  free(block);
  return the_codec.answer;
}

}  // extern "C"
}  // namespace kvjpx::test
