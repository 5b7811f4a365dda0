// Decoding: which samples are delivered, where they come from and what value they have; and the
// protocol of the memory output.
#include <gtest/gtest.h>

#include "test_pictures.h"

namespace {

constexpr uint32_t kSize = 61 * 47 * 3;  // of the picture of Recipe()

// The samples of a lossless picture of 8 bits in a rectangle of its reference grid. Components with
// fewer samples are enlarged; their first one also stands for what is in front of it.
Bytes expected(const Recipe& recipe, Rectangle area) {
  return planes(static_cast<uint32_t>(recipe.spacings.size()), area.right - area.left,
                area.bottom - area.top, [&](uint32_t c, uint32_t x, uint32_t y) {
                  const uint32_t spacing = recipe.spacings[c];
                  const uint32_t first = (recipe.area.left + spacing - 1) / spacing;
                  return sample_at(recipe, c, std::max(first, (area.left + x) / spacing),
                                   (area.top + y) / spacing);
                });
}

TEST(Decode, TellsTheGeometry) {
  Recipe recipe({5, 3, 61, 47});
  recipe.tile = 32;
  const Codec codec(recipe);
  std::vector<uint32_t> told(10, 77);
  kv_j2k_get_input_image_info(codec, &told[0], &told[1], &told[2], &told[3]);
  kv_j2k_get_input_j2k_tile_info(codec, &told[4], &told[5], &told[6], &told[7], &told[8], &told[9]);
  EXPECT_EQ(told, (std::vector<uint32_t>{61, 47, 0, 3, 32, 32, 2, 2, 5, 3}))
      << "an offset of the image area is part of its extent";
}

// Regions of the reference grid are clipped to the image area; reduction keeps every second sample
// each time.
TEST(Decode, RegionsAtEveryReduction) {
  for (const int tile : {0, 29}) {
    Recipe recipe({5, 3, 61, 47});
    recipe.tile = tile;
    recipe.is_smooth = true;
    Codec codec(recipe);
    const std::pair<Rectangle, Rectangle> regions[] = {
        {{0, 0, 0, 0}, {5, 3, 61, 47}},   {{17, 10, 50, 33}, {17, 10, 50, 33}},
        {{0, 0, 56, 44}, {5, 3, 56, 44}}, {{50, 40, 999, 48}, {50, 40, 61, 47}},
        {{61, 0, 70, 47}, {0, 0, 0, 0}},  {{9, 0, 9, 47}, {0, 0, 0, 0}},
        {{9, 8, 7, 47}, {0, 0, 0, 0}}};
    for (const int32_t shift : {0, 1, 2, 3}) {
      kv_j2k_set_input_j2k_resolution_level(codec, shift + 1, 0);
      const auto reduced = [&](uint32_t value) { return (value + (1u << shift) - 1) >> shift; };
      for (const auto& [asked, delivered] : regions) {
        const uint32_t left = reduced(delivered.left), top = reduced(delivered.top);
        const auto sample = [&](uint32_t c, uint32_t x, uint32_t y) {
          return sample_at(recipe, c, (left + x) << shift, (top + y) << shift);
        };
        codec.set_region(asked);
        const Bytes exact =
            planes(3, reduced(delivered.right) - left, reduced(delivered.bottom) - top, sample);
        EXPECT_LE(distance(codec.output(), exact), 2 * shift);
        EXPECT_EQ(codec.result, 0);
      }
    }
  }
}

TEST(Decode, ReducedEffortKeepsTheSize) {
  Codec codec((Recipe()));
  kv_j2k_set_input_j2k_resolution_level(codec, 3, 0);
  const Bytes reduced = codec.output();
  kv_j2k_set_input_j2k_resolution_level(codec, 3, 1);
  codec.set_region({6, 5, 61, 47});
  EXPECT_EQ(codec.output(), planes(3, 55, 42, [&](uint32_t c, uint32_t x, uint32_t y) {
              return reduced.at((c * 12 + (y + 5) / 4) * 16 + (x + 6) / 4);
            }));
}

TEST(Decode, FewerLevelsThanAskedForAreAveraged) {
  Recipe recipe;
  recipe.levels = 0;
  Codec codec(recipe);
  const auto average = [&](uint32_t c, uint32_t x, uint32_t y) {
    int sum = 0, count = 0;
    for (uint32_t v = 2 * y; v < std::min(47u, 2 * y + 2); ++v) {
      for (uint32_t u = 2 * x; u < std::min(61u, 2 * x + 2); ++u, ++count) {
        sum += sample_at(recipe, c, u, v);
      }
    }
    return sum / count;
  };
  kv_j2k_set_input_j2k_resolution_level(codec, 2, 0);
  EXPECT_EQ(codec.output(), planes(3, 31, 24, average));
  kv_j2k_set_input_j2k_resolution_level(codec, 32, 0);
  EXPECT_EQ(codec.output().size(), 3u) << "31 halvings leave one sample a component";
}

// More samples than are decoded at a time with these limits.
TEST(Decode, LargePicturesInParts) {
  constexpr uint32_t kSide = 2500;
  Bytes samples(size_t{kSide} * kSide, 90);
  for (size_t i = 0; i < samples.size(); i += 10007) samples[i] = static_cast<uint8_t>(i);
  Codec codec;
  kv_j2k_set_limits(codec, 0, 0, 1);
  codec.set_raw(samples, kSide, kSide, 1);
  codec.set_input(codec.output(KV_J2K_OUTPUT_J2K));
  EXPECT_TRUE(codec.output(KV_J2K_OUTPUT_PLANES) == samples);
}

TEST(Decode, QualityLayersBringThePictureNearer) {
  Recipe recipe;
  recipe.rates = {20, 8, 1};
  Codec codec(recipe);
  const auto error_with = [&](int32_t level) {
    kv_j2k_set_input_j2k_quality_level(codec, level);
    return distance(codec.output(), expected(recipe, recipe.area));
  };
  EXPECT_EQ(error_with(1), 0) << "all of them";
  EXPECT_EQ(error_with(3), 0);
  EXPECT_GT(error_with(2), 0);
  EXPECT_GT(error_with(0x101), error_with(2)) << "the first one";
}

TEST(Decode, SubsampledComponentsAreEnlarged) {
  Recipe recipe({5, 0, 61, 47});
  recipe.spacings = {1, 2, 3, 4};
  Codec codec(recipe);
  for (const Rectangle& area :
       {recipe.area, {7, 9, 40, 33}, {5, 0, 7, 1}, {59, 45, 60, 46}, {60, 46, 61, 47}}) {
    codec.set_region(area);
    EXPECT_EQ(codec.output(), expected(recipe, area)) << "as cut out of the whole picture";
  }
  recipe.area = {5, 5, 9, 9};
  codec.set_input(encode(recipe));
  codec.set_region({});
  kv_j2k_set_input_j2k_resolution_level(codec, 4, 0);
  EXPECT_EQ(codec.output().size(), 4u) << "no sample of the fourth component stands at a full 32";
}

TEST(Decode, SamplesOfOtherDepths) {
  for (const bool is_signed : {false, true}) {
    for (const uint32_t precision : {1u, 4u, 8u, 12u, 16u}) {
      Recipe recipe;
      recipe.precision = precision;
      recipe.is_signed = is_signed;
      const int32_t full = (1 << precision) - 1;
      const int32_t offset = is_signed ? 1 << (precision - 1) : 0;
      const auto scaled = [&](uint32_t c, uint32_t x, uint32_t y) {
        const int32_t value = sample_at(recipe, c, x, y) + offset;
        return precision > 8 ? value >> (precision - 8) : (value * 255 + full / 2) / full;
      };
      EXPECT_EQ(Codec(recipe).output(), planes(3, 61, 47, scaled)) << precision << is_signed;
    }
  }
}

TEST(MemoryOutput, FillsABufferThatIsLargeEnough) {
  const Codec codec((Recipe()));
  const Bytes untouched(kSize + 8, 0xEE);
  Bytes filled = expected(Recipe(), {0, 0, 61, 47});
  filled.resize(untouched.size(), 0xEE);
  const std::pair<uint32_t, int32_t> rooms[] = {
      {0, 0}, {kSize - 1, KV_J2K_ERR_BUFFER_TOO_SMALL}, {kSize, 0}};
  for (const auto& [room, code] : rooms) {
    Bytes buffer = untouched;
    void* data = buffer.data();
    uint32_t length = room;
    EXPECT_EQ(kv_j2k_get_output_image(codec, &data, &length), code);
    EXPECT_EQ(length, kSize) << "which a query, of no length, asks for";
    EXPECT_EQ(buffer, room < kSize ? untouched : filled);
  }
}

TEST(MemoryOutput, IsThatOfTheLastInput) {
  Codec codec((Recipe()));
  codec.output();
  codec.set_raw({1, 2}, 2, 1, 1);
  EXPECT_EQ(codec.output(), (Bytes{1, 2}));
  for (const int32_t type : {0, 72, 79, 89, 128}) {
    EXPECT_TRUE(codec.output(type).empty());
    EXPECT_EQ(codec.result, 0) << type;
  }
  codec.set_input({0xFF});
  codec.output(KV_J2K_OUTPUT_PLANES);
  EXPECT_EQ(codec.result, KV_J2K_ERR_NO_INPUT);
  EXPECT_NE(codec.error_text(), "");
  EXPECT_EQ(kv_j2k_set_input_image_raw(codec, nullptr, 0, 10, 3, 24, 0), 0);
  EXPECT_EQ(codec.error_text(), "") << "a success clears the text";
  EXPECT_TRUE(codec.output(KV_J2K_OUTPUT_PNG).empty());
}

TEST(Arguments, AreJudged) {
  Codec codec;
  uint32_t number = 7;
  EXPECT_EQ(kv_j2k_destroy(nullptr), KV_J2K_ERR_BAD_HANDLE);
  EXPECT_EQ(kv_j2k_set_output_type(nullptr, 64), KV_J2K_ERR_BAD_HANDLE);
  EXPECT_STRNE(kv_j2k_get_error_text(nullptr), "");
  EXPECT_EQ(kv_j2k_get_input_image_info(codec, &number, nullptr, nullptr, nullptr),
            KV_J2K_ERR_NO_INPUT);
  EXPECT_EQ(number, 0u);
  constexpr uint32_t kMost = UINT32_MAX;
  for (const int32_t code :
       {kv_j2k_create(nullptr), kv_j2k_get_output_image(codec, nullptr, &number),
        kv_j2k_get_output_image_file(codec, nullptr), kv_j2k_set_input_image(codec, nullptr, 5),
        kv_j2k_set_input_image_raw(codec, nullptr, 1, 1, 1, 24, 0),
        kv_j2k_set_input_image_raw(codec, "", kMost, kMost, kMost, 24, 0)}) {
    EXPECT_EQ(code, KV_J2K_ERR_INVALID_ARGUMENT);
  }
}

}  // namespace
