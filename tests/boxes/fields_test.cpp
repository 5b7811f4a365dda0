// Integer fields: which values they take, what they keep, how repeating ones grow.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

constexpr uint64_t k32Bits = 0xFFFFFFFF;
constexpr uint64_t kAbove32Bits = 0x100000000;
TEST(IntegerFields, AnswerToTheirKeyAndIndexOnly) {
  kv_jpx_field_info info;
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
