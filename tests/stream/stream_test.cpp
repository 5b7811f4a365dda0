// Streams over memory, files and mappings, and whole files in and out of memory. What readers
// deliver and writers leave is held against a model by the stream fuzzer.
#include "stream/stream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "stream/raw_file.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

constexpr uint64_t kView = 0x400000;  // a reader's view of a file

// The code that act(env) raises on a context of its own, which then must have closed all files.
template <class Act>
int code_of(const Act& act) {
  TestContext context;
  const size_t descriptors = open_descriptors();
  const int code = raised(context.env(), [&] { act(context.env()); });
  context.destroy();
  EXPECT_EQ(open_descriptors(), descriptors);
  return code;
}

Stream* open_reader(Environment* env, Source source, const TempFile& file,
                    const std::string& contents) {
  if (source == kMemory) return bs_reader_from_buffer(env, contents.data(), contents.size());
  return source == kFile ? bs_reader_from_file(env, file.path())
                         : bs_reader_from_mmap(env, file.path());
}

std::string read_string(Environment* env, Stream* stream, uint64_t count) {
  std::string result(count, '#');
  bs_read_memcpy(env, stream, result.data(), count);
  return result;
}

using Act = void (*)(Environment*, Stream*);

std::string source_name(const ::testing::TestParamInfo<Source>& info) {
  return info.param == kMemory ? "Memory" : info.param == kFile ? "File" : "Mapped";
}

class EveryReader : public ::testing::TestWithParam<Source> {
 protected:
  // Over the bytes 1, 2 ... 10, unless the test changes the file.
  Stream* open(Environment* e) const { return open_reader(e, GetParam(), file, contents); }

  const std::string contents = bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  const TempFile file{contents};
  TestContext context;
  Environment* const env = context.env();
};
INSTANTIATE_TEST_SUITE_P(Sources, EveryReader, ::testing::Values(kMemory, kFile, kMapped),
                         source_name);

TEST_P(EveryReader, StopsAtTheInnermostLimitOnly) {
  Stream* const stream = open(env);
  bs_push_read_limit(env, stream, 3);
  EXPECT_EQ(bs_push_read_limit(env, stream, 4), stream->limits);
  EXPECT_EQ(read_string(env, stream, 5), "#####");
  EXPECT_EQ(bs_read_4_byte_big(env, stream), 0x01020304u) << "past the outer limit";
  EXPECT_EQ(bs_at_limit(env, stream), 1u);
  bs_pop_read_limit(env, stream);
  EXPECT_EQ(bs_read_1_byte(env, stream), 0u) << "already behind the limit";
  bs_push_read_limit(env, stream, 10);
  EXPECT_EQ(bs_read_8_byte_big(env, stream), 0u) << "tested before the end of the file";
}

TEST_P(EveryReader, RaisesForWhatItCannotDo) {
  const Act read = [](auto* e, auto* s) { bs_read_1_byte(e, s); };
  const Act write = [](auto* e, auto* s) { bs_write_memcpy(e, s, nullptr, 0); };
  const std::pair<Act, int> acts[] = {
      {[](auto* e, auto* s) { bs_read_memcpy(e, s, nullptr, 0); }, 0},
      {read, JPX_ERR_BUFFER_TOO_SMALL},  // what lies behind the end
      {[](auto* e, auto* s) { bs_read_memcpy(e, s, nullptr, ~0ull); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_set_current_position(e, s, 11); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_map_pointer(e, s, ~0ull); }, JPX_ERR_BUFFER_TOO_SMALL},
      {write, JPX_ERR_INTERNAL},  // what is a writer's
      {[](auto* e, auto* s) { bs_write_n_byte(e, s, 0, 0, 0); }, JPX_ERR_INTERNAL},
      {[](auto* e, auto* s) { bs_set_eof(e, s); }, JPX_ERR_INTERNAL},
      {[](auto* e, auto* s) { bs_writer_get_buffer(e, s, nullptr); }, JPX_ERR_INTERNAL},
      {[](auto* e, auto* s) { bs_write_from_bs(e, s, s, 0); }, JPX_ERR_INTERNAL},
      {[](auto* e, auto* s) { bs_set_file_length(e, s, 10); }, JPX_ERR_INTERNAL}};
  for (const auto& [act, code] : acts) {
    EXPECT_EQ(code_of([&, act = act](Environment* e) {
                Stream* const stream = open(e);
                EXPECT_EQ(read_string(e, stream, 10), contents);
                act(e, stream);
              }),
              code);
  }
  EXPECT_EQ(code_of([&](auto* e) { read(e, bs_writer_to_buffer(e, nullptr, 0)); }),
            JPX_ERR_INTERNAL);
  EXPECT_EQ(code_of([&](auto* e) { read(e, nullptr); }), JPX_ERR_INTERNAL);
  bs_destroy(env, nullptr);
}

