// Views of streams, their descriptors and positioning (see stream.h).
#include "stream/view.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvjpx {
namespace {

// One system call moves less than 2 GiB, so longer transfers are made in pieces.
constexpr uint64_t kTransferLimit = 0x40000000;

void unmap(Stream* stream) {
  if (stream->mapped_length != 0) munmap(stream->buffer_start, stream->mapped_length);
  stream->mapped_length = 0;
}

// Returns false when the system could not keep what was written.
bool close_descriptor(Stream* stream) {
  const int descriptor = stream->descriptor;
  stream->descriptor = -1;
  return descriptor < 0 || close(descriptor) == 0;
}

void release_stream_resource(Resource* resource) {
  auto* stream =
      reinterpret_cast<Stream*>(reinterpret_cast<char*>(resource) - offsetof(Stream, resource));
  unmap(stream);
  close_descriptor(stream);
}

uint64_t file_length(Environment* env, const Stream* stream) {
  struct stat status;
  if (fstat(stream->descriptor, &status) != 0) JPX_ErrorExit(env, JPX_ERR_OPEN_FILE);
  return static_cast<uint64_t>(status.st_size);
}

bool is_in_view(const Stream* stream, uint64_t position, uint64_t extra) {
  return position >= stream->buffer_offset &&
         !reaches_past(position - stream->buffer_offset, extra, view_length(stream));
}

void position_in_memory(Environment* env, Stream* stream, uint64_t position, uint64_t end) {
  if (end > stream->size) {
    auto* grown = static_cast<uint8_t*>(reallocate(env, stream->buffer_start, end));
    memset(grown + stream->size, 0, end - stream->size);
    set_view(stream, grown, end, 0);
    stream->owns_buffer = 1;
    stream->size = end;
  }
  stream->cursor = stream->buffer_start + position;
}

void position_in_file(Environment* env, Stream* stream, uint64_t position, uint64_t length) {
  if (stream->direction == kWriter) flush_view(env, stream);
  allocate_view(env, stream, length);
  if (position + length > stream->size) bs_set_file_length(env, stream, position + length);
  const int64_t result = read_at(stream, length, position);
  const uint64_t delivered = result < 0 ? 0 : static_cast<uint64_t>(result);
  if (stream->direction == kWriter) {
    if (delivered < length) memset(stream->buffer_start + delivered, 0, length - delivered);
    set_view(stream, stream->buffer_start, length, position);
  } else {
    set_view(stream, stream->buffer_start, delivered, position);
  }
}

// The mapping is read-only for writers as well, so that looking at what stands in a file does not
// need the right to change it; the next write maps its view anew.
void position_in_mapping(Environment* env, Stream* stream, uint64_t position, uint64_t length,
                         uint64_t extra) {
  const uint64_t base = position & ~(stream->alignment - 1);
  uint64_t reach = larger(base + length, position + extra);
  if (reach > stream->size) {
    if (stream->direction == kWriter) {
      bs_set_file_length(env, stream, reach);
    } else {
      reach = stream->size;
    }
  }
  map_view(env, stream, position, reach - position, PROT_READ);
  stream->view_is_read_only = stream->direction == kWriter;
}

}  // namespace

Stream* make_stream(Environment* env, Source source, Direction direction) {
  auto* stream = static_cast<Stream*>(allocate_zeroed(env, sizeof(Stream)));
  stream->source = source;
  stream->direction = direction;
  stream->alignment = 1;
  stream->descriptor = -1;
  if (source == kMapped) stream->alignment = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  if (source == kMemory) return stream;
  attach_resource(env, &stream->resource, release_stream_resource);
  mark_block(stream, kOwnsResources);
  return stream;
}

void open_stream(Stream* stream, const char* path, int flags) {
  if (path != nullptr) stream->descriptor = open(path, flags | O_CLOEXEC, 0666);
}

void set_view(Stream* stream, uint8_t* buffer, uint64_t length, uint64_t offset) {
  stream->buffer_start = buffer;
  stream->cursor = buffer;
  stream->buffer_end = buffer + length;
  stream->buffer_offset = offset;
}

