// Fuzzer: the picture that a file means, read row by row, converted to what a file format can hold
// and written in that format. An input that starts like a codestream (0xFF) or a JPX file (0) is
// one and is shown as a whole; any other starts with ten bytes of choices.
#include "picture/picture.h"

#include <algorithm>
#include <stdexcept>

#include "picture/writer.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

using kvjpx_picture::Error;
using kvjpx_picture::FileFormat;
using kvjpx_picture::Format;
using kvjpx_picture::Picture;
using kvjpx_picture::Request;

constexpr uint8_t kCodestreamStart = 0xFF;
constexpr uint8_t kFileStart = 0;
// Small limits keep a run short.
constexpr uint64_t kMostSamples = uint64_t{1} << 16;
constexpr size_t kMostFrames = 3;

struct Choice {
  Request request;
  FileFormat file = FileFormat::kPng;
};

Choice take_choice(Input& input) {
  Choice choice;
  Request& request = choice.request;
  request.effort.threads = 1;
  request.effort.work_limit = 2 * kMostSamples;
  request.sample_limit = kMostSamples;
  if (input.is_empty() || *input.data() == kCodestreamStart || *input.data() == kFileStart) {
    return choice;
  }
  constexpr FileFormat kFiles[] = {FileFormat::kPng, FileFormat::kTiff, FileFormat::kPnm,
                                   FileFormat::kPam, FileFormat::kJpeg, FileFormat::kBmp,
                                   FileFormat::kPgm, FileFormat::kPpm};
  const uint8_t flags = input.byte();
  request.to_srgb = (flags & 2) != 0;
  request.effort.is_strict = (flags & 4) != 0;
  request.all_frames = (flags & 8) != 0;
  choice.file = kFiles[flags >> 5];
  std::optional<uint64_t>* const parts[] = {nullptr, &request.layer, &request.codestream,
                                            &request.frame};
  const uint8_t part = input.byte();
  const uint8_t number = input.byte();
  if (parts[part % 4] != nullptr) *parts[part % 4] = number;
  request.effort.reduction = input.byte() % 34;
  request.effort.layers = input.byte();
  if ((flags & 16) != 0) {
    request.region.left = input.byte();
    request.region.top = input.byte();
    request.region.right = request.region.left + 1 + input.byte();
    request.region.bottom = request.region.top + 1 + input.byte();
  }
  return choice;
}

class NullSink final : public kvjpx_picture::Sink {
 public:
  explicit NullSink(bool can_seek) : can_seek_(can_seek) {}
  void write(std::string_view bytes) override {
    // So that the sanitizers see each of them read.
    for (const char c : bytes) sum_ = static_cast<uint8_t>(sum_ + static_cast<uint8_t>(c));
  }
  bool can_seek() const override { return can_seek_; }
  void seek(uint64_t) override {}

 private:
  bool can_seek_;
  volatile uint8_t sum_ = 0;
};

void check_format(const Format& format, const Request& request) {
  require(format.width > 0 && format.height > 0 && format.colours > 0, "a picture has samples");
  require(format.row_samples() * format.height <= kMostSamples, "the limit holds");
  require(format.depth >= 1 && format.depth <= 16, "samples have 1 to 16 bits");
  const uint64_t scale = uint64_t{1} << request.effort.reduction;
  const kvjpx_picture::Rectangle& region = request.region;
  require((format.width - 1) * scale < region.right - region.left &&
              (format.height - 1) * scale < region.bottom - region.top,
          "a picture is not larger than its region");
}

std::vector<uint16_t> read(Picture& picture, uint32_t first, uint32_t count) {
  const Format& format = picture.format();
  std::vector<uint16_t> rows(format.row_samples() * count);
  picture.read_rows(first, count, rows.data());
  const uint32_t greatest = (1U << format.depth) - 1;
  require(std::all_of(rows.begin(), rows.end(), [&](uint16_t v) { return v <= greatest; }),
          "samples keep to their depth");
  return rows;
}

// All rows, each strip handed on.
template <class Take>
void read_strips(Picture& picture, const Take& take) {
  const uint32_t height = picture.format().height;
  for (uint32_t row = 0; row < height;) {
    const uint32_t count = picture.good_count(row);
    require(count > 0 && count <= height - row, "a strip has rows, and ends with the picture");
    take(read(picture, row, count), count);
    row += count;
  }
}

void write(Picture& picture, FileFormat file, bool can_seek) {
  const kvjpx_picture::Fit fit = kvjpx_picture::fit(file, picture.format());
  if (!fit.refusal.empty()) return;
  picture.convert(fit.format);
  const Format& format = picture.format();
  require(format.model == fit.format.model && format.channels() == fit.format.channels(),
          "a picture is converted to what was asked for");
  NullSink sink(can_seek);
  const auto writer = kvjpx_picture::open_writer(file, format, sink);
  read_strips(picture, [&](const std::vector<uint16_t>& rows, uint32_t count) {
    writer->write_rows(rows.data(), count);
  });
  writer->finish();
}

void show(const document& document, std::string_view bytes, const Choice& choice) {
  Picture picture(document, bytes, choice.request);
  check_format(picture.format(), choice.request);
  std::vector<uint16_t> all;
  read_strips(picture, [&](const std::vector<uint16_t>& rows, uint32_t) {
    all.insert(all.end(), rows.begin(), rows.end());
  });
  const size_t row_samples = picture.format().row_samples();
  const uint32_t middle = picture.format().height / 2;
  // Where nothing is damaged, that is: a part is decoded with other data than the whole.
  const std::vector<uint16_t> alone = read(picture, middle, 1);
  const auto* const place = all.data() + row_samples * middle;
  require(!choice.request.effort.is_strict || std::equal(alone.begin(), alone.end(), place),
          "a row is the same whatever is read with it");
  const Format format = picture.format();
  const size_t frames = std::min(picture.frame_milliseconds().size(), kMostFrames);
  for (size_t frame = 1; frame < frames; ++frame) {
    picture.select_frame(frame);
    require(picture.format().row_samples() == row_samples &&
                picture.format().height == format.height && picture.format().depth == format.depth,
            "frames are alike");
    read_strips(picture, [](const std::vector<uint16_t>&, uint32_t) {});
  }
  write(picture, choice.file, middle % 2 == 0);
}

}  // namespace

void run(Input input) {
  const Choice choice = take_choice(input);
  const std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
  const bool is_codestream = !input.is_empty() && *input.data() == kCodestreamStart;
  auto document = is_codestream ? document::create() : document::read(byte_view(bytes));
  require(document.has_value(), "any bytes load");
  document->set_source(byte_view(bytes));
  try {
    show(*document, bytes, choice);
  } catch (const Error& error) {
    require(error.kind() != Error::Kind::kMemory, "what the limits allow takes little memory");
  } catch (const std::runtime_error&) {
    // A writer's: the format can't hold the picture after all.
  }
}

}  // namespace kvjpx::fuzz
