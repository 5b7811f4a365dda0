// Small pictures of every model, opacity and depth in every format, read back with the libraries.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "picture/writer.h"
#include "picture_files.h"

namespace kvjpx_picture {
namespace {

using kvjpx::test::Found;
using kvjpx::test::read_jpeg;
using kvjpx::test::read_png;
using kvjpx::test::read_tiff;
using Samples = std::vector<uint16_t>;

struct Memory : Sink {
  void write(std::string_view bytes) override {
    if (room < bytes.size()) throw std::string("no room");
    room -= bytes.size();
    this->bytes.resize(std::max(this->bytes.size(), at + bytes.size()));
    this->bytes.replace(at, bytes.size(), bytes);
    at += bytes.size();
  }
  bool can_seek() const override { return seeks; }
  void seek(uint64_t position) override { at = position; }
  std::string bytes;
  size_t at = 0;
  size_t room = SIZE_MAX;
  bool seeks = true;
};

Format make_format(Model model, uint32_t colours, Opacity opacity, uint32_t depth) {
  Format format;
  format.width = 11;  // no multiple of what is packed into bytes
  format.height = 5;
  format.model = model;
  format.colours = colours;
  format.opacity = opacity;
  format.depth = depth;
  return format;
}

// All that there is of few bits, smooth for JPEG's sake.
Samples make_samples(const Format& format) {
  Samples samples;
  const uint32_t greatest = (1U << format.depth) - 1;
  for (uint32_t y = 0; y < format.height; ++y) {
    for (uint32_t x = 0; x < format.width; ++x) {
      for (uint32_t c = 0; c < format.channels(); ++c) {
        const uint32_t part = std::min(x + y + c, 16U);
        samples.push_back(static_cast<uint16_t>(greatest * (c == 1 ? 16 - part : part) / 16));
      }
    }
  }
  return samples;
}

std::string written(FileFormat file, const Format& format, const Samples& samples,
                    bool seeks = true) {
  Memory memory;
  memory.seeks = seeks;
  const auto writer = open_writer(file, format, memory, 100);
  writer->write_rows(samples.data(), 2);
  writer->write_rows(samples.data() + 2 * format.row_samples(), format.height - 2);
  writer->finish();
  return memory.bytes;
}

uint32_t little_endian(const std::string& bytes, size_t at) {
  uint32_t value;
  std::memcpy(&value, &bytes.at(at), 4);
  return value;
}

Found read_pnm(const std::string& file) {
  Found found;
  size_t at = file.find("\n", 3) + 1;
  if (file[1] == '7') {
    at = file.find("ENDHDR\n") + 7;
    found.facts = file.substr(0, at);
    found.channels = std::stoi(found.facts.substr(found.facts.find("DEPTH") + 5));
  } else {
    found.channels = file[1] == '6' ? 3 : 1;
    at = file.find('\n', at) + 1;
    found.facts = file.substr(3, at - 4);
  }
  const size_t size = (file.size() - at) / found.channels / 55;
  for (; at < file.size(); at += size) {
    const auto upper = static_cast<uint8_t>(file[at]);
    found.samples.push_back(size == 1 ? upper : upper << 8 | static_cast<uint8_t>(file[at + 1]));
  }
  return found;
}

Found read_bmp(const std::string& file) {
  const bool has_palette = file[28] == 8;
  Found found{8, has_palette ? 1U : file[28] / 8U, {}, ""};
  const size_t row = (11 * found.channels + 3) / 4 * 4;
  EXPECT_EQ(little_endian(file, 2), file.size());
  EXPECT_EQ(static_cast<int32_t>(little_endian(file, 22)), -5);
  for (size_t y = 0; y < 5; ++y) {
    for (size_t x = 0; x < 11; ++x) {
      for (size_t c = 0; c < found.channels; ++c) {
        const size_t place = has_palette || c == 3 ? c : 2 - c;
        const size_t at = little_endian(file, 10) + y * row + x * found.channels + place;
        found.samples.push_back(static_cast<uint8_t>(file[at]));
      }
    }
  }
  if (has_palette) {
    EXPECT_EQ(little_endian(file, 14 + 40 + 4 * 129), 0x818181U);
  }
  found.facts = std::to_string(little_endian(file, 38)) + " per metre";
  if (little_endian(file, 14) == 124 && little_endian(file, 14 + 56) == 0x4D424544) {
    found.facts += " icc " + file.substr(14 + little_endian(file, 14 + 112) + 12, 4);
  }
  return found;
}

Found read(FileFormat file, const std::string& bytes) {
  switch (file) {
    case FileFormat::kPng:
      return read_png(bytes);
    case FileFormat::kTiff:
      return read_tiff(bytes);
    case FileFormat::kJpeg:
      return read_jpeg(bytes);
    case FileFormat::kBmp:
      return read_bmp(bytes);
    default:
      return read_pnm(bytes);
  }
}

// The sample as the file should have it.
Samples expected(FileFormat file, const Format& format, const Found& found) {
  const double greatest = (1U << format.depth) - 1, most = (1U << found.depth) - 1;
  Samples samples = make_samples(format), all;
  for (size_t i = 0; i < samples.size(); ++i) {
    double value = std::floor(samples[i] * most / greatest + 0.5);
    if (file == FileFormat::kTiff && format.model == Model::kLab && i % found.channels % 3 != 0) {
      value = found.depth == 8 ? value - 128 : std::round((value / 257 - 128) * 256);
    }
    const auto sample = static_cast<uint16_t>(static_cast<int>(value) & static_cast<int>(most));
    const bool is_grey_as_colours = format.colours == 1 && found.channels > 2;
    all.insert(all.end(), is_grey_as_colours && i % format.channels() == 0 ? 3 : 1, sample);
  }
  return all;
}

TEST(Writers, KeepEverySampleThatTheFormatHolds) {
  const std::pair<Model, uint32_t> models[] = {{Model::kGrey, 1},  {Model::kRgb, 3},
                                               {Model::kCmyk, 4},  {Model::kLab, 3},
                                               {Model::kOther, 1}, {Model::kOther, 2}};
  size_t files = 0;
  for (int number = 0; number <= static_cast<int>(FileFormat::kPpm); ++number) {
    for (const auto& [model, colours] : models) {
      for (int opacity = 0; opacity < 3; ++opacity) {
        for (const uint32_t depth : {1, 2, 3, 4, 6, 8, 11, 16}) {
          const auto file = static_cast<FileFormat>(number);
          const Fit fitting = fit(file, make_format(model, colours, Opacity(opacity), depth));
          if (!fitting.refusal.empty()) continue;
          const Format& format = fitting.format;
          Found found = read(file, written(file, format, make_samples(format), depth % 2 == 0));
          const std::string what = std::to_string(number) + " model " +
                                   std::to_string(static_cast<int>(model)) + " opacity " +
                                   std::to_string(opacity) + " depth " + std::to_string(depth);
          if (found.depth == 0) found.depth = depth;  // PNM says it in the header
          const Samples wanted = expected(file, format, found);
          ASSERT_EQ(found.samples.size(), wanted.size()) << what;
          for (size_t i = 0; i < wanted.size(); ++i) {
            ASSERT_NEAR(found.samples[i], wanted[i], file == FileFormat::kJpeg ? 3 : 0) << what;
          }
          ++files;
        }
      }
    }
  }
  EXPECT_GT(files, 500U);
}

// Big-endian, as few are: a camera, a turn, and a directory with a lens.
std::string make_exif() {
  const auto entry = [](const std::string& tag, char type, char count, const std::string& value) {
    return tag + std::string{0, type, 0, 0, 0, count} + value;
  };
  return std::string("MM\0*\0\0\0\x8\0\x3", 10) + entry("\x1\x10", 2, 4, std::string("Cam\0", 4)) +
         entry("\x1\x12", 3, 1, std::string("\0\x6\0\0", 4)) +
         entry("\x87\x69", 4, 1, std::string("\0\0\0\x32", 4)) + std::string("\0\0\0\x32\0\x1", 6) +
         entry("\xA4\x34", 2, 6, std::string("\0\0\0\x40", 4)) + std::string("Glass\0", 6);
}

// As little, and as little compressible, as libpng takes for a profile.
std::string make_icc() {
  std::string icc(132, 0);
  for (int i = 0; i < 124; ++i) icc += static_cast<char>(i * i * 31 + i);
  icc.replace(2, 2, "\1", 2);
  icc.replace(12, 12, "mntrRGB XYZ ");
  icc.replace(36, 4, "acsp");
  return icc.replace(68, 12, std::string("\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D", 12));
}

std::string listed(const std::vector<std::string>& losses) {
  std::string all;
  for (const std::string& loss : losses) all += loss + "; ";
  return all;
}

TEST(Writers, KeepWhatBelongsToThePictureOrSayThatTheyDoNot) {
  const struct {
    FileFormat file;
    Model model;
    const char* losses;
    const char* facts;
  } rows[] = {
      {FileFormat::kPng, Model::kRgb, "",
       "11811x5906 per metre icc 256 depth 12 exif 70 XML:com.adobe.xmp=<x/>"},
      {FileFormat::kPng, Model::kCmyk, "CMYK: converted to sRGB; ",
       "11811x5906 per metre sRGB depth 12 exif 70 XML:com.adobe.xmp=<x/>"},
      {FileFormat::kTiff, Model::kRgb,
       "depth 12: written with 16 bits; the thumbnail within Exif is left out; ",
       "photometric 2 extra 2 dpi 300 icc 256 xmp 4 model Cam turned lens Glass"},
      {FileFormat::kPgm, Model::kGrey,
       "opacity is left out; the ICC profile is left out; XMP is left out; Exif is left out; the "
       "resolution is left out; ",
       "11 5\n4095"},
      {FileFormat::kPam, Model::kGrey,
       "the ICC profile is left out; XMP is left out; Exif is left out; the resolution is left "
       "out; ",
       "P7\nWIDTH 11\nHEIGHT 5\nDEPTH 2\nMAXVAL 4095\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n"},
      {FileFormat::kJpeg, Model::kRgb, "opacity is left out; depth 12: cut to 8 bits; ",
       "300x150 unit 1 Exif 76 http://ns.adobe.com/xap/1.0/ 33 ICC_PROFILE 270"},
      {FileFormat::kJpeg, Model::kCmyk,
       "opacity is left out; depth 12: cut to 8 bits; the resolution is left out; ",
       "1x1 unit 0 Exif 76 http://ns.adobe.com/xap/1.0/ 33 ICC_PROFILE 270"},
      {FileFormat::kBmp, Model::kRgb,
       "depth 12: cut to 8 bits; XMP is left out; Exif is left out; ", "11811 per metre icc mntr"},
  };
  for (const auto& row : rows) {
    const uint32_t colours = row.model == Model::kGrey ? 1 : row.model == Model::kRgb ? 3 : 4;
    Format format = make_format(row.model, colours, Opacity::kStraight, 12);
    format.icc = make_icc();
    format.xmp = "<x/>";
    format.exif = make_exif();
    format.dots_per_metre_x = 300 / 0.0254;
    format.dots_per_metre_y = 150 / 0.0254;
    const Fit fitting = fit(row.file, format);
    EXPECT_EQ(listed(fitting.losses), row.losses);
    const std::string file = written(row.file, fitting.format, make_samples(fitting.format));
    EXPECT_EQ(read(row.file, file).facts, row.facts);
  }
}

TEST(Writers, RefuseWhatCannotBe) {
  Format format = make_format(Model::kRgb, 3, Opacity::kNone, 8);
  EXPECT_NE(fit(FileFormat::kPgm, format).refusal, "");
  EXPECT_NE(fit(FileFormat::kPng, make_format(Model::kOther, 2, Opacity::kNone, 8)).refusal, "");
  format.exif = make_exif();
  for (const size_t at : {1, 4, 9, 45, 60}) {  // what is no Exif any more is left out
    Format broken = format;
    broken.exif[at] = '\x7F';
    EXPECT_EQ(listed(fit(FileFormat::kTiff, broken).losses), "Exif is left out; ") << at;
  }
  format.width = 70000;
  EXPECT_NE(fit(FileFormat::kJpeg, format).refusal, "");
  format.height = 70000;
  EXPECT_NE(fit(FileFormat::kBmp, format).refusal, "");
  EXPECT_EQ(listed(fit(FileFormat::kTiff, format).losses), "Exif is left out; ");
}

// With a sink that is full at any time, what it threw comes out and nothing is lost.
TEST(Writers, PassOnWhatTheSinkThrows) {
  for (int file = 0; file <= static_cast<int>(FileFormat::kPpm); ++file) {
    const bool is_grey = FileFormat(file) == FileFormat::kPgm;
    const Format format =
        make_format(is_grey ? Model::kGrey : Model::kRgb, is_grey ? 1 : 3, Opacity::kNone, 8);
    const Samples samples = make_samples(format);
    const size_t size = written(FileFormat(file), format, samples).size();
    for (size_t room = 0; room < size; room += 7) {
      Memory memory;
      memory.room = room;
      const auto write = [&] {
        const auto writer = open_writer(FileFormat(file), format, memory, 100);
        EXPECT_THROW(writer->finish(), std::runtime_error);
        writer->write_rows(samples.data(), 5);
        EXPECT_THROW(writer->write_rows(samples.data(), 1), std::runtime_error);
        writer->finish();
      };
      EXPECT_THROW(write(), std::string) << file << " " << room;
    }
  }
}

TEST(Writers, AnimateByChunksOfFrames) {
  const Format format = make_format(Model::kGrey, 1, Opacity::kStraight, 16);
  const Samples first(format.row_samples() * 5, 7), second = make_samples(format);
  Memory memory;
  const auto writer = open_animation(format, 2, 3, memory);
  for (const Samples* samples : {&first, &second}) {
    writer->begin_frame(samples == &first ? 40 : 70000);
    writer->write_rows(samples->data(), 5);
  }
  writer->finish();
  EXPECT_EQ(read_png(memory.bytes).samples, first);
  // The second frame as a picture of its own: its data under the name that pictures have for it.
  // libpng sees to the order of chunks; checksums of those made here are tried by libpng, too.
  std::string names, still = memory.bytes.substr(0, 33);
  for (size_t at = 8; at < memory.bytes.size();) {
    const std::string& file = memory.bytes;
    const size_t size =
        static_cast<uint8_t>(file[at + 2]) * 256U + static_cast<uint8_t>(file[at + 3]);
    const std::string name = file.substr(at + 4, 4), data = file.substr(at + 8, size);
    names += name + " ";
    if (name == "acTL") {
      EXPECT_EQ(data, std::string("\0\0\0\2\0\0\0\3", 8));
    }
    if (name == "fcTL")
      names += std::to_string(+data[3]) +
               (data.substr(20, 4) == std::string("\x1B\x58\0\x64", 4) ? " 70 s " : " ");
    if (name == "fdAT") {
      names += std::to_string(+data[3]) + " ";
      const std::string body = "IDAT" + data.substr(4);
      const auto sum =
          static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(body.data()), body.size()));
      still +=
          std::string{0, 0, static_cast<char>((size - 4) >> 8), static_cast<char>(size - 4)} + body;
      for (const int shift : {24, 16, 8, 0}) still += static_cast<char>(sum >> shift);
    }
    at += size + 12;
  }
  EXPECT_EQ(names, "IHDR acTL fcTL 0 IDAT fcTL 1 70 s fdAT 2 IEND ");
  EXPECT_EQ(read_png(still + memory.bytes.substr(memory.bytes.size() - 12)).samples, second);
}

}  // namespace
}  // namespace kvjpx_picture