void drop_view(Environment* env, Stream* stream) {
  if (stream->source == kMapped) {
    unmap(stream);
  } else if (stream->owns_buffer != 0 && stream->buffer_start != nullptr) {
    JPX_SafeFreeInternal(env, stream->buffer_start);
  }
  set_view(stream, nullptr, 0, stream->buffer_offset);
}

void allocate_view(Environment* env, Stream* stream, uint64_t length) {
  if (stream->buffer_start != nullptr && view_length(stream) == length) return;
  drop_view(env, stream);
  set_view(stream, static_cast<uint8_t*>(allocate(env, length)), length, stream->buffer_offset);
  stream->owns_buffer = 1;
}

int64_t read_at(const Stream* stream, uint64_t length, uint64_t offset) {
  uint64_t done = 0;
  while (done < length) {
    const uint64_t piece = smaller(length - done, kTransferLimit);
    const ssize_t got = pread(stream->descriptor, stream->buffer_start + done, piece,
                              static_cast<off_t>(offset + done));
    if (got < 0 && done == 0) return -1;
    // A short read is not the end: network file systems deliver pieces.
    if (got <= 0) break;
    done += static_cast<uint64_t>(got);
  }
  return static_cast<int64_t>(done);
}

void refuse(Environment* env, Stream* stream, uint32_t code) {
  if (stream->least_step == 0) JPX_ErrorExit(env, code);
  if (stream->refusal == 0) stream->refusal = code;
}

void flush_view(Environment* env, Stream* stream) {
  const uint64_t length = view_length(stream);
  if (length == 0) return;
  bool is_written =
      lseek(stream->descriptor, static_cast<off_t>(stream->buffer_offset), SEEK_SET) >= 0;
  for (uint64_t done = 0; is_written && done < length;) {
    const uint64_t piece = smaller(length - done, kTransferLimit);
    is_written = write(stream->descriptor, stream->buffer_start + done, piece) ==
                 static_cast<ssize_t>(piece);
    done += piece;
  }
  if (!is_written) refuse(env, stream, JPX_ERR_FILE_IO);
}

bool try_map_view(Environment* env, Stream* stream, uint64_t position, uint64_t length,
                  int protection) {
  drop_view(env, stream);
  const uint64_t base = position & ~(stream->alignment - 1);
  const uint64_t present = file_length(env, stream);
  const uint64_t wanted = position - base + length;
  const uint64_t mapped = base >= present ? 0 : smaller(wanted, present - base);
  stream->owns_buffer = 0;
  stream->view_is_read_only = 0;
  if (mapped == 0) {
    set_view(stream, nullptr, 0, position);
    return true;
  }
  void* const mapping =
      mmap(nullptr, mapped, protection, MAP_SHARED, stream->descriptor, static_cast<off_t>(base));
  if (mapping == MAP_FAILED) return false;
  stream->mapped_length = mapped;
  set_view(stream, static_cast<uint8_t*>(mapping), mapped, base);
  stream->cursor += position - base;
  return true;
}

void map_view(Environment* env, Stream* stream, uint64_t position, uint64_t length,
              int protection) {
  if (!try_map_view(env, stream, position, length, protection)) {
    JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  }
}

Stream* open_whole_file(Environment* env, const char* path) {
  Stream* const stream = open_regular_file(env, kMapped, path);
  if (try_map_view(env, stream, 0, stream->size, PROT_READ)) return stream;
  take_into_memory(env, stream);
  stream->size = view_length(stream);
  return stream;
}

void require_present(Environment* env, const Stream* stream, uint64_t position, uint64_t count) {
  if (stream->source == kMapped && reaches_past(position, count, file_length(env, stream))) {
    JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  }
}

