// Print-outs, byte for byte: a whole file against its golden print-out, and the variants of single
// boxes that the file does not show.
#include <unistd.h>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

TEST(PrintOut, OfARichFileIsTheGoldenOne) {
  TestContext context;
  ASSERT_EQ(kv_jpx_set_input_image_mapped(context.get(), "samples/rich.jpx"), JPX_OK);
  const auto print = [&] {
    kv_jpx_print_box(context.get(), KV_JPX_ROOT);
    EXPECT_GT(lseek(1, 0, SEEK_CUR), 0) << "it is flushed";
  };
  EXPECT_EQ(captured_stdout(print), file_contents("tests/golden/rich.txt"));
}

// Each print-out in the golden file ends with a line of a dot, on its own even where the library
// ends none.
TEST(PrintOut, OfVariantsAreTheGoldenOnes) {
  std::pair<std::string, std::string> variants[] = {
      {"ihdr", bytes({0x87, 0, 0, 0})},
      {"ihdr", bytes({0x87, 5, 0, 0})},
      {"ihdr", bytes({0x87, 9, 0, 0})},
      {"ihdr", bytes({254, 255, 2, 9})},
      {"ihdr", bytes({127, 10, 0, 0})},
      {"bpcc", bytes({7, 255, 135})},
      {"colr", bytes({5, 0, 0, 1})},
      {"rreq", bytes({0, 0, 1, 0, 9, 0, 1}) + pattern(16)},
      {"opct", bytes({0})},
      {"opct", bytes({3})},
      {"opct", bytes({2, 0})},
      {"copt", be32(1) + be32(2) + be8(255)},
      {"inst", be16(0) + be16(1) + be32(2)},
      {"inst", be16(0x40) + be16(1) + be32(2)},
      {"inst", be16(0x0A) + be16(1) + be32(2) + be32(7) + be32(8) + be32(5) + be32(6)},
      {"flst", be16(0)},
      {"roid", bytes({1, 2, 9, 255}) + be32(0xFFFFFFFF) + be32(0) + be32(0) + be32(0)},
      {"url ", be32(0x01FF0002) + "x"},
  };
  std::string all;
  for (auto& [type, payload] : variants) {
    if (type == "ihdr") payload.insert(0, be32(1) + be32(2) + be16(3));
    all += BoxUnderTest(type, payload).printed() + "\n.\n";
  }
  for (uint32_t space = 0; space <= 25; ++space) {
    all += BoxUnderTest("colr", enumerated(space)).printed();
  }
  BoxUnderTest reference("cref");
  reference.set(reference.id, JPX_FIELD_CREF_RTYP, type_code("jp2c"));
  all += reference.printed() + BoxUnderTest("dtbl").printed() + BoxUnderTest("none").printed();
  EXPECT_EQ(all, file_contents("tests/golden/variants.txt"));
}

TEST(Rewriting, KeepsAFileOfExactBoxesByteForByte) {
  const std::string file = file_contents("samples/exact.jpx");
  EXPECT_FALSE(file.empty());
  EXPECT_EQ(TestDocument(file).written(), file);
}

}  // namespace
}  // namespace kvjpx::test
