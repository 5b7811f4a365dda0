// Picture files read back (see picture_files.h).
#include "picture_files.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstdio>
#include <tiffio.hxx>
// clang-format off
#include <jpeglib.h>
// clang-format on

#include <algorithm>
#include <sstream>

namespace kvjpx::test {

Found read_png(const std::string& file) {
  std::istringstream input(file);
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_read_fn(png, &input, [](png_structp from, png_bytep to, size_t size) {
    static_cast<std::istream*>(png_get_io_ptr(from))->read(reinterpret_cast<char*>(to), size);
  });
  png_read_png(png, info, PNG_TRANSFORM_PACKING | PNG_TRANSFORM_SWAP_ENDIAN, nullptr);
  Found found{static_cast<uint8_t>(file[24]), png_get_channels(png, info), {}, ""};
  for (uint32_t y = 0; y < png_get_image_height(png, info); ++y) {
    const png_bytep row = png_get_rows(png, info)[y];
    for (size_t i = 0; i < png_get_image_width(png, info) * found.channels; ++i) {
      found.samples.push_back(found.depth == 16 ? reinterpret_cast<uint16_t*>(row)[i] : row[i]);
    }
  }
  std::ostringstream facts;
  png_uint_32 x = 0, y = 0, size = 0;
  int unit = 0, intent = -1;
  png_charp name = nullptr;
  png_bytep data = nullptr;
  png_textp text = nullptr;
  png_color_8p bits = nullptr;
  if (png_get_pHYs(png, info, &x, &y, &unit)) facts << x << "x" << y << " per metre ";
  if (png_get_iCCP(png, info, &name, &unit, &data, &size)) facts << "icc " << size << " ";
  if (png_get_sRGB(png, info, &intent)) facts << "sRGB ";
  if (png_get_sBIT(png, info, &bits)) facts << "depth " << std::max(+bits->gray, +bits->red) << " ";
  if (png_get_eXIf_1(png, info, &size, &data)) facts << "exif " << size << " ";
  if (png_get_text(png, info, &text, nullptr) > 0) facts << text->key << "=" << text->text;
  found.facts = facts.str();
  png_destroy_read_struct(&png, &info, nullptr);
  return found;
}

Found read_tiff(const std::string& file) {
  std::istringstream input(file);
  TIFF* tiff = TIFFStreamOpen("tiff", &input);
  uint16_t depth = 0, channels = 0, photometric = 0, extras = 0, orientation = 0;
  uint16_t* kinds = nullptr;
  uint32_t height = 0, size = 0;
  uint64_t directory = 0;
  void* bytes = nullptr;
  char* model = nullptr;
  float x = 0;
  TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &depth);
  TIFFGetField(tiff, TIFFTAG_SAMPLESPERPIXEL, &channels);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  Found found{depth, channels, {}, ""};
  std::string row(TIFFScanlineSize(tiff), 0);
  const size_t count = depth == 1 ? 11 : row.size() * 8 / depth;
  for (uint32_t y = 0; y < height; ++y) {
    EXPECT_EQ(TIFFReadScanline(tiff, row.data(), y), 1);
    for (size_t i = 0; i < count; ++i) {
      const auto byte = static_cast<uint8_t>(row[i * depth / 8]);
      found.samples.push_back(depth == 16  ? reinterpret_cast<uint16_t*>(row.data())[i]
                              : depth == 8 ? byte
                                           : byte >> (7 - i % 8) & 1);
    }
  }
  std::ostringstream facts;
  facts << "photometric " << photometric;
  if (TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extras, &kinds)) {
    for (uint16_t i = 0; i < extras; ++i) facts << " extra " << kinds[i];
  }
  if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x)) facts << " dpi " << x;
  if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &bytes)) facts << " icc " << size;
  if (TIFFGetField(tiff, TIFFTAG_XMLPACKET, &size, &bytes)) facts << " xmp " << size;
  if (TIFFGetField(tiff, TIFFTAG_MODEL, &model)) facts << " model " << model;
  if (TIFFGetField(tiff, TIFFTAG_ORIENTATION, &orientation) && orientation != 1) facts << " turned";
  if (TIFFGetField(tiff, TIFFTAG_EXIFIFD, &directory)) {
    EXPECT_EQ(TIFFReadEXIFDirectory(tiff, directory), 1);
    EXPECT_EQ(TIFFGetField(tiff, EXIFTAG_LENSMODEL, &model), 1);
    facts << " lens " << model;
  }
  found.facts = facts.str();
  TIFFClose(tiff);
  return found;
}

Found read_jpeg(const std::string& file) {
  jpeg_decompress_struct jpeg;
  jpeg_error_mgr errors;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&jpeg);
  jpeg_mem_src(&jpeg, reinterpret_cast<const uint8_t*>(file.data()), file.size());
  jpeg_save_markers(&jpeg, JPEG_APP0 + 1, 0xFFFF);
  jpeg_save_markers(&jpeg, JPEG_APP0 + 2, 0xFFFF);
  jpeg_read_header(&jpeg, TRUE);
  jpeg_start_decompress(&jpeg);
  Found found{8, static_cast<uint32_t>(jpeg.output_components), {}, ""};
  std::vector<uint8_t> row(jpeg.output_width * found.channels);
  for (uint8_t* scanline = row.data(); jpeg.output_scanline < jpeg.output_height;) {
    jpeg_read_scanlines(&jpeg, &scanline, 1);
    for (const uint8_t sample : row) {
      found.samples.push_back(jpeg.saw_Adobe_marker && found.channels == 4 ? 255 - sample : sample);
    }
  }
  std::ostringstream facts;
  facts << jpeg.X_density << "x" << jpeg.Y_density << " unit " << +jpeg.density_unit;
  for (auto marker = jpeg.marker_list; marker; marker = marker->next) {
    const std::string data(reinterpret_cast<char*>(marker->data), marker->data_length);
    facts << " " << data.substr(0, data.find('\0')) << " " << data.size();
  }
  found.facts = facts.str();
  jpeg_destroy_decompress(&jpeg);
  return found;
}

}  // namespace kvjpx::test
