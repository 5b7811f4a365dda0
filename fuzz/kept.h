// What an input of which everything is kept promises: no byte is lost, extents tile the file, and
// an edit changes what it is about and nothing else.
#ifndef KVJPX_FUZZ_KEPT_H_
#define KVJPX_FUZZ_KEPT_H_

#include "steps.h"

namespace kvjpx::fuzz {

// Any bytes load, from memory and as the treatment says, and come out as they were.
void check_kept_file(const Treatment& treatment, const Bytes& file);

// Takes the steps on the file, undoes them, and takes others that are not undone.
void check_kept_edits(const FileAndSteps& wish);

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_KEPT_H_
