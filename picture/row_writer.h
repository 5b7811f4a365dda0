// What the writers share: counting rows, changing depths, and sinks that C libraries can call.
#ifndef KVJPX_PICTURE_ROW_WRITER_H_
#define KVJPX_PICTURE_ROW_WRITER_H_

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "writer.h"

namespace kvjpx_picture {

// The bits of a sample in the file.
uint32_t file_depth(FileFormat file, const Format& format);
// False for broken Exif, and where positions have 64 bits.
bool tiff_holds_exif(const Format& format);

// Rounded, and within what signed numbers of 32 bits can be, as a file format's numbers are.
uint32_t whole(double number);

// Samples of one depth as samples of another, linearly, both ends of the range kept. To a greater
// depth that is without loss: the upper bits of the result are the sample.
class Scale {
 public:
  Scale(uint32_t from, uint32_t to);
  uint16_t operator()(uint16_t sample) const {
    return table_[sample < table_.size() ? sample : table_.size() - 1];
  }
  // As the file formats store them: in one byte up to 8 bits, else in two, the upper one first.
  void pack(const uint16_t* samples, size_t count, uint8_t* bytes) const;
  size_t bytes_per_sample() const { return to_ > 8 ? 2 : 1; }

 private:
  uint32_t from_;
  uint32_t to_;
  std::vector<uint16_t> table_;
};

// Sees to it that as many rows come as were announced.
class RowWriter : public Writer {
 public:
  RowWriter(const Format& format, Sink& sink)
      : format_(format), sink_(sink), rows_left_(format.height) {}
  void write_rows(const uint16_t* samples, uint32_t rows) final;
  void finish() final;

 protected:
  virtual void write_row(const uint16_t* row) = 0;
  virtual void end() = 0;

  const Format format_;
  Sink& sink_;

 private:
  uint32_t rows_left_;
};

// For formats that are written byte by byte: gathers rows to pieces worth a call.
class ByteWriter : public RowWriter {
 public:
  using RowWriter::RowWriter;

 protected:
  // `size` more bytes to fill in.
  uint8_t* extend(size_t size);
  void put(std::string_view bytes) { pending_.append(bytes); }
  void end() override;

 private:
  std::string pending_;
};

// A sink to call from within a C library, which no exception may pass through: keeps what the sink
// threw until the library is left.
class QuietSink {
 public:
  explicit QuietSink(Sink& sink) : sink_(&sink) {}
  bool write(const void* bytes, size_t size) noexcept;
  bool seek(uint64_t position) noexcept;
  // Refuses everything from now on.
  void close() noexcept { sink_ = nullptr; }
  // Throws what the sink threw, or a runtime_error with the reason.
  [[noreturn]] void fail(const std::string& reason) const;

 private:
  Sink* sink_;
  std::exception_ptr thrown_;
};

std::unique_ptr<Writer> open_png(const Format& format, Sink& sink);
std::unique_ptr<Writer> open_tiff(const Format& format, Sink& sink);
// PGM or PPM, by `file`.
std::unique_ptr<Writer> open_pnm(FileFormat file, const Format& format, Sink& sink);
std::unique_ptr<Writer> open_pam(const Format& format, Sink& sink);
std::unique_ptr<Writer> open_jpeg(const Format& format, Sink& sink, int quality);
std::unique_ptr<Writer> open_bmp(const Format& format, Sink& sink);

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_ROW_WRITER_H_
