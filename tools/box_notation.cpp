// Reads the notation of boxes.
#include "box_notation.h"

#include <cctype>

#include "box_path.h"
#include "failure.h"
#include "field.h"

namespace kvjpx_tool {
namespace {

// The library nests no deeper.
constexpr unsigned kDeepest = 256;

class Reader {
 public:
  explicit Reader(const std::string& text) : text_(text) {}

  NotedBox box(unsigned depth) {
    NotedBox box;
    box.type = parse_type(word("={}"), kUsage);
    if (takes('=')) {
      const std::string value = word("{}");
      const std::optional<std::string> bytes = parse_bytes(value, "'" + text_ + "'");
      box.content = bytes ? *bytes : value;
    } else if (skip_blanks(), takes('{')) {
      if (depth == kDeepest) fail("boxes are nested more than 256 deep");
      while (skip_blanks(), !takes('}')) box.boxes.push_back(this->box(depth + 1));
    }
    return box;
  }

  void end() {
    skip_blanks();
    if (position_ < text_.size()) fail("'" + text_.substr(position_) + "' is left over");
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw Failure(kUsage, "'" + text_ + "': " + reason);
  }
  bool takes(char wanted) {
    const bool is_there = position_ < text_.size() && text_[position_] == wanted;
    position_ += is_there ? 1 : 0;
    return is_there;
  }
  void skip_blanks() {
    while (position_ < text_.size() && is_blank()) ++position_;
  }
  bool is_blank() const { return std::isspace(static_cast<unsigned char>(text_[position_])) != 0; }

  // Up to a blank or one of these characters, unless they are in quotes.
  std::string word(const std::string& ends) {
    std::string word;
    bool is_quoted = false;
    for (; position_ < text_.size(); ++position_) {
      const char c = text_[position_];
      if (c == '"') {
        is_quoted = !is_quoted;
      } else if (!is_quoted && (is_blank() || ends.find(c) != std::string::npos)) {
        break;
      } else {
        word += c;
      }
    }
    if (is_quoted) fail("a quote is not closed");
    return word;
  }

  const std::string& text_;
  size_t position_ = 0;
};

}  // namespace

NotedBox parse_box(const std::string& text) {
  Reader reader(text);
  NotedBox box = reader.box(1);
  reader.end();
  return box;
}

}  // namespace kvjpx_tool
