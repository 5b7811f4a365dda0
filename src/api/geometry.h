// The arithmetic of composing an image out of codestreams: no box, no codec, no allocation.
//
// Numbers wrap around where they do for reasons of compatibility: a part of what files and callers
// say is not judged, and composing goes on with what comes out. Copies are clipped to both sides.
#ifndef KVJPX_API_GEOMETRY_H_
#define KVJPX_API_GEOMETRY_H_

#include <stdint.h>

namespace kvjpx {

// The composed image: a region of the whole image, reduced. Planes stand one after another, each
// sample is one byte.
struct Composition {
  uint64_t left;  // of the region, at full resolution
  uint64_t top;
  uint32_t width;
  uint32_t height;
  uint32_t reduction;  // halvings, less than 32
  uint64_t out_width;  // reduced
  uint64_t out_height;
  uint32_t planes;
  uint8_t* samples;
};

// One codestream: where it is placed and what the codec says of it.
struct Codestream {
  uint64_t x;  // place of its image area on the composed image
  uint64_t y;
  uint32_t width;  // extent on its reference grid
  uint32_t height;
  uint32_t x_offset;  // of the image area on that grid
  uint32_t y_offset;
  uint32_t components;
};

// A rectangle of a codestream, right and bottom exclusive.
struct Rectangle {
  uint64_t left;
  uint64_t top;
  uint64_t right;
  uint64_t bottom;
};

// Decoded samples of a codestream, laid out like the composed image.
struct Delivery {
  const uint8_t* samples;
  uint64_t length;
  uint64_t width;  // of each plane
  uint64_t height;
  uint32_t planes;
};

// Levels below say nothing to the codec.
constexpr int32_t kFirstMeaningfulLevel = 2;

// The halvings that the caller's resolution level and flag stand for.
uint32_t reduction_of(int32_t level, int32_t flag);

// The composed image without planes, for a region (0 for right or bottom: the image's edge) of an
// image. A left or top beyond the image is not caught and wraps around: such a region asks for more
// memory than there is.
Composition composition_of(const Rectangle& region, uint32_t width, uint32_t height,
                           uint32_t reduction);

// False for a size that does not fit into 64 bits.
bool has_size(const Composition& image, uint64_t planes, uint64_t* bytes);

// A codestream right at the region's edge does not begin behind it.
bool begins_behind_region(const Composition& image, const Codestream& stream);
bool ends_before_region(const Composition& image, const Codestream& stream);

// The part of a codestream that the region needs.
Rectangle needed_part(const Composition& image, const Codestream& stream);

// What the codec delivers of a part.
Delivery delivery_of(const Composition& image, const Codestream& stream, const Rectangle& part,
                     const void* samples, uint64_t length);

// Copies what a codestream delivers to its place.
void copy_into_image(const Composition& image, const Codestream& stream, const Delivery& delivery);

}  // namespace kvjpx

#endif  // KVJPX_API_GEOMETRY_H_
