// Samples as they were coded: all of them, parts of them, and what is left of damaged codestreams.
#include <gtest/gtest.h>
#include <kv_j2k_samples.h>

#include <algorithm>
#include <memory>

#include "test_pictures.h"

namespace {

using Samples = std::unique_ptr<kv_j2k_samples, decltype(&kv_j2k_free_samples)>;

// A handle that borrows its codestream.
struct SampleCodec : Codec {
  explicit SampleCodec(Bytes bytes) : codestream(std::move(bytes)) {
    result = kv_j2k_set_input_borrowed(*this, codestream.data(), codestream.size());
  }
  Samples decode() {
    kv_j2k_samples* samples = nullptr;
    result = kv_j2k_decode_samples(*this, &request, &samples);
    EXPECT_EQ(result == 0, samples != nullptr) << error_text();
    return Samples(samples, &kv_j2k_free_samples);
  }
  void ask(const Rectangle& area) {
    request.left = area.left;
    request.top = area.top;
    request.right = area.right;
    request.bottom = area.bottom;
  }

  Bytes codestream;
  kv_j2k_sample_request request = {sizeof request, 0, 0, 0, 0, 0, 0, 0, nullptr, 0, 2};
};

// How many samples are not the recipe's; of those within `area` of the reference grid, if given.
size_t differences(const Recipe& recipe, const kv_j2k_plane& plane,
                   const Rectangle& area = {0, 0, UINT32_MAX, UINT32_MAX}) {
  size_t count = 0;
  for (uint32_t j = 0; j < plane.height; ++j) {
    for (uint32_t i = 0; i < plane.width; ++i) {
      const uint32_t x = (plane.x0 + i) * plane.dx, y = (plane.y0 + j) * plane.dy;
      if (x < area.left || x >= area.right || y < area.top || y >= area.bottom) continue;
      count += plane.samples[j * plane.width + i] !=
               sample_at(recipe, plane.component, plane.x0 + i, plane.y0 + j);
    }
  }
  return count;
}

double mean_error(const Recipe& recipe, const kv_j2k_plane& plane) {
  double sum = 0;
  for (uint32_t i = 0; i < plane.width * plane.height; ++i) {
    sum += std::abs(plane.samples[i] - sample_at(recipe, 0, i % plane.width, i / plane.width));
  }
  return sum / plane.width / plane.height;
}

TEST(Samples, AreThoseThatWereCoded) {
  for (const bool is_signed : {false, true}) {
    for (const uint32_t precision : {1u, 8u, 12u, 16u}) {
      for (const int tile : {0, 16}) {
        Recipe recipe({5, 3, 61, 47});
        recipe.precision = precision;
        recipe.is_signed = is_signed;
        recipe.spacings = {1, 2, tile != 0 ? 2u : 4u, 1};  // as OpenJPEG can encode them
        recipe.tile = tile;
        SampleCodec codec(encode(recipe));
        const uint32_t wanted[] = {1, 2, 3};
        codec.request.components = wanted;
        codec.request.component_count = 3;
        for (const Rectangle& area : {Rectangle{0, 0, 0, 0},
                                      {5, 3, 61, 20},
                                      {5, 20, 61, 47},
                                      {17, 16, 18, 17},
                                      {30, 10, 60, 40}}) {
          codec.ask(area);
          const Rectangle asked = area.right == 0 ? recipe.area : area;
          const Samples samples = codec.decode();
          ASSERT_NE(samples, nullptr);
          ASSERT_EQ(samples->plane_count, 3u);
          EXPECT_TRUE(samples->is_complete);
          for (uint32_t p = 0; p < 3; ++p) {
            const kv_j2k_plane& plane = samples->planes[p];
            const uint32_t spacing = recipe.spacings[wanted[p]];
            EXPECT_EQ(plane.precision, precision);
            EXPECT_EQ(plane.is_signed, is_signed);
            EXPECT_EQ(plane.x0, ceil_div(asked.left, spacing));
            EXPECT_EQ(plane.y0 + plane.height, ceil_div(asked.bottom, spacing));
            EXPECT_EQ(plane.x0 + plane.width, ceil_div(asked.right, spacing));
            EXPECT_EQ(differences(recipe, plane), 0u);
          }
        }
      }
    }
  }
}

// Strips, whose decoders go on where the last one ended, are just parts of the whole; at reduced
// resolution and with few layers, too, and whatever the wavelet transformation.
TEST(Samples, StripsAreThoseOfTheWhole) {
  for (const int tile : {0, 100}) {
    Recipe recipe({3, 1, 333, 290});
    recipe.tile = tile;
    recipe.rates = {40, 10};
    recipe.is_irreversible = true;
    SampleCodec codec(encode(recipe));
    for (const uint32_t reduction : {0u, 2u}) {
      codec.request.reduction = reduction;
      codec.request.layers = 1;
      codec.ask({0, 0, 0, 0});
      const Samples whole = codec.decode();
      std::vector<int32_t> strips[3];
      for (uint32_t top = 1; top < 290; top += 12) {
        codec.ask({3, top, 333, std::min(290u, top + 12)});
        const Samples part = codec.decode();
        ASSERT_NE(part, nullptr);
        for (size_t p = 0; p < 3; ++p) {
          const kv_j2k_plane& plane = part->planes[p];
          strips[p].insert(strips[p].end(), plane.samples,
                           plane.samples + plane.width * plane.height);
        }
      }
      for (size_t p = 0; p < 3; ++p) {
        const kv_j2k_plane& plane = whole->planes[p];
        EXPECT_EQ(strips[p],
                  std::vector<int32_t>(plane.samples, plane.samples + plane.width * plane.height));
      }
    }
  }
}

TEST(Samples, OfTheFirstLayersAreFurtherAway) {
  Recipe recipe;
  recipe.rates = {20, 1};
  SampleCodec codec(encode(recipe));
  EXPECT_EQ(differences(recipe, codec.decode()->planes[0]), 0u);
  codec.request.layers = 1;
  EXPECT_GT(differences(recipe, codec.decode()->planes[0]), 500u);
}

TEST(Damage, CostsNoMoreThanTheTileItIsIn) {
  Recipe recipe;
  recipe.tile = 32;  // two by two
  const Bytes whole = encode(recipe);
  const std::vector<size_t> tiles = marker_places(whole, 0x90);
  ASSERT_EQ(tiles.size(), 4u);
  const struct {
    const char* what;
    size_t place;
    size_t overwritten;  // bytes from there; 0: cut off there
    uint8_t value;
    std::vector<uint32_t> missing;  // tiles; others may be incomplete
  } cases[] = {{"the last tile's end", tiles[3] + 500, 0, 0, {}},
               {"cut in a tile's header", tiles[3] + 13, 0, 0, {3}},
               {"two tiles cut off", tiles[2] + 5, 0, 0, {2, 3}},
               {"a wrong length", tiles[1] + 6, 1, 0x7F, {}},
               {"no tile's header", tiles[1], 1, 0, {1}},
               {"broken packets", tiles[1] + 14, 386, 0xFD, {}}};
  for (const auto& [what, place, overwritten, value, missing] : cases) {
    Bytes damaged = whole;
    damaged.resize(overwritten == 0 ? place : whole.size());
    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(place), overwritten, value);
    SampleCodec codec(damaged);
    EXPECT_EQ(codec.result, 0) << what;
    EXPECT_EQ(codec.decode(), nullptr) << what;
    EXPECT_EQ(codec.result, KV_J2K_ERR_BROKEN_CODESTREAM) << what;
    codec.request.flags = KV_J2K_SAMPLES_PARTIAL;
    const Samples samples = codec.decode();
    ASSERT_NE(samples, nullptr) << what;
    EXPECT_FALSE(samples->is_complete) << what;
    EXPECT_NE(std::string(samples->missing).find("tile"), std::string::npos) << samples->missing;
    const std::vector<uint32_t> told(samples->missing_tiles,
                                     samples->missing_tiles + samples->missing_tile_count);
    EXPECT_EQ(told, missing) << what << ": " << samples->missing;
    const Rectangle areas[] = {{0, 0, 32, 32}, {32, 0, 61, 32}, {0, 32, 32, 47}, {32, 32, 61, 47}};
    for (uint32_t tile = 0; tile < 4; ++tile) {
      const size_t wrong = differences(recipe, samples->planes[0], areas[tile]);
      const bool is_missing = std::count(told.begin(), told.end(), tile) > 0;
      const bool is_damaged =
          std::string(samples->missing).find("data of tile " + std::to_string(tile)) !=
          std::string::npos;
      EXPECT_LE(wrong > 0, is_missing || is_damaged) << what << tile << samples->missing;
      if (is_missing) {
        EXPECT_EQ(samples->planes[0].samples[areas[tile].top * 61 + areas[tile].left], 128);
      }
    }
  }
}

