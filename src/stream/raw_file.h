// Whole files in and out of memory, for programs that feed kv_jpx_set_input_image and store what
// kv_jpx_get_output_image gives. "-" is standard input or output. No context is involved: blocks
// come from malloc, and failures are told on standard error.
#ifndef KVJPX_STREAM_RAW_FILE_H_
#define KVJPX_STREAM_RAW_FILE_H_

#include "frame/memory.h"

namespace kvjpx {
extern "C" {

// Returns a block that the caller frees with free, or null when the file cannot be opened (after a
// message) or memory is short; the length is 0 then.
KVJPX_EXPORT void* load_raw_data(const char* path, uint64_t* length);
KVJPX_EXPORT void write_raw_data(const char* path, const void* data, uint64_t length);

}  // extern "C"
}  // namespace kvjpx

#endif  // KVJPX_STREAM_RAW_FILE_H_
