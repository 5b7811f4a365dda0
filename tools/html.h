// Pieces of HTML pages.
#ifndef KVJPX_TOOLS_HTML_H_
#define KVJPX_TOOLS_HTML_H_

#include <string>
#include <string_view>

namespace kvjpx_tool {

// Text for content and for quoted attributes, whatever its bytes: control characters come as their
// pictures, and text that is not UTF-8 with a sign in the place of each byte beyond ASCII.
std::string html(std::string_view text);

std::string base64(std::string_view bytes);
// For a Content-Security-Policy that allows this script or style and no other.
std::string csp_hash(std::string_view source);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_HTML_H_
