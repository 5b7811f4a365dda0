// Behaviour of single box types that looks like a mistake and is relied upon. Each test here says
// what a well-meant repair would break.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

constexpr uint64_t k32Bits = 0xFFFFFFFF;
constexpr uint64_t minus(int64_t value) { return static_cast<uint64_t>(-value); }
const std::string kUuid = pattern(16);

// ---------------------------------------------------------------------------------------- ftyp

TEST(FileType, MovesKnownBrandsToTheFrontOnce) {
  BoxUnderTest box("ftyp", "jpx " + be32(0) + "jpx jp2 jpx abcd");
  EXPECT_EQ(box.count(JPX_FIELD_FTYP_CL), 3u);
  EXPECT_EQ(box.value(JPX_FIELD_FTYP_CL, 1), type_code("jpx "));
  EXPECT_EQ(box.value(JPX_FIELD_FTYP_CL, 2), type_code("abcd"));
  EXPECT_EQ(box.get_code(JPX_FIELD_FTYP_CL, 3), 4);
  EXPECT_EQ(box.content(), "jpx " + be32(0) + "jp2 jpx abcd");
}

TEST(FileType, SetsByTheIndexAmongOtherCodesAndGetsByTheWholeList) {
  BoxUnderTest box("ftyp", "jp2 " + be32(0) + "jp2 aaaabbbb");
  const auto codes_after = [&](const char* brand, uint64_t index) {
    return box.content_after(JPX_FIELD_FTYP_CL, type_code(brand), index).substr(8);
  };
  EXPECT_EQ(codes_after("cccc", 1), "jp2 aaaacccc");
  EXPECT_EQ(box.set(JPX_FIELD_FTYP_CL, type_code("dddd"), 2), 4) << "listed, but no other code";
  EXPECT_EQ(codes_after("jpxb", 77), "jp2 jpxbaaaacccc") << "a flag, at any index";
  EXPECT_EQ(codes_after("jp2 ", 0), "jp2 jpxbaaaacccc");
  EXPECT_EQ(codes_after("eeee", 9), "jp2 jpxbaaaacccceeee");
}

// ---------------------------------------------------------------------------------------- colr

TEST(Colour, NeverShowsParametersThatAreSet) {
  const std::vector<uint32_t> lab = {JPX_FIELD_COLR_RL, JPX_FIELD_COLR_OL, JPX_FIELD_COLR_RA,
                                     JPX_FIELD_COLR_OA, JPX_FIELD_COLR_RB, JPX_FIELD_COLR_OB,
                                     JPX_FIELD_COLR_IL};
  const std::vector<uint32_t> jab = {JPX_FIELD_COLR_JAB_RJ, JPX_FIELD_COLR_JAB_OJ,
                                     JPX_FIELD_COLR_JAB_RA, JPX_FIELD_COLR_JAB_OA,
                                     JPX_FIELD_COLR_JAB_RB, JPX_FIELD_COLR_JAB_OB};
  for (const auto& [space, keys] : {std::pair{14u, lab}, {19u, jab}}) {
    for (const uint32_t key : keys) {
      BoxUnderTest box("colr", enumerated(space));
      EXPECT_EQ(box.content_after(key, 5), enumerated(space));
      EXPECT_EQ(box.set(key, 5, 1), 4);
      EXPECT_EQ(box.get_code(key), 4);
      EXPECT_EQ(box.TestDocument::count(box.id, key), std::make_pair(uint64_t{0}, 4u));
      EXPECT_EQ(box.printed().find("parameters"), std::string::npos);
      for (const uint32_t other : {33u - space, 16u}) {
        EXPECT_EQ(box.set(JPX_FIELD_COLR_EnumCS, other), JPX_OK);
        EXPECT_EQ(box.set(key, 5), 4) << "the other space has other parameters";
        EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), box.id, key, nullptr, nullptr), 4);
      }
    }
  }
}

