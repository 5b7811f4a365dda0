// report: all about a file as a page for people, in one HTML file.
#include <algorithm>
#include <map>

#include "box_types.h"
#include "check/check.h"
#include "codestreams.h"
#include "commands.h"
#include "facts_text.h"
#include "html.h"
#include "info.h"
#include "names.h"
#include "report_style.h"
#include "thumbnail.h"

namespace kvjpx_tool {
namespace {

using kvjpx::box;

// A page that people can read and browsers can hold; what is left out is said where it would be.
constexpr size_t kMostBoxes = 2000;
constexpr size_t kMostChildren = 250;
constexpr size_t kMostFindings = 100;
constexpr size_t kMostCells = 40;    // of one container in the map
constexpr unsigned kMostLevels = 3;  // of the map
constexpr size_t kMostCodestreams = 20;
constexpr size_t kMostSegments = 100;
constexpr size_t kLongestText = 20000;
constexpr size_t kMostText = 400000;

std::string with_separators(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, "\xE2\x80\xAF");
  return text;
}

std::string bytes_text(uint64_t count) {
  return with_separators(count) + (count == 1 ? " byte" : " bytes");
}

std::string count_text(uint64_t count, const std::string& thing) {
  const char* const ending = count == 1 ? "" : thing.back() == 'x' ? "es" : "s";
  return with_separators(count) + " " + thing + ending;
}

const char* role_class(Role role) {
  constexpr const char* kClasses[] = {"k-structure",   "k-header",   "k-codestream",
                                      "k-composition", "k-metadata", "k-unknown"};
  return kClasses[static_cast<size_t>(role)];
}

std::string element(const std::string& name, const std::string& attributes,
                    const std::string& content) {
  return "<" + name + (attributes.empty() ? "" : " " + attributes) + ">" + content + "</" + name +
         ">";
}

// The beginning of a text that ends with a whole character.
std::string_view shortened(std::string_view text, size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (text[most] & 0xC0) == 0x80) --most;
  return text.substr(0, most);
}

// Keeps the first segments of a codestream.
class FirstSegments final : public kvjpx_codestream::Observer {
 public:
  void segment(kvjpx_codestream::Segment&& segment) override {
    if (++count <= kMostSegments) facts.push_back(segment_facts(segment));
  }
  std::vector<Json> facts;
  size_t count = 0;
};

// The boxes that a container has, once, as going over them takes a call each.
struct Branch {
  box place;
  uint64_t begin = 0;
  uint64_t length = 0;
  std::vector<Branch> children;  // those that the page has
  uint64_t left_out = 0;         // of the container's own
  uint64_t left_out_bytes = 0;
};

class Report {
 public:
  explicit Report(const OpenedFile& file)
      : file_(file), paths_(file.document()), info_(info_facts(file)) {
    for (auto place = file.document().boxes().begin(); place != kvjpx::walk_iterator(); ++place) {
      ++box_count_;
    }
    root_ = branch_of(file.document().root());
  }

  std::string page() {
    const std::string content = header() + navigation() + "<main>" + facts() + findings() + map() +
                                boxes() + codestreams() + "</main>";
    return head() + "<body>\n" +
           element("a", "class=\"skip\" href=\"#facts\"", "Skip to the facts") + content +
           footer() + "<script>" + kReportScript + "</script></body>\n</html>\n";
  }

 private:
  // ---- What is on the page

  // Takes a container's boxes before those within them, so that no box deep down takes the place of
  // one that people see first.
  Branch branch_of(box place) {
    Branch branch{place, 0, 0, {}, 0, 0};
    const kvjpx::extent extent = place.extent().value_or({});
    branch.begin = extent.offset;
    branch.length = extent.header_length + extent.content_length;
    if (place.is_root() ? file_.is_codestream() : !place.is_container()) return branch;
    for (const box child : place.children()) {
      if (branch.children.size() < kMostChildren && taken_ < kMostBoxes) {
        ++taken_;
        const kvjpx::extent its = child.extent().value_or({});
        branch.children.push_back(
            {child, its.offset, its.header_length + its.content_length, {}, 0, 0});
        shown_[paths_.path(child)] = child.id();
      } else {
        const kvjpx::extent its = child.extent().value_or({});
        ++branch.left_out;
        branch.left_out_bytes += its.header_length + its.content_length;
      }
    }
    for (Branch& child : branch.children) child = branch_of(child.place);
    return branch;
  }

