// Print-outs, byte for byte: a whole file against its golden print-out, and the variants of single
// boxes that the file does not show.
#include <gtest/gtest.h>

#include <string>

#include "boxes/box_types.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

TEST(PrintOut, OfARichFileIsTheGoldenOne) {
  TestContext context;
  ASSERT_EQ(kv_jpx_set_input_image_mapped(context.get(), "samples/rich.jpx"), JPX_OK);
  EXPECT_EQ(captured_stdout([&] { kv_jpx_print_box(context.get(), KV_JPX_ROOT); }),
            file_contents("tests/golden/rich.txt"));
}

std::string printed(std::string_view type, const std::string& payload) {
  return BoxUnderTest(type, payload).printed();
}

TEST(PrintOut, OfAnImageHeaderNamesEveryValue) {
  const auto header = [](unsigned bpc, unsigned c, unsigned unknown, unsigned ipr) {
    return printed("ihdr", be32(1) + be32(2) + be16(3) + bytes({bpc, c, unknown, ipr}));
  };
  const std::string start = "ihdr box length 22\nHEIGHT: 1\nWIDTH: 2\nNC: 3\nBPC: ";
  const std::string end =
      "Colourspace is known and correctly specified in image\nIPR not present in image\n";
  const std::pair<unsigned, const char*> compressions[] = {
      {0, "uncompressed"},
      {5, "ITU-T Rec.T.81|ISO/IEC 10918-1 or ITU-T Rec.T.84|ISO/IEC 10918-3 (JPEG)"},
      {9, "ITU-T Rec.T.82|ISO/IEC 11544 (JBIG, any image)"},
      {10, "Unknown"}};
  for (const auto& [c, name] : compressions) {
    EXPECT_EQ(header(0x87, c, 0, 0), start + "8 (signed)\nCompression type: " + name + "\n" + end);
  }
  EXPECT_EQ(header(254, 255, 2, 9), start +
                                        "127 (signed)\nCompression type: Unknown\n"
                                        "Unknown value for UnkC\nIPR present in image\n");
  EXPECT_EQ(header(127, 10, 0, 0), start + "128\nCompression type: Unknown\n" + end);
  EXPECT_EQ(printed("bpcc", bytes({7, 255, 135})),
            "bpcc box length 11\nBPC[0]: 8\nBPC[1]: bitdepth varies\nBPC[2]: 8 (signed)\n");
}

TEST(PrintOut, OfColourSpacesNamesThem) {
  // clang-format off
  const char* const names[] = {
      "Bi-level", "YCbCr(1)", "Unknown", "YCbCr(2)", "YCbCr(3)", "Unknown", "Unknown", "Unknown",
      "Unknown", "PhotoYcc", "Unknown", "CMY", "CMYK", "YCCK", "CIELab", "Bi-level(2)", "sRGB",
      "greyscale", "sYCC", "CIEJab", "e-sRGB", "ROMM-RGB", "YPbPr (1125/60)", "YPbPr (1250/50)",
      "e-sYCC", "Unknown"};
  // clang-format on
  for (uint32_t space = 0; space < std::size(names); ++space) {
    EXPECT_EQ(printed("colr", enumerated(space)),
              std::string("colr box length 15\nEnumerated colourspace: ") + names[space] + "\n");
  }
  EXPECT_EQ(printed("colr", bytes({5, 0, 0, 1})), "colr box length 11\n");
}

TEST(PrintOut, OfOtherVariants) {
  const std::string uuid = pattern(16);
  const std::string uuid_text = " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";
  const struct {
    std::string type;
    std::string payload;
    std::string text;  // behind the first line
  } variants[] = {
      {"rreq", bytes({0, 0, 1, 0, 9, 0, 1}) + uuid,
       "Mask Length: 0\nFUAM: \nDCM:  \nNumber of Standard Feature flags: 1\nFeature: 9\n"
       "Mask:    \nNumber of Vendor Feature flags: 1\nFeature: " +
           uuid_text + "\nMask:    \n"},
      {"opct", bytes({0}), "The last channel of the compositing layer contains the opacity."},
      {"opct", bytes({3}), ""},
      {"opct", bytes({2, 0}), "Chroma-key value for full transparency:"},
      {"copt", be32(1) + be32(2) + be8(255),
       "Rendered result HEIGHT: 1\nRendered result WIDTH:  2\nRepetition count: infinite\n"},
      {"inst", be16(0) + be16(1) + be32(2), "Ityp includes: no instructions\n"},
      {"inst", be16(0x40) + be16(1) + be32(2), "Ityp includes: \n"},
      {"inst", be16(0x0A) + be16(1) + be32(2) + be32(7) + be32(8) + be32(5) + be32(6),
       "Ityp includes: scaling persistence \nINST[0]:\n  WIDTH=7 HEIGHT=8\n"
       "  PERSIST=no LIFE=5 NEXT-USE=6\n"},
      {"flst", be16(0), "Number of fragments: 0"},
      {"roid", bytes({1, 2, 9, 255}) + be32(0xFFFFFFFF) + be32(0) + be32(0) + be32(0),
       "Ri[0]: true (codestream contains the ROI)\nRtypi[0]: Unknown\nRcpi[0]: 255\n"
       "Rlcxi[0]: 4294967295\nRlcyi[0]: 0\nRwdti[0]: 0\nRhthi[0]: 0\n"},
  };
  for (const auto& variant : variants) {
    const std::string length = std::to_string(8 + variant.payload.size());
    EXPECT_EQ(printed(variant.type, variant.payload),
              variant.type + " box length " + length + "\n" + variant.text);
  }
  EXPECT_EQ(printed("url ", be32(0x01FF0002) + "x"),
            "url_ box length 13\nversion: 1\nflag: 16711682\nURL of length 1\n");
}

TEST(PrintOut, OfMadeContainersHasTheirFixedPart) {
  BoxUnderTest reference("cref");
  reference.set(JPX_FIELD_CREF_RTYP, type_code("jp2c"));
  EXPECT_EQ(reference.printed(),
            "cref box length 12\nRtyp: jp2cSuper box of type cref length 12\n***Content Boxes:\n"
            "***End of Content Boxes\n");
  EXPECT_EQ(BoxUnderTest("dtbl").printed(),
            "Super box of type dtbl length 10\n***Content Boxes:\n***End of Content Boxes\n");
  EXPECT_EQ(BoxUnderTest("none").printed(), "Basic box of type none length 8\n");
}

TEST(Rewriting, KeepsAFileOfExactBoxesByteForByte) {
  const std::string file = file_contents("samples/exact.jpx");
  EXPECT_EQ(TestDocument(file).written(), file);
}

TEST(Rewriting, SettlesAfterTheFirstTimeAndLosesNoField) {
  for (const char* sample : {"rich.jpx", "long.jpx", "composed.jpx", "gradient.jp2"}) {
    TestDocument original(file_contents(std::string("samples/") + sample));
    TestDocument again(original.written());
    EXPECT_EQ(again.written(), original.written()) << sample;
    EXPECT_EQ(again.printed(KV_JPX_ROOT), original.printed(KV_JPX_ROOT)) << sample;
  }
}

}  // namespace
}  // namespace kvjpx::test
