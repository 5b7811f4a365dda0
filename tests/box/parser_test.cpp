// The parser: header forms, nesting, identifiers, boxes that stand where they may not, and files
// that lie about their lengths and counts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "box/test_document.h"
#include "boxes/box_types.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

const std::string kUuid = pattern(16);

int32_t load_code(const std::string& file) { return TestContext().load(file); }

std::string nested(std::string_view type, int depth, const std::string& innermost = {},
                   const std::string& fixed_part = {}) {
  std::string result = innermost;
  for (; depth > 0; --depth) result = box(type, fixed_part + result);
  return result;
}

TEST(Parser, TakesEveryHeaderForm) {
  EXPECT_EQ(TestDocument("").tree(), "");
  TestDocument document(xl_box("aaaa", "8 bytes!") +
                        box("asoc", xl_box("bbbb") + box("cccc", "c")) +
                        open_ended_box("dddd", "rest"));
  EXPECT_EQ(document.tree(), "aaaa,asoc(bbbb,cccc),dddd");
  EXPECT_EQ(document.field_bytes(0, JPX_FIELD_JP2C_DATA), "8 bytes!");
  EXPECT_EQ(
      document.written(),
      box("aaaa", "8 bytes!") + box("asoc", box("bbbb") + box("cccc", "c")) + box("dddd", "rest"));
  EXPECT_EQ(TestDocument(open_ended_box("jp2h", image_header_box())).tree(), "jp2h(ihdr)");
}

TEST(Parser, TakesALengthBelowItsHeaderForAnEmptyBox) {
  for (uint32_t length = 2; length < 8; ++length) {
    TestDocument document(be32(length) + "aaaa" + box("bbbb"));
    EXPECT_EQ(document.tree(), "aaaa,bbbb") << length;
    EXPECT_EQ(document.written(), box("aaaa") + box("bbbb"));
  }
  for (const uint64_t length : {0, 1, 8, 15, 16}) {
    EXPECT_EQ(TestDocument(be32(1) + "aaaa" + be64(length) + box("bbbb")).tree(), "aaaa,bbbb")
        << length;
  }
}

TEST(Parser, NumbersBoxesFromZeroDepthFirst) {
  TestDocument document(box("jP  ", be32(0x0D0A870A)) + box("asoc", box("aaaa") + box("bbbb")) +
                        box("cccc"));
  const char* const types[] = {"jP  ", "asoc", "aaaa", "bbbb", "cccc"};
  for (uint32_t id = 0; id < 5; ++id) EXPECT_EQ(document.find(types[id]), id);
  EXPECT_EQ(document.record(kRoot)->type, kRoot);
  EXPECT_EQ(document.record(kRoot)->kind, kSuper);
  EXPECT_EQ(document.add("dddd", 4, kPlaceAfter), 5u);
  EXPECT_EQ(document.load(box("aaaa")), JPX_OK);
  EXPECT_EQ(document.find("aaaa"), 0u) << "a new input starts anew";
}

TEST(Parser, RaisesForBoxesThatReachTooFar) {
  const std::string cases[] = {
      box("asoc", be32(9) + "lbl "),                          // past its container
      box("asoc", be32(9) + "lbl ") + box("lbl "),            // though not past the file
      box("asoc", be32(0) + "lbl ") + box("lbl "),            // to the file's end, likewise
      box("asoc", std::string(7, 'x')),                       // no room for a header
      box("asoc", be32(1) + "lbl " + be32(0)) + box("lbl "),  // no room for the XLBox
      be32(1) + "lbl " + be64(17),                            //
      be32(1) + "lbl " + be64(~uint64_t{0}),                  // an end that wraps around
      be32(0xFFFFFFFF) + "xml ",                              //
      box("jp2h", be32(23) + image_header_box().substr(4)) + box("lbl "),
  };
  for (const std::string& file : cases) EXPECT_EQ(load_code(file), JPX_ERR_READ_PAST_END);
  EXPECT_EQ(TestDocument(box("asoc", open_ended_box("lbl ", "end"))).tree(), "asoc(lbl )");
}

// Where a file may end: between top-level boxes, and anywhere in a last box with LBox 0.
std::vector<bool> good_ends(const std::string& file) {
  std::vector<bool> result(file.size() + 1);
  const auto number = [&](size_t at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value = value << 8 | static_cast<uint8_t>(file[at + i]);
    return value;
  };
  for (size_t at = 0; at < file.size();) {
    result[at] = true;
    const uint64_t lbox = number(at, 4);
    if (lbox == 0) {
      for (at += 8; at < file.size(); ++at) result[at] = true;
    } else {
      at += lbox == 1 ? number(at + 8, 8) : lbox;
    }
  }
  result[file.size()] = true;
  return result;
}

