// Paths, by which people name boxes: "jp2h/ihdr", "jp2h/colr[1]", "#17"; "/" is the file itself.
//
// An index counts from 0 among siblings of one type; without one the first is meant. Trailing
// blanks of a type may be left out. Characters of a type that cannot be printed or have a meaning
// in paths are written as % and two hexadecimal digits.
#ifndef KVJPX_TOOLS_BOX_PATH_H_
#define KVJPX_TOOLS_BOX_PATH_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "box_tree.h"
#include "failure.h"

namespace kvjpx_tool {

// The form of a type that paths use.
std::string type_name(uint32_t type);

// Reads that form; throws a Failure with `exit_code` when it names no type.
uint32_t parse_type(const std::string& text, ExitCode exit_code);

// The path of a box, as resolve_path takes it.
std::string path_of(const Box& box);

// Finds the box that a path names. Throws a Failure with kNoSuchPlace, starting with `label`.
const Box& resolve_path(const BoxTree& tree, const std::string& path, const std::string& label);

// Finds all boxes that a path names in which a step can be TYPE[*], every box of the type, or
// uuid:KIND, every uuid box that is of the kind of metadata by `is_kind`. Throws a Failure with
// kNoSuchPlace when there is none.
std::vector<const Box*> resolve_paths(
    const BoxTree& tree, const std::string& path, const std::string& label,
    const std::function<bool(const Box&, const std::string&)>& is_kind);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_PATH_H_
