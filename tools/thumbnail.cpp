#include "thumbnail.h"

#include <algorithm>
#include <vector>

#include "codec_loader.h"
#include "failure.h"
#include "picture/picture.h"
#include "picture/writer.h"

namespace kvjpx_tool {
namespace {

using kvjpx_picture::Format;
using kvjpx_picture::Picture;

constexpr uint32_t kWantedSide = 640;
// A larger one, after all reductions, costs too much for what it shows.
constexpr uint64_t kMaxSamples = 1 << 27;

class StringSink final : public kvjpx_picture::Sink {
 public:
  void write(std::string_view bytes) override { bytes_ += bytes; }
  bool can_seek() const override { return false; }
  void seek(uint64_t /*position*/) override {}
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

unsigned common_levels(const Json& info) {
  unsigned levels = 31;
  for (const Json& codestream : info["codestreams"]) {
    levels = std::min(levels, codestream.value("levels", 0U));
  }
  return info["codestreams"].empty() ? 0 : levels;
}

kvjpx_picture::Request smallest_request(const OpenedFile& file, unsigned levels) {
  kvjpx_picture::Request request;
  request.to_srgb = true;
  request.sample_limit = kMaxSamples;
  const Format whole = Picture(file.document(), file.bytes(), request).format();
  uint32_t& reduction = request.effort.reduction;
  while (reduction < levels && std::max(whole.width, whole.height) >> reduction > kWantedSide) {
    ++reduction;
  }
  return request;
}

// Writes every `step`-th sample of every `step`-th row.
void write_rows(Picture& picture, uint32_t step, kvjpx_picture::Writer& writer) {
  const Format& format = picture.format();
  const uint32_t channels = format.channels();
  std::vector<uint16_t> rows;
  std::vector<uint16_t> thin;
  for (uint32_t row = 0; row < format.height;) {
    const uint32_t count = picture.good_count(row);
    rows.resize(format.row_samples() * count);
    picture.read_rows(row, count, rows.data());
    for (uint32_t y = (step - row % step) % step; y < count; y += step) {
      thin.clear();
      for (uint32_t x = 0; x < format.width; x += step) {
        const uint16_t* const pixel = rows.data() + y * format.row_samples() + size_t{x} * channels;
        thin.insert(thin.end(), pixel, pixel + channels);
      }
      writer.write_rows(thin.data(), 1);
    }
    row += count;
  }
}

}  // namespace

std::string thumbnail_png(const OpenedFile& file, const Json& info) {
  load_sample_codec();
  try {
    Picture picture(file.document(), file.bytes(), smallest_request(file, common_levels(info)));
    const auto fit = kvjpx_picture::fit(kvjpx_picture::FileFormat::kPng, picture.format());
    if (!fit.refusal.empty()) throw Failure(kNothingDecoded, fit.refusal);
    picture.convert(fit.format);
    Format format = picture.format();
    const uint32_t step = (std::max(format.width, format.height) - 1) / kWantedSide + 1;
    format.width = (format.width - 1) / step + 1;
    format.height = (format.height - 1) / step + 1;
    format.icc.clear();
    format.xmp.clear();
    format.exif.clear();
    StringSink sink;
    const auto writer = open_writer(kvjpx_picture::FileFormat::kPng, format, sink);
    write_rows(picture, step, *writer);
    writer->finish();
    if (!picture.is_anything_there()) {
      throw Failure(kNothingDecoded, "nothing of it can be decoded");
    }
    return sink.take();
  } catch (const kvjpx_picture::Error& error) {
    throw Failure(kNothingDecoded, error.what());
  }
}

}  // namespace kvjpx_tool
