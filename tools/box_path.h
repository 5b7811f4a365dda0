// Paths, by which people name boxes: "jp2h/ihdr", "jp2h/colr[1]", "#17"; "/" is the file itself.
//
// An index counts from 0 among siblings of one type; without one the first is meant. Trailing
// blanks of a type may be left out. Characters of a type that cannot be printed or have a meaning
// in paths are written as % and two hexadecimal digits.
#ifndef KVJPX_TOOLS_BOX_PATH_H_
#define KVJPX_TOOLS_BOX_PATH_H_

#include <string>
#include <vector>

#include "failure.h"
#include "kvjpx.hpp"
#include "opened_file.h"

namespace kvjpx_tool {

// Reads a type; throws a Failure with `exit_code` when it is none.
kvjpx::type parse_type(const std::string& text, ExitCode exit_code);

// Finds the one box that a path names. Throws a Failure with kNoSuchPlace.
kvjpx::box find_box(const OpenedFile& file, const std::string& path);

// Finds all boxes that a path names in which a step can be TYPE[*], every box of the type, or
// uuid:KIND, every uuid box that is of the kind of metadata. Throws a Failure with kNoSuchPlace
// when there is none.
std::vector<kvjpx::box> find_boxes(const OpenedFile& file, const std::string& path);

// "file:offset: path", for messages; the path is that of file.paths() unless another is given.
std::string place_of(const OpenedFile& file, kvjpx::box box);
std::string place_of(const OpenedFile& file, kvjpx::box box, const std::string& path);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_PATH_H_
