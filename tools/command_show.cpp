// ls, print and extract: what a file holds.
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <numeric>
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

// A number as it stands in a table.
class Digits {
 public:
  std::string_view number(uint64_t number) {
    return {text_, static_cast<size_t>(std::to_chars(text_, std::end(text_), number).ptr - text_)};
  }
  std::string_view id(uint32_t id) {
    if (id == KV_JPX_ROOT) return "-";
    text_[0] = '#';
    char* const end = std::to_chars(text_ + 1, std::end(text_), id).ptr;
    return {text_, static_cast<size_t>(end - text_)};
  }

 private:
  char text_[24];
};

// Rows that are printed in aligned columns: numbers to the right, words to the left. There may be
// millions, so that the words of all stand in one string.
class Table {
 public:
  void expect(size_t rows) {
    rows_.reserve(rows);
    words_.reserve(rows * kUsualWords);
  }
  // For KV_JPX_ROOT, there is a dash in place of the identifier.
  void add(uint64_t offset, uint64_t length, uint32_t id, std::string_view name,
           std::string_view type, std::string_view marks) {
    const Row row = {offset,
                     length,
                     id,
                     static_cast<uint32_t>(name.size()),
                     static_cast<uint32_t>(type.size()),
                     static_cast<uint32_t>(marks.size())};
    rows_.push_back(row);
    words_.append(name).append(type).append(marks);
    largest_.offset = std::max(largest_.offset, offset);
    largest_.length = std::max(largest_.length, length);
    if (largest_.id == KV_JPX_ROOT || (id != KV_JPX_ROOT && id > largest_.id)) largest_.id = id;
    largest_.name_size = std::max(largest_.name_size, row.name_size);
    largest_.type_size = std::max(largest_.type_size, row.type_size);
  }

  void print(std::ostream& out) const {
    Digits digits;
    const size_t widths[] = {digits.number(largest_.offset).size(),
                             digits.number(largest_.length).size(), digits.id(largest_.id).size(),
                             largest_.name_size, largest_.type_size};
    const size_t width =
        std::accumulate(std::begin(widths), std::end(widths), kGap * std::size(widths));
    std::string lines;
    const char* words = words_.data();
    for (const Row& row : rows_) {
      lines.append(width, ' ');
      char* place = lines.data() + lines.size() - width;
      const auto put = [&](size_t column, std::string_view cell, bool is_number = false) {
        cell.copy(place + (is_number ? widths[column] - cell.size() : 0), cell.size());
        place += widths[column] + kGap;
      };
      const auto next = [&](size_t size) {
        return std::string_view(std::exchange(words, words + size), size);
      };
      put(0, digits.number(row.offset), true);
      put(1, digits.number(row.length), true);
      put(2, digits.id(row.id), true);
      put(3, next(row.name_size));
      put(4, next(row.type_size));
      const std::string_view marks = next(row.marks_size);
      if (!marks.empty()) lines += styled(STDOUT_FILENO, Style::kOddity, std::string(marks));
      lines.resize(lines.find_last_not_of(' ') + 1);
      lines += '\n';
      if (lines.size() < kPiece && &row != &rows_.back()) continue;
      out << lines;
      lines.clear();
    }
  }

 private:
  struct Row {
    uint64_t offset;
    uint64_t length;
    uint32_t id;
    uint32_t name_size;
    uint32_t type_size;
    uint32_t marks_size;
  };
  static constexpr size_t kPiece = size_t{1} << 15;
  static constexpr size_t kUsualWords = 24;
  static constexpr size_t kGap = 2;

  std::vector<Row> rows_;
  std::string words_;
  Row largest_ = {0, 0, KV_JPX_ROOT, 0, 0, 0};
};

std::string marks_of(const BoxHead& head) {
  std::string marks;
  for (const char* const mark : head.marks) marks.append(marks.empty() ? "" : ", ").append(mark);
  return marks;
}

// Lists boxes in a table; in front of a box stands what draws the tree.
class Lister {
 public:
  Lister(const kvjpx::document& document, bool is_tree) : is_tree_(is_tree), paths_(document) {}

  void print_all(std::ostream& out) {
    table_.expect(paths_.size());
    head_.look_at(paths_, paths_[0]);
    list(0, "");
    table_.print(out);
  }
  void print_children(kvjpx::box container, std::ostream& out) {
    for (const kvjpx::box child : container.children()) {
      head_ = head_of(paths_, child);
      add("", "");
    }
    head_ = head_of(paths_, container);
    add_tail("");
    table_.print(out);
  }

 private:
  // What is in the container at a place, where the last look was at; returns the place behind.
  size_t list(size_t container, const std::string& indent) {
    const bool is_top = container == 0;
    const bool has_tail = head_.extent.tail_length > 0;
    const size_t child_count = paths_[container].child_count;
    size_t place = container + 1;
    for (size_t child = 1; child <= child_count; ++child) {
      const bool is_last = !has_tail && child == child_count;
      head_.look_at(paths_, paths_[place]);
      add(indent, is_top ? "" : is_last ? kLast : kOther);
      const bool has_content = paths_[place].child_count > 0 || head_.extent.tail_length > 0;
      if (!has_content) {
        ++place;
        continue;
      }
      place = list(place, is_top ? "" : indent + (is_last ? kNothing : kLine));
    }
    if (has_tail) {
      head_.look_at(paths_, paths_[container]);
      add_tail(is_top ? "" : indent + kLast);
    }
    return place;
  }

  void add(const std::string& indent, const char* branch) {
    std::string type = head_.type.name();
    if (!head_.uuid.empty()) type.append(" ").append(head_.uuid);
    const uint32_t id = head_.box.id();
    if (is_tree_) {
      table_.add(head_.extent.offset, head_.length(), id, indent + branch + type, "",
                 marks_of(head_));
    } else {
      table_.add(head_.extent.offset, head_.length(), id, head_.path, type, marks_of(head_));
    }
  }

  void add_tail(const std::string& branch) {
    if (head_.extent.tail_length == 0) return;
    table_.add(head_.tail_offset(), head_.extent.tail_length, KV_JPX_ROOT,
               (is_tree_ ? branch : "") + "-", is_tree_ ? "" : "-", "no box, in " + head_.path);
  }

  static constexpr const char* kOther = "|-- ";
  static constexpr const char* kLast = "`-- ";
  static constexpr const char* kLine = "|   ";
  static constexpr const char* kNothing = "    ";

  bool is_tree_;
  kvjpx::box_paths paths_;
  BoxHead head_;  // of the last box that was looked at
  Table table_;
};

void print_json(const OpenedFile& file, std::ostream& out) {
  const kvjpx::box_paths paths(file.document());
  JsonPrinter printer(out);
  printer.begin_file({{"file", file.label()}});
  print_all_boxes(paths, printer, [&](const BoxHead& head) { printer.head(head); });
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