class FileReader : public EveryReader {};
INSTANTIATE_TEST_SUITE_P(Sources, FileReader, ::testing::Values(kFile, kMapped), source_name);

TEST_P(FileReader, RaisesEighteenWhereAFileThatShrankEnds) {
  const Act acts[] = {[](auto* e, auto* s) { bs_read_1_byte(e, s); },
                      [](auto* e, auto* s) { bs_map_pointer(e, s, 6000); },
                      [](auto* e, auto* s) {
                        bs_write_from_bs(e, bs_writer_to_buffer(e, allocate(e, 6000), 6000), s,
                                         6000);
                      }};
  for (const Act act : acts) {
    for (const uint64_t left : {0u, 1u, 5000u}) {
      std::filesystem::resize_file(file.path(), kView + 6000);
      EXPECT_EQ(code_of([&](Environment* e) {
                  Stream* const stream = open(e);
                  std::filesystem::resize_file(file.path(), left);
                  for (uint64_t i = 0; i < left; ++i) bs_read_1_byte(e, stream);
                  act(e, stream);
                }),
                JPX_ERR_READ_PAST_END);
    }
  }
}

TEST_P(FileReader, FindsLaterViewsWhereItsKindLooksForThem) {
  std::string views(3 * kView + 1000, '\0');
  for (const int view : {1, 2, 3}) views[view * kView] = static_cast<char>('0' + view);
  std::ofstream(file.path()) << views;
  // The third view of a file reader starts one view too late.
  const bool leaps = GetParam() == kFile;
  const auto third_view = [&](Environment* e) {
    Stream* const stream = open(e);
    EXPECT_EQ(bs_read_1_byte(e, stream), 0u);
    bs_set_current_position(e, stream, kView);
    EXPECT_EQ(bs_read_1_byte(e, stream), uint64_t{'1'});
    bs_set_current_position(e, stream, 2 * kView);
    EXPECT_EQ(bs_read_1_byte(e, stream), leaps ? uint64_t{'3'} : uint64_t{'2'});
    EXPECT_EQ(bs_get_current_position(e, stream), (leaps ? 3 : 2) * kView + 1);
  };
  EXPECT_EQ(code_of(third_view), 0);
  std::filesystem::resize_file(file.path(), 3 * kView);
  EXPECT_EQ(code_of(third_view), leaps ? JPX_ERR_READ_PAST_END : 0);
  EXPECT_EQ(code_of([&](Environment* e) {
              Stream* const stream = open(e);
              EXPECT_EQ(bs_map_pointer(e, stream, kView + 1)[kView], '1') << "larger than a view";
              bs_set_current_position(e, stream, 2 * kView + 1);
              bs_set_current_position(e, stream, 3 * kView - 1);
            }),
            leaps ? JPX_ERR_INTERNAL : 0);
}

TEST_P(FileReader, IsClosedWithItsRecordByAnErrorExitAndByTheEndOfItsContext) {
  const size_t descriptors = open_descriptors();
  for (const bool ends_by_error : {true, false}) {
    TestContext ending;
    Stream* streams[4];
    for (Stream*& stream : streams) bs_read_1_byte(ending.env(), stream = open(ending.env()));
    bs_destroy(ending.env(), streams[1]);
    JPX_SafeFreeInternal(ending.env(), streams[2]);
    EXPECT_EQ(open_descriptors(), descriptors + 2);
    EXPECT_EQ(mappings_of(file), GetParam() == kMapped ? 2u : 0u);
    if (ends_by_error) raised(ending.env(), [&] { JPX_ErrorExit(ending.env(), 18); });
    if (!ends_by_error) ending.destroy();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(mappings_of(file), 0u);
  }
}

