// info: what a file is, on one screen.
#include <algorithm>

#include "commands.h"
#include "facts_text.h"
#include "info.h"

namespace kvjpx_tool {
namespace {

std::string info_text(const Json& facts) {
  constexpr size_t kWidth = 14;
  std::string text = facts["file"].get<std::string>() + ": " + info_kind(facts) + ", " +
                     size_text(facts["size"]) + "\n";
  for (const InfoRow& row : info_rows(facts)) {
    std::string words = row.text;
    // Names and labels may have several lines.
    std::replace(words.begin(), words.end(), '\n', ' ');
    text += "  " + row.heading + std::string(kWidth - row.heading.size(), ' ') + words +
            (row.path.empty() ? "" : " (" + row.path + ")") + "\n";
  }
  return text;
}

}  // namespace

ExitCode show_info(const InfoRequest& request) {
  const Form form = request.json ? Form::kJsonLines : Form::kText;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name);
    file.check_is_known();
    const Json facts = info_facts(file);
    out << (request.json ? json_text(facts) + "\n" : info_text(facts));
    return kDone;
  });
}

}  // namespace kvjpx_tool
