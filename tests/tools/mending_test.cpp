// Boxes that the library writes with wrong lengths or in part: the program writes them complete.
#include <vector>

#include "sample_boxes.h"
#include "shell.h"

namespace kvjpx::test {
namespace {

using MendingTest = ShellTest;

// `depths` as the file has them, less one.
std::string palette_box(unsigned rows, const std::string& depths, const std::string& values) {
  return box("pclr", big_endian(rows, 2) + big_endian(depths.size(), 1) + depths + values);
}

// Boxes follow the palette in its container and behind that, and are lost with any wrong length.
std::string file_with(const std::string& palette) {
  return signature_box() + file_type_box() +
         box("jp2h", image_header_box() + palette + srgb_box()) + box("lbl ", "Nemo");
}

TEST_F(MendingTest, KeepsPalettes) {
  const std::vector<std::string> palettes = {
      palette_box(4, "\7\7\7", "abcdefghijkl"),
      palette_box(3, "\13", "aabbcc"),
      palette_box(2, "\13\7\27\37", "aabcccddddaabcccdddd"),
      // More is written than the library makes room for.
      palette_box(2, "\7\7\7", "abcdef"),
      palette_box(1024, std::string(20, '\0'), std::string(20480, '\1')),
      // More is there than the library reads.
      palette_box(2, "\10", "aabb"),
      palette_box(2, "\20", "aaabbb"),
      palette_box(4, "\7\7\7", "abcdefghijklmore"),
  };
  for (const std::string& palette : palettes) {
    write("a.jp2", file_with(palette));
    output_of("kvjpx copy a.jp2 -o b.jp2");
    EXPECT_EQ(read("b.jp2"), file_with(palette));
  }
}

TEST_F(MendingTest, WritesChangedPalettes) {
  write("a.jp2", file_with(palette_box(2, "\7\7\7", "abcdef")));
  output_of("kvjpx set a.jp2 'jp2h/pclr.C[0]=65' -o b.jp2");
  EXPECT_EQ(read("b.jp2"), file_with(palette_box(2, "\7\7\7", "Abcdef")));

  output_of("kvjpx rm a.jp2 jp2h/pclr -o b.jp2; kvjpx add b.jp2 pclr --after jp2h/ihdr -o b.jp2");
  output_of("kvjpx set b.jp2 jp2h/pclr.NE=2 jp2h/pclr.B=hex:070707 -o b.jp2");
  output_of("kvjpx set b.jp2 jp2h/pclr.C=hex:$(printf '%d000000' 41 42 43 44 45 46) -o b.jp2");
  EXPECT_EQ(read("b.jp2"), file_with(palette_box(2, "\7\7\7", "ABCDEF")));
}

TEST_F(MendingTest, RefusesPalettesThatTheLibraryCannotHold) {
  write("a.jp2", file_with(palette_box(2, "\10", "aabb")));
  refuses({{"set a.jp2 'jp2h/pclr.C[0]=1' -o b.jp2", 6,
            "a.jp2: a palette has a column of 9, 17, 25 or more than 32 bits, whose values the "
            "library cannot hold; nothing is written (--force writes it all the same)"}});
  output_of("kvjpx set a.jp2 'jp2h/pclr.C[0]=1' --force -o b.jp2");
  EXPECT_EQ(read("b.jp2"), file_with(palette_box(2, "\10", "\1a")));
}

std::string url_box(const std::string& location) {
  return box("url ", std::string(4, '\0') + location + '\0');
}

std::string references(const std::string& data, const std::string& cross) {
  return signature_box() + box("asoc", box("asoc", data + cross) + box("free", "x")) +
         box("lbl ", "Nemo");
}

TEST_F(MendingTest, KeepsFieldsOfContainers) {
  const std::string cross = box("cref", "flst" + box("free", "y"));
  const std::string two = box("dtbl", big_endian(2, 2) + url_box("one") + url_box("two"));
  write("a.jpx", references(two, cross));
  output_of("kvjpx copy a.jpx -o b.jpx");
  EXPECT_EQ(read("b.jpx"), references(two, cross));

  output_of("kvjpx rm a.jpx 'asoc/asoc/dtbl/url[0]' -o b.jpx");
  const std::string one = box("dtbl", big_endian(1, 2) + url_box("two"));
  EXPECT_EQ(read("b.jpx"), references(one, cross));
  output_of("kvjpx rm b.jpx asoc/asoc/cref/free -o b.jpx");
  EXPECT_EQ(read("b.jpx"), references(one, box("cref", "flst")));
}

TEST_F(MendingTest, TellsAddedContainersFromThoseThatWereThere) {
  const std::string none = box("dtbl", big_endian(0, 2));
  write("a.jpx", references(none, ""));
  output_of("kvjpx add a.jpx cref --into asoc/asoc -o b.jpx");
  EXPECT_EQ(read("b.jpx"), references(none, box("cref", big_endian(0, 4))));
  output_of("kvjpx add a.jpx dtbl --into asoc/asoc -o b.jpx");
  EXPECT_EQ(read("b.jpx"), references(none, none));
}

}  // namespace
}  // namespace kvjpx::test
