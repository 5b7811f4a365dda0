// Decoding: which samples are delivered, where they come from and what value they have; and the
// protocol of the memory output.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "test_pictures.h"

namespace {

uint32_t ceil_shift(uint32_t value, uint32_t shift) { return (value + (1u << shift) - 1) >> shift; }

// The 8-bit samples of a lossless picture in a rectangle of its reference grid.
Bytes expected(const Recipe& recipe, Rectangle area) {
  return planes(static_cast<uint32_t>(recipe.spacings.size()), area.right - area.left,
                area.bottom - area.top, [&](uint32_t c, uint32_t x, uint32_t y) {
                  const uint32_t spacing = recipe.spacings[c];
                  return sample_at(recipe, c, (area.left + x) / spacing, (area.top + y) / spacing);
                });
}

void set_region(void* codec, uint64_t left, uint64_t top, uint64_t right, uint64_t bottom) {
  ASSERT_EQ(kv_j2k_set_input_j2k_region_level(codec, left, top, right, bottom), 0);
}

TEST(Decode, WholePictureAndItsGeometry) {
  Recipe recipe;
  recipe.tile = 32;
  Codec codec(recipe);
  uint32_t width = 0, height = 0, reserved = 1, components = 0;
  EXPECT_EQ(kv_j2k_get_input_image_info(codec, &width, &height, &reserved, &components), 0);
  EXPECT_EQ(width, 61u);
  EXPECT_EQ(height, 47u);
  EXPECT_EQ(reserved, 0u);
  EXPECT_EQ(components, 3u);
  uint32_t tile[6] = {};
  EXPECT_EQ(kv_j2k_get_input_j2k_tile_info(codec, &tile[0], &tile[1], &tile[2], &tile[3], &tile[4],
                                           &tile[5]),
            0);
  EXPECT_EQ(std::vector<uint32_t>(tile, tile + 6), (std::vector<uint32_t>{32, 32, 2, 2, 0, 0}));
  EXPECT_EQ(codec.output(), expected(recipe, {0, 0, 61, 47}));
}

TEST(Decode, RegionIsClippedToTheImage) {
  const Recipe recipe;
  Codec codec(recipe);
  set_region(codec, 7, 9, 40, 33);
  EXPECT_EQ(codec.output(), expected(recipe, {7, 9, 40, 33}));
  set_region(codec, 50, 40, UINT64_MAX, 1000);
  EXPECT_EQ(codec.output(), expected(recipe, {50, 40, 61, 47}));
  for (const Rectangle& empty :
       {Rectangle{61, 0, 70, 47}, Rectangle{9, 0, 9, 47}, Rectangle{9, 8, 7, 47}}) {
    set_region(codec, empty.left, empty.top, empty.right, empty.bottom);
    EXPECT_TRUE(codec.output().empty());
    EXPECT_EQ(codec.result, 0);
  }
}

TEST(Decode, OffsetOfTheImageArea) {
  Recipe recipe;
  recipe.x0 = 5;
  recipe.y0 = 3;
  Codec codec(recipe);
  uint32_t width = 0, height = 0, x = 0, y = 0;
  kv_j2k_get_input_image_info(codec, &width, &height, nullptr, nullptr);
  kv_j2k_get_input_j2k_tile_info(codec, nullptr, nullptr, nullptr, nullptr, &x, &y);
  EXPECT_EQ(width, 61u) << "the offset is part of the extent";
  EXPECT_EQ(height, 47u);
  EXPECT_EQ(x, 5u);
  EXPECT_EQ(y, 3u);
  EXPECT_EQ(codec.output(), expected(recipe, {5, 3, 61, 47}));
  set_region(codec, 0, 0, width - x, height - y);
  EXPECT_EQ(codec.output(), expected(recipe, {5, 3, 56, 44}))
      << "a region is given on the reference grid, not from the image area's corner";
}

TEST(Decode, ReducedRegionsAreWhatOpenJpegDecodes) {
  for (const int tile : {0, 29}) {
    Recipe recipe;
    recipe.x0 = 3;
    recipe.y0 = 1;
    recipe.tile = tile;
    const Bytes codestream = encode(recipe);
    Codec codec(codestream);
    for (const Rectangle& area :
         {Rectangle{3, 1, 61, 47}, Rectangle{17, 10, 50, 33}, Rectangle{32, 31, 61, 47}}) {
      for (const uint32_t reduction : {1u, 2u, 3u}) {
        set_region(codec, area.left, area.top, area.right, area.bottom);
        kv_j2k_set_input_j2k_resolution_level(codec, static_cast<int32_t>(reduction) + 1, 0);
        const Bytes output = codec.output();
        EXPECT_EQ(output, decode_with_openjpeg(codestream, false, area, reduction, 0));
        EXPECT_EQ(output.size(),
                  3 * (ceil_shift(area.right, reduction) - ceil_shift(area.left, reduction)) *
                      (ceil_shift(area.bottom, reduction) - ceil_shift(area.top, reduction)));
      }
    }
  }
}

TEST(Decode, ReducedEffortKeepsTheSize) {
  const Recipe recipe;
  const Bytes codestream = encode(recipe);
  const Bytes reduced = decode_with_openjpeg(codestream, false, {0, 0, 61, 47}, 2, 0);
  Codec codec(codestream);
  kv_j2k_set_input_j2k_resolution_level(codec, 3, 1);
  set_region(codec, 6, 5, 61, 47);
  EXPECT_EQ(codec.output(), planes(3, 55, 42, [&](uint32_t c, uint32_t x, uint32_t y) {
              return reduced[(c * 12 + (y + 5) / 4) * 16 + (x + 6) / 4];
            }));
}

TEST(Decode, FewerLevelsThanAskedForAreAveraged) {
  Recipe recipe;
  recipe.levels = 0;
  Codec codec(recipe);
  kv_j2k_set_input_j2k_resolution_level(codec, 2, 0);
  EXPECT_EQ(codec.output(), planes(3, 31, 24, [&](uint32_t c, uint32_t x, uint32_t y) {
              int sum = 0, count = 0;
              for (uint32_t v = 2 * y; v < std::min(47u, 2 * y + 2); ++v) {
                for (uint32_t u = 2 * x; u < std::min(61u, 2 * x + 2); ++u, ++count) {
                  sum += sample_at(recipe, c, u, v);
                }
              }
              return sum / count;
            }));
  kv_j2k_set_input_j2k_resolution_level(codec, 32, 0);
  EXPECT_EQ(codec.output().size(), 3u) << "31 halvings leave one sample a component";
}

TEST(Decode, QualityLayers) {
  Recipe recipe;
  recipe.rates = {20, 8, 1};
  const Bytes codestream = encode(recipe);
  Codec codec(codestream);
  const Rectangle all = {0, 0, 61, 47};
  const Bytes full = codec.output();
  const std::pair<int32_t, uint32_t> cases[] = {{0x101, 1}, {2, 2}, {3, 3}, {1, 0}};
  for (const auto& [level, layers] : cases) {
    kv_j2k_set_input_j2k_quality_level(codec, level);
    EXPECT_EQ(codec.output(), decode_with_openjpeg(codestream, false, all, 0, layers)) << level;
    EXPECT_EQ(codec.output() == full, layers == 0 || layers == 3) << level;
  }
}

TEST(Decode, SubsampledComponentsAreEnlarged) {
  Recipe recipe;
  recipe.spacings = {1, 2, 3};
  Codec codec(recipe);
  EXPECT_EQ(codec.output(), expected(recipe, {0, 0, 61, 47}));
  for (const Rectangle& area :
       {Rectangle{7, 9, 40, 33}, Rectangle{59, 45, 60, 46}, Rectangle{60, 46, 61, 47}}) {
    set_region(codec, area.left, area.top, area.right, area.bottom);
    EXPECT_EQ(codec.output(), expected(recipe, area)) << "as cut out of the whole picture";
  }
  set_region(codec, 0, 0, 0, 0);
  kv_j2k_set_input_j2k_resolution_level(codec, 2, 0);
  EXPECT_EQ(codec.output().size(), 3u * 31 * 24);
}

TEST(Decode, FirstSubsampledSampleBehindTheEdgeStandsForTheEdge) {
  Recipe recipe;
  recipe.x0 = 5;
  recipe.spacings = {1, 4};
  Codec codec(recipe);
  set_region(codec, 5, 0, 7, 1);
  const int32_t first = sample_at(recipe, 1, 2, 0);
  EXPECT_EQ(codec.output(), (Bytes{static_cast<uint8_t>(sample_at(recipe, 0, 5, 0)),
                                   static_cast<uint8_t>(sample_at(recipe, 0, 6, 0)),
                                   static_cast<uint8_t>(first), static_cast<uint8_t>(first)}));
}

TEST(Decode, SamplesOfOtherDepths) {
  for (const bool is_signed : {false, true}) {
    for (const uint32_t precision : {1u, 4u, 8u, 12u, 16u}) {
      Recipe recipe;
      recipe.precision = precision;
      recipe.is_signed = is_signed;
      Codec codec(recipe);
      const int32_t full = (1 << precision) - 1;
      const int32_t offset = is_signed ? 1 << (precision - 1) : 0;
      EXPECT_EQ(codec.output(), planes(3, 61, 47,
                                       [&](uint32_t c, uint32_t x, uint32_t y) {
                                         const int32_t value = sample_at(recipe, c, x, y) + offset;
                                         return precision > 8 ? value >> (precision - 8)
                                                              : (value * 255 + full / 2) / full;
                                       }))
          << precision << (is_signed ? " signed" : "");
    }
  }
}

TEST(Decode, HandlesAreIndependent) {
  std::vector<std::thread> threads;
  std::vector<int> equal(4);
  for (size_t i = 0; i < equal.size(); ++i) {
    threads.emplace_back([&equal, i] {
      Recipe recipe;
      recipe.x1 = static_cast<uint32_t>(40 + i);
      Codec codec(recipe);
      equal[i] = codec.output() == expected(recipe, {0, 0, recipe.x1, recipe.y1});
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(equal, std::vector<int>(4, 1));
}

TEST(MemoryOutput, QueryThenFill) {
  Codec codec((Recipe()));
  Bytes buffer(61 * 47 * 3 + 8, 0xEE);
  void* data = buffer.data();
  uint32_t length = 0;
  EXPECT_EQ(kv_j2k_get_output_image(codec, &data, &length), 0);
  EXPECT_EQ(length, 61u * 47 * 3);
  EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE)) << "a query leaves the buffer alone";

  length = 100;
  EXPECT_EQ(kv_j2k_get_output_image(codec, &data, &length), KV_J2K_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 61u * 47 * 3);
  EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE));

