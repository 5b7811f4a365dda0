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

std::string header_line(const std::string& type, const std::string& payload) {
  return type + " box length " + std::to_string(8 + payload.size()) + "\n";
}

TEST(PrintOut, OfAnImageHeaderNamesEveryValue) {
  const auto header = [](unsigned bpc, unsigned c, unsigned unknown, unsigned ipr) {
    return printed("ihdr", be32(1) + be32(2) + be16(3) + bytes({bpc, c, unknown, ipr}));
  };
  const std::string start = "ihdr box length 22\nHEIGHT: 1\nWIDTH: 2\nNC: 3\n";
  const char* const compressions[] = {
      "uncompressed",
      "ITU-T Rec. T.4 (Modified Huffman)",
      "ITU-T Rec. T.4 (Modified READ)",
      "ITU-T Rec. T.6 (Modified Modified READ)",
      "ITU-T Rec.T.82|ISO/IEC 11544 (JBIG, bi-level images)",
      "ITU-T Rec.T.81|ISO/IEC 10918-1 or ITU-T Rec.T.84|ISO/IEC 10918-3 (JPEG)",
      "JPEG-LS",
      "ITU-T Rec.T.800|ISO/IEC 15444-1 (JPEG 2000)",
      "JBIG2",
      "ITU-T Rec.T.82|ISO/IEC 11544 (JBIG, any image)",
      "Unknown",
      "Unknown"};
  for (unsigned c = 0; c < std::size(compressions); ++c) {
    EXPECT_EQ(header(0x87, c, 0, 0), start +
                                         "BPC: 8 (signed)\nCompression type: " + compressions[c] +
                                         "\nColourspace is known and correctly specified in image\n"
                                         "IPR not present in image\n");
  }
  EXPECT_EQ(header(254, 255, 2, 9), start +
                                        "BPC: 127 (signed)\nCompression type: Unknown\n"
                                        "Unknown value for UnkC\nIPR present in image\n");
  EXPECT_EQ(header(127, 6, 1, 0).substr(start.size(), 9), "BPC: 128\n");
  EXPECT_EQ(printed("bpcc", bytes({7, 255, 135})),
            "bpcc box length 11\nBPC[0]: 8\nBPC[1]: bitdepth varies\nBPC[2]: 8 (signed)\n");
}

TEST(PrintOut, OfColourSpacesNamesThem) {
  const std::pair<uint32_t, const char*> spaces[] = {{0, "Bi-level"},
                                                     {1, "YCbCr(1)"},
                                                     {3, "YCbCr(2)"},
                                                     {4, "YCbCr(3)"},
                                                     {9, "PhotoYcc"},
                                                     {11, "CMY"},
                                                     {12, "CMYK"},
                                                     {13, "YCCK"},
                                                     {14, "CIELab"},
                                                     {15, "Bi-level(2)"},
                                                     {16, "sRGB"},
                                                     {17, "greyscale"},
                                                     {18, "sYCC"},
                                                     {19, "CIEJab"},
                                                     {20, "e-sRGB"},
                                                     {21, "ROMM-RGB"},
                                                     {22, "YPbPr (1125/60)"},
                                                     {23, "YPbPr (1250/50)"},
                                                     {24, "e-sYCC"},
                                                     {2, "Unknown"},
                                                     {10, "Unknown"},
                                                     {25, "Unknown"},
                                                     {0xFFFFFFFF, "Unknown"}};
  for (const auto& [space, name] : spaces) {
    EXPECT_EQ(printed("colr", bytes({1, 0, 0}) + be32(space)),
              std::string("colr box length 15\nEnumerated colourspace: ") + name + "\n");
  }
  EXPECT_EQ(printed("colr", bytes({5, 0, 0, 1})), "colr box length 11\n");
  EXPECT_EQ(printed("colr", bytes({4, 0, 0}) + pattern(16)),
            "colr box length 27\nVendor Colour profile (UUID: 00 01 02 03 04 05 06 07 08 09 0a 0b "
            "0c 0d 0e 0f)\n");
}

struct Variant {
  std::string type;
  std::string payload;
  std::string text;  // behind the first line
};

