// The box record, the operations that box types share, and trees of boxes.
#include "box/box.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "box/basic.h"
#include "box/super.h"
#include "box/test_document.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

// A box of any length, for sizes that no test can hold. It renders its length's low byte.
uint64_t fake_length;
uint64_t give_fake_length(Box*) { return fake_length; }
void render_mark(Box*, Environment* env, Stream* stream) {
  bs_write_1_byte(env, stream, fake_length);
}
void print_nothing(Box*) {}

Box* make_fake_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return jpx_make_box(env, sizeof(SuperBox) + 16, kParsed, type, parent, id, give_fake_length,
                      render_mark, print_nothing, jpx_generic_destroy, jpx_generic_find_by_id,
                      jpx_generic_find_by_type, jpx_generic_set_int_field,
                      jpx_generic_get_int_field, jpx_generic_get_field_count,
                      jpx_generic_set_buffer_field, jpx_generic_get_buffer_field);
}

template <class T>
T at_offset(const Box* box, size_t offset) {
  T value;
  memcpy(&value, reinterpret_cast<const char*>(box) + offset, sizeof(value));
  return value;
}

TEST(BoxRecord, HasItsFieldsWhereHostsLookForThem) {
  if (sizeof(void*) != 8) GTEST_SKIP() << "hosts know the layout of 64-bit platforms only";
  TestContext context;
  Box parent = {};
  const Box* box = nullptr;
  ASSERT_EQ(
      raised(context.env(), [&] { box = make_fake_box(context.env(), code("fake"), &parent, 42); }),
      0);
  EXPECT_EQ(at_offset<uint32_t>(box, 0), 3u);
  EXPECT_EQ(at_offset<uint32_t>(box, 4), 0x66616B65u);
  EXPECT_EQ(at_offset<uint32_t>(box, 8), 42u);
  const void* const expected[] = {&parent,
                                  nullptr,
                                  nullptr,
                                  reinterpret_cast<void*>(give_fake_length),
                                  reinterpret_cast<void*>(jpx_box_length),
                                  reinterpret_cast<void*>(render_mark),
                                  reinterpret_cast<void*>(jpx_box_render),
                                  reinterpret_cast<void*>(print_nothing),
                                  reinterpret_cast<void*>(jpx_box_destroy),
                                  reinterpret_cast<void*>(jpx_generic_destroy),
                                  reinterpret_cast<void*>(jpx_generic_find_by_id),
                                  reinterpret_cast<void*>(jpx_generic_find_by_type),
                                  reinterpret_cast<void*>(jpx_generic_set_int_field),
                                  reinterpret_cast<void*>(jpx_generic_get_int_field),
                                  reinterpret_cast<void*>(jpx_generic_get_field_count),
                                  reinterpret_cast<void*>(jpx_generic_set_buffer_field),
                                  reinterpret_cast<void*>(jpx_generic_get_buffer_field)};
  for (size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(at_offset<const void*>(box, 16 + 8 * i), expected[i]) << "pointer " << i;
  }
  for (size_t i = sizeof(Box); i < sizeof(SuperBox) + 16; ++i) {
    EXPECT_EQ(at_offset<char>(box, i), 0) << "byte " << i;
  }
}

TEST(BoxRecord, ChoosesTheHeaderByTheTotalLength) {
  struct Case {
    uint32_t type;
    uint64_t content;
    uint64_t total;
    std::string header;
  };
  const Case cases[] = {
      {code("fake"), 0, 8, be32(8) + "fake"},
      {code("fake"), 0xFFFFFFF7, 0xFFFFFFFF, be32(0xFFFFFFFF) + "fake"},
      {code("fake"), 0xFFFFFFF8, 0x100000008, be32(1) + "fake" + be64(0x100000008)},
      {code("fake"), 0x123456789A, 0x12345678AA, be32(1) + "fake" + be64(0x12345678AA)},
      {kRoot, 0xFFFFFFF8, 0xFFFFFFF8, ""},
  };
  for (const Case& expected : cases) {
    TestContext context;
    fake_length = expected.content;
    uint64_t total = 0;
    uint64_t written = 0;
    uint8_t* bytes = nullptr;
    ASSERT_EQ(raised(context.env(),
                     [&] {
                       Environment* const env = context.env();
                       Box* const box = make_fake_box(env, expected.type, nullptr, 1);
                       total = box->box_length(box);
                       Stream* const writer = bs_writer_to_buffer(env, nullptr, 0);
                       box->box_render(box, env, writer);
                       bytes = bs_writer_get_buffer(env, writer, &written);
                     }),
              0);
    EXPECT_EQ(total, expected.total);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), written),
              expected.header + be8(expected.content & 0xFF));
  }
}

