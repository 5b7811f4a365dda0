// Inputs of which everything is kept: where boxes stand, what was found, how headers and fragments
// follow edits, and what the last error was.
#include <array>

#include "box/test_document.h"
#include "support/system_calls.h"

namespace kvjpx::test {
namespace {

constexpr uint32_t kNothing = KV_JPX_ROOT;

// A document of which everything is kept.
struct KeptDocument : TestDocument {
  explicit KeptDocument(const std::string& file) : TestDocument(file, true) {}
};

uint32_t append(TestDocument& document, std::string_view type, uint32_t parent) {
  uint32_t id = kNothing;
  EXPECT_EQ(kv_jpx_append_box(document.get(), type_code(type), parent, &id), JPX_OK);
  return id;
}

std::string cut_short_box(std::string_view type, std::string_view payload) {
  return be32(1000).append(type).append(payload);
}
std::string asoc(const std::string& content) { return box("asoc", content); }

// Flags, offset, lengths of header, content and tail; or the code of the refusal.
std::string extent_of(TestDocument& document, uint32_t id) {
  kv_jpx_box_extent extent = {};
  EXPECT_EQ(kv_jpx_get_box_extent(document.get(), id, &extent), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_jpx_get_box_extent(document.get(), id, nullptr), JPX_ERR_INVALID_ARGUMENT);
  extent.size = sizeof(extent);
  const int32_t code = kv_jpx_get_box_extent(document.get(), id, &extent);
  if (code != JPX_OK) return "code " + std::to_string(code);
  return spaced(extent.flags, extent.offset, extent.header_length, extent.content_length,
                extent.tail_length);
}

// In both modes; what only a kept input can have is listed by the program.
TEST(Extent, TellsWhereABoxStands) {
  const std::string front = box("free", "12");
  const struct {
    std::string file;
    uint32_t id;
    const char* extent;
  } rows[] = {{front + box("xml ", "abc"), kNothing, "0 0 0 21 0"},
              {front + xl_box("xml ", "abc"), 1, "1 10 16 3 0"},
              {front + open_ended_box("xml ", "abc"), 1, "2 10 8 3 0"},
              {box("res ", front), 0, "32 0 8 10 0"},
              {front, 1, "code 3"}};
  for (const auto& [file, id, extent] : rows) {
    for (const bool keeps : {true, false}) {
      TestDocument document(file, keeps);
      EXPECT_EQ(extent_of(document, id), extent) << file;
    }
  }
}

TEST(Extent, KnowsWhatWasChangedAndAdded) {
  for (const bool keeps : {true, false}) {
    TestDocument document(asoc(box("lbl ", "a")) + asoc(box("free")), keeps);
    document.set_bytes(1, JPX_FIELD_JP2C_DATA, "b");
    document.add("free", kNothing);
    const char* const extents[] = {"4 0 8 9 0", "4 8 8 1 0", "0 17 8 8 0", "0 25 8 0 0", "code 4"};
    for (uint32_t id = 0; id < 5; ++id) EXPECT_EQ(extent_of(document, id), extents[id]);
    EXPECT_EQ(extent_of(document, kNothing), "4 0 0 33 0");
  }
}

TEST(Keeping, GivesHeadersTheirLengthsAndTakesThemBack) {
  const std::string leaf = box("lbl ", "l");
  const std::string more = box("free");
  const std::string open = open_ended_box("lbl ", "l");
  const std::string cut = cut_short_box("lbl ", "l");
  const struct {
    std::string file;
    uint32_t parent;  // which an empty box is appended to
    std::string expected;
  } rows[] = {
      {open, kNothing, leaf + more},
      {open_ended_box("asoc", open), 0, open_ended_box("asoc", leaf + more)},
      {asoc(asoc(open)), 0, asoc(asoc(leaf) + more)},
      {asoc(cut) + leaf, 0, asoc(leaf + more) + leaf},
      {asoc(cut) + leaf, kNothing, asoc(cut) + leaf + more},
      {asoc(leaf + "tail") + leaf, 0, asoc(leaf + more + "tail") + leaf},
  };
  for (const auto& row : rows) {
    KeptDocument document(row.file);
    EXPECT_EQ(document.written(), row.file);
    const uint32_t id = append(document, "free", row.parent);
    EXPECT_EQ(document.written(), row.expected);
    EXPECT_EQ(kv_jpx_delete_box(document.get(), id), JPX_OK);
    EXPECT_EQ(document.written(), row.file);
  }
}

TEST(Keeping, WritesChangedContentsWithWhatStandsBehind) {
  KeptDocument document(asoc(xl_box("nlst", be32(1) + be32(2) + "?") + box("free")));
  EXPECT_EQ(document.set(1, JPX_FIELD_NLST_AN, 3, 1), JPX_OK);
  EXPECT_EQ(document.set_bytes(2, JPX_FIELD_JP2C_DATA, "new"), JPX_OK);
  EXPECT_EQ(document.written(), asoc(xl_box("nlst", be32(1) + be32(3) + "?") + box("free", "new")));
  KeptDocument followed(asoc(open_ended_box("lbl ", "l")) + "tail");
  EXPECT_EQ(followed.set_bytes(1, JPX_FIELD_JP2C_DATA, "new"), JPX_OK);
  EXPECT_EQ(followed.written(), asoc(box("lbl ", "new")) + "tail");
  // Containers that were added have a field in front of their boxes, too.
  KeptDocument added(asoc(box("dtbl", be16(0))));
  append(added, "cref", 0);
  append(added, "dtbl", 0);
  EXPECT_EQ(added.written(),
            asoc(box("dtbl", be16(0)) + box("cref", be32(0)) + box("dtbl", be16(0))));
}

TEST(Keeping, MovesBoxesWithTheirBytes) {
  const std::string odd = asoc(xl_box("lbl ", "l") + "tail");
  const std::string file = odd + box("free") + open_ended_box("mp7b", "m");
  const std::string last = box("mp7b", "m");
  const struct {
    uint32_t id, reference;
    int32_t placement;
    std::string expected;
  } rows[] = {
      {3, 0, KV_JPX_PLACE_BEFORE, last + odd + box("free")},
      {0, 2, KV_JPX_PLACE_AFTER, box("free") + odd + open_ended_box("mp7b", "m")},
      {0, 3, KV_JPX_PLACE_AFTER, box("free") + last + odd},
      {1, KV_JPX_ROOT, KV_JPX_PLACE_FIRST_CHILD,
       xl_box("lbl ", "l") + asoc("tail") + box("free") + open_ended_box("mp7b", "m")},
      {3, 0, KV_JPX_PLACE_LAST_CHILD, asoc(xl_box("lbl ", "l") + last + "tail") + box("free")},
      {2, 0, KV_JPX_PLACE_FIRST_CHILD,
       asoc(box("free") + xl_box("lbl ", "l") + "tail") + open_ended_box("mp7b", "m")},
  };
  for (const auto& row : rows) {
    KeptDocument document(file);
    EXPECT_EQ(kv_jpx_move_box(document.get(), row.id, row.reference, row.placement), JPX_OK);
    EXPECT_EQ(document.written(), row.expected);
    EXPECT_EQ(kv_jpx_delete_box(document.get(), append(document, "free", kNothing)), JPX_OK);
    EXPECT_EQ(document.written(), row.expected);
  }
  // A box that is cut short does not take in the tail that it now stands in front of.
  KeptDocument cut(odd + cut_short_box("lbl ", "m"));
  EXPECT_EQ(kv_jpx_move_box(cut.get(), 2, 0, KV_JPX_PLACE_LAST_CHILD), JPX_OK);
  EXPECT_EQ(cut.written(), asoc(xl_box("lbl ", "l") + box("lbl ", "m") + "tail"));
  KeptDocument document(file + box("jp2h") + box("ihdr"));
  KeptDocument deep(nested("asoc", 200) + nested("asoc", 100));
  const auto move = [](TestDocument& in, uint32_t id, uint32_t reference, int32_t placement) {
    return kv_jpx_move_box(in.get(), id, reference, placement);
  };
  EXPECT_EQ(move(document, 0, 1, KV_JPX_PLACE_AFTER), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(move(document, 2, 1, KV_JPX_PLACE_LAST_CHILD), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(move(document, 2, KV_JPX_ROOT, KV_JPX_PLACE_AFTER), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(move(document, 2, 0, 4), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(move(document, 0, KV_JPX_ROOT, KV_JPX_PLACE_LAST_CHILD), JPX_OK);
  EXPECT_EQ(move(deep, 200, 156, KV_JPX_PLACE_LAST_CHILD), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(move(deep, 200, 155, KV_JPX_PLACE_LAST_CHILD), JPX_OK);
}

TEST(Keeping, TakesContentsAsTheyAre) {
  const std::string uuid(16, 'u');
  KeptDocument document(asoc(box("nlst", be32(1)) + box("uuid", uuid) + box("free", "x")));
  const auto content = [&](uint32_t id, const std::string& bytes) {
    return kv_jpx_set_box_content(document.get(), id, bytes.data(), bytes.size());
  };
  EXPECT_EQ(content(1, be32(7) + be32(8)), JPX_OK);
  EXPECT_EQ(document.value(1, JPX_FIELD_NLST_AN, 1), 8u);
  EXPECT_EQ(content(2, uuid + "more"), JPX_OK);
  EXPECT_EQ(document.field_bytes(2, JPX_FIELD_UUID_DATA), "more");
  EXPECT_EQ(document.written(),
            asoc(box("nlst", be32(7) + be32(8)) + box("uuid", uuid + "more") + box("free", "x")));
  EXPECT_EQ(content(1, be32(7) + "?"), JPX_OK);
  EXPECT_EQ(document.field_bytes(1, JPX_FIELD_JP2C_DATA), be32(7) + "?");
  EXPECT_EQ(content(2, "short"), JPX_OK);
  EXPECT_EQ(document.written(),
            asoc(box("nlst", be32(7) + "?") + box("uuid", "short") + box("free", "x")));
  EXPECT_EQ(content(0, box("lbl ", "new")), JPX_OK);
  EXPECT_EQ(document.written(), asoc(box("lbl ", "new")));
  EXPECT_EQ(document.get_code(1, JPX_FIELD_NLST_AN), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(content(KV_JPX_ROOT, ""), JPX_ERR_INVALID_ARGUMENT);
  TestDocument strict(box("free"));
  EXPECT_EQ(kv_jpx_set_box_content(strict.get(), 0, "", 0), JPX_ERR_INVALID_ARGUMENT);
}

std::string fragments(std::initializer_list<std::array<uint64_t, 3>> list) {
  std::string content = be16(list.size());
  for (const auto& [offset, length, reference] : list) {
    content += be64(offset) + be32(length) + be16(reference);
  }
  return box("ftbl", box("flst", content));
}

TEST(Keeping, LetsFragmentsFollowTheirBytes) {
  const std::string data = box("mdat", "abcdef") + "tail";  // its content begins at 82
  const auto list = [](uint64_t first, uint64_t last) {
    return fragments({{first, 3, 0}, {83, 3, 1}, {84, 90, 0}, {last, 2, 0}});
  };
  KeptDocument document(list(82, 86) + data);
  kv_jpx_finding finding = {};
  finding.size = sizeof(finding);
  document.add("free", KV_JPX_ROOT);
  EXPECT_EQ(document.written(), box("free") + list(90, 94) + data);
  EXPECT_EQ(document.value(1, JPX_FIELD_FLST_OFF), 82u) << "the field stays";
  EXPECT_EQ(document.set(1, JPX_FIELD_FLST_OFF, 85), JPX_OK);
  EXPECT_EQ(document.written(), box("free") + list(93, 94) + data) << "of changed lists, too";
  document.set_bytes(2, JPX_FIELD_JP2C_DATA, "xyz");
  EXPECT_EQ(document.written(), box("free") + list(85, 86) + box("mdat", "xyz") + "tail");
  EXPECT_EQ(kv_jpx_get_finding(document.get(), 2, &finding), JPX_OK);
  EXPECT_EQ(finding.kind, KV_JPX_FINDING_FRAGMENT);
  EXPECT_STREQ(finding.text,
               "box 'flst' at offset 8 has a fragment at offset 86, of 2 bytes, that have changed");
  EXPECT_EQ(kv_jpx_get_finding(document.get(), 3, &finding), JPX_ERR_INVALID_ARGUMENT);
  // Moved lists and contents stand in another order than their identifiers.
  KeptDocument moved(fragments({{72, 1, 0}}) + fragments({{73, 1, 0}}) + box("mdat", "ab"));
  EXPECT_EQ(kv_jpx_move_box(moved.get(), 2, 0, KV_JPX_PLACE_BEFORE), JPX_OK);
  EXPECT_EQ(kv_jpx_move_box(moved.get(), 4, 2, KV_JPX_PLACE_BEFORE), JPX_OK);
  EXPECT_EQ(moved.written(), box("mdat", "ab") + fragments({{9, 1, 0}}) + fragments({{8, 1, 0}}));
}

// Inside the system, through a buffer or in short steps, by where they come to lie.
TEST(Keeping, CopiesLongPiecesWhereverTheyLie) {
  std::string content(0x2F004D, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 0x9E3779B1u >> 24);
  const auto file_with = [&](const std::string& front) {
    return box("free", front) + box("mdat", content);
  };
  const TempFile file(file_with("12"));
  TestDocument document(std::string(), true);
  ASSERT_EQ(kv_jpx_set_input_image_file(document.get(), file.path()), JPX_OK);
  for (const char* const front : {"12", "21", "12345"}) {
    document.set_bytes(0, JPX_FIELD_JP2C_DATA, front);
    for (const size_t failing : {0, 1, 2}) {
      const TempFile output("");
      fail_system_call(kSendfile, failing);
      EXPECT_EQ(kv_jpx_get_output_image_file(document.get(), output.path()), JPX_OK);
      fail_system_call(kSendfile, 0);
      EXPECT_TRUE(output.contents() == file_with(front)) << front << failing;
    }
  }
  constexpr size_t kPage = 4096;
  const std::string expected = file_with("12345");
  std::string memory(expected.size() + kPage, '\0');
  for (size_t place = 0; place < kPage; place += 61) {
    void* data = memory.data() + place;
    uint64_t length = expected.size();
    EXPECT_EQ(kv_jpx_get_output_image(document.get(), &data, &length), JPX_OK);
    EXPECT_EQ(memory.compare(place, length, expected), 0);
  }
}

TEST(Keeping, GrowsHeadersAtFourGibibytes) {
  constexpr uint64_t kMost = 0xFFFFFFFF;
  TempFile file(be32(kMost) + "asoc" + be32(kMost - 8) + "jp2c");
  file.resize(kMost);
  TestDocument document(std::string(), true);
  ASSERT_EQ(kv_jpx_set_input_image_file(document.get(), file.path()), JPX_OK);
  const auto length = [&] {
    char byte;
    void* data = &byte;
    uint64_t needed = 1;
    EXPECT_EQ(kv_jpx_get_output_image(document.get(), &data, &needed), JPX_ERR_BUFFER_TOO_SMALL);
    return needed;
  };
  EXPECT_EQ(length(), kMost);
  append(document, "free", 0);
  EXPECT_EQ(length(), kMost + 8 + 8) << "the container's header has grown";
}

// Code, box, type and place of the last error, and the sentence.
std::string last_error(kv_jpx_context* context) {
  kv_jpx_error_info info = {};
  EXPECT_EQ(kv_jpx_get_last_error(context, &info), JPX_ERR_INVALID_ARGUMENT);
  info.size = sizeof(info);
  EXPECT_EQ(kv_jpx_get_last_error(context, &info), JPX_OK);
  return spaced(info.code, static_cast<int32_t>(info.box_id),
                info.box_type == kNothing ? "none" : be32(info.box_type),
                static_cast<int64_t>(info.offset), info.text);
}

TEST(LastError, SaysWhatWasWrongAndWhere) {
  TestDocument document;
  kv_jpx_context* const context = document.get();
  EXPECT_EQ(last_error(context), "0 -1 none -1 success");
  ASSERT_EQ(document.load(signature_box() + box("free")), JPX_OK);
  EXPECT_EQ(kv_jpx_add_box(context, type_code("resc"), 1, 1, nullptr), JPX_ERR_CANNOT_MAKE_BOX);
  EXPECT_EQ(kv_jpx_set_output_type(context, KV_JPX_OUTPUT_JPX), JPX_OK);
  EXPECT_EQ(last_error(context),
            "6 1 free 12 a box of this type may not stand there in box 'free' at offset 12");
  EXPECT_EQ(kv_jpx_set_input_image_file(context, "/nonexistent"), JPX_ERR_OPEN_FILE);
  EXPECT_EQ(last_error(context), "100 -1 none -1 the file cannot be opened");
  TestDocument cut;
  EXPECT_EQ(cut.load(signature_box() + cut_short_box("xml ", "a")), JPX_ERR_READ_PAST_END);
  EXPECT_EQ(last_error(cut.get()),
            "18 1 xml  12 box 'xml ' at offset 12 is cut short: 992 bytes of content are "
            "announced, 1 are there");
  EXPECT_EQ(kv_jpx_get_last_error(nullptr, nullptr), JPX_ERR_BAD_CONTEXT);
}

TEST(Walking, GoesBackAndUp) {
  KeptDocument document(asoc(box("lbl ") + box("roid", be8(0))) + box("free"));
  kv_jpx_context* const context = document.get();
  const std::array<uint32_t, 2> expected[] = {
      {kNothing, kNothing}, {kNothing, 0}, {1, 0}, {0, kNothing}};
  uint32_t out = 99;
  for (uint32_t id = 0; id < 4; ++id) {
    EXPECT_EQ(kv_jpx_get_previous_box_id(context, id, &out), JPX_OK);
    EXPECT_EQ(out, expected[id][0]);
    EXPECT_EQ(kv_jpx_get_parent_box_id(context, id, &out), JPX_OK);
    EXPECT_EQ(out, expected[id][1]);
  }
  constexpr uint32_t kList = JPX_FIELD_ROID_RTYP;
  for (const int32_t code :
       {kv_jpx_get_previous_box_id(context, 99, &out), kv_jpx_get_parent_box_id(context, 99, &out),
        kv_jpx_get_parent_box_id(context, kNothing, &out),
        kv_jpx_append_box(context, code("free"), 3, nullptr),
        kv_jpx_set_box_field_count(context, 99, kList, 1),
        kv_jpx_set_box_field_count(context, 2, kList, 256)}) {
    EXPECT_EQ(code, JPX_ERR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(kv_jpx_append_box(context, code("resc"), 0, nullptr), JPX_ERR_CANNOT_MAKE_BOX);
  EXPECT_EQ(kv_jpx_set_box_field_count(context, 1, JPX_FIELD_JP2C_DATA, 1), JPX_ERR_NO_SUCH_FIELD);
  for (const uint64_t count : {255, 2}) {
    EXPECT_EQ(kv_jpx_set_box_field_count(context, 2, kList, count), JPX_OK);
  }
  EXPECT_EQ(document.content(2), be8(2) + std::string(38, '\0'));
  kv_jpx_field_info info = {};
  EXPECT_EQ(kv_jpx_find_field(code("zzzz"), "DATA", &info), JPX_OK);
  EXPECT_EQ(info.key, uint32_t{JPX_FIELD_JP2C_DATA});
  EXPECT_EQ(kv_jpx_find_field(code("zzzz"), "HEIGHT", &info), JPX_ERR_NO_SUCH_FIELD);
  EXPECT_EQ(kv_jpx_find_field(code("ihdr"), nullptr, &info), JPX_ERR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace kvjpx::test