TEST(Colour, StartsAnewWithEveryMethodButForTheUuid) {
  BoxUnderTest box("colr", bytes({4, 7, 1}) + kUuid + "ink");
  EXPECT_EQ(box.content_after(JPX_FIELD_COLR_METH, 2), bytes({2, 7, 1}));
  for (const uint32_t key : {JPX_FIELD_COLR_EnumCS, JPX_FIELD_COLR_VENDOR_DATA}) {
    EXPECT_EQ(box.set(key, 0), 4) << "another method's";
    EXPECT_EQ(box.get_code(key), 4);
  }
  EXPECT_EQ(box.set_bytes(JPX_FIELD_COLR_ICC, "profile"), JPX_OK);
  EXPECT_EQ(box.content_after(JPX_FIELD_COLR_METH, 3), bytes({3, 7, 1}))
      << "the profile does not move to the new method";
  EXPECT_EQ(box.set_bytes(JPX_FIELD_COLR_ICC, "profile"), JPX_OK);
  EXPECT_EQ(box.content_after(JPX_FIELD_COLR_METH, 1), bytes({1, 7, 1}) + be32(0));
  EXPECT_EQ(box.set(JPX_FIELD_COLR_EnumCS, 16), JPX_OK);
  EXPECT_EQ(box.content_after(JPX_FIELD_COLR_METH, 1), bytes({1, 7, 1}) + be32(16))
      << "the same method again keeps it";
  EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), box.id, JPX_FIELD_COLR_EnumCS, nullptr, nullptr),
            4);
  EXPECT_EQ(box.content_after(JPX_FIELD_COLR_METH, 4), bytes({4, 7, 1}) + kUuid);
}

// ---------------------------------------------------------------------------------------- pclr

std::string palette(uint32_t entries, const std::string& depths, const std::string& values) {
  return be16(entries) + be8(depths.size()) + depths + values;
}

TEST(Palette, MeasuresItselfOtherwiseThanItIsWritten) {
  BoxUnderTest box("pclr", palette(256, bytes({7, 7, 7}), pattern(768)));
  EXPECT_EQ(box.content_length(), 1027u);
  EXPECT_EQ(box.content().size(), 774u);
  BoxUnderTest bilevel("pclr", palette(2, bytes({0, 0}), pattern(4)));
  EXPECT_EQ(bilevel.content_length(), 5u) << "columns of one bit count nothing";
  EXPECT_EQ(bilevel.content().size(), 9u);
}

// The thresholds are compared with the depth less one.
TEST(Palette, TakesOneByteForNineBitsAndFiveForThirtyFour) {
  const std::string value = bytes({0x91, 0x82, 0x73, 0x64, 0x55});
  const std::pair<unsigned, size_t> widths[] = {{0, 1},  {8, 1},    {9, 2},    {16, 2},
                                                {17, 3}, {24, 3},   {25, 4},   {32, 4},
                                                {33, 5}, {0x25, 5}, {0x88, 1}, {0xA1, 5}};
  for (const auto& [depth_byte, width] : widths) {
    const size_t kept = width == 5 ? 4 : width;  // the fifth byte is dropped
    const std::string head = be16(1) + be8(1) + be8(depth_byte);
    BoxUnderTest box("pclr", head + value.substr(0, width));
    EXPECT_EQ(be32(box.value(JPX_FIELD_PCLR_C)).substr(4 - kept), value.substr(0, kept));
    EXPECT_EQ(box.content(), head + value.substr(0, kept) + std::string(width - kept, '\0'));
  }
}