  length = static_cast<uint32_t>(buffer.size());
  EXPECT_EQ(kv_j2k_get_output_image(codec, &data, &length), 0);
  EXPECT_EQ(length, 61u * 47 * 3);
  EXPECT_EQ(data, buffer.data());
  Bytes filled = expected(Recipe(), {0, 0, 61, 47});
  filled.resize(buffer.size(), 0xEE);
  EXPECT_EQ(buffer, filled);
}

TEST(MemoryOutput, NothingToDeliver) {
  Codec codec((Recipe()));
  for (const int32_t type : {0, 72, 79, 89, 128}) {
    EXPECT_TRUE(codec.output(type).empty());
    EXPECT_EQ(codec.result, 0) << type;
  }
  kv_j2k_set_output_type(codec, KV_J2K_OUTPUT_PNG);
  EXPECT_EQ(kv_j2k_set_input_image_raw(codec, nullptr, 0, 10, 3, 24, 0), 0);
  EXPECT_TRUE(codec.output().empty());
  EXPECT_EQ(codec.result, 0);
}

TEST(MemoryOutput, ANewInputReplacesTheOutput) {
  Codec codec((Recipe()));
  EXPECT_EQ(codec.output().size(), 61u * 47 * 3);
  codec.set_raw({1, 2}, 2, 1, 1);
  EXPECT_EQ(codec.output(), (Bytes{1, 2}));
}