TEST(GenericOperations, KnowOnlyTheBoxItselfAndNoFields) {
  Box box = {};
  box.type = code("fake");
  box.id = 7;
  EXPECT_EQ(jpx_generic_find_by_id(&box, 7), &box);
  EXPECT_EQ(jpx_generic_find_by_id(&box, 8), nullptr);
  EXPECT_EQ(jpx_generic_find_by_type(&box, code("fake"), 6), &box);
  EXPECT_EQ(jpx_generic_find_by_type(&box, code("fake"), 7), nullptr);
  EXPECT_EQ(jpx_generic_find_by_type(&box, code("fakf"), 6), nullptr);
  EXPECT_EQ(jpx_generic_set_int_field(&box, nullptr, 1, 0, 0), 4);
  EXPECT_EQ(jpx_generic_get_int_field(&box, 1, 0, nullptr), 4);
  EXPECT_EQ(jpx_generic_get_field_count(&box, 1, nullptr, nullptr), 4);
  EXPECT_EQ(jpx_generic_set_buffer_field(&box, nullptr, 1, 0, 0, nullptr), 4);
  EXPECT_EQ(jpx_generic_get_buffer_field(&box, nullptr, 1, nullptr, nullptr, nullptr), 4);
}

TEST(SiblingLinks, FollowInsertAndRemove) {
  SuperBox parent = {};
  parent.kind = kSuper;
  Box a = {}, b = {}, inserted = {};
  a.parent = b.parent = inserted.parent = &parent;
  parent.first_child = &a;
  a.next = &b;
  b.previous = &a;

  jpx_insert_box(&inserted, &a);
  EXPECT_EQ(a.next, &inserted);
  EXPECT_EQ(inserted.previous, &a);
  EXPECT_EQ(inserted.next, &b);
  EXPECT_EQ(b.previous, &a) << "the box behind keeps pointing at the one in front";

  b.previous = &inserted;
  jpx_remove_box(&inserted);
  EXPECT_EQ(a.next, &b);
  EXPECT_EQ(b.previous, &a);
  EXPECT_EQ(inserted.next, &b) << "the removed box's own links stay";
  jpx_remove_box(&a);
  EXPECT_EQ(parent.first_child, &b);
  EXPECT_EQ(b.previous, nullptr);
  jpx_remove_box(&b);
  EXPECT_EQ(parent.first_child, nullptr);

  jpx_insert_box(&inserted, &b);
  EXPECT_EQ(inserted.next, nullptr);
}

TEST(SiblingLinks, FollowDestroy) {
  TestDocument document(box("asoc", box("aaaa") + box("bbbb") + box("cccc")) + box("dddd"));
  const auto destroy = [&](const char* type) {
    Box* const box = document.record(document.find(type));
    EXPECT_EQ(raised(document.env(), [&] { box->box_destroy(box, document.env()); }), 0);
    return document.tree();
  };
  EXPECT_EQ(destroy("bbbb"), "asoc(aaaa,cccc),dddd");
  EXPECT_EQ(destroy("aaaa"), "asoc(cccc),dddd");
  EXPECT_EQ(document.record(document.find("cccc"))->previous, nullptr);
  EXPECT_EQ(destroy("cccc"), "asoc(),dddd");
  EXPECT_EQ(destroy("asoc"), "dddd");
}

TEST(Search, FindsByTypeInTheOrderOfIdentifiers) {
  TestDocument document(box("lbl ") + box("asoc", box("lbl ") + box("asoc", box("lbl "))) +
                        box("lbl "));
  document.add("none", document.find("asoc"));
  const uint32_t late = document.add("asoc", document.find("asoc"));  // 7, in front of 3
  const auto next = [&](const char* type, uint32_t after) {
    const Box* const found =
        document.get()->root->find_by_type(document.get()->root, type_code(type), after);
    return found == nullptr ? kRoot : found->id;
  };
  EXPECT_EQ(next("lbl ", 0), 2u) << "identifier 0 is greater than none";
  EXPECT_EQ(next("lbl ", 2), 4u);
  EXPECT_EQ(next("lbl ", 4), 5u);
  EXPECT_EQ(next("lbl ", 5), kRoot);
  EXPECT_EQ(next("asoc", 0), 1u);
  EXPECT_EQ(next("asoc", 1), 3u);
  EXPECT_EQ(next("asoc", 3), late);
  EXPECT_EQ(next("asoc", kRoot), kRoot);
}

