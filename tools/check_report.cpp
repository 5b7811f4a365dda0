#include "check_report.h"

#include <nlohmann/json.hpp>

namespace kvjpx_tool {

using kvjpx_check::Finding;
using kvjpx_check::Severity;

std::string finding_as_line(const std::string& label, const Finding& finding) {
  std::string line = label + ":" + std::to_string(finding.offset) + ": " + finding.path + ": " +
                     kvjpx_check::name(finding.rule->severity) + " " + finding.rule->id + ": " +
                     finding.rule->text;
  if (!finding.found.empty()) line += "; found " + finding.found;
  if (!finding.expected.empty()) line += "; expected " + finding.expected;
  return line + " (ISO/IEC " + finding.rule->clause + ")\n";
}

namespace {

nlohmann::ordered_json json_of(const Finding& finding) {
  nlohmann::ordered_json json = {{"offset", finding.offset},
                                 {"path", finding.path},
                                 {"severity", kvjpx_check::name(finding.rule->severity)},
                                 {"id", finding.rule->id},
                                 {"text", finding.rule->text}};
  if (!finding.found.empty()) json["found"] = finding.found;
  if (!finding.expected.empty()) json["expected"] = finding.expected;
  json["clause"] = "ISO/IEC " + finding.rule->clause;
  return json;
}

}  // namespace

std::string check_as_json(const CheckedFile& file, const kvjpx_check::Result& result) {
  nlohmann::ordered_json json = {{"file", file.label},
                                 {"size", file.size},
                                 {"profile", kvjpx_check::name(result.profile)},
                                 {"errors", file.counts.of(Severity::kError)},
                                 {"warnings", file.counts.of(Severity::kWarning)},
                                 {"notes", file.counts.of(Severity::kNote)},
                                 {"omitted", file.omitted},
                                 {"findings", nlohmann::ordered_json::array()}};
  for (const Finding& finding : result.findings) json["findings"].push_back(json_of(finding));
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace kvjpx_tool
