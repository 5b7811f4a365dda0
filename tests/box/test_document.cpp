// Loaded files under test (see test_document.h).
#include "box/test_document.h"

#include "box/super.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

std::string tree_below(const Box* parent) {
  std::string result;
  const Box* child = static_cast<const SuperBox*>(parent)->first_child;
  for (; child != nullptr; child = child->next) {
    if (!result.empty()) result += ',';
    result += be32(child->type);
    if (child->kind == kSuper) result += '(' + tree_below(child) + ')';
  }
  return result;
}

std::string first_parent(std::string_view type) {
  const std::string& parent = rule_of(type).parents[0];
  return parent == kAnywhere ? kInRoot : parent;
}

}  // namespace

std::string TestDocument::tree() { return tree_below(get()->root); }

uint32_t TestDocument::find(std::string_view type) {
  Box* const root = get()->root;
  Box* box = root->find_by_id(root, 0);
  if (box == nullptr || box->type != type_code(type)) {
    box = root->find_by_type(root, type_code(type), 0);  // never the one with identifier 0
  }
  return box != nullptr ? box->id : KV_JPX_ROOT;
}

uint32_t TestDocument::add(std::string_view type, uint32_t reference, int32_t placement) {
  uint32_t id = KV_JPX_ROOT;
  EXPECT_EQ(kv_jpx_add_box(get(), type_code(type), reference, placement, &id), JPX_OK) << type;
  return id;
}

uint64_t TestDocument::value(uint32_t id, uint32_t key, uint64_t index) {
  uint64_t result = 0;
  EXPECT_EQ(kv_jpx_get_box_field_int(get(), id, key, index, &result), JPX_OK) << "index " << index;
  return result;
}

std::string TestDocument::take(void* block, uint64_t length) {
  if (block == nullptr) return {};
  std::string result(static_cast<char*>(block), length);
  EXPECT_EQ(kv_jpx_free(get(), block), JPX_OK);
  return result;
}

std::string TestDocument::field_bytes(uint32_t id, uint32_t key) {
  uint64_t count = 0;
  uint32_t element_size = 0;
  void* data = nullptr;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(get(), id, key, &count, &element_size, &data), JPX_OK);
  return take(data, count * element_size);
}

Box* TestDocument::record(uint32_t id) {
  Box* const box = get()->root->find_by_id(get()->root, id);
  EXPECT_NE(box, nullptr);
  return box;
}

std::string TestDocument::content(uint32_t id) {
  Box* const box = record(id);
  // Some boxes render more than their length says.
  std::string buffer(box->length(box) + 4096, '#');
  uint64_t length = 0;
  const auto render = [&] {
    Stream* const writer = bs_writer_to_buffer(env(), buffer.data(), buffer.size());
    box->render(box, env(), writer);
    bs_writer_get_buffer(env(), writer, &length);
    bs_destroy(env(), writer);
    JPX_SafeFreeInternal(env(), writer);
  };
  EXPECT_EQ(raised(env(), render), 0);
  return buffer.substr(0, length);
}

std::string TestDocument::printed(uint32_t id) {
  return captured_stdout([&] { EXPECT_EQ(kv_jpx_print_box(get(), id), JPX_OK); });
}

std::string TestDocument::written() {
  void* data = nullptr;
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(get(), &data, &length), JPX_OK);
  return take(data, length);
}