// What else is read and written, from and to where, is the stream fuzzer's.
TEST(Numbers, HaveBothByteOrders) {
  const struct {
    uint64_t (*read)(Environment*, Stream*);
    void (*write)(Environment*, Stream*, uint64_t);
    std::string stored;
  } numbers[] = {{bs_read_1_byte, bs_write_1_byte, bytes({8})},
                 {bs_read_2_byte_big, bs_write_2_byte_big, bytes({7, 8})},
                 {bs_read_4_byte_big, bs_write_4_byte_big, bytes({5, 6, 7, 8})},
                 {bs_read_8_byte_big, bs_write_8_byte_big, bytes({1, 2, 3, 4, 5, 6, 7, 8})},
                 {bs_read_2_byte_little, bs_write_2_byte_little, bytes({8, 7})},
                 {bs_read_4_byte_little, bs_write_4_byte_little, bytes({8, 7, 6, 5})},
                 {bs_read_8_byte_little, bs_write_8_byte_little, bytes({8, 7, 6, 5, 4, 3, 2, 1})}};
  for (const auto& [read, write, stored] : numbers) {
    const TempFile file("what stood there before");
    TestContext context;
    Environment* const env = context.env();
    Stream* const writer = bs_writer_to_file(env, file.path(), 0);
    write(env, writer, 0x0102030405060708);
    EXPECT_EQ(bs_get_file_size(env, writer), stored.size()) << "no more than the write needs";
    bs_set_eof(env, writer);
    for (int i = 0; i < 2; ++i) bs_destroy(env, writer);
    EXPECT_EQ(file.contents(), stored);
    Stream* const reader = bs_reader_from_buffer(env, stored.data(), stored.size());
    EXPECT_EQ(read(env, reader), 0x0102030405060708 & (~uint64_t{0} >> (64 - 8 * stored.size())));
  }
}

TEST(FileWriter, RaisesTheSystemsRefusalsAndGrowsByItsView) {
  const TempFile file;
  for (const auto open : {bs_writer_to_file, bs_writer_to_mmap}) {
    const auto write_to = [&](const char* path) {
      return code_of([&](Environment* e) {
        e->stream_view_limit = 200;
        Stream* const stream = open(e, path, 3000);
        bs_write_1_byte(e, stream, 1);
        bs_destroy(e, stream);
      });
    };
    EXPECT_EQ(write_to("/"), JPX_ERR_OPEN_FILE);
    EXPECT_EQ(write_to("/dev/full"), JPX_ERR_FILE_IO);
    EXPECT_EQ(write_to(file.path()), 0);
    EXPECT_EQ(file.contents(), bytes({1}) + std::string(199, '\0')) << "up to the limit";
    EXPECT_EQ(code_of([&](Environment* e) { bs_set_eof(e, open(e, "/dev/null", 100)); }), 0)
        << "it has no length";
  }
}

TEST(BoundedWriter, FillsTheCallersBufferAndNoMore) {
  uint8_t buffer[5] = {0, 0, 0, 0, 99};
  const std::pair<Act, int> acts[] = {
      {[](auto* e, auto* s) { bs_set_current_position(e, s, 4); }, 0},
      {[](auto* e, auto* s) { bs_set_current_position(e, s, 5); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_write_4_byte_big(e, s, 8); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_writer_grow(e, s, 3); }, JPX_ERR_BUFFER_TOO_SMALL},
      {[](auto* e, auto* s) { bs_writer_grow(e, s, 2); }, JPX_ERR_INTERNAL},  // not its own
      {[](auto* e, auto* s) { bs_write_from_bs(e, s, nullptr, 0); }, JPX_ERR_INTERNAL},
      {[](auto* e, auto* s) { bs_write_from_bs(e, s, s, 0); }, JPX_ERR_INTERNAL},
      // Without room it would never end.
      {[](auto* e, auto*) {
         Stream* const reader = bs_reader_from_buffer(e, "ab", 2);
         bs_write_from_bs(e, bs_writer_to_buffer(e, nullptr, 0), reader, 1);
       },
       JPX_ERR_INTERNAL}};
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

TEST(RawFile, IsLoadedAndWrittenWhole) {
  uint64_t length = 1;
  for (const size_t size : {0, 0x80000, 0x100001}) {
    const TempFile file("longer than what may be written into it");
    const std::string bytes = pattern(size);
    write_raw_data(file.path(), bytes.data(), size);
    ASSERT_NE(freopen(file.path(), "rb", stdin), nullptr);
    for (const char* path : {file.path(), "-"}) {
      void* const data = load_raw_data(path, &length);
      EXPECT_TRUE(std::string(static_cast<char*>(data), length) == bytes) << path << size;
      free(data);
    }
  }
  // The standard streams stay open.
  const auto write_twice = [] {
    for (const char* word : {"to the ", "screen"}) write_raw_data("-", word, strlen(word));
  };
  EXPECT_EQ(captured(1, write_twice), "to the screen");

  const auto load_dashes = [&] { EXPECT_EQ(load_raw_data("--", &length), nullptr); };
  EXPECT_EQ(captured(2, load_dashes), "Error: unable to open file `--' for reading\n");
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(captured(2, [] { write_raw_data("/nonexistent/-", "x", 1); }),
            "Error: unable to open `/nonexistent/-' for writing\n");
}

}  // namespace
}  // namespace kvjpx::test
