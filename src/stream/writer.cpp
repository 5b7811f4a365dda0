// Stream writers (see stream.h).
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>

#include "stream/view.h"

namespace kvjpx {
namespace {

constexpr uint64_t kOutputStep = 0x40000;  // 256 KiB

Stream* make_writer(Environment* env, Source source, uint64_t view_size) {
  Stream* stream = make_stream(env, source, kWriter);
  stream->growable = 1;
  stream->view_size = view_size;
  return stream;
}

// A refusal shows at the first growth, which needs the file's length: 100.
Stream* open_writer(Environment* env, Source source, const char* path, uint64_t view_size) {
  Stream* stream = make_writer(env, source, view_size);
  open_stream(stream, path, O_RDWR | O_CREAT | O_TRUNC);
  return stream;
}

uint64_t writable(const Stream* stream) {
  return stream->view_is_read_only != 0 ? 0 : available(stream);
}

void prepare_write(Environment* env, Stream* stream, uint64_t width) {
  require(env, stream != nullptr && stream->direction == kWriter);
  if (width <= writable(stream)) return;
  bs_writer_grow(env, stream, width);
  if (width > writable(stream)) JPX_ErrorExit(env, JPX_ERR_FILE_IO);
}

// Grows by exactly what the write needs, never by doubling: the size of a memory writer is what its
// owner sees as the memory in use. (Nobody sees it of the library's own output.)
void grow_memory(Environment* env, Stream* stream, uint64_t needed) {
  require(env, stream->owns_buffer != 0);
  const uint64_t written = position_of(stream);
  const uint64_t old_capacity = view_length(stream);
  const uint64_t step = larger(needed, stream->least_step);
  const uint64_t capacity = old_capacity + step;
  if (capacity < step) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  auto* buffer = static_cast<uint8_t*>(reallocate(env, stream->buffer_start, capacity));
  if (step != 0) memset(buffer + old_capacity, 0, step);
  set_view(stream, buffer, capacity, 0);
  stream->cursor += written;
  stream->size = capacity;
}

// The view is first filled with what the file holds there, so that flushing it rewrites bytes that
// nobody changed as they were.
void grow_file(Environment* env, Stream* stream, uint64_t position, uint64_t view) {
  flush_view(env, stream);
  allocate_view(env, stream, view);
  if (stream->size < position + view) bs_set_file_length(env, stream, position + view);
  const int64_t delivered = read_at(stream, view, position);
  if (delivered < 0) refuse(env, stream, JPX_ERR_FILE_IO);
  const uint64_t missing = delivered < 0 ? view : view - static_cast<uint64_t>(delivered);
  if (missing != 0) memset(stream->buffer_start + (view - missing), 0, missing);
  set_view(stream, stream->buffer_start, view, position);
}

void grow_mapping(Environment* env, Stream* stream, uint64_t position, uint64_t view) {
  if (stream->size < position + view) bs_set_file_length(env, stream, position + view);
  map_view(env, stream, position, view, PROT_WRITE);
}

}  // namespace

Stream* make_output_writer(Environment* env, int32_t descriptor, uint64_t length) {
  Stream* const stream = make_writer(env, descriptor < 0 ? kMemory : kFile, length);
  stream->owns_buffer = descriptor < 0;
  stream->descriptor = descriptor;
  stream->least_step = larger(smaller(length, descriptor < 0 ? length : kOutputStep), 1);
  detach_resource(env, &stream->resource);
  return stream;
}

uint32_t finish_output_writer(Environment* env, Stream* stream) {
  bs_set_eof(env, stream);
  flush_view(env, stream);
  drop_view(env, stream);
  stream->descriptor = -1;
  return stream->refusal;
}

extern "C" {

Stream* bs_writer_to_buffer(Environment* env, void* buffer, uint64_t length) {
  Stream* stream = make_stream(env, kMemory, kWriter);
  if (buffer == nullptr) {
    stream->growable = 1;
    stream->owns_buffer = 1;
    return stream;
  }
  set_view(stream, static_cast<uint8_t*>(buffer), length, 0);
  stream->size = length;
  stream->view_size = length;
  return stream;
}

Stream* bs_writer_to_file(Environment* env, const char* path, uint64_t view_size) {
  return open_writer(env, kFile, path, view_size);
}

Stream* bs_writer_to_mmap(Environment* env, const char* path, uint64_t view_size) {
  return open_writer(env, kMapped, path, view_size);
}

void bs_write_n_byte(Environment* env, Stream* stream, uint64_t value, uint32_t width,
                     uint32_t little_endian) {
  require(env, stream != nullptr && stream->direction == kWriter);
  if (width < 1 || width > 8) return;
  prepare_write(env, stream, width);
  for (uint32_t i = 0; i < width; ++i) {
    const uint32_t place = little_endian != 0 ? i : width - 1 - i;
    *stream->cursor++ = static_cast<uint8_t>(value >> (8 * place));
  }
}

void bs_write_1_byte(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 1, 0);
}
void bs_write_2_byte_big(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 2, 0);
}
void bs_write_4_byte_big(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 4, 0);
}
void bs_write_8_byte_big(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 8, 0);
}
void bs_write_2_byte_little(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 2, 1);
}
void bs_write_4_byte_little(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 4, 1);
}
void bs_write_8_byte_little(Environment* env, Stream* stream, uint64_t value) {
  bs_write_n_byte(env, stream, value, 8, 1);
}

