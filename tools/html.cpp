#include "html.h"

#include <nettle/base64.h>
#include <nettle/sha2.h>

#include "facts.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";
constexpr char kDelete = 0x7F;

void append(std::string& html, char c) {
  switch (c) {
    case '&':
      html += "&amp;";
      return;
    case '<':
      html += "&lt;";
      return;
    case '>':
      html += "&gt;";
      return;
    case '"':
      html += "&quot;";
      return;
    case '\'':
      html += "&#39;";
      return;
    case kDelete:
      html += "\xE2\x90\xA1";
      return;
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(c);
  if (code < ' ' && c != '\n' && c != '\t') {  // U+2400 on are their pictures
    html += "\xE2\x90";
    html += static_cast<char>(0x80 + code);
  } else {
    html += c;
  }
}

}  // namespace

std::string html(std::string_view text) {
  std::string html;
  html.reserve(text.size() + text.size() / 8);
  const bool is_valid = is_utf8(text);
  for (size_t i = 0; i < text.size(); ++i) {
    const bool is_ascii = (text[i] & 0x80) == 0;
    const bool is_control = text[i] == '\xC2' && i + 1 < text.size() && text[i + 1] < '\xA0';
    const size_t length = is_control ? 2 : format_control_length(text.substr(i));
    if (is_ascii || (is_valid && length == 0)) {
      append(html, text[i]);
    } else {
      html += kReplacement;
      if (is_valid) i += length - 1;
    }
  }
  return html;
}

std::string base64(std::string_view bytes) {
  std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), 0);
  base64_encode_raw(text.data(), bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
  return text;
}

std::string csp_hash(std::string_view source) {
  sha256_ctx state;
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_init(&state);
  sha256_update(&state, source.size(), reinterpret_cast<const uint8_t*>(source.data()));
  sha256_digest(&state, sizeof digest, digest);
  return "'sha256-" + base64({reinterpret_cast<const char*>(digest), sizeof digest}) + "'";
}

}  // namespace kvjpx_tool
