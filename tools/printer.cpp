// Prints what several commands print.
#include "printer.h"

namespace kvjpx_tool {

void print_all_boxes(const kvjpx::box_paths& paths, Printer& printer,
                     const std::function<void(const BoxHead&)>& print) {
  printer.section("boxes");
  BoxHead head;
  std::vector<size_t> with_tail;
  for (size_t place = 1; place <= paths.size(); ++place) {
    head.look_at(paths, paths[place]);
    if (head.extent.tail_length > 0) with_tail.push_back(place);
    print(head);
  }
  printer.section("tails");
  for (const size_t place : with_tail) {
    head.look_at(paths, paths[place]);
    printer.entry(tail_facts(head));
  }
  head.look_at(paths, paths[0]);
  if (head.extent.tail_length > 0) printer.entry(tail_facts(head));
}

}  // namespace kvjpx_tool
