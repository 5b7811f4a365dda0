// Stream writers to memory, files and mappings, and the copy from stream to stream.
#include <filesystem>

#include "stream/stream_fixture.h"

namespace kvjpx::test {
namespace {

class EveryWriter : public ::testing::TestWithParam<Source> {
 protected:
  // Ends the stream at its position and returns what was written.
  std::string finish() {
    std::string result;
    bs_set_eof(env, stream);
    if (GetParam() == kMemory) {
      uint64_t length = 0;
      uint8_t* buffer = bs_writer_get_buffer(env, stream, &length);
      result.assign(reinterpret_cast<char*>(buffer), length);
      release(env, buffer);
    }
    for (int i = 0; i < 2; ++i) bs_destroy(env, stream);
    return GetParam() == kMemory ? result : file.contents();
  }

  const TempFile file{"what stood there before"};
  TestContext context;
  Environment* const env = context.env();
  Stream* const stream = open_writer(env, GetParam(), file);
};
INSTANTIATE_TEST_SUITE_P(Sources, EveryWriter, ::testing::Values(kMemory, kFile, kMapped),
                         source_name);

TEST_P(EveryWriter, StoresNumbersInBothByteOrders) {
  void (*const writes[])(Environment*, Stream*, uint64_t) = {
      bs_write_1_byte,        bs_write_2_byte_big,    bs_write_4_byte_big,   bs_write_8_byte_big,
      bs_write_2_byte_little, bs_write_4_byte_little, bs_write_8_byte_little};
  for (const auto write : writes) write(env, stream, 0x0102030405060708);
  EXPECT_EQ(bs_get_file_size(env, stream), 29u) << "no more than the writes need";
  bs_write_n_byte(env, stream, 1, 0, 0);
  bs_write_n_byte(env, stream, 1, 9, 0);
  bs_write_memcpy(env, stream, nullptr, 0);
  EXPECT_EQ(finish(), bytes({8, 7, 8, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8,
                             8, 7, 8, 7, 6, 5, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(FileWriter, TakesViewsFromTheLimitOfTheEnvironment) {
  const TempFile file;
  for (const auto open : {bs_writer_to_file, bs_writer_to_mmap}) {
    for (const size_t view : {100, 3000}) {
      TestContext context;
      context.env()->stream_view_limit = 200;
      Stream* const stream = open(context.env(), file.path(), view);
      bs_write_1_byte(context.env(), stream, 1);
      bs_destroy(context.env(), stream);
      EXPECT_EQ(file.contents(), bytes({1}) + std::string(view == 100 ? 99 : 199, '\0'));
    }
  }
}

TEST(FileWriter, RaisesTheSystemsRefusals) {
  for (const auto open : {bs_writer_to_file, bs_writer_to_mmap}) {
    const auto write_to = [&](const char* path) {
      return code_of([&](Environment* e) { bs_write_1_byte(e, open(e, path, 100), 1); });
    };
    EXPECT_EQ(code_of([&](Environment* e) { bs_destroy(e, open(e, "/", 100)); }), 0);
    EXPECT_EQ(write_to("/"), JPX_ERR_OPEN_FILE);
    EXPECT_EQ(write_to("/dev/full"), JPX_ERR_FILE_IO);
  }
}

TEST(BoundedWriter, FillsTheCallersBufferAndNoMore) {
  uint8_t buffer[5] = {0, 0, 0, 0, 99};
  const std::pair<Act, int> acts[] = {
      {[](auto* e, auto* s) { bs_set_current_position(e, s, 4); }, 0},
      {[](auto* e, auto* s) { bs_set_current_position(e, s, 5); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_write_4_byte_big(e, s, 8); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_writer_grow(e, s, 3); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_writer_grow(e, s, 2); }, JPX_ERR_INTERNAL}};  // not its own
  for (const auto& [act, code] : acts) {
    EXPECT_EQ(code_of([&, act = act](Environment* e) {
                Stream* const stream = bs_writer_to_buffer(e, buffer, 4);
                bs_write_1_byte(e, stream, 7);
                act(e, stream);
              }),
              code);
  }
  EXPECT_EQ(std::string(buffer, buffer + 5), bytes({7, 0, 0, 0, 99}));
}

TEST(CopyFromStream, TakesTheSourcePastLimitsAndStartsOverBehindItsView) {
  const std::string contents = pattern(kView + 5000);
  const TempFile from(contents);
  const TempFile to;
  for (const Source source : {kMemory, kFile, kMapped}) {
    TestContext context;
    Environment* const env = context.env();
    Stream* const reader = open_reader(env, source, from, contents);
    Stream* const writer = bs_writer_to_file(env, to.path(), 0x100003);
    bs_read_8_byte_big(env, reader);
    bs_push_read_limit(env, reader, 9);
    bs_write_from_bs(env, writer, reader, kView - 8);
    bs_write_from_bs(env, writer, reader, 5000);
    bs_destroy(env, writer);
    // Only the memory is one view; the others end there and are taken from their first byte again.
    EXPECT_TRUE(to.contents() == contents.substr(8, kView - 8) +
                                     contents.substr(source == kMemory ? kView : 0, 5000));
  }
}

TEST(CopyFromStream, RefusesWhatItCannotDo) {
  const TempFile from(pattern(100));
  using Open = Stream*(Environment*, const char*);
  const auto copy = [&](Open* open_destination, Open* open_source, uint64_t count) {
    return code_of([&](Environment* e) {
      Stream* const source = open_source(e, from.path());
      bs_write_from_bs(e, open_destination(e, "/dev/null"), source, count);
    });
  };
  const auto nothing = [](Environment*, const char*) -> Stream* { return nullptr; };
  const auto reader = bs_reader_from_mmap;
  const auto bounded = [](auto* e, auto*) { return bs_writer_to_buffer(e, allocate(e, 100), 100); };
  const auto stepless = [](auto* e, auto*) { return bs_writer_to_buffer(e, nullptr, 0); };
  const auto shrunk = [](auto* e, auto* path) {
    Stream* const stream = bs_reader_from_mmap(e, path);
    std::filesystem::resize_file(path, 50);
    return stream;
  };
  EXPECT_EQ(copy(nothing, reader, 0), JPX_ERR_INTERNAL);
  EXPECT_EQ(copy(bounded, nothing, 0), JPX_ERR_INTERNAL);
  EXPECT_EQ(copy(reader, reader, 0), JPX_ERR_INTERNAL);
  EXPECT_EQ(copy(bounded, bounded, 0), JPX_ERR_INTERNAL);
  EXPECT_EQ(copy(stepless, reader, 0), 0);
  EXPECT_EQ(copy(stepless, reader, 1), JPX_ERR_INTERNAL) << "it would never end";
  EXPECT_EQ(copy(bounded, shrunk, 100), JPX_ERR_READ_PAST_END);
}

}  // namespace
}  // namespace kvjpx::test
