// diff: in what two files differ.
#include <algorithm>
#include <unordered_map>

#include "codestreams.h"
#include "commands.h"
#include "facts.h"
#include "facts_text.h"
#include "opened_file.h"
#include "output.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

using kvjpx::box;

constexpr size_t kNoPartner = SIZE_MAX;

std::string_view content_of(box place) {
  const auto content = place.source_content();
  return content ? content->text() : std::string_view();
}

std::vector<box> children_of(box container) {
  std::vector<box> children;
  for (const box child : container.children()) children.push_back(child);
  return children;
}

bool is_same(box a, box b) { return a.type() == b.type() && content_of(a) == content_of(b); }

// Which boxes of two containers belong together: those of one type and content, then those of one
// type, in their order.
class Pairing {
 public:
  Pairing(const std::vector<box>& a, const std::vector<box>& b)
      : a_(a), b_(b), partner_(a.size(), kNoPartner), is_taken_(b.size(), false) {
    size_t begin = 0;
    size_t end_a = a.size();
    size_t end_b = b.size();
    for (; begin < std::min(end_a, end_b) && is_same(a[begin], b[begin]); ++begin) {
      pair(begin, begin);
    }
    for (; std::min(end_a, end_b) > begin && is_same(a[end_a - 1], b[end_b - 1]);) {
      pair(--end_a, --end_b);
    }
    if (has_same_types(begin, end_a, end_b)) {
      for (size_t i = begin; i < end_a; ++i) pair(i, i);
      return;
    }
    pair_by(begin, end_a, end_b, [](box place) { return content_of(place); });
    pair_by(begin, end_a, end_b, [](box) { return std::string_view(); });
    find_moved();
  }

  // In the order of A; kNoPartner for a box that only A has.
  size_t partner(size_t in_a) const { return partner_[in_a]; }
  bool has_partner(size_t in_b) const { return is_taken_[in_b]; }
  bool is_moved(size_t in_a) const { return !is_moved_.empty() && is_moved_[in_a]; }

 private:
  void pair(size_t in_a, size_t in_b) {
    partner_[in_a] = in_b;
    is_taken_[in_b] = true;
  }

  bool has_same_types(size_t begin, size_t end_a, size_t end_b) const {
    if (end_a != end_b) return false;
    for (size_t i = begin; i < end_a; ++i) {
      if (a_[i].type() != b_[i].type()) return false;
    }
    return true;
  }

  template <class Key>
  void pair_by(size_t begin, size_t end_a, size_t end_b, const Key& key) {
    // The next of its kind stands at the end.
    std::unordered_map<uint32_t, std::unordered_map<std::string_view, std::vector<size_t>>> open;
    for (size_t i = end_b; i > begin; --i) {
      if (!is_taken_[i - 1]) open[b_[i - 1].type().code()][key(b_[i - 1])].push_back(i - 1);
    }
    for (size_t i = begin; i < end_a; ++i) {
      if (partner_[i] != kNoPartner) continue;
      std::vector<size_t>& candidates = open[a_[i].type().code()][key(a_[i])];
      if (candidates.empty()) continue;
      pair(i, candidates.back());
      candidates.pop_back();
    }
  }

  // All pairs have moved but those of a longest row that goes up on both sides.
  void find_moved() {
    std::vector<size_t>
        ends;  // boxes of A that end the rows of each length, with the least partner
    std::vector<size_t> before(a_.size(), kNoPartner);
    for (size_t i = 0; i < a_.size(); ++i) {
      if (partner_[i] == kNoPartner) continue;
      const auto place =
          std::lower_bound(ends.begin(), ends.end(), partner_[i],
                           [this](size_t end, size_t wanted) { return partner_[end] < wanted; });
      if (place != ends.begin()) before[i] = *(place - 1);
      if (place == ends.end()) {
        ends.push_back(i);
      } else {
        *place = i;
      }
    }
    is_moved_.assign(a_.size(), true);
    for (size_t i = ends.empty() ? kNoPartner : ends.back(); i != kNoPartner; i = before[i]) {
      is_moved_[i] = false;
    }
  }

  const std::vector<box>& a_;
  const std::vector<box>& b_;
  std::vector<size_t> partner_;
  std::vector<bool> is_taken_;
  std::vector<bool> is_moved_;
};

