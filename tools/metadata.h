// The kinds of metadata that files carry in boxes of their own.
#ifndef KVJPX_TOOLS_METADATA_H_
#define KVJPX_TOOLS_METADATA_H_

#include <string>
#include <string_view>
#include <vector>

#include "kvjpx.hpp"

namespace kvjpx_tool {

// The kinds: "xmp", "exif", "iptc" and "geotiff", which have uuid boxes, and "xml".
const std::vector<std::string>& metadata_kinds();

bool is_metadata(kvjpx::box box, const std::string& kind);

// What a box of a new piece of metadata is, and what stands behind its header.
kvjpx::type metadata_type(const std::string& kind);
std::string metadata_content(const std::string& kind, std::string_view bytes);

// Why the bytes are not what the kind asks for; empty when they are.
std::string metadata_fault(const std::string& kind, std::string_view bytes);

// Why a text is not well-formed XML; empty when it is.
std::string xml_fault(std::string_view text);

// The box at the top level that metadata is put in front of, so that readers meet it before the
// samples; no box: at the end.
kvjpx::box first_of_samples(kvjpx::box root);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_METADATA_H_
