// dump: everything that is in a file.
#include <algorithm>

#include "codestreams.h"
#include "commands.h"
#include "facts.h"
#include "facts_text.h"
#include "opened_file.h"
#include "printer.h"

namespace kvjpx_tool {
namespace {

std::string fields_text(const Json& facts, const std::string& indent) {
  const Json fields = facts.value("fields", Json::object());
  const Json names = facts.value("names", Json::object());
  size_t width = 0;
  for (const auto& field : fields.items()) width = std::max(width, field.key().size());
  std::string text;
  for (const auto& field : fields.items()) {
    const Json name = names.value(field.key(), Json());
    text += indent + field.key() + std::string(width - field.key().size() + 2, ' ');
    text += field.value().is_array() ? list_text(field.value(), name)
                                     : with_name(value_text(field.value(), indent + "  "), name);
    text += "\n";
  }
  return text;
}

std::string box_text(const Json& box) {
  std::string text = with_name(box["path"], box.value("uuid", Json())) + ": " +
                     size_text(box["length"]) + " at " + digits(box["offset"]) + ", header " +
                     digits(box["header_length"]);
  for (const Json& mark : box["marks"]) text += ", " + mark.get<std::string>();
  text += "\n" + fields_text(box, "  ");
  if (box.contains("payload")) {
    const Json& payload = box["payload"];
    const std::string value = value_text(payload.value("text", payload), "    ");
    text += (value[0] == '\n' ? "  payload:" : "  payload: ") + value + "\n";
  }
  return text;
}

std::string codestream_text(const Json& codestream) {
  std::string text = "codestream " + digits(codestream["number"]) + " in " +
                     codestream["path"].get<std::string>() + ": " +
                     size_text(codestream["length"]) +
                     (codestream["whole"] == true ? "\n" : ", the rest is not in this file\n");
  for (const Json& segment : codestream["segments"]) {
    const std::string name = segment["name"];
    text += "  " + (name.empty() ? segment["marker"].get<std::string>() : name) + " at " +
            digits(segment["offset"]);
    if (segment.contains("length")) text += ", " + size_text(segment["length"]);
    if (segment.contains("tile_part")) text += ", tile-part " + digits(segment["tile_part"]);
    text += "\n" + fields_text(segment, "    ");
  }
  for (const Json& problem : codestream["problems"]) {
    text += "  problem at " + digits(problem["offset"]) + ": " + problem_text(problem) + "\n";
  }
  return text;
}

class TextPrinter final : public Printer {
 public:
  explicit TextPrinter(std::ostream& out) : out_(out) {}

  void begin_file(const Json&) override {}
  void section(const char* name) override { section_ = name; }
  void entry(const Json& facts) override {
    if (section_ == "boxes") out_ << box_text(facts);
    if (section_ == "codestreams") out_ << codestream_text(facts);
    if (section_ == "findings") out_ << "note: " + facts["text"].get<std::string>() + "\n";
    if (section_ == "tails") {
      out_ << facts["path"].get<std::string>() + ": no box: " + size_text(facts["length"]) +
                  " at " + digits(facts["offset"]) + "\n";
    }
  }
  void end_file() override {}

 private:
  std::ostream& out_;
  std::string_view section_;
};

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

void dump_file(const OpenedFile& file, bool with_codestreams, Printer& printer) {
  const kvjpx::document& document = file.document();
  const kvjpx::box_paths paths(document);
  printer.begin_file({{"file", file.label()},
                      {"size", number_fact(file.bytes().size())},
                      {"kind", file.is_codestream() ? "codestream" : "boxes"}});
  printer.section("boxes");
  for (const kvjpx::box box : document.boxes()) printer.entry(box_facts(head_of(paths, box)));
  print_tails(document, paths, printer);
  printer.section("findings");
  for (const kvjpx::finding& finding : document.findings()) {
    printer.entry(finding_facts(paths, finding));
  }
  if (with_codestreams || file.is_codestream()) dump_codestreams(file, paths, printer);
  printer.end_file();
  file.check_is_known();
}

}  // namespace

ExitCode dump_files(const DumpRequest& request) {
  const bool is_json = request.format == "json";
  const Form form = is_json ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name);
    if (is_json) file.check_is_known();
    JsonPrinter json(out);
    TextPrinter text(out);
    dump_file(file, request.codestreams, is_json ? static_cast<Printer&>(json) : text);
    return kDone;
  });
}

}  // namespace kvjpx_tool
