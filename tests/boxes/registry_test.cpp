// What every box type promises: where it may be made, what kind it is, and that it survives any
// payload and is written as long as it says.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "boxes/box_types.h"

namespace kvjpx::test {
namespace {

// One box of every type that something may be made in, and a root to stand next to.
const char* const kContainers[] = {"jp2h", "res ", "jpch", "jplh", "cgrp", "comp",
                                   "ftbl", "cref", "dtbl", "drep", "asoc", "uinf"};

bool may_be_made(const TypeRule& rule, const std::string& parent) {
  for (const std::string& allowed : rule.parents) {
    if (allowed == parent || allowed == kAnywhere) return true;
  }
  return false;
}

std::string file_with_all_containers() {
  return box("jp2h", box("res ")) + box("jpch") + box("jplh", box("cgrp") + box("cref", "colr")) +
         box("comp") + box("ftbl") + box("dtbl", be16(0)) + box("drep") + box("asoc") + box("uinf");
}

TEST(BoxTypes, AreMadeInTheirParentsAndNowhereElse) {
  for (const TypeRule& rule : type_rules()) {
    TestDocument document(file_with_all_containers());
    uint32_t next_id = 12;
    const auto try_in = [&](uint32_t parent, const std::string& parent_type, int32_t placement) {
      uint32_t id = KV_JPX_ROOT;
      const bool is_allowed = may_be_made(rule, parent_type);
      ASSERT_EQ(kv_jpx_add_box(document.get(), type_code(rule.type), parent, placement, &id),
                is_allowed ? JPX_OK : JPX_ERR_CANNOT_MAKE_BOX)
          << rule.type << " in '" << parent_type << "'";
      ASSERT_EQ(id, is_allowed ? next_id++ : KV_JPX_ROOT) << "refusals use up no identifier";
      if (!is_allowed) return;
      const Box* const box = document.record(id);
      EXPECT_EQ(box->kind, rule.kind) << rule.type;
      EXPECT_EQ(box->type, type_code(rule.type));
    };
    for (const char* container : kContainers) {
      try_in(document.find(container), container, kPlaceFirst);
    }
    try_in(KV_JPX_ROOT, kInRoot, kPlaceFirst);
    try_in(document.find("uinf"), kInRoot, kPlaceAfter);
  }
}

TEST(BoxTypes, AreReadAsTheirKind) {
  for (const TypeRule& rule : type_rules()) {
    BoxUnderTest box(rule.type, rule.payload);
    EXPECT_EQ(box.record(box.id)->kind, rule.kind) << rule.type;
  }
}

TEST(BoxTypes, SurviveEmptyAndOneBytePayloads) {
  for (const TypeRule& rule : type_rules()) {
    std::vector<std::string> payloads = {""};
    for (const unsigned byte : {0, 1, 2, 3, 4, 8, 127, 255}) payloads.push_back(be8(byte));
    for (const std::string& payload : payloads) {
      const std::string file = in_parents(rule.type, box(rule.type, payload));
      TestDocument document;
      const int32_t code = document.load(file);
      const bool counts_in_a_byte = rule.type == "roid" || rule.type == "pclr";
      if (rule.type == "jP  ") {
        EXPECT_EQ(code, JPX_ERR_BAD_SIGNATURE);
      } else if (code != JPX_OK) {
        EXPECT_EQ(code, JPX_ERR_READ_PAST_END) << rule.type;
        EXPECT_TRUE(!payload.empty() && (rule.kind == kSuper || counts_in_a_byte)) << rule.type;
      } else {
        const uint32_t id = document.find(rule.type);
        EXPECT_EQ(document.content(id).size(), document.content_length(id)) << rule.type;
        EXPECT_FALSE(document.printed(id).empty()) << rule.type;
        EXPECT_EQ(TestDocument(document.written()).tree(), document.tree()) << rule.type;
      }
    }
  }
}

TEST(BoxTypes, AreWrittenAsLongAsTheySay) {
  const std::set<std::string> shortened = {"cref", "dtbl"};  // read without their fixed part
  for (const TypeRule& rule : type_rules()) {
    BoxUnderTest box(rule.type, rule.payload);
    EXPECT_EQ(box.content().size(), box.content_length()) << rule.type;
    EXPECT_EQ(box.content(), shortened.count(rule.type) != 0 ? "" : rule.payload) << rule.type;
  }
}

TEST(BoxTypes, AreWrittenAsLongAsTheySayWhenMade) {
  for (const TypeRule& rule : type_rules()) {
    BoxUnderTest box(rule.type);
    EXPECT_EQ(box.content().size(), box.content_length()) << rule.type;
    EXPECT_FALSE(box.printed().empty()) << rule.type;
    if (rule.type == "cref" || rule.type == "dtbl") continue;  // written with a fixed part
    EXPECT_EQ(TestDocument(box.written()).tree(), box.tree()) << rule.type;
  }
}

// Every operation of a typed box asks for its own type first, so that a host that relabels a box
// gets nothing wrong out of it.
TEST(BoxTypes, OfferNothingUnderAForeignType) {
  for (const TypeRule& rule : type_rules()) {
    if (rule.kind != kParsed) continue;
    BoxUnderTest under_test(rule.type, rule.payload);
    Box* const box = under_test.record(under_test.id);
    box->type = code("zzzz");
    EXPECT_EQ(box->length(box), 0u) << rule.type;
    EXPECT_EQ(under_test.content(), "") << rule.type;
    EXPECT_EQ(under_test.printed(), "") << rule.type;
    kv_jpx_field_info info;
    for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
      uint64_t number;
      void* buffer = nullptr;
      EXPECT_EQ(box->get_int_field(box, info.key, 0, &number), 4);
      EXPECT_EQ(box->set_int_field(box, under_test.env(), info.key, 0, 1), 4);
      EXPECT_EQ(box->get_field_count(box, info.key, nullptr, nullptr), 4);
      EXPECT_EQ(box->set_buffer_field(box, under_test.env(), info.key, 1, 1, "x"), 4);
      EXPECT_EQ(box->get_buffer_field(box, under_test.env(), info.key, nullptr, nullptr, &buffer),
                4);
    }
    box->type = type_code(rule.type);
  }
}

TEST(FieldTable, DescribesTheFieldsOfEveryType) {
  kv_jpx_field_info info;
  std::set<std::pair<uint32_t, uint32_t>> seen;
  std::set<std::pair<uint32_t, std::string>> names;
  uint32_t count = 0;
  for (; kv_jpx_get_field_info(count, &info) == JPX_OK; ++count) {
    EXPECT_TRUE(seen.insert({info.box_type, info.key}).second) << info.name;
    EXPECT_TRUE(names.insert({info.box_type, info.name}).second) << info.name;
    const std::string type = info.box_type == 0 ? "none" : be32(info.box_type);
    const bool is_added = type == "cref";
    BoxUnderTest box = is_added ? BoxUnderTest(type) : BoxUnderTest(type, rule_of(type).payload);
    const bool is_other_colour_method =
        type == "colr" && info.access != KV_JPX_FIELD_INTEGER && info.key != JPX_FIELD_COLR_ICC;
    const bool is_colour_parameter = type == "colr" && info.width == 4;
    if (is_other_colour_method || is_colour_parameter) continue;
    EXPECT_EQ(box.TestDocument::count(box.id, info.key).second, info.width) << type << info.name;
    if ((info.access & KV_JPX_FIELD_INTEGER) != 0) {
      EXPECT_EQ(box.get_code(info.key), JPX_OK) << type << '.' << info.name;
    }
    if ((info.access & KV_JPX_FIELD_BYTES) != 0) {
      EXPECT_FALSE(box.field_bytes(info.key).empty()) << type << '.' << info.name;
    }
    const bool has_two = (info.access & KV_JPX_FIELD_REPEATS) != 0 &&
                         info.key != JPX_FIELD_PCLR_C && info.key != JPX_FIELD_FTYP_CL &&
                         info.key != JPX_FIELD_RREQ_VM && info.key != JPX_FIELD_RREQ_VF;
    EXPECT_EQ(!has_two || box.count(info.key) == 2, true) << type << '.' << info.name;
  }
  EXPECT_EQ(kv_jpx_get_field_info(count + 1, &info), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_jpx_get_field_info(0, nullptr), JPX_ERR_INVALID_ARGUMENT);
  for (const TypeRule& rule : type_rules()) {
    if (rule.kind != kParsed || rule.type == "jP  ") continue;
    const uint32_t type = type_code(rule.type);
    EXPECT_EQ(names.lower_bound({type, ""})->first, type) << rule.type;
  }
}

}  // namespace
}  // namespace kvjpx::test
