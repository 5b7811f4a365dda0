// dump: everything that is in a file.
#include <algorithm>

#include "commands.h"
#include "dump.h"
#include "facts_text.h"

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

}  // namespace

ExitCode dump_files(const DumpRequest& request) {
  const bool is_json = request.format == "json";
  const Form form = is_json ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name);
    if (is_json) {
      dump_json(file, request.codestreams, out);
    } else {
      TextPrinter text(out);
      dump_file(file, request.codestreams, text);
    }
    return kDone;
  });
}

}  // namespace kvjpx_tool
