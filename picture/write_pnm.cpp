// PGM, PPM and PAM: a header in words, then the samples as they are.
#include "row_writer.h"

namespace kvjpx_picture {
namespace {

class PnmWriter : public ByteWriter {
 public:
  // `repetitions`: how often each sample is written, 3 for a grey PPM.
  PnmWriter(const Format& format, Sink& sink, const std::string& header, size_t repetitions)
      : ByteWriter(format, sink), scale_(format.depth, format.depth), repetitions_(repetitions) {
    put(header);
  }

 private:
  void write_row(const uint16_t* row) override {
    const size_t size = format_.row_samples() * scale_.bytes_per_sample();
    if (repetitions_ == 1) return scale_.pack(row, format_.row_samples(), extend(size));
    uint8_t* bytes = extend(size * repetitions_);
    for (size_t i = 0; i < format_.row_samples(); ++i) {
      for (size_t copy = 0; copy < repetitions_; ++copy, bytes += scale_.bytes_per_sample()) {
        scale_.pack(row + i, 1, bytes);
      }
    }
  }

  Scale scale_;
  size_t repetitions_;
};

std::string greatest(const Format& format) { return std::to_string((1U << format.depth) - 1); }

std::string tuple_type(const Format& format) {
  std::string name;
  switch (format.model) {
    case Model::kGrey:
      name = format.depth == 1 ? "BLACKANDWHITE" : "GRAYSCALE";
      break;
    case Model::kRgb:
      name = "RGB";
      break;
    case Model::kCmyk:
      name = "CMYK";
      break;
    default:
      return "";
  }
  return "TUPLTYPE " + name + (format.opacity == Opacity::kNone ? "" : "_ALPHA") + "\n";
}

}  // namespace

std::unique_ptr<Writer> open_pnm(FileFormat file, const Format& format, Sink& sink) {
  const bool is_grey = format.colours == 1;
  const bool writes_colours = file == FileFormat::kPpm || !is_grey;
  const std::string header = std::string(writes_colours ? "P6\n" : "P5\n") +
                             std::to_string(format.width) + " " + std::to_string(format.height) +
                             "\n" + greatest(format) + "\n";
  return std::make_unique<PnmWriter>(format, sink, header, writes_colours && is_grey ? 3 : 1);
}

std::unique_ptr<Writer> open_pam(const Format& format, Sink& sink) {
  const std::string header = "P7\nWIDTH " + std::to_string(format.width) + "\nHEIGHT " +
                             std::to_string(format.height) + "\nDEPTH " +
                             std::to_string(format.channels()) + "\nMAXVAL " + greatest(format) +
                             "\n" + tuple_type(format) + "ENDHDR\n";
  return std::make_unique<PnmWriter>(format, sink, header, 1);
}

}  // namespace kvjpx_picture
