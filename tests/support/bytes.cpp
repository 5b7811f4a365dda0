// How scripts and transcripts write bytes down (see bytes.h).
#include "support/bytes.h"

#include <stdexcept>

namespace kvjpx::test {
namespace {

// Reads up to the end or to the bracket that closes the box, and moves on behind that.
std::string read_bytes(const std::string& text, size_t& at) {
  std::string result;
  const auto count = [&] {
    size_t used = 0;
    const size_t number = std::stoul(text.substr(at), &used);
    at += used;
    return number;
  };
  while (at < text.size()) {
    const char c = text[at++];
    if (c == ']') return result;
    if (c == '_' || c == ' ') continue;
    if (c == '[') {
      at += 4;
      const std::string type = text.substr(at - 4, 4);
      result += box(type, read_bytes(text, at));
    } else if (c == '\'') {
      const size_t end = text.find('\'', at);
      if (end == std::string::npos) throw std::invalid_argument("a quote has no end: " + text);
      result += text.substr(at, end - at);
      at = end + 1;
    } else if (c == '*') {
      result.append(count() - 1, result.back());
    } else if (c == 'p') {
      result += pattern(count());
    } else {
      result += static_cast<char>(std::stoi(text.substr(at++ - 1, 2), nullptr, 16));
    }
  }
  return result;
}

}  // namespace

std::string bytes_of(const std::string& text) {
  size_t at = 0;
  return read_bytes(text, at);
}

}  // namespace kvjpx::test
