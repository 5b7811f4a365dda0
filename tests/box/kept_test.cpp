// Inputs of which everything is kept: whatever their bytes, none is lost, and edits can be undone.
// What single box types do then is in tests/boxes/kept.script.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

// Marks the box as changed, so that it is written anew.
void touch(TestDocument& document, uint32_t id) { document.set(id, 0, 0); }

// Sets every number of the box to what it is, and to another and back.
void change_and_undo(TestDocument& document, uint32_t id, uint64_t other) {
  kv_jpx_field_info info = {};
  for (uint32_t field = 0; kv_jpx_get_field_info(field, &info) == JPX_OK; ++field) {
    if (info.box_type != document.record(id)->type) continue;
    uint64_t value;
    for (uint64_t index = 0; index < 3; ++index) {
      if (kv_jpx_get_box_field_int(document.get(), id, info.key, index, &value) != JPX_OK) break;
      EXPECT_EQ(document.set(id, info.key, value, index), JPX_OK) << info.name << " " << value;
      document.set(id, info.key, other, index);
      EXPECT_EQ(document.set(id, info.key, value, index), JPX_OK) << info.name << " " << value;
    }
  }
}

TEST(Kept, AnyContentOfAnyTypeAnywhere) {
  std::mt19937 random(1);
  const unsigned kLikely[] = {0, 0, 0, 1, 1, 2, 3, 4, 7, 8, 14, 15, 16, 255};
  const std::string header = box("jp2h", image_header_box() + box("bpcc", bytes({7, 15, 11})));
  for (const TypeRule& rule : type_rules()) {
    for (const TypeRule& container : type_rules()) {
      if (container.kind != kSuper) continue;
      std::string content(random() % 50, '\0');
      for (char& byte : content) byte = static_cast<char>(kLikely[random() % 14]);
      if (random() % 4 == 0) content = rule.payload + content;
      const std::string prefix =
          container.type == "dtbl" ? be16(1) : container.payload.substr(0, 4);
      const std::string file = header + box(container.type, prefix + box(rule.type, content));
      SCOPED_TRACE(rule.type + " in " + container.type + ", number " + std::to_string(random()));
      TestDocument document(file, true);
      EXPECT_EQ(document.written(), file);
      uint32_t id = 0;
      while (kv_jpx_get_next_box_id_by_type(document.get(), type_code(rule.type), id, &id) == 0) {
        touch(document, id);
        EXPECT_EQ(document.written(), file);
        change_and_undo(document, id, random() % 3 == 0 ? random() : kLikely[random() % 14]);
        EXPECT_EQ(document.written(), file);
      }
    }
  }
}

// A box that became opaque leaves no trace of what was read in it.
TEST(Kept, NumbersBoxesOnBehindAMalformedContainer) {
  TestDocument document(box("dtbl", be16(5) + box("free") + box("free") + "tail") +
                            box("mdat", "x") + box("free") + box("xml "),
                        true);
  EXPECT_EQ(document.tree(), "dtbl,mdat,free,xml ");
  EXPECT_EQ(document.find("mdat"), 1u);
  EXPECT_EQ(document.find("xml "), 3u);
  kv_jpx_box_extent extent = {};
  extent.size = sizeof(extent);
  EXPECT_EQ(kv_jpx_get_box_extent(document.get(), 0, &extent), JPX_OK);
  EXPECT_EQ(extent.tail_length, 0u);
  EXPECT_EQ(extent.flags, unsigned{KV_JPX_BOX_MALFORMED});
}

}  // namespace
}  // namespace kvjpx::test
