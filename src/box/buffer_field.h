// What all fields held as bytes share: judging a caller's source, and finding room for a caller's
// copy.
#ifndef KVJPX_BOX_BUFFER_FIELD_H_
#define KVJPX_BOX_BUFFER_FIELD_H_

#include "box/entry_list.h"

namespace kvjpx {

// Bytes that a caller sets.
struct BufferSource {
  uint64_t count;
  uint32_t element_size;
  const void* data;
};

// False for a size that overflows or bytes without a source; else their number in *size.
bool is_valid_source(const BufferSource& source, uint64_t* size);

// A caller's wish for the bytes of a field. A null *buffer asks for a tracked block that the caller
// will own; otherwise *count x *element_size is the room at *buffer.
struct BufferRequest {
  uint64_t* count;
  uint32_t* element_size;
  void** buffer;
  int32_t missing_size = JPX_ERR_BUFFER_TOO_SMALL;  // answer to a buffer without its size
};

// Provides room for `entries` of `entry_size` bytes at *request.buffer and reports both. Code 3 for
// a null buffer pointer; 5 for too little room, and then what is needed is reported.
int32_t grant_buffer(Environment* env, const BufferRequest& request, uint64_t entries,
                     uint32_t entry_size);

// The whole of it for a field that lies in memory as it is handed out.
int32_t copy_out(Environment* env, const BufferRequest& request, const void* bytes,
                 uint64_t entries, uint32_t entry_size);

// Replaces the entries of a list by a copy of the caller's; 3 for another element size than the
// list's or an invalid source.
int32_t list_replace(Environment* env, EntryList* list, uint64_t entry_size,
                     const BufferSource& source);

// Reports through the pointers that are given; returns 0.
int32_t report_count(uint64_t entries, uint32_t entry_size, uint64_t* count,
                     uint32_t* element_size);

}  // namespace kvjpx

#endif  // KVJPX_BOX_BUFFER_FIELD_H_