TEST(Palette, DividesTheIndexOfAValueByTheEntries) {
  // Three entries of two columns, one byte each: 11 12, 21 22, 31 32.
  BoxUnderTest tall("pclr", palette(3, bytes({7, 7}), bytes({11, 12, 21, 22, 31, 32})));
  // Row i/3, column i%3, place row*2+column; one past the last is taken.
  const uint64_t expected[] = {11, 12, 21, 21, 22, 31, 31};
  for (uint64_t i = 0; i < 7; ++i) EXPECT_EQ(tall.value(JPX_FIELD_PCLR_C, i), expected[i]) << i;
  EXPECT_EQ(tall.get_code(JPX_FIELD_PCLR_C, 7), 4);
  EXPECT_EQ(tall.set(JPX_FIELD_PCLR_C, 256, 7), 4) << "the index is judged before the value";

  // Two entries of three columns: index 4 and 5 lead to a third row, which is not there.
  BoxUnderTest wide("pclr", palette(2, bytes({7, 7, 7}), bytes({11, 12, 13, 21, 22, 23})));
  EXPECT_EQ(wide.value(JPX_FIELD_PCLR_C, 2), 21u);
  for (const uint64_t outside : {4, 5, 6, 7}) {
    EXPECT_EQ(wide.get_code(JPX_FIELD_PCLR_C, outside), 4) << outside;
    EXPECT_EQ(wide.set(JPX_FIELD_PCLR_C, 1, outside), 4) << outside;
  }
  EXPECT_EQ(wide.set(JPX_FIELD_PCLR_C, 256, 4), 3) << "the value is judged before the place";

  // In a square palette index NE x NPC lands on the spare slot behind the table.
  const std::string payload = palette(2, bytes({7, 7}), bytes({1, 2, 3, 4}));
  BoxUnderTest square("pclr", payload);
  EXPECT_EQ(square.value(JPX_FIELD_PCLR_C, 4), 0u);
  EXPECT_EQ(square.content_after(JPX_FIELD_PCLR_C, 9, 4), payload);
  EXPECT_EQ(square.set_bytes(JPX_FIELD_PCLR_C, std::string(16, '\0'), 4), JPX_OK);
  EXPECT_EQ(square.value(JPX_FIELD_PCLR_C, 4), 9u) << "a set of all values leaves it alone";

  BoxUnderTest made("pclr");
  EXPECT_EQ(made.get_code(JPX_FIELD_PCLR_C), 4);
  EXPECT_EQ(made.set(JPX_FIELD_PCLR_NE, 1), JPX_OK);
  EXPECT_EQ(made.set_bytes(JPX_FIELD_PCLR_B, bytes({7, 7})), JPX_OK);
  EXPECT_EQ(made.set(JPX_FIELD_PCLR_C, 0), 4) << "depths alone make no table";
  EXPECT_EQ(made.set_bytes(JPX_FIELD_PCLR_C, std::string(8, '\0'), 4), JPX_OK);
  EXPECT_EQ(made.set(JPX_FIELD_PCLR_C, 0), JPX_OK);
}

TEST(Palette, JudgesValuesByTheDepthOfTheirColumn) {
  struct Column {
    unsigned depth_byte;
    std::vector<uint64_t> taken;
    std::vector<uint64_t> refused;
  };
  const Column columns[] = {
      {0, {0, 1}, {2}},
      {7, {0, 255, k32Bits + 1}, {256, k32Bits}},
      {30, {0x7FFFFFFF}, {0x80000000}},
      {31, {}, {0, 1, k32Bits}},  // the limit wraps to 0
      {32, {0, 1}, {2}},          // and starts over
      {0x87, {127, minus(128)}, {128, minus(129)}},
      {0x9F, {0, 0x7FFFFFFF, 0x80000000, k32Bits}, {}},
  };
  for (const Column& column : columns) {
    SCOPED_TRACE(column.depth_byte);
    BoxUnderTest box("pclr", palette(1, be8(column.depth_byte), std::string(5, '\0')));
    for (const uint64_t value : column.refused) EXPECT_EQ(box.set(JPX_FIELD_PCLR_C, value), 3);
    for (const uint64_t value : column.taken) {
      EXPECT_EQ(box.set(JPX_FIELD_PCLR_C, value), JPX_OK) << value;
      EXPECT_EQ(box.value(JPX_FIELD_PCLR_C), value & k32Bits);
    }
  }
}

