// What is asked of each kind.
#include "metadata.h"

#include <expat.h>

#include <memory>
#include <type_traits>

#include "names.h"

namespace kvjpx_tool {
namespace {

// In front of Exif in JPEG files, but not here.
constexpr std::string_view kJpegExif("Exif\0\0", 6);

bool is_tiff(std::string_view bytes) {
  const std::string_view start = bytes.substr(0, 4);
  return bytes.size() >= 8 &&
         (start == std::string_view("II*\0", 4) || start == std::string_view("MM\0*", 4));
}

std::string_view without_jpeg_start(std::string_view bytes) {
  return bytes.substr(0, kJpegExif.size()) == kJpegExif ? bytes.substr(kJpegExif.size()) : bytes;
}

}  // namespace

const std::vector<std::string>& metadata_kinds() {
  static const std::vector<std::string> kKinds = {"xmp", "exif", "iptc", "geotiff", "xml"};
  return kKinds;
}

bool is_metadata(kvjpx::box box, const std::string& kind) {
  if (kind == "xml") return box.type() == kvjpx::type("xml");
  if (box.type() != kvjpx::type("uuid")) return false;
  const auto id = box.bytes<kvjpx::uuid::id>();
  const std::string_view name = id ? uuid_name(id->text()) : std::string_view();
  return !name.empty() && uuid_of_name(name) == uuid_of_name(kind);
}

kvjpx::type metadata_type(const std::string& kind) {
  return kind == "xml" ? kvjpx::type("xml") : kvjpx::type("uuid");
}

std::string metadata_content(const std::string& kind, std::string_view bytes) {
  if (kind == "exif") bytes = without_jpeg_start(bytes);
  return uuid_of_name(kind).append(bytes);
}

std::string metadata_fault(const std::string& kind, std::string_view bytes) {
  if (kind == "xml" || kind == "xmp") return xml_fault(bytes);
  if (kind == "exif") bytes = without_jpeg_start(bytes);
  if (kind == "iptc") {
    const bool is_record = !bytes.empty() && bytes[0] == 0x1C;
    return is_record ? "" : "the bytes do not begin with an IPTC tag (1c)";
  }
  return is_tiff(bytes) ? "" : "the bytes do not begin as TIFF does (II or MM)";
}

std::string xml_fault(std::string_view text) {
  using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;
  const Parser parser(XML_ParserCreate(nullptr), XML_ParserFree);
  constexpr size_t kPiece = size_t{1} << 20;
  for (size_t done = 0;;) {
    const std::string_view piece = text.substr(done, kPiece);
    done += piece.size();
    const int length = static_cast<int>(piece.size());
    if (XML_Parse(parser.get(), piece.data(), length, done == text.size()) == XML_STATUS_ERROR) {
      return "no well-formed XML: line " + std::to_string(XML_GetCurrentLineNumber(parser.get())) +
             ": " + XML_ErrorString(XML_GetErrorCode(parser.get()));
    }
    if (done == text.size()) return "";
  }
}

kvjpx::box first_of_samples(kvjpx::box root) {
  for (const kvjpx::box box : root.children()) {
    for (const kvjpx::type type : {kvjpx::type("jp2c"), kvjpx::type("ftbl"), kvjpx::type("mdat")}) {
      if (box.type() == type) return box;
    }
  }
  return {};
}

}  // namespace kvjpx_tool
