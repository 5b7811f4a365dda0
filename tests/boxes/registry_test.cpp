// What every box type and every field promises: where a box may be made, what kind it is, that it
// survives any payload and is written as long as it says; which keys and indices fields answer to.

#include <unistd.h>

#include <algorithm>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

TEST(BoxTypes, AreMadeInTheirParentsAndNowhereElse) {
  const std::string containers =
      box("jp2h", box("res ")) + box("jpch") + box("jplh", box("cgrp") + box("cref", "colr")) +
      box("comp") + box("ftbl") + box("dtbl", be16(0)) + box("drep") + box("asoc") + box("uinf");
  for (const TypeRule& rule : type_rules()) {
    TestDocument document(containers);
    uint32_t next_id = 12;
    const auto try_in = [&](uint32_t reference, const std::string& parent, int32_t placement) {
      uint32_t id = KV_JPX_ROOT;
      const bool is_allowed =
          std::any_of(rule.parents.begin(), rule.parents.end(),
                      [&](const std::string& each) { return each == parent || each == kAnywhere; });
      ASSERT_EQ(kv_jpx_add_box(document.get(), type_code(rule.type), reference, placement, &id),
                is_allowed ? JPX_OK : JPX_ERR_CANNOT_MAKE_BOX)
          << rule.type << " in '" << parent << "'";
      ASSERT_EQ(id, is_allowed ? next_id++ : KV_JPX_ROOT) << "refusals use up no identifier";
    };
    for (uint32_t id = 0; id < 12; ++id) {
      try_in(id, be32(document.record(id)->type), kPlaceFirst);
    }
    try_in(KV_JPX_ROOT, kInRoot, kPlaceFirst);
    try_in(document.find("uinf"), kInRoot, kPlaceAfter);
  }
}

void expect_consistent(BoxUnderTest& box, const TypeRule& rule) {
  EXPECT_EQ(box.record(box.id)->kind, rule.kind) << rule.type;
  EXPECT_EQ(box.content().size(), box.content_length()) << rule.type;
  EXPECT_FALSE(box.printed().empty()) << rule.type;
}

TEST(BoxTypes, AreWrittenAsLongAsTheySay) {
  for (const TypeRule& rule : type_rules()) {
    const bool is_shortened = rule.type == "cref" || rule.type == "dtbl";  // by its fixed part
    BoxUnderTest read(rule.type, rule.payload);
    expect_consistent(read, rule);
    EXPECT_EQ(read.content(), is_shortened ? "" : rule.payload) << rule.type;
    BoxUnderTest made(rule.type);
    expect_consistent(made, rule);
    if (is_shortened) continue;
    EXPECT_EQ(TestDocument(made.written()).tree(), made.tree());
  }
}

// Payloads cut short inside a box that is whole, and counts of a byte without what they count.
TEST(BoxTypes, SurviveShortPayloads) {
  for (const TypeRule& rule : type_rules()) {
    std::vector<std::string> payloads;
    for (const unsigned byte : {1, 2, 4, 255}) payloads.push_back(be8(byte));
    for (size_t i = 0; i < rule.payload.size(); ++i) payloads.push_back(rule.payload.substr(0, i));
    for (const std::string& payload : payloads) {
      const std::string file = in_parents(rule.type, box(rule.type, payload));
      const int32_t code = TestContext().load(file);
      EXPECT_EQ(TestContext().load(file + box("free", pattern(64))), code) << rule.type;
      if (code == JPX_OK && rule.type == "pclr") continue;  // its length is another matter
      if (code == JPX_OK) {
        BoxUnderTest box(rule.type, payload);
        expect_consistent(box, rule);
        EXPECT_EQ(TestDocument(box.written()).tree(), box.tree()) << rule.type;
      } else {
        EXPECT_EQ(code, rule.type == "jP  " ? JPX_ERR_BAD_SIGNATURE : JPX_ERR_READ_PAST_END);
      }
    }
  }
  BoxUnderTest header("ihdr", be32(3) + be16(7));
  EXPECT_EQ(header.value(header.id, JPX_FIELD_IHDR_HEIGHT), 3u);
  EXPECT_EQ(header.value(header.id, JPX_FIELD_IHDR_WIDTH), 0u);
}

// Every operation asks for its own type first, that of an opaque box for its kind, so that a box
// that was relabelled gets nothing wrong out of it.
TEST(BoxTypes, OfferNothingUnderAForeignType) {
  for (const TypeRule& rule : type_rules()) {
    if (rule.kind == kSuper) continue;
    SCOPED_TRACE(rule.type);
    BoxUnderTest under_test(rule.type, rule.payload);
    Environment* const env = under_test.env();
    Box* const box = under_test.record(under_test.id);
    const Box original = *box;
    box->type = code("zzzz");
    box->kind = kParsed;
    EXPECT_EQ(box->length(box), 0u);
    EXPECT_EQ(under_test.content(), "");
    EXPECT_EQ(under_test.printed(), "");
    kv_jpx_field_info info = {};
    for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
      uint64_t number;
      void* buffer = nullptr;
      EXPECT_EQ(box->get_int_field(box, info.key, 0, &number), 4);
      EXPECT_EQ(box->set_int_field(box, env, info.key, 0, 1), 4);
      EXPECT_EQ(box->get_field_count(box, info.key, nullptr, nullptr), 4);
      EXPECT_EQ(box->set_buffer_field(box, env, info.key, 1, 1, "x"), 4);
      EXPECT_EQ(box->get_buffer_field(box, env, info.key, nullptr, nullptr, &buffer), 4);
    }
    *box = original;
  }
}