TEST(Palette, KeepsValuesInTheirPlacesWhenItIsResized) {
  BoxUnderTest box("pclr", palette(2, bytes({7, 7}), bytes({1, 2, 3, 4})));
  EXPECT_EQ(box.content_after(JPX_FIELD_PCLR_NPC, 3),
            palette(2, bytes({7, 7, 0}), bytes({1, 2, 3, 4, 0, 0})))
      << "values are not moved to their rows";
  EXPECT_EQ(box.content_after(JPX_FIELD_PCLR_NE, 3),
            palette(3, bytes({7, 7, 0}), bytes({1, 2, 3, 4, 0, 0, 0, 0, 0})));
  EXPECT_EQ(box.content_after(JPX_FIELD_PCLR_NE, 1),
            palette(1, bytes({7, 7, 0}), bytes({1, 2, 3})));
  EXPECT_EQ(box.set(JPX_FIELD_PCLR_B, 7, 2), JPX_OK);
  EXPECT_EQ(box.content_after(JPX_FIELD_PCLR_NE, 2),
            palette(2, bytes({7, 0, 7}), bytes({1, 2, 3, 0, 0, 0})))
      << "the depths are taken to be one for each entry";
}

TEST(Palette, TakesADepthBehindTheLastColumnAndDropsItsBitSix) {
  BoxUnderTest box("pclr", palette(2, bytes({7, 7}), bytes({1, 2, 3, 4})));
  EXPECT_EQ(box.value(JPX_FIELD_PCLR_B, 2), 0u);
  EXPECT_EQ(box.set(JPX_FIELD_PCLR_B, 0x47, 2), JPX_OK);
  EXPECT_EQ(box.value(JPX_FIELD_PCLR_B, 2), 7u);
  EXPECT_EQ(box.set(JPX_FIELD_PCLR_B, 1, 3), 4);
  EXPECT_EQ(box.get_code(JPX_FIELD_PCLR_B, 3), 4);
  EXPECT_EQ(box.count(JPX_FIELD_PCLR_B), 2u);
  EXPECT_EQ(box.set(JPX_FIELD_PCLR_NPC, 255), JPX_OK);
  EXPECT_EQ(box.set(JPX_FIELD_PCLR_B, 5, 255), JPX_OK);
}

// ---------------------------------------------------------------------------------------- opct

TEST(Opacity, AnswersFourToAChangeThatItMakes) {
  BoxUnderTest box("opct", bytes({2, 3, 17, 34, 51}));
  for (const uint64_t plain : {1, 0}) {
    EXPECT_EQ(box.set(JPX_FIELD_OPCT_OTyp, plain), 4);
    EXPECT_EQ(box.value(JPX_FIELD_OPCT_OTyp), plain);
    EXPECT_EQ(box.content(), be8(plain));
    for (const uint32_t key : {JPX_FIELD_OPCT_nch, JPX_FIELD_OPCT_Cv}) {
      EXPECT_EQ(box.set(key, 1), 4);
      EXPECT_EQ(box.get_code(key), 4);
      EXPECT_EQ(box.count(key), 0u);
    }
  }
  EXPECT_EQ(box.content_after(JPX_FIELD_OPCT_OTyp, 2), bytes({2, 2, 0, 0}))
      << "a fresh chroma key has two channels";
  EXPECT_EQ(box.set(JPX_FIELD_OPCT_OTyp, 3), 3);
  EXPECT_EQ(box.value(JPX_FIELD_OPCT_OTyp), 2u);
}

