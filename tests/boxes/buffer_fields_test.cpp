// Fields held as bytes: how a caller gets them, sets them, and what is refused.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

const std::string kVendor = bytes({4, 0, 0}) + pattern(16) + "ink";

std::string in_host_order(std::initializer_list<uint32_t> values) {
  return std::string(reinterpret_cast<const char*>(values.begin()),
                     values.size() * sizeof(uint32_t));
}

std::string in_host_order_64(std::initializer_list<int64_t> values) {
  return std::string(reinterpret_cast<const char*>(values.begin()),
                     values.size() * sizeof(int64_t));
}

struct BytesField {
  std::string type;
  std::string payload;
  uint32_t key;
  uint64_t count;  // as get reports it
  uint32_t element_size;
  std::string bytes;
  int32_t missing_size;  // answer to a caller's buffer without its size
  bool has_any_length;   // set takes another number of entries
};

// For GoogleTest, which would show addresses and padding otherwise.
void PrintTo(const BytesField& field, std::ostream* out) {
  *out << field.type << " key " << field.key;
}

const std::vector<BytesField>& bytes_fields() {
  static const std::vector<BytesField> result = {
      {"none", "opaque", JPX_FIELD_JP2C_DATA, 6, 1, "opaque", 3, true},
      {"jp2c", "codestream", JPX_FIELD_JP2C_DATA, 10, 1, "codestream", 3, true},
      {"uuid", pattern(16) + "data", JPX_FIELD_UUID_DATA, 4, 1, "data", 5, true},
      {"uuid", pattern(16) + "data", JPX_FIELD_JP2C_DATA, 4, 1, "data", 3, true},
      {"uuid", pattern(16) + "data", JPX_FIELD_UUID_ID, 1, 16, pattern(16), 5, false},
      {"url ", be32(0) + "http://x", JPX_FIELD_URL_LOC, 8, 1, "http://x", 3, true},
      {"bpcc", bytes({7, 0x85}), JPX_FIELD_BPCC_BPC, 2, 1, bytes({7, 0x85}), 5, true},
      {"colr", bytes({2, 0, 0}) + "icc", JPX_FIELD_COLR_ICC, 3, 1, "icc", 5, true},
      {"colr", bytes({3, 0, 0}) + "any", JPX_FIELD_COLR_ICC, 3, 1, "any", 5, true},
      {"colr", kVendor, JPX_FIELD_COLR_UUID, 16, 1, pattern(16), 5, false},
      {"colr", kVendor, JPX_FIELD_COLR_VENDOR_DATA, 3, 1, "ink", 5, true},
      {"pclr", rule_of("pclr").payload, JPX_FIELD_PCLR_B, 2, 1, bytes({7, 11}), 5, true},
      {"pclr", rule_of("pclr").payload, JPX_FIELD_PCLR_C, 4, 4, in_host_order({1, 0x203, 4, 0x506}),
       5, false},
      {"opct", bytes({2, 2, 0x11, 0xF2}), JPX_FIELD_OPCT_Cv, 2, 8, in_host_order_64({0x11, 0xF2}),
       5, true},
      {"nlst", be32(7) + be32(8), JPX_FIELD_NLST_AN, 2, 4, in_host_order({7, 8}), 5, true},
      {"ulst", rule_of("ulst").payload, JPX_FIELD_ULST_ID, 2, 16,
       pattern(16) + std::string(16, 'u'), 5, true},
  };
  return result;
}

class BytesFields : public ::testing::TestWithParam<BytesField> {
 protected:
  int32_t get(uint64_t* count, uint32_t* element_size, void** data) {
    return kv_jpx_get_box_field_buffer(box_.get(), box_.id, field_.key, count, element_size, data);
  }
  int32_t set(uint64_t count, uint32_t element_size, const void* data) {
    return kv_jpx_set_box_field_buffer(box_.get(), box_.id, field_.key, count, element_size, data);
  }
  // The vendor UUID is set as one entry of 16 bytes and got as 16 of one.
  uint32_t set_size() const { return field_.key == JPX_FIELD_COLR_UUID ? 16 : field_.element_size; }