TEST(Search, CountsUnderSuperBoxesOnly) {
  TestDocument document(box("lbl ") + box("asoc", box("lbl ") + box("asoc", box("lbl "))) +
                        box("free", box("lbl ")) + box("lbl "));
  EXPECT_EQ(jpx_count_boxes_of_type(document.get()->root, code("lbl ")), 4u);
  EXPECT_EQ(jpx_count_boxes_of_type(document.get()->root, code("asoc")), 2u);
  EXPECT_EQ(jpx_count_boxes_of_type(document.record(document.find("asoc")), code("lbl ")), 3u)
      << "from a box on, its siblings count";
  EXPECT_EQ(jpx_count_boxes_of_type(nullptr, code("lbl ")), 0u);
}

TEST(Uuids, AreReadWrittenAndPrinted) {
  TestContext context;
  uint8_t uuid[16];
  const std::string digits = pattern(16);
  uint8_t* bytes = nullptr;
  ASSERT_EQ(raised(context.env(),
                   [&] {
                     Environment* const env = context.env();
                     jpx_read_uuid(env, bs_reader_from_buffer(env, digits.data(), 16), uuid);
                     Stream* const writer = bs_writer_to_buffer(env, nullptr, 0);
                     jpx_render_uuid(env, writer, uuid);
                     uint64_t length = 0;
                     bytes = bs_writer_get_buffer(env, writer, &length);
                   }),
            0);
  EXPECT_EQ(memcmp(uuid, digits.data(), 16), 0);
  EXPECT_EQ(memcmp(bytes, digits.data(), 16), 0);
  EXPECT_EQ(captured_stdout([&] {
              jpx_print_atom(code("res "));
              jpx_print_uuid(uuid);
            }),
            "res  00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f");
}

// The payload of a basic box lies in the input until the box is given its own.
TEST(BasicBox, ReadsItsPayloadAgainAndAgain) {
  TestDocument document(box("xml ", "first") + open_ended_box("jp2c", "to the end"));
  const uint32_t xml = document.find("xml ");
  const uint32_t stream = document.find("jp2c");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(document.content(stream), "to the end");
    EXPECT_EQ(document.field_bytes(xml, JPX_FIELD_JP2C_DATA), "first");
    EXPECT_EQ(document.content(xml), "first");
  }
  // Only the product of count and element size matters.
  EXPECT_EQ(document.set_bytes(xml, JPX_FIELD_JP2C_DATA, "3 times four", 4), JPX_OK);
  EXPECT_EQ(document.count(xml, JPX_FIELD_JP2C_DATA), std::make_pair(uint64_t{12}, 1u));
  EXPECT_EQ(document.set_bytes(xml, JPX_FIELD_JP2C_DATA, "replaced"), JPX_OK);
  EXPECT_EQ(document.field_bytes(xml, JPX_FIELD_JP2C_DATA), "replaced");
  EXPECT_EQ(document.written(), box("xml ", "replaced") + box("jp2c", "to the end"));
}

TEST(BasicBox, OffersItsOperationsToItsOwnKindOnly) {
  TestDocument document(box("xml ", "data"));
  Box* const box = document.record(0);
  box->kind = kParsed;
  uint64_t count = 0;
  void* buffer = nullptr;
  EXPECT_EQ(box->length(box), 0u);
  EXPECT_EQ(document.content(0), "");
  EXPECT_EQ(document.printed(0), "");
  EXPECT_EQ(box->get_field_count(box, JPX_FIELD_JP2C_DATA, &count, nullptr), 4);
  EXPECT_EQ(box->set_buffer_field(box, document.env(), JPX_FIELD_JP2C_DATA, 1, 1, "x"), 4);
  EXPECT_EQ(
      box->get_buffer_field(box, document.env(), JPX_FIELD_JP2C_DATA, nullptr, nullptr, &buffer),
      4);
  box->kind = kBasic;
}

TEST(BasicBox, MadeEmptyHasNoSource) {
  TestDocument document;
  document.load("");
  const uint32_t id = document.add("xml ", KV_JPX_ROOT);
  void* data = nullptr;
  uint64_t length = 1;
  EXPECT_EQ(document.count(id, JPX_FIELD_JP2C_DATA), std::make_pair(uint64_t{0}, 1u));
  EXPECT_EQ(document.field_bytes(id, JPX_FIELD_JP2C_DATA), "");
  EXPECT_EQ(kv_jpx_get_box_buffer(document.get(), id, &length, &data), JPX_ERR_NO_SUCH_FIELD);
  EXPECT_EQ(document.written(), box("xml "));
}

}  // namespace
}  // namespace kvjpx::test