class Differ {
 public:
  Differ(const OpenedFile& a, const OpenedFile& b)
      : a_(a), b_(b), paths_a_(a.document()), paths_b_(b.document()) {}

  // Containers that are not the same.
  void compare_content(box a, box b) {
    const std::vector<box> in_a = children_of(a);
    const std::vector<box> in_b = children_of(b);
    const Pairing pairing(in_a, in_b);
    for (size_t i = 0; i < in_a.size(); ++i) {
      if (pairing.partner(i) == kNoPartner) {
        tell_single("- ", head_of(paths_a_, in_a[i]));
      } else {
        compare(in_a[i], in_b[pairing.partner(i)], pairing.is_moved(i));
      }
    }
    for (size_t i = 0; i < in_b.size(); ++i) {
      if (!pairing.has_partner(i)) tell_single("+ ", head_of(paths_b_, in_b[i]));
    }
    const std::string_view tail_a = tail_of(a);
    const std::string_view tail_b = tail_of(b);
    if (tail_a != tail_b) {
      tell(paths_a_.path(a) + ", no box", bytes_text(tail_a), bytes_text(tail_b));
    }
  }

  void compare_codestreams(const std::string& path, kvjpx_codestream::Source& a,
                           kvjpx_codestream::Source& b) {
    const std::vector<Json> in_a = segments_of(a);
    const std::vector<Json> in_b = segments_of(b);
    std::unordered_map<std::string, const Json*> left_in_b;
    for (const Json& segment : in_b) left_in_b.emplace(segment["key"], &segment);
    for (const Json& segment : in_a) {
      const auto other = left_in_b.find(segment["key"]);
      if (other == left_in_b.end()) {
        tell_line("- " + path + ", " + name_of(segment));
        continue;
      }
      compare_fields(path + ", " + name_of(segment), segment, *other->second);
      left_in_b.erase(other);
    }
    for (const Json& segment : in_b) {
      if (left_in_b.count(segment["key"]) == 1) tell_line("+ " + path + ", " + name_of(segment));
    }
  }

  void tell(const std::string& what, const std::string& a, const std::string& b) {
    tell_line(what + ": " + a + " -> " + b);
  }
  void tell_line(const std::string& line) {
    print_text(line + "\n");
    ++told_;
  }
  static std::string bytes_text(std::string_view bytes) {
    return value_text(bytes_fact(bytes), "");
  }

 private:
  static std::string_view header_of(const OpenedFile& file, const BoxHead& head) {
    return file.bytes().substr(head.extent.offset, head.extent.header_length);
  }

  static std::string_view tail_of(box container) {
    const std::string_view content = content_of(container);
    const auto extent = container.extent();
    return extent ? content.substr(content.size() - extent->tail_length) : std::string_view();
  }

  void tell_single(const char* sign, const BoxHead& head) {
    tell_line(sign + with_name(head.path, Json(head.uuid)) + ": " +
              size_text(number_fact(head.length())) + " at " + std::to_string(head.extent.offset));
  }

  void compare(box a, box b, bool is_moved) {
    const BoxHead head_a = head_of(paths_a_, a);
    const BoxHead head_b = head_of(paths_b_, b);
    if (is_moved) tell_line(head_a.path + ": moved to " + head_b.path);
    const bool is_same_content = content_of(a) == content_of(b);
    const Json form_a = head_facts(head_a)["header"];
    const Json form_b = head_facts(head_b)["header"];
    if (form_a != form_b) {
      tell(head_a.path + ", header", form_a, form_b);
    } else if (is_same_content && header_of(a_, head_a) != header_of(b_, head_b)) {
      // The length of a box that is cut short.
      tell(head_a.path + ", header", to_hex(header_of(a_, head_a)), to_hex(header_of(b_, head_b)));
    }
    if (is_same_content) return;
    const uint64_t told_before = told_;
    const Json all_a = box_facts(head_a);
    const Json all_b = box_facts(head_b);
    compare_fields(head_a.path, all_a, all_b);
    if (a.is_container() && b.is_container()) compare_content(a, b);
    if (all_a.contains("payload") && all_b.contains("payload") &&
        all_a["payload"] != all_b["payload"]) {
      tell(head_a.path, payload_text(all_a["payload"]), payload_text(all_b["payload"]));
    }
    if (a.type() == kvjpx::type("jp2c")) {
      PiecesSource codestream_a;
      PiecesSource codestream_b;
      codestream_a.add(content_of(a));
      codestream_b.add(content_of(b));
      compare_codestreams(head_a.path, codestream_a, codestream_b);
    }
    // Bytes that belong to no field.
    if (told_ == told_before) {
      tell(head_a.path + ", content", bytes_text(content_of(a)), bytes_text(content_of(b)));
    }
  }

