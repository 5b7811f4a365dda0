// Knows other files by what they begin with.
#include "foreign_file.h"

#include <algorithm>

#include "value.h"

namespace kvjpx_tool {
namespace {

constexpr std::string_view kSocAndSiz = "\xFF\x4F\xFF\x51";

struct Foreign {
  size_t position;
  std::string_view mark;
  const char* name;
};
constexpr Foreign kForeign[] = {
    {0, kSocAndSiz, "a bare JPEG 2000 codestream without boxes around it"},
    {0, "\x89PNG", "a PNG picture"},
    {0, "\xFF\xD8\xFF", "a JPEG picture"},
    {0, "GIF8", "a GIF picture"},
    {0, std::string_view("II*\0", 4), "a TIFF picture"},
    {0, std::string_view("MM\0*", 4), "a TIFF picture"},
    {8, "WEBP", "a WebP picture"},
    {0, "%PDF-", "a PDF document"},
};

}  // namespace

std::string describe_foreign_file(std::string_view bytes) {
  if (bytes.empty()) return "; the file is empty";
  for (const Foreign& foreign : kForeign) {
    const std::string_view rest = bytes.substr(std::min(foreign.position, bytes.size()));
    if (rest.substr(0, foreign.mark.size()) == foreign.mark) {
      return std::string("; it seems to be ") + foreign.name;
    }
  }
  if (is_text(bytes.substr(0, 4096))) return "; it seems to be text";
  return bytes.substr(0, 2) == "BM" ? "; it seems to be a BMP picture" : "";
}

bool is_bare_codestream(std::string_view bytes) {
  return bytes.substr(0, kSocAndSiz.size()) == kSocAndSiz;
}

}  // namespace kvjpx_tool
