// Broken and hostile codestreams: refused or decoded, but quickly, in little memory and safely.
#include <gtest/gtest.h>

#include <chrono>

#include "test_pictures.h"

namespace {

// Offsets of fields in the SIZ segment, counted from the start of the codestream.
constexpr size_t kXsiz = 8;
constexpr size_t kYsiz = 12;
constexpr size_t kXtsiz = 24;
constexpr size_t kYtsiz = 28;
constexpr size_t kCsiz = 40;

void put32(Bytes& bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<uint8_t>(value >> (24 - 8 * i));
}

size_t find_marker(const Bytes& bytes, uint8_t code) {
  for (size_t i = 0; i + 1 < bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == code) return i;
  }
  return bytes.size();
}

int32_t decode(const Bytes& codestream) {
  Codec codec;
  const int32_t code = codec.set_input(codestream);
  if (code != 0) return code;
  codec.output();
  if (codec.result != 0) {
    EXPECT_NE(codec.error_text(), "");
  }
  return codec.result;
}

// A single gray tile of this size, and nothing in it.
Bytes resized(uint32_t width, uint32_t height) {
  Recipe recipe;
  recipe.spacings = {1};
  Bytes codestream = encode(recipe);
  put32(codestream, kXsiz, width);
  put32(codestream, kYsiz, height);
  put32(codestream, kXtsiz, width);
  put32(codestream, kYtsiz, height);
  return codestream;
}

