// Stream readers (see stream.h).
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "stream/view.h"

namespace kvjpx {
namespace {

Stream* open_reader(Environment* env, Source source, const char* path, bool is_regular_only) {
  Stream* stream = make_stream(env, source, kReader);
  open_stream(stream, path, is_regular_only ? O_RDONLY | O_NONBLOCK | O_NOCTTY : O_RDONLY);
  struct stat status;
  if (fstat(stream->descriptor, &status) != 0 || (is_regular_only && !S_ISREG(status.st_mode))) {
    JPX_ErrorExit(env, JPX_ERR_OPEN_FILE);
  }
  stream->size = static_cast<uint64_t>(status.st_size);
  stream->view_size = smaller(stream->size, kViewLength);
  return stream;
}

// Makes `width` bytes readable at the cursor. False when the innermost limit stops the read; that
// is tested first, so that a box means the same at the end of the file as elsewhere.
inline bool prepare_read(Environment* env, Stream* stream, uint64_t width) {
  require(env, stream != nullptr && stream->direction == kReader);
  if (stream->limits != nullptr &&
      reaches_past(position_of(stream), width, stream->limits->limit)) {
    stream->content_is_bad = 1;
    return false;
  }
  if (width > available(stream) &&
      (bs_refill(env, stream, width) == 0 || width > available(stream))) {
    JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  }
  return true;
}

// Inline, so that each function that reads a fixed width is made for it.
inline uint64_t read_big(Environment* env, Stream* stream, uint32_t width) {
  if (!prepare_read(env, stream, width) || width < 1 || width > 8) return 0;
  uint64_t value = 0;
  for (uint32_t i = 0; i < width; ++i) value = value << 8 | stream->cursor[i];
  stream->cursor += width;
  return value;
}

inline uint64_t read_little(Environment* env, Stream* stream, uint32_t width) {
  if (!prepare_read(env, stream, width) || width < 1 || width > 8) return 0;
  uint64_t value = 0;
  for (uint32_t i = width; i-- != 0;) value = value << 8 | stream->cursor[i];
  stream->cursor += width;
  return value;
}

void refill_from_mapping(Environment* env, Stream* stream, uint64_t needed) {
  const uint64_t position = position_of(stream);
  const uint64_t base = position & ~(stream->alignment - 1);
  const uint64_t reach = larger(base + larger(needed, kViewLength), position + needed);
  map_view(env, stream, position, smaller(reach, stream->size) - position, PROT_READ);
}

// Kept for compatibility: the file offset counts the view's offset twice. It is the position as
// long as that offset is 0, that is, for the first two views; further on it leaps ahead. Counted
// once, files larger than 8 MiB that are read in this way would give other bytes, those of a
// mapping.
uint32_t refill_from_file(Environment* env, Stream* stream, uint64_t needed) {
  const uint64_t offset = position_of(stream) + stream->buffer_offset;
  if (offset >= stream->size) return 0;
  const uint64_t length = smaller(larger(needed, kViewLength), stream->size - offset);
  allocate_view(env, stream, length);
  const int64_t delivered = read_at(stream, length, offset);
  if (delivered < 0) JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  set_view(stream, stream->buffer_start, static_cast<uint64_t>(delivered), offset);
  return 1;
}

}  // namespace

Stream* open_regular_file(Environment* env, Source source, const char* path) {
  return open_reader(env, source, path, true);
}

extern "C" {

Stream* bs_reader_from_buffer(Environment* env, const void* data, uint64_t length) {
  Stream* stream = make_stream(env, kMemory, kReader);
  auto* copy = static_cast<uint8_t*>(allocate(env, length));
  if (length != 0) memcpy(copy, data, length);
  set_view(stream, copy, length, 0);
  stream->size = length;
  stream->view_size = length;
  stream->owns_buffer = 1;
  return stream;
}

Stream* bs_reader_from_file(Environment* env, const char* path) {
  return open_reader(env, kFile, path, false);
}

Stream* bs_reader_from_mmap(Environment* env, const char* path) {
  return open_reader(env, kMapped, path, false);
}

uint64_t bs_read_n_byte(Environment* env, Stream* stream, uint32_t width, uint32_t little_endian) {
  return little_endian != 0 ? read_little(env, stream, width) : read_big(env, stream, width);
}

uint64_t bs_read_1_byte(Environment* env, Stream* stream) { return read_big(env, stream, 1); }
uint64_t bs_read_2_byte_big(Environment* env, Stream* stream) { return read_big(env, stream, 2); }
uint64_t bs_read_4_byte_big(Environment* env, Stream* stream) { return read_big(env, stream, 4); }
uint64_t bs_read_8_byte_big(Environment* env, Stream* stream) { return read_big(env, stream, 8); }
uint64_t bs_read_2_byte_little(Environment* env, Stream* stream) {
  return read_little(env, stream, 2);
}
uint64_t bs_read_4_byte_little(Environment* env, Stream* stream) {
  return read_little(env, stream, 4);
}
uint64_t bs_read_8_byte_little(Environment* env, Stream* stream) {
  return read_little(env, stream, 8);
}

void bs_read_memcpy(Environment* env, Stream* stream, void* destination, uint64_t count) {
  if (!prepare_read(env, stream, count) || count == 0) return;
  memcpy(destination, stream->cursor, count);
  stream->cursor += count;
}

uint32_t bs_refill(Environment* env, Stream* stream, uint64_t needed) {
  require(env, stream != nullptr && stream->direction == kReader);
  if (stream->growable == 0 && reaches_past(position_of(stream), needed, stream->size)) {
    JPX_ErrorExit(env, JPX_ERR_BUFFER_TOO_SMALL);
  }
  if (stream->source == kFile) return refill_from_file(env, stream, needed);
  if (stream->source != kMapped) return 0;
  refill_from_mapping(env, stream, needed);
  return 1;
}

ReadLimit* bs_push_read_limit(Environment* env, Stream* stream, uint64_t limit) {
  auto* node = static_cast<ReadLimit*>(allocate(env, sizeof(ReadLimit)));
  *node = {limit, stream->limits};
  stream->limits = node;
  return node;
}

void bs_pop_read_limit(Environment* env, Stream* stream) {
  ReadLimit* const node = stream->limits;
  if (node == nullptr) return;
  stream->limits = node->next;
  JPX_SafeFreeInternal(env, node);
}

uint64_t bs_get_current_read_limit(Environment*, Stream* stream) { return limit_of(stream); }

uint32_t bs_at_limit(Environment* env, Stream* stream) {
  require(env, stream != nullptr);
  return position_of(stream) == limit_of(stream);
}

}  // extern "C"
}  // namespace kvjpx
