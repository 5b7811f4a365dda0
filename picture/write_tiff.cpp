// TIFF, by libtiff, in strips.
#include <dlfcn.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "exif_directories.h"
#include "row_writer.h"

namespace kvjpx_picture {
namespace {

// As for PNG; libtiff compresses a strip at once, which is faster.
constexpr int kCompressionLevel = 1;
constexpr size_t kStripSize = 1 << 18;
constexpr double kMetresPerInch = 0.0254;
// What is longer might not be in reach of 32-bit positions, whatever compression makes of it.
constexpr uint64_t kMaxClassicSize = 4000000000;
constexpr uint32_t kSpoolPiece = 1 << 16;

// libtiff is loaded when the first TIFF is written: it brings so many other libraries that without
// them the program starts twice as fast.
class LibTiff {
 public:
  static const LibTiff& get() {
    static const LibTiff library;
    return library;
  }

  decltype(&TIFFOpenOptionsAlloc) allocate_options = find("TIFFOpenOptionsAlloc");
  decltype(&TIFFOpenOptionsFree) free_options = find("TIFFOpenOptionsFree");
  decltype(&TIFFOpenOptionsSetErrorHandlerExtR) set_error_handler =
      find("TIFFOpenOptionsSetErrorHandlerExtR");
  decltype(&TIFFOpenOptionsSetWarningHandlerExtR) set_warning_handler =
      find("TIFFOpenOptionsSetWarningHandlerExtR");
  decltype(&TIFFClientOpenExt) open = find("TIFFClientOpenExt");
  decltype(&TIFFClientdata) client_data = find("TIFFClientdata");
  decltype(&TIFFCleanup) clean_up = find("TIFFCleanup");
  decltype(&TIFFSetField) set_field = find("TIFFSetField");
  decltype(&TIFFWriteEncodedStrip) write_strip = find("TIFFWriteEncodedStrip");
  decltype(&TIFFWriteDirectory) write_directory = find("TIFFWriteDirectory");

