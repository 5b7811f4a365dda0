// What "kvjpx --version" prints.
#ifndef KVJPX_TOOLS_VERSION_H_
#define KVJPX_TOOLS_VERSION_H_

#include <string>

namespace kvjpx_tool {

// A line each for the program, the library and the codec that decoding would use.
std::string version_text();

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_VERSION_H_
