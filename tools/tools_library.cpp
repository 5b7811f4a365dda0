// The functions of kvjpx_tools.h: commands without a command line.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>

#include "check_report.h"
#include "dump.h"
#include "failure.h"
#include "kvjpx_tools.h"
#include "opened_file.h"

namespace kvjpx_tool {
namespace {

int32_t give(ExitCode result, const std::string& text, char** answer) {
  *answer = static_cast<char*>(std::malloc(text.size() + 1));
  if (*answer == nullptr) return kInputOutput;
  std::memcpy(*answer, text.c_str(), text.size() + 1);
  return result;
}

// `write` writes the line of a file. No exception gets to the caller.
template <class Write>
int32_t answer_of(const char* name, const void* data, uint64_t length, char** answer,
                  const Write& write) {
  if (answer == nullptr) return kUsage;
  *answer = nullptr;
  if (name == nullptr) return kUsage;
  try {
    std::ostringstream out;
    if (data != nullptr) {
      write(OpenedFile(name, {static_cast<const char*>(data), static_cast<size_t>(length)}), out);
    } else {
      write(OpenedFile(name), out);
    }
    std::string line = out.str();
    line.pop_back();
    return give(kDone, line, answer);
  } catch (const Failure& failure) {
    return give(failure.exit_code(), failure.what(), answer);
  } catch (const std::exception& error) {
    return give(kInputOutput, error.what(), answer);
  }
}

unsigned profile_named(const char* name) {
  using kvjpx_check::Profile;
  if (name == nullptr) return 0;
  for (const Profile profile : {kvjpx_check::kJp2, kvjpx_check::kJpx, kvjpx_check::kJph}) {
    if (std::strcmp(name, kvjpx_check::name(profile)) == 0) return profile;
  }
  throw Failure(kUsage, "there is no profile '" + std::string(name) + "'");
}

}  // namespace
}  // namespace kvjpx_tool

using kvjpx_tool::answer_of;
using kvjpx_tool::OpenedFile;

int32_t kvjpx_tools_dump(const char* name, const void* data, uint64_t length, int32_t codestreams,
                         char** answer) {
  return answer_of(name, data, length, answer, [&](const OpenedFile& file, std::ostream& out) {
    kvjpx_tool::dump_json(file, codestreams != 0, out);
  });
}

int32_t kvjpx_tools_check(const char* name, const void* data, uint64_t length, const char* profile,
                          char** answer) {
  return answer_of(name, data, length, answer, [&](const OpenedFile& file, std::ostream& out) {
    const unsigned wanted = kvjpx_tool::profile_named(profile);
    const kvjpx_check::Result result = kvjpx_check::check(file.document(), file.bytes(), wanted);
    out << kvjpx_tool::check_as_json({file.label(), file.bytes().size(),
                                      kvjpx_tool::FindingCounts(result.findings), result.more},
                                     result);
  });
}

void kvjpx_tools_free(char* answer) { std::free(answer); }