TEST(Parser, RaisesForEveryTruncation) {
  for (const char* sample : {"rich.jpx", "long.jpx", "oneway.jpx"}) {
    const std::string file = file_contents(std::string("samples/") + sample);
    const std::vector<bool> is_good = good_ends(file);
    for (size_t length = 0; length <= file.size(); ++length) {
      ASSERT_EQ(load_code(file.substr(0, length)), is_good[length] ? JPX_OK : JPX_ERR_READ_PAST_END)
          << sample << " cut to " << length;
    }
  }
}

TEST(Parser, RaisesForTruncationOfFilesAsInMemory) {
  const std::string file = jp2_file() + xl_box("xml ", "<x/>");
  const std::vector<bool> is_good = good_ends(file);
  const size_t descriptors = open_descriptors();
  for (size_t length = 0; length <= file.size(); ++length) {
    const TempFile truncated(file.substr(0, length));
    const int32_t expected = is_good[length] ? JPX_OK : JPX_ERR_READ_PAST_END;
    EXPECT_EQ(kv_jpx_set_input_image_file(TestContext().get(), truncated.path()), expected);
    EXPECT_EQ(kv_jpx_set_input_image_mapped(TestContext().get(), truncated.path()), expected);
    EXPECT_EQ(mappings_of(truncated), 0u);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}

// A payload cut short inside a box that is whole: fields read as 0 or the load ends with 18.
TEST(Parser, TakesShortPayloadsOrRaises) {
  for (const TypeRule& rule : type_rules()) {
    for (size_t length = 0; length <= rule.payload.size(); ++length) {
      const std::string payload = rule.payload.substr(0, length);
      const std::string last = in_parents(rule.type, box(rule.type, payload));
      const int32_t at_end = load_code(last);
      EXPECT_TRUE(at_end == JPX_OK || at_end == JPX_ERR_READ_PAST_END ||
                  (at_end == JPX_ERR_BAD_SIGNATURE && rule.type == "jP  "))
          << rule.type << " cut to " << length << " gives " << at_end;
      // A short box means the same wherever it stands.
      EXPECT_EQ(load_code(last + box("free", pattern(64))), at_end) << rule.type << length;
    }
    EXPECT_EQ(load_code(in_parents(rule.type, box(rule.type, rule.payload))), JPX_OK) << rule.type;
  }
  BoxUnderTest header("ihdr", be32(3) + be16(7));
  EXPECT_EQ(header.value(JPX_FIELD_IHDR_HEIGHT), 3u);
  EXPECT_EQ(header.value(JPX_FIELD_IHDR_WIDTH), 0u);
}

TEST(Parser, SkipsWhatAReaderDoesNotTake) {
  const std::string trailing = box("lbl ", "never a box");
  for (const char* type :
       {"ihdr", "resc", "copt", "ulst", "roid", "flst", "cdef", "opct", "rreq"}) {
    const std::string payload = rule_of(type).payload;
    BoxUnderTest plain(type, payload);
    BoxUnderTest longer(type, payload + trailing);
    EXPECT_EQ(longer.tree(), plain.tree());
    EXPECT_EQ(longer.written(), plain.written());
  }
  // Less than an entry's worth behind the last entry.
  const std::pair<const char*, uint64_t> entry_sizes[] = {
      {"ftyp", 4}, {"nlst", 4}, {"cmap", 4}, {"creg", 6}, {"inst", 24}};
  for (const auto& [type, entry_size] : entry_sizes) {
    const std::string& payload = rule_of(type).payload;
    for (const uint64_t extra : {uint64_t{1}, entry_size - 1}) {
      EXPECT_EQ(BoxUnderTest(type, payload + std::string(extra, '\7')).content(),
                BoxUnderTest(type, payload).content());
    }
  }
  // A payload that no field of the box refers to.
  EXPECT_EQ(BoxUnderTest("colr", bytes({9, 1, 2}) + "unknown method").content(), bytes({9, 1, 2}));
  EXPECT_EQ(BoxUnderTest("inst", be16(0x40) + pattern(60)).content().size(), 8u);
}

TEST(Parser, BelievesNoCountThatThePayloadCannotHold) {
  const std::pair<const char*, std::string> cases[] = {
      {"cdef", be16(0xFFFF) + pattern(12)},
      {"ulst", be16(0xFFFF) + kUuid},
      {"ulst", be16(2) + kUuid + pattern(15)},
      {"roid", be8(255) + pattern(19)},
      {"flst", be16(0xFFFF) + pattern(14)},
      {"flst", be16(1) + pattern(13)},
      {"opct", bytes({2, 255}) + pattern(4)},
      {"pclr", bytes({0xFF, 0xFF, 1, 7}) + pattern(9)},
      {"pclr", bytes({0, 4, 255}) + pattern(255)},
      {"rreq", bytes({1, 0, 0}) + be16(0xFFFF) + pattern(9)},
      {"rreq", bytes({1, 0, 0}) + be16(0) + be16(0xFFFF) + pattern(30)},
      {"rreq", bytes({255, 0, 0}) + pattern(508) + be16(9) + pattern(40)},
      {"bpcc", pattern(256)},
      {"bpcc", pattern(4000)},
      {"colr", bytes({1, 0, 0}) + be32(16) + "p"},
      {"colr", bytes({1, 0, 0}) + be32(14) + pattern(28)},
      {"colr", bytes({1, 0, 0}) + be16(16)},
  };
  for (const auto& [type, payload] : cases) {
    TestContext context;
    const std::string file = in_parents(type, box(type, payload));
    // Nothing above the copy of the file may be asked for; a refused block would give 1.
    context.allocator().set_largest_block(file.size() < 1000 ? 1000 : file.size() + 32);
    EXPECT_EQ(context.load(file), JPX_ERR_READ_PAST_END) << type;
  }
  EXPECT_EQ(BoxUnderTest("bpcc", pattern(255)).content(), pattern(255));
  EXPECT_EQ(BoxUnderTest("colr", bytes({1, 0, 0}) + be32(16)).content_length(), 7u);
  EXPECT_EQ(BoxUnderTest("colr", bytes({1, 5, 6})).content(), bytes({1, 5, 6}) + be32(0));
}

// ftbl is a container that none of the typed boxes may stand in.
TEST(Parser, EndsAContainerAtARefusedBox) {
  for (const char* type :
       {"jP  ", "ftyp", "ihdr", "bpcc", "colr", "resc", "resd", "nlst", "ulst", "roid", "uuid"}) {
    const std::string refused = box(type, rule_of(type).payload);
    TestDocument document(
        box("drep", box("ftbl", box("lbl ", "a") + refused + box("free", "b")) + box("mdat")) +
        box("xml "));
    EXPECT_EQ(document.tree(), "drep(ftbl(lbl ),free,mdat),xml ") << type;
  }
  TestDocument at_top(box("lbl ") + image_header_box() + box("xml "));
  EXPECT_EQ(at_top.tree(), "lbl ");
  const std::string wrong_signature = box("jP  ", be32(0x0D0A870B));
  EXPECT_EQ(load_code(wrong_signature), JPX_ERR_BAD_SIGNATURE);
  EXPECT_EQ(load_code(box("jp2h", wrong_signature)), JPX_ERR_BAD_SIGNATURE);
}

TEST(Parser, KeepsOtherMisplacedBoxesAsOpaqueBytes) {
  for (const char* type :
       {"pclr", "cmap", "cdef", "opct", "rreq", "creg", "copt", "inst", "flst", "url ", "cref"}) {
    const std::string payload = rule_of(type).payload + "and more";
    const std::string file =
        box("ftbl", box("lbl ") + box(type, payload) + box("free")) + box("xml ");
    TestDocument document(file);
    EXPECT_EQ(document.tree(), "ftbl(lbl ," + std::string(type) + ",free),xml ");
    EXPECT_EQ(document.field_bytes(document.find(type), JPX_FIELD_JP2C_DATA), payload);
    EXPECT_EQ(document.written(), file);
  }
  // Containers and opaque boxes are read wherever they stand.
  const std::string file = box("asoc", box("jp2h", image_header_box()) + box("jp2c") + box("comp"));
  EXPECT_EQ(TestDocument(file).tree(), "asoc(jp2h(ihdr),jp2c,comp())");
}

TEST(Parser, LimitsTheDepthOfContainers) {
  EXPECT_EQ(load_code(nested("asoc", 256, box("lbl "))), JPX_OK);
  EXPECT_EQ(load_code(nested("dtbl", 256, "", be16(0))), JPX_OK);
  for (const std::string& file : {nested("asoc", 257), nested("dtbl", 257, "", be16(0)),
                                  nested("asoc", 256, box("cref", "colr")), nested("asoc", 2000)}) {
    EXPECT_EQ(load_code(file), JPX_ERR_INVALID_ARGUMENT);
  }

  TestDocument deepest(nested("asoc", 256));
  EXPECT_EQ(kv_jpx_add_box(deepest.get(), code("asoc"), 255, kPlaceFirst, nullptr),
            JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(deepest.add("nlst", 255), 256u);
  EXPECT_EQ(deepest.add("asoc", 255, kPlaceAfter), 257u);
  EXPECT_NE(deepest.printed(KV_JPX_ROOT).find("nlst box length 8\n"), std::string::npos);
}

}  // namespace
}  // namespace kvjpx::test
