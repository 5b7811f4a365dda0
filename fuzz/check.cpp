// Fuzzer: holds a file, or a bare codestream, against the standard as `kvjpx check` does: as what
// it claims to be and as JP2 and as JPX. The input is the file and nothing else.
#include "check/check.h"

#include <nlohmann/json.hpp>

#include "target.h"
#include "tools/check_report.h"

namespace kvjpx::fuzz {
namespace {

using kvjpx_check::Finding;
using kvjpx_check::Result;
using Json = nlohmann::json;

// Findings are in proportion: no byte is looked at by more than a few rules that tell of each, and
// what is told of the file as a whole, or of a box without content, is little.
uint64_t most_findings(uint64_t size) { return 64 + 4 * size; }

bool is_same(const Finding& a, const Finding& b) {
  return a.rule == b.rule && a.offset == b.offset && a.path == b.path && a.found == b.found &&
         a.expected == b.expected;
}

void check_findings(const Result& result, uint64_t size) {
  uint64_t reached = 0;
  for (const Finding& finding : result.findings) {
    require(finding.offset >= reached, "findings are in the order of the file");
    require(finding.offset <= size, "findings are in the file");
    require((finding.rule->profiles & result.profile) != 0, "rules are of the profile");
    require(!finding.path.empty(), "findings have a path");
    reached = finding.offset;
  }
  require(result.findings.size() + result.more <= most_findings(size),
          "findings are in proportion to the file");
}

void check_report(const Result& result, uint64_t size) {
  const std::string label = "\xFF\x1B";
  const std::string json = kvjpx_tool::check_as_json(
      {label, size, kvjpx_tool::FindingCounts(result.findings), 0}, result);
  require(json.find('\n') == json.size() - 1, "a file's object is one line");
  const Json object = Json::parse(json, nullptr, false);
  require(object.is_object() && object["findings"].size() == result.findings.size(),
          "what is printed is valid JSON");
  for (const Finding& finding : result.findings) {
    const std::string line = kvjpx_tool::finding_as_line("x", finding);
    for (const char c : line.substr(0, line.size() - 1)) {
      require(c >= ' ' && c <= '~', "findings are told in characters that can be printed");
    }
  }
}

Result checked(const Bytes& file, unsigned profile) {
  auto document = kvjpx::document::read(file);
  require(document.has_value(), "any bytes load");
  Result result = kvjpx_check::check(*document, kvjpx::byte_view(file), profile);
  check_findings(result, file.size());
  return result;
}

}  // namespace

void run(Input input) {
  const Bytes file = input.bytes(input.size());
  const Result result = checked(file, 0);
  check_report(result, file.size());
  for (const unsigned profile : {kvjpx_check::kJp2, kvjpx_check::kJpx, result.profile}) {
    const Result other = checked(file, profile);
    if (profile != static_cast<unsigned>(result.profile)) continue;
    require(std::equal(result.findings.begin(), result.findings.end(), other.findings.begin(),
                       other.findings.end(), is_same) &&
                result.more == other.more,
            "the same file has the same findings");
  }
}

}  // namespace kvjpx::fuzz
