// check: holds files against the standard.
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>

#include "check/check.h"
#include "commands.h"
#include "input_file.h"
#include "many.h"

namespace kvjpx_tool {
namespace {

using kvjpx_check::Finding;
using kvjpx_check::Rule;
using kvjpx_check::Severity;

const Rule& rule_named(const std::string& id) {
  const std::vector<Rule>& rules = kvjpx_check::rules();
  const auto found =
      std::find_if(rules.begin(), rules.end(), [&](const Rule& rule) { return rule.id == id; });
  if (found == rules.end()) throw Failure(kUsage, "there is no rule '" + id + "' (see --list)");
  return *found;
}

// Which findings are asked for.
class Selection {
 public:
  explicit Selection(const CheckRequest& request) {
    for (const std::string& id : request.only) wanted_.insert(&rule_named(id));
    if (request.only.empty()) {
      for (const Rule& rule : kvjpx_check::rules()) wanted_.insert(&rule);
    }
    for (const std::string& id : request.ignore) wanted_.erase(&rule_named(id));
  }
  bool has(const Finding& finding) const { return wanted_.count(finding.rule) != 0; }

 private:
  std::set<const Rule*> wanted_;
};

struct Counts {
  std::array<uint64_t, 3> of_severity{};

  uint64_t of(Severity severity) const { return of_severity[static_cast<size_t>(severity)]; }
  bool fail(bool is_strict) const {
    return of(Severity::kError) > 0 || (is_strict && of(Severity::kWarning) > 0);
  }
};

kvjpx_check::Result result_for(const InputFile& file, unsigned profile) {
  const kvjpx::byte_view bytes(file.bytes());
  auto document =
      file.is_mapped() ? kvjpx::document::open(file.name()) : kvjpx::document::read(bytes);
  if (!document) throw Failure(kInputOutput, file.label() + ": " + document.error().text());
  return kvjpx_check::check(*document, bytes, profile);
}

std::string line_of(const std::string& label, const Finding& finding) {
  std::string line = label + ":" + std::to_string(finding.offset) + ": " + finding.path + ": " +
                     kvjpx_check::name(finding.rule->severity) + " " + finding.rule->id + ": " +
                     finding.rule->text;
  if (!finding.found.empty()) line += "; found " + finding.found;
  if (!finding.expected.empty()) line += "; expected " + finding.expected;
  return line + " (ISO/IEC " + finding.rule->clause + ")\n";
}

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

void print_lines(const std::string& label, const std::vector<Finding>& findings, uint64_t omitted,
                 std::ostream& out) {
  for (const Finding& finding : findings) out << line_of(label, finding);
  if (omitted > 0) out << label << ": " << omitted << " more findings\n";
}

void print_json(const InputFile& file, const kvjpx_check::Result& result, const Counts& counts,
                uint64_t omitted, std::ostream& out) {
  nlohmann::ordered_json json = {{"file", file.label()},
                                 {"size", file.bytes().size()},
                                 {"profile", kvjpx_check::name(result.profile)},
                                 {"errors", counts.of(Severity::kError)},
                                 {"warnings", counts.of(Severity::kWarning)},
                                 {"notes", counts.of(Severity::kNote)},
                                 {"omitted", omitted},
                                 {"findings", nlohmann::ordered_json::array()}};
  for (const Finding& finding : result.findings) json["findings"].push_back(json_of(finding));
  out << json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

bool check_one(const std::string& name, const CheckRequest& request, const Selection& selection,
               std::ostream& out) {
  const InputFile file(name);
  kvjpx_check::Result result = result_for(file, request.profile);
  std::vector<Finding>& findings = result.findings;
  findings.erase(std::remove_if(findings.begin(), findings.end(),
                                [&](const Finding& finding) { return !selection.has(finding); }),
                 findings.end());
  Counts counts;
  for (const Finding& one : findings) ++counts.of_severity[static_cast<size_t>(one.rule->severity)];
  uint64_t omitted = result.more;
  if (request.max && findings.size() > *request.max) {
    omitted += findings.size() - *request.max;
    findings.resize(*request.max);
  }
  if (request.is_json) {
    print_json(file, result, counts, omitted, out);
  } else {
    print_lines(file.label(), findings, omitted, out);
  }
  return counts.fail(request.is_strict);
}

}  // namespace

ExitCode check_files(const CheckRequest& request) {
  const Selection selection(request);
  return read_files(request.files, request.is_json ? Form::kJsonLines : Form::kText,
                    [&](const std::string& file, std::ostream& out) {
                      return check_one(file, request, selection, out) ? kFindings : kDone;
                    });
}

void list_rules() { print_text(kvjpx_check::rules_as_markdown()); }

}  // namespace kvjpx_tool
