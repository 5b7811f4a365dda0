/*
 * The codec's own interface: decoded samples as they were coded.
 *
 * kv_j2k.h delivers pictures of 8 bits a sample, all planes of one size. These functions deliver
 * every component with its own depth, sign and sampling, tell what of a damaged codestream could be
 * decoded, and need no second copy of the codestream. They work on the same handles.
 *
 * A host's codec in the place of libkvj2k.so need not have them.
 */
#ifndef KV_J2K_SAMPLES_H_
#define KV_J2K_SAMPLES_H_

#include "kv_j2k.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One component as the codestream's header (SIZ; ISO/IEC 15444-1, A.5.1) describes it. */
typedef struct kv_j2k_component {
  uint32_t size;      /**< set by the caller to sizeof(kv_j2k_component) */
  uint32_t precision; /**< bits of a sample, 1 to 31 */
  uint32_t is_signed; /**< 1: samples are signed */
  uint32_t dx;        /**< columns of the reference grid for one sample, 1 to 255 */
  uint32_t dy;        /**< rows, likewise */
} kv_j2k_component;

/** The codestream as a whole. */
typedef struct kv_j2k_codestream {
  uint32_t size;       /**< set by the caller to sizeof(kv_j2k_codestream) */
  uint32_t components; /**< 1 to 16384 */
  uint32_t left;       /**< image area on the reference grid: XOsiz */
  uint32_t top;        /**< YOsiz */
  uint32_t right;      /**< Xsiz, exclusive */
  uint32_t bottom;     /**< Ysiz, exclusive */
  uint32_t tile_left, tile_top, tile_width, tile_height; /**< XTOsiz, YTOsiz, XTsiz, YTsiz */
  uint32_t levels; /**< decomposition levels that every tile and component has: the greatest
                        reduction that can be asked for */
} kv_j2k_codestream;

enum kv_j2k_sample_flags {
  /** Deliver what is there of a damaged codestream instead of failing: whole packets, what
   *  code-blocks there are of the one that it ends in, and zeros (mid-grey for unsigned ones) for
   *  tiles that are missing. */
  KV_J2K_SAMPLES_PARTIAL = 1
};

/** What to decode. Everything zero but `size` asks for the whole codestream at full resolution. */
typedef struct kv_j2k_sample_request {
  uint32_t size;                     /**< set by the caller to sizeof(kv_j2k_sample_request) */
  uint32_t flags;                    /**< kv_j2k_sample_flags */
  uint32_t left, top, right, bottom; /**< rectangle of the reference grid, right and bottom
                                          exclusive; four zeros: the image area */
  uint32_t reduction;                /**< halvings, 0 to `levels` */
  uint32_t layers;                   /**< quality layers; 0: all */
  const uint32_t* components;        /**< numbers of the components wanted, ascending; null: all */
  uint32_t component_count;
  uint32_t threads; /**< 0: as many as there are processors */
} kv_j2k_sample_request;

/** The samples of one component. Sample (i, j) of the array stands, with s = 2^reduction, at
 *  ((x0 + i) * dx * s, (y0 + j) * dy * s) of the reference grid. All samples that stand in the
 *  rectangle are delivered: x0 = ceil(left / (dx * s)), x0 + width = ceil(right / (dx * s)). */
typedef struct kv_j2k_plane {
  uint32_t component;
  uint32_t precision;
  uint32_t is_signed;
  uint32_t dx, dy;
  uint32_t x0, y0;
  uint32_t width, height; /**< may be 0 */
  const int32_t* samples; /**< row by row, `width` each; within the range of `precision` */
} kv_j2k_plane;

typedef struct kv_j2k_samples {
  uint32_t plane_count;
  const kv_j2k_plane* planes; /**< in the order asked for */
  uint32_t is_complete;       /**< 0: something is missing */
  uint32_t missing_tile_count;
  const uint32_t*
      missing_tiles;   /**< numbers (Isot) of the tiles touched that nothing is there of */
  const char* missing; /**< what is missing, in English; "" when nothing is */
} kv_j2k_samples;

/** As kv_j2k_set_input_image, but the bytes stay the caller's and must stay unchanged until the
 *  handle gets another input or ends; and the length has 64 bits. Broken headers of tile-parts are
 * no failure yet: what they cost, decoding tells. */
KV_J2K_API int32_t kv_j2k_set_input_borrowed(void* codec, const void* data, uint64_t length);

/** Describes the input. Returns 0; 2; 3 when out is null or its size is wrong; 8, also for raw
 *  samples. */
KV_J2K_API int32_t kv_j2k_get_codestream(void* codec, kv_j2k_codestream* out);

/** Describes a component of the input. Returns 0; 2; 3 when there is no such component, out is null
 *  or its size is wrong; 8. */
KV_J2K_API int32_t kv_j2k_get_component(void* codec, uint32_t index, kv_j2k_component* out);

/**
 * Decodes. The caller owns *samples (kv_j2k_free_samples), which does not depend on the handle.
 * Memory: four bytes for each sample asked for, twice for a part of a tile, besides what is kept of
 * the codestream. Several requests for parts of one codestream share what can be shared.
 *
 * Returns 0; 1; 2; 3 when a pointer is null, a size is wrong, the rectangle is empty or lies
 * outside the image area, or a component or reduction does not exist; 8; 18 when the codestream is
 * broken (with KV_J2K_SAMPLES_PARTIAL: so that nothing can be decoded); 19 when it asks for more
 * work than the limits allow; 999. On every failure *samples is null, and kv_j2k_get_error_text
 * says why.
 */
KV_J2K_API int32_t kv_j2k_decode_samples(void* codec, const kv_j2k_sample_request* request,
                                         kv_j2k_samples** samples);

/** Releases what kv_j2k_decode_samples delivered; null is nothing. */
KV_J2K_API void kv_j2k_free_samples(kv_j2k_samples* samples);

#ifdef __cplusplus
}
#endif

#endif /* KV_J2K_SAMPLES_H_ */
