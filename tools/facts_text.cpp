// Writes facts for people.
#include "facts_text.h"

#include <algorithm>

namespace kvjpx_tool {
namespace {

// The lines of a text below each other.
std::string block_text(std::string text, const std::string& indent) {
  text.erase(text.find_last_not_of("\r\n") + 1);
  std::string lines;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines += "\n" + indent + text.substr(begin, end - begin);
    begin = end + 1;
  }
  return lines;
}

}  // namespace

std::string digits(const Json& number) {
  return number.is_string() ? number.get<std::string>() : number.dump();
}

std::string size_text(const Json& length) {
  return digits(length) + (length == 1 ? " byte" : " bytes");
}

std::string value_text(const Json& value, const std::string& indent) {
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    return text.find('\n') == std::string::npos ? "'" + text + "'" : block_text(text, indent);
  }
  if (!value.is_object()) return value.dump();
  const std::string hex = value.value("hex", "");
  if (value["length"] == 0) return "0 bytes";
  return size_text(value["length"]) + ", " +
         (hex.empty() ? "SHA-256 " + value["sha256"].get<std::string>() : hex);
}

std::string with_name(const std::string& value, const Json& name) {
  return !name.is_string() || name.get_ref<const std::string&>().empty()
             ? value
             : value + " (" + name.get<std::string>() + ")";
}

std::string list_text(const Json& list, const Json& names) {
  constexpr size_t kMostShown = 16;
  std::string text;
  for (size_t i = 0; i < std::min(list.size(), kMostShown); ++i) {
    text += (i == 0 ? "" : ", ") +
            with_name(value_text(list[i], ""), i < names.size() ? names[i] : Json());
  }
  if (list.size() > kMostShown) text += ", ... (" + std::to_string(list.size()) + " entries)";
  return text.empty() ? "none" : text;
}

}  // namespace kvjpx_tool
