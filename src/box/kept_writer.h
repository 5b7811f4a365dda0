// Writes a tree of which everything is kept: changed boxes anew, all other bytes as they stood.
#ifndef KVJPX_BOX_KEPT_WRITER_H_
#define KVJPX_BOX_KEPT_WRITER_H_

#include "box/index.h"

namespace kvjpx {

struct KeptOutput;

// Lays out what would be written now. The input must be one view, and stay as it is until the end.
KeptOutput* plan_kept_output(Environment* env, BoxIndex* index, Stream* input, uint64_t* length);

// Writes it all: to memory with room for it, or to a file from its present position on. False when
// the file does not take it. Raises 18 when the input has been cut short meanwhile.
void write_kept_to_memory(KeptOutput* output, uint8_t* memory);
bool write_kept_to_file(KeptOutput* output, int descriptor);

void end_kept_output(KeptOutput*& output);

}  // namespace kvjpx

#endif  // KVJPX_BOX_KEPT_WRITER_H_