 private:
  // Becomes whatever function it is assigned to.
  struct Found {
    void* address;
    template <class Function>
    operator Function*() const {  // NOLINT(google-explicit-constructor)
      return reinterpret_cast<Function*>(address);
    }
  };
  static Found find(const char* name) {
    // Stays open: by one thread, or again by the next one where it fails.
    void* const library = dlopen(KVJPX_LIBTIFF, RTLD_NOW | RTLD_LOCAL);
    void* const function = library != nullptr ? dlsym(library, name) : nullptr;
    if (function != nullptr) return {function};
    const char* const reason = dlerror();
    throw std::runtime_error("TIFF: " + std::string(reason != nullptr ? reason : "no libtiff"));
  }
};

// For sinks that can't seek.
class Spool : public Sink {
 public:
  Spool() : file_(std::tmpfile()) {
    if (!file_) throw std::runtime_error("no temporary file can be made");
  }
  void write(std::string_view bytes) override {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) fail();
  }
  bool can_seek() const override { return true; }
  void seek(uint64_t position) override {
    if (fseeko(file_.get(), static_cast<off_t>(position), SEEK_SET) != 0) fail();
  }
  void copy_to(Sink& sink) {
    seek(0);
    std::string piece(kSpoolPiece, 0);
    while (const size_t size = std::fread(piece.data(), 1, piece.size(), file_.get())) {
      sink.write({piece.data(), size});
    }
    if (std::ferror(file_.get())) fail();
  }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  [[noreturn]] static void fail() { throw std::runtime_error("the temporary file fails"); }
  std::unique_ptr<std::FILE, Closer> file_;
};

// The file as libtiff sees it. It reads nothing back from files that it makes in one go.
struct Output {
  explicit Output(Sink& sink) : out(sink) {}
  QuietSink out;
  uint64_t position = 0;
  uint64_t size = 0;
  char reason[160] = "TIFF: the output fails";
};

Output* output_of(thandle_t handle) { return static_cast<Output*>(handle); }

tmsize_t on_read(thandle_t, void*, tmsize_t) { return 0; }

tmsize_t on_write(thandle_t handle, void* bytes, tmsize_t size) {
  Output* output = output_of(handle);
  if (!output->out.write(bytes, static_cast<size_t>(size))) return -1;
  output->position += static_cast<uint64_t>(size);
  output->size = std::max(output->size, output->position);
  return size;
}

toff_t on_seek(thandle_t handle, toff_t offset, int whence) {
  Output* output = output_of(handle);
  const uint64_t origin = whence == SEEK_END   ? output->size
                          : whence == SEEK_CUR ? output->position
                                               : 0;
  if (origin + offset != output->position && !output->out.seek(origin + offset)) {
    return static_cast<toff_t>(-1);
  }
  return output->position = origin + offset;
}

int on_close(thandle_t) { return 0; }
toff_t on_size(thandle_t handle) { return output_of(handle)->size; }

int on_error(TIFF*, void* handle, const char*, const char* message, va_list values) {
  Output* output = output_of(handle);
  const int length = std::snprintf(output->reason, sizeof output->reason, "TIFF: ");
  std::vsnprintf(output->reason + length, sizeof output->reason - length, message, values);
  return 1;
}

int on_warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

bool is_big(const Format& format) {
  const uint64_t pixels = uint64_t{format.row_samples()} * 2;
  return pixels > kMaxClassicSize / format.height ||
         pixels * format.height + format.icc.size() + format.xmp.size() > kMaxClassicSize;
}

struct TiffCloser {
  void operator()(TIFF* tiff) const {
    const LibTiff& lib = LibTiff::get();
    output_of(lib.client_data(tiff))->out.close();  // or an unfinished file would be completed
    lib.clean_up(tiff);
  }
};
using TiffPointer = std::unique_ptr<TIFF, TiffCloser>;

TiffPointer open_output(const Format& format, Output& output) {
  std::string mode = is_big(format) ? "w8" : "w";
  if (!format.exif.empty()) mode += exif_directories(format.exif, 0)->is_big_endian ? 'b' : 'l';
  const LibTiff& lib = LibTiff::get();
  TIFFOpenOptions* options = lib.allocate_options();
  if (!options) throw std::bad_alloc();
  lib.set_error_handler(options, on_error, &output);
  lib.set_warning_handler(options, on_warning, &output);
  TiffPointer tiff(lib.open("picture", mode.c_str(), &output, on_read, on_write, on_seek, on_close,
                            on_size, nullptr, nullptr, options));
  lib.free_options(options);
  if (!tiff) output.out.fail(output.reason);
  return tiff;
}

uint16_t photometric(Model model) {
  switch (model) {
    case Model::kRgb:
      return PHOTOMETRIC_RGB;
    case Model::kCmyk:
      return PHOTOMETRIC_SEPARATED;
    case Model::kLab:
      return PHOTOMETRIC_CIELAB;
    default:
      return PHOTOMETRIC_MINISBLACK;
  }
}

class TiffWriter : public RowWriter {
 public:
  TiffWriter(const Format& format, Sink& sink)
      : RowWriter(format, sink),
        depth_(file_depth(FileFormat::kTiff, format)),
        scale_(format.depth, depth_),
        spool_(sink.can_seek() ? nullptr : std::make_unique<Spool>()),
        output_(spool_ ? *spool_ : sink),
        tiff_(open_output(format, output_)),
        row_size_((format.row_samples() * depth_ + 7) / 8),
        strip_rows_(std::max<size_t>(kStripSize / row_size_, 1)) {
    strip_.reserve(strip_rows_ * row_size_);
    set_layout();
    set_metadata();
  }

 private:
  template <typename... Values>
  void set(uint32_t tag, Values... values) {
    check(LibTiff::get().set_field(tiff_.get(), tag, values...) == 1);
  }

  void check(bool is_done) const {
    if (!is_done) output_.out.fail(output_.reason);
  }

