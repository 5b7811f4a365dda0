// Fuzzer: what the program tells of a file, as JSON. The input is the file and nothing else.
#include <nlohmann/json.hpp>

#include "kvjpx_tools.h"
#include "target.h"
#include "tools/info.h"

namespace kvjpx::fuzz {
namespace {

using Json = nlohmann::json;

// Every byte may be told in hex, as a box of its own path and as a finding.
uint64_t longest_answer(uint64_t size) { return 4096 + 128 * size; }

void check_json(const char* text, uint64_t size) {
  require(std::string_view(text).size() <= longest_answer(size), "what is told is in proportion");
  const Json object = Json::parse(text, nullptr, false);
  require(object.is_object() && object["size"] == size, "what is told is a file's JSON");
}

}  // namespace

void run(Input input) {
  for (const int32_t codestreams : {0, 1}) {
    char* answer = nullptr;
    const int32_t code =
        kvjpx_tools_dump("\xFF\x1B", input.data(), input.size(), codestreams, &answer);
    require(code == 0 || code == 4, "any bytes are told of, or are none of these files");
    require(answer != nullptr, "there is always an answer");
    if (code == 0) check_json(answer, input.size());
    kvjpx_tools_free(answer);
  }
  const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
  const kvjpx_tool::OpenedFile file("input", bytes);
  const Json facts = kvjpx_tool::info_facts(file);
  kvjpx_tool::info_rows(facts);
}

}  // namespace kvjpx::fuzz
