// Names of values that fields hold as numbers: words for people, which commands take.
#ifndef KVJPX_TOOLS_NAMES_H_
#define KVJPX_TOOLS_NAMES_H_

#include <cstdint>
#include <optional>
#include <string_view>

namespace kvjpx_tool {

// The value of a field (JPX_FIELD_...) that a name stands for; case, blanks and hyphens do not
// count. Nothing for fields and words without a meaning.
std::optional<uint64_t> value_of_name(uint32_t key, std::string_view name);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_NAMES_H_
