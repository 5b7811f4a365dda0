// Goes through a file.
#include "dump.h"

#include "codestreams.h"

namespace kvjpx_tool {
namespace {

void dump_codestreams(const OpenedFile& file, const kvjpx::box_paths& paths, Printer& printer) {
  printer.section("codestreams");
  uint64_t number = 0;
  for (Codestream& codestream : codestreams_of(file)) {
    Json facts = {{"number", number++},
                  {"path", codestream.box ? paths.path(codestream.box) : "/"},
                  {"length", number_fact(codestream.source.size())},
                  {"whole", codestream.is_whole}};
    add_headers(facts, codestream.source);
    printer.entry(facts);
  }
}

}  // namespace

void dump_file(const OpenedFile& file, bool with_codestreams, Printer& printer) {
  const kvjpx::document& document = file.document();
  const kvjpx::box_paths paths(document);
  printer.begin_file({{"file", file.label()},
                      {"size", number_fact(file.bytes().size())},
                      {"kind", file.is_codestream() ? "codestream" : "boxes"}});
  print_all_boxes(paths, printer, [&](const BoxHead& head) { printer.box(head); });
  printer.section("findings");
  for (const kvjpx::finding& finding : document.findings()) {
    printer.entry(finding_facts(paths, finding));
  }
  if (with_codestreams || file.is_codestream()) dump_codestreams(file, paths, printer);
  printer.end_file();
  file.check_is_known();
}

void dump_json(const OpenedFile& file, bool with_codestreams, std::ostream& out) {
  file.check_is_known();
  JsonPrinter printer(out);
  dump_file(file, with_codestreams, printer);
}

}  // namespace kvjpx_tool