void bs_write_memcpy(Environment* env, Stream* stream, const void* source, uint64_t count) {
  prepare_write(env, stream, count);
  if (count == 0) return;
  memcpy(stream->cursor, source, count);
  stream->cursor += count;
}

// Kept for compatibility: the bound of a writer is one byte stricter than a reader's. With the
// reader's bound, a bounded buffer could be grown up to its very end, which is refused.
void bs_writer_grow(Environment* env, Stream* stream, uint64_t needed) {
  require(env, stream != nullptr && stream->direction == kWriter);
  const uint64_t position = position_of(stream);
  const bool wraps = position + needed < position;
  if (wraps || (stream->growable == 0 && position + needed >= stream->size)) {
    JPX_ErrorExit(env, JPX_ERR_BUFFER_TOO_SMALL);
  }
  if (stream->source == kMemory) {
    grow_memory(env, stream, needed);
    return;
  }
  // The limit is 0 in every context, so a view is exactly what the write needs, but for the
  // library's own output.
  const uint64_t wanted = larger(needed, stream->least_step);
  const uint64_t view = larger(smaller(env->stream_view_limit, stream->view_size), wanted);
  if (stream->source == kFile) grow_file(env, stream, position, view);
  if (stream->source == kMapped) grow_mapping(env, stream, position, view);
}

// Read limits are not consulted: boxes are copied after the parse, when none is pushed.
void bs_write_from_bs(Environment* env, Stream* destination, Stream* source, uint64_t count) {
  require(env, destination != nullptr && source != nullptr && destination->direction == kWriter &&
                   source->direction == kReader);
  if (count == 0) return;
  const uint64_t step = smaller(destination->view_size, source->view_size);
  require(env, step != 0);
  for (uint64_t left = count; left != 0;) {
    const uint64_t chunk = smaller(step, left);
    prepare_write(env, destination, chunk);
    if (chunk > available(source)) {
      // Kept for compatibility: the source's view is taken anew from its first byte, not from the
      // cursor. With a source that is one view (memory, a whole mapping, a small file) this never
      // happens; taken from the cursor, copies from larger ones would hold other bytes.
      bs_map_range(env, source, source->buffer_offset, chunk);
      if (chunk > available(source)) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
    }
    memcpy(destination->cursor, source->cursor, chunk);
    destination->cursor += chunk;
    source->cursor += chunk;
    left -= chunk;
  }
}

void bs_set_eof(Environment* env, Stream* stream) {
  require(env, stream != nullptr && stream->direction == kWriter);
  const uint64_t position = position_of(stream);
  if (stream->source != kMemory) bs_set_file_length(env, stream, position);
  stream->buffer_end = stream->cursor;
  stream->size = position;
}

uint8_t* bs_writer_get_buffer(Environment* env, Stream* stream, uint64_t* length) {
  require(env, stream != nullptr && stream->direction == kWriter && stream->source == kMemory);
  if (length != nullptr) *length = position_of(stream);
  uint8_t* const buffer = stream->buffer_start;
  set_view(stream, nullptr, 0, 0);
  stream->size = 0;
  return buffer;
}

}  // extern "C"
}  // namespace kvjpx
