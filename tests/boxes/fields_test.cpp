// Integer fields: which values they take, what they keep, how repeating ones grow.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

constexpr uint64_t k32Bits = 0xFFFFFFFF;
constexpr uint64_t kAbove32Bits = 0x100000000;
constexpr uint64_t minus(int64_t value) { return static_cast<uint64_t>(-value); }

struct Range {
  std::string type;
  std::string payload;
  uint32_t key;
  std::vector<uint64_t> taken;  // and kept as their low bytes
  std::vector<uint64_t> refused;
};

Range of(const std::string& type, uint32_t key, std::vector<uint64_t> taken,
         std::vector<uint64_t> refused = {}) {
  return {type, rule_of(type).payload, key, std::move(taken), std::move(refused)};
}

const std::vector<uint64_t> kDepthBytes = {0, 1, 36, 37, 128, 165, 255};
const std::vector<uint64_t> kBadDepthBytes = {38, 127, 166, 254, 256, ~uint64_t{0}};

std::string requirements(unsigned mask_length) {
  return be8(mask_length) + std::string(2 * mask_length, '\0') + be16(1) + be16(2) +
         std::string(mask_length, '\0') + be16(0);
}

const std::vector<Range>& ranges() {
  static const std::vector<Range> result = {
      of("ftyp", JPX_FIELD_FTYP_BR, {0, k32Bits, kAbove32Bits + 5}),
      of("ftyp", JPX_FIELD_FTYP_MinV, {0, k32Bits}),
      of("ihdr", JPX_FIELD_IHDR_HEIGHT, {1, k32Bits, 0x100000001, kAbove32Bits}, {0}),
      of("ihdr", JPX_FIELD_IHDR_WIDTH, {1, k32Bits, 0x100000001, kAbove32Bits}, {0}),
      of("ihdr", JPX_FIELD_IHDR_NC, {1, 16384}, {0, 16385, 65537, kAbove32Bits + 1}),
      of("ihdr", JPX_FIELD_IHDR_BPC, kDepthBytes, kBadDepthBytes),
      of("ihdr", JPX_FIELD_IHDR_C, {7}, {0, 6, 8, 263}),
      of("ihdr", JPX_FIELD_IHDR_UnkC, {0, 1}, {2, 256}),
      of("ihdr", JPX_FIELD_IHDR_IPR, {0, 1}, {2, 256}),
      of("bpcc", JPX_FIELD_BPCC_BPC, kDepthBytes, kBadDepthBytes),
      of("colr", JPX_FIELD_COLR_METH, {1, 2, 3, 4}, {0, 5, 257}),
      of("colr", JPX_FIELD_COLR_PREC, {0, 255, 256}),
      of("colr", JPX_FIELD_COLR_APPROX, {1, 4}, {0, 5, 257}),
      {"colr",
       bytes({1, 0, 0}) + be32(16),
       JPX_FIELD_COLR_EnumCS,
       {0, 1, 3, 4, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
       {2, 5, 6, 7, 8, 10, 25, kAbove32Bits, kAbove32Bits + 1}},
      of("resc", JPX_FIELD_RESC_VR_N, {1, 65535}, {0, 65536, minus(1)}),
      of("resc", JPX_FIELD_RESC_VR_D, {1, 65535}, {0, 65536, minus(1)}),
      of("resc", JPX_FIELD_RESC_HR_N, {1, 65535}, {0, 65536, minus(1)}),
      of("resd", JPX_FIELD_RESC_HR_D, {1, 65535}, {0, 65536, minus(1)}),
      // Exponents are taken as signed numbers and read back as unsigned bytes.
      of("resc", JPX_FIELD_RESC_VR_E, {0, 127, minus(1), minus(3), minus(128)},
         {128, 255, minus(129), kAbove32Bits}),
      of("resd", JPX_FIELD_RESC_HR_E, {0, 127, minus(1), minus(128)}, {128, 253, minus(129)}),
      of("pclr", JPX_FIELD_PCLR_NE, {1, 2, 1024}, {0, 1025, 65537}),
      of("pclr", JPX_FIELD_PCLR_NPC, {1, 2, 255}, {0, 256, 257}),
      of("pclr", JPX_FIELD_PCLR_B, {0, 7, 0x87, 0xA5}, {0xA6, 255, 263}),
      of("cmap", JPX_FIELD_CMAP_CMP, {1, 16384}, {0, 16385, 65537}),
      of("cmap", JPX_FIELD_CMAP_MTYP, {0, 1}, {2, 256}),
      of("cmap", JPX_FIELD_CMAP_PCOL, {0, 255, 256 + 3}),
      of("cdef", JPX_FIELD_CDEF_N, {1, 3, 65535, 65537}, {0, 65536}),
      of("cdef", JPX_FIELD_CDEF_Cn, {0, 65535, 65536 + 7}),
      of("cdef", JPX_FIELD_CDEF_Typ, {0, 1, 2, 65535, 65536, 65538}, {3, 100, 65534, 65539}),
      of("cdef", JPX_FIELD_CDEF_Asoc, {0, 65535, 65536 + 7}),
      of("rreq", JPX_FIELD_RREQ_ML, {1, 2, 4, 8}, {0, 3, 5, 16, 257}),
      of("rreq", JPX_FIELD_RREQ_FUAM, {0, 255}, {256, kAbove32Bits}),
      of("rreq", JPX_FIELD_RREQ_DCM, {0, 255}, {256, kAbove32Bits}),
      of("rreq", JPX_FIELD_RREQ_SM, {0, 255}, {256, kAbove32Bits}),
      of("rreq", JPX_FIELD_RREQ_VM, {0, 255}, {256, kAbove32Bits}),
      of("rreq", JPX_FIELD_RREQ_NSF, {0, 3, 65535}, {65536}),
      of("rreq", JPX_FIELD_RREQ_NVF, {0, 3, 65535}, {65536}),
      of("rreq", JPX_FIELD_RREQ_SF, {0, 65535}, {65536}),
      // The limit of masks is computed in 32 bits: only 0 is left with masks of 0, 4 or 8 bytes.
      {"rreq", requirements(2), JPX_FIELD_RREQ_DCM, {0, 65535}, {65536}},
      {"rreq", requirements(3), JPX_FIELD_RREQ_FUAM, {0, 0xFFFFFF}, {0x1000000}},
      {"rreq", requirements(4), JPX_FIELD_RREQ_FUAM, {0}, {1, k32Bits}},
      {"rreq", requirements(8), JPX_FIELD_RREQ_SM, {0}, {1, k32Bits}},
      {"rreq", requirements(0), JPX_FIELD_RREQ_DCM, {0}, {1}},
      of("copt", JPX_FIELD_COPT_HEIGHT, {0, k32Bits}, {kAbove32Bits}),
      of("copt", JPX_FIELD_COPT_WIDTH, {0, k32Bits}, {kAbove32Bits}),
      of("copt", JPX_FIELD_COPT_LOOP, {0, 255}, {256}),
      of("creg", JPX_FIELD_CREG_XS, {0, 65535}, {65536}),
      of("creg", JPX_FIELD_CREG_YS, {0, 65535}, {65536}),
      of("creg", JPX_FIELD_CREG_CDN, {0, 65535}, {65536}),
      of("creg", JPX_FIELD_CREG_XR, {0, 255}, {256}),
      of("creg", JPX_FIELD_CREG_YR, {0, 255}, {256}),
      of("creg", JPX_FIELD_CREG_XO, {0, 7}, {8, 255, 256}),  // below XS
      of("creg", JPX_FIELD_CREG_YO, {0, 8}, {9, 255, 256}),  // below YS
      {"creg", be16(300) + be16(0) + pattern(6), JPX_FIELD_CREG_XO, {255}, {256, 299}},
      {"creg", be16(300) + be16(0) + pattern(6), JPX_FIELD_CREG_YO, {}, {0}},
      of("inst", JPX_FIELD_INST_Ityp, {0, 0x2B, 65535, 65536 + 9}),
      of("inst", JPX_FIELD_INST_REPT, {0, 65535, 65536 + 9}),
      of("inst", JPX_FIELD_INST_XO, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_YO, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_WIDTH, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_HEIGHT, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_LIFE, {0, 0x7FFFFFFF}, {0x80000000, k32Bits, kAbove32Bits}),
      of("inst", JPX_FIELD_INST_NEXT_USE, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_XC, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_YC, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_WC, {0, k32Bits, kAbove32Bits + 9}),
      of("inst", JPX_FIELD_INST_HC, {0, k32Bits, kAbove32Bits + 9}),
      of("flst", JPX_FIELD_FLST_OFF, {0, ~uint64_t{0}}),
      of("flst", JPX_FIELD_FLST_LEN, {0, k32Bits, kAbove32Bits + 9}),
      of("flst", JPX_FIELD_FLST_DR, {0, 65535, 65536 + 9}),
      of("url ", JPX_FIELD_URL_VERS, {0, 256}, {1, 255, 257}),
      of("url ", JPX_FIELD_URL_FLAG, {0}, {1, 255, 257}),
      of("nlst", JPX_FIELD_NLST_AN, {0, k32Bits, kAbove32Bits + 9}),
      of("roid", JPX_FIELD_ROID_RI, {0, 255, 256 + 3}),
      of("roid", JPX_FIELD_ROID_RTYP, {0, 1}, {2, 256}),
      of("roid", JPX_FIELD_ROID_RCP, {0, 255}, {256}),
      of("roid", JPX_FIELD_ROID_RLCX, {0, k32Bits}, {kAbove32Bits}),
      of("roid", JPX_FIELD_ROID_RLCY, {0, k32Bits}, {kAbove32Bits}),
      of("roid", JPX_FIELD_ROID_RWDT, {0, k32Bits}, {kAbove32Bits}),
      of("roid", JPX_FIELD_ROID_RHT, {0, k32Bits}, {kAbove32Bits}),
      of("ulst", JPX_FIELD_ULST_NU, {0, 65535, 65536 + 9}),
  };
  return result;
}

uint32_t width_of(const Range& range) {
  kv_jpx_field_info info;
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    if (info.box_type == type_code(range.type) && info.key == range.key) return info.width;
  }
  ADD_FAILURE() << "no such field of " << range.type;
  return 1;
}

