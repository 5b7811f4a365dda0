// Output formats, read back by other means than the codec's own, and output files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "picture/picture_files.h"
#include "support/files.h"
#include "test_pictures.h"

namespace {

using kvjpx::test::Found;
using kvjpx::test::read_jpeg;
using kvjpx::test::read_png;
using kvjpx::test::read_tiff;
using kvjpx::test::TempFile;

constexpr uint32_t kWidth = 7;
constexpr uint32_t kHeight = 5;

// Smooth, so that JPEG keeps it nearly as it is.
uint8_t value(uint32_t c, uint32_t x, uint32_t y) {
  return static_cast<uint8_t>(40 + c * 30 + x * 9 + y * 5);
}

Bytes picture(uint32_t components) { return planes(components, kWidth, kHeight, value); }

Bytes interleaved(uint32_t components) {
  return planes(kHeight, components, kWidth,
                [](uint32_t y, uint32_t c, uint32_t x) { return value(c, x, y); });
}

Bytes encoded(uint32_t components, int32_t type) {
  Codec codec;
  codec.set_raw(picture(components), kWidth, kHeight, components);
  return codec.output(type);
}

std::string text_of(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

Bytes bytes_of(const Found& found) { return Bytes(found.samples.begin(), found.samples.end()); }

TEST(Formats, AreUnderstoodByOthers) {
  const struct {
    int32_t type;
    Found (*read)(const std::string&);
    uint32_t components;
    const char* facts;
  } files[] = {{KV_J2K_OUTPUT_PNG, read_png, 1, "sRGB "},
               {KV_J2K_OUTPUT_PNG, read_png, 2, "sRGB "},
               {KV_J2K_OUTPUT_PNG, read_png, 3, "sRGB "},
               {KV_J2K_OUTPUT_PNG, read_png, 4, "sRGB "},
               {KV_J2K_OUTPUT_TIFF, read_tiff, 1, "photometric 1"},
               {KV_J2K_OUTPUT_TIFF, read_tiff, 2, "photometric 1 extra 2"},
               {KV_J2K_OUTPUT_TIFF, read_tiff, 3, "photometric 2"},
               {KV_J2K_OUTPUT_TIFF, read_tiff, 4, "photometric 2 extra 2"},
               {KV_J2K_OUTPUT_TIFF, read_tiff, 6, "photometric 2 extra 0 extra 0 extra 0"},
               {KV_J2K_OUTPUT_JPEG, read_jpeg, 1, "1x1 unit 0"},
               {KV_J2K_OUTPUT_JPEG, read_jpeg, 3, "1x1 unit 0"}};
  for (const auto& [type, read, components, facts] : files) {
    const Found found = read(text_of(encoded(components, type)));
    const int error = distance(bytes_of(found), interleaved(components));
    EXPECT_LE(error, type == KV_J2K_OUTPUT_JPEG ? 6 : 0) << type << ' ' << components;
    EXPECT_EQ(found.facts, facts);
  }
  EXPECT_EQ(encoded(3, KV_J2K_OUTPUT_INTERLEAVED), interleaved(3));
}

// As Netpbm has read them, which knows no opacity of BMP.
TEST(Formats, ThatTheCodecWritesItselfAreTheGoldenOnes) {
  std::ostringstream written;
  for (const int32_t type : {KV_J2K_OUTPUT_BMP, KV_J2K_OUTPUT_PNM}) {
    for (uint32_t components = 1; components <= 5; ++components) {
      written << std::dec << type << ' ' << components << std::hex;
      for (const unsigned byte : encoded(components, type)) written << ' ' << byte;
      written << '\n';
    }
  }
  EXPECT_EQ(written.str(), kvjpx::test::file_contents("tests/golden/pictures.txt"));
}

TEST(Formats, JpegThatNeedsMoreThanOneBuffer) {
  const auto noise = [](uint32_t c, uint32_t x, uint32_t y) {
    return sample_at(Recipe(), c, x * 7 + y * y, y ^ (x * x)) / 4;
  };
  Codec codec;
  codec.set_raw(planes(3, 512, 512, noise), 512, 512, 3);
  const Bytes interleaved = codec.output(KV_J2K_OUTPUT_INTERLEAVED);
  const Bytes file = codec.output(KV_J2K_OUTPUT_JPEG);
  ASSERT_GT(file.size(), size_t{1} << 17);
  EXPECT_LE(distance(bytes_of(read_jpeg(text_of(file))), interleaved), 40);
}

TEST(Formats, Jpeg2000IsLossless) {
  Codec codec;
  for (uint32_t components = 1; components <= 5; ++components) {
    const Bytes codestream = encoded(components, KV_J2K_OUTPUT_J2K);
    codec.set_input(codestream);
    EXPECT_EQ(codec.output(), picture(components));
    const Bytes jp2 = encoded(components, KV_J2K_OUTPUT_JP2);
    EXPECT_EQ(jp2[7], ' ') << "the end of the signature box's type";
    EXPECT_TRUE(std::equal(codestream.rbegin(), codestream.rend(), jp2.rbegin()));
    const std::string text = text_of(jp2);
    EXPECT_EQ(text.at(text.find("colr") + 10), components >= 3 ? 16 : 17) << "sRGB or grey";
    EXPECT_EQ(text.find("cdef") != text.npos, components == 2 || components == 4) << "opacity";
  }
  codec.set_raw({77}, 1, 1, 1);
  codec.set_input(codec.output(KV_J2K_OUTPUT_J2K));
  EXPECT_EQ(codec.output(KV_J2K_OUTPUT_PLANES), Bytes{77});
}

TEST(Formats, PicturesThatAFormatCantHold) {
  constexpr uint32_t kTooWide = 1000001;
  const uint32_t pictures[][3] = {
      {KV_J2K_OUTPUT_BMP, 1, 2},        {KV_J2K_OUTPUT_BMP, 1, 5},
      {KV_J2K_OUTPUT_PNG, 1, 5},        {KV_J2K_OUTPUT_JPEG, 1, 2},
      {KV_J2K_OUTPUT_JPEG, 1, 4},       {KV_J2K_OUTPUT_J2K, 1, 20000},
      {KV_J2K_OUTPUT_TIFF, 1, 70000},   {KV_J2K_OUTPUT_PNG, kTooWide, 1},
      {KV_J2K_OUTPUT_JPEG, kTooWide, 1}};
  for (const auto& [type, width, components] : pictures) {
    Codec codec;
    codec.set_raw(Bytes(width * components), width, 1, components);
    EXPECT_TRUE(codec.output(static_cast<int32_t>(type)).empty());
    EXPECT_EQ(codec.result, KV_J2K_ERR_UNSUPPORTED) << type;
    EXPECT_NE(codec.error_text().find(std::to_string(width * components)), std::string::npos);
  }
}

TEST(Files, HoldTheOutputOrStayAsTheyAre) {
  const TempFile file;
  Codec codec;
  codec.set_raw({1, 2, 3}, 3, 1, 1);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, file.path()), 0);
  kv_j2k_set_output_type(codec, 128);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, file.path()), KV_J2K_ERR_NOTHING_TO_WRITE);
  EXPECT_EQ(file.contents(), "\1\2\3");

  kv_j2k_set_output_type(codec, KV_J2K_OUTPUT_PLANES);
  codec.set_raw({4, 5, 6}, 3, 1, 1);
  const std::string fresh = std::string(file.path()) + ".new";
  const std::string link = std::string(file.path()) + ".link";
  ASSERT_EQ(symlink(file.path(), link.c_str()), 0);
  for (const std::string& path : {fresh, link}) {
    EXPECT_EQ(kv_j2k_get_output_image_file(codec, path.c_str()), 0);
    EXPECT_EQ(unlink(path.c_str()), 0);
  }
  EXPECT_EQ(file.contents(), "\4\5\6") << "through the link";

  const char* const missing = "/nonexistent/folder/picture";
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, missing), KV_J2K_ERR_OPEN_FILE);
  EXPECT_NE(codec.error_text().find(missing), std::string::npos);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, "/dev/full"), KV_J2K_ERR_FILE_IO)
      << "three bytes fit into any buffer, so the error shows late";
}

}  // namespace
