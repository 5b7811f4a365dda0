// Everything that is in a file, for the command and for other programs.
#ifndef KVJPX_TOOLS_DUMP_H_
#define KVJPX_TOOLS_DUMP_H_

#include <ostream>

#include "opened_file.h"
#include "printer.h"

namespace kvjpx_tool {

void dump_file(const OpenedFile& file, bool with_codestreams, Printer& printer);

// On one line, as docs/dump.schema.json describes it. Throws a Failure before it writes.
void dump_json(const OpenedFile& file, bool with_codestreams, std::ostream& out);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_DUMP_H_