TEST(Damage, AMissingEndMarkerIsNone) {
  Recipe recipe;
  Bytes bytes = encode(recipe);
  for (int lost = 0; lost < 2; ++lost) {
    bytes.pop_back();
    SampleCodec codec(bytes);
    EXPECT_EQ(differences(recipe, codec.decode()->planes[2]), 0u);
  }
  bytes.pop_back();
  SampleCodec codec(bytes);
  EXPECT_EQ(codec.decode(), nullptr);
  codec.request.flags = KV_J2K_SAMPLES_PARTIAL;
  const Samples samples = codec.decode();
  EXPECT_STREQ(samples->missing, "a part of the image's data");
  EXPECT_EQ(differences(recipe, samples->planes[0]), 0u) << "its packets stand before the end";
}

// Every packet that is there counts, so there is more of the picture the more there is of the file;
// and what is made up for the rest does not show.
TEST(Damage, CutAnywhereThereIsAPictureOrAReason) {
  for (const int kind : {0, 1, 2, 3}) {
    Recipe recipe({0, 0, 130, 130});
    recipe.tile = kind == 1 ? 64 : 0;
    recipe.has_markers = kind == 2;
    if (kind < 3) recipe.rates = {20, 8, 1};
    const Bytes whole = encode(recipe);
    double error = 255;
    for (size_t length = 1; length < whole.size(); length += length < 400 ? 7 : 2399) {
      SampleCodec codec(Bytes(whole.data(), whole.data() + length));
      const bool is_taken = codec.result == 0;
      if (is_taken) codec.output();
      // Only the end marker may be missing.
      const bool is_whole = length + 2 >= whole.size();
      EXPECT_EQ(codec.result, is_whole ? 0 : KV_J2K_ERR_BROKEN_CODESTREAM) << length;
      codec.request.flags = KV_J2K_SAMPLES_PARTIAL;
      const Samples samples = codec.decode();
      if (samples == nullptr) {
        EXPECT_LT(length, 300u) << kind;
        EXPECT_EQ(codec.result, is_taken ? KV_J2K_ERR_BROKEN_CODESTREAM : KV_J2K_ERR_NO_INPUT);
        continue;
      }
      EXPECT_FALSE(samples->is_complete);
      const double now = mean_error(recipe, samples->planes[0]);
      EXPECT_LT(now, error * 1.25 + 1) << kind << " of " << length;
      error = std::min(error, now);
    }
    EXPECT_LT(error, 5) << kind;
  }
}

