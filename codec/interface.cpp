// The exported functions of kv_j2k.h.
#include <openjpeg.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "failure.h"
#include "file_writer.h"
#include "guarded.h"
#include "kv_j2k.h"
#include "session.h"

using kvj2k::Bytes;
using kvj2k::Failure;
using kvj2k::guarded;
using kvj2k::Limits;
using kvj2k::Session;
using kvj2k::session_of;

namespace {

void store(uint32_t* target, uint32_t value) {
  if (target != nullptr) *target = value;
}

void* allocate_copy(const Bytes& bytes) {
  void* block = std::malloc(bytes.size());
  if (block == nullptr) throw std::bad_alloc();
  return std::memcpy(block, bytes.data(), bytes.size());
}

// The halvings that a resolution level stands for.
uint32_t reduction_of(int32_t level) {
  return level < 2 ? 0 : ((static_cast<uint32_t>(level) & 0xFF) - 1) & 31;
}

uint32_t layers_of(int32_t level) { return level < 2 ? 0 : static_cast<uint32_t>(level) & 0xFF; }

void deliver(Session& session, void** data, uint32_t* length, uint32_t capacity) {
  const Bytes& output = session.output();
  if (output.size() > std::numeric_limits<uint32_t>::max()) {
    throw Failure(KV_J2K_ERR_UNSUPPORTED, "the output is 4 GiB or more; write it to a file");
  }
  const auto size = static_cast<uint32_t>(output.size());
  if (size > 0 && *data == nullptr) {
    *data = allocate_copy(output);
  } else if (capacity > 0 && size > 0) {
    *length = size;
    if (capacity < size) throw Failure(KV_J2K_ERR_BUFFER_TOO_SMALL, "the buffer is too small");
    std::memcpy(*data, output.data(), size);
  }
  *length = size;
}

}  // namespace

extern "C" {

int32_t kv_j2k_create(void** codec) {
  if (codec == nullptr) return KV_J2K_ERR_INVALID_ARGUMENT;
  auto* session = new (std::nothrow) Session;
  if (session == nullptr) return KV_J2K_ERR_MEMORY;
  *codec = session;
  return KV_J2K_OK;
}

int32_t kv_j2k_destroy(void* codec) {
  if (codec == nullptr) return KV_J2K_ERR_BAD_HANDLE;
  delete &session_of(codec);
  return KV_J2K_OK;
}

const char* kv_j2k_get_version_text() {
  struct Text {
    char characters[64];
    Text() {
      std::snprintf(characters, sizeof characters, "%s (OpenJPEG %s)", KVJ2K_VERSION,
                    opj_version());
    }
  };
  static const Text text;
  return text.characters;
}

const char* kv_j2k_get_error_text(void* codec) {
  return codec == nullptr ? "there is no codec handle" : session_of(codec).error_text.c_str();
}

int32_t kv_j2k_set_limits(void* codec, uint64_t max, uint64_t max_per_byte, uint64_t free) {
  return guarded(codec, [&](Session& session) {
    Limits& limits = session.change_settings().limits;
    limits.max = max != 0 ? max : Limits::kMax;
    limits.max_per_byte = max_per_byte != 0 ? max_per_byte : Limits::kMaxPerByte;
    limits.free = free != 0 ? free : Limits::kFree;
  });
}

int32_t kv_j2k_get_work(void* codec, uint64_t* work) {
  return guarded(codec, [&](Session& session) {
    if (work == nullptr) throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "there is nowhere to store to");
    *work = static_cast<uint64_t>(session.work());
  });
}

int32_t kv_j2k_set_input_image(void* codec, const void* data, uint32_t length) {
  return guarded(codec, [&](Session& session) {
    session.set_codestream(static_cast<const uint8_t*>(data), length);
  });
}

int32_t kv_j2k_set_input_image_raw(void* codec, const void* samples, uint32_t height,
                                   uint32_t width, uint32_t components, uint32_t, uint32_t) {
  return guarded(codec, [&](Session& session) {
    session.set_raw(static_cast<const uint8_t*>(samples), height, width, components);
  });
}

int32_t kv_j2k_get_input_image_info(void* codec, uint32_t* width, uint32_t* height,
                                    uint32_t* reserved, uint32_t* components) {
  for (uint32_t* value : {width, height, reserved, components}) store(value, 0);
  return guarded(codec, [&](Session& session) {
    const Session::Geometry geometry = session.geometry();
    store(width, geometry.x.end);
    store(height, geometry.y.end);
    store(components, geometry.components);
  });
}

int32_t kv_j2k_get_input_j2k_tile_info(void* codec, uint32_t* tile_width, uint32_t* tile_height,
                                       uint32_t* tiles_across, uint32_t* tiles_down,
                                       uint32_t* x_offset, uint32_t* y_offset) {
  for (uint32_t* value : {tile_width, tile_height, tiles_across, tiles_down, x_offset, y_offset}) {
    store(value, 0);
  }
  return guarded(codec, [&](Session& session) {
    const Session::Geometry geometry = session.geometry();
    store(tile_width, geometry.x.tile_size);
    store(tile_height, geometry.y.tile_size);
    store(tiles_across, geometry.x.tile_count());
    store(tiles_down, geometry.y.tile_count());
    store(x_offset, geometry.x.begin);
    store(y_offset, geometry.y.begin);
  });
}

int32_t kv_j2k_set_input_j2k_region_level(void* codec, uint64_t left, uint64_t top, uint64_t right,
                                          uint64_t bottom) {
  return guarded(codec, [&](Session& session) {
    kvj2k::DecodeSettings& settings = session.change_settings();
    settings.left = left;
    settings.top = top;
    settings.right = right;
    settings.bottom = bottom;
  });
}

int32_t kv_j2k_set_input_j2k_resolution_level(void* codec, int32_t level, int32_t flag) {
  return guarded(codec, [&](Session& session) {
    kvj2k::DecodeSettings& settings = session.change_settings();
    settings.reduction = reduction_of(level);
    settings.is_kept_at_size = flag == 1;
  });
}

int32_t kv_j2k_set_input_j2k_quality_level(void* codec, int32_t level) {
  return guarded(codec,
                 [&](Session& session) { session.change_settings().layers = layers_of(level); });
}

int32_t kv_j2k_set_output_type(void* codec, int32_t type) {
  return guarded(codec, [&](Session& session) { session.set_output_type(type); });
}

int32_t kv_j2k_get_output_image(void* codec, void** data, uint32_t* length) {
  const uint32_t capacity = length != nullptr ? *length : 0;
  store(length, 0);
  return guarded(codec, [&](Session& session) {
    if (data == nullptr || length == nullptr) {
      throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "there is nowhere to deliver to");
    }
    deliver(session, data, length, capacity);
  });
}

int32_t kv_j2k_get_output_image_file(void* codec, const char* path) {
  return guarded(codec, [&](Session& session) {
    if (path == nullptr) throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "no file name was given");
    const Bytes& output = session.output();
    if (output.empty()) {
      throw Failure(KV_J2K_ERR_NOTHING_TO_WRITE, "there is nothing to write to a file");
    }
    kvj2k::write_file(path, output);
  });
}

int32_t kv_j2k_free(void*, void* block) {
  std::free(block);
  return KV_J2K_OK;
}

}  // extern "C"
