// Writing a file so that one that stands there already is kept until the new one is complete.
#ifndef KVJPX_API_FILE_REPLACEMENT_H_
#define KVJPX_API_FILE_REPLACEMENT_H_

#include "stream/stream.h"

namespace kvjpx {

struct FileReplacement;

struct FileOutput {
  Stream* writer;                // null when the file must not be written
  FileReplacement* replacement;  // null when the writer writes the file itself
};

// Opens a writer for the file. In place of a regular file the writer fills a temporary one beside
// it, so that a failure costs nothing, and so that a tree may be written over the very file that
// its payloads are still read from (`input`). Where no temporary file can be made, the file itself
// is written, unless it is that input. A file that the user may not write is not replaced either.
FileOutput open_output(Environment* env, const char* path, uint64_t view_size, const Stream* input);

// Completes the output; an error exit before this removes the temporary file.
void finish_output(Environment* env, FileOutput* output);

}  // namespace kvjpx

#endif  // KVJPX_API_FILE_REPLACEMENT_H_
