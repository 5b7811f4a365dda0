// Box types for people.
#ifndef KVJPX_TOOLS_BOX_TYPES_H_
#define KVJPX_TOOLS_BOX_TYPES_H_

#include <cstdint>

namespace kvjpx_tool {

// What a box is there for.
enum class Role { kStructure, kHeader, kCodestream, kComposition, kMetadata, kUnknown };

struct BoxType {
  const char* code;
  const char* name;  // as the standard calls it
  Role role;
};
// Of a type that is not known, the name is empty.
const BoxType& box_type(uint32_t code);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_TYPES_H_
