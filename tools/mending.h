// Makes a correct file of what the library renders.
//
// The library keeps three habits that its hosts make up for: it gives a palette (pclr) a length
// other than that of the bytes it writes, and it writes a cross-reference (cref) that it has read
// without its type, a data reference (dtbl) that it has read without its number of entries. In a
// file, each of them makes everything behind it unreadable.
#ifndef KVJPX_TOOLS_MENDING_H_
#define KVJPX_TOOLS_MENDING_H_

#include <optional>
#include <string>
#include <string_view>

#include "document.h"

namespace kvjpx_tool {

class MendedFile {
 public:
  // Renders the document's boxes. Throws a Failure for a palette whose values the library cannot
  // hold, unless `is_forced`.
  MendedFile(const Document& document, bool is_forced);

  // The library's own bytes when they need no mending.
  std::string_view bytes() const { return mended_ ? *mended_ : rendered_.bytes(); }

 private:
  LibraryBlock rendered_;
  std::optional<std::string> mended_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_MENDING_H_