TEST(IntegerFields, TakeTheirRangesAndKeepTheirLowBytes) {
  for (const Range& range : ranges()) {
    const std::string place = range.type + " key " + std::to_string(range.key) + " value ";
    for (const uint64_t taken : range.taken) {
      BoxUnderTest box(range.type, range.payload);
      const uint32_t width = width_of(range);
      const uint64_t kept = width == 8 ? taken : taken & ((uint64_t{1} << 8 * width) - 1);
      EXPECT_EQ(box.set(range.key, taken), JPX_OK) << place << taken;
      EXPECT_EQ(box.value(range.key), kept) << place << taken;
    }
    for (const uint64_t refused : range.refused) {
      BoxUnderTest box(range.type, range.payload);
      const uint64_t before = box.value(range.key);
      EXPECT_EQ(box.set(range.key, refused), JPX_ERR_INVALID_ARGUMENT) << place << refused;
      EXPECT_EQ(box.value(range.key), before) << place << refused;
    }
  }
}

TEST(IntegerFields, AnswerToTheirKeyAndIndexOnly) {
  kv_jpx_field_info info;
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    const std::string type = info.box_type == 0 ? "none" : be32(info.box_type);
    BoxUnderTest box =
        type == "cref" ? BoxUnderTest(type) : BoxUnderTest(type, rule_of(type).payload);
    EXPECT_EQ(box.get_code(0x12345678), 4) << type;
    EXPECT_EQ(box.set(0x12345678, 1), 4) << type;
    EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), box.id, 0x12345678, nullptr, nullptr), 4);
    EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), 1000, info.key, nullptr, nullptr), 3);
    if (info.access == KV_JPX_FIELD_INTEGER) {
      // The index is judged before the value.
      for (const uint64_t value : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
        EXPECT_EQ(box.set(info.key, value, 1), 4) << type << '.' << info.name;
      }
      EXPECT_EQ(box.get_code(info.key, 1), 4) << type << '.' << info.name;
      EXPECT_EQ(box.get_code(info.key, kAbove32Bits), 4) << type << '.' << info.name;
    }
  }
}