  // Short texts as they are.
  static std::string payload_text(const Json& payload) {
    constexpr size_t kShort = 60;
    const std::string text = payload.value("text", "");
    const bool is_short = !text.empty() && text.size() <= kShort && text.find('\n') == text.npos;
    return is_short ? "'" + text + "'" : value_text(payload, "");
  }

  void compare_fields(const std::string& place, const Json& a, const Json& b) {
    const Json none = Json::object();
    const Json fields_a = a.value("fields", none);
    const Json fields_b = b.value("fields", none);
    Json all = fields_a;
    all.update(fields_b);
    for (const auto& field : all.items()) {
      const std::string& key = field.key();
      std::string field_place = place;
      field_place.append(".").append(key);
      compare_values(field_place, fields_a.value(key, Json()), fields_b.value(key, Json()),
                     a.value("names", none).value(key, Json()),
                     b.value("names", none).value(key, Json()));
    }
  }

  void compare_values(const std::string& place, const Json& a, const Json& b, const Json& name_a,
                      const Json& name_b) {
    if (a == b) return;
    if (!a.is_array() || !b.is_array()) {
      tell(place, shown(a, name_a), shown(b, name_b));
      return;
    }
    const auto entry = [](const Json& list, size_t i) {
      return i < list.size() ? list[i] : Json();
    };
    constexpr size_t kMostShown = 16;
    size_t different = 0;
    for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
      if (entry(a, i) == entry(b, i) || ++different > kMostShown) continue;
      tell(place + "[" + std::to_string(i) + "]", shown(entry(a, i), entry(name_a, i)),
           shown(entry(b, i), entry(name_b, i)));
    }
    if (different > kMostShown) {
      tell_line(place + ": and " + std::to_string(different - kMostShown) + " more entries");
    }
  }

  static std::string shown(const Json& value, const Json& name) {
    if (value.is_null()) return "none";
    return value.is_array() ? list_text(value, name) : with_name(value_text(value, ""), name);
  }

  static std::string name_of(const Json& segment) {
    const std::string name = segment["name"];
    const std::string marker = segment["marker"];
    const bool is_main = !segment.contains("tile_part");
    return (is_main ? "" : "tile-part " + digits(segment["tile_part"]) + " ") +
           (name.empty() ? marker : name);
  }

  // With a key of header, marker and number among those of one kind.
  static std::vector<Json> segments_of(kvjpx_codestream::Source& source) {
    Json facts = {{"whole", true}};
    add_headers(facts, source);
    std::unordered_map<std::string, uint64_t> counts;
    std::vector<Json> segments;
    for (Json& segment : facts["segments"]) {
      const std::string name = name_of(segment);
      segment["key"] = name + " " + std::to_string(counts[name]++);
      segments.push_back(std::move(segment));
    }
    return segments;
  }

  const OpenedFile& a_;
  const OpenedFile& b_;
  kvjpx::box_paths paths_a_;
  kvjpx::box_paths paths_b_;
  uint64_t told_ = 0;
};

std::string kind_of(const OpenedFile& file) {
  return file.is_codestream() ? "a bare codestream" : "a file of boxes";
}

}  // namespace

ExitCode diff_files(const std::string& a, const std::string& b) {
  const OpenedFile file_a(a);
  const OpenedFile file_b(b);
  file_a.check_is_known();
  file_b.check_is_known();
  if (file_a.bytes() == file_b.bytes()) return kDone;
  Differ differ(file_a, file_b);
  if (file_a.is_codestream() != file_b.is_codestream()) {
    differ.tell("/", kind_of(file_a), kind_of(file_b));
  } else if (file_a.is_codestream()) {
    differ.tell("/", Differ::bytes_text(file_a.bytes()), Differ::bytes_text(file_b.bytes()));
    differ.compare_codestreams("/", codestreams_of(file_a)[0].source,
                               codestreams_of(file_b)[0].source);
  } else {
    differ.compare_content(file_a.document().root(), file_b.document().root());
  }
  return kFindings;
}

}  // namespace kvjpx_tool
