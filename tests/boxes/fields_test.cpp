// Integer fields: which values they take, what they keep, how repeating ones grow.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

constexpr uint64_t k32Bits = 0xFFFFFFFF;
constexpr uint64_t kAbove32Bits = 0x100000000;
constexpr uint64_t minus(int64_t value) { return static_cast<uint64_t>(-value); }

const std::vector<uint64_t> kDepthBytes = {0, 1, 36, 37, 128, 165, 255};
const std::vector<uint64_t> kBadDepthBytes = {38, 127, 166, 254, 256, ~uint64_t{0}};

// Fields that take every value.
const std::vector<uint32_t> kUnjudged = {
    JPX_FIELD_FTYP_BR,  JPX_FIELD_FTYP_MinV, JPX_FIELD_COLR_PREC,    JPX_FIELD_CMAP_PCOL,
    JPX_FIELD_CDEF_Cn,  JPX_FIELD_CDEF_Asoc, JPX_FIELD_INST_Ityp,    JPX_FIELD_INST_REPT,
    JPX_FIELD_INST_XO,  JPX_FIELD_INST_YO,   JPX_FIELD_INST_WIDTH,   JPX_FIELD_INST_HEIGHT,
    JPX_FIELD_INST_XC,  JPX_FIELD_INST_YC,   JPX_FIELD_INST_WC,      JPX_FIELD_INST_HC,
    JPX_FIELD_FLST_OFF, JPX_FIELD_FLST_LEN,  JPX_FIELD_FLST_DR,      JPX_FIELD_NLST_AN,
    JPX_FIELD_ROID_RI,  JPX_FIELD_ULST_NU,   JPX_FIELD_INST_NEXT_USE};

struct Range {
  std::string type;
  std::vector<uint32_t> keys;
  std::vector<uint64_t> taken;  // and kept as their low bytes
  std::vector<uint64_t> refused;
  std::string payload = rule_of(type).payload;
};

std::string requirements(unsigned mask_length) {
  return be8(mask_length) + std::string(2 * mask_length, '\0') + be16(1) + be16(2) +
         std::string(mask_length, '\0') + be16(0);
}

