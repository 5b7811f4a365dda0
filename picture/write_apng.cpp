// Animated PNG: each frame is a PNG of its own, whose chunks are put in place here. The first
// frame's stay what they are, for readers that know no animation.
#include <zlib.h>

#include <stdexcept>

#include "row_writer.h"

namespace kvjpx_picture {
namespace {

constexpr size_t kSignatureSize = 8;
// Length and type before a chunk's data, a checksum behind it.
constexpr size_t kHeadSize = 8;
constexpr size_t kFrameSize = 12;

std::string big_endian(uint32_t number, size_t width = 4) {
  std::string bytes(width, 0);
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, number >>= 8) {
    *byte = static_cast<char>(number);
  }
  return bytes;
}

std::string chunk_of(const char* type, std::string_view data) {
  const std::string body = type + std::string(data);
  const uLong sum = crc32_z(0, reinterpret_cast<const Bytef*>(body.data()), body.size());
  return big_endian(static_cast<uint32_t>(data.size())) + body +
         big_endian(static_cast<uint32_t>(sum));
}

// Seconds as a fraction of two 16-bit numbers.
std::string duration(uint32_t milliseconds) {
  uint32_t denominator = 1000;
  for (; milliseconds > 0xFFFF && denominator > 1; milliseconds /= 10) denominator /= 10;
  return big_endian(milliseconds < 0xFFFF ? milliseconds : 0xFFFF, 2) + big_endian(denominator, 2);
}

class ApngWriter : public AnimationWriter, private Sink {
 public:
  ApngWriter(const Format& format, uint32_t frames, uint32_t repetitions, Sink& sink)
      : format_(format), sink_(sink), frames_(frames), repetitions_(repetitions) {
    const std::string refusal = fit(FileFormat::kPng, format).refusal;
    if (!refusal.empty() || frames == 0) {
      throw std::runtime_error(refusal.empty() ? "the animation is empty" : refusal);
    }
  }

  void begin_frame(uint32_t milliseconds) override {
    if (frame_) frame_->finish();
    if (begun_ == frames_) throw std::runtime_error("more frames than the animation has");
    ++begun_;
    milliseconds_ = milliseconds;
    pending_.clear();
    signature_is_done_ = control_is_done_ = false;
    frame_ = open_writer(FileFormat::kPng, format_, *this);
  }

  void write_rows(const uint16_t* samples, uint32_t rows) override {
    if (!frame_) throw std::runtime_error("rows without a frame");
    frame_->write_rows(samples, rows);
  }

  void finish() override {
    if (frame_) frame_->finish();
    if (begun_ < frames_) throw std::runtime_error("fewer frames than the animation has");
    sink_.write(chunk_of("IEND", ""));
  }

 private:
  // A frame's PNG, in whatever pieces it comes.
  void write(std::string_view bytes) override {
    pending_.append(bytes);
    size_t begin = 0;
    if (!signature_is_done_) {
      if (pending_.size() < kSignatureSize) return;
      if (is_first()) sink_.write({pending_.data(), kSignatureSize});
      signature_is_done_ = true;
      begin = kSignatureSize;
    }
    while (pending_.size() - begin >= kFrameSize) {
      size_t size = kFrameSize;
      for (size_t i = 0; i < 4; ++i) {
        size += size_t{static_cast<unsigned char>(pending_[begin + i])} << (24 - 8 * i);
      }
      if (pending_.size() - begin < size) break;
      put_chunk(std::string_view(pending_).substr(begin, size));
      begin += size;
    }
    pending_.erase(0, begin);
  }
  bool can_seek() const override { return false; }
  void seek(uint64_t) override {}

  bool is_first() const { return begun_ == 1; }

  void put_chunk(std::string_view chunk) {
    const std::string_view type = chunk.substr(4, 4);
    if (type == "IEND") return;
    if (type != "IDAT") {
      if (is_first()) sink_.write(chunk);
      return;
    }
    if (!control_is_done_) put_control();
    if (is_first()) return sink_.write(chunk);
    const std::string_view data = chunk.substr(kHeadSize, chunk.size() - kFrameSize);
    sink_.write(chunk_of("fdAT", big_endian(sequence_++) + std::string(data)));
  }

  void put_control() {
    if (is_first()) {
      sink_.write(chunk_of("acTL", big_endian(frames_) + big_endian(repetitions_)));
    }
    const std::string place = big_endian(0) + big_endian(0);
    // Disposal 0: the next frame comes upon this one; blending 0: in its place, opacity and all.
    sink_.write(chunk_of("fcTL", big_endian(sequence_++) + big_endian(format_.width) +
                                     big_endian(format_.height) + place + duration(milliseconds_) +
                                     std::string(2, 0)));
    control_is_done_ = true;
  }

  const Format format_;
  Sink& sink_;
  const uint32_t frames_;
  const uint32_t repetitions_;
  uint32_t begun_ = 0;
  uint32_t sequence_ = 0;
  uint32_t milliseconds_ = 0;
  std::string pending_;
  bool signature_is_done_ = false;
  bool control_is_done_ = false;
  std::unique_ptr<Writer> frame_;
};

}  // namespace

std::unique_ptr<AnimationWriter> open_animation(const Format& format, uint32_t frames,
                                                uint32_t repetitions, Sink& sink) {
  return std::make_unique<ApngWriter>(format, frames, repetitions, sink);
}

}  // namespace kvjpx_picture
