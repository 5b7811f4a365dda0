#include "row_writer.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace kvjpx_picture {
namespace {

constexpr size_t kPieceSize = 1 << 16;

}  // namespace

uint32_t whole(double number) {
  return static_cast<uint32_t>(std::lround(std::min(std::max(number, 0.0), 2147483647.0)));
}

Scale::Scale(uint32_t from, uint32_t to) : from_(from), to_(to), table_(size_t{1} << from) {
  const uint64_t last = table_.size() - 1, greatest = (uint64_t{1} << to) - 1;
  for (uint64_t sample = 0; sample <= last; ++sample) {
    table_[sample] = static_cast<uint16_t>((sample * greatest + last / 2) / last);
  }
}

void Scale::pack(const uint16_t* samples, size_t count, uint8_t* bytes) const {
  if (from_ == 16 && to_ == 16) {  // what the table would say, in a loop for vectors
    for (size_t i = 0; i < count; ++i) {
      bytes[2 * i] = static_cast<uint8_t>(samples[i] >> 8);
      bytes[2 * i + 1] = static_cast<uint8_t>(samples[i]);
    }
  } else if (to_ > 8) {
    for (size_t i = 0; i < count; ++i) {
      const uint16_t sample = (*this)(samples[i]);
      bytes[2 * i] = static_cast<uint8_t>(sample >> 8);
      bytes[2 * i + 1] = static_cast<uint8_t>(sample);
    }
  } else {
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>((*this)(samples[i]));
  }
}

void RowWriter::write_rows(const uint16_t* samples, uint32_t rows) {
  if (rows > rows_left_) throw std::runtime_error("more rows than the picture has");
  for (; rows > 0; --rows, --rows_left_, samples += format_.row_samples()) write_row(samples);
}

void RowWriter::finish() {
  if (rows_left_ > 0) throw std::runtime_error("fewer rows than the picture has");
  end();
}

uint8_t* ByteWriter::extend(size_t size) {
  if (pending_.size() >= kPieceSize) {
    sink_.write(pending_);
    pending_.clear();
  }
  const size_t begin = pending_.size();
  pending_.resize(begin + size);
  return reinterpret_cast<uint8_t*>(&pending_[begin]);
}

void ByteWriter::end() {
  sink_.write(pending_);
  pending_.clear();
}

bool QuietSink::write(const void* bytes, size_t size) noexcept {
  if (thrown_ || !sink_) return false;
  try {
    sink_->write({static_cast<const char*>(bytes), size});
  } catch (...) {
    thrown_ = std::current_exception();
  }
  return !thrown_;
}

bool QuietSink::seek(uint64_t position) noexcept {
  if (thrown_ || !sink_) return false;
  try {
    sink_->seek(position);
  } catch (...) {
    thrown_ = std::current_exception();
  }
  return !thrown_;
}

void QuietSink::fail(const std::string& reason) const {
  if (thrown_) std::rethrow_exception(thrown_);
  throw std::runtime_error(reason);
}

std::unique_ptr<Writer> open_writer(FileFormat file, const Format& wanted, Sink& sink,
                                    int quality) {
  const Fit fitting = fit(file, wanted);
  const Format& format = fitting.format;
  if (!fitting.refusal.empty()) throw std::runtime_error(fitting.refusal);
  if (format.channels() != wanted.channels() || format.opacity != wanted.opacity) {
    throw std::runtime_error("the file format can't hold such samples");
  }
  switch (file) {
    case FileFormat::kPng:
      return open_png(format, sink);
    case FileFormat::kTiff:
      return open_tiff(format, sink);
    case FileFormat::kPnm:
    case FileFormat::kPgm:
    case FileFormat::kPpm:
      return open_pnm(file, format, sink);
    case FileFormat::kPam:
      return open_pam(format, sink);
    case FileFormat::kJpeg:
      return open_jpeg(format, sink, quality);
    case FileFormat::kBmp:
      break;
  }
  return open_bmp(format, sink);
}

}  // namespace kvjpx_picture