// clang-format off
const Range kRanges[] = {
    {"ihdr", {JPX_FIELD_IHDR_HEIGHT, JPX_FIELD_IHDR_WIDTH}, {1, k32Bits, kAbove32Bits}, {0}},
    {"ihdr", {JPX_FIELD_IHDR_NC}, {1, 16384}, {0, 16385, 65537, kAbove32Bits + 1}},
    {"ihdr", {JPX_FIELD_IHDR_BPC}, kDepthBytes, kBadDepthBytes},
    {"ihdr", {JPX_FIELD_IHDR_C}, {7}, {0, 6, 8, 263}},
    {"ihdr", {JPX_FIELD_IHDR_UnkC, JPX_FIELD_IHDR_IPR}, {0, 1}, {2, 256}},
    {"bpcc", {JPX_FIELD_BPCC_BPC}, kDepthBytes, kBadDepthBytes},
    {"colr", {JPX_FIELD_COLR_METH}, {1, 2, 3, 4}, {0, 5, 257}},
    {"colr", {JPX_FIELD_COLR_APPROX}, {1, 4}, {0, 5, 257}},
    {"colr", {JPX_FIELD_COLR_EnumCS},
     {0, 1, 3, 4, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
     {2, 5, 6, 7, 8, 10, 25, kAbove32Bits, kAbove32Bits + 1}, enumerated(16)},
    {"resc", {JPX_FIELD_RESC_VR_N, JPX_FIELD_RESC_VR_D, JPX_FIELD_RESC_HR_N,
      JPX_FIELD_RESC_HR_D}, {1, 65535}, {0, 65536, minus(1)}},
    // Exponents are taken as signed numbers and read back as unsigned bytes.
    {"resd", {JPX_FIELD_RESC_VR_E, JPX_FIELD_RESC_HR_E}, {0, 127, minus(1), minus(128)},
     {128, 253, 255, minus(129), kAbove32Bits}},
    {"pclr", {JPX_FIELD_PCLR_NE}, {1, 2, 1024}, {0, 1025, 65537}},
    {"pclr", {JPX_FIELD_PCLR_NPC}, {1, 2, 255}, {0, 256, 257}},
    {"pclr", {JPX_FIELD_PCLR_B}, {0, 7, 0x87, 0xA5}, {0xA6, 255, 263}},
    {"cmap", {JPX_FIELD_CMAP_CMP}, {1, 16384}, {0, 16385, 65537}},
    {"cmap", {JPX_FIELD_CMAP_MTYP}, {0, 1}, {2, 256}},
    {"cdef", {JPX_FIELD_CDEF_N}, {1, 3, 65535, 65537}, {0, 65536}},
    {"cdef", {JPX_FIELD_CDEF_Typ}, {0, 2, 65535, 65536, 65538}, {3, 100, 65534, 65539}},
    {"rreq", {JPX_FIELD_RREQ_ML}, {1, 2, 4, 8}, {0, 3, 5, 16, 257}},
    {"rreq", {JPX_FIELD_RREQ_FUAM, JPX_FIELD_RREQ_DCM, JPX_FIELD_RREQ_SM, JPX_FIELD_RREQ_VM},
     {0, 255}, {256, kAbove32Bits}},
    {"rreq", {JPX_FIELD_RREQ_NSF, JPX_FIELD_RREQ_NVF, JPX_FIELD_RREQ_SF}, {0, 3, 65535}, {65536}},
    // The limit of masks is computed in 32 bits: only 0 is left with masks of 0, 4 or 8 bytes.
    {"rreq", {JPX_FIELD_RREQ_FUAM}, {0, 0xFFFFFF}, {0x1000000}, requirements(3)},
    {"rreq", {JPX_FIELD_RREQ_FUAM}, {0}, {1, k32Bits}, requirements(4)},
    {"rreq", {JPX_FIELD_RREQ_SM}, {0}, {1, k32Bits}, requirements(8)},
    {"rreq", {JPX_FIELD_RREQ_DCM}, {0}, {1}, requirements(0)},
    {"copt", {JPX_FIELD_COPT_HEIGHT, JPX_FIELD_COPT_WIDTH}, {0, k32Bits}, {kAbove32Bits}},
    {"copt", {JPX_FIELD_COPT_LOOP}, {0, 255}, {256}},
    {"creg", {JPX_FIELD_CREG_XS, JPX_FIELD_CREG_YS, JPX_FIELD_CREG_CDN}, {0, 65535}, {65536}},
    {"creg", {JPX_FIELD_CREG_XR, JPX_FIELD_CREG_YR}, {0, 255}, {256}},
    {"creg", {JPX_FIELD_CREG_XO}, {0, 7}, {8, 255, 256}},  // below XS
    {"creg", {JPX_FIELD_CREG_YO}, {0, 8}, {9, 255, 256}},  // below YS
    {"creg", {JPX_FIELD_CREG_XO}, {255}, {256, 299}, be16(300) + be16(0) + pattern(6)},
    {"inst", {JPX_FIELD_INST_LIFE}, {0, 0x7FFFFFFF}, {0x80000000, k32Bits, kAbove32Bits}},
    {"url ", {JPX_FIELD_URL_VERS}, {0, 256}, {1, 255, 257}},
    {"url ", {JPX_FIELD_URL_FLAG}, {0}, {1, 255, 257}},
    {"roid", {JPX_FIELD_ROID_RTYP}, {0, 1}, {2, 256}},
    {"roid", {JPX_FIELD_ROID_RCP}, {0, 255}, {256}},
    {"roid", {JPX_FIELD_ROID_RLCX, JPX_FIELD_ROID_RLCY, JPX_FIELD_ROID_RWDT, JPX_FIELD_ROID_RHT},
      {0, k32Bits}, {kAbove32Bits}},
};
// clang-format on

void expect_range(const Range& range, const kv_jpx_field_info& field) {
  for (const uint64_t taken : range.taken) {
    BoxUnderTest box(range.type, range.payload);
    const uint64_t kept = taken & ~uint64_t{0} >> (64 - 8 * field.width);
    EXPECT_EQ(box.set(field.key, taken), JPX_OK) << taken;
    EXPECT_EQ(box.value(field.key), kept) << taken;
  }
  for (const uint64_t refused : range.refused) {
    BoxUnderTest box(range.type, range.payload);
    const uint64_t before = box.value(field.key);
    EXPECT_EQ(box.set(field.key, refused), JPX_ERR_INVALID_ARGUMENT) << refused;
    EXPECT_EQ(box.value(field.key), before) << refused;
  }
}

bool has(const std::vector<uint32_t>& keys, uint32_t key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

TEST(IntegerFields, TakeTheirRangesAndKeepTheirLowBytes) {
  size_t unjudged = 0;
  size_t judged = 0;
  kv_jpx_field_info field = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    const std::string type = field.box_type == 0 ? "none" : be32(field.box_type);
    SCOPED_TRACE(type + '.' + field.name);
    if (has(kUnjudged, field.key)) {
      expect_range({type, {}, {0, ~uint64_t{0}, kAbove32Bits + 9}, {}}, field);
      ++unjudged;
    }
    for (const Range& range : kRanges) {
      if (range.type != type || !has(range.keys, field.key)) continue;
      expect_range(range, field);
      ++judged;
    }
  }
  EXPECT_EQ(unjudged, kUnjudged.size());
  size_t all_keys = 0;
  for (const Range& range : kRanges) all_keys += range.keys.size();
  EXPECT_EQ(judged, all_keys);
}

TEST(IntegerFields, AnswerToTheirKeyAndIndexOnly) {
  kv_jpx_field_info info = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    const std::string type = info.box_type == 0 ? "none" : be32(info.box_type);
    SCOPED_TRACE(type + '.' + info.name);
    BoxUnderTest box = type == "cref" ? BoxUnderTest(type)  // a read one has no field
                                      : BoxUnderTest(type, rule_of(type).payload);
    EXPECT_EQ(box.get_code(0x12345678), 4);
    EXPECT_EQ(box.set(0x12345678, 1), 4);
    EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), box.id, 0x12345678, nullptr, nullptr), 4);
    uint32_t width = 0;
    const int32_t code = kv_jpx_get_box_field_count(box.get(), box.id, info.key, nullptr, &width);
    EXPECT_TRUE(code == JPX_OK ? width == info.width : type == "colr");  // of another method
    if (info.access != KV_JPX_FIELD_INTEGER) continue;
    // The index is judged before the value.
    for (const uint64_t value : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
      EXPECT_EQ(box.set(info.key, value, 1), 4);
    }
    EXPECT_EQ(box.get_code(info.key, 1), 4);
    EXPECT_EQ(box.get_code(info.key, kAbove32Bits), 4);
  }
}