class Hostile : public testing::Test {
 protected:
  ~Hostile() override {
    EXPECT_LT(std::chrono::steady_clock::now() - start_, std::chrono::seconds(60));
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

TEST_F(Hostile, CutOffAnywhere) {
  Recipe recipe;
  recipe.tile = 32;
  const Bytes codestream = encode(recipe);
  const size_t first_tile = find_marker(codestream, 0x90);
  ASSERT_LT(first_tile, codestream.size());
  for (size_t length = 1; length + 2 < codestream.size(); length += length < 400 ? 1 : 37) {
    const Bytes cut(codestream.begin(), codestream.begin() + static_cast<std::ptrdiff_t>(length));
    const int32_t code = decode(cut);
    EXPECT_EQ(code, KV_J2K_ERR_BROKEN_CODESTREAM) << length;
  }
  Codec codec(codestream);
  EXPECT_EQ(codec.set_input(Bytes(codestream.begin(), codestream.begin() + 20)),
            KV_J2K_ERR_BROKEN_CODESTREAM);
  codec.output();
  EXPECT_EQ(codec.result, KV_J2K_ERR_NO_INPUT) << "the input before is gone";
}

TEST_F(Hostile, HeaderBytesChanged) {
  Recipe recipe;
  recipe.x1 = recipe.y1 = 24;
  recipe.tile = 16;
  const Bytes codestream = encode(recipe);
  const size_t end = find_marker(codestream, 0x93) + 8;
  for (size_t at = 0; at < end; ++at) {
    for (const int change : {0x01, 0x80, 0xFF}) {
      Bytes changed = codestream;
      changed[at] = static_cast<uint8_t>(changed[at] ^ change);
      decode(changed);
    }
  }
}

TEST_F(Hostile, AbsurdSizesAreRefused) {
  EXPECT_EQ(decode(resized(0x7FFFFFFF, 0x7FFFFFFF)), KV_J2K_ERR_LIMIT);
  EXPECT_EQ(decode(resized(0xFFFFFFFF, 1)), KV_J2K_ERR_BROKEN_CODESTREAM);
  EXPECT_EQ(decode(resized(40000, 40000)), KV_J2K_ERR_LIMIT);
  EXPECT_EQ(decode(resized(0, 10)), KV_J2K_ERR_BROKEN_CODESTREAM);

  Bytes many_tiles = resized(200, 200);
  put32(many_tiles, kXtsiz, 1);
  put32(many_tiles, kYtsiz, 1);
  EXPECT_EQ(decode(many_tiles), KV_J2K_ERR_BROKEN_CODESTREAM);
  Bytes no_tiles = resized(200, 200);
  put32(no_tiles, kXtsiz, 0);
  EXPECT_EQ(decode(no_tiles), KV_J2K_ERR_BROKEN_CODESTREAM);

  Bytes many_components = resized(10, 10);
  many_components.at(kCsiz) = 0xFF;
  EXPECT_EQ(decode(many_components), KV_J2K_ERR_BROKEN_CODESTREAM);
}

// Inserts a COD segment without decomposition levels, with precincts of 2^exponent squared.
Bytes with_coding_style(const Bytes& codestream, size_t position, uint8_t exponent,
                        uint8_t layers_high_byte = 0) {
  const uint8_t precinct = static_cast<uint8_t>(exponent | exponent << 4);
  const uint8_t cod[] = {0xFF, 0x52, 0, 13, 1, 0, layers_high_byte, 1, 0, 0, 4, 4, 0, 1, precinct};
  Bytes result = codestream;
  result.insert(result.begin() + static_cast<std::ptrdiff_t>(position), cod, cod + sizeof cod);
  return result;
}

TEST_F(Hostile, CostlyCodingStylesAreRefusedWhereverTheyStand) {
  const Bytes codestream = resized(5000, 5000);
  const size_t cod = find_marker(codestream, 0x52);
  EXPECT_EQ(Codec().set_input(codestream), 0) << "the size alone is not too much";
  EXPECT_EQ(Codec().set_input(with_coding_style(codestream, cod, 8)), 0);
  EXPECT_EQ(Codec().set_input(with_coding_style(codestream, cod, 1)), KV_J2K_ERR_LIMIT);
  EXPECT_EQ(Codec().set_input(with_coding_style(codestream, cod, 8, 0xFF)), KV_J2K_ERR_LIMIT)
      << "too many layers";
  const size_t tile_header = find_marker(codestream, 0x90) + 12;
  EXPECT_EQ(Codec().set_input(with_coding_style(codestream, tile_header, 1)), KV_J2K_ERR_LIMIT);

  // OpenJPEG finds a segment that stands inside one that it does not know.
  Bytes hidden = with_coding_style(codestream, cod, 1);
  const uint8_t unknown[] = {0xFF, 0x70, 0, 17};
  hidden.insert(hidden.begin() + static_cast<std::ptrdiff_t>(cod), unknown, unknown + 4);
  EXPECT_EQ(Codec().set_input(hidden), KV_J2K_ERR_LIMIT);
}

TEST_F(Hostile, LimitsAreASetting) {
  Recipe recipe;
  const Bytes codestream = encode(recipe);
  Codec codec;
  const uint64_t enough = uint64_t{1} << 20;
  EXPECT_EQ(kv_j2k_set_limits(codec, 1, 0, 0), 0);
  EXPECT_EQ(codec.set_input(codestream), KV_J2K_ERR_LIMIT);
  kv_j2k_set_limits(codec, enough, 0, 1);
  EXPECT_EQ(codec.set_input(codestream), 0) << "one byte for every 4096 samples";
  kv_j2k_set_limits(codec, enough, 1, 1);
  codec.output();
  EXPECT_EQ(codec.result, KV_J2K_ERR_LIMIT);
  kv_j2k_set_limits(codec, enough, 1, enough);
  EXPECT_EQ(codec.output().size(), 61u * 47 * 3);
}

TEST_F(Hostile, ALargePictureIsDecodedInParts) {
  Recipe recipe;
  recipe.x1 = recipe.y1 = 600;
  Codec whole(recipe);
  kv_j2k_set_limits(whole, 100000, 0, 0);
  whole.output();
  EXPECT_EQ(whole.result, KV_J2K_ERR_LIMIT);
  kv_j2k_set_input_j2k_region_level(whole, 300, 300, 350, 350);
  EXPECT_EQ(whole.output().size(), 3u * 50 * 50);
}

}  // namespace
