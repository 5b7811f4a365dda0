// Output formats, read back by other means than the codec's own, and output files.
#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
// clang-format off
#include <jpeglib.h>
// clang-format on

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "test_pictures.h"

namespace {

constexpr uint32_t kWidth = 7;
constexpr uint32_t kHeight = 5;

// Smooth, so that JPEG keeps it nearly as it is.
uint8_t value(uint32_t c, uint32_t x, uint32_t y) {
  return static_cast<uint8_t>(40 + c * 30 + x * 9 + y * 5);
}

Bytes picture(uint32_t components) { return planes(components, kWidth, kHeight, value); }

Bytes interleaved(uint32_t components) {
  Bytes result;
  for (uint32_t y = 0; y < kHeight; ++y) {
    for (uint32_t x = 0; x < kWidth; ++x) {
      for (uint32_t c = 0; c < components; ++c) result.push_back(value(c, x, y));
    }
  }
  return result;
}

Bytes encoded(uint32_t components, int32_t type) {
  Codec codec;
  codec.set_raw(picture(components), kWidth, kHeight, components);
  Bytes output = codec.output(type);
  EXPECT_EQ(codec.result, 0) << codec.error_text();
  return output;
}

uint32_t little_endian(const Bytes& bytes, size_t at, size_t count) {
  uint32_t result = 0;
  while (count-- > 0) result = result << 8 | bytes.at(at + count);
  return result;
}

class TemporaryFile {
 public:
  TemporaryFile() {
    const int file = mkstemp(path_.data());
    if (file >= 0) close(file);
  }
  ~TemporaryFile() { std::remove(path_.c_str()); }
  const char* path() const { return path_.c_str(); }

  Bytes content() const {
    std::ifstream file(path_, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "kvj2k-test-XXXXXX").string();
};

TEST(Formats, Raw) {
  EXPECT_EQ(encoded(3, KV_J2K_OUTPUT_PLANES), picture(3));
  EXPECT_EQ(encoded(3, KV_J2K_OUTPUT_INTERLEAVED), interleaved(3));
}

TEST(Formats, Bmp) {
  for (const uint32_t components : {1u, 3u, 4u}) {
    const Bytes bmp = encoded(components, KV_J2K_OUTPUT_BMP);
    EXPECT_EQ(bmp[0], 'B');
    EXPECT_EQ(bmp[1], 'M');
    EXPECT_EQ(little_endian(bmp, 2, 4), bmp.size());
    EXPECT_EQ(little_endian(bmp, 18, 4), kWidth);
    EXPECT_EQ(little_endian(bmp, 22, 4), kHeight);
    EXPECT_EQ(little_endian(bmp, 28, 2), components * 8);
    const uint32_t offset = little_endian(bmp, 10, 4);
    EXPECT_EQ(offset, components == 1 ? 14u + 40 + 1024 : components == 3 ? 14u + 40 : 14u + 108);
    const uint32_t stride = (kWidth * components + 3) / 4 * 4;
    ASSERT_EQ(bmp.size(), offset + stride * kHeight);
    const uint32_t order[] = {2, 1, 0, 3};  // blue first
    for (uint32_t y = 0; y < kHeight; ++y) {
      for (uint32_t x = 0; x < kWidth; ++x) {
        for (uint32_t c = 0; c < components; ++c) {
          EXPECT_EQ(bmp[offset + (kHeight - 1 - y) * stride + x * components + c],
                    value(components == 1 ? 0 : order[c], x, y));
        }
      }
    }
  }
  const Bytes gray = encoded(1, KV_J2K_OUTPUT_BMP);
  EXPECT_EQ(little_endian(gray, 54 + 4 * 200, 4), 200u * 0x010101);
  EXPECT_EQ(little_endian(encoded(4, KV_J2K_OUTPUT_BMP), 54, 4), 0x00FF0000u) << "red mask";
}

TEST(Formats, Pnm) {
  const std::pair<uint32_t, std::string> headers[] = {
      {1, "P5\n7 5\n255\n"},
      {2, "P7\nWIDTH 7\nHEIGHT 5\nDEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n"},
      {3, "P6\n7 5\n255\n"},
      {4, "P7\nWIDTH 7\nHEIGHT 5\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n"},
      {5, "P7\nWIDTH 7\nHEIGHT 5\nDEPTH 5\nMAXVAL 255\nENDHDR\n"}};
  for (const auto& [components, header] : headers) {
    Bytes expected(header.begin(), header.end());
    const Bytes pixels = interleaved(components);
    expected.insert(expected.end(), pixels.begin(), pixels.end());
    EXPECT_EQ(encoded(components, KV_J2K_OUTPUT_PNM), expected);
  }
}

TEST(Formats, Png) {
  const png_uint_32 formats[] = {PNG_FORMAT_GRAY, PNG_FORMAT_GA, PNG_FORMAT_RGB, PNG_FORMAT_RGBA};
  for (uint32_t components = 1; components <= 4; ++components) {
    const Bytes file = encoded(components, KV_J2K_OUTPUT_PNG);
    png_image png = {};
    png.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&png, file.data(), file.size()));
    EXPECT_EQ(png.width, kWidth);
    EXPECT_EQ(png.height, kHeight);
    EXPECT_EQ(png.format, formats[components - 1]);
    Bytes pixels(PNG_IMAGE_SIZE(png));
    ASSERT_TRUE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr));
    EXPECT_EQ(pixels, interleaved(components));
  }
}