TEST(Arguments, AreJudged) {
  EXPECT_EQ(kv_j2k_create(nullptr), KV_J2K_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_j2k_destroy(nullptr), KV_J2K_ERR_BAD_HANDLE);
  EXPECT_EQ(kv_j2k_set_output_type(nullptr, 64), KV_J2K_ERR_BAD_HANDLE);
  EXPECT_EQ(kv_j2k_free(nullptr, nullptr), 0);
  EXPECT_STRNE(kv_j2k_get_error_text(nullptr), "");

  Codec codec;
  uint32_t length = 7, width = 7;
  EXPECT_EQ(kv_j2k_get_input_image_info(codec, &width, nullptr, nullptr, nullptr),
            KV_J2K_ERR_NO_INPUT);
  EXPECT_EQ(width, 0u);
  EXPECT_EQ(kv_j2k_get_output_image(codec, nullptr, &length), KV_J2K_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_j2k_set_input_image(codec, nullptr, 5), KV_J2K_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_j2k_set_input_image_raw(codec, nullptr, 1, 1, 1, 24, 0),
            KV_J2K_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_j2k_set_input_image_raw(codec, "", UINT32_MAX, UINT32_MAX, UINT32_MAX, 24, 0),
            KV_J2K_ERR_INVALID_ARGUMENT);
  codec.output();
  EXPECT_EQ(codec.result, KV_J2K_ERR_NO_INPUT);
  EXPECT_NE(codec.error_text(), "");
  kv_j2k_set_output_type(codec, 64);
  EXPECT_EQ(codec.error_text(), "") << "a success clears the text";
}

}  // namespace