TEST(IntegerFields, AnswerToTheirKeyAndIndexOnly) {
  kv_jpx_field_info info = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    const std::string type = info.box_type == 0 ? "none" : be32(info.box_type);
    SCOPED_TRACE(type + '.' + info.name);
    BoxUnderTest box = type == "cref" ? BoxUnderTest(type)  // a read one has no field
                                      : BoxUnderTest(type, rule_of(type).payload);
    EXPECT_EQ(box.get_code(box.id, 0x12345678), 4);
    EXPECT_EQ(box.set(box.id, 0x12345678, 1), 4);
    EXPECT_EQ(kv_jpx_get_box_field_count(box.get(), box.id, 0x12345678, nullptr, nullptr), 4);
    EXPECT_EQ(box.set_bytes(box.id, 0x12345678, "x"), 4);
    void* data = nullptr;
    EXPECT_EQ(kv_jpx_get_box_field_buffer(box.get(), box.id, 0x12345678, nullptr, nullptr, &data),
              4);
    uint32_t width = 0;
    const int32_t code = kv_jpx_get_box_field_count(box.get(), box.id, info.key, nullptr, &width);
    EXPECT_TRUE(code == JPX_OK ? width == info.width : type == "colr");  // of another method
    if (info.access != KV_JPX_FIELD_INTEGER) continue;
    // The index is judged before the value.
    for (const uint64_t value : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
      EXPECT_EQ(box.set(box.id, info.key, value, 1), 4);
    }
    EXPECT_EQ(box.get_code(box.id, info.key, 1), 4);
    EXPECT_EQ(box.get_code(box.id, info.key, uint64_t{1} << 32), 4);
  }
}

// Print-outs, byte for byte: a whole file, and the variants of single boxes that it does not show.
TEST(PrintOut, OfARichFileIsTheGoldenOne) {
  TestContext context;
  ASSERT_EQ(kv_jpx_set_input_image_mapped(context.get(), "samples/rich.jpx"), JPX_OK);
  const auto print = [&] {
    kv_jpx_print_box(context.get(), KV_JPX_ROOT);
    EXPECT_GT(lseek(1, 0, SEEK_CUR), 0) << "it is flushed";
  };
  EXPECT_EQ(captured_stdout(print), file_contents("tests/golden/rich.txt"));
}

// Each print-out in the golden file ends with a line of a dot, on its own even where the library
// ends none.
TEST(PrintOut, OfVariantsAreTheGoldenOnes) {
  std::pair<std::string, std::string> variants[] = {
      {"ihdr", bytes({0x87, 0, 0, 0})},
      {"ihdr", bytes({0x87, 5, 0, 0})},
      {"ihdr", bytes({0x87, 9, 0, 0})},
      {"ihdr", bytes({254, 255, 2, 9})},
      {"ihdr", bytes({127, 10, 0, 0})},
      {"bpcc", bytes({7, 255, 135})},
      {"colr", bytes({5, 0, 0, 1})},
      {"rreq", bytes({0, 0, 1, 0, 9, 0, 1}) + pattern(16)},
      {"opct", bytes({0})},
      {"opct", bytes({3})},
      {"opct", bytes({2, 0})},
      {"copt", be32(1) + be32(2) + be8(255)},
      {"inst", be16(0) + be16(1) + be32(2)},
      {"inst", be16(0x40) + be16(1) + be32(2)},
      {"inst", be16(0x0A) + be16(1) + be32(2) + be32(7) + be32(8) + be32(5) + be32(6)},
      {"flst", be16(0)},
      {"roid", bytes({1, 2, 9, 255}) + be32(0xFFFFFFFF) + be32(0) + be32(0) + be32(0)},
      {"url ", be32(0x01FF0002) + "x"},
  };
  std::string all;
  for (auto& [type, payload] : variants) {
    if (type == "ihdr") payload.insert(0, be32(1) + be32(2) + be16(3));
    all += BoxUnderTest(type, payload).printed() + "\n.\n";
  }
  for (uint32_t space = 0; space <= 25; ++space) {
    all += BoxUnderTest("colr", enumerated(space)).printed();
  }
  BoxUnderTest reference("cref");
  reference.set(reference.id, JPX_FIELD_CREF_RTYP, type_code("jp2c"));
  all += reference.printed() + BoxUnderTest("dtbl").printed() + BoxUnderTest("none").printed();
  EXPECT_EQ(all, file_contents("tests/golden/variants.txt"));
}

TEST(Rewriting, KeepsAFileOfExactBoxesByteForByte) {
  const std::string file = file_contents("samples/exact.jpx");
  EXPECT_FALSE(file.empty());
  EXPECT_EQ(TestDocument(file).written(), file);
}

}  // namespace
}  // namespace kvjpx::test
