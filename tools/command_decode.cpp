// decode: the picture that a file means.
#include <algorithm>
#include <cctype>
#include <sstream>

#include "codec_loader.h"
#include "commands.h"
#include "decode_raw.h"
#include "kv_j2k.h"
#include "opened_file.h"
#include "picture/writer.h"
#include "picture_reading.h"
#include "progress.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

using kvjpx_picture::FileFormat;
using kvjpx_picture::Picture;

struct Format {
  const char* name;                // also the ending of file names
  int32_t raw_output;              // kv_j2k_output_type; 0: no raw planes in this format
  std::optional<FileFormat> file;  // nothing: raw planes only
  bool is_animation = false;
};

constexpr Format kFormats[] = {
    {"png", KV_J2K_OUTPUT_PNG, FileFormat::kPng},
    {"apng", 0, FileFormat::kPng, true},
    {"tif", KV_J2K_OUTPUT_TIFF, FileFormat::kTiff},
    {"tiff", KV_J2K_OUTPUT_TIFF, FileFormat::kTiff},
    {"jpg", KV_J2K_OUTPUT_JPEG, FileFormat::kJpeg},
    {"jpeg", KV_J2K_OUTPUT_JPEG, FileFormat::kJpeg},
    {"pnm", KV_J2K_OUTPUT_PNM, FileFormat::kPnm},
    {"ppm", KV_J2K_OUTPUT_PNM, FileFormat::kPpm},
    {"pgm", KV_J2K_OUTPUT_PNM, FileFormat::kPgm},
    {"pam", KV_J2K_OUTPUT_PNM, FileFormat::kPam},
    {"bmp", KV_J2K_OUTPUT_BMP, FileFormat::kBmp},
    {"raw", KV_J2K_OUTPUT_INTERLEAVED, std::nullopt},
    {"planar", KV_J2K_OUTPUT_PLANES, std::nullopt},
    {"j2k", KV_J2K_OUTPUT_J2K, std::nullopt},
    {"j2c", KV_J2K_OUTPUT_J2K, std::nullopt},
    {"jpc", KV_J2K_OUTPUT_J2K, std::nullopt},
    {"jp2", KV_J2K_OUTPUT_JP2, std::nullopt},
};

const Format* find_format(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const auto* found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                   [&](const Format& format) { return name == format.name; });
  return found == std::end(kFormats) ? nullptr : found;
}

const Format& choose_format(const DecodeRequest& request, const Target& target) {
  if (!request.format.empty()) {
    const Format* format = find_format(request.format);
    if (format) return *format;
    throw Failure(kUsage,
                  "--format " + request.format + ": unknown; one of " + decode_formats(", "));
  }
  if (target.is_stdout()) throw Failure(kUsage, "standard output needs --format");
  const size_t dot = target.name.rfind('.');
  const Format* format =
      dot == std::string::npos ? nullptr : find_format(target.name.substr(dot + 1));
  if (format) return *format;
  throw Failure(kUsage, target.name + ": the name tells no format; use --format with one of " +
                            decode_formats(", "));
}

Region parse_region(const std::string& text) {
  uint64_t edges[4] = {};
  if (text.empty()) return {};
  size_t count = 0;
  std::istringstream parts(text + ",");
  for (std::string part; std::getline(parts, part, ',');) {
    const std::optional<uint64_t> edge = parse_number(part);
    if (!edge || count == 4) {
      count = 0;
      break;
    }
    edges[count++] = *edge;
  }
  const Region region{edges[0], edges[1], edges[2], edges[3]};
  const bool is_empty = (region.right != 0 && region.right <= region.left) ||
                        (region.bottom != 0 && region.bottom <= region.top);
  if (count != 4 || is_empty) {
    throw Failure(kUsage, "--region " + text +
                              ": needs left,top,right,bottom with left < right and top < bottom "
                              "(0 for right or bottom is the image's edge)");
  }
  return region;
}

// Raw planes have neither layers nor colours.
void check_options(const DecodeRequest& request, const Format& format, bool is_raw) {
  if (is_raw && format.raw_output == 0) {
    throw Failure(kUsage, std::string("--raw: not in the format ") + format.name);
  }
  if (is_raw && (request.layer || request.frame || request.srgb || request.strict)) {
    throw Failure(kUsage, std::string("the options --layer, --frame, --srgb and --strict are not "
                                      "for raw planes (--raw, or the format ") +
                              format.name + ")");
  }
}