const std::vector<TypeRule>& type_rules() {
  const std::string uuid = pattern(16);
  const std::string resolution = be16(300) + be16(1) + be16(200) + be16(3) + bytes({2, 0xFD});
  const std::string instruction =
      be32(1) + be32(2) + be32(3) + be32(4) + be32(0x80000005) + be32(6);  // Ityp 0x0B
  const std::string region = bytes({1, 0, 9}) + be32(5) + be32(6) + be32(7) + be32(8);
  // clang-format off
  static const std::vector<TypeRule> rules = {
      {"jP  ", kParsed, {kInRoot}, be32(0x0D0A870A)},
      {"ftyp", kParsed, {kInRoot}, "jpx " + be32(1) + "jp2 abcdefgh"},
      {"rreq", kParsed, {kInRoot}, bytes({1, 0xF0, 0x80, 0, 2, 0, 2, 0x80, 0, 5, 0x40, 0, 2}) + uuid + be8(1) + uuid + be8(2)},
      {"jp2h", kSuper, {kInRoot}, ""},
      {"ihdr", kParsed, {"jp2h"}, be32(3) + be32(5) + be16(1) + bytes({7, 7, 0, 0})},
      {"bpcc", kParsed, {"jp2h"}, bytes({7, 0x85})},
      {"colr", kParsed, {"jp2h", "cgrp"}, bytes({2, 1, 1}) + "icc"},
      {"pclr", kParsed, {"jp2h"}, bytes({0, 2, 2, 7, 11, 1, 2, 3, 4, 5, 6})},
      {"cmap", kParsed, {"jp2h"}, bytes({0, 1, 1, 2, 0, 3, 0, 4})},
      {"cdef", kParsed, {"jp2h"}, be16(2) + be16(0) + be16(1) + be16(2) + be16(3) + be16(0) + be16(5)},
      {"res ", kSuper, {"jp2h"}, ""},
      {"resc", kParsed, {"res "}, resolution},
      {"resd", kParsed, {"res "}, resolution},
      {"jpch", kSuper, {kInRoot}, ""},
      {"jplh", kSuper, {kInRoot}, ""},
      {"cgrp", kSuper, {"jplh"}, ""},
      {"opct", kParsed, {"jplh"}, bytes({2, 2, 0x11, 0xF2})},
      {"creg", kParsed, {"jplh"}, be16(8) + be16(9) + bytes({0, 1, 2, 3, 4, 5, 0, 6, 7, 8, 1, 2})},
      {"comp", kSuper, {kInRoot}, ""},
      {"copt", kParsed, {"comp"}, be32(36) + be32(48) + be8(7)},
      {"inst", kParsed, {"comp"}, be16(0x0B) + be16(3) + be32(40) + instruction + instruction},
      {"jp2c", kBasic, {kInRoot}, "codestream"},
      {"jp2i", kBasic, {kInRoot}, "rights"},
      {"ftbl", kSuper, {kInRoot}, ""},
      {"flst", kParsed, {"comp"}, be16(2) + be64(77) + be32(5) + be16(1) + be64(99) + be32(6) + be16(2)},
      {"cref", kSuper, {"asoc", "jplh", "jpch"}, "colr"},
      {"dtbl", kSuper, {kAnywhere}, be16(0)},
      {"url ", kParsed, {"uinf", "dtbl"}, be32(0x00010203) + "http://x"},
      {"drep", kSuper, {kInRoot}, ""},
      {"asoc", kSuper, {kAnywhere}, ""},
      {"nlst", kParsed, {"asoc"}, be32(0x01000001) + be32(7)},
      {"roid", kParsed, {kInRoot, "asoc", "jpch", "jp2h"}, be8(2) + region + region},
      {"uuid", kBasic, {kInRoot}, uuid + "data"},
      {"uinf", kSuper, {kInRoot}, ""},
      {"ulst", kParsed, {"uinf"}, be16(2) + uuid + std::string(16, 'u')},
      {"lbl ", kBasic, {kInRoot}, "label"},
      {"xml ", kBasic, {kInRoot}, "<x/>"},
      {"mp7b", kBasic, {kInRoot}, "mpeg"},
      {"gtso", kBasic, {kInRoot}, "gts"},
      {"mdat", kBasic, {kInRoot}, "media"},
      {"free", kBasic, {kInRoot}, "nothing"},
      {"none", kBasic, {kAnywhere}, "of an unknown type"},
  };
  // clang-format on
  return rules;
}

const TypeRule& rule_of(std::string_view type) {
  for (const TypeRule& rule : type_rules()) {
    if (rule.type == type) return rule;
  }
  ADD_FAILURE() << "no rule for " << type;
  return type_rules().back();
}

std::string in_parents(std::string_view type, const std::string& inner) {
  const std::string parent = first_parent(type);
  return parent.empty() ? inner : in_parents(parent, box(parent, inner));
}

BoxUnderTest::BoxUnderTest(std::string_view type)
    : TestDocument(first_parent(type).empty()
                       ? std::string()
                       : in_parents(first_parent(type), box(first_parent(type)))),
      id(add(type, first_parent(type).empty() ? KV_JPX_ROOT : find(first_parent(type)))) {}

}  // namespace kvjpx::test
