// ls, print and extract: what a file holds.
#include <unistd.h>

#include <algorithm>

#include "box_path.h"
#include "commands.h"
#include "document.h"
#include "facts.h"
#include "field.h"
#include "opened_file.h"
#include "terminal.h"

namespace kvjpx_tool {
namespace {

// Rows of text that are printed in aligned columns; numbers to the right, words to the left.
class Table {
 public:
  static constexpr size_t kNumberColumns = 3;
  static constexpr size_t kColumns = 6;
  using Row = std::string[kColumns];

  void add(const Row& row) {
    for (size_t i = 0; i < kColumns; ++i) {
      cells_.push_back(row[i]);
      widths_[i] = std::max(widths_[i], row[i].size());
    }
  }

  std::string text() const {
    std::string lines;
    for (size_t i = 0; i < cells_.size(); ++i) {
      const size_t column = i % kColumns;
      const std::string blanks(widths_[column] - cells_[i].size(), ' ');
      if (column + 1 < kColumns) {
        lines += (column < kNumberColumns ? blanks + cells_[i] : cells_[i] + blanks) + "  ";
        continue;
      }
      if (!cells_[i].empty()) lines += styled(STDOUT_FILENO, Style::kOddity, cells_[i]);
      lines.replace(lines.find_last_not_of(' ') + 1, lines.npos, "\n");
    }
    return lines;
  }

 private:
  std::vector<std::string> cells_;
  size_t widths_[kColumns] = {};
};

std::string marks_of(const BoxHead& head) {
  std::string marks;
  for (const char* const mark : head.marks)
    marks += (marks.empty() ? "" : ", ") + std::string(mark);
  return marks;
}

// Lists boxes in a form; "branch" is what stands in front of a box to draw the tree.
class Lister {
 public:
  Lister(const kvjpx::document& document, ListForm form)
      : document_(document), form_(form), paths_(document) {}

  std::string all(const std::string& label) {
    list(document_.root(), "");
    if (form_ == ListForm::kJson) {
      const Json facts = {{"file", label}, {"boxes", boxes_}, {"tails", tails_}};
      return json_text(facts) + "\n";
    }
    return table_.text();
  }
  std::string children(kvjpx::box container) {
    for (const kvjpx::box child : container.children()) add(head_of(paths_, child), "");
    add_tail(head_of(paths_, container), "");
    return table_.text();
  }

 private:
  void list(kvjpx::box container, const std::string& indent) {
    const BoxHead head = head_of(paths_, container);
    const bool has_tail = head.extent.tail_length > 0;
    for (const kvjpx::box child : container.children()) {
      const bool is_last = form_ != ListForm::kTree || (!has_tail && !child.next());
      add(head_of(paths_, child), container.is_root() ? "" : indent + (is_last ? kLast : kOther));
      if (!child.is_container()) continue;
      list(child, container.is_root() ? "" : indent + (is_last ? kNothing : kLine));
    }
    add_tail(head, container.is_root() ? "" : indent + kLast);
  }

  void add(const BoxHead& head, const std::string& branch) {
    if (form_ == ListForm::kJson) {
      boxes_.push_back(head_facts(head));
      return;
    }
    std::string type = head.box.type().name();
    if (!head.uuid.empty()) type.append(" ").append(head.uuid);
    const bool is_tree = form_ == ListForm::kTree;
    table_.add({std::to_string(head.extent.offset), std::to_string(head.length()),
                "#" + std::to_string(head.box.id()), is_tree ? branch + type : head.path,
                is_tree ? "" : type, marks_of(head)});
  }

  void add_tail(const BoxHead& container, const std::string& branch) {
    if (container.extent.tail_length == 0) return;
    if (form_ == ListForm::kJson) {
      tails_.push_back(tail_facts(container));
      return;
    }
    const bool is_tree = form_ == ListForm::kTree;
    table_.add({std::to_string(container.tail_offset()),
                std::to_string(container.extent.tail_length), "-", is_tree ? branch + "-" : "-",
                is_tree ? "" : "-", "no box, in " + container.path});
  }

  static constexpr const char* kOther = "|-- ";
  static constexpr const char* kLast = "`-- ";
  static constexpr const char* kLine = "|   ";
  static constexpr const char* kNothing = "    ";

  const kvjpx::document& document_;
  ListForm form_;
  kvjpx::box_paths paths_;
  Table table_;
  Json boxes_ = Json::array();
  Json tails_ = Json::array();
};

}  // namespace

ExitCode list_boxes(const ListRequest& request) {
  const Form form = request.form == ListForm::kJson ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name);
    if (form == Form::kJsonLines) file.check_has_boxes();
    out << Lister(file.document(), request.form).all(file.label());
    file.check_has_boxes();
    return kDone;
  });
}

void list_words(const std::string& file, const std::string& word, bool with_fields) {
  const Document document(file, Document::Content::kAnything);
  std::string words;
  const auto add = [&](const std::string& candidate) {
    if (candidate.rfind(word, 0) == 0) words += candidate + "\n";
  };
  const size_t dot = word.find('.');
  if (with_fields && dot != word.npos) {
    for (const Field& field : Field::all_of(document, document.find(word.substr(0, dot)))) {
      add(word.substr(0, dot + 1) + field.name());
    }
  } else {
    for_each_box(document.root(),
                 [&](const Box& box) { add(path_of(box) + (with_fields ? "." : "")); });
  }
  print_text(words);
}

void list_children(const kvjpx::document& document, kvjpx::box container) {
  print_text(Lister(document, ListForm::kPlain).children(container));
}

void print_box(const std::string& file, const std::string& path) {
  const Document document(file);
  const Box& box = document.find(path);
  // The library prints through the same stdio stream, so the order of output is kept.
  int32_t code = JPX_OK;
  print_filtered([&] { code = kv_jpx_print_box(document.context(), box.id); });
  if (code != JPX_OK) throw library_failure(document.place(box), document.context(), kNoSuchPlace);
}

void extract_payload(const std::string& file, const std::string& path, const Target& target) {
  const Document document(file);
  const Box& box = document.find(path);
  write_result(target, document.bytes().substr(box.content_begin, box.end - box.content_begin));
}

}  // namespace kvjpx_tool
