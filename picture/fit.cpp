// What each format can hold.
#include <algorithm>

#include "exif_directories.h"
#include "row_writer.h"

namespace kvjpx_picture {
namespace {

constexpr uint32_t kMaxInt32 = 0x7FFFFFFF;
// A marker segment's length has 16 bits and counts itself; what begins it must fit, too.
constexpr size_t kMaxSegment = 0xFFFF - 2;
constexpr size_t kMaxJpegExif = kMaxSegment - sizeof("Exif\0");
constexpr size_t kMaxJpegXmp = kMaxSegment - sizeof("http://ns.adobe.com/xap/1.0/");
constexpr size_t kMaxJpegIcc = 255 * (kMaxSegment - sizeof("ICC_PROFILE") - 2);

struct Abilities {
  const char* name;
  uint32_t max_extent;
  uint32_t max_depth;
  bool keeps_depth;  // tells readers the depth that the samples had
  bool has_cmyk;
  bool has_lab;
  bool has_any_channels;  // also such of unknown meaning
  bool has_straight;
  bool has_premultiplied;
  bool has_icc;
  bool has_resolution;
  bool has_xmp;
  bool has_exif;
};

constexpr bool y = true, n = false;
// In the order of FileFormat. JPEG's extent is libjpeg's.
constexpr Abilities kAbilities[] = {
    //        extent    depth  keeps CMYK Lab any straight premultiplied ICC resolution XMP Exif
    {"PNG", kMaxInt32, 16, y, n, n, n, y, n, y, y, y, y},
    {"TIFF", kMaxInt32, 16, n, y, y, y, y, y, y, y, y, y},
    {"PNM", kMaxInt32, 16, y, n, n, n, n, n, n, n, n, n},
    {"PAM", kMaxInt32, 16, y, y, n, y, y, n, n, n, n, n},
    {"JPEG", 65500, 8, n, y, n, n, n, n, y, y, y, y},
    {"BMP", kMaxInt32, 8, n, n, n, n, y, n, y, y, n, n},
    {"PGM", kMaxInt32, 16, y, n, n, n, n, n, n, n, n, n},
    {"PPM", kMaxInt32, 16, y, n, n, n, n, n, n, n, n, n},
};

uint32_t colours_of(const Format& format) {
  switch (format.model) {
    case Model::kGrey:
      return 1;
    case Model::kRgb:
    case Model::kLab:
      return 3;
    case Model::kCmyk:
      return 4;
    case Model::kOther:
      break;
  }
  return std::max(format.colours, 1U);
}

class Fitting {
 public:
  Fitting(FileFormat file, const Format& format)
      : file_(file), can_(kAbilities[static_cast<size_t>(file)]), fit_{format, {}, {}} {}

  Fit take() {
    if (!fits_at_all()) return std::move(fit_);
    fit_colours();
    fit_opacity();
    fit_depth();
    fit_metadata();
    return std::move(fit_);
  }

 private:
  void lose(const std::string& what) { fit_.losses.push_back(what); }

  bool fits_at_all() {
    const Format& format = fit_.format;
    std::string& refusal = fit_.refusal;
    const std::string name = can_.name;
    if (format.width == 0 || format.height == 0) {
      refusal = "the picture is empty";
    } else if (format.depth < 1 || format.depth > 16 || format.colours != colours_of(format)) {
      refusal = "no picture has such channels";
    } else if (std::max(format.width, format.height) > can_.max_extent) {
      refusal = name + " holds at most " + std::to_string(can_.max_extent) + " pixels a side";
    } else if (file_ == FileFormat::kPgm && format.colours > 1) {
      refusal = "PGM is grey; PPM holds colours";
    } else if (format.model == Model::kOther && !can_.has_any_channels && format.colours != 1 &&
               format.colours != 3) {
      refusal = name + " can't hold " + std::to_string(format.colours) +
                " channels of unknown meaning; TIFF and PAM can";
    } else if (file_ == FileFormat::kTiff && format.channels() > 0xFFFF) {
      refusal = "TIFF holds at most 65535 channels";
    } else if (file_ == FileFormat::kBmp &&
               (size_t{format.width} * 4 + 4) * format.height + format.icc.size() > 0xFFFF0000) {
      refusal = "the picture is too large for BMP";
    }
    return refusal.empty();
  }

