// Streams: readers and writers over a memory buffer, a file, or a file mapped into memory. All work
// through a view, a window of bytes between buffer_start and buffer_end that the cursor moves in.
//
// All failures leave through the error exit: 999 for a null stream or one of the wrong kind, 5 for
// going past the end of a bounded stream, 18 for bytes that the source did not deliver, 100 and 102
// for the system's refusals.
#ifndef KVJPX_STREAM_STREAM_H_
#define KVJPX_STREAM_STREAM_H_

#include "frame/memory.h"

namespace kvjpx {

enum Source : uint32_t { kMemory = 0, kFile = 1, kMapped = 2 };
enum Direction : uint32_t { kReader = 0, kWriter = 1 };

// Reads that would cross the innermost limit deliver nothing; this is how parsing stops at the end
// of a box.
struct ReadLimit {
  uint64_t limit;  // absolute position
  ReadLimit* next;
};

struct BoxIndex;

struct Stream {
  uint32_t source;
  uint32_t direction;
  uint8_t growable;  // writers that may be extended past their size
  uint8_t* buffer_start;
  uint8_t* cursor;
  uint8_t* buffer_end;
  uint64_t size;           // of the whole stream; the capacity of a memory writer
  uint64_t buffer_offset;  // position of buffer_start
  uint64_t alignment;      // of the start of mapped views
  int32_t descriptor;      // -1 when there is none
  uint64_t view_size;      // step of bs_write_from_bs, and view of writers
  ReadLimit* limits;       // the innermost
  uint8_t owns_buffer;
  uint8_t view_is_read_only;  // a writer's mapping made by positioning
  uint64_t mapped_length;     // the view may have been cut since
  Resource resource;          // descriptor and mapping
  BoxIndex* index;            // of the boxes read from the stream; null when nobody asks
  // For the parser: the container whose boxes are read now, and how deep it is nested.
  const struct Box* container;
  uint32_t container_depth;
  // And where everything is kept:
  uint8_t keeps_everything;
  uint8_t content_is_bad;  // the reader of the box could not take its content
  uint64_t unread;         // bytes at the end of the content that the reader did not take
  uint64_t least_step;     // writers of the library's own output: bytes to grow by at least
  uint32_t refusal;        // what the system refused such a writer first; it does not raise it
};
static_assert(sizeof(void*) != 8 ||
                  (offsetof(Stream, buffer_start) == 16 && offsetof(Stream, size) == 40 &&
                   offsetof(Stream, view_size) == 72 && offsetof(Stream, owns_buffer) == 88),
              "the record's layout is part of the interface");

extern "C" {

// Readers. bs_reader_from_buffer works on a private copy.
KVJPX_EXPORT Stream* bs_reader_from_buffer(Environment* env, const void* data, uint64_t length);
KVJPX_EXPORT Stream* bs_reader_from_file(Environment* env, const char* path);
KVJPX_EXPORT Stream* bs_reader_from_mmap(Environment* env, const char* path);

KVJPX_EXPORT uint64_t bs_read_1_byte(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_2_byte_big(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_4_byte_big(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_8_byte_big(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_2_byte_little(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_4_byte_little(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_8_byte_little(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_read_n_byte(Environment* env, Stream* stream, uint32_t width,
                                     uint32_t little_endian);
KVJPX_EXPORT void bs_read_memcpy(Environment* env, Stream* stream, void* destination,
                                 uint64_t count);

// Loads a view for a read of `needed` bytes; 0 when the source has nothing to load.
KVJPX_EXPORT uint32_t bs_refill(Environment* env, Stream* stream, uint64_t needed);

KVJPX_EXPORT ReadLimit* bs_push_read_limit(Environment* env, Stream* stream, uint64_t limit);
KVJPX_EXPORT void bs_pop_read_limit(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_get_current_read_limit(Environment* env, Stream* stream);
KVJPX_EXPORT uint32_t bs_at_limit(Environment* env, Stream* stream);
KVJPX_EXPORT uint32_t bs_at_eof(Environment* env, Stream* stream);

// Position and size, of readers and writers.
KVJPX_EXPORT uint64_t bs_get_file_size(Environment* env, Stream* stream);
KVJPX_EXPORT uint64_t bs_get_current_position(Environment* env, Stream* stream);
KVJPX_EXPORT void bs_set_current_position(Environment* env, Stream* stream, uint64_t position);
KVJPX_EXPORT void bs_map_range(Environment* env, Stream* stream, uint64_t position, uint64_t extra);
KVJPX_EXPORT uint8_t* bs_map_pointer(Environment* env, Stream* stream, uint64_t count);
KVJPX_EXPORT void bs_set_file_length(Environment* env, Stream* stream, uint64_t length);

// Releases view and descriptor, not the record. A file writer flushes its view first.
KVJPX_EXPORT void bs_destroy(Environment* env, Stream* stream);

// Writers. A null buffer makes a memory writer that owns its growing buffer.
KVJPX_EXPORT Stream* bs_writer_to_buffer(Environment* env, void* buffer, uint64_t length);
KVJPX_EXPORT Stream* bs_writer_to_file(Environment* env, const char* path, uint64_t view_size);
KVJPX_EXPORT Stream* bs_writer_to_mmap(Environment* env, const char* path, uint64_t view_size);

KVJPX_EXPORT void bs_write_1_byte(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_2_byte_big(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_4_byte_big(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_8_byte_big(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_2_byte_little(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_4_byte_little(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_8_byte_little(Environment* env, Stream* stream, uint64_t value);
KVJPX_EXPORT void bs_write_n_byte(Environment* env, Stream* stream, uint64_t value, uint32_t width,
                                  uint32_t little_endian);
KVJPX_EXPORT void bs_write_memcpy(Environment* env, Stream* stream, const void* source,
                                  uint64_t count);
KVJPX_EXPORT void bs_write_from_bs(Environment* env, Stream* destination, Stream* source,
                                   uint64_t count);
KVJPX_EXPORT void bs_writer_grow(Environment* env, Stream* stream, uint64_t needed);
KVJPX_EXPORT void bs_set_eof(Environment* env, Stream* stream);

// Hands the bytes written over to the caller, who frees them as a tracked block.
KVJPX_EXPORT uint8_t* bs_writer_get_buffer(Environment* env, Stream* stream, uint64_t* length);

}  // extern "C"

// For streams that are known to be readers, without a call:
inline uint64_t position_of(const Stream* stream) {
  return static_cast<uint64_t>(stream->cursor - stream->buffer_start) + stream->buffer_offset;
}
inline uint64_t limit_of(const Stream* stream) {
  return stream->limits != nullptr ? stream->limits->limit : stream->size;
}
// Bytes of the content that the stream has not reached yet.
inline uint64_t bytes_left(const Stream* stream) {
  const uint64_t limit = limit_of(stream);
  const uint64_t position = position_of(stream);
  return limit > position ? limit - position : 0;
}

// As bs_read_n_byte and bs_set_current_position, which are called only for what is not at hand.
inline bool has_in_view(const Stream* stream, uint64_t width) {
  return stream->cursor < stream->buffer_end &&
         static_cast<uint64_t>(stream->buffer_end - stream->cursor) >= width;
}
inline bool has_at_hand(const Stream* stream, uint64_t width) {
  return has_in_view(stream, width) && bytes_left(stream) >= width;
}
template <class Number>
uint64_t big_endian(const uint8_t* bytes) {
  Number value = 0;
  for (size_t i = 0; i < sizeof(Number); ++i) value = static_cast<Number>(value << 8 | bytes[i]);
  return value;
}
inline uint64_t number_at(const uint8_t* bytes, uint32_t width) {
  if (width == 1) return bytes[0];
  if (width == 2) return big_endian<uint16_t>(bytes);
  if (width == 4) return big_endian<uint32_t>(bytes);
  if (width == 8) return big_endian<uint64_t>(bytes);
  uint64_t value = 0;
  for (uint32_t i = 0; i < width; ++i) value = value << 8 | bytes[i];
  return value;
}
inline uint64_t read_number(Environment* env, Stream* stream, uint32_t width) {
  if (width > sizeof(uint64_t) || !has_at_hand(stream, width)) {
    return bs_read_n_byte(env, stream, width, 0);
  }
  stream->cursor += width;
  return number_at(stream->cursor - width, width);
}
inline void move_to(Environment* env, Stream* stream, uint64_t position) {
  const uint64_t place = position - stream->buffer_offset;
  const bool is_in_view = position >= stream->buffer_offset &&
                          place <= static_cast<uint64_t>(stream->buffer_end - stream->buffer_start);
  if (is_in_view && position <= stream->size) {
    stream->cursor = stream->buffer_start + place;
  } else {
    bs_set_current_position(env, stream, position);
  }
}

// A writer for the library's own output of about this length, to a file that is open for reading
// and writing, or with -1 to memory that the writer owns. It goes on when the system refuses
// something, so that the caller can answer that without an error exit, and grows in larger steps
// than the writers of others. The file stays the caller's.
Stream* make_output_writer(Environment* env, int32_t descriptor, uint64_t length);

// Ends the file of such a writer behind what was written, and takes it from the writer. 0, or the
// code for what the system refused meanwhile.
uint32_t finish_output_writer(Environment* env, Stream* stream);

// Makes a reader independent of its file, which is about to be overwritten.
void take_into_memory(Environment* env, Stream* stream);

// As bs_reader_from_file or _mmap, for a regular file only: anything else is refused with 100, also
// a pipe that nobody writes to, without waiting.
Stream* open_regular_file(Environment* env, Source source, const char* path);

// A reader of a regular file that has all of it in one view: mapped, or read where the system does
// not map it.
Stream* open_whole_file(Environment* env, const char* path);

// Raises 18 when somebody has cut the mapped file so short that the bytes are gone: touching them
// would end the process.
void require_present(Environment* env, const Stream* stream, uint64_t position, uint64_t count);

// Destroys a stream together with its record and forgets it.
void destroy_stream(Environment* env, Stream*& stream);

}  // namespace kvjpx

#endif  // KVJPX_STREAM_STREAM_H_
