// What a file is that has no boxes.
#ifndef KVJPX_TOOLS_FOREIGN_FILE_H_
#define KVJPX_TOOLS_FOREIGN_FILE_H_

#include <string>
#include <string_view>

namespace kvjpx_tool {

// The end of a message: what the file is instead, as far as that shows; empty where it does not.
std::string describe_foreign_file(std::string_view bytes);

// Whether the bytes begin as a codestream does that has no boxes around it.
bool is_bare_codestream(std::string_view bytes);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_FOREIGN_FILE_H_