enum class Bound { kStrict, kInclusive };  // whether get takes index = count

struct Growing {
  std::string type;
  uint32_t key;
  Bound bound;
  uint32_t neighbour;        // another field of an entry
  uint64_t neighbour_value;  // in a fresh entry
};

const Growing kGrowing[] = {
    {"bpcc", JPX_FIELD_BPCC_BPC, Bound::kStrict, 0, 0},
    {"cmap", JPX_FIELD_CMAP_CMP, Bound::kStrict, JPX_FIELD_CMAP_PCOL, 0},
    {"cmap", JPX_FIELD_CMAP_PCOL, Bound::kStrict, JPX_FIELD_CMAP_CMP, 0},
    {"cdef", JPX_FIELD_CDEF_Cn, Bound::kInclusive, JPX_FIELD_CDEF_Asoc, 0},
    {"cdef", JPX_FIELD_CDEF_Asoc, Bound::kInclusive, JPX_FIELD_CDEF_Typ, 0},
    {"rreq", JPX_FIELD_RREQ_SF, Bound::kStrict, JPX_FIELD_RREQ_SM, 0},
    {"rreq", JPX_FIELD_RREQ_SM, Bound::kStrict, JPX_FIELD_RREQ_SF, 0},
    {"rreq", JPX_FIELD_RREQ_VM, Bound::kStrict, 0, 0},
    {"creg", JPX_FIELD_CREG_CDN, Bound::kInclusive, JPX_FIELD_CREG_XR, 0},
    {"creg", JPX_FIELD_CREG_YO, Bound::kInclusive, JPX_FIELD_CREG_CDN, 0},
    {"inst", JPX_FIELD_INST_XO, Bound::kInclusive, JPX_FIELD_INST_WIDTH, k32Bits},
    {"inst", JPX_FIELD_INST_LIFE, Bound::kInclusive, JPX_FIELD_INST_PERSIST, 1},
    {"flst", JPX_FIELD_FLST_OFF, Bound::kInclusive, JPX_FIELD_FLST_DR, 0},
    {"flst", JPX_FIELD_FLST_DR, Bound::kInclusive, JPX_FIELD_FLST_OFF, 0},
    {"roid", JPX_FIELD_ROID_RLCX, Bound::kInclusive, JPX_FIELD_ROID_RI, 0},
    {"roid", JPX_FIELD_ROID_RI, Bound::kInclusive, JPX_FIELD_ROID_RHT, 0},
};

