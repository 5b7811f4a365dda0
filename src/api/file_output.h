// Writing an output file so that a failure costs nothing: neither a file that stands there already
// nor, by half of a new one, the time of somebody who takes it for a whole.
#ifndef KVJPX_API_FILE_OUTPUT_H_
#define KVJPX_API_FILE_OUTPUT_H_

#include "stream/stream.h"

namespace kvjpx {

struct FileOutput;

// Opens the file for an output of about this length; the writer that the content goes to is put in
// *writer. Null when the file cannot be opened. The output may be the very file that a tree is
// still read from (`input`).
FileOutput* open_output(Environment* env, const char* path, uint64_t length, Stream* input,
                        Stream** writer);

// Where the content may be written from its first byte to its last instead of to the writer; -1
// where it must go to the writer, as the file can't be touched before it is complete.
int32_t sequential_descriptor(const FileOutput* output);

// Says how such writing ended: 0, or the code for what the system refused.
void note_content(FileOutput* output, uint32_t result);

// Completes the output; an error exit before this removes what was made for it. Returns 100 or 102
// when the system refused something before the file was changed; later that is an error exit.
int32_t finish_output(Environment* env, FileOutput* output);

}  // namespace kvjpx

#endif  // KVJPX_API_FILE_OUTPUT_H_
