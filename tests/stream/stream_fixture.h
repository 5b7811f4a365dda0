// What the stream tests share: opening any kind of stream, and codes that need a fresh context.
#ifndef KVJPX_TESTS_STREAM_STREAM_FIXTURE_H_
#define KVJPX_TESTS_STREAM_STREAM_FIXTURE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>

#include "stream/stream.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/test_context.h"

namespace kvjpx::test {

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

inline Stream* open_reader(Environment* env, Source source, const TempFile& file,
                           const std::string& contents) {
  if (source == kMemory) return bs_reader_from_buffer(env, contents.data(), contents.size());
  return source == kFile ? bs_reader_from_file(env, file.path())
                         : bs_reader_from_mmap(env, file.path());
}

inline Stream* open_writer(Environment* env, Source source, const TempFile& file) {
  if (source == kMemory) return bs_writer_to_buffer(env, nullptr, 0);
  return source == kFile ? bs_writer_to_file(env, file.path(), 0)
                         : bs_writer_to_mmap(env, file.path(), 0);
}

inline std::string read_string(Environment* env, Stream* stream, uint64_t count) {
  std::string result(count, '#');
  bs_read_memcpy(env, stream, result.data(), count);
  return result;
}

using Act = void (*)(Environment*, Stream*);

inline std::string source_name(const ::testing::TestParamInfo<Source>& info) {
  return info.param == kMemory ? "Memory" : info.param == kFile ? "File" : "Mapped";
}

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_STREAM_STREAM_FIXTURE_H_
