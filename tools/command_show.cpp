// ls, print and extract: what a file holds.
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "box_path.h"
#include "commands.h"
#include "document.h"
#include "field.h"
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

std::string marks_of(const Box& box) {
  constexpr std::pair<uint32_t, const char*> kMarks[] = {
      {KV_JPX_BOX_MALFORMED, "malformed"}, {KV_JPX_BOX_MISPLACED, "misplaced"},
      {KV_JPX_BOX_CUT_SHORT, "cut short"}, {KV_JPX_BOX_OPEN_ENDED, "open-ended"},
      {KV_JPX_BOX_LONG_HEADER, "64-bit"},
  };
  std::string marks;
  for (const auto& [flag, word] : kMarks) {
    if ((box.flags & flag) != 0) marks += (marks.empty() ? "" : ", ") + std::string(word);
  }
  return marks;
}

void list_content(const Box& container, Table& table) {
  for (const auto& box : container.children) {
    table.add({std::to_string(box->begin), std::to_string(box->end - box->begin),
               "#" + std::to_string(box->id), path_of(*box), type_name(box->type), marks_of(*box)});
    list_content(*box, table);
  }
  if (container.tail_length == 0) return;
  table.add({std::to_string(container.end - container.tail_length),
             std::to_string(container.tail_length), "-", "-", "-",
             "no box, in " + path_of(container)});
}

}  // namespace

ExitCode list_boxes(const FileList& files) {
  return read_files(files, Form::kHeadings, [](const std::string& file, std::ostream& out) {
    const Document document(file, Document::Content::kAnything);
    Table table;
    list_content(document.root(), table);
    out << table.text();
    document.check_has_boxes();
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