TEST(Samples, DescribeThemselvesAndJudgeRequests) {
  Recipe recipe({5, 3, 61, 47});
  recipe.tile = 32;
  recipe.precision = 12;
  recipe.spacings = {1, 2};
  SampleCodec codec(encode(recipe));
  kv_j2k_codestream image = {};
  EXPECT_EQ(kv_j2k_get_codestream(codec, &image), KV_J2K_ERR_INVALID_ARGUMENT);
  image.size = sizeof image;
  EXPECT_EQ(kv_j2k_get_codestream(codec, &image), 0);
  const uint32_t told[] = {image.components,  image.left,      image.top,      image.right,
                           image.bottom,      image.tile_left, image.tile_top, image.tile_width,
                           image.tile_height, image.levels};
  EXPECT_EQ(std::vector<uint32_t>(told, told + 10),
            (std::vector<uint32_t>{2, 5, 3, 61, 47, 0, 0, 32, 32, 3}));
  kv_j2k_component component = {sizeof component, 0, 0, 0, 0};
  EXPECT_EQ(kv_j2k_get_component(codec, 1, &component), 0);
  EXPECT_EQ(component.precision * 100 + component.dx * 10 + component.dy, 1222u);
  EXPECT_EQ(kv_j2k_get_component(codec, 2, &component), KV_J2K_ERR_INVALID_ARGUMENT);

  const kv_j2k_sample_request good = codec.request;
  const uint32_t twice[] = {0, 0}, beyond[] = {0, 2};
  std::vector<kv_j2k_sample_request> bad(7, good);
  bad[0].size = 0;
  bad[1].right = 5;
  bad[2].right = bad[2].bottom = 62;
  bad[3].reduction = 4;
  bad[4].components = twice;
  bad[4].component_count = 2;
  bad[5].components = beyond;
  bad[5].component_count = 2;
  bad[6].components = twice;
  for (const kv_j2k_sample_request& request : bad) {
    codec.request = request;
    codec.decode();
    EXPECT_EQ(codec.result, KV_J2K_ERR_INVALID_ARGUMENT);
  }
  codec.request = good;
  kv_j2k_set_limits(codec, 100, 0, 0);
  codec.decode();
  EXPECT_EQ(codec.result, KV_J2K_ERR_LIMIT);
  EXPECT_NE(codec.error_text().find("kv_j2k_set_limits"), std::string::npos) << codec.error_text();
  codec.set_raw({1}, 1, 1, 1);
  codec.decode();
  EXPECT_EQ(codec.result, KV_J2K_ERR_NO_INPUT);
}

}  // namespace
