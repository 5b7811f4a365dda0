// The arithmetic of composing, without boxes and without a codec.
#include "api/geometry.h"

#include <gtest/gtest.h>

#include <string>

namespace kvjpx {
namespace {

// The image as rows of letters; dots are samples that nothing was copied to.
std::string drawn(const Composition& image, const std::string& samples) {
  std::string text;
  for (uint64_t y = 0; y < image.out_height; ++y) {
    text += (y == 0 ? "" : "/") + samples.substr(y * image.out_width, image.out_width);
  }
  return text;
}

struct Row {
  const char* name;
  Rectangle region;
  uint32_t width;  // of the whole image
  uint32_t height;
  uint32_t reduction;
  Codestream stream;
  Rectangle part;  // needed of it
  const char* image;
  uint64_t length = 26;  // bytes that the codec delivers: a, b, c ...
};

const Row kRows[] = {
    {"whole", {}, 3, 2, 0, {0, 0, 3, 2, 0, 0, 1}, {0, 0, 3, 2}, "abc/def"},
    {"region", {1, 1, 3, 2}, 4, 2, 0, {0, 0, 4, 2, 0, 0, 1}, {1, 1, 3, 2}, "ab"},
    {"open region", {1, 1, 0, 0}, 3, 2, 0, {0, 0, 3, 2, 0, 0, 1}, {1, 1, 3, 2}, "ab"},
    {"region past the edges", {2, 0, 99, 99}, 3, 2, 0, {0, 0, 3, 2, 0, 0, 1}, {2, 0, 3, 2}, "a/b"},
    {"reduced", {}, 5, 3, 1, {0, 0, 5, 3, 0, 0, 1}, {0, 0, 5, 3}, "abc/def"},
    {"reduced place", {}, 8, 3, 1, {3, 2, 4, 1, 0, 0, 1}, {0, 0, 4, 1}, "..../.ab."},
    {"cut by the image", {}, 3, 3, 0, {2, 1, 2, 2, 0, 0, 1}, {0, 0, 1, 2}, ".../..a/..b"},
    {"smaller than the image", {}, 3, 1, 0, {0, 0, 2, 1, 0, 0, 1}, {0, 0, 2, 1}, "ab."},
    // Kept for compatibility: the offset of the image area counts twice, and the picture lacks
    // its right and lower part; without this, composed files look different.
    {"offset area", {}, 8, 3, 0, {0, 0, 8, 4, 3, 1, 1}, {0, 0, 5, 3}, "ab....../cd....../........"},
    {"reduced offset", {}, 8, 1, 1, {0, 0, 8, 1, 1, 0, 1}, {0, 0, 7, 1}, "abc."},
    {"short delivery", {}, 3, 2, 0, {0, 0, 3, 2, 0, 0, 1}, {0, 0, 3, 2}, "abc/d..", 4},
    {"right at the edge", {}, 2, 1, 0, {2, 0, 2, 1, 0, 0, 1}, {0, 0, 0, 1}, ".."},
};

TEST(Geometry, APartOfACodestreamIsCopiedToItsPlace) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    Composition image = composition_of(row.region, row.width, row.height, row.reduction);
    image.planes = 1;
    uint64_t size = 0;
    ASSERT_TRUE(has_size(image, 1, &size));
    std::string samples(size, '.');
    image.samples = reinterpret_cast<uint8_t*>(samples.data());
    EXPECT_FALSE(begins_behind_region(image, row.stream));
    EXPECT_FALSE(ends_before_region(image, row.stream));
    const Rectangle part = needed_part(image, row.stream);
    for (const auto edge :
         {&Rectangle::left, &Rectangle::top, &Rectangle::right, &Rectangle::bottom}) {
      EXPECT_EQ(part.*edge, row.part.*edge);
    }
    const std::string letters = "abcdefghijklmnopqrstuvwxyz";
    copy_into_image(image, row.stream,
                    delivery_of(image, row.stream, part, letters.data(), row.length));
    EXPECT_EQ(drawn(image, samples), row.image);
  }
}

TEST(Geometry, CodestreamsOutsideTheRegion) {
  const Composition image = composition_of({2, 2, 6, 6}, 8, 8, 0);
  EXPECT_TRUE(begins_behind_region(image, {7, 2, 9, 9, 0, 0, 1}));
  EXPECT_TRUE(begins_behind_region(image, {2, 7, 9, 9, 0, 0, 1}));
  EXPECT_FALSE(begins_behind_region(image, {6, 6, 9, 9, 0, 0, 1}));
  EXPECT_TRUE(ends_before_region(image, {0, 0, 3, 9, 1, 0, 1}));
  EXPECT_TRUE(ends_before_region(image, {0, 0, 9, 3, 0, 1, 1}));
  EXPECT_FALSE(ends_before_region(image, {0, 0, 4, 4, 1, 1, 1}));
}

TEST(Geometry, NothingIsCopiedBeyondTheImage) {
  std::string samples(4 + 3, '.');
  Composition image = composition_of({}, 2, 1, 0);
  image.planes = 2;
  image.samples = reinterpret_cast<uint8_t*>(samples.data());
  const std::string letters(27, 'a');
  const Delivery larger = {reinterpret_cast<const uint8_t*>(letters.data()), 27, 3, 3, 3};
  copy_into_image(image, {2, 0, 3, 3, 0, 0, 3}, larger);
  copy_into_image(image, {0, 1, 3, 3, 0, 0, 3}, larger);
  EXPECT_EQ(samples, ".......");
  copy_into_image(image, {1, 0, 3, 3, 0, 0, 3}, larger);
  EXPECT_EQ(samples, ".a.a...");
  copy_into_image(image, {0, 0, 3, 3, 0, 0, 3}, {larger.samples, 27, UINT64_MAX, 2, 2});
  EXPECT_EQ(samples, "aa.a...") << "a second plane lies outside of what was delivered";
}

TEST(Geometry, LevelsStandForHalvings) {
  const int32_t rows[][3] = {{-5, 0, 0}, {1, 0, 0},  {2, 0, 1},     {3, 1, 0},
                             {3, 2, 2},  {34, 0, 1}, {0x101, 0, 0}, {0x100, 0, 31}};
  for (const auto& [level, flag, halvings] : rows) {
    EXPECT_EQ(static_cast<int32_t>(reduction_of(level, flag)), halvings) << level;
  }
}

// Kept for compatibility; judged, such a region would be refused rather than too large for memory.
TEST(Geometry, ARegionThatBeginsBehindTheImageWrapsAround) {
  const Composition image = composition_of({9, 9, 0, 0}, 8, 8, 0);
  EXPECT_EQ(image.width, 0xFFFFFFFF);
  EXPECT_EQ(image.height, 0xFFFFFFFF);
  uint64_t size = 0;
  EXPECT_TRUE(has_size(image, 1, &size));
  EXPECT_FALSE(has_size(image, 2, &size));
}

}  // namespace
}  // namespace kvjpx
