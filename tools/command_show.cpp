// ls, print and extract: what a file holds.
#include <algorithm>

#include "box_path.h"
#include "commands.h"
#include "document.h"
#include "terminal.h"

namespace kvjpx_tool {
namespace {

// Rows of text that are printed in aligned columns; numbers to the right, words to the left.
class Table {
 public:
  static constexpr size_t kNumberColumns = 3;
  static constexpr size_t kColumns = 5;
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
      if (column < kNumberColumns) lines += blanks;
      lines += cells_[i];
      if (column + 1 == kColumns) {
        lines += "\n";
        continue;
      }
      if (column >= kNumberColumns) lines += blanks;
      lines += "  ";
    }
    return lines;
  }

 private:
  std::vector<std::string> cells_;
  size_t widths_[kColumns] = {};
};

std::string listing_of(const std::string& file) {
  const Document document(file);
  Table table;
  for_each_box(document.root(), [&](const Box& box) {
    table.add({std::to_string(box.begin), std::to_string(box.end - box.begin),
               "#" + std::to_string(box.id), path_of(box), type_name(box.type)});
  });
  return table.text();
}

}  // namespace

ExitCode list_boxes(const std::vector<std::string>& files) {
  ExitCode result = kDone;
  for (const std::string& file : files) {
    if (files.size() > 1) print_text((&file == &files[0] ? "" : "\n") + file + ":\n");
    std::string listing;
    try {
      listing = listing_of(file);
    } catch (const Failure& failure) {
      report(failure.what());
      if (result == kDone) result = failure.exit_code();
    }
    print_text(listing);
  }
  return result;
}

void print_box(const std::string& file, const std::string& path) {
  const Document document(file);
  const Box& box = document.find(path);
  // The library prints through the same stdio stream, so the order of output is kept.
  int32_t code = JPX_OK;
  print_filtered([&] { code = kv_jpx_print_box(document.context(), box.id); });
  if (code != JPX_OK) throw library_failure(document.place(box), code, kNoSuchPlace);
}

void extract_payload(const std::string& file, const std::string& path, const Target& target) {
  const Document document(file);
  const Box& box = document.find(path);
  write_result(target, document.bytes().substr(box.content_begin, box.end - box.content_begin));
}

}  // namespace kvjpx_tool
