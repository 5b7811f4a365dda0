// Writes and resolves paths.
#include "box_path.h"

#include <cstring>
#include <optional>
#include <sstream>

#include "suggestion.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

// Kept free for the syntax of paths, of fields behind them and of command lines.
bool needs_escape(unsigned char character) {
  return character <= ' ' || character > '~' || std::strchr("/[].#%-=", character) != nullptr;
}

// The characters that an escaped text stands for; nothing when an escape is broken.
std::optional<std::string> unescape(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    const std::optional<std::string> byte = parse_hex(text.substr(i + 1, 2));
    if (!byte || byte->size() != 1) return std::nullopt;
    plain += *byte;
    i += 2;
  }
  return plain;
}

struct Step {
  uint32_t type;
  uint64_t index;
};

Step parse_step(const std::string& text, const std::string& place) {
  const size_t bracket = text.find('[');
  const Step step{parse_type(text.substr(0, bracket), kNoSuchPlace), 0};
  if (bracket == std::string::npos) return step;
  const std::optional<uint64_t> index =
      text.back() == ']' ? parse_number(text.substr(bracket + 1, text.size() - bracket - 2))
                         : std::nullopt;
  if (!index) throw Failure(kNoSuchPlace, place + ": '" + text + "' has no proper [index]");
  return {step.type, *index};
}

// A box of a type that `parent` has none of may stand there under a similar type, or elsewhere.
std::string suggest(const BoxTree& tree, const Box& parent, uint32_t type) {
  if (parent.find_child(type, 0)) return "";
  Suggestion suggestion(type_name(type));
  for (const Box* box : parent.children_by_type) {
    if (box->index == 0) suggestion.consider(type_name(box->type));
  }
  if (!suggestion.text().empty()) return suggestion.text();
  for (const Box* box : tree.boxes_by_id) {
    if (box && box->type == type) return "; did you mean '" + path_of(*box) + "'?";
  }
  return "";
}

const Box& find_child(const BoxTree& tree, const Box& parent, const Step& step,
                      const std::string& place) {
  if (const Box* child = parent.find_child(step.type, step.index)) return *child;
  std::string wanted = type_name(step.type);
  if (step.index > 0) wanted += "[" + std::to_string(step.index) + "]";
  throw Failure(kNoSuchPlace, place + ": there is no box '" + wanted + "' in " + path_of(parent) +
                                  suggest(tree, parent, step.type));
}

const Box& find_id(const BoxTree& tree, const std::string& digits, const std::string& place) {
  const std::optional<uint64_t> id = parse_number(digits);
  const Box* found = id ? tree.find(*id) : nullptr;
  if (!found) throw Failure(kNoSuchPlace, place + ": there is no box with this identifier");
  return *found;
}

const Box& follow_step(const BoxTree& tree, const Box& box, const std::string& step,
                       const std::string& place) {
  if (box.is_root() && step[0] == '#') return find_id(tree, step.substr(1), place);
  return find_child(tree, box, parse_step(step, place), place);
}

}  // namespace

std::string type_name(uint32_t type) {
  const char characters[] = {static_cast<char>(type >> 24), static_cast<char>(type >> 16),
                             static_cast<char>(type >> 8), static_cast<char>(type)};
  size_t length = 4;
  while (length > 1 && characters[length - 1] == ' ') --length;
  std::string name;
  for (size_t i = 0; i < length; ++i) {
    const unsigned char character = static_cast<unsigned char>(characters[i]);
    if (needs_escape(character)) {
      name += "%" + to_hex(std::string(1, characters[i]));
    } else {
      name += characters[i];
    }
  }
  return name;
}

uint32_t parse_type(const std::string& text, ExitCode exit_code) {
  std::optional<std::string> characters = unescape(text);
  if (!characters || characters->empty() || characters->size() > 4) {
    throw Failure(exit_code, "'" + text + "' is not a box type (one to four characters)");
  }
  characters->resize(4, ' ');
  const std::string& c = *characters;
  return KV_JPX_TYPE(c[0], c[1], c[2], c[3]);
}

std::string path_of(const Box& box) {
  if (box.is_root()) return "/";
  std::string path = box.parent->is_root() ? "" : path_of(*box.parent) + "/";
  path += type_name(box.type);
  if (box.same_type_count > 1) path += "[" + std::to_string(box.index) + "]";
  return path;
}

const Box& resolve_path(const BoxTree& tree, const std::string& path, const std::string& label) {
  const std::string place = label + ": " + path;
  const Box* box = &tree.root;
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (!step.empty()) box = &follow_step(tree, *box, step, place);
  }
  return *box;
}

std::vector<const Box*> resolve_paths(
    const BoxTree& tree, const std::string& path, const std::string& label,
    const std::function<bool(const Box&, const std::string&)>& is_kind) {
  const std::string place = label + ": " + path;
  std::vector<const Box*> boxes = {&tree.root};
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (step.empty()) continue;
    const size_t colon = step.find(':');
    const size_t star = step.find("[*]");
    const bool is_of_kind = colon != std::string::npos && step.substr(0, colon) == "uuid";
    const bool is_all = star != std::string::npos && star + 3 == step.size();
    std::vector<const Box*> found;
    for (const Box* box : boxes) {
      if (!is_of_kind && !is_all) {
        found.push_back(&follow_step(tree, *box, step, place));
        continue;
      }
      const uint32_t type = parse_type(step.substr(0, is_all ? star : colon), kNoSuchPlace);
      for (const auto& child : box->children) {
        if (child->type != type) continue;
        if (is_all || is_kind(*child, step.substr(colon + 1))) found.push_back(child.get());
      }
    }
    if (found.empty()) throw Failure(kNoSuchPlace, place + ": there is no box '" + step + "'");
    boxes = std::move(found);
  }
  return boxes;
}

}  // namespace kvjpx_tool
