// Writing an output file so that a failure costs nothing: neither a file that stands there already
// nor, by half of a new one, the time of somebody who takes it for a whole.
#ifndef KVJPX_API_FILE_OUTPUT_H_
#define KVJPX_API_FILE_OUTPUT_H_

#include "stream/stream.h"

namespace kvjpx {

struct UnfinishedFile;

struct FileOutput {
  Stream* writer;  // null when the file must not be written; without a descriptor when it cannot be
  UnfinishedFile* file;
};

// Opens a writer for the file. In place of a regular file the writer fills a temporary one beside
// it, so that a tree may also be written over the very file that its payloads are still read from
// (`input`). Where no temporary file can be made, the file itself is written, unless it is that
// input. A file that the user may not write is not replaced either.
FileOutput open_output(Environment* env, const char* path, uint64_t view_size, const Stream* input);

// Completes the output; an error exit before this removes the file that was made for it.
void finish_output(Environment* env, FileOutput* output);

}  // namespace kvjpx

#endif  // KVJPX_API_FILE_OUTPUT_H_