TEST(RepeatingFields, GrowByOneWhereverTheIndexPoints) {
  for (const Growing& field : kGrowing) {
    BoxUnderTest box(field.type, rule_of(field.type).payload);
    const uint64_t old_count = box.count(field.key);
    ASSERT_EQ(old_count, 2u) << field.type;
    for (const uint64_t index : {uint64_t{10}, old_count + 1, ~uint64_t{0}}) {
      const uint64_t place = box.count(field.key);
      EXPECT_EQ(box.set(field.key, 6, index), JPX_OK) << field.type;
      EXPECT_EQ(box.count(field.key), place + 1) << field.type;
      EXPECT_EQ(box.value(field.key, place), 6u) << field.type;
      if (field.neighbour == 0) continue;
      EXPECT_EQ(box.value(field.neighbour, place), field.neighbour_value) << field.type;
    }
    EXPECT_EQ(box.set(field.key, 5, 1), JPX_OK);
    EXPECT_EQ(box.count(field.key), 5u) << "an entry that exists is overwritten";
    EXPECT_EQ(box.value(field.key, 1), 5u);
    // What was there stays there, whatever the number of entries becomes.
    const uint64_t first = box.value(field.key, 0);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(box.set(field.key, i % 7 + 1, 10000), JPX_OK);
    EXPECT_EQ(box.value(field.key, 0), first);
    for (uint64_t i = 0; i < 300; ++i) ASSERT_EQ(box.value(field.key, 5 + i), i % 7 + 1);
  }
}

