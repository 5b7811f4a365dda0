// The system calls that move data, open, close and name files are made to fail in turn: each
// failure gives its code, costs no file that was there before, and leaves nothing behind.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "support/bytes.h"
#include "support/files.h"
#include "support/system_calls.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

struct Expected {
  int32_t code;
  bool is_told;  // also of an output, for which there is a way round some failures
};
constexpr Expected kExpected[kSystemCalls] = {
    {JPX_ERR_OPEN_FILE, false}, {JPX_ERR_OPEN_FILE, false}, {JPX_ERR_FILE_IO, true},
    {JPX_ERR_FILE_IO, true},    {JPX_ERR_FILE_IO, true},    {JPX_ERR_FILE_IO, true},
    {JPX_ERR_FILE_IO, true},    {JPX_ERR_FILE_IO, false},   {JPX_ERR_FILE_IO, false},
    {JPX_ERR_FILE_IO, true},    {JPX_ERR_FILE_IO, false},   {JPX_ERR_FILE_IO, false}};

// Ways to use files; the output is there but for one of them.
enum Way { kRead, kMap, kWriteOver, kWriteNew, kWriteLinked, kWriteDescriptor, kWays };

int32_t take(Way way, kv_jpx_context* context, const char* input, std::string output) {
  if (way == kMap) return kv_jpx_set_input_image_mapped(context, input);
  const std::string file = jp2_file();
  const int32_t result = way == kRead ? kv_jpx_set_input_image_file(context, input)
                                      : kv_jpx_set_input_image(context, file.data(), file.size());
  if (result != JPX_OK) return result;
  void* data = nullptr;
  uint64_t length = 0;
  if (way == kRead) return kv_jpx_get_output_image(context, &data, &length);
  const std::string other = output + ".link";
  FILE* const held = fopen(output.c_str(), "r+");
  if (way == kWriteNew) unlink(output.c_str());
  if (way == kWriteLinked) link(output.c_str(), other.c_str());
  if (way == kWriteDescriptor) output = "/dev/fd/" + std::to_string(fileno(held));
  const int32_t code = kv_jpx_get_output_image_file(context, output.c_str());
  unlink(other.c_str());
  fclose(held);
  return code;
}

TEST(SystemFailures, EachGivesItsCodeAndLeavesNothing) {
  std::string folder = testing::TempDir() + "kvjpx-XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  setenv("TMPDIR", folder.c_str(), 1);
  const auto files = [&] { return std::distance(std::filesystem::directory_iterator(folder), {}); };
  const TempFile input(jp2_file());
  const size_t descriptors = open_descriptors();
  std::ptrdiff_t left = 0;
  for (int way = 0; way < kWays; ++way) {
    const bool is_output = way > kMap;
    for (int call = 0; call < kSystemCalls; ++call) {
      bool has_failed = true;
      for (size_t n = 1; has_failed; ++n) {
        SCOPED_TRACE("call " + std::to_string(call) + ", n " + std::to_string(n));
        TestContext context;
        const TempFile output("what was there");
        fail_system_call(static_cast<SystemCall>(call), n);
        const int32_t result =
            take(static_cast<Way>(way), context.get(), input.path(), output.path());
        has_failed = has_system_call_failed();
        fail_system_call(static_cast<SystemCall>(call), 0);
        const auto& [code, is_told] = kExpected[call];
        if (!has_failed || !is_output || is_told) {
          ASSERT_EQ(result, has_failed ? code : JPX_OK);
        }
        if (is_output && result == JPX_OK) {
          EXPECT_EQ(output.contents(), jp2_file());
        } else if (is_output) {
          // Only an output that was overwritten already costs the context.
          const bool is_kept = output.contents() == "what was there";
          uint32_t id;
          const bool is_alive = kv_jpx_get_next_box_id(context.get(), KV_JPX_ROOT, &id) == JPX_OK;
          EXPECT_TRUE(way == kWriteNew ? output.contents().empty() : is_kept == is_alive);
        }
        // A file that cannot be told from somebody else's stays.
        if (call != kFstat) {
          EXPECT_EQ(files(), left + (way == kWriteNew && result != JPX_OK ? 1 : 2));
        }
        left = files() - (access(output.path(), F_OK) == 0 ? 2 : 1);
        EXPECT_EQ(mappings_of(input), result == JPX_OK && way == kMap ? 1u : 0u);
        context.destroy();
        EXPECT_EQ(open_descriptors(), descriptors);
      }
      EXPECT_EQ(input.contents(), jp2_file());
    }
  }
  unsetenv("TMPDIR");
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kvjpx::test
