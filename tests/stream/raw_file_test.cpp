// Whole files in and out of memory.
#include "stream/raw_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "support/bytes.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

std::string loaded(const char* path) {
  uint64_t length = 0;
  void* const data = load_raw_data(path, &length);
  const std::string result(static_cast<char*>(data), length);
  free(data);
  return result;
}

TEST(RawFile, IsLoadedAndWrittenWhole) {
  const TempFile from(pattern(12345));
  const TempFile to("longer than what is written into it");
  EXPECT_TRUE(loaded(from.path()) == pattern(12345));
  write_raw_data(to.path(), "raw", 3);
  EXPECT_EQ(to.contents(), "raw");
  write_raw_data(to.path(), nullptr, 0);
  EXPECT_EQ(loaded(to.path()), "");
}

TEST(RawFile, StandsForTheStandardStreams) {
  const int original = dup(0);
  for (const size_t size : {0, 5, 0x80000, 0x100000, 0x100001}) {
    const TempFile file(pattern(size));
    const int descriptor = open(file.path(), O_RDONLY);
    dup2(descriptor, 0);
    EXPECT_TRUE(loaded("-") == pattern(size)) << size;
    clearerr(stdin);
    close(descriptor);
  }
  dup2(original, 0);
  close(original);
  EXPECT_EQ(captured_stdout([] {
              write_raw_data("-", "to the ", 7);
              write_raw_data("-", "screen", 6);
            }),
            "to the screen");
}

TEST(RawFile, TellsWhichFileCannotBeOpened) {
  uint64_t length = 1;
  const auto load_dashes = [&] { EXPECT_EQ(load_raw_data("--", &length), nullptr); };
  EXPECT_EQ(captured(2, load_dashes), "Error: unable to open file `--' for reading\n");
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(captured(2, [] { write_raw_data("/nonexistent/-", "x", 1); }),
            "Error: unable to open `/nonexistent/-' for writing\n");
}

}  // namespace
}  // namespace kvjpx::test
