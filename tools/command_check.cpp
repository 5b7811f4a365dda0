// check: holds files against the standard.
#include <algorithm>
#include <set>

#include "check/check.h"
#include "check_report.h"
#include "commands.h"
#include "many.h"
#include "opened_file.h"

namespace kvjpx_tool {
namespace {

using kvjpx_check::Finding;
using kvjpx_check::Rule;

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

void print_lines(const std::string& label, const std::vector<Finding>& findings, uint64_t omitted,
                 std::ostream& out) {
  for (const Finding& finding : findings) out << finding_as_line(label, finding);
  if (omitted > 0) out << label << ": " << omitted << " more findings\n";
}

bool check_one(const std::string& name, const CheckRequest& request, const Selection& selection,
               std::ostream& out) {
  const OpenedFile file(name);
  kvjpx_check::Result result = kvjpx_check::check(file.document(), file.bytes(), request.profile);
  std::vector<Finding>& findings = result.findings;
  findings.erase(std::remove_if(findings.begin(), findings.end(),
                                [&](const Finding& finding) { return !selection.has(finding); }),
                 findings.end());
  const FindingCounts counts(findings);
  uint64_t omitted = result.more;
  if (request.max && findings.size() > *request.max) {
    omitted += findings.size() - *request.max;
    findings.resize(*request.max);
  }
  if (request.is_json) {
    out << check_as_json({file.label(), file.bytes().size(), counts, omitted}, result);
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
