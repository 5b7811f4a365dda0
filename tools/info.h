// What a file is, on one screen: for info, and for whoever shows the same in another form.
#ifndef KVJPX_TOOLS_INFO_H_
#define KVJPX_TOOLS_INFO_H_

#include <string>
#include <vector>

#include "facts.h"

namespace kvjpx_tool {

Json info_facts(const OpenedFile& file);

// "JP2", say.
std::string info_kind(const Json& facts);

struct InfoRow {
  std::string heading;  // empty where it is that of the row before
  std::string text;
  std::string path;  // of the box that it comes from; empty: not of one box
};
// Of each kind the first few.
std::vector<InfoRow> info_rows(const Json& facts);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_INFO_H_