  // A path, as a link where its box is on the page.
  std::string link(const std::string& path) const {
    const auto found = shown_.find(path);
    const std::string text = element("code", "", html(path));
    return found == shown_.end()
               ? text
               : element("a", "href=\"#b" + std::to_string(found->second) + "\"", text);
  }

  // ---- Above

  std::string head() const {
    const std::string policy = std::string(
                                   "default-src 'none'; img-src data:; style-src "
                                   "'unsafe-inline'; script-src ") +
                               csp_hash(kReportScript) + "; base-uri 'none'; form-action 'none'";
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
           policy +
           "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"referrer\" content=\"no-referrer\">\n<link rel=\"icon\" "
           "href=\"data:,\">\n" +
           element("title", "", html(name()) + " - report") + "\n<style>" + kReportStyle +
           "</style>\n</head>\n";
  }

  std::string name() const {
    const std::string& label = file_.label();
    return label.substr(label.rfind('/') + 1);
  }

  std::string header() const {
    std::string picture;
    try {
      picture =
          element("figure", "",
                  "<img alt=\"What the file shows, made small\" src=\"data:image/png;base64," +
                      base64(thumbnail_png(file_, info_)) + "\">");
    } catch (const Failure& failure) {
      picture = element("div", "class=\"nothing\"",
                        "No picture: " + element("bdi", "", html(failure.what())));
    }
    const std::string title = info_kind(info_) + ", " + bytes_text(file_.bytes().size()) + ", " +
                              count_text(box_count_, "box");
    return "<header>" + picture +
           element("div", "",
                   element("h1", "", html(name())) + element("p", "class=\"soft\"", title)) +
           "</header>\n";
  }

  static std::string navigation() {
    std::string items;
    for (const auto& [id, text] :
         {std::pair("facts", "Facts"), std::pair("findings", "Findings"), std::pair("map", "Bytes"),
          std::pair("boxes", "Boxes"), std::pair("codestreams", "Codestreams")}) {
      items += element("li", "", element("a", std::string("href=\"#") + id + "\"", text));
    }
    return element("nav", "aria-label=\"Sections\"", element("ul", "", items)) + "\n";
  }

  static std::string section(const char* id, const char* heading, const std::string& content) {
    const std::string heading_id = std::string(id) + "-heading";
    return element("section",
                   std::string("id=\"") + id + "\" tabindex=\"-1\" aria-labelledby=\"" +
                       heading_id + "\"",
                   element("h2", "id=\"" + heading_id + "\"", heading) + "\n" + content) +
           "\n";
  }

  std::string facts() const {
    std::string rows = element("dt", "", "file") + element("dd", "", html(file_.label()));
    for (const InfoRow& row : info_rows(info_)) {
      rows += element("dt", "", html(row.heading)) +
              element("dd", "", html(row.text) + (row.path.empty() ? "" : " " + link(row.path))) +
              "\n";
    }
    return section("facts", "Facts", element("dl", "", rows));
  }

  // ---- Findings

  kvjpx_check::Result result() const {
    const kvjpx::byte_view bytes(file_.bytes());
    if (!file_.is_codestream()) return kvjpx_check::check(file_.document(), bytes);
    const auto document = kvjpx::document::read(bytes);
    if (!document) throw Failure(kInputOutput, file_.label() + ": " + document.error().text());
    return kvjpx_check::check(*document, bytes);
  }

