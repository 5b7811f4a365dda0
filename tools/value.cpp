// Reads and writes numbers and bytes.
#include "value.h"

#include <algorithm>
#include <charconv>

#include "kvjpx.h"

namespace kvjpx_tool {
namespace {

bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

template <typename Number>
std::optional<Number> parse_digits(std::string_view digits, int base) {
  Number number = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, number, base);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

}  // namespace

std::optional<uint64_t> parse_number(const std::string& text) {
  const bool is_hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
  return is_hexadecimal ? parse_digits<uint64_t>(text.substr(2), 16)
                        : parse_digits<uint64_t>(text, 10);
}

std::optional<uint64_t> parse_signed_number(const std::string& text) {
  if (text.empty() || text[0] != '-') return parse_number(text);
  const std::optional<int64_t> number = parse_digits<int64_t>(text, 10);
  if (!number) return std::nullopt;
  return static_cast<uint64_t>(*number);
}

std::optional<uint32_t> parse_code(const std::string& text) {
  std::string code = text;
  if (code.size() >= 3 && code.front() == '\'' && code.back() == '\'') {
    code = code.substr(1, code.size() - 2);
    if (code.size() < 4) code.resize(4, ' ');
  } else if (code.empty() || !is_letter(code[0])) {
    return std::nullopt;
  }
  if (code.size() != 4) return std::nullopt;
  return KV_JPX_TYPE(code[0], code[1], code[2], code[3]);
}

std::optional<std::string> parse_hex(const std::string& digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(digits.size() / 2);
  for (size_t i = 0; i < digits.size(); i += 2) {
    const auto byte = parse_digits<uint8_t>(std::string_view(digits).substr(i, 2), 16);
    if (!byte) return std::nullopt;
    bytes += static_cast<char>(*byte);
  }
  return bytes;
}

std::string to_hex(std::string_view bytes) {
  std::string digits;
  append_hex(digits, bytes);
  return digits;
}

void append_hex(std::string& text, std::string_view bytes) {
  static const char kDigits[] = "0123456789abcdef";
  size_t place = text.size();
  text.resize(place + 2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text[place++] = kDigits[byte >> 4];
    text[place++] = kDigits[byte & 15];
  }
}

std::string big_endian(uint64_t number, int width) {
  std::string bytes;
  while (width-- > 0) bytes += static_cast<char>(number >> (8 * width));
  return bytes;
}

bool is_text(std::string_view bytes) {
  return std::none_of(bytes.begin(), bytes.end(), [](unsigned char c) {
    return (c < ' ' && c != '\n' && c != '\r' && c != '\t') || c == 0x7F;
  });
}

size_t format_control_length(std::string_view text) {
  constexpr std::string_view kRanges[][2] = {
      {"\u061C", "\u061C"}, {"\u180E", "\u180E"}, {"\u200B", "\u200B"},
      {"\u200E", "\u200F"}, {"\u2028", "\u202E"}, {"\u2060", "\u206F"},
      {"\uFEFF", "\uFEFF"}, {"\uFFF9", "\uFFFB"}, {"\U000E0001", "\U000E007F"}};
  for (const auto& [first, last] : kRanges) {
    const std::string_view begin = text.substr(0, first.size());
    if (begin >= first && begin <= last) return first.size();
  }
  return 0;
}

}  // namespace kvjpx_tool
