// Writes an edited file back.
#ifndef KVJPX_TOOLS_SAVE_H_
#define KVJPX_TOOLS_SAVE_H_

#include "document.h"
#include "output.h"

namespace kvjpx_tool {

// Renders the document's boxes and writes them to the target. Unless the target is forced, the
// result must read back as the same boxes: the library writes some boxes with a length that is not
// theirs, and such a file would be lost to every reader.
void save(const Document& document, const Target& target);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_SAVE_H_
