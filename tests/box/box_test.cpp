// The parser: header forms, nesting, identifiers, boxes that stand where they may not, and files
// that lie about their lengths and counts. The box record and the links between boxes.
#include "box/basic.h"
#include "box/super.h"
#include "box/test_document.h"

namespace kvjpx::test {
namespace {

const std::string kUuid = pattern(16);

int32_t load_code(const std::string& file) { return TestContext().load(file); }

TEST(Parser, TakesEveryHeaderForm) {
  TestDocument document(box("asoc", xl_box("bbbb") + box("cccc", "c")) +
                        open_ended_box("dddd", "rest"));
  EXPECT_EQ(document.written(), box("asoc", box("bbbb") + box("cccc", "c")) + box("dddd", "rest"));
  // A length below that of the header stands for an empty box.
  const std::string long_form = be32(1) + "aaaa";
  for (const std::string& header : {be32(2) + "aaaa", be32(7) + "aaaa", long_form + be64(0),
                                    long_form + be64(15), long_form + be64(16)}) {
    EXPECT_EQ(TestDocument(header + box("bbbb")).written(), box("aaaa") + box("bbbb"));
  }
}

TEST(Parser, RaisesForBoxesThatReachTooFar) {
  const std::string cases[] = {
      box("asoc", be32(9) + "lbl ") + box("lbl "),            // though not past the file
      box("asoc", be32(0) + "lbl ") + box("lbl "),            // to the file's end, likewise
      box("asoc", std::string(7, 'x')),                       // no room for a header
      box("asoc", be32(1) + "lbl " + be32(0)) + box("lbl "),  // no room for the XLBox
      be32(1) + "lbl " + be64(~uint64_t{0}),                  // an end that wraps around
      be32(0xFFFFFFFF) + "xml ",                              //
      box("jp2h", be32(23) + image_header_box().substr(4)) + box("lbl "),
  };
  for (const std::string& file : cases) EXPECT_EQ(load_code(file), JPX_ERR_READ_PAST_END);
  EXPECT_EQ(TestDocument(box("asoc", open_ended_box("lbl ", "end"))).tree(), "asoc(lbl )");
}

TEST(Parser, SkipsWhatAReaderDoesNotTake) {
  for (const char* type :
       {"ihdr", "resc", "copt", "ulst", "roid", "flst", "cdef", "opct", "rreq"}) {
    const std::string& payload = rule_of(type).payload;
    BoxUnderTest longer(type, payload + box("lbl ", "never a box"));
    EXPECT_EQ(longer.written(), BoxUnderTest(type, payload).written());
  }
  // Less than an entry's worth behind the last entry.
  const std::pair<const char*, uint64_t> entry_sizes[] = {
      {"ftyp", 4}, {"nlst", 4}, {"cmap", 4}, {"creg", 6}, {"inst", 24}};
  for (const auto& [type, entry_size] : entry_sizes) {
    const std::string& payload = rule_of(type).payload;
    EXPECT_EQ(BoxUnderTest(type, payload + std::string(entry_size - 1, '\7')).content(), payload);
  }
  // A payload that no field of the box refers to.
  EXPECT_EQ(BoxUnderTest("colr", bytes({9, 1, 2}) + "unknown method").content(), bytes({9, 1, 2}));
  EXPECT_EQ(BoxUnderTest("inst", be16(0x40) + pattern(60)).content().size(), 8u);
}

// Announced sizes that are wrong by little; for what is not allocated for them see bounds_test.cpp.
TEST(Parser, BelievesNoCountThatThePayloadCannotHold) {
  const std::pair<const char*, std::string> cases[] = {
      {"cdef", be16(3) + pattern(12)},
      {"ulst", be16(2) + kUuid + pattern(15)},
      {"roid", be8(2) + pattern(19)},
      {"flst", be16(1) + pattern(13)},
      {"opct", bytes({2, 5}) + pattern(4)},
      {"pclr", bytes({0, 5, 2, 7, 7}) + pattern(9)},
      {"pclr", bytes({0, 4, 255}) + pattern(255)},
      {"rreq", bytes({1, 0, 0, 0, 4}) + pattern(9)},
      {"rreq", bytes({1, 0, 0, 0, 0, 0, 2}) + pattern(30)},
      {"bpcc", pattern(256)},
      {"colr", enumerated(16) + "p"},
      {"colr", enumerated(14) + pattern(28)},
      {"colr", enumerated(16).substr(0, 5)},
  };
  for (const auto& [type, payload] : cases) {
    EXPECT_EQ(load_code(in_parents(type, box(type, payload))), JPX_ERR_READ_PAST_END) << type;
  }
  EXPECT_EQ(BoxUnderTest("bpcc", pattern(255)).content(), pattern(255));
  EXPECT_EQ(BoxUnderTest("colr", bytes({1, 5, 6})).content(), bytes({1, 5, 6}) + be32(0));
}

// ftbl is a container that none of the typed boxes may stand in.
TEST(Parser, EndsAContainerAtARefusedBox) {
  for (const char* type :
       {"jP  ", "ftyp", "ihdr", "bpcc", "colr", "resc", "resd", "nlst", "ulst", "roid", "uuid"}) {
    const std::string inner = box("lbl ") + box(type, rule_of(type).payload) + box("free");
    TestDocument document(box("drep", box("ftbl", inner) + box("mdat")) + box("xml "));
    EXPECT_EQ(document.tree(), "drep(ftbl(lbl ),free,mdat),xml ") << type;
  }
  EXPECT_EQ(TestDocument(box("lbl ") + image_header_box() + box("xml ")).tree(), "lbl ");
  EXPECT_EQ(load_code(box("jP  ", be32(0x0D0A870B))), JPX_ERR_BAD_SIGNATURE);
  EXPECT_EQ(load_code(box("jp2h", box("jP  "))), JPX_ERR_BAD_SIGNATURE);
}

TEST(Parser, KeepsOtherMisplacedBoxesAsOpaqueBytes) {
  for (const char* type :
       {"pclr", "cmap", "cdef", "opct", "rreq", "creg", "copt", "inst", "flst", "url ", "cref"}) {
    const std::string misplaced = box(type, rule_of(type).payload + "and more");
    const std::string file = box("ftbl", box("lbl ") + misplaced + box("free")) + box("xml ");
    TestDocument document(file);
    EXPECT_EQ(document.tree(), "ftbl(lbl ," + std::string(type) + ",free),xml ");
    EXPECT_EQ(document.record(2)->kind, kBasic);
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
                                  nested("asoc", 256, box("cref", "colr"))}) {
    EXPECT_EQ(load_code(file), JPX_ERR_INVALID_ARGUMENT);
  }
  TestDocument deepest(nested("asoc", 256));
  EXPECT_EQ(kv_jpx_add_box(deepest.get(), code("asoc"), 255, kPlaceFirst, nullptr),
            JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(deepest.add("nlst", 255), 256u);
  EXPECT_EQ(deepest.add("asoc", 255, kPlaceAfter), 257u);
}

TEST(BoxRecord, ChoosesTheHeaderByTheTotalLength) {
  const struct {
    uint32_t type;
    uint64_t content;
    std::string header;
  } cases[] = {{code("fake"), 0, be32(8) + "fake"},
               {code("fake"), 0xFFFFFFF7, be32(0xFFFFFFFF) + "fake"},
               {code("fake"), 0xFFFFFFF8, be32(1) + "fake" + be64(0x100000008)},
               {kRoot, 0xFFFFFFF8, ""}};
  for (const auto& [type, content, header] : cases) {
    TestContext context;
    Environment* const env = context.env();
    Box* const box = jpx_make_unknown_box(env, type, nullptr, 1);
    static_cast<BasicBox*>(box)->payload_length = content;  // without a source nothing is written
    EXPECT_EQ(box->box_length(box), content + header.size());
    char bytes[16];
    uint64_t written = 0;
    Stream* const writer = bs_writer_to_buffer(env, bytes, sizeof(bytes));
    box->box_render(box, env, writer);
    bs_writer_get_buffer(env, writer, &written);
    EXPECT_EQ(std::string(bytes, written), header);
  }
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
  EXPECT_TRUE(a.next == &inserted && inserted.next == &b && inserted.previous == &a);
  EXPECT_EQ(b.previous, &a) << "the box behind keeps pointing at the one in front";
  b.previous = &inserted;
  jpx_remove_box(&inserted);
  EXPECT_TRUE(a.next == &b && b.previous == &a);
  EXPECT_EQ(inserted.next, &b) << "the removed box's own links stay";
  jpx_remove_box(&a);
  EXPECT_TRUE(parent.first_child == &b && b.previous == nullptr);
  jpx_remove_box(&b);
  EXPECT_EQ(parent.first_child, nullptr);
  jpx_insert_box(&inserted, &b);
  EXPECT_EQ(inserted.next, nullptr);
}

}  // namespace
}  // namespace kvjpx::test