TEST(PrintOut, OfOtherVariants) {
  const std::string uuid = pattern(16);
  const std::string uuid_text = " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";
  const Variant variants[] = {
      {"jP  ", be32(0x0D0A870A), ""},
      {"ftyp", "abcd" + be32(0xFFFFFFFF),
       "Brand: abcd\nMinimum version: 4294967295\nCompatibility list:\n"},
      {"rreq", bytes({1, 0x80, 1, 0, 0, 0, 0}),
       "Mask Length: 1\nFUAM: 10000000\nDCM:  00000001\nNumber of Standard Feature flags: 0\n"
       "Number of Vendor Feature flags: 0\n"},
      {"rreq", bytes({0, 0, 1, 0, 9, 0, 1}) + uuid,
       "Mask Length: 0\nFUAM: \nDCM:  \nNumber of Standard Feature flags: 1\nFeature: 9\n"
       "Mask:    \nNumber of Vendor Feature flags: 1\nFeature: " +
           uuid_text + "\nMask:    \n"},
      {"opct", bytes({0}), "The last channel of the compositing layer contains the opacity."},
      {"opct", bytes({3}), ""},
      {"opct", bytes({2, 0}), "Chroma-key value for full transparency:"},
      {"copt", be32(1) + be32(2) + be8(255),
       "Rendered result HEIGHT: 1\nRendered result WIDTH:  2\nRepetition count: infinite\n"},
      {"copt", be32(1) + be32(2) + be8(254),
       "Rendered result HEIGHT: 1\nRendered result WIDTH:  2\nRepetition count: 254\n"},
      {"inst", be16(0) + be16(1) + be32(2), "Ityp includes: no instructions\n"},
      {"inst", be16(0x40) + be16(1) + be32(2), "Ityp includes: \n"},
      {"inst", be16(0x0A) + be16(1) + be32(2) + be32(7) + be32(8) + be32(5) + be32(6),
       "Ityp includes: scaling persistence \nINST[0]:\n  WIDTH=7 HEIGHT=8\n"
       "  PERSIST=no LIFE=5 NEXT-USE=6\n"},
      {"flst", be16(0), "Number of fragments: 0"},
      {"ulst", be16(1) + uuid, "UUID count: 1\nUUID[i]:" + uuid_text + "\n"},
      {"roid", bytes({1, 2, 9, 255}) + be32(0xFFFFFFFF) + be32(0) + be32(0) + be32(0),
       "Ri[0]: true (codestream contains the ROI)\nRtypi[0]: Unknown\nRcpi[0]: 255\n"
       "Rlcxi[0]: 4294967295\nRlcyi[0]: 0\nRwdti[0]: 0\nRhthi[0]: 0\n"},
      {"nlst", "", "Number of entries: 0\nEntries:\n"},
      {"uuid", uuid, "UUID:" + uuid_text + "\ndata of length 0\n"},
      {"cmap", "", "0 components mapped\n"},
      {"cdef", be16(0), "0 channels defined\n"},
  };
  for (const Variant& variant : variants) {
    EXPECT_EQ(printed(variant.type, variant.payload),
              header_line(variant.type, variant.payload) + variant.text);
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

// Every field of every box of a file, as text.
std::string field_dump(TestDocument& document) {
  std::string result = document.tree() + "\n";
  kv_jpx_field_info info;
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    const std::string type = info.box_type == 0 ? "jp2c" : be32(info.box_type);
    for (int n = 0; document.find(type, n) != KV_JPX_ROOT; ++n) {
      const uint32_t id = document.find(type, n);
      uint64_t count = 0;
      const int32_t code =
          kv_jpx_get_box_field_count(document.get(), id, info.key, &count, nullptr);
      result += type + ' ' + info.name + ' ' + std::to_string(code) + ' ' + std::to_string(count);
      for (uint64_t index = 0; index <= count; ++index) {
        uint64_t value = 0;
        kv_jpx_get_box_field_int(document.get(), id, info.key, index, &value);
        result += ' ' + std::to_string(value);
      }
      const bool has_bytes = code == JPX_OK && (info.access & KV_JPX_FIELD_BYTES) != 0;
      result += has_bytes ? document.field_bytes(id, info.key) + "\n" : "\n";
    }
  }
  return result;
}

TEST(Rewriting, KeepsAFileOfExactBoxesByteForByte) {
  const std::string file = file_contents("samples/exact.jpx");
  EXPECT_EQ(TestDocument(file).written(), file);
}

TEST(Rewriting, SettlesAfterTheFirstTimeAndLosesNoField) {
  for (const char* sample : {"rich.jpx", "long.jpx", "composed.jpx", "gradient.jp2"}) {
    TestDocument original(file_contents(std::string("samples/") + sample));
    const std::string first = original.written();
    TestDocument again(first);
    EXPECT_EQ(again.written(), first) << sample;
    EXPECT_EQ(field_dump(again), field_dump(original)) << sample;
    EXPECT_GT(field_dump(again).size(), 200u);
  }
}

}  // namespace
}  // namespace kvjpx::test
