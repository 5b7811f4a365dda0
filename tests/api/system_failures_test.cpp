// The system calls that move data, open, close and name files are made to fail in turn: each
// failure gives its code, costs no file that was there before, and leaves nothing behind.
#include <glob.h>
#include <unistd.h>

#include <string>

#include "support/bytes.h"
#include "support/files.h"
#include "support/system_calls.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

constexpr int32_t kCodes[kSystemCalls] = {JPX_ERR_OPEN_FILE, JPX_ERR_OPEN_FILE, JPX_ERR_FILE_IO,
                                          JPX_ERR_FILE_IO,   JPX_ERR_FILE_IO,   JPX_ERR_FILE_IO,
                                          JPX_ERR_FILE_IO};

using Scenario = int32_t (*)(kv_jpx_context*, const char* input, const char* output);

int32_t load_and_fetch(kv_jpx_context* context, const char* input, const char*) {
  const int32_t result = kv_jpx_set_input_image_file(context, input);
  if (result != JPX_OK) return result;
  void* data = nullptr;
  uint64_t length = 0;
  return kv_jpx_get_output_image(context, &data, &length);
}

int32_t load_mapped(kv_jpx_context* context, const char* input, const char*) {
  return kv_jpx_set_input_image_mapped(context, input);
}

int32_t write_over_file(kv_jpx_context* context, const char*, const char* output) {
  const std::string file = jp2_file();
  const int32_t result = kv_jpx_set_input_image(context, file.data(), file.size());
  return result != JPX_OK ? result : kv_jpx_get_output_image_file(context, output);
}

int32_t write_new_file(kv_jpx_context* context, const char* input, const char* output) {
  const std::string path = std::string(output) + ".new";
  const int32_t result = write_over_file(context, input, path.c_str());
  if (result == JPX_OK) unlink(path.c_str());
  return result;
}

bool has_partial_file_beside(const TempFile& file) {
  glob_t found;
  const int result = glob((std::string(file.path()) + ".*").c_str(), 0, nullptr, &found);
  globfree(&found);
  return result != GLOB_NOMATCH;
}

TEST(SystemFailures, EachGivesItsCodeAndLeavesNothing) {
  const TempFile input(jp2_file());
  const size_t descriptors = open_descriptors();
  for (const Scenario scenario : {load_and_fetch, load_mapped, write_over_file, write_new_file}) {
    for (int call = 0; call < kSystemCalls; ++call) {
      bool has_failed = true;
      for (size_t n = 1; has_failed; ++n) {
        SCOPED_TRACE("call " + std::to_string(call) + ", n " + std::to_string(n));
        TestContext context;
        const TempFile output("what was there");
        fail_system_call(static_cast<SystemCall>(call), n);
        const int32_t result = scenario(context.get(), input.path(), output.path());
        has_failed = has_system_call_failed();
        fail_system_call(static_cast<SystemCall>(call), 0);
        // A temporary file that cannot be opened is done without; the file is then written
        // directly.
        const bool is_survived = scenario == write_over_file && call == kOpen;
        ASSERT_EQ(result, has_failed && !is_survived ? kCodes[call] : JPX_OK);
        EXPECT_TRUE(result == JPX_OK || output.contents() == "what was there");
        EXPECT_FALSE(has_partial_file_beside(output));
        EXPECT_EQ(mappings_of(input), result == JPX_OK && scenario == load_mapped ? 1u : 0u);
        context.destroy();
        EXPECT_EQ(open_descriptors(), descriptors);
      }
      EXPECT_EQ(input.contents(), jp2_file());
    }
  }
}

}  // namespace
}  // namespace kvjpx::test