TEST(RepeatingFields, GrowFromNothing) {
  for (const Growing& field : kGrowing) {
    BoxUnderTest box(field.type);
    if (field.type == "rreq") box.set(JPX_FIELD_RREQ_ML, 1);
    if (field.type == "creg") box.set(JPX_FIELD_CREG_YS, 7);
    EXPECT_EQ(box.count(field.key), 0u) << field.type;
    EXPECT_EQ(box.get_code(field.key), field.bound == Bound::kStrict ? 4 : 0) << field.type;
    EXPECT_EQ(box.get_code(field.key, 1), 4) << field.type;
    EXPECT_EQ(box.set(field.key, 3, 7), JPX_OK) << field.type;
    EXPECT_EQ(box.count(field.key), 1u) << field.type;
    EXPECT_EQ(box.value(field.key), 3u) << field.type;
    EXPECT_EQ(box.content().size(), box.content_length()) << field.type;
  }
}

TEST(RepeatingFields, ReadASpareZeroEntryWhereTheBoundIsInclusive) {
  for (const Growing& field : kGrowing) {
    BoxUnderTest box(field.type, rule_of(field.type).payload);
    if (field.bound == Bound::kInclusive) {
      EXPECT_EQ(box.value(field.key, 2), 0u) << field.type;
    } else {
      EXPECT_EQ(box.get_code(field.key, 2), 4) << field.type;
    }
    EXPECT_EQ(box.get_code(field.key, 3), 4) << field.type;
    EXPECT_EQ(box.get_code(field.key, kAbove32Bits), 4) << field.type;
  }
}

TEST(RepeatingFields, AreResizedThroughTheirCount) {
  const std::pair<const char*, std::pair<uint32_t, uint32_t>> counted[] = {
      {"cdef", {JPX_FIELD_CDEF_N, JPX_FIELD_CDEF_Asoc}},
      {"rreq", {JPX_FIELD_RREQ_NSF, JPX_FIELD_RREQ_SF}},
      {"rreq", {JPX_FIELD_RREQ_NVF, JPX_FIELD_RREQ_VM}}};
  for (const auto& [type, keys] : counted) {
    const auto& [number, entry] = keys;
    BoxUnderTest box(type, rule_of(type).payload);
    const uint64_t first = box.value(entry, 0);
    EXPECT_EQ(box.set(number, 5), JPX_OK);
    EXPECT_EQ(box.count(entry), 5u);
    EXPECT_EQ(box.value(entry, 4), 0u);
    EXPECT_EQ(box.value(entry, 0), first);
    EXPECT_EQ(box.set(entry, 9, 4), JPX_OK);
    EXPECT_EQ(box.set(number, 1), JPX_OK);
    EXPECT_EQ(box.set(number, 5), JPX_OK);
    EXPECT_EQ(box.value(entry, 4), 0u) << "what was cut off is lost";
    EXPECT_EQ(box.value(entry, 0), first);
  }
}

}  // namespace
}  // namespace kvjpx::test