TEST(Opacity, ComparesTheValueNotTheIndexWithTheChannels) {
  BoxUnderTest box("opct", bytes({2, 3, 17, 34, 51}));
  EXPECT_EQ(box.content_after(JPX_FIELD_OPCT_Cv, 3, 1), bytes({2, 3, 17, 3, 51}));
  for (const uint64_t above : {uint64_t{4}, minus(1)}) {
    EXPECT_EQ(box.content_after(JPX_FIELD_OPCT_Cv, above, 0), bytes({2, 3, 17, 3, 51}));
    EXPECT_EQ(box.value(JPX_FIELD_OPCT_Cv, 3), above) << "goes behind the last";
  }
  EXPECT_EQ(box.set(JPX_FIELD_OPCT_Cv, 2, 3), JPX_OK) << "the spare slot";
  EXPECT_EQ(box.set(JPX_FIELD_OPCT_Cv, 2, 4), 4);
  EXPECT_EQ(box.get_code(JPX_FIELD_OPCT_Cv, 4), 4);
}

TEST(Opacity, HasASpareValueWithoutChannels) {
  BoxUnderTest box("opct", bytes({2, 0}));
  EXPECT_EQ(box.value(JPX_FIELD_OPCT_Cv), 0u);
  EXPECT_EQ(box.content_after(JPX_FIELD_OPCT_Cv, 9, 5), bytes({2, 0}));
  EXPECT_EQ(box.value(JPX_FIELD_OPCT_Cv), 9u);
}

TEST(Opacity, CountsChannelsInEightBits) {
  BoxUnderTest box("opct", bytes({2, 2, 17, 34}));
  EXPECT_EQ(box.content_after(JPX_FIELD_OPCT_nch, 2), bytes({2, 2, 0, 0}))
      << "the values start anew, same number or not";
  EXPECT_EQ(box.set(JPX_FIELD_OPCT_nch, 256 + 3), JPX_OK);
  EXPECT_EQ(box.value(JPX_FIELD_OPCT_nch), 3u);
  const int64_t values[300] = {5, 0x1FE, -1};
  EXPECT_EQ(kv_jpx_set_box_field_buffer(box.get(), box.id, JPX_FIELD_OPCT_Cv, 259, 8, values), 0);
  EXPECT_EQ(box.content(), bytes({2, 3, 5, 0xFE, 0xFF})) << "one byte a value";
  EXPECT_EQ(box.set(JPX_FIELD_OPCT_OTyp, 0), 4);
  EXPECT_EQ(kv_jpx_set_box_field_buffer(box.get(), box.id, JPX_FIELD_OPCT_Cv, 1, 8, values), 0)
      << "bytes are taken without a chroma key";
}

// ---------------------------------------------------------------- rreq, creg, inst, cref, dtbl

TEST(Requirements, KeepTheLastEightBytesOfLongMasks) {
  const std::string mask = pattern(10);
  const std::string payload = be8(10) + mask + mask + be16(0) + be16(0);
  BoxUnderTest box("rreq", payload);
  EXPECT_EQ(box.value(JPX_FIELD_RREQ_FUAM), 0x0203040506070809u);
  EXPECT_EQ(box.content_length(), payload.size());
  EXPECT_EQ(box.content().substr(3, 8), mask.substr(2));
  EXPECT_EQ(box.content().substr(1, 2), bytes({8, 9})) << "shifts are taken modulo 64";
}

TEST(Registration, AppendsBeforeItChecks) {
  BoxUnderTest box("creg", be16(4) + be16(4) + pattern(6));
  EXPECT_EQ(box.set(JPX_FIELD_CREG_XO, 4, 9), 3);
  EXPECT_EQ(box.set(JPX_FIELD_CREG_XR, 256, 9), 3);
  EXPECT_EQ(box.count(JPX_FIELD_CREG_XO), 3u);
  EXPECT_EQ(box.content(), be16(4) + be16(4) + pattern(6) + std::string(12, '\0'));
}