  void set_layout() {
    set(TIFFTAG_IMAGEWIDTH, format_.width);
    set(TIFFTAG_IMAGELENGTH, format_.height);
    set(TIFFTAG_BITSPERSAMPLE, depth_);
    set(TIFFTAG_SAMPLESPERPIXEL, format_.channels());
    set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    set(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    set(TIFFTAG_PHOTOMETRIC, photometric(format_.model));
    set(TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(strip_rows_));
    std::vector<uint16_t> extra;
    if (format_.model == Model::kOther) extra.assign(format_.colours - 1, EXTRASAMPLE_UNSPECIFIED);
    if (format_.opacity == Opacity::kStraight) extra.push_back(EXTRASAMPLE_UNASSALPHA);
    if (format_.opacity == Opacity::kPremultiplied) extra.push_back(EXTRASAMPLE_ASSOCALPHA);
    if (!extra.empty()) set(TIFFTAG_EXTRASAMPLES, static_cast<int>(extra.size()), extra.data());
    set(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    set(TIFFTAG_ZIPQUALITY, kCompressionLevel);
    if (depth_ >= 8) set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  }

  void set_metadata() {
    if (format_.dots_per_metre_x > 0) {
      set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
      set(TIFFTAG_XRESOLUTION, format_.dots_per_metre_x * kMetresPerInch);
      set(TIFFTAG_YRESOLUTION, format_.dots_per_metre_y * kMetresPerInch);
    }
    set_bytes(TIFFTAG_ICCPROFILE, format_.icc);
    set_bytes(TIFFTAG_XMLPACKET, format_.xmp);
    if (format_.exif.empty()) return;
    const ExifDirectories exif = *exif_directories(format_.exif, 0);
    if (exif.orientation >= 1 && exif.orientation <= 8) set(TIFFTAG_ORIENTATION, exif.orientation);
    for (const auto& [tag, text] : exif.texts) set(tag, text.c_str());
  }

  void set_bytes(uint32_t tag, const std::string& bytes) {
    if (!bytes.empty()) set(tag, static_cast<uint32_t>(bytes.size()), bytes.data());
  }

  void write_row(const uint16_t* row) override {
    const size_t begin = strip_.size(), count = format_.row_samples();
    strip_.resize(begin + row_size_);
    if (depth_ == 16) {
      auto* words = reinterpret_cast<uint16_t*>(&strip_[begin]);
      for (size_t i = 0; i < count; ++i) words[i] = scale_(row[i]);
      if (format_.model == Model::kLab) centre(words);
    } else if (depth_ == 8) {
      scale_.pack(row, count, &strip_[begin]);
      if (format_.model == Model::kLab) centre(&strip_[begin]);
    } else {
      for (size_t i = 0; i < count; ++i) strip_[begin + i / 8] |= (row[i] & 1) << (7 - i % 8);
    }
    if (strip_.size() == strip_rows_ * row_size_) write_strip();
  }

  // TIFF's a and b are signed; those of 16 bits have 8 of them behind the point.
  void centre(uint16_t* pixel) const {
    for (uint32_t x = 0; x < format_.width; ++x, pixel += format_.channels()) {
      for (const int i : {1, 2}) {
        pixel[i] = static_cast<uint16_t>((pixel[i] * 256 + 128) / 257 ^ 0x8000);
      }
    }
  }
  void centre(uint8_t* pixel) const {
    for (uint32_t x = 0; x < format_.width; ++x, pixel += format_.channels()) {
      pixel[1] ^= 0x80;
      pixel[2] ^= 0x80;
    }
  }

  void write_strip() {
    if (strip_.empty()) return;
    check(LibTiff::get().write_strip(tiff_.get(), strip_index_++, strip_.data(),
                                     static_cast<tmsize_t>(strip_.size())) >= 0);
    strip_.clear();
  }

  void write_exif() {
    const auto position = static_cast<uint32_t>((output_.size + 1) & ~uint64_t{1});
    ExifDirectories exif = *exif_directories(format_.exif, position);
    exif.bytes.insert(0, position - output_.size, '\0');
    on_seek(&output_, 0, SEEK_END);
    check(on_write(&output_, exif.bytes.data(), static_cast<tmsize_t>(exif.bytes.size())) >= 0);
    if (exif.exif_at) set(TIFFTAG_EXIFIFD, uint64_t{exif.exif_at});
    if (exif.gps_at) set(TIFFTAG_GPSIFD, uint64_t{exif.gps_at});
  }

  void end() override {
    write_strip();
    if (!format_.exif.empty()) write_exif();
    check(LibTiff::get().write_directory(tiff_.get()) == 1);
    tiff_.reset();
    if (spool_) return spool_->copy_to(sink_);
    sink_.seek(output_.size);
  }

  uint32_t depth_;
  Scale scale_;
  std::unique_ptr<Spool> spool_;
  Output output_;
  TiffPointer tiff_;
  size_t row_size_;
  size_t strip_rows_;
  std::vector<uint8_t> strip_;
  uint32_t strip_index_ = 0;
};

}  // namespace

bool tiff_holds_exif(const Format& format) {
  return !is_big(format) && exif_directories(format.exif, 0).has_value();
}

std::unique_ptr<Writer> open_tiff(const Format& format, Sink& sink) {
  return std::make_unique<TiffWriter>(format, sink);
}

}  // namespace kvjpx_picture
