// Fuzzer: what the program tells of a file, as JSON. The input is the file and nothing else.
#include "tools/dump.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "target.h"
#include "tools/failure.h"
#include "tools/info.h"

namespace kvjpx::fuzz {
namespace {

using Json = nlohmann::json;

// Every byte may be told in hex, as a box of its own path and as a finding.
uint64_t longest_answer(uint64_t size) { return 4096 + 128 * size; }

void check_json(const std::string& text, uint64_t size) {
  require(text.size() <= longest_answer(size), "what is told is in proportion");
  const Json object = Json::parse(text, nullptr, false);
  require(object.is_object() && object["size"] == size, "what is told is a file's JSON");
}

void dump(const kvjpx_tool::OpenedFile& file, bool with_codestreams) {
  std::ostringstream out;
  try {
    kvjpx_tool::dump_json(file, with_codestreams, out);
  } catch (const kvjpx_tool::Failure& failure) {
    require(failure.exit_code() == kvjpx_tool::kNotJpx, "any bytes are told of, or no such file");
    return;
  }
  check_json(out.str(), file.bytes().size());
}

}  // namespace

void run(Input input) {
  const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
  const kvjpx_tool::OpenedFile file("\xFF\x1B", bytes);
  dump(file, false);
  dump(file, true);
  const Json facts = kvjpx_tool::info_facts(file);
  kvjpx_tool::info_rows(facts);
}

}  // namespace kvjpx::fuzz