struct Growing {
  std::string type;
  uint32_t key;
  bool has_spare;            // get takes index = count
  uint32_t neighbour;        // another field of an entry
  uint64_t neighbour_value;  // in a fresh entry
};

const Growing kGrowing[] = {
    {"bpcc", JPX_FIELD_BPCC_BPC, false, JPX_FIELD_BPCC_BPC, 6},
    {"cmap", JPX_FIELD_CMAP_CMP, false, JPX_FIELD_CMAP_PCOL, 0},
    {"cdef", JPX_FIELD_CDEF_Asoc, true, JPX_FIELD_CDEF_Typ, 0},
    {"rreq", JPX_FIELD_RREQ_SF, false, JPX_FIELD_RREQ_SM, 0},
    {"rreq", JPX_FIELD_RREQ_VM, false, JPX_FIELD_RREQ_VM, 6},
    {"creg", JPX_FIELD_CREG_YO, true, JPX_FIELD_CREG_CDN, 0},
    {"inst", JPX_FIELD_INST_XO, true, JPX_FIELD_INST_WIDTH, k32Bits},
    {"inst", JPX_FIELD_INST_LIFE, true, JPX_FIELD_INST_PERSIST, 1},
    {"flst", JPX_FIELD_FLST_OFF, true, JPX_FIELD_FLST_DR, 0},
    {"roid", JPX_FIELD_ROID_RLCX, true, JPX_FIELD_ROID_RI, 0},
};

