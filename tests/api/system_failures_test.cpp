// The system calls that move data, open, close and name files are made to fail in turn: each
// failure gives its code, costs no file that was there before, and leaves nothing behind.
#include <sys/stat.h>
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

struct Attempt {
  Way way;
  bool keeps;  // everything, and the input is then always a file
  SystemCall call;
  size_t n;  // which of the calls fails
};

// Calls fail from here on; a mapping that an input does without fails before it is written.
int32_t take(const Attempt& attempt, kv_jpx_context* context, const TempFile& input,
             std::string output) {
  const auto& [way, keeps, call, n] = attempt;
  const bool is_in_place = output == input.path();
  kv_jpx_set_keep_everything(context, keeps);
  if (way <= kMap || call == kMmap) fail_system_call(call, n);
  const std::string file = input.contents();
  const int32_t result =
      way == kMap || is_in_place ? kv_jpx_set_input_image_mapped(context, input.path())
      : way == kRead || keeps    ? kv_jpx_set_input_image_file(context, input.path())
                                 : kv_jpx_set_input_image(context, file.data(), file.size());
  if (result != JPX_OK || way == kMap) return result;
  void* data = nullptr;
  uint64_t length = 0;
  uint32_t id = 0;
  if (way != kRead) {
    kv_jpx_add_box(context, type_code("free"), KV_JPX_ROOT, KV_JPX_PLACE_FIRST_CHILD, &id);
    if (call != kMmap) fail_system_call(call, n);
    const std::string other = output + ".link";
    FILE* const held = fopen(output.c_str(), "r+");
    if (way == kWriteNew) unlink(output.c_str());
    if (way == kWriteLinked) link(output.c_str(), other.c_str());
    if (way == kWriteDescriptor) output = "/dev/fd/" + std::to_string(fileno(held));
    const int32_t code = kv_jpx_get_output_image_file(context, output.c_str());
    unlink(other.c_str());
    fclose(held);
    if (code != JPX_OK || !is_in_place) return code;
    // Whether its file was replaced or overwritten, the tree goes on with what it was loaded from.
    kv_jpx_delete_box(context, id);
  }
  const int32_t code = kv_jpx_get_output_image(context, &data, &length);
  EXPECT_TRUE(code != JPX_OK || std::string(static_cast<char*>(data), length) == file);
  return code;
}

ino_t inode_of(const TempFile& file) {
  struct stat status = {};
  stat(file.path(), &status);
  return status.st_ino;
}

TEST(SystemFailures, EachGivesItsCodeAndLeavesNothing) {
  std::string folder = testing::TempDir() + "kvjpx-XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  setenv("TMPDIR", folder.c_str(), 1);
  const auto files = [&] { return std::distance(std::filesystem::directory_iterator(folder), {}); };
  const size_t descriptors = open_descriptors();
  std::ptrdiff_t left = 0;
  for (int row = 0; row < 4 * kWays; ++row) {
    const Way way = static_cast<Way>(row / 4);
    const bool keeps = row % 2 == 1;
    const bool is_output = way > kMap;
    const bool is_in_place = row % 4 > 1;
    if (is_in_place && (!is_output || way == kWriteNew)) continue;
    // Large pieces of kept inputs are copied inside the system where it does that.
    const std::string file = jp2_file() + box("jp2c", pattern(keeps ? 70'000 : 5'000));
    const TempFile input(file);
    for (int call = 0; call < kSystemCalls; ++call) {
      bool has_failed = true;
      for (size_t n = 1; has_failed; ++n) {
        SCOPED_TRACE("row " + std::to_string(row) + ", call " + std::to_string(call) + ", n " +
                     std::to_string(n));
        TestContext context;
        const std::string before = is_in_place ? file : "what was there";
        const TempFile output(before);
        const ino_t inode = inode_of(output);
        const int32_t result = take({way, keeps, static_cast<SystemCall>(call), n}, context.get(),
                                    is_in_place ? output : input, output.path());
        has_failed = has_system_call_failed();
        fail_system_call(static_cast<SystemCall>(call), 0);
        const auto& [code, is_told] = kExpected[call];
        // A kept input does without a mapping, and without knowing where the output stands.
        const bool is_needed = call != kMmap && (call != kSeek || !is_output);
        if (!has_failed || (keeps ? is_told && is_needed : is_told || !is_output)) {
          ASSERT_EQ(result, has_failed ? code : JPX_OK);
        }
        const bool is_second_file = call == kOpen && n > 1 && way != kWriteNew;
        if (is_output && (call == kRename || call == kAttribute || is_second_file)) {
          EXPECT_EQ(result, JPX_OK) << "the file is overwritten instead";
        }
        if (is_output && !has_failed && way != kWriteNew) {
          EXPECT_EQ(inode_of(output) != inode, way == kWriteOver);
        }
        if (is_output && result == JPX_OK) {
          EXPECT_TRUE(output.contents() == box("free") + file);
        } else if (is_output) {
          // Only an output that was overwritten already costs the context, or an input that fails.
          const bool is_kept = output.contents() == before;
          uint32_t id;
          const bool is_alive = kv_jpx_get_next_box_id(context.get(), KV_JPX_ROOT, &id) == JPX_OK;
          EXPECT_TRUE(way == kWriteNew
                          ? output.contents().empty()
                          : is_kept == is_alive || ((keeps || is_in_place) && is_kept));
        }
        // A file that cannot be told from somebody else's stays.
        if (call != kFstat) {
          EXPECT_EQ(files(), left + (way == kWriteNew && result != JPX_OK ? 1 : 2));
        }
        left = files() - (access(output.path(), F_OK) == 0 ? 2 : 1);
        EXPECT_TRUE(keeps || is_in_place ||
                    mappings_of(input) == (result == JPX_OK && way == kMap ? 1u : 0u));
        context.destroy();
        EXPECT_EQ(mappings_of(input), 0u);
        EXPECT_EQ(open_descriptors(), descriptors);
      }
      EXPECT_TRUE(input.contents() == file);
    }
  }
  unsetenv("TMPDIR");
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kvjpx::test
