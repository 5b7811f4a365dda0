// Writing a file in place of another: the one that stands there is kept until the new one is
// complete, and stays what it was to its neighbours.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/bytes.h"
#include "support/files.h"
#include "support/system_calls.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

namespace fs = std::filesystem;

struct stat status_of(const char* path) {
  struct stat status = {};
  lstat(path, &status);
  return status;
}

// A folder of its own for each test.
class FolderTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    target = folder + "/target";
  }
  void TearDown() override { fs::remove_all(folder); }

  std::string folder = testing::TempDir() + "kvjpx-XXXXXX";
  std::string target;
};

TEST_F(FolderTest, OutputInPlaceOfAnotherUsersIsOpenToNoOtherGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can be several users";
  ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  const auto write_as_another = [&](gid_t group) {
    TestContext context;
    context.load(jp2_file());
    EXPECT_TRUE(setgroups(1, &group) == 0 && setegid(4714) == 0 && seteuid(4711) == 0);
    const int32_t result = kv_jpx_get_output_image_file(context.get(), target.c_str());
    EXPECT_TRUE(seteuid(0) == 0 && setegid(0) == 0 && setgroups(0, nullptr) == 0);
    return result;
  };
  const struct {
    gid_t group;  // that the writer is in
    gid_t kept;
    mode_t mode;
  } rows[] = {{4712, 4712, 0666}, {4713, 4714, 0606}};
  for (const auto& [group, kept, mode] : rows) {
    std::ofstream(target) << "old";
    ASSERT_EQ(chown(target.c_str(), 4710, 4712), 0);
    ASSERT_EQ(chmod(target.c_str(), 0666), 0);
    EXPECT_EQ(write_as_another(group), JPX_OK);
    EXPECT_EQ(status_of(target.c_str()).st_uid, 4711u);
    EXPECT_EQ(status_of(target.c_str()).st_gid, kept);
    EXPECT_EQ(status_of(target.c_str()).st_mode & 0777, mode);
    fs::remove(target);
  }
  // A link that may not be followed.
  fs::create_directory(folder + "/secret");
  fs::permissions(folder + "/secret", fs::perms::owner_all);
  fs::create_symlink("secret/file", target);
  EXPECT_EQ(write_as_another(4713), JPX_ERR_OPEN_FILE);
  EXPECT_TRUE(fs::is_symlink(target));
}

TEST_F(FolderTest, FailedOutputRemovesNoFileOfSomebodyElse) {
  TestContext context;
  ASSERT_EQ(context.load(jp2_file()), JPX_OK);
  size_t replaced = 0;
  bool is_private = false;
  fail_system_call(kClose, 1, [&] {
    for (const auto& entry : fs::directory_iterator(folder)) {
      is_private |= fs::status(entry).permissions() == fs::perms(0600);
      fs::rename(entry, entry.path().string() + ".gone");
      std::ofstream(entry.path()) << "theirs";
      ++replaced;
    }
  });
  EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), target.c_str()), JPX_ERR_FILE_IO);
  EXPECT_EQ(replaced, 2u);
  EXPECT_TRUE(is_private) << "until it is complete";
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4);
}

TEST(FileOutput, OfManySmallBoxesTakesFewWrites) {
  const TempFile target;
  std::string file;
  for (int i = 0; i < 10000; ++i) file += box("free", "1234");
  TestContext context;
  ASSERT_EQ(context.load(file), JPX_OK);
  const std::pair<const char*, int32_t> places[] = {
      {"/nonexistent/file", JPX_ERR_OPEN_FILE},
      {nullptr, JPX_ERR_OPEN_FILE},
      {"/", JPX_ERR_OPEN_FILE},
      {"/dev/full", JPX_ERR_FILE_IO},
      {target.path(), JPX_OK}};  // what was refused has cost nothing
  for (const auto& [path, code] : places) {
    fail_system_call(kWrite, 10);
    EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), path), code);
  }
  fail_system_call(kWrite, 0);
  EXPECT_TRUE(target.contents() == file);
}

}  // namespace
}  // namespace kvjpx::test
