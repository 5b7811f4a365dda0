// Writes an edited file back.
#ifndef KVJPX_TOOLS_SAVE_H_
#define KVJPX_TOOLS_SAVE_H_

#include "document.h"
#include "output.h"

namespace kvjpx_tool {

// Throws a Failure when the library has not taken everything that the file holds, which every edit
// would lose; not for a forced target. Commands call it before they edit.
void check_is_complete(const Document& document, const Target& target);

// Renders the document's boxes, mends what the library leaves wrong, and writes the result to the
// target. Unless the target is forced, the result must read back as the same boxes.
void save(const Document& document, const Target& target);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_SAVE_H_