  const BytesField field_ = GetParam();
  BoxUnderTest box_{field_.type, field_.payload};
};

TEST_P(BytesFields, AreHandedOutInABlockOfTheLibrary) {
  uint64_t count = 99;
  uint32_t element_size = 99;
  void* data = nullptr;
  ASSERT_EQ(get(&count, &element_size, &data), JPX_OK);
  EXPECT_EQ(count, field_.count);
  EXPECT_EQ(element_size, field_.element_size);
  EXPECT_EQ(std::string(static_cast<char*>(data), field_.bytes.size()), field_.bytes);
  EXPECT_EQ(kv_jpx_free(box_.get(), data), JPX_OK);

  data = nullptr;
  EXPECT_EQ(get(nullptr, nullptr, &data), JPX_OK);
  EXPECT_EQ(std::string(static_cast<char*>(data), field_.bytes.size()), field_.bytes);
  EXPECT_EQ(get(&count, &element_size, nullptr), JPX_ERR_INVALID_ARGUMENT);
}

TEST_P(BytesFields, AreCopiedToABufferOfTheCaller) {
  std::string buffer(field_.bytes.size(), '#');
  void* data = buffer.data();
  uint64_t count = field_.count;
  uint32_t element_size = field_.element_size;
  EXPECT_EQ(get(&count, &element_size, &data), JPX_OK);
  EXPECT_EQ(data, buffer.data());
  EXPECT_EQ(buffer, field_.bytes);

  buffer.assign(buffer.size(), '#');
  struct Offer {
    uint64_t count;
    uint32_t element_size;
  };
  const Offer too_small[] = {{field_.bytes.size() - 1, 1}, {field_.count, 0}, {0, 16}};
  for (const Offer& offer : too_small) {
    count = offer.count;
    element_size = offer.element_size;
    EXPECT_EQ(get(&count, &element_size, &data), JPX_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, field_.count);
    EXPECT_EQ(element_size, field_.element_size);
  }
  EXPECT_EQ(get(nullptr, &element_size, &data), field_.missing_size);
  EXPECT_EQ(get(&count, nullptr, &data), field_.missing_size);
  EXPECT_EQ(buffer, std::string(buffer.size(), '#'));
}

TEST_P(BytesFields, KeepACopyOfWhatIsSet) {
  std::string fresh = field_.bytes;
  for (char& c : fresh) c = static_cast<char>(c ^ 0x15);
  if (field_.has_any_length) fresh += fresh;
  const std::string expected = fresh;
  ASSERT_EQ(box_.set_bytes(field_.key, fresh, set_size()), JPX_OK);
  fresh.assign(fresh.size(), '#');
  EXPECT_EQ(box_.field_bytes(field_.key), expected);
  if (!field_.has_any_length || field_.type == "pclr") return;
  EXPECT_EQ(box_.content().size(), box_.content_length());
  EXPECT_EQ(set(0, set_size(), nullptr), JPX_OK);
  EXPECT_EQ(box_.field_bytes(field_.key), "");
  EXPECT_EQ(box_.content().size(), box_.content_length());
}

