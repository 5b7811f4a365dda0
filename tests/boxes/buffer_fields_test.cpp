// Fields held as bytes: how a caller gets them, sets them, and what is refused.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

const std::string kPalette = rule_of("pclr").payload;
const std::string kVendor = bytes({4, 0, 0}) + pattern(16) + "ink";

template <class Integer>
std::string in_host_order(std::initializer_list<Integer> values) {
  return std::string(reinterpret_cast<const char*>(values.begin()),
                     values.size() * sizeof(Integer));
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

const BytesField kBytesFields[] = {
    {"none", "opaque", JPX_FIELD_JP2C_DATA, 6, 1, "opaque", 3, true},
    {"uuid", pattern(16) + "data", JPX_FIELD_UUID_DATA, 4, 1, "data", 5, true},
    {"uuid", pattern(16) + "data", JPX_FIELD_JP2C_DATA, 4, 1, "data", 3, true},
    {"uuid", pattern(16) + "data", JPX_FIELD_UUID_ID, 1, 16, pattern(16), 5, false},
    {"url ", be32(0) + "http://x", JPX_FIELD_URL_LOC, 8, 1, "http://x", 3, true},
    {"bpcc", bytes({7, 0x85}), JPX_FIELD_BPCC_BPC, 2, 1, bytes({7, 0x85}), 5, true},
    {"colr", bytes({2, 0, 0}) + "icc", JPX_FIELD_COLR_ICC, 3, 1, "icc", 5, true},
    {"colr", bytes({3, 0, 0}) + "any", JPX_FIELD_COLR_ICC, 3, 1, "any", 5, true},
    {"colr", kVendor, JPX_FIELD_COLR_UUID, 16, 1, pattern(16), 5, false},
    {"colr", kVendor, JPX_FIELD_COLR_VENDOR_DATA, 3, 1, "ink", 5, true},
    {"pclr", kPalette, JPX_FIELD_PCLR_B, 2, 1, bytes({7, 11}), 5, true},
    {"pclr", kPalette, JPX_FIELD_PCLR_C, 4, 4, in_host_order({1, 0x203, 4, 0x506}), 5, false},
    {"opct", bytes({2, 1, 0xF2}), JPX_FIELD_OPCT_Cv, 1, 8, in_host_order({int64_t{0xF2}}), 5, true},
    {"nlst", be32(7) + be32(8), JPX_FIELD_NLST_AN, 2, 4, in_host_order({7, 8}), 5, true},
    {"ulst", be16(2) + pattern(32), JPX_FIELD_ULST_ID, 2, 16, pattern(32), 5, true},
};

class FieldUnderTest : public BoxUnderTest {
 public:
  explicit FieldUnderTest(const BytesField& field)
      : BoxUnderTest(field.type, field.payload),
        key(field.key),
        // The vendor UUID is set as one entry of 16 bytes and got as 16 of one.
        set_size(key == JPX_FIELD_COLR_UUID ? 16 : field.element_size),
        trace(__FILE__, __LINE__, field.type + " key " + std::to_string(key)) {}

  int32_t get_buffer(uint64_t* count, uint32_t* element_size, void** data) {
    return kv_jpx_get_box_field_buffer(get(), id, key, count, element_size, data);
  }
  int32_t set_buffer(uint64_t count, uint32_t element_size, const void* data) {
    return kv_jpx_set_box_field_buffer(get(), id, key, count, element_size, data);
  }

  const uint32_t key;
  const uint32_t set_size;
  const ::testing::ScopedTrace trace;
};

TEST(BytesFields, AreHandedOutInABlockOrCopiedToABufferOfTheCaller) {
  for (const BytesField& field : kBytesFields) {
    FieldUnderTest box(field);
    uint64_t count = 99;
    uint32_t element_size = 99;
    void* data = nullptr;
    ASSERT_EQ(box.get_buffer(&count, &element_size, &data), JPX_OK);
    EXPECT_EQ(box.take(data, field.bytes.size()), field.bytes);
    EXPECT_EQ(std::make_pair(count, element_size), std::make_pair(field.count, field.element_size));
    EXPECT_EQ(box.TestDocument::count(box.id, box.key),
              std::make_pair(field.count * field.element_size / box.set_size, box.set_size));
    EXPECT_EQ(box.get_buffer(&count, &element_size, nullptr), JPX_ERR_INVALID_ARGUMENT);
    data = nullptr;
    EXPECT_EQ(box.get_buffer(nullptr, nullptr, &data), JPX_OK);
    EXPECT_EQ(box.take(data, field.bytes.size()), field.bytes);

    const std::string untouched(field.bytes.size(), '#');
    std::string buffer = untouched;
    data = buffer.data();
    const std::pair<uint64_t, uint32_t> too_small[] = {
        {field.bytes.size() - 1, 1}, {field.count, 0}, {0, 16}};
    for (auto [offered, size] : too_small) {
      EXPECT_EQ(box.get_buffer(&offered, &size, &data), JPX_ERR_BUFFER_TOO_SMALL);
      EXPECT_EQ(std::make_pair(offered, size), std::make_pair(field.count, field.element_size));
    }
    EXPECT_EQ(box.get_buffer(nullptr, &element_size, &data), field.missing_size);
    EXPECT_EQ(box.get_buffer(&count, nullptr, &data), field.missing_size);
    EXPECT_EQ(buffer, untouched);
    EXPECT_EQ(box.get_buffer(&count, &element_size, &data), JPX_OK);
    EXPECT_EQ(data, buffer.data());
    EXPECT_EQ(buffer, field.bytes);
  }
}

TEST(BytesFields, KeepACopyOfWhatIsSetAndRefuseWhatTheyCannotCopy) {
  for (const BytesField& field : kBytesFields) {
    FieldUnderTest box(field);
    const uint64_t count = field.bytes.size() / box.set_size;
    const uint64_t overflowing = ~uint64_t{0} / box.set_size + 1;
    EXPECT_EQ(box.set_buffer(count, box.set_size, nullptr), JPX_ERR_INVALID_ARGUMENT);
    EXPECT_TRUE(box.set_size == 1 || box.set_buffer(overflowing, box.set_size, "x") != JPX_OK);
    const bool is_payload = field.missing_size == 3 || box.key == JPX_FIELD_UUID_DATA;
    if (is_payload) {  // takes any element size
      EXPECT_EQ(box.set_buffer(uint64_t{1} << 62, 4, "x"), JPX_ERR_INVALID_ARGUMENT);
    } else if (box.key != JPX_FIELD_COLR_ICC && box.key != JPX_FIELD_COLR_VENDOR_DATA) {
      EXPECT_EQ(box.set_buffer(1, box.set_size + 1, pattern(32).data()), JPX_ERR_INVALID_ARGUMENT);
    }
    EXPECT_EQ(box.field_bytes(box.key), field.bytes);

    std::string fresh = field.bytes;
    for (char& c : fresh) c = static_cast<char>(c ^ 0x15);
    if (field.has_any_length) fresh += fresh;
    const std::string expected = fresh;
    ASSERT_EQ(box.set_bytes(box.key, fresh, box.set_size), JPX_OK);
    const size_t blocks = box.allocator().live_blocks();
    ASSERT_EQ(box.set_bytes(box.key, fresh, box.set_size), JPX_OK);
    EXPECT_EQ(box.allocator().live_blocks(), blocks) << "the copy before is released";
    fresh.assign(fresh.size(), '#');
    EXPECT_EQ(box.field_bytes(box.key), expected);
    if (!field.has_any_length || field.type == "pclr") continue;
    EXPECT_EQ(box.set_buffer(0, box.set_size, nullptr), JPX_OK);
    EXPECT_EQ(box.field_bytes(box.key), "");
    EXPECT_EQ(box.content().size(), box.content_length());
  }
}

using Shape = std::pair<uint64_t, uint32_t>;  // count and element size

void expect_offer(BoxUnderTest&& box, uint32_t key, Shape offer, int32_t code, Shape reported) {
  std::string buffer(100, '#');
  void* data = buffer.data();
  EXPECT_EQ(kv_jpx_get_box_field_buffer(box.get(), box.id, key, &offer.first, &offer.second, &data),
            code);
  EXPECT_EQ(offer, reported);
}

TEST(BytesFieldShapes, OfABufferCountByTheirProductOrEach) {
  expect_offer({"none", pattern(100)}, JPX_FIELD_JP2C_DATA, {50, 2}, JPX_OK, {100, 1});
  expect_offer({"opct", bytes({2, 2, 1, 2})}, JPX_FIELD_OPCT_Cv, {16, 4}, 5, {2, 8});
  expect_offer({"uuid", pattern(20)}, JPX_FIELD_UUID_ID, {16, 1}, 5, {1, 16});
}

}  // namespace
}  // namespace kvjpx::test
