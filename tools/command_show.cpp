// ls, print and extract: what a file holds.
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <ostream>
#include <utility>

#include "box_path.h"
#include "commands.h"
#include "facts.h"
#include "field.h"
#include "metadata.h"
#include "opened_file.h"
#include "printer.h"
#include "terminal.h"

namespace kvjpx_tool {
namespace {

// Rows of text that are printed in aligned columns; numbers to the right, words to the left. All
// cells stand in one string, as there may be millions, each with a line end behind it.
class Table {
 public:
  static constexpr size_t kNumberColumns = 3;
  static constexpr size_t kColumns = 6;

  void expect(size_t rows) { cells_.reserve(rows * kUsualRow); }
  // A row is added cell by cell.
  void add(std::string_view cell) {
    cells_ += cell;
    cells_ += '\n';
    widths_[column_] = std::max(widths_[column_], cell.size());
    column_ = (column_ + 1) % kColumns;
  }
  void add(uint64_t number, bool is_id = false) {
    char digits[24];
    digits[0] = '#';
    const auto end = std::to_chars(digits + 1, std::end(digits), number).ptr;
    const char* const begin = digits + (is_id ? 0 : 1);
    add({begin, static_cast<size_t>(end - begin)});
  }

  void print(std::ostream& out) const {
    size_t width_of_row = 0;
    for (size_t column = 0; column + 1 < kColumns; ++column) width_of_row += widths_[column] + 2;
    std::string lines;
    std::string_view rest = cells_;
    size_t place = 0;
    for (size_t column = 0; !rest.empty(); column = (column + 1) % kColumns) {
      const std::string_view cell = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(cell.size() + 1);
      if (column == 0) {
        place = lines.size();
        lines.append(width_of_row, ' ');
      }
      if (column + 1 < kColumns) {
        const bool is_number = column < kNumberColumns;
        cell.copy(&lines[place + (is_number ? widths_[column] - cell.size() : 0)], cell.size());
        place += widths_[column] + 2;
        continue;
      }
      if (!cell.empty()) lines += styled(STDOUT_FILENO, Style::kOddity, std::string(cell));
      while (lines.back() == ' ') lines.pop_back();
      lines += '\n';
      if (lines.size() < kPiece && !rest.empty()) continue;
      out << lines;
      lines.clear();
    }
  }

 private:
  static constexpr size_t kPiece = size_t{1} << 15;
  static constexpr size_t kUsualRow = 48;

  std::string cells_;
  size_t column_ = 0;
  size_t widths_[kColumns] = {};
};

std::string marks_of(const BoxHead& head) {
  std::string marks;
  for (const char* const mark : head.marks) marks.append(marks.empty() ? "" : ", ").append(mark);
  return marks;
}

// Lists boxes in a table; "branch" is what stands in front of a box to draw the tree.
class Lister {
 public:
  Lister(const kvjpx::document& document, bool is_tree)
      : document_(document), is_tree_(is_tree), paths_(document) {}

  void print_all(std::ostream& out) {
    table_.expect(paths_.size());
    list(head_of(paths_, document_.root()), "");
    table_.print(out);
  }
  void print_children(kvjpx::box container, std::ostream& out) {
    for (const kvjpx::box child : container.children()) add(head_of(paths_, child), "");
    add_tail(head_of(paths_, container), "");
    table_.print(out);
  }

 private:
  void list(const BoxHead& head, const std::string& indent) {
    const bool is_top = head.box.is_root();
    const bool has_tail = head.extent.tail_length > 0;
    kvjpx::box next;
    for (kvjpx::box child = head.box.first_child(); child; child = next) {
      next = child.next();
      const bool is_last = !is_tree_ || (!has_tail && !next);
      const BoxHead inner = head_of(paths_, child);
      add(inner, is_top ? "" : indent + (is_last ? kLast : kOther));
      if (!child.is_container()) continue;
      list(inner, is_top ? "" : indent + (is_last ? kNothing : kLine));
    }
    add_tail(head, is_top ? "" : indent + kLast);
  }

