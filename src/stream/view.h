// What readers and writers share of the view: opening, mapping, loading and flushing it.
#ifndef KVJPX_STREAM_VIEW_H_
#define KVJPX_STREAM_VIEW_H_

#include "stream/stream.h"

namespace kvjpx {

constexpr uint64_t kViewLength = 0x400000;  // 4 MiB

// A zero-filled record without a view. Streams over a file are known to the environment from here
// on, so an error exit closes them.
Stream* make_stream(Environment* env, Source source, Direction direction);
void open_stream(Stream* stream, const char* path, int flags);

inline void require(Environment* env, bool condition) {
  if (!condition) JPX_ErrorExit(env, JPX_ERR_INTERNAL);
}

inline uint64_t view_length(const Stream* stream) {
  return static_cast<uint64_t>(stream->buffer_end - stream->buffer_start);
}

// Bytes between the cursor and the end of the view. A file that shrank leaves the cursor behind the
// end: nothing is left there.
inline uint64_t available(const Stream* stream) {
  return stream->cursor < stream->buffer_end
             ? static_cast<uint64_t>(stream->buffer_end - stream->cursor)
             : 0;
}

inline bool reaches_past(uint64_t position, uint64_t count, uint64_t end) {
  return position > end || count > end - position;
}

inline uint64_t smaller(uint64_t a, uint64_t b) { return a < b ? a : b; }
inline uint64_t larger(uint64_t a, uint64_t b) { return a > b ? a : b; }

// Makes [buffer, buffer + length) the view, with the cursor on its first byte.
void set_view(Stream* stream, uint8_t* buffer, uint64_t length, uint64_t offset);

// Gives the view's memory or mapping back.
void drop_view(Environment* env, Stream* stream);

// Keeps an owned view of exactly this length, else replaces it by a new one.
void allocate_view(Environment* env, Stream* stream, uint64_t length);

// Reads up to `length` bytes into the view's start; -1 when the system refuses the first of them.
int64_t read_at(const Stream* stream, uint64_t length, uint64_t offset);

// Raises what the system refused, or keeps it for the end of the library's own output.
void refuse(Environment* env, Stream* stream, uint32_t code);

// Writes a file writer's whole view at its offset.
void flush_view(Environment* env, Stream* stream);

// Maps `length` bytes and more, from the page that holds the position up to `length` behind it, but
// never past the file's present end; leaves the cursor on the position. try_map_view is false where
// the system does not map it.
bool try_map_view(Environment* env, Stream* stream, uint64_t position, uint64_t length,
                  int protection);
void map_view(Environment* env, Stream* stream, uint64_t position, uint64_t length, int protection);

}  // namespace kvjpx

#endif  // KVJPX_STREAM_VIEW_H_