TEST(Instructions, AppendDefaultsBeforeTheyCheck) {
  BoxUnderTest box("inst", be16(0x2B) + be16(0) + be32(0));
  EXPECT_EQ(box.set(JPX_FIELD_INST_LIFE, 0x80000000, 5), 3);
  EXPECT_EQ(box.set(JPX_FIELD_INST_PERSIST, 0, 5), JPX_OK);
  EXPECT_EQ(box.set(JPX_FIELD_INST_PERSIST, 0x100, 0), JPX_OK);
  EXPECT_EQ(box.value(JPX_FIELD_INST_PERSIST, 0), 1u) << "whatever is not zero";
  const std::string full = be32(k32Bits) + be32(k32Bits);
  const auto record = [&](uint32_t persistence) {
    return be64(0) + full + be32(persistence) + be32(0) + be64(0) + full;
  };
  EXPECT_EQ(box.content().substr(8), record(0x80000000) + record(0));
}

TEST(Instructions, SetTheRepetitionForTheTick) {
  BoxUnderTest box("inst", be16(0) + be16(3) + be32(40));
  EXPECT_EQ(box.value(JPX_FIELD_INST_TICK), 3u);
  EXPECT_EQ(box.content_after(JPX_FIELD_INST_TICK, 0x1001E), be16(0) + be16(30) + be32(40));
}

TEST(Instructions, HoldTheGroupsOfTheLowByteOfTheirType) {
  BoxUnderTest box("inst", be16(0xFF08) + be16(0) + be32(0) + be32(0x80000005) + be32(6));
  EXPECT_EQ(box.count(JPX_FIELD_INST_XO), 1u);
  EXPECT_EQ(box.value(JPX_FIELD_INST_PERSIST), 1u);
  EXPECT_EQ(box.value(JPX_FIELD_INST_LIFE), 5u);
  EXPECT_EQ(box.value(JPX_FIELD_INST_XO), 0u);
  EXPECT_EQ(box.content_after(JPX_FIELD_INST_Ityp, 2).substr(8), be32(k32Bits) + be32(k32Bits))
      << "the defaults appear";
}

TEST(CrossReference, LosesItsTypeWhenItIsRead) {
  BoxUnderTest read("cref", "jp2c" + box("lbl ", "x"));
  EXPECT_EQ(read.get_code(JPX_FIELD_CREF_RTYP), 4);
  EXPECT_EQ(read.set(JPX_FIELD_CREF_RTYP, 1), 4);
  EXPECT_EQ(read.content(), box("lbl ", "x"));
  BoxUnderTest made("cref");
  made.add("none", made.id);
  EXPECT_EQ(made.content_after(JPX_FIELD_CREF_RTYP, type_code("jp2c")), "jp2c" + box("none"));
  EXPECT_EQ(made.content_length(), 12u);
}

TEST(DataReferences, AreCountedOnlyWhenMade) {
  const std::string references = box("url ", be32(0)) + box("url ", be32(0));
  EXPECT_EQ(BoxUnderTest("dtbl", be16(2) + references).content(), references);
  BoxUnderTest made("dtbl");
  made.add("url ", made.id);
  made.add("url ", made.id);
  EXPECT_EQ(made.content(), be16(2) + references);
  EXPECT_EQ(made.content_length(), 26u);
}

// -------------------------------------------------------------------- url, nlst, roid, ulst, uuid

TEST(Url, SharesThePayloadOfOpaqueBoxes) {
  BoxUnderTest box("url ", be32(0x05010203) + "0123456789");
  EXPECT_EQ(box.value(JPX_FIELD_URL_VERS), 5u);
  EXPECT_EQ(box.value(JPX_FIELD_URL_FLAG), 0x010203u);
  EXPECT_EQ(box.get_code(JPX_FIELD_URL_LOC), 4);
  EXPECT_EQ(box.set_bytes(JPX_FIELD_URL_LOC, "12345678", 4), JPX_OK) << "any element size";
  EXPECT_EQ(box.content(), be32(0x05010203) + "12345678");
  EXPECT_EQ(box.set(JPX_FIELD_URL_FLAG, 0x10200), JPX_OK) << "only the low byte is judged";
  EXPECT_EQ(box.value(JPX_FIELD_URL_FLAG), 0u);
  uint64_t length;
  void* data = nullptr;
  EXPECT_EQ(kv_jpx_get_box_buffer(box.get(), box.id, &length, &data), 4) << "not opaque";
}

