// XML, UUID information, URLs and labels.
#include <expat.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "rules.h"

namespace kvjpx_check {
namespace {

struct XmlResult {
  XML_Error error = XML_ERROR_NONE;
  uint64_t offset = 0;
  uint64_t line = 0;
};

XmlResult parse_xml(kvjpx::byte_view text) {
  constexpr uint64_t kPiece = 1 << 20;
  const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                       XML_ParserFree);
  if (parser == nullptr) throw std::bad_alloc();
  for (uint64_t at = 0;; at += kPiece) {
    const kvjpx::byte_view piece = text.part(at, kPiece);
    const bool is_last = at + piece.size() >= text.size();
    if (XML_Parse(parser.get(), reinterpret_cast<const char*>(piece.data()),
                  static_cast<int>(piece.size()), is_last ? 1 : 0) == XML_STATUS_ERROR) {
      XmlResult result;
      result.error = XML_GetErrorCode(parser.get());
      result.offset =
          static_cast<uint64_t>(std::max<XML_Index>(XML_GetCurrentByteIndex(parser.get()), 0));
      result.line = XML_GetCurrentLineNumber(parser.get());
      if (result.error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
      // Well formed or not, it grows too much to be read to the end.
      if (result.error == XML_ERROR_AMPLIFICATION_LIMIT_BREACH) return {};
      return result;
    }
    if (is_last) return {};
  }
}

void tell_xml(const Check& check, bool is_encoding) {
  const XmlResult result = parse_xml(check.file.content(*check.box));
  const bool is_about_encoding = result.error == XML_ERROR_UNKNOWN_ENCODING;
  if (result.error == XML_ERROR_NONE || is_about_encoding != is_encoding) return;
  check.tell(
      std::min(result.offset, check.box->content_length),
      std::string(XML_ErrorString(result.error)) + " in line " + std::to_string(result.line));
}

// Of a url box: 1 VERS, 3 FLAG, then the location and a NUL.
constexpr uint64_t kLocation = 4;
std::string_view location(const Check& check) {
  const Fields url = check.fields();
  const std::string_view text = url.text(kLocation, url.size());
  return text.substr(0, text.find('\0'));
}

}  // namespace

void xml_form(Check& check) { tell_xml(check, false); }
void xml_encoding(Check& check) { tell_xml(check, true); }

void uinf_list(Check& check) {
  const uint32_t count = check.file.count(*check.box, code("ulst"));
  if (count != 1) check.tell(0, std::to_string(count), "1");
}

void uinf_url(Check& check) {
  const uint32_t count = check.file.count(*check.box, code("url "));
  if (count != 1) check.tell(0, std::to_string(count), "1");
}

void url_version(Check& check) { check.need(0, 1, {0}); }
void url_flags(Check& check) { check.need(1, 3, {0}); }

void url_end(Check& check) {
  const Fields url = check.fields();
  if (!url.has(0, kLocation) || location(check).size() + kLocation < url.size()) return;
  check.tell(url.size(), "", "a byte 0");
}

void url_utf8(Check& check) {
  const auto broken = broken_utf8(location(check));
  if (broken) check.tell(kLocation + *broken);
}

void label_utf8(Check& check) {
  const auto broken = broken_utf8(check.file.content(*check.box).text());
  if (broken) check.tell(*broken);
}

void label_characters(Check& check) {
  const std::string_view text = check.file.content(*check.box).text();
  constexpr std::string_view kForbidden = "/;?:#";
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+007F to U+009F; the latter are two bytes in UTF-8.
    const bool is_high_control = byte == 0x7F || (byte == 0xC2 && i + 1 < text.size() &&
                                                  static_cast<unsigned char>(text[i + 1]) < 0xA0);
    if (byte < 0x20 || is_high_control) {
      check.tell(i, "a control character");
    } else if (kForbidden.find(text[i]) != std::string_view::npos) {
      check.tell(i, std::string(1, text[i]));
    }
  }
}

}  // namespace kvjpx_check
