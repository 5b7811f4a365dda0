// Facts as people read them.
#ifndef KVJPX_TOOLS_FACTS_TEXT_H_
#define KVJPX_TOOLS_FACTS_TEXT_H_

#include <string>

#include "facts.h"

namespace kvjpx_tool {

// A number that may be a string.
std::string digits(const Json& number);
// "1 byte", "2 bytes".
std::string size_text(const Json& length);
// A value: a number, a text in quotes, or what bytes_fact says of bytes. A text of several lines
// begins on a line of its own, each behind `indent`.
std::string value_text(const Json& value, const std::string& indent);
// A value with its name behind it, where it has one.
std::string with_name(const std::string& value, const Json& name);
// The beginning of a list, each value with its name.
std::string list_text(const Json& list, const Json& names);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_FACTS_TEXT_H_
