// A small picture of what a file shows.
#ifndef KVJPX_TOOLS_THUMBNAIL_H_
#define KVJPX_TOOLS_THUMBNAIL_H_

#include <string>

#include "facts.h"

namespace kvjpx_tool {

// A PNG of the file that info_facts() tells of; throws a Failure with the reason when there is
// none.
std::string thumbnail_png(const OpenedFile& file, const Json& info);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_THUMBNAIL_H_
