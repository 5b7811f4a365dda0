// Hostile codestreams: refused or decoded, but quickly, in little memory and safely.
#include <gtest/gtest.h>

#include <array>

#include "test_pictures.h"

namespace {

Bytes inserted(Bytes bytes, size_t at, const Bytes& more) {
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), more.begin(), more.end());
  return bytes;
}

int32_t decode(Codec& codec, const Bytes& codestream) {
  const int32_t code = codec.set_input(codestream);
  if (code == 0) codec.output();
  return code == 0 ? codec.result : code;
}

// A codestream whose SIZ segment tells of another size than its data is for.
Bytes resized(uint32_t width, uint32_t height, uint32_t tile_width, uint32_t tile_height) {
  Recipe recipe;
  recipe.spacings = {1};
  Bytes codestream = encode(recipe);
  const std::pair<size_t, uint32_t> fields[] = {
      {8, width}, {12, height}, {24, tile_width}, {28, tile_height}};
  for (const auto& [at, value] : fields) {
    for (size_t i = 0; i < 4; ++i) {
      codestream.at(at + i) = static_cast<uint8_t>(value >> (24 - 8 * i));
    }
  }
  return codestream;
}

TEST(Hostile, AbsurdSizesAreRefused) {
  constexpr uint32_t kMost = 0x7FFFFFFF;
  Bytes many_components = resized(10, 10, 10, 10);
  many_components.at(40) = 0xFF;
  const std::pair<Bytes, int32_t> codestreams[] = {
      {resized(kMost, kMost, kMost, kMost), KV_J2K_ERR_LIMIT},
      {resized(40000, 40000, 40000, 40000), KV_J2K_ERR_LIMIT},
      {resized(0xFFFFFFFF, 1, 0xFFFFFFFF, 1), KV_J2K_ERR_BROKEN_CODESTREAM},
      {resized(0, 10, 1, 10), KV_J2K_ERR_BROKEN_CODESTREAM},
      {resized(200, 200, 1, 1), KV_J2K_ERR_BROKEN_CODESTREAM},
      {resized(200, 200, 0, 200), KV_J2K_ERR_BROKEN_CODESTREAM},
      {many_components, KV_J2K_ERR_BROKEN_CODESTREAM}};
  Codec codec;
  for (const auto& [codestream, code] : codestreams) EXPECT_EQ(decode(codec, codestream), code);
}

// A COD segment without decomposition levels, with precincts of 2^exponent squared.
Bytes coding_style(uint8_t exponent, uint8_t layers_high_byte = 0) {
  const uint8_t precinct = static_cast<uint8_t>(exponent | exponent << 4);
  return {0xFF, 0x52, 0, 13, 1, 0, layers_high_byte, 1, 0, 0, 4, 4, 0, 1, precinct};
}

TEST(Hostile, CostlyCodingStylesAreRefusedWhereverTheyStand) {
  const Bytes codestream = resized(5000, 5000, 5000, 5000);
  const size_t main_header = marker_places(codestream, 0x52).at(0);
  const size_t tile_header = marker_places(codestream, 0x90).at(0) + 12;
  const auto code_with = [&](size_t at, const Bytes& segment) {
    return Codec().set_input(inserted(codestream, at, segment));
  };
  EXPECT_EQ(code_with(main_header, {}), 0) << "the size alone is not too much";
  EXPECT_EQ(code_with(main_header, coding_style(8)), 0);
  EXPECT_EQ(code_with(main_header, coding_style(1)), KV_J2K_ERR_LIMIT);
  EXPECT_EQ(code_with(main_header, coding_style(8, 0xFF)), KV_J2K_ERR_LIMIT) << "layers";
  EXPECT_EQ(code_with(tile_header, coding_style(1)), KV_J2K_ERR_LIMIT);
  // OpenJPEG finds a segment that stands inside one that it does not know.
  EXPECT_EQ(code_with(main_header, inserted(coding_style(1), 0, {0xFF, 0x70, 0, 17})),
            KV_J2K_ERR_LIMIT);
}

TEST(Hostile, LimitsAreASetting) {
  const Bytes codestream = encode(Recipe());
  Codec codec;
  decode(codec, codestream);
  uint64_t work = 0;
  kv_j2k_get_work(codec, &work);
  EXPECT_GE(work, 3u * 61 * 47);
  constexpr uint64_t kEnough = uint64_t{1} << 20;
  const std::pair<std::array<uint64_t, 3>, int32_t> limits[] = {
      {{1, 0, 0}, KV_J2K_ERR_LIMIT},
      {{kEnough, 0, 1}, 0},  // a byte is good for 4096 samples
      {{kEnough, 1, 1}, KV_J2K_ERR_LIMIT},
      {{work, 1, kEnough}, 0},  // what a decoding took is just what it has to be allowed
      {{work - 1, 1, kEnough}, KV_J2K_ERR_LIMIT}};
  for (const auto& [limit, code] : limits) {
    kv_j2k_set_limits(codec, limit[0], limit[1], limit[2]);
    EXPECT_EQ(decode(codec, codestream), code);
  }
  kv_j2k_get_work(codec, &work);
  EXPECT_EQ(work, 0u);
  // A large picture is decoded in parts.
  kv_j2k_set_limits(codec, 500000, 0, 0);
  EXPECT_EQ(decode(codec, encode(Recipe({0, 0, 600, 600}))), KV_J2K_ERR_LIMIT);
  codec.set_region({300, 300, 350, 350});
  EXPECT_EQ(codec.output().size(), 3u * 50 * 50);
}

}  // namespace
