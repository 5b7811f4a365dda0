// Byte strings for tests: big-endian numbers and boxes, put together with +.
#ifndef KVJPX_TESTS_SUPPORT_BYTES_H_
#define KVJPX_TESTS_SUPPORT_BYTES_H_

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

namespace kvjpx::test {

inline std::string bytes(std::initializer_list<unsigned> values) {
  std::string result;
  for (const unsigned value : values) result += static_cast<char>(value);
  return result;
}

inline std::string big_endian(uint64_t value, int width) {
  std::string result;
  while (width-- > 0) result += static_cast<char>(value >> (8 * width));
  return result;
}
inline std::string be8(uint64_t value) { return big_endian(value, 1); }
inline std::string be16(uint64_t value) { return big_endian(value, 2); }
inline std::string be32(uint64_t value) { return big_endian(value, 4); }
inline std::string be64(uint64_t value) { return big_endian(value, 8); }

// 0, 1, 2 ... 250, 0 ...: every byte tells its position modulo 251 (a prime, so that pages differ).
inline std::string pattern(size_t length) {
  std::string result(length, '\0');
  for (size_t i = 0; i < length; ++i) result[i] = static_cast<char>(i % 251);
  return result;
}

// Values as text, a blank between any two.
template <class First, class... Others>
std::string spaced(const First& first, const Others&... others) {
  std::ostringstream text;
  text << first;
  ((text << ' ' << others), ...);
  return text.str();
}

// A four-character code as the library's functions take it.
inline uint32_t type_code(std::string_view type) {
  uint32_t result = 0;
  for (const char c : type) result = result << 8 | static_cast<unsigned char>(c);
  return result;
}

// A box with its length in the 32-bit LBox.
inline std::string box(std::string_view type, std::string_view payload = {}) {
  return be32(8 + payload.size()).append(type).append(payload);
}

// The same box with its length in the 64-bit XLBox.
inline std::string xl_box(std::string_view type, std::string_view payload = {}) {
  return be32(1).append(type).append(be64(16 + payload.size())).append(payload);
}

// A box whose LBox is 0: it reaches to the end of what it stands in.
inline std::string open_ended_box(std::string_view type, std::string_view payload = {}) {
  return be32(0).append(type).append(payload);
}

// Boxes of a type in each other, around the content, which each starts with a fixed part.
inline std::string nested(std::string_view type, size_t depth, std::string content = {},
                          const std::string& fixed_part = {}) {
  while (depth-- > 0) content = box(type, fixed_part + content);
  return content;
}

// The three boxes that every JP2 file starts with; the image is 3 high, 5 wide and has 1 component.
inline std::string signature_box() { return box("jP  ", be32(0x0D0A870A)); }
inline std::string file_type_box() { return box("ftyp", "jp2 " + be32(0) + "jp2 "); }
inline std::string image_header_box() {
  return box("ihdr", be32(3) + be32(5) + be16(1) + bytes({7, 7, 0, 0}));
}
inline std::string jp2_file(std::string_view more_in_header = {}) {
  return signature_box() + file_type_box() + box("jp2h", image_header_box().append(more_in_header));
}

// Bytes as scripts and transcripts write them down.
// Pieces in a row, with "_" or blanks between any of them: 'text'; hexadecimal digits; "*N" for the
// byte before, N times; "pN" for a pattern of N bytes; "[typeCONTENT]" for a box, its type being of
// four characters.
std::string bytes_of(const std::string& text);

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_BYTES_H_
