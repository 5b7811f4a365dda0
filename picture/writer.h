// Writes pictures row by row, so that no format but those that must holds a whole picture in
// memory.
#ifndef KVJPX_PICTURE_WRITER_H_
#define KVJPX_PICTURE_WRITER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "format.h"

namespace kvjpx_picture {

// Where the bytes go. Throws what it likes; writers pass it on.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void write(std::string_view bytes) = 0;
  // False for a pipe: writers of formats with positions to fill in later then keep a file of their
  // own until the end.
  virtual bool can_seek() const = 0;
  virtual void seek(uint64_t position) = 0;
};

// PNM is PGM or PPM, as the picture is; PGM refuses colours, PPM writes grey as three channels.
enum class FileFormat { kPng, kTiff, kPnm, kPam, kJpeg, kBmp, kPgm, kPpm };

// What the format can't hold of such a picture, each in words ("depth 12: written with 16 bits",
// "opacity is left out"); and the format of the samples that its writer wants, which differs from
// `format` where they must be converted first: the model, and opacity that is to be left out or
// made straight. The depth is never among it, as the writers change depths themselves.
struct Fit {
  Format format;
  std::vector<std::string> losses;
  std::string refusal;  // why the format can't hold the picture at all; empty otherwise
};
Fit fit(FileFormat file, const Format& format);

class Writer {
 public:
  virtual ~Writer() = default;
  // The next rows, of format.row_samples() samples each.
  virtual void write_rows(const uint16_t* samples, uint32_t rows) = 0;
  // Ends the file; without it the output is of no use.
  virtual void finish() = 0;
};

// `format` as fit() gave it; `quality` is JPEG's, 1 to 100. Throws std::runtime_error with a
// reason.
std::unique_ptr<Writer> open_writer(FileFormat file, const Format& format, Sink& sink,
                                    int quality = 95);

// An animated PNG: for every frame its duration, then all its rows. Every frame has the whole size.
class AnimationWriter {
 public:
  virtual ~AnimationWriter() = default;
  virtual void begin_frame(uint32_t milliseconds) = 0;
  virtual void write_rows(const uint16_t* samples, uint32_t rows) = 0;
  virtual void finish() = 0;
};
// `repetitions` 0: for ever.
std::unique_ptr<AnimationWriter> open_animation(const Format& format, uint32_t frames,
                                                uint32_t repetitions, Sink& sink);

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_WRITER_H_