kvjpx_picture::Request picture_request(const DecodeRequest& request, const Region& region) {
  kvjpx_picture::Request asked;
  asked.layer = request.layer;
  asked.codestream = request.codestream;
  asked.frame = request.frame;
  set_region(asked, {region.left, region.top, region.right, region.bottom});
  asked.effort.reduction = request.reduce;
  asked.effort.layers = request.layers.value_or(0);
  asked.effort.is_strict = request.strict;
  asked.to_srgb = request.srgb;
  set_limit(asked, request.limit.value_or(0));
  return asked;
}

// A format without a place for a profile gets colours that need none.
Picture open_picture(const OpenedFile& file, const Format& format, kvjpx_picture::Request asked) {
  Picture picture(file.document(), file.bytes(), asked);
  const bool loses_profile = !picture.format().icc.empty() &&
                             kvjpx_picture::fit(*format.file, picture.format()).format.icc.empty();
  if (asked.to_srgb || !loses_profile) return picture;
  report(file.label() + ": note: the ICC profile can't be kept: converted to sRGB");
  asked.to_srgb = true;
  return Picture(file.document(), file.bytes(), asked);
}

class ResultSink final : public kvjpx_picture::Sink {
 public:
  explicit ResultSink(const Target& target) : result_(target) {}
  void write(std::string_view bytes) override { result_.write(bytes); }
  bool can_seek() const override { return result_.can_seek(); }
  void seek(uint64_t position) override { result_.seek(position); }
  void finish() { result_.finish(); }

 private:
  ResultStream result_;
};

class PictureWriting {
 public:
  PictureWriting(const OpenedFile& file, Picture& picture) : file_(file), picture_(picture) {}

  void write(const Format& format, int quality, const Target& target) {
    const kvjpx_picture::Fit fit = kvjpx_picture::fit(*format.file, picture_.format());
    if (!fit.refusal.empty()) {
      throw Failure(kNothingDecoded, file_.label() + ": " + fit.refusal);
    }
    picture_.convert(fit.format);
    ResultSink sink(target);
    if (format.is_animation) {
      write_animation(sink);
    } else {
      auto writer = kvjpx_picture::open_writer(*format.file, picture_.format(), sink, quality);
      write_frame(*writer);
      writer->finish();
    }
    sink.finish();
    for (const std::string& loss : fit.losses) tell(loss);
  }

 private:
  void tell(const std::string& note) const { report(file_.label() + ": note: " + note); }

  template <class Writer>
  void write_frame(Writer& writer) {
    read_all_rows(file_, picture_, [&](const uint16_t* rows, uint32_t /*first*/, uint32_t count) {
      writer.write_rows(rows, count);
    });
  }

  void write_animation(ResultSink& sink) {
    const std::vector<uint32_t> frames = picture_.frame_milliseconds();
    auto writer = kvjpx_picture::open_animation(
        picture_.format(), static_cast<uint32_t>(frames.size()), picture_.repetitions(), sink);
    for (size_t frame = 0; frame < frames.size(); ++frame) {
      if (frame > 0) picture_.select_frame(frame);
      writer->begin_frame(frames[frame]);
      write_frame(*writer);
    }
    writer->finish();
  }

  const OpenedFile& file_;
  Picture& picture_;
};

}  // namespace

std::string decode_formats(const std::string& between) {
  std::string names;
  for (const Format& format : kFormats)
    names += (names.empty() ? "" : between) + std::string(format.name);
  return names;
}

void decode_picture(const DecodeRequest& request, const Target& target) {
  const Format& format = choose_format(request, target);
  const Region region = parse_region(request.region);
  const bool is_raw = request.raw || !format.file;
  check_options(request, format, is_raw);
  check_takes_binary(target);
  if (is_raw) {
    decode_raw(request, region, format.name, format.raw_output, target);
    return;
  }
  const OpenedFile file(request.file);
  file.check_is_known();
  load_sample_codec();
  try {
    const Progress progress("kvjpx: decoding " + file.label());
    kvjpx_picture::Request asked = picture_request(request, region);
    asked.all_frames = format.is_animation;
    Picture picture = open_picture(file, format, asked);
    PictureWriting(file, picture).write(format, request.quality, target);
    for (const std::string& note : picture.notes()) report(file.label() + ": note: " + note);
  } catch (const kvjpx_picture::Error& error) {
    throw decoding_failure(file.label(), error, "; --limit N allows N million samples");
  } catch (const std::bad_alloc&) {
    throw Failure(kInputOutput, file.label() + ": not enough memory");
  } catch (const Failure&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw Failure(kInputOutput, target.name + ": cannot write: " + error.what());
  }
}

}  // namespace kvjpx_tool
