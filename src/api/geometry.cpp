// Where codestreams lie in the composed image (see geometry.h).
#include "api/geometry.h"

#include <string.h>

namespace kvjpx {
namespace {

constexpr int32_t kFullSizeFlag = 1;  // a resolution flag that keeps the image at full size

uint64_t smaller_of(uint64_t a, uint64_t b) { return a < b ? a : b; }

uint64_t scale_of(const Composition& image) { return uint64_t{1} << image.reduction; }

// One axis of the part of the region that lies in the image.
uint32_t clipped(uint64_t from, uint64_t to, uint32_t whole) {
  const auto extent = static_cast<uint32_t>(to != 0 ? to - from : whole);
  return from + extent > whole ? static_cast<uint32_t>(whole - from) : extent;
}

// One axis of the part of a codestream that the region needs: from, to.
struct Span {
  uint64_t from;
  uint64_t to;
};

Span needed_span(uint64_t region_from, uint32_t region_extent, uint64_t place, uint32_t extent,
                 uint32_t offset) {
  const uint64_t distance = region_from - place;  // may be negative, in two's complement
  const uint64_t from = static_cast<int64_t>(distance) > 0 ? distance : 0;
  const uint64_t of_codestream = uint32_t{extent - offset} - from;
  const uint64_t of_region = distance - from + region_extent;
  return {from, smaller_of(of_codestream, of_region) + from};
}

// How many reduced samples the codec delivers for a span; 0 for none.
uint64_t delivered_extent(const Composition& image, uint64_t from, uint64_t to, uint32_t extent,
                          uint32_t offset) {
  const uint64_t round = scale_of(image) - 1;
  const uint64_t end = smaller_of(to, extent);
  const uint64_t begin = from > offset ? from : offset;
  const auto first = static_cast<int64_t>(round + begin) >> image.reduction;
  const auto count = static_cast<int64_t>((round + end) >> image.reduction) - first;
  return count > 0 ? static_cast<uint64_t>(count) : 0;
}

// The place of a codestream on the reduced image.
uint64_t reduced_place(const Composition& image, uint64_t place, uint64_t region_from) {
  const auto distance = static_cast<int64_t>(place - region_from);
  return distance > 0 ? static_cast<uint64_t>(distance) / scale_of(image) : 0;
}

// Where in the delivery a row starts; past its end for rows that it cannot hold.
uint64_t row_offset(const Delivery& delivery, uint32_t plane, uint64_t row) {
  uint64_t rows;
  uint64_t offset;
  if (__builtin_mul_overflow(delivery.height, plane, &rows) ||
      __builtin_mul_overflow(rows + row, delivery.width, &offset)) {
    return delivery.length;
  }
  return offset;
}

}  // namespace

uint32_t reduction_of(int32_t level, int32_t flag) {
  if (flag == kFullSizeFlag || level < kFirstMeaningfulLevel) return 0;
  return ((static_cast<uint32_t>(level) & 0xFF) - 1) & 31;
}

Composition composition_of(const Rectangle& region, uint32_t width, uint32_t height,
                           uint32_t reduction) {
  Composition image = {};
  image.left = region.left;
  image.top = region.top;
  image.width = clipped(region.left, region.right, width);
  image.height = clipped(region.top, region.bottom, height);
  image.reduction = reduction;
  image.out_width = (image.width + scale_of(image) - 1) >> reduction;
  image.out_height = (image.height + scale_of(image) - 1) >> reduction;
  return image;
}

bool has_size(const Composition& image, uint64_t planes, uint64_t* bytes) {
  return !__builtin_mul_overflow(image.out_width, image.out_height, bytes) &&
         !__builtin_mul_overflow(*bytes, planes, bytes);
}

bool begins_behind_region(const Composition& image, const Codestream& stream) {
  return stream.x > image.left + image.width || stream.y > image.top + image.height;
}

bool ends_before_region(const Composition& image, const Codestream& stream) {
  return stream.x + stream.width - stream.x_offset <= image.left ||
         stream.y + stream.height - stream.y_offset <= image.top;
}

Rectangle needed_part(const Composition& image, const Codestream& stream) {
  const Span x = needed_span(image.left, image.width, stream.x, stream.width, stream.x_offset);
  const Span y = needed_span(image.top, image.height, stream.y, stream.height, stream.y_offset);
  return {x.from, y.from, x.to, y.to};
}

Delivery delivery_of(const Composition& image, const Codestream& stream, const Rectangle& part,
                     const void* samples, uint64_t length) {
  return {static_cast<const uint8_t*>(samples), length,
          delivered_extent(image, part.left, part.right, stream.width, stream.x_offset),
          delivered_extent(image, part.top, part.bottom, stream.height, stream.y_offset),
          stream.components};
}

void copy_into_image(const Composition& image, const Codestream& stream, const Delivery& delivery) {
  const uint64_t column = reduced_place(image, stream.x, image.left);
  const uint64_t row = reduced_place(image, stream.y, image.top);
  const bool is_empty = delivery.width == 0 || delivery.height == 0;
  if (is_empty || column >= image.out_width || row >= image.out_height) return;
  const uint64_t columns = smaller_of(delivery.width, image.out_width - column);
  const uint64_t rows = smaller_of(delivery.height, image.out_height - row);
  const uint64_t planes = smaller_of(delivery.planes, image.planes);
  for (uint32_t plane = 0; plane < planes; ++plane) {
    for (uint64_t y = 0; y < rows; ++y) {
      const uint64_t from = row_offset(delivery, plane, y);
      if (from >= delivery.length) return;
      uint8_t* const target =
          image.samples + (plane * image.out_height + row + y) * image.out_width + column;
      memcpy(target, delivery.samples + from, smaller_of(columns, delivery.length - from));
    }
  }
}

}  // namespace kvjpx
