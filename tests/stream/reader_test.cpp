// Stream readers over memory, files and mappings.
#include <filesystem>
#include <iterator>
#include <vector>

#include "stream/stream_fixture.h"

namespace kvjpx::test {
namespace {

class EveryReader : public ::testing::TestWithParam<Source> {
 protected:
  // Over the bytes 1, 2 ... 10, unless the test changes the file.
  Stream* open(Environment* e) const { return open_reader(e, GetParam(), file, contents); }

  // The code raised by an operation on a fresh stream.
  int code_on_open(Act act) const {
    return code_of([&](Environment* e) { act(e, open(e)); });
  }

  const std::string contents = bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  const TempFile file{contents};
  TestContext context;
  Environment* const env = context.env();
};
INSTANTIATE_TEST_SUITE_P(Sources, EveryReader, ::testing::Values(kMemory, kFile, kMapped),
                         source_name);

TEST_P(EveryReader, AssemblesNumbersInBothByteOrders) {
  uint64_t (*const reads[])(Environment*, Stream*) = {
      bs_read_1_byte,        bs_read_2_byte_big,    bs_read_4_byte_big,   bs_read_8_byte_big,
      bs_read_2_byte_little, bs_read_4_byte_little, bs_read_8_byte_little};
  const uint64_t numbers[] = {1,      0x0102,     0x01020304,        0x0102030405060708,
                              0x0201, 0x04030201, 0x0807060504030201};
  Stream* const stream = open(env);
  for (size_t i = 0; i < std::size(reads); ++i) {
    bs_set_current_position(env, stream, 0);
    EXPECT_EQ(reads[i](env, stream), numbers[i]);
  }
  EXPECT_EQ(bs_read_n_byte(env, stream, 0, 0), 0u) << "no such width";
  bs_set_current_position(env, stream, 1);
  EXPECT_EQ(bs_read_n_byte(env, stream, 9, 0), 0u);
  EXPECT_EQ(bs_get_current_position(env, stream), 1u);
}

TEST_P(EveryReader, StopsAtTheInnermostLimitOnly) {
  Stream* const stream = open(env);
  bs_pop_read_limit(env, stream);
  EXPECT_EQ(bs_get_current_read_limit(env, stream), 10u);
  bs_push_read_limit(env, stream, 7);
  EXPECT_EQ(bs_push_read_limit(env, stream, 8), stream->limits);
  EXPECT_EQ(read_string(env, stream, 6), contents.substr(0, 6));
  EXPECT_EQ(bs_read_4_byte_big(env, stream), 0u);
  EXPECT_EQ(read_string(env, stream, 3), "###");
  EXPECT_EQ(bs_at_limit(env, stream), 0u);
  EXPECT_EQ(bs_read_2_byte_big(env, stream), 0x0708u) << "past the outer limit";
  EXPECT_EQ(bs_at_limit(env, stream), 1u);
  EXPECT_EQ(bs_at_eof(env, stream), 0u);
  bs_pop_read_limit(env, stream);
  EXPECT_EQ(bs_read_1_byte(env, stream), 0u) << "already behind the limit";
  bs_push_read_limit(env, stream, 10);
  EXPECT_EQ(bs_read_4_byte_big(env, stream), 0u) << "tested before the end of the file";
}

TEST_P(EveryReader, RaisesFiveBehindItsEnd) {
  Stream* const stream = open(env);
  EXPECT_EQ(bs_read_1_byte(env, stream), 1u);
  bs_set_current_position(env, stream, 8);
  EXPECT_EQ(*bs_map_pointer(env, stream, 2), 9);
  bs_set_current_position(env, stream, 10);
  EXPECT_EQ(bs_at_eof(env, stream), 1u);
  bs_read_memcpy(env, stream, nullptr, 0);

  const Act beyond[] = {[](auto* e, auto* s) { bs_read_1_byte(e, s); },
                        [](auto* e, auto* s) { bs_read_memcpy(e, s, nullptr, ~0ull); },
                        [](auto* e, auto* s) { bs_set_current_position(e, s, 11); },
                        [](auto* e, auto* s) { bs_map_pointer(e, s, 1); },
                        [](auto* e, auto* s) { bs_map_pointer(e, s, ~0ull); }};
  for (const Act act : beyond) {
    EXPECT_EQ(code_of([&](Environment* e) {
                Stream* const read = open(e);
                EXPECT_EQ(read_string(e, read, 10), contents);
                act(e, read);
              }),
              JPX_ERR_BUFFER_TOO_SMALL);
  }
}

TEST_P(EveryReader, RaisesInternalErrorsForStreamsOfTheWrongKind) {
  const Act on_readers = [](auto* e, auto* s) { bs_read_1_byte(e, s); };
  const Act on_writers[] = {[](auto* e, auto* s) { bs_write_n_byte(e, s, 0, 0, 0); },
                            [](auto* e, auto* s) { bs_write_memcpy(e, s, nullptr, 0); },
                            [](auto* e, auto* s) { bs_set_eof(e, s); },
                            [](auto* e, auto* s) { bs_writer_get_buffer(e, s, nullptr); },
                            [](auto* e, auto* s) { bs_set_file_length(e, s, 10); }};
  for (const Act act : on_writers) EXPECT_EQ(code_on_open(act), JPX_ERR_INTERNAL);
  EXPECT_EQ(code_of([&](auto* e) { on_readers(e, open_writer(e, GetParam(), file)); }),
            JPX_ERR_INTERNAL);
  for (const Act act : {on_readers, on_writers[1], Act(bs_destroy)}) {
    EXPECT_EQ(code_of([&](auto* e) { act(e, nullptr); }), act == bs_destroy ? 0 : JPX_ERR_INTERNAL);
  }
}

class FileReader : public EveryReader {
 protected:
  // Makes the file zeros of this size, but for a letter on each of the given positions.
  void fill(uint64_t size, const std::map<uint64_t, char>& letters) const {
    std::filesystem::resize_file(file.path(), 0);
    std::filesystem::resize_file(file.path(), size);
    const int descriptor = ::open(file.path(), O_WRONLY);
    for (const auto& [position, letter] : letters) {
      EXPECT_EQ(pwrite(descriptor, &letter, 1, static_cast<off_t>(position)), 1);
    }
    close(descriptor);
  }
};
INSTANTIATE_TEST_SUITE_P(Sources, FileReader, ::testing::Values(kFile, kMapped), source_name);

TEST_P(FileReader, RaisesEighteenWhereAFileThatShrankEnds) {
  const Act acts[] = {[](auto* e, auto* s) { bs_read_1_byte(e, s); },
                      [](auto* e, auto* s) { bs_map_pointer(e, s, 6000); }};
  for (const Act act : acts) {
    for (const uint64_t left : {0u, 1u, 5000u}) {
      fill(kView + 6000, {});
      EXPECT_EQ(code_of([&](Environment* e) {
                  Stream* const stream = open(e);
                  std::filesystem::resize_file(file.path(), left);
                  for (uint64_t i = 0; i < left; ++i) EXPECT_EQ(bs_read_1_byte(e, stream), 0u);
                  act(e, stream);
                }),
                JPX_ERR_READ_PAST_END);
    }
  }
}

TEST_P(FileReader, FindsLaterViewsWhereItsKindLooksForThem) {
  fill(3 * kView + 1000, {{kView, '1'}, {2 * kView, '2'}, {3 * kView, '3'}});
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
}

TEST_P(FileReader, SeeksNearTheEndOfABigFileThroughAMappingOnly) {
  fill(kView + 1000, {{1000, 'a'}, {kView + 500, 'b'}});
  Stream* const stream = open(env);
  bs_set_current_position(env, stream, 1000);
  EXPECT_EQ(bs_read_1_byte(env, stream), uint64_t{'a'}) << "of the last whole view";
  bs_set_current_position(env, stream, 0);
  EXPECT_EQ(bs_map_pointer(env, stream, kView + 1000)[kView + 500], 'b') << "larger than a view";
  EXPECT_EQ(code_on_open([](auto* e, auto* s) {
              bs_set_current_position(e, s, 1001);
              bs_set_current_position(e, s, kView + 500);
              EXPECT_EQ(bs_read_1_byte(e, s), uint64_t{'b'});
            }),
            GetParam() == kFile ? JPX_ERR_INTERNAL : 0);
}

TEST_P(FileReader, IsClosedByAnErrorExitAndByTheEndOfItsContext) {
  const size_t descriptors = open_descriptors();
  for (const bool ends_by_error : {true, false}) {
    TestContext ending;
    Stream* streams[4];
    for (Stream*& stream : streams) bs_read_1_byte(ending.env(), stream = open(ending.env()));
    bs_destroy(ending.env(), streams[1]);
    EXPECT_EQ(open_descriptors(), descriptors + 3);
    EXPECT_EQ(mappings_of(file), GetParam() == kMapped ? 3u : 0u);
    if (ends_by_error) raised(ending.env(), [&] { JPX_ErrorExit(ending.env(), 18); });
    if (!ends_by_error) ending.destroy();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(mappings_of(file), 0u);
  }
}

}  // namespace
}  // namespace kvjpx::test
