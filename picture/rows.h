// Something that delivers a picture by rows.
#ifndef KVJPX_PICTURE_ROWS_H_
#define KVJPX_PICTURE_ROWS_H_

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "error.h"
#include "format.h"

namespace kvjpx_picture {

// What must be said of a picture, each once.
class Notes {
 public:
  void add(const std::string& note) {
    if (told_.insert(note).second) notes_.push_back(note);
  }
  const std::vector<std::string>& all() const { return notes_; }

 private:
  std::set<std::string> told_;
  std::vector<std::string> notes_;
};

class Rows {
 public:
  virtual ~Rows() = default;
  const Format& format() const { return format_; }
  // Rows `first` to `first + count` - 1, format().row_samples() samples each. In whatever order,
  // but quickest from top to bottom in steps of good_count.
  virtual void read(uint32_t first, uint32_t count, uint16_t* out) = 0;
  // How many rows to read from `first` on so that neither time nor memory is wasted: at least 1.
  virtual uint32_t good_count(uint32_t first) const = 0;

 protected:
  Format format_;
};

// Throws an Error when the pictures have more samples than the limit; 0: none.
inline void check_size(uint64_t width, uint64_t height, size_t channels, size_t pictures,
                       uint64_t limit) {
  const double samples = static_cast<double>(width) * static_cast<double>(height) *
                         static_cast<double>(channels) * static_cast<double>(pictures);
  if (limit == 0 || samples <= static_cast<double>(limit)) return;
  const std::string what =
      pictures == 1 ? "a picture of " : std::to_string(pictures) + " frames of ";
  throw Error(Error::Kind::kTooLarge,
              what + std::to_string(width) + " x " + std::to_string(height) + " with " +
                  std::to_string(channels) + " channels, " +
                  std::to_string(static_cast<uint64_t>(std::ceil(samples / 1e6))) +
                  " million samples, is too large");
}

// Rows of so many bytes each that a strip of them is a fair part of the picture: the smaller it is,
// the less memory it takes and the more is decoded twice at its edges.
inline uint32_t rows_of_strip(const Format& format, uint64_t bytes_of_row) {
  constexpr uint64_t kSmall = 16 << 20;
  const uint64_t native =
      format.row_samples() * uint64_t{format.height} * (format.depth > 8 ? 2 : 1);
  const uint64_t budget = std::max(kSmall, native / 8 * 3);
  return static_cast<uint32_t>(
      std::clamp<uint64_t>(budget / std::max<uint64_t>(bytes_of_row, 1), 1, format.height));
}

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_ROWS_H_
