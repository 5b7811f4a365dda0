// What `kvjpx check` prints of a file.
#ifndef KVJPX_TOOLS_CHECK_REPORT_H_
#define KVJPX_TOOLS_CHECK_REPORT_H_

#include <array>
#include <string>
#include <vector>

#include "check/check.h"

namespace kvjpx_tool {

class FindingCounts {
 public:
  explicit FindingCounts(const std::vector<kvjpx_check::Finding>& findings) {
    for (const kvjpx_check::Finding& one : findings) {
      ++counts_[static_cast<size_t>(one.rule->severity)];
    }
  }
  uint64_t of(kvjpx_check::Severity severity) const {
    return counts_[static_cast<size_t>(severity)];
  }
  bool fail(bool is_strict) const {
    return of(kvjpx_check::Severity::kError) > 0 ||
           (is_strict && of(kvjpx_check::Severity::kWarning) > 0);
  }

 private:
  std::array<uint64_t, 3> counts_{};
};

struct CheckedFile {
  std::string label;
  uint64_t size = 0;
  FindingCounts counts;
  uint64_t omitted = 0;  // findings that are not among those of the result
};

// With a line end each.
std::string finding_as_line(const std::string& label, const kvjpx_check::Finding& finding);
// As docs/check.schema.json has it; valid UTF-8 whatever the file and its name hold.
std::string check_as_json(const CheckedFile& file, const kvjpx_check::Result& result);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_CHECK_REPORT_H_
