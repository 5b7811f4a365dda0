// Encodes a picture. Each writer throws Failure (20) for a picture that its format can't hold.
#ifndef KVJ2K_ENCODE_H_
#define KVJ2K_ENCODE_H_

#include <cstdint>
#include <string>

#include "image.h"

namespace kvj2k {

// Empty for an unknown output type and for an empty picture. Planes need no encoding and are none.
Bytes encode(const Image& image, int32_t output_type);

// These get a picture that is not empty.
// `header` comes before the samples.
Bytes write_interleaved(const Image& image, const std::string& header = "");
Bytes write_bmp(const Image& image);
Bytes write_pnm(const Image& image);
Bytes write_png(const Image& image);
Bytes write_tiff(const Image& image);
Bytes write_jpeg(const Image& image);
Bytes write_j2k(const Image& image);
Bytes write_jp2(const Image& image);

// Stores one row of the picture, the components of a pixel next to each other.
void interleave_row(const Image& image, uint32_t row, uint8_t* out);

// Throws unless the format holds pictures of this size.
void require_size(const Image& image, uint32_t limit, const char* format);
[[noreturn]] void refuse_components(const Image& image, const char* format);

}  // namespace kvj2k

#endif  // KVJ2K_ENCODE_H_
