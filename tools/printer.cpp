// Prints what several commands print.
#include "printer.h"

namespace kvjpx_tool {

void print_tails(const kvjpx::document& document, const kvjpx::box_paths& paths, Printer& printer) {
  printer.section("tails");
  const auto add_tail = [&](kvjpx::box box) {
    const auto extent = box.extent();
    if (extent && extent->tail_length > 0) printer.entry(tail_facts(head_of(paths, box)));
  };
  for (const kvjpx::box box : document.boxes()) {
    if (box.is_container()) add_tail(box);
  }
  add_tail(document.root());
}

}  // namespace kvjpx_tool
