// Numbers and bytes as people write them on a command line, and as files hold them.
#ifndef KVJPX_TOOLS_VALUE_H_
#define KVJPX_TOOLS_VALUE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvjpx_tool {

// Decimal, or hexadecimal after 0x. Nothing when it is neither or needs more than 64 bits.
std::optional<uint64_t> parse_number(const std::string& text);

// The same with a minus sign allowed; negative numbers become their 64-bit two's complement.
std::optional<uint64_t> parse_signed_number(const std::string& text);

// A four-character code: 'jp2 ' in quotes (trailing blanks may be left out), or four characters
// that begin with a letter, as they arrive when the shell has taken the quotes away.
std::optional<uint32_t> parse_code(const std::string& text);

// Pairs of hexadecimal digits.
std::optional<std::string> parse_hex(const std::string& digits);
std::string to_hex(std::string_view bytes);
void append_hex(std::string& text, std::string_view bytes);

// The low `width` bytes of a number.
std::string big_endian(uint64_t number, int width);

// Whether bytes are free of control characters other than white space, which mark binary data (and
// could drive a terminal).
bool is_text(std::string_view bytes);

// How many bytes at the beginning of a text are a character that is not seen itself and can make
// others look like what they are not (UTF-8; reversed, for one); 0: none. The joiners, which
// letters and pictures need, are none.
size_t format_control_length(std::string_view text);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_VALUE_H_