TEST_P(BytesFields, RefuseWhatTheyCannotCopy) {
  const uint64_t overflowing = ~uint64_t{0} / set_size() + 1;
  EXPECT_EQ(set(field_.bytes.size() / set_size(), set_size(), nullptr), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_TRUE(set_size() == 1 || set(overflowing, set_size(), "x") != JPX_OK);
  const bool is_payload = field_.missing_size == 3 || field_.key == JPX_FIELD_UUID_DATA;
  if (is_payload) {  // takes any element size
    EXPECT_EQ(set(uint64_t{1} << 62, 4, "x"), JPX_ERR_INVALID_ARGUMENT);
  } else if (field_.key != JPX_FIELD_COLR_ICC && field_.key != JPX_FIELD_COLR_VENDOR_DATA) {
    EXPECT_EQ(set(1, set_size() + 1, field_.bytes.data()), JPX_ERR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(box_.field_bytes(field_.key), field_.bytes);
}

INSTANTIATE_TEST_SUITE_P(All, BytesFields, ::testing::ValuesIn(bytes_fields()),
                         [](const auto& info) {
                           return info.param.type.substr(0, 3) + std::to_string(info.index);
                         });

TEST(BytesFieldShapes, AreJudgedByEachFieldsRule) {
  BoxUnderTest opaque("none", pattern(100));
  std::string buffer(100, '#');
  void* data = buffer.data();
  uint64_t count = 50;
  uint32_t element_size = 2;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(opaque.get(), opaque.id, JPX_FIELD_JP2C_DATA, &count,
                                        &element_size, &data),
            JPX_OK)
      << "the product counts";
  EXPECT_EQ(count, 100u);
  EXPECT_EQ(element_size, 1u);

  // Chroma-key values are judged by size and count each.
  BoxUnderTest opacity("opct", bytes({2, 2, 1, 2}));
  count = 16;
  element_size = 4;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(opacity.get(), opacity.id, JPX_FIELD_OPCT_Cv, &count,
                                        &element_size, &data),
            5);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(element_size, 8u);

  BoxUnderTest uuid("uuid", pattern(20));
  count = 16;
  element_size = 1;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(uuid.get(), uuid.id, JPX_FIELD_UUID_ID, &count,
                                        &element_size, &data),
            5);
  EXPECT_EQ(uuid.set_bytes(JPX_FIELD_UUID_ID, pattern(32), 16), 3) << "exactly one";
  EXPECT_EQ(kv_jpx_set_box_field_buffer(uuid.get(), uuid.id, JPX_FIELD_UUID_ID, 0, 16, "x"), 3);
  EXPECT_EQ(uuid.count(JPX_FIELD_UUID_ID), 1u);

  BoxUnderTest vendor("colr", kVendor);
  EXPECT_EQ(vendor.TestDocument::count(vendor.id, JPX_FIELD_COLR_UUID),
            std::make_pair(uint64_t{1}, 16u));
  EXPECT_EQ(vendor.set_bytes(JPX_FIELD_COLR_UUID, pattern(32), 16), 4);
  EXPECT_EQ(vendor.set_bytes(JPX_FIELD_COLR_UUID, pattern(16), 1), 4);
  EXPECT_EQ(kv_jpx_set_box_field_buffer(vendor.get(), vendor.id, JPX_FIELD_COLR_UUID, 1, 15, "x"),
            3);
  EXPECT_EQ(vendor.set_bytes(JPX_FIELD_COLR_ICC, "icc"), 4) << "another method's";

  BoxUnderTest palette("pclr", rule_of("pclr").payload);
  EXPECT_EQ(palette.set_bytes(JPX_FIELD_PCLR_C, pattern(12), 4), 3) << "NE x NPC values or none";
  EXPECT_EQ(palette.set_bytes(JPX_FIELD_PCLR_B, pattern(256)), 3);
  EXPECT_EQ(palette.set_bytes(JPX_FIELD_PCLR_B, ""), 3);
  EXPECT_EQ(palette.value(JPX_FIELD_PCLR_NPC), 2u);
  EXPECT_EQ(palette.set_bytes(JPX_FIELD_PCLR_B, bytes({1, 2, 3})), JPX_OK);
  EXPECT_EQ(palette.value(JPX_FIELD_PCLR_NPC), 3u);
  EXPECT_EQ(palette.count(JPX_FIELD_PCLR_C), 6u);
}

}  // namespace
}  // namespace kvjpx::test