  std::string finding(const kvjpx_check::Finding& one) const {
    const std::string severity = kvjpx_check::name(one.rule->severity);
    std::string text =
        element("span", "class=\"" + severity + "\"", severity) + " " + html(one.rule->text);
    if (!one.found.empty()) text += "; found " + element("bdi", "", html(one.found));
    if (!one.expected.empty()) text += "; expected " + element("bdi", "", html(one.expected));
    const std::string place = link(one.path) + ", at " + with_separators(one.offset) +
                              " \xC2\xB7 " + element("code", "", html(one.rule->id)) +
                              " \xC2\xB7 ISO/IEC " + html(one.rule->clause);
    return element("li", "", element("p", "", text) + element("p", "class=\"soft\"", place)) + "\n";
  }

  std::string findings() const {
    const kvjpx_check::Result result = this->result();
    uint64_t counts[3] = {};
    for (const auto& one : result.findings) ++counts[static_cast<size_t>(one.rule->severity)];
    if (result.findings.empty()) {
      return section("findings", "Findings",
                     element("p", "", "Nothing in the file is at odds with ISO/IEC 15444."));
    }
    std::string text =
        element("p", "",
                count_text(counts[0], "error") + ", " + count_text(counts[1], "warning") + ", " +
                    count_text(counts[2], "note") + " by ISO/IEC 15444");
    // Errors first, each kind by its offset.
    std::vector<const kvjpx_check::Finding*> sorted;
    for (const auto& one : result.findings) sorted.push_back(&one);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](auto a, auto b) { return a->rule->severity < b->rule->severity; });
    const uint64_t shown = std::min(sorted.size(), kMostFindings);
    std::string items;
    for (size_t i = 0; i < shown; ++i) items += finding(*sorted[i]);
    text += element("ul", "class=\"findings\"", items);
    const uint64_t left_out = sorted.size() - shown + result.more;
    if (left_out > 0) {
      text += element("p", "class=\"soft more\"",
                      count_text(left_out, "more finding") + " left out; kvjpx check lists them.");
    }
    return section("findings", "Findings", text);
  }

  // ---- The map of bytes

  std::string cell(const std::string& kind, uint64_t length, const std::string& content) const {
    return element("div",
                   "class=\"cell " + kind + "\" style=\"flex-grow:" + std::to_string(length) + "\"",
                   content);
  }

  std::string cell_of(const Branch& branch, unsigned level) const {
    const BoxType& type = box_type(branch.place.type().code());
    const std::string code = code_text(branch.place.type().code());
    const std::string words =
        html(code + (*type.name ? std::string(", ") + type.name : "") + ": " +
             bytes_text(branch.length) + " at " + with_separators(branch.begin));
    const std::string label = element("a",
                                      "href=\"#b" + std::to_string(branch.place.id()) +
                                          "\" title=\"" + words + "\" aria-label=\"" + words + "\"",
                                      element("span", "", html(code)));
    const std::string within =
        level + 1 < kMostLevels && !branch.children.empty() ? cells(branch, level + 1) : "";
    return cell(role_class(type.role), branch.length, label + within);
  }

  std::string rest_cell(uint64_t length, const std::string& words) const {
    const std::string text = html(words + ": " + bytes_text(length));
    return cell("k-unknown", length,
                element("span", "title=\"" + text + "\"", element("span", "", text)));
  }

  // The first and the last of many.
  std::string cells(const Branch& branch, unsigned level) const {
    const size_t most = level == 0 ? kMostCells : kMostCells / 4;
    const size_t count = branch.children.size();
    std::string row;
    uint64_t skipped = branch.left_out, skipped_bytes = branch.left_out_bytes;
    for (size_t i = 0; i < count; ++i) {
      if (i < most) {
        row += cell_of(branch.children[i], level);
      } else {
        ++skipped;
        skipped_bytes += branch.children[i].length;
      }
    }
    if (skipped > 0) row += rest_cell(skipped_bytes, count_text(skipped, "more box"));
    const uint64_t tail = branch.place.extent().value_or({}).tail_length;
    if (tail > 0) row += rest_cell(tail, "no box");
    return element("div", "class=\"cells\"", row);
  }

  std::string map() const {
    if (root_.children.empty()) {
      return section("map", "Bytes", element("p", "", "The file has no boxes."));
    }
    std::string legend;
    constexpr std::pair<Role, const char*> kRoles[] = {
        {Role::kStructure, "structure"},    {Role::kHeader, "image headers"},
        {Role::kCodestream, "codestreams"}, {Role::kComposition, "composition"},
        {Role::kMetadata, "metadata"},      {Role::kUnknown, "unknown or left out"}};
    for (const auto& [role, words] : kRoles) {
      legend += element("li", std::string("class=\"") + role_class(role) + "\"", words);
    }
    return section(
        "map", "Bytes",
        element("ul", "class=\"legend\"", legend) +
            element("div",
                    "class=\"map\" role=\"group\" aria-label=\"Bytes by box; widths in "
                    "proportion, small ones widened\"",
                    cells(root_, 0)) +
            element("p", "class=\"scale num\"",
                    "<span>0</span><span>" + bytes_text(file_.bytes().size()) + "</span>"));
  }

  // ---- Boxes

  // What has lines of its own or is long is no entry of a list.
  std::string text_block(std::string_view text) {
    const std::string_view shown = shortened(text, std::min(kLongestText, text_left_));
    text_left_ -= shown.size();
    return element("pre", "tabindex=\"0\"", html(shown)) +
           (shown.size() == text.size() ? ""
                                        : element("p", "class=\"soft more\"",
                                                  bytes_text(text.size() - shown.size()) +
                                                      " left out; kvjpx extract has them all."));
  }

  static std::string field_text(const Json& value, const Json& name) {
    return value.is_array() ? list_text(value, name) : with_name(value_text(value, ""), name);
  }

  std::string fields(const Json& facts) {
    const Json names = facts.value("names", Json::object());
    std::string rows;
    const Json values = facts.value("fields", Json::object());
    for (const auto& field : values.items()) {
      const std::string text = field_text(field.value(), names.value(field.key(), Json()));
      const std::string_view shown = shortened(text, kLongestText / 10);
      rows += element("dt", "class=\"mono\"", html(field.key())) +
              element("dd", "", html(shown) + (shown.size() < text.size() ? " \xE2\x80\xA6" : ""));
    }
    return rows;
  }

  std::string body(const Branch& branch, const BoxHead& head) {
    const Json facts = box_facts(head);
    std::string rows = element("dt", "", "path") +
                       element("dd", "", element("code", "", html(head.path))) + fields(facts);
    std::string text;
    if (facts.contains("payload")) {
      const Json& payload = facts["payload"];
      rows += element("dt", "", "payload") + element("dd", "", html(value_text(payload, "")));
      if (payload.contains("text")) text = text_block(payload["text"].get<std::string>());
    }
    if (head.extent.tail_length > 0) {
      rows += element("dt", "", "no box") + element("dd", "",
                                                    bytes_text(head.extent.tail_length) + " at " +
                                                        with_separators(head.tail_offset()));
    }
    return element("div", "class=\"body\"", element("dl", "", rows) + text + tree(branch));
  }

  std::string item(const Branch& branch) {
    const BoxHead head = head_of(paths_, branch.place);
    const BoxType& type = box_type(branch.place.type().code());
    std::string summary =
        element("code", "", html(code_text(branch.place.type().code()))) +
        element("span", "", html(head.uuid.empty() ? std::string_view(type.name) : head.uuid));
    for (const char* const mark : head.marks)
      summary += element("span", "class=\"mark\"", html(mark));
    summary += element("span", "class=\"num place\"",
                       bytes_text(branch.length) + " at " + with_separators(branch.begin));
    const bool is_open = branch.place.is_container() && box_count_ <= kMostCells;
    return element("li", "",
                   element("details",
                           "id=\"b" + std::to_string(branch.place.id()) + "\" class=\"" +
                               role_class(type.role) + "\"" + (is_open ? " open" : ""),
                           element("summary", "", summary) + body(branch, head))) +
           "\n";
  }

  std::string tree(const Branch& branch) {
    std::string items;
    for (const Branch& child : branch.children) items += item(child);
    if (branch.left_out > 0) {
      items += element("li", "class=\"soft more\"",
                       count_text(branch.left_out, "more box") + " with " +
                           bytes_text(branch.left_out_bytes) + " left out; kvjpx ls lists them.");
    }
    return items.empty() ? "" : element("ul", "", items);
  }

  std::string boxes() {
    std::string text = element("div", "class=\"tools\" hidden",
                               "<button type=\"button\" value=\"open\">Unfold all</button>"
                               "<button type=\"button\" value=\"\">Fold all</button>");
    text += element("div", "class=\"tree\"", tree(root_));
    const BoxHead head = head_of(paths_, file_.document().root());
    if (head.extent.tail_length > 0) {
      text += element("p", "class=\"mark\"",
                      bytes_text(head.extent.tail_length) + " at " +
                          with_separators(head.tail_offset()) + " belong to no box.");
    }
    return section("boxes", "Boxes", text);
  }

  // ---- Codestreams

  static std::string segment_row(const Json& segment) {
    const Json names = segment.value("names", Json::object());
    std::string text;
    const Json values = segment.value("fields", Json::object());
    for (const auto& field : values.items()) {
      text += (text.empty() ? "" : ", ") + field.key() + " " +
              field_text(field.value(), names.value(field.key(), Json()));
    }
    const std::string_view shown = shortened(text, kLongestText / 10);
    return "<tr>" +
           element("th", "scope=\"row\"", element("code", "", html(digits(segment["name"])))) +
           element("td", "class=\"num\"", html(digits(segment["offset"]))) +
           element("td", "class=\"num\"",
                   segment.contains("length") ? html(digits(segment["length"])) : "") +
           element("td", "",
                   element("bdi", "", html(shown)) +
                       (shown.size() < text.size() ? " \xE2\x80\xA6" : "")) +
           "</tr>\n";
  }

  std::string codestreams() const {
    std::string text;
    size_t number = 0;
    for (Codestream& codestream : codestreams_of(file_)) {
      if (number == kMostCodestreams) {
        text += element("p", "class=\"soft more\"",
                        count_text(info_["codestreams"].size() - number, "more codestream") +
                            " left out; kvjpx dump --codestream shows them.");
        break;
      }
      FirstSegments segments;
      walk(codestream.source, segments);
      std::string rows;
      for (const Json& segment : segments.facts) rows += segment_row(segment);
      const std::string table = element(
          "div", "class=\"wide\" tabindex=\"0\"",
          element("table", "",
                  "<thead><tr><th scope=\"col\">marker</th><th scope=\"col\">offset</th>"
                  "<th scope=\"col\">length</th><th scope=\"col\">parameters</th></tr></thead>" +
                      element("tbody", "", rows)));
      const std::string left_out =
          segments.count > segments.facts.size()
              ? element("p", "class=\"soft more\"",
                        count_text(segments.count - segments.facts.size(), "more marker segment") +
                            " left out; kvjpx dump --codestream shows them.")
              : "";
      text += element(
          "details", number == 0 ? "open" : "",
          element(
              "summary", "",
              "<span>codestream " + std::to_string(number) + "</span>" +
                  element("code", "", codestream.box ? html(paths_.path(codestream.box)) : "") +
                  element("span", "class=\"num place\"", bytes_text(codestream.source.size()))) +
              element("div", "class=\"body\"", table + left_out));
      ++number;
    }
    return section("codestreams", "Codestreams",
                   text.empty() ? element("p", "", "The file has none.") : text);
  }

  std::string footer() const {
    return element("footer", "",
                   "Positions count bytes from the beginning of the file, in codestreams from "
                   "theirs. Made by kvjpx " KVJPX_VERSION ".");
  }

  const OpenedFile& file_;
  kvjpx::box_paths paths_;
  Json info_;
  uint64_t box_count_ = 0;
  size_t taken_ = 0;
  size_t text_left_ = kMostText;
  std::map<std::string, uint32_t> shown_;
  Branch root_;
};

}  // namespace

void write_report(const std::string& name, const Target& target) {
  const OpenedFile file(name);
  file.check_is_known();
  write_result(target, Report(file).page());
}

}  // namespace kvjpx_tool