TEST(RepeatingFields, GrowByOneWhereverTheIndexPointsAndMayHaveASpareEntry) {
  for (const Growing& field : kGrowing) {
    SCOPED_TRACE(field.type);
    BoxUnderTest box(field.type, rule_of(field.type).payload);
    ASSERT_EQ(box.count(field.key), 2u);
    EXPECT_EQ(box.get_code(field.key, 2), field.has_spare ? 0 : 4);
    EXPECT_TRUE(!field.has_spare || box.value(field.key, 2) == 0);
    EXPECT_EQ(box.get_code(field.key, 3), 4);
    EXPECT_EQ(box.get_code(field.key, kAbove32Bits), 4);
    for (const uint64_t index : {uint64_t{10}, uint64_t{3}, ~uint64_t{0}}) {
      const uint64_t place = box.count(field.key);
      EXPECT_EQ(box.set(field.key, 6, index), JPX_OK);
      EXPECT_EQ(box.count(field.key), place + 1);
      EXPECT_EQ(box.value(field.key, place), 6u);
      EXPECT_EQ(box.value(field.neighbour, place), field.neighbour_value);
    }
    EXPECT_EQ(box.set(field.key, 5, 1), JPX_OK);
    EXPECT_EQ(box.count(field.key), 5u) << "an entry that exists is overwritten";
    // What was there stays there, whatever the number of entries becomes.
    for (int i = 0; i < 300; ++i) ASSERT_EQ(box.set(field.key, i % 7 + 1, 10000), JPX_OK);
    EXPECT_EQ(box.value(field.key, 1), 5u);
    for (uint64_t i = 0; i < 300; ++i) ASSERT_EQ(box.value(field.key, 5 + i), i % 7 + 1);
  }
}

TEST(RepeatingFields, GrowFromNothing) {
  for (const Growing& field : kGrowing) {
    SCOPED_TRACE(field.type);
    BoxUnderTest box(field.type);
    if (field.type == "rreq") box.set(JPX_FIELD_RREQ_ML, 1);
    if (field.type == "creg") box.set(JPX_FIELD_CREG_YS, 7);
    EXPECT_EQ(box.count(field.key), 0u);
    EXPECT_EQ(box.get_code(field.key), field.has_spare ? 0 : 4);
    EXPECT_EQ(box.get_code(field.key, 1), 4);
    EXPECT_EQ(box.set(field.key, 3, 7), JPX_OK);
    EXPECT_EQ(box.count(field.key), 1u);
    EXPECT_EQ(box.value(field.key), 3u);
    EXPECT_EQ(box.content().size(), box.content_length());
  }
}

TEST(RepeatingFields, AreResizedThroughTheirCount) {
  const struct {
    const char* type;
    uint32_t number;
    uint32_t entry;
  } counted[] = {{"cdef", JPX_FIELD_CDEF_N, JPX_FIELD_CDEF_Asoc},
                 {"rreq", JPX_FIELD_RREQ_NSF, JPX_FIELD_RREQ_SF},
                 {"rreq", JPX_FIELD_RREQ_NVF, JPX_FIELD_RREQ_VM}};
  for (const auto& [type, number, entry] : counted) {
    BoxUnderTest box(type, rule_of(type).payload);
    const uint64_t first = box.value(entry, 0);
    EXPECT_EQ(box.set(number, 5), JPX_OK);
    EXPECT_EQ(box.count(entry), 5u);
    EXPECT_EQ(box.set(entry, 9, 4), JPX_OK);
    EXPECT_EQ(box.set(number, 1), JPX_OK);
    EXPECT_EQ(box.set(number, 5), JPX_OK);
    EXPECT_EQ(box.value(entry, 4), 0u) << "what was cut off is lost";
    EXPECT_EQ(box.value(entry, 0), first);
  }
}

}  // namespace
}  // namespace kvjpx::test
