// How the samples of a component become the samples of the picture: which ones, and with what
// value.
#ifndef KVJ2K_SAMPLING_H_
#define KVJ2K_SAMPLING_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvj2k {

struct Span {
  uint64_t begin = 0;
  uint64_t end = 0;

  bool operator==(const Span& other) const { return begin == other.begin && end == other.end; }
  bool is_empty() const { return begin >= end; }
  uint64_t size() const { return is_empty() ? 0 : end - begin; }
  Span intersected(const Span& other) const {
    return {std::max(begin, other.begin), std::min(end, other.end)};
  }
  Span joined(const Span& other) const {
    return {std::min(begin, other.begin), std::max(end, other.end)};
  }
  // The numbers of the points, `spacing` apart, that lie in this part of the reference grid.
  Span points(uint64_t spacing) const {
    return {(begin + spacing - 1) / spacing, (end + spacing - 1) / spacing};
  }
};

// One direction of one component. The picture has a sample every `picture` steps of the reference
// grid, the decoded component one every `component` steps.
struct Spacing {
  uint64_t picture = 1;
  uint64_t component = 1;

  // The component's samples that picture sample `index` is made of: the last one that stands at or
  // before it, or, when the component is finer than the picture, all up to the next picture sample.
  // `available` are the samples that the component has at all; at least one.
  Span sources(uint64_t index, const Span& available) const {
    const uint64_t first =
        std::clamp(index * picture / component, available.begin, available.end - 1);
    const uint64_t count = std::max<uint64_t>(1, picture / component);
    return {first, std::min(first + count, available.end)};
  }

  // The part of the reference grid whose samples make up `picture_samples`.
  Span needed(const Span& picture_samples, const Span& available) const {
    const uint64_t first = sources(picture_samples.begin, available).begin;
    const uint64_t last = sources(picture_samples.end - 1, available).end - 1;
    return {first * component, last * component + 1};
  }
};

// Makes bytes of samples with another range.
class ByteScale {
 public:
  ByteScale(uint32_t precision, bool is_signed)
      : offset_(is_signed ? int64_t{1} << (precision - 1) : 0),
        full_((int64_t{1} << precision) - 1),
        shift_(precision > 8 ? precision - 8 : 0) {}

  uint8_t operator()(int64_t sample) const {
    const int64_t value = std::clamp<int64_t>(sample + offset_, 0, full_);
    return static_cast<uint8_t>(full_ >= 255 ? value >> shift_ : (value * 255 + full_ / 2) / full_);
  }

 private:
  int64_t offset_;
  int64_t full_;
  uint32_t shift_;
};

// Decoded samples of one component; the first one has the numbers (first_column, first_row).
struct DecodedPlane {
  const int32_t* samples;
  size_t width;
  uint64_t first_column;
  uint64_t first_row;
};

// Fills one plane of a picture. columns[x] and rows[y] are the sources of its samples, and all lie
// within the decoded plane.
void resample(const DecodedPlane& plane, const std::vector<Span>& columns,
              const std::vector<Span>& rows, const ByteScale& to_byte, uint8_t* out);

}  // namespace kvj2k

#endif  // KVJ2K_SAMPLING_H_