void take_into_memory(Environment* env, Stream* stream) {
  const uint64_t position = position_of(stream);
  auto* const whole = static_cast<uint8_t*>(allocate(env, stream->size));
  drop_view(env, stream);
  set_view(stream, whole, stream->size, 0);
  stream->owns_buffer = 1;
  const int64_t delivered = read_at(stream, stream->size, 0);
  if (delivered < 0) JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  stream->buffer_end = whole + delivered;
  stream->cursor = whole + position;
  stream->source = kMemory;
  detach_resource(env, &stream->resource);
  close_descriptor(stream);
}

void destroy_stream(Environment* env, Stream*& stream) {
  if (stream == nullptr) return;
  bs_destroy(env, stream);
  JPX_SafeFreeInternal(env, stream);
  stream = nullptr;
}

extern "C" {

uint64_t bs_get_file_size(Environment* env, Stream* stream) {
  require(env, stream != nullptr);
  return stream->size;
}

uint64_t bs_get_current_position(Environment* env, Stream* stream) {
  require(env, stream != nullptr);
  return position_of(stream);
}

uint32_t bs_at_eof(Environment* env, Stream* stream) {
  const uint64_t position = bs_get_current_position(env, stream);
  return position == stream->size;
}

void bs_map_range(Environment* env, Stream* stream, uint64_t position, uint64_t extra) {
  require(env, stream != nullptr);
  const uint64_t end = position + extra;
  const bool wraps = end < position;
  if (wraps || (end > stream->size && stream->growable == 0)) {
    JPX_ErrorExit(env, JPX_ERR_BUFFER_TOO_SMALL);
  }
  if (stream->source == kMemory) {
    position_in_memory(env, stream, position, end);
    return;
  }
  require(env, stream->source == kFile || stream->source == kMapped);
  if (is_in_view(stream, position, extra)) {
    stream->cursor = stream->buffer_start + (position - stream->buffer_offset);
    return;
  }
  const uint64_t length = end > stream->size || extra > kViewLength ? extra : kViewLength;
  if (stream->source == kFile) {
    // A reader's view that would run past the end of the file ends in bs_set_file_length, which
    // refuses it with 999: files larger than a view are read through a mapping.
    position_in_file(env, stream, position, length);
  } else {
    position_in_mapping(env, stream, position, length, extra);
  }
}

void bs_set_current_position(Environment* env, Stream* stream, uint64_t position) {
  bs_map_range(env, stream, position, 0);
}

uint8_t* bs_map_pointer(Environment* env, Stream* stream, uint64_t count) {
  bs_map_range(env, stream, bs_get_current_position(env, stream), count);
  if (count > available(stream)) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
  return stream->cursor;
}

void bs_set_file_length(Environment* env, Stream* stream, uint64_t length) {
  require(env, stream != nullptr && stream->growable != 0 && stream->source != kMemory);
  stream->size = length;
  struct stat status = {};
  if (fstat(stream->descriptor, &status) != 0) refuse(env, stream, JPX_ERR_OPEN_FILE);
  bool is_set;
  if (static_cast<uint64_t>(status.st_size) < length) {
    const char zero = 0;
    is_set = lseek(stream->descriptor, static_cast<off_t>(length - 1), SEEK_SET) >= 0 &&
             write(stream->descriptor, &zero, 1) == 1;
  } else {
    // A device or pipe has no length that could be set.
    is_set = ftruncate(stream->descriptor, static_cast<off_t>(length)) == 0 ||
             (length == 0 && !S_ISREG(status.st_mode));
  }
  if (!is_set) refuse(env, stream, JPX_ERR_FILE_IO);
}

void bs_destroy(Environment* env, Stream* stream) {
  if (stream == nullptr) return;
  const bool is_file_writer = stream->source == kFile && stream->direction == kWriter;
  if (is_file_writer) flush_view(env, stream);
  drop_view(env, stream);
  detach_resource(env, &stream->resource);
  const bool is_closed = close_descriptor(stream);
  if (is_file_writer && !is_closed) JPX_ErrorExit(env, JPX_ERR_FILE_IO);
}

}  // extern "C"
}  // namespace kvjpx
