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

TEST(RepeatingFields, KeepWhatTheyHoldWhileTheyGrow) {
  const std::pair<const char*, uint32_t> fields[] = {
      {"bpcc", JPX_FIELD_BPCC_BPC},  {"cmap", JPX_FIELD_CMAP_CMP}, {"cdef", JPX_FIELD_CDEF_Asoc},
      {"rreq", JPX_FIELD_RREQ_SF},   {"rreq", JPX_FIELD_RREQ_VM},  {"creg", JPX_FIELD_CREG_YO},
      {"inst", JPX_FIELD_INST_LIFE}, {"flst", JPX_FIELD_FLST_OFF}, {"roid", JPX_FIELD_ROID_RLCX}};
  for (const auto& [type, key] : fields) {
    BoxUnderTest box(type, rule_of(type).payload);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(box.set(key, i % 7 + 1, 10000), JPX_OK) << type;
    for (uint64_t i = 0; i < 300; ++i) ASSERT_EQ(box.value(key, 2 + i), i % 7 + 1) << type;
    EXPECT_EQ(box.content().size(), box.content_length()) << type;
  }
}

}  // namespace
}  // namespace kvjpx::test
