// The names of values: of numbers in fields, and of UUIDs. Names are words for people that commands
// print and take.
#ifndef KVJPX_TOOLS_NAMES_H_
#define KVJPX_TOOLS_NAMES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvjpx_tool {

// What a value of a field (JPX_FIELD_...) means; empty where the table has no name for it.
std::string value_name(uint32_t key, uint64_t value);

// The value that a name stands for; case, blanks, hyphens and the like do not count. Nothing for
// fields and words without a meaning.
std::optional<uint64_t> value_of_name(uint32_t key, std::string_view name);

// The names of all values of a field.
std::vector<std::string_view> value_names(uint32_t key);

// Whether the field holds four-character codes.
bool is_code_field(uint32_t key);
// A code as its four characters; those that cannot be printed, and %, as % and two hexadecimal
// digits.
std::string code_text(uint32_t code);

// What a UUID (16 bytes) stands for, such as "XMP"; empty for others.
std::string_view uuid_name(std::string_view uuid);
// The 16 bytes of the UUID for what has this name, in whatever case; empty when there is none.
std::string uuid_of_name(std::string_view name);
// In the form with hyphens.
std::string uuid_text(std::string_view uuid);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_NAMES_H_
