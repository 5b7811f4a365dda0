// Writing a file in place of another one that is kept until the new one is complete.
#ifndef KVJPX_API_FILE_REPLACEMENT_H_
#define KVJPX_API_FILE_REPLACEMENT_H_

#include "stream/stream.h"

namespace kvjpx {

struct FileReplacement;

// Opens a writer for the file. If a regular file stands there already, the writer goes to a
// temporary one beside it, so that a failure costs nothing, and so that the tree may still read
// from the file that it is written over. Otherwise, and where no temporary file can be made, it
// writes the file itself. *replacement is null when there is none.
Stream* open_replacement(Environment* env, const char* path, uint64_t view_size,
                         FileReplacement** replacement);

// Puts the complete file, whose writer has been destroyed, in its place; null does nothing. An
// error exit before this removes the temporary file.
void finish_replacement(Environment* env, FileReplacement* replacement);

}  // namespace kvjpx

#endif  // KVJPX_API_FILE_REPLACEMENT_H_