  void fit_colours() {
    Format& format = fit_.format;
    if ((format.model == Model::kCmyk && !can_.has_cmyk) ||
        (format.model == Model::kLab && !can_.has_lab)) {
      lose(std::string(format.model == Model::kCmyk ? "CMYK" : "CIELab") + ": converted to sRGB");
      format.model = Model::kRgb;
      format.colours = 3;
      format.icc.clear();
      format.is_srgb = true;
    } else if (format.model == Model::kOther && format.colours == 1) {
      format.model = Model::kGrey;
    } else if (format.model == Model::kOther && !can_.has_any_channels) {
      lose("channels of unknown meaning: written as red, green and blue");
      format.model = Model::kRgb;
    } else if (format.model == Model::kOther && file_ == FileFormat::kTiff) {
      lose("channels of unknown meaning: written as grey and extra samples");
    }
  }

  void fit_opacity() {
    Opacity& opacity = fit_.format.opacity;
    if (opacity == Opacity::kNone || (opacity == Opacity::kPremultiplied && can_.has_premultiplied))
      return;
    if (!can_.has_straight) {
      lose("opacity is left out");
      opacity = Opacity::kNone;
    } else if (opacity == Opacity::kPremultiplied) {
      lose("premultiplied opacity: colours are divided by it");
      opacity = Opacity::kStraight;
    }
  }

  void fit_depth() {
    const uint32_t depth = fit_.format.depth, written = file_depth(file_, fit_.format);
    if (written == depth || (written > depth && can_.keeps_depth)) return;
    lose("depth " + std::to_string(depth) + (written < depth ? ": cut to " : ": written with ") +
         std::to_string(written) + " bits");
  }

  void drop_unless(bool can_hold, std::string& text, const char* what) {
    if (text.empty() || can_hold) return;
    lose(what);
    text.clear();
  }

  void fit_metadata() {
    Format& format = fit_.format;
    const bool is_jpeg = file_ == FileFormat::kJpeg;
    const bool has_icc = can_.has_icc && !(is_jpeg && format.icc.size() > kMaxJpegIcc) &&
                         !(file_ == FileFormat::kBmp && format.model == Model::kGrey);
    drop_unless(has_icc, format.icc, "the ICC profile is left out");
    const bool has_xmp = can_.has_xmp && !(is_jpeg && format.xmp.size() > kMaxJpegXmp) &&
                         !(file_ == FileFormat::kPng && format.xmp.find('\0') != std::string::npos);
    drop_unless(has_xmp, format.xmp, "XMP is left out");
    const bool has_exif = can_.has_exif && !(is_jpeg && format.exif.size() > kMaxJpegExif) &&
                          (file_ != FileFormat::kTiff || tiff_holds_exif(format));
    drop_unless(has_exif, format.exif, "Exif is left out");
    if (file_ == FileFormat::kTiff && !format.exif.empty() &&
        exif_directories(format.exif, 0)->has_thumbnail) {
      lose("the thumbnail within Exif is left out");
    }
    const bool is_known = format.dots_per_metre_x > 0 && format.dots_per_metre_y > 0;
    if (is_known && can_.has_resolution && !(is_jpeg && format.model == Model::kCmyk)) return;
    if (is_known) lose("the resolution is left out");
    format.dots_per_metre_x = format.dots_per_metre_y = 0;
  }

  FileFormat file_;
  const Abilities& can_;
  Fit fit_;
};

}  // namespace

uint32_t file_depth(FileFormat file, const Format& format) {
  const uint32_t depth = format.depth;
  const bool is_grey = format.channels() == 1;
  switch (file) {
    case FileFormat::kPng:
      if (is_grey && depth <= 4) return depth == 3 ? 4 : depth;
      break;
    case FileFormat::kTiff:
      if (is_grey && depth == 1) return 1;
      break;
    case FileFormat::kJpeg:
    case FileFormat::kBmp:
      return 8;
    default:
      return depth;
  }
  return depth <= 8 ? 8 : 16;
}

Fit fit(FileFormat file, const Format& format) { return Fitting(file, format).take(); }

}  // namespace kvjpx_picture
