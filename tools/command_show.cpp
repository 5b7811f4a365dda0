// ls, print and extract: what a file holds.
#include <unistd.h>

#include <algorithm>
#include <array>
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
// cells stand in one string, as there may be millions.
class Table {
 public:
  static constexpr size_t kNumberColumns = 3;
  static constexpr size_t kColumns = 6;

  void add(const std::array<std::string_view, kColumns>& row) {
    for (size_t i = 0; i < kColumns; ++i) {
      cells_ += row[i];
      lengths_.push_back(static_cast<uint32_t>(row[i].size()));
      widths_[i] = std::max(widths_[i], row[i].size());
    }
  }

  void print(std::ostream& out) const {
    std::string line;
    size_t begin = 0;
    for (size_t i = 0; i < lengths_.size(); ++i) {
      const size_t column = i % kColumns;
      const std::string_view cell = std::string_view(cells_).substr(begin, lengths_[i]);
      begin += cell.size();
      if (column + 1 < kColumns) {
        const size_t blanks = widths_[column] - cell.size();
        if (column < kNumberColumns) line.append(blanks, ' ');
        line += cell;
        line.append((column < kNumberColumns ? 0 : blanks) + 2, ' ');
        continue;
      }
      if (!cell.empty()) line += styled(STDOUT_FILENO, Style::kOddity, std::string(cell));
      line.resize(line.find_last_not_of(' ') + 1);
      out << line << '\n';
      line.clear();
    }
  }

 private:
  std::string cells_;
  std::vector<uint32_t> lengths_;
  size_t widths_[kColumns] = {};
};

std::string marks_of(const BoxHead& head) {
  std::string marks;
  for (const char* const mark : head.marks)
    marks += (marks.empty() ? "" : ", ") + std::string(mark);
  return marks;
}

// Lists boxes in a table; "branch" is what stands in front of a box to draw the tree.
class Lister {
 public:
  Lister(const kvjpx::document& document, bool is_tree)
      : document_(document), is_tree_(is_tree), paths_(document) {}

  void print_all(std::ostream& out) {
    list(document_.root(), "");
    table_.print(out);
  }
  void print_children(kvjpx::box container, std::ostream& out) {
    for (const kvjpx::box child : container.children()) add(head_of(paths_, child), "");
    add_tail(head_of(paths_, container), "");
    table_.print(out);
  }

 private:
  void list(kvjpx::box container, const std::string& indent) {
    const BoxHead head = head_of(paths_, container);
    const bool has_tail = head.extent.tail_length > 0;
    for (const kvjpx::box child : container.children()) {
      const bool is_last = !is_tree_ || (!has_tail && !child.next());
      add(head_of(paths_, child), container.is_root() ? "" : indent + (is_last ? kLast : kOther));
      if (!child.is_container()) continue;
      list(child, container.is_root() ? "" : indent + (is_last ? kNothing : kLine));
    }
    add_tail(head, container.is_root() ? "" : indent + kLast);
  }

  void add(const BoxHead& head, const std::string& branch) {
    std::string type = head.box.type().name();
    if (!head.uuid.empty()) type.append(" ").append(head.uuid);
    table_.add({std::to_string(head.extent.offset), std::to_string(head.length()),
                "#" + std::to_string(head.box.id()), is_tree_ ? branch + type : head.path,
                is_tree_ ? "" : type, marks_of(head)});
  }

  void add_tail(const BoxHead& container, const std::string& branch) {
    if (container.extent.tail_length == 0) return;
    table_.add({std::to_string(container.tail_offset()),
                std::to_string(container.extent.tail_length), "-", is_tree_ ? branch + "-" : "-",
                is_tree_ ? "" : "-", "no box, in " + container.path});
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
    printer.entry(head_facts(head_of(paths, box)));
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
