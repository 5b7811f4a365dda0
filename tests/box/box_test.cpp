// The box record and its header, and the links between boxes.
#include "box/box.h"

#include "box/basic.h"
#include "box/super.h"
#include "support/bytes.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

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
