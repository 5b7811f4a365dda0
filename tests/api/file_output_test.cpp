// Writing a file in place of another: the one that stands there is kept until the new one is
// complete, and stays what it was to its neighbours.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "support/bytes.h"
#include "support/files.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

uint32_t mode_of(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 ? status.st_mode : 0;
}

TEST(FileOutput, MayBeTheMappedInput) {
  const std::string file = jp2_file() + box("jp2c", pattern(3 << 20));
  const TempFile input(file);
  TestContext context;
  ASSERT_EQ(kv_jpx_set_input_image_mapped(context.get(), input.path()), JPX_OK);
  uint32_t id = 0;
  ASSERT_EQ(kv_jpx_add_box(context.get(), type_code("free"), 0, 1, &id), JPX_OK);
  ASSERT_EQ(kv_jpx_get_output_image_file(context.get(), input.path()), JPX_OK);
  EXPECT_EQ(input.contents(), file.substr(0, 12) + box("free") + file.substr(12));
  // The tree still reads from the file that was there.
  ASSERT_EQ(kv_jpx_delete_box(context.get(), id), JPX_OK);
  ASSERT_EQ(kv_jpx_get_output_image_file(context.get(), input.path()), JPX_OK);
  EXPECT_EQ(input.contents(), file);
}

TEST(FileOutput, KeepsOwnerModeAndLink) {
  const TempFile target("old");
  const uid_t owner = chown(target.path(), 4711, 4712) == 0 ? 4711 : getuid();
  ASSERT_EQ(chmod(target.path(), 0640), 0);
  const std::string link = std::string(target.path()) + ".link";
  ASSERT_EQ(symlink(target.path(), link.c_str()), 0);
  TestContext context;
  ASSERT_EQ(context.load(jp2_file()), JPX_OK);
  EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), link.c_str()), JPX_OK);
  EXPECT_TRUE(S_ISLNK(mode_of(link.c_str())));
  EXPECT_EQ(mode_of(target.path()) & 07777, 0640u);
  struct stat status;
  ASSERT_EQ(stat(target.path(), &status), 0);
  EXPECT_EQ(status.st_uid, owner) << "which only the superuser can keep";
  EXPECT_EQ(target.contents(), jp2_file());
  unlink(link.c_str());
}

// The name leaves no room for a temporary one's ending.
TEST(FileOutput, IsWrittenDirectlyWhereNoTemporaryFileCanBe) {
  const TempFile original(jp2_file());
  const std::string target = std::string(original.path()) + std::string(235, 'n');
  ASSERT_EQ(link(original.path(), target.c_str()), 0);
  TestContext context;
  ASSERT_EQ(kv_jpx_set_input_image_mapped(context.get(), target.c_str()), JPX_OK);
  EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), target.c_str()), JPX_ERR_OPEN_FILE);
  EXPECT_EQ(original.contents(), jp2_file()) << "a tree is not written over its own input";
  ASSERT_EQ(context.load(box("free")), JPX_OK);
  EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), target.c_str()), JPX_OK);
  EXPECT_EQ(original.contents(), box("free"));
  unlink(target.c_str());
}

TEST(FileOutput, RefusedPlaces) {
  const std::pair<const char*, int32_t> places[] = {{"/nonexistent/file", JPX_ERR_OPEN_FILE},
                                                    {nullptr, JPX_ERR_OPEN_FILE},
                                                    {"/", JPX_ERR_OPEN_FILE},
                                                    {"/dev/full", JPX_ERR_FILE_IO}};
  for (const auto& [path, code] : places) {
    TestContext context;
    ASSERT_EQ(context.load(jp2_file()), JPX_OK);
    EXPECT_EQ(kv_jpx_get_output_image_file(context.get(), path), code);
  }
}

}  // namespace
}  // namespace kvjpx::test
