// Public functions: choosing the output and delivering the JPX file written from the tree. Decoded
// images are in decoding.cpp.
#include <errno.h>
#include <unistd.h>

#include "api/decoding.h"
#include "api/file_output.h"
#include "box/kept_writer.h"
#include "frame/guard.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

// What an output type means is the codec's business, but for the JPX file itself. The image
// header makes no difference. Kept for compatibility: 78, 80 and 83 to 88 are refused for every
// image, of whatever depth. Without it, they would reach the codec.
bool is_output_type(int32_t type) {
  constexpr int32_t kTypes[] = {64, 66, 67, 68, 69, 70, 71, 72, KV_JPX_OUTPUT_JPX,
                                75, 77, 79, 89, 128};
  for (const int32_t accepted : kTypes) {
    if (accepted == type) return true;
  }
  return false;
}

int32_t write_to_memory(Context& context, void** data, uint64_t* length) {
  Environment* const env = &context.environment;
  Box* const root = context.root;
  const uint64_t needed = root->length(root);
  void* buffer = *data;
  if (buffer == nullptr) {
    buffer = allocate(env, needed);
  } else if (*length < needed) {
    *length = needed;
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  Stream* writer = bs_writer_to_buffer(env, buffer, needed);
  root->render(root, env, writer);
  uint64_t written;
  *data = bs_writer_get_buffer(env, writer, &written);
  *length = written;
  destroy_stream(env, writer);
  return JPX_OK;
}

bool keeps_everything(const Context& context) { return context.index->keeps_everything != 0; }

int32_t write_kept(Context& context, void** data, uint64_t* length) {
  Environment* const env = &context.environment;
  uint64_t needed;
  KeptOutput* output = plan_kept_output(env, context.index, context.input, &needed);
  const bool is_given = *data != nullptr;
  const bool fits = !is_given || *length >= needed;
  if (fits) {
    void* const buffer = is_given ? *data : allocate(env, needed);
    write_kept_to_memory(output, static_cast<uint8_t*>(buffer));
    *data = buffer;
  }
  *length = needed;
  end_kept_output(output);
  return fits ? JPX_OK : JPX_ERR_BUFFER_TOO_SMALL;
}

int32_t write_kept_file(Context& context, const char* path) {
  Environment* const env = &context.environment;
  uint64_t length;
  KeptOutput* content = plan_kept_output(env, context.index, context.input, &length);
  Stream* writer = nullptr;
  FileOutput* const output = open_output(env, path, 0, context.input, &writer);
  if (output != nullptr) {
    const int32_t descriptor = sequential_descriptor(output);
    if (descriptor >= 0) {
      note_content(output, write_kept_to_file(content, descriptor) ? JPX_OK : JPX_ERR_FILE_IO);
    } else if (length != 0) {
      bs_writer_grow(env, writer, length);
      write_kept_to_memory(content, writer->cursor);
      writer->cursor += length;
    }
  }
  end_kept_output(content);
  return output == nullptr ? JPX_ERR_OPEN_FILE : finish_output(env, output);
}

int32_t write_to_file(Context& context, const char* path) {
  Environment* const env = &context.environment;
  if (keeps_everything(context)) return write_kept_file(context, path);
  Box* const root = context.root;
  Stream* writer = nullptr;
  FileOutput* const output = open_output(env, path, root->length(root), context.input, &writer);
  if (output == nullptr) return JPX_ERR_OPEN_FILE;
  root->render(root, env, writer);
  return finish_output(env, output);
}

bool write_all(int32_t descriptor, const void* bytes, uint64_t length) {
  const auto* next = static_cast<const uint8_t*>(bytes);
  while (length != 0) {
    constexpr uint64_t kTransferLimit = 0x40000000;
    const ssize_t written =
        write(descriptor, next, length < kTransferLimit ? length : kTransferLimit);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    next += written;
    length -= static_cast<uint64_t>(written);
  }
  return true;
}

int32_t write_to_descriptor(Context& context, int32_t descriptor) {
  Environment* const env = &context.environment;
  uint64_t length = 0;
  bool is_written;
  if (keeps_everything(context)) {
    KeptOutput* content = plan_kept_output(env, context.index, context.input, &length);
    is_written = write_kept_to_file(content, descriptor);
    end_kept_output(content);
  } else {
    void* bytes = nullptr;
    write_to_memory(context, &bytes, &length);
    is_written = write_all(descriptor, bytes, length);
    release(env, bytes);
  }
  return is_written ? JPX_OK : JPX_ERR_FILE_IO;
}

}  // namespace
}  // namespace kvjpx

using namespace kvjpx;

int32_t kv_jpx_write_jpx(kv_jpx_context* context, int32_t descriptor) {
  return guarded_with_input(
      context, [&](Context& live) -> int32_t { return write_to_descriptor(live, descriptor); });
}

int32_t kv_jpx_set_output_type(kv_jpx_context* context, int32_t type) {
  return guarded(context, [&](Context& live) -> int32_t {
    if (!is_output_type(type)) JPX_ErrorExit(&live.environment, JPX_ERR_INVALID_ARGUMENT);
    live.output_type = type;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_output_image(kv_jpx_context* context, void** data, uint64_t* length) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (data == nullptr || length == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    if (live.output_type != KV_JPX_OUTPUT_JPX) return decode_to_memory(live, data, length);
    return keeps_everything(live) ? write_kept(live, data, length)
                                  : write_to_memory(live, data, length);
  });
}

int32_t kv_jpx_get_output_image_file(kv_jpx_context* context, const char* path) {
  return guarded(context, [&](Context& live) -> int32_t {
    if (live.output_type != KV_JPX_OUTPUT_JPX) return decode_to_file(live, path);
    return live.root == nullptr ? JPX_ERR_NO_INPUT : write_to_file(live, path);
  });
}
