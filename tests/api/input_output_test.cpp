// Setting the input and writing the file again, from and to memory, files and maps.
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

using SetInput = int32_t(kv_jpx_context*, const char* path);
SetInput* const kSetInputs[] = {kv_jpx_set_input_image_file, kv_jpx_set_input_image_mapped};

TEST(Input, ReplacesTheOneBefore) {
  TestDocument document(jp2_file());
  const size_t blocks = document.allocator().live_blocks();
  const TempFile file(jp2_file());
  const size_t descriptors = open_descriptors();
  for (int round = 0; round < 3; ++round) {
    for (SetInput* const set_input : kSetInputs) {
      EXPECT_EQ(set_input(document.get(), file.path()), JPX_OK);
    }
    EXPECT_EQ(mappings_of(file), 1u);
    EXPECT_EQ(document.load(jp2_file()), JPX_OK);
  }
  EXPECT_EQ(document.allocator().live_blocks(), blocks);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(kv_jpx_set_input_image(document.get(), nullptr, 1), 3);
  EXPECT_EQ(document.tree(), "jP  ,ftyp,jp2h(ihdr)") << "the old input stays";
  EXPECT_EQ(kv_jpx_set_input_image(document.get(), nullptr, 0), JPX_OK);
  EXPECT_EQ(document.tree(), "");
}

TEST(Input, IsARegularFileThatCanBeOpened) {
  const TempFile pipe;
  unlink(pipe.path());
  ASSERT_EQ(mkfifo(pipe.path(), 0600), 0);
  for (const char* path : {pipe.path(), "/dev/null", "/", "no such file", ""}) {
    for (SetInput* const set_input : kSetInputs) {
      EXPECT_EQ(set_input(TestContext().get(), path), JPX_ERR_OPEN_FILE) << path;
    }
  }
}

TEST(Input, MayBeCutShortMeanwhile) {
  for (int row = 0; row < 12; ++row) {
    TempFile file(jp2_file() + box("xml ", pattern(200'000)));
    const TempFile output("what was there");
    TestDocument document(std::string(), row % 2 == 0);
    ASSERT_EQ(kv_jpx_set_input_image_mapped(document.get(), file.path()), JPX_OK);
    if (row / 2 % 2 == 0) document.add("free", 0, kPlaceAfter);
    file.resize(100);
    void* data = nullptr;
    uint64_t length = 0;
    const int32_t code = row < 4 ? kv_jpx_get_output_image(document.get(), &data, &length)
                         : row < 8
                             ? kv_jpx_get_output_image_file(document.get(), output.path())
                             : kv_jpx_get_box_field_buffer(document.get(), 4, JPX_FIELD_JP2C_DATA,
                                                           nullptr, nullptr, &data);
    EXPECT_EQ(code, JPX_ERR_READ_PAST_END) << row;
    EXPECT_EQ(output.contents(), "what was there");
  }
}

TEST(OutputType, IsOneOfAFixedList) {
  const std::set<int32_t> accepted = {64, 66, 67, 68, 69, 70, 71, 72, 74, 75, 77, 79, 89, 128};
  TestDocument deep(box("jp2h", box("ihdr", be32(1) + be32(1) + be16(3) + bytes({15, 7, 0, 0}))));
  for (int32_t type = -1; type < 300; ++type) {
    if (accepted.count(type) != 0) {
      EXPECT_EQ(kv_jpx_set_output_type(deep.get(), type), JPX_OK) << type;
      EXPECT_EQ(deep.get()->output_type, type);
      continue;
    }
    TestDocument document(jp2_file());
    EXPECT_EQ(kv_jpx_set_output_type(document.get(), type), JPX_ERR_INVALID_ARGUMENT) << type;
    EXPECT_EQ(kv_jpx_print_box(document.get(), 0), JPX_ERR_NO_INPUT) << "an ending error";
  }
  EXPECT_EQ(kv_jpx_set_output_type(TestContext().get(), 74), JPX_OK) << "needs no input";
}

TEST(Output, FillsABufferOfTheCaller) {
  const std::string file = jp2_file() + box("xml ", "<x/>");
  TestDocument document(file);
  const std::string untouched(file.size() + 10, '#');
  std::string buffer = untouched;
  void* data = buffer.data();
  const size_t blocks = document.allocator().live_blocks();
  for (const uint64_t room : {file.size() - 1, file.size(), file.size() + 10}) {
    uint64_t length = room;
    const bool is_enough = room >= file.size();
    EXPECT_EQ(kv_jpx_get_output_image(document.get(), &data, &length), is_enough ? JPX_OK : 5);
    EXPECT_EQ(length, file.size());
    EXPECT_EQ(buffer, is_enough ? file + std::string(10, '#') : untouched);
    EXPECT_EQ(document.allocator().live_blocks(), blocks);
  }
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(document.get(), nullptr, &length), 3);
  EXPECT_EQ(kv_jpx_get_output_image(document.get(), &data, nullptr), 3);
}

// A palette with many more columns than entries writes more than its length promises.
TEST(Output, EndsWhenABoxWritesMoreThanItsLength) {
  const std::string palette = be16(1) + be8(200) + std::string(200, '\7') + pattern(200);
  TestDocument document(box("jp2h", box("pclr", palette)));
  void* data = nullptr;
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(document.get(), &data, &length), JPX_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(kv_jpx_print_box(document.get(), 0), JPX_ERR_NO_INPUT);
}

}  // namespace
}  // namespace kvjpx::test