TEST(NumberList, HidesWhatIsSetBehindItsEnd) {
  BoxUnderTest box("nlst", be32(1) + be32(2));
  EXPECT_EQ(box.value(JPX_FIELD_NLST_AN, 2), 0u);
  EXPECT_EQ(box.content_after(JPX_FIELD_NLST_AN, 7, 5), be32(1) + be32(2));
  EXPECT_EQ(box.count(JPX_FIELD_NLST_AN), 2u);
  EXPECT_EQ(box.value(JPX_FIELD_NLST_AN, 2), 7u) << "one past the last can be read";
  EXPECT_EQ(box.get_code(JPX_FIELD_NLST_AN, 3), 4);
  BoxUnderTest made("nlst");
  EXPECT_EQ(made.content_after(JPX_FIELD_NLST_AN, 7, 0), "");
  EXPECT_EQ(made.value(JPX_FIELD_NLST_AN, 0), 7u);
}

TEST(Regions, AppendBeforeTheyCheck) {
  BoxUnderTest box("roid");
  EXPECT_EQ(box.set(JPX_FIELD_ROID_RTYP, 2, 3), 3);
  EXPECT_EQ(box.set(JPX_FIELD_ROID_RLCX, uint64_t{1} << 32, 3), 3);
  EXPECT_EQ(box.count(JPX_FIELD_ROID_RI), 2u);
  EXPECT_EQ(box.content(), be8(2) + std::string(38, '\0'));
  EXPECT_EQ(box.set(0x1234, 2, 3), 4);
  EXPECT_EQ(box.count(JPX_FIELD_ROID_RI), 2u);
}

TEST(UuidList, CountsUuidsThatItDoesNotHold) {
  BoxUnderTest box("ulst", be16(1) + kUuid);
  const std::string zeros(32, '\0');
  EXPECT_EQ(box.content_after(JPX_FIELD_ULST_NU, 3), be16(3) + kUuid + zeros);
  EXPECT_EQ(box.content_length(), 50u);
  EXPECT_EQ(box.field_bytes(JPX_FIELD_ULST_ID), kUuid + zeros);
  EXPECT_EQ(box.content_after(JPX_FIELD_ULST_NU, 0), be16(0));
  EXPECT_EQ(box.content_after(JPX_FIELD_ULST_NU, 1), be16(1) + kUuid)
      << "the UUID held was never dropped";

  const std::string a(16, 'a'), b(16, 'b');
  EXPECT_EQ(box.set_bytes(JPX_FIELD_ULST_ID, kUuid + b, 16), JPX_OK);
  EXPECT_EQ(box.set(JPX_FIELD_ULST_NU, 1), JPX_OK);
  EXPECT_EQ(box.set_bytes(JPX_FIELD_ULST_ID, a, 16), JPX_OK);
  EXPECT_EQ(box.content_after(JPX_FIELD_ULST_NU, 2), be16(2) + a + b)
      << "a set of as many as NU keeps what lies behind";

  // Integers are never taken; what a get answers depends on the index.
  EXPECT_EQ(box.set(JPX_FIELD_ULST_ID, 1, 9), 3);
  EXPECT_EQ(box.get_code(JPX_FIELD_ULST_ID, 2), 3);
  EXPECT_EQ(box.get_code(JPX_FIELD_ULST_ID, 3), 4);
}

TEST(Uuid, IsWrittenInFrontOfItsPayload) {
  BoxUnderTest box("uuid");
  EXPECT_EQ(box.content(), std::string(16, '\0'));
  EXPECT_EQ(box.set_bytes(JPX_FIELD_UUID_ID, kUuid, 16), JPX_OK);
  EXPECT_EQ(box.set_bytes(JPX_FIELD_JP2C_DATA, "data"), JPX_OK) << "the opaque key will do";
  EXPECT_EQ(box.content(), kUuid + "data");
}

}  // namespace
}  // namespace kvjpx::test
