// Boxes with their content, as people write them on a command line:
//
//   asoc{lbl="gml.data" asoc{lbl=gml.root-instance xml=@gml.xml}}
//
// A type (as in paths), then a value or, in braces, the boxes in it. A value is text, @FILE,
// hex:00ff or text:words, and the whole of what stands behind the box's header; quotes keep blanks
// and braces together.
#ifndef KVJPX_TOOLS_BOX_NOTATION_H_
#define KVJPX_TOOLS_BOX_NOTATION_H_

#include <optional>
#include <string>
#include <vector>

#include "kvjpx.hpp"

namespace kvjpx_tool {

struct NotedBox {
  kvjpx::type type;
  std::optional<std::string> content;
  std::vector<NotedBox> boxes;
};

// Throws a Failure with kUsage for anything but one box.
NotedBox parse_box(const std::string& text);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_NOTATION_H_