TEST(Formats, Tiff) {
  for (const uint32_t components : {1u, 2u, 3u, 4u, 6u}) {
    const TemporaryFile file;
    Codec codec;
    codec.set_raw(picture(components), kWidth, kHeight, components);
    kv_j2k_set_output_type(codec, KV_J2K_OUTPUT_TIFF);
    ASSERT_EQ(kv_j2k_get_output_image_file(codec, file.path()), 0) << codec.error_text();
    TIFF* tiff = TIFFOpen(file.path(), "r");
    ASSERT_NE(tiff, nullptr);
    uint32_t width = 0, height = 0;
    uint16_t samples = 0, extra = 0, photometric = 0;
    uint16_t* extra_types = nullptr;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetField(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extra, &extra_types);
    EXPECT_EQ(width, kWidth);
    EXPECT_EQ(height, kHeight);
    EXPECT_EQ(samples, components);
    EXPECT_EQ(photometric, components >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    EXPECT_EQ(extra, components - (components >= 3 ? 3 : 1));
    Bytes pixels(size_t{width} * height * samples);
    for (uint32_t y = 0; y < height; ++y) {
      EXPECT_EQ(TIFFReadScanline(tiff, pixels.data() + y * width * samples, y), 1);
    }
    TIFFClose(tiff);
    EXPECT_EQ(pixels, interleaved(components));
  }
}

TEST(Formats, Jpeg) {
  for (const uint32_t components : {1u, 3u}) {
    const Bytes file = encoded(components, KV_J2K_OUTPUT_JPEG);
    jpeg_error_mgr errors;
    jpeg_decompress_struct jpeg = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, file.data(), file.size());
    jpeg_read_header(&jpeg, TRUE);
    jpeg_start_decompress(&jpeg);
    ASSERT_EQ(jpeg.output_width, kWidth);
    ASSERT_EQ(jpeg.output_height, kHeight);
    ASSERT_EQ(jpeg.output_components, static_cast<int>(components));
    Bytes pixels(kWidth * kHeight * components);
    while (jpeg.output_scanline < kHeight) {
      uint8_t* row = pixels.data() + jpeg.output_scanline * kWidth * components;
      jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_decompress(&jpeg);
    jpeg_destroy_decompress(&jpeg);
    const Bytes exact = interleaved(components);
    for (size_t i = 0; i < exact.size(); ++i) EXPECT_NEAR(pixels[i], exact[i], 6);
  }
}

TEST(Formats, JpegThatNeedsMoreThanOneBuffer) {
  Recipe noise;
  noise.x1 = noise.y1 = 512;
  Codec codec;
  codec.set_raw(planes(3, 512, 512,
                       [&](uint32_t c, uint32_t x, uint32_t y) {
                         return sample_at(noise, c, x * 7 + y * y, y ^ (x * x));
                       }),
                512, 512, 3);
  const Bytes file = codec.output(KV_J2K_OUTPUT_JPEG);
  ASSERT_GT(file.size(), size_t{1} << 17);
  EXPECT_EQ(file[0], 0xFF);
  EXPECT_EQ(file[1], 0xD8);
  EXPECT_EQ(file[file.size() - 2], 0xFF);
  EXPECT_EQ(file.back(), 0xD9);
}

TEST(Formats, Jpeg2000IsLossless) {
  for (uint32_t components = 1; components <= 5; ++components) {
    const Rectangle all = {0, 0, kWidth, kHeight};
    const Bytes codestream = encoded(components, KV_J2K_OUTPUT_J2K);
    EXPECT_EQ(decode_with_openjpeg(codestream, false, all, 0, 0), picture(components));
    const Bytes jp2 = encoded(components, KV_J2K_OUTPUT_JP2);
    EXPECT_EQ(decode_with_openjpeg(jp2, true, all, 0, 0), picture(components));
    EXPECT_EQ(Codec(codestream).output(), picture(components));
  }
  Codec one;
  one.set_raw({77}, 1, 1, 1);
  EXPECT_EQ(Codec(one.output(KV_J2K_OUTPUT_J2K)).output(), Bytes{77});
}

TEST(Formats, ACodestreamIsConvertedToo) {
  Recipe recipe;
  Codec codec(recipe);
  kv_j2k_set_input_j2k_region_level(codec, 10, 10, 12, 11);
  const Bytes raw = codec.output(KV_J2K_OUTPUT_INTERLEAVED);
  Bytes ppm = {'P', '6', '\n', '2', ' ', '1', '\n', '2', '5', '5', '\n'};
  ppm.insert(ppm.end(), raw.begin(), raw.end());
  EXPECT_EQ(codec.output(KV_J2K_OUTPUT_PNM), ppm);
}

TEST(Formats, PicturesThatAFormatCantHold) {
  const std::pair<int32_t, uint32_t> cases[] = {
      {KV_J2K_OUTPUT_BMP, 2},     {KV_J2K_OUTPUT_BMP, 5},  {KV_J2K_OUTPUT_PNG, 5},
      {KV_J2K_OUTPUT_JPEG, 2},    {KV_J2K_OUTPUT_JPEG, 4}, {KV_J2K_OUTPUT_J2K, 20000},
      {KV_J2K_OUTPUT_TIFF, 70000}};
  for (const auto& [type, components] : cases) {
    Codec codec;
    codec.set_raw(Bytes(components), 1, 1, components);
    EXPECT_TRUE(codec.output(type).empty());
    EXPECT_EQ(codec.result, KV_J2K_ERR_UNSUPPORTED) << type;
    EXPECT_NE(codec.error_text().find(std::to_string(components)), std::string::npos);
  }
  Codec wide;
  wide.set_raw(Bytes(1000001), 1000001, 1, 1);
  for (const int32_t type : {KV_J2K_OUTPUT_PNG, KV_J2K_OUTPUT_JPEG}) {
    EXPECT_TRUE(wide.output(type).empty());
    EXPECT_EQ(wide.result, KV_J2K_ERR_UNSUPPORTED) << type;
  }
}

TEST(Files, HoldTheOutput) {
  const TemporaryFile file;
  Codec codec;
  codec.set_raw(picture(3), kWidth, kHeight, 3);
  kv_j2k_set_output_type(codec, KV_J2K_OUTPUT_PNM);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, file.path()), 0);
  EXPECT_EQ(file.content(), encoded(3, KV_J2K_OUTPUT_PNM));
  kv_j2k_set_output_type(codec, 128);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, file.path()), KV_J2K_ERR_NOTHING_TO_WRITE);
  EXPECT_EQ(file.content(), encoded(3, KV_J2K_OUTPUT_PNM)) << "the old file is left alone";
}

TEST(Files, ThatCantBeWritten) {
  Codec codec;
  codec.set_raw({1, 2, 3}, 3, 1, 1);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, nullptr), KV_J2K_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kv_j2k_get_output_image_file(codec, "/nonexistent/folder/picture"),
            KV_J2K_ERR_OPEN_FILE);
  EXPECT_NE(codec.error_text().find("/nonexistent/folder/picture"), std::string::npos);
  if (std::filesystem::exists("/dev/full")) {
    EXPECT_EQ(kv_j2k_get_output_image_file(codec, "/dev/full"), KV_J2K_ERR_FILE_IO)
        << "three bytes fit into any buffer, so the error shows late";
  }
}

}  // namespace