  void add(const BoxHead& head, const std::string& branch) {
    std::string type = head.type.name();
    if (!head.uuid.empty()) type.append(" ").append(head.uuid);
    table_.add(head.extent.offset);
    table_.add(head.length());
    table_.add(head.box.id(), true);
    table_.add(is_tree_ ? branch + type : head.path);
    table_.add(is_tree_ ? "" : type);
    table_.add(marks_of(head));
  }

  void add_tail(const BoxHead& container, const std::string& branch) {
    if (container.extent.tail_length == 0) return;
    table_.add(container.tail_offset());
    table_.add(container.extent.tail_length);
    table_.add("-");
    table_.add(is_tree_ ? branch + "-" : "-");
    table_.add(is_tree_ ? "" : "-");
    table_.add("no box, in " + container.path);
  }

  static constexpr const char* kOther = "|-- ";
  static constexpr const char* kLast = "`-- ";
  static constexpr const char* kLine = "|   ";
  static constexpr const char* kNothing = "    ";

  const kvjpx::document& document_;
  bool is_tree_;
  kvjpx::box_paths paths_;
  Table table_;
};

void print_json(const OpenedFile& file, std::ostream& out) {
  const kvjpx::box_paths paths(file.document());
  JsonPrinter printer(out);
  printer.begin_file({{"file", file.label()}});
  printer.section("boxes");
  for (const kvjpx::box box : file.document().boxes()) {
    printer.head(head_of(paths, box));
  }
  print_tails(file.document(), paths, printer);
  printer.end_file();
}

}  // namespace

ExitCode list_boxes(const ListRequest& request) {
  const Form form = request.form == ListForm::kJson ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name);
    if (request.form == ListForm::kJson) {
      file.check_has_boxes();
      print_json(file, out);
      return kDone;
    }
    Lister(file.document(), request.form == ListForm::kTree).print_all(out);
    file.check_has_boxes();
    return kDone;
  });
}

void list_words(const std::string& file, const std::string& word, bool with_fields) {
  const OpenedFile opened(file);
  std::string words;
  const auto add = [&](const std::string& candidate) {
    if (candidate.rfind(word, 0) == 0) words += candidate + "\n";
  };
  const size_t dot = word.find('.');
  if (with_fields && dot != word.npos) {
    for (const Field& field : Field::all_of(opened, find_box(opened, word.substr(0, dot)))) {
      add(word.substr(0, dot + 1) + field.name());
    }
  } else {
    for (const kvjpx::box box : opened.document().boxes()) {
      add(opened.paths().path(box) + (with_fields ? "." : ""));
    }
  }
  print_text(words);
}

void list_children(const kvjpx::document& document, kvjpx::box container, std::ostream& out) {
  Lister(document, false).print_children(container, out);
}

ExitCode print_boxes(const FileList& files, const std::string& path) {
  return read_files(files, Form::kHeadings, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name, OpenedFile::Content::kBoxes);
    const kvjpx::box box = find_box(file, path);
    const std::string place = place_of(file, box);
    int32_t code = JPX_OK;
    out << printed_by([&] { code = kv_jpx_print_box(box.context(), box.id()); });
    if (code == JPX_OK) return kDone;
    throw library_failure(place, box.context(), kNoSuchPlace);
  });
}

void extract_payload(const std::string& file, const std::string& path, const Target& target) {
  const OpenedFile opened(file, OpenedFile::Content::kBoxes);
  write_result(target, find_box(opened, path).source_content().value_or(kvjpx::byte_view()).text());
}

void extract_kind(const std::string& file, const std::string& kind, const Target& target) {
  const OpenedFile opened(file, OpenedFile::Content::kBoxes);
  for (const kvjpx::box box : opened.document().boxes()) {
    if (kind == "icc") {
      if (auto profile = box.bytes<kvjpx::colr::icc>())
        return write_result(target, profile->text());
    } else if (is_metadata(box, kind)) {
      const auto content = kind == "xml" ? box.payload() : box.bytes<kvjpx::uuid::data>();
      if (content) return write_result(target, content->text());
    }
  }
  throw Failure(kNoSuchPlace, opened.label() + ": there is no " + kind + " in it");
}

}  // namespace kvjpx_tool
