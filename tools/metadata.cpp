// The table of UUIDs, and what is asked of each kind.
#include "metadata.h"

#include <expat.h>

#include <memory>
#include <type_traits>

#include "value.h"

namespace kvjpx_tool {
namespace {

// The first UUID of a kind is the one that is written. Writers of different age use others, too.
struct Uuid {
  const char* kind;
  const char* digits;
};
constexpr Uuid kUuids[] = {
    {"xmp", "be7acfcb97a942e89c71999491e3afac"},
    {"exif", "4a706754696666457869662d3e4a5032"},  // in letters, JpgTiffExif->JP2
    {"exif", "0537cdab9d0c4431a72afa561f2a113e"},
    {"iptc", "33c7a4d2b81d4723a0baf1a3e097ad38"},
    {"iptc", "09a14e97c0b442e0bebf36df6f0ce36f"},
    {"geotiff", "b14bf8bd083d4b43a5ae8cd7d5a6ce03"},
};
// In front of Exif in JPEG files, but not here.
constexpr std::string_view kJpegExif("Exif\0\0", 6);
constexpr size_t kUuidSize = 16;

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
  if (!id || id->size() != kUuidSize) return false;
  const std::string digits = to_hex(id->text());
  for (const Uuid& uuid : kUuids) {
    if (kind == uuid.kind && digits == uuid.digits) return true;
  }
  return false;
}

kvjpx::type metadata_type(const std::string& kind) {
  return kind == "xml" ? kvjpx::type("xml") : kvjpx::type("uuid");
}

std::string metadata_content(const std::string& kind, std::string_view bytes) {
  for (const Uuid& uuid : kUuids) {
    if (kind != uuid.kind) continue;
    if (kind == "exif") bytes = without_jpeg_start(bytes);
    return parse_hex(uuid.digits).value().append(bytes);
  }
  return std::string(bytes);
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
