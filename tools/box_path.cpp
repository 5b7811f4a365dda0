// Resolves paths and tells what is wrong with them.
#include "box_path.h"

#include <optional>
#include <set>
#include <sstream>

#include "metadata.h"
#include "suggestion.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

struct Step {
  kvjpx::type type;
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
std::string suggest(const OpenedFile& file, kvjpx::box parent, kvjpx::type type) {
  std::set<kvjpx::type> present;
  for (const kvjpx::box box : parent.children()) present.insert(box.type());
  if (present.count(type) != 0) return "";
  Suggestion suggestion(type.name());
  for (const kvjpx::type other : present) suggestion.consider(other.name());
  if (!suggestion.text().empty()) return suggestion.text();
  const kvjpx::box elsewhere = file.document().first(type);
  return elsewhere ? "; did you mean '" + file.paths().path(elsewhere) + "'?" : "";
}

kvjpx::box follow_step(const OpenedFile& file, kvjpx::box box, const std::string& text,
                       const std::string& place) {
  if (box.is_root() && text[0] == '#') {
    const auto found = file.document().find(text);
    if (!found) throw Failure(kNoSuchPlace, place + ": there is no box with this identifier");
    return *found;
  }
  const Step step = parse_step(text, place);
  if (const kvjpx::box child = file.paths().child(box, step.type, step.index)) return child;
  std::string wanted = step.type.name();
  if (step.index > 0) wanted += "[" + std::to_string(step.index) + "]";
  throw Failure(kNoSuchPlace, place + ": there is no box '" + wanted + "' in " +
                                  file.paths().path(box) + suggest(file, box, step.type));
}

std::vector<kvjpx::box> resolve(const OpenedFile& file, const std::string& path,
                                bool has_wildcards) {
  const std::string place = file.label() + ": " + path;
  std::vector<kvjpx::box> boxes = {file.document().root()};
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (step.empty()) continue;
    const size_t colon = step.find(':');
    const size_t star = step.find("[*]");
    const bool is_of_kind = colon != std::string::npos && step.substr(0, colon) == "uuid";
    const bool is_all = has_wildcards && star != std::string::npos && star + 3 == step.size();
    std::vector<kvjpx::box> found;
    for (const kvjpx::box box : boxes) {
      if (!is_of_kind && !is_all) {
        found.push_back(follow_step(file, box, step, place));
        continue;
      }
      const kvjpx::type type = parse_type(step.substr(0, is_all ? star : colon), kNoSuchPlace);
      for (const kvjpx::box child : box.children()) {
        if (child.type() != type) continue;
        if (is_all || is_metadata(child, step.substr(colon + 1))) found.push_back(child);
      }
    }
    if (found.empty()) throw Failure(kNoSuchPlace, place + ": there is no box '" + step + "'");
    boxes = std::move(found);
  }
  return boxes;
}

}  // namespace

kvjpx::type parse_type(const std::string& text, ExitCode exit_code) {
  const std::optional<kvjpx::type> type = kvjpx::type::parse(text);
  if (!type) {
    throw Failure(exit_code, "'" + text + "' is not a box type (one to four characters)");
  }
  return *type;
}

kvjpx::box find_box(const OpenedFile& file, const std::string& path) {
  const std::vector<kvjpx::box> boxes = resolve(file, path, path.find(':') != std::string::npos);
  if (boxes.size() == 1) return boxes.front();
  throw Failure(kNoSuchPlace, file.label() + ": " + path + ": there are " +
                                  std::to_string(boxes.size()) + "; choose one by its index");
}

std::vector<kvjpx::box> find_boxes(const OpenedFile& file, const std::string& path) {
  return resolve(file, path, true);
}

std::string place_of(const OpenedFile& file, kvjpx::box box) {
  return place_of(file, box, file.paths().path(box));
}

std::string place_of(const OpenedFile& file, kvjpx::box box, const std::string& path) {
  const auto extent = box.extent();
  const bool has_offset = extent && !box.is_root();
  return file.label() + (has_offset ? ":" + std::to_string(extent->offset) : "") + ": " + path;
}

}  // namespace kvjpx_tool
