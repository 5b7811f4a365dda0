// Fields held as bytes (see buffer_field.h).
#include "box/buffer_field.h"

#include <string.h>

namespace kvjpx {

bool is_valid_source(const BufferSource& source, uint64_t* size) {
  if (__builtin_mul_overflow(source.count, source.element_size, size)) return false;
  return *size == 0 || source.data != nullptr;
}

int32_t grant_buffer(Environment* env, const BufferRequest& request, uint64_t entries,
                     uint32_t entry_size) {
  if (request.buffer == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  const uint64_t needed = entries * entry_size;
  if (*request.buffer == nullptr) {
    *request.buffer = allocate(env, needed);
  } else {
    if (request.count == nullptr || request.element_size == nullptr) return request.missing_size;
    uint64_t room;
    const bool overflows = __builtin_mul_overflow(*request.count, *request.element_size, &room);
    if (!overflows && room < needed) {
      report_count(entries, entry_size, request.count, request.element_size);
      return JPX_ERR_BUFFER_TOO_SMALL;
    }
  }
  return report_count(entries, entry_size, request.count, request.element_size);
}

int32_t copy_out(Environment* env, const BufferRequest& request, const void* bytes,
                 uint64_t entries, uint32_t entry_size) {
  const int32_t result = grant_buffer(env, request, entries, entry_size);
  if (result == JPX_OK && entries != 0) memcpy(*request.buffer, bytes, entries * entry_size);
  return result;
}

int32_t list_replace(Environment* env, EntryList* list, uint64_t entry_size,
                     const BufferSource& source) {
  uint64_t size;
  if (source.element_size != entry_size || !is_valid_source(source, &size)) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  list_release(env, list);
  list_resize(env, list, entry_size, source.count);
  if (size != 0) memcpy(list->entries, source.data, size);
  return JPX_OK;
}

int32_t report_count(uint64_t entries, uint32_t entry_size, uint64_t* count,
                     uint32_t* element_size) {
  if (count != nullptr) *count = entries;
  if (element_size != nullptr) *element_size = entry_size;
  return JPX_OK;
}

}  // namespace kvjpx
