// Output formats, read back by other means than the codec's own, and output files.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
// clang-format off
#include <jpeglib.h>
// clang-format on

#include <algorithm>
#include <csignal>

#include "support/files.h"
#include "test_pictures.h"

namespace {

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

uint32_t little_endian(const Bytes& bytes, size_t at, size_t count) {
  uint32_t result = 0;
  while (count-- > 0) result = result << 8 | bytes.at(at + count);
  return result;
}

Bytes read_bmp(const Bytes& bmp) {
  EXPECT_EQ(little_endian(bmp, 0, 2), uint32_t{'B' | 'M' << 8});
  EXPECT_EQ(little_endian(bmp, 2, 4), bmp.size());
  EXPECT_EQ(little_endian(bmp, 18, 4), kWidth);
  EXPECT_EQ(little_endian(bmp, 22, 4), kHeight);
  const uint32_t components = little_endian(bmp, 28, 2) / 8;
  const uint32_t header = little_endian(bmp, 14, 4);
  EXPECT_EQ(header, components == 4 ? 108u : 40u);
  EXPECT_EQ(little_endian(bmp, 10, 4), 14 + header + 4 * little_endian(bmp, 46, 4));
  const uint32_t stride = (kWidth * components + 3) / 4 * 4;
  const uint32_t blue_first[] = {components == 1 ? 0u : 2u, 1, 0, 3};
  EXPECT_EQ(bmp.size(), little_endian(bmp, 10, 4) + kHeight * stride);
  return planes(kHeight, components, kWidth, [&](uint32_t y, uint32_t c, uint32_t x) {
    return bmp.at(bmp.size() - (y + 1) * stride + x * components + blue_first[c]);
  });
}

Bytes read_png(const Bytes& file) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_memory(&png, file.data(), file.size()));
  EXPECT_EQ(png.width, kWidth);
  Bytes pixels(PNG_IMAGE_SIZE(png));
  EXPECT_TRUE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr));
  return pixels;
}

Bytes read_tiff(const Bytes& bytes) {
  const TempFile file(std::string(bytes.begin(), bytes.end()));
  TIFF* tiff = TIFFOpen(file.path(), "r");
  uint16_t extra = 0, photometric = 0;
  uint16_t* extra_types = nullptr;
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extra, &extra_types);
  EXPECT_EQ(TIFFScanlineSize(tiff), kWidth * (extra + (photometric == PHOTOMETRIC_RGB ? 3 : 1)));
  Bytes pixels(1000);
  const tmsize_t size = TIFFReadEncodedStrip(tiff, 0, pixels.data(), -1);
  TIFFClose(tiff);
  pixels.resize(static_cast<size_t>(size));
  return pixels;
}

Bytes read_jpeg(const Bytes& file) {
  jpeg_error_mgr errors;
  jpeg_decompress_struct jpeg = {};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&jpeg);
  jpeg_mem_src(&jpeg, file.data(), file.size());
  jpeg_read_header(&jpeg, TRUE);
  jpeg_start_decompress(&jpeg);
  const size_t stride = jpeg.output_width * static_cast<size_t>(jpeg.output_components);
  Bytes pixels(stride * jpeg.output_height);
  for (uint8_t* row = pixels.data(); jpeg.output_scanline < jpeg.output_height; row += stride) {
    jpeg_read_scanlines(&jpeg, &row, 1);
  }
  jpeg_destroy_decompress(&jpeg);
  return pixels;
}

TEST(Formats, AreUnderstoodByOthers) {
  const struct {
    int32_t type;
    Bytes (*read)(const Bytes&);
    std::vector<uint32_t> components;
    int error;
  } formats[] = {{KV_J2K_OUTPUT_INTERLEAVED, [](const Bytes& bytes) { return bytes; }, {3}, 0},
                 {KV_J2K_OUTPUT_BMP, read_bmp, {1, 3, 4}, 0},
                 {KV_J2K_OUTPUT_PNG, read_png, {1, 2, 3, 4}, 0},
                 {KV_J2K_OUTPUT_TIFF, read_tiff, {1, 2, 3, 4, 6}, 0},
                 {KV_J2K_OUTPUT_JPEG, read_jpeg, {1, 3}, 6}};
  for (const auto& [type, read, all_components, error] : formats) {
    for (const uint32_t components : all_components) {
      const Bytes pixels = read(encoded(components, type));
      EXPECT_LE(distance(pixels, interleaved(components)), error) << type << ' ' << components;
    }
  }
}

TEST(Formats, BmpHasAPaletteOrMasks) {
  EXPECT_EQ(little_endian(encoded(1, KV_J2K_OUTPUT_BMP), 54 + 4 * 200, 4), 200u * 0x010101);
  EXPECT_EQ(little_endian(encoded(4, KV_J2K_OUTPUT_BMP), 54, 4), 0x00FF0000u) << "red";
}

TEST(Formats, PnmHeadersTellTheComponents) {
  const std::string size = "P7\nWIDTH 7\nHEIGHT 5\nDEPTH ";
  const std::string headers[] = {
      "P5\n7 5\n255\n", size + "2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n",
      "P6\n7 5\n255\n", size + "4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
      size + "5\nMAXVAL 255\nENDHDR\n"};
  for (uint32_t components = 1; components <= 5; ++components) {
    Bytes expected = interleaved(components);
    const std::string& header = headers[components - 1];
    expected.insert(expected.begin(), header.begin(), header.end());
    EXPECT_EQ(encoded(components, KV_J2K_OUTPUT_PNM), expected);
  }
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
  EXPECT_LE(distance(read_jpeg(file), interleaved), 40);
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
    const std::string text(jp2.begin(), jp2.end());
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
  const std::string fresh = std::string(file.path()) + ".new";
  const std::string link = std::string(file.path()) + ".link";
  ASSERT_EQ(symlink(file.path(), link.c_str()), 0);
  // A limit on file sizes stands for a full disk.
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full = {2, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  codec.set_raw({4, 5, 6}, 3, 1, 1);
  for (const std::string& path : {link, fresh}) {
    EXPECT_EQ(kv_j2k_get_output_image_file(codec, path.c_str()), KV_J2K_ERR_FILE_IO);
  }
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(file.contents(), "\1\2\3");
  EXPECT_NE(access(fresh.c_str(), F_OK), 0) << "half a file";
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, fresh.c_str()), 0);
  EXPECT_EQ(unlink(fresh.c_str()), 0) << "a whole one stays";
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, link.c_str()), 0);
  EXPECT_EQ(file.contents(), "\4\5\6") << "a link stays one";
  unlink(link.c_str());

  const char* const missing = "/nonexistent/folder/picture";
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, missing), KV_J2K_ERR_OPEN_FILE);
  EXPECT_NE(codec.error_text().find(missing), std::string::npos);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, "/dev/full"), KV_J2K_ERR_FILE_IO)
      << "three bytes fit into any buffer, so the error shows late";
}

}  // namespace
