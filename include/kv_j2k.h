/*
 * libkvj2k: the codec that libkvjpx decodes and converts images with, built on OpenJPEG.
 *
 * One handle takes one picture at a time, either a JPEG 2000 codestream (ISO/IEC 15444-1, Annex A;
 * the bare codestream, not a JP2 file) or raw samples, and delivers it as raw samples or encoded.
 * libkvjpx imports these functions from libkvj2k.so by name, so a host can put a library of its own
 * in that place; kv_j2k_get_error_text, kv_j2k_get_version_text, kv_j2k_set_limits and
 * kv_j2k_get_work are then not needed.
 *
 * Functions return 0 or one of the codes of kv_j2k_error; none throws, prints or ends the process.
 * One handle is used by one thread at a time; separate handles are independent of each other.
 *
 * Settings (region, resolution, quality, output type, limits) stay until they are set again, also
 * when a new input is set.
 */
#ifndef KV_J2K_H_
#define KV_J2K_H_

#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define KV_J2K_API __attribute__((visibility("default")))
#else
#define KV_J2K_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum kv_j2k_error {
  /** Success. */
  KV_J2K_OK = 0,
  /** Memory is short. */
  KV_J2K_ERR_MEMORY = 1,
  /** The handle is null. */
  KV_J2K_ERR_BAD_HANDLE = 2,
  /** An argument is null or makes no sense. */
  KV_J2K_ERR_INVALID_ARGUMENT = 3,
  /** The caller's buffer is too small; the needed length is written back. */
  KV_J2K_ERR_BUFFER_TOO_SMALL = 5,
  /** No input has been set, or the last one was refused. */
  KV_J2K_ERR_NO_INPUT = 8,
  /** The codestream is broken or cut off. */
  KV_J2K_ERR_BROKEN_CODESTREAM = 18,
  /** The codestream asks for more work than the limits allow (kv_j2k_set_limits). */
  KV_J2K_ERR_LIMIT = 19,
  /** The output format can't hold this picture (its size or its number of components). */
  KV_J2K_ERR_UNSUPPORTED = 20,
  /** There is nothing to write to the file: an unknown output type or an empty picture. */
  KV_J2K_ERR_NOTHING_TO_WRITE = 21,
  /** The output file could not be opened. */
  KV_J2K_ERR_OPEN_FILE = 100,
  /** Writing, closing or replacing the output file failed. */
  KV_J2K_ERR_FILE_IO = 102,
  /** A library underneath failed for a reason of its own. */
  KV_J2K_ERR_INTERNAL = 999
};

/** Output types of kv_j2k_set_output_type. Every other number delivers nothing. All formats hold
 *  8 bits a sample; two and four components mean gray and RGB with opacity as last component. */
enum kv_j2k_output_type {
  /** Raw samples: one byte each, component planes one after another, each plane all rows from top
   * to bottom without padding. */
  KV_J2K_OUTPUT_PLANES = 64,
  /** Windows bitmap: 1 component (256 grays), 3 (24 bits) or 4 (32 bits with opacity). */
  KV_J2K_OUTPUT_BMP = 66,
  /** Portable anymap: PGM for 1 component, PPM for 3, PAM for any other count. */
  KV_J2K_OUTPUT_PNM = 67,
  /** PNG: 1 to 4 components. */
  KV_J2K_OUTPUT_PNG = 68,
  /** TIFF, LZW-compressed: up to 65535 components. */
  KV_J2K_OUTPUT_TIFF = 69,
  /** JPEG at quality 95 without chroma subsampling: 1 or 3 components. */
  KV_J2K_OUTPUT_JPEG = 70,
  /** Raw samples, the components of a pixel next to each other. */
  KV_J2K_OUTPUT_INTERLEAVED = 71,
  /** JPEG 2000 codestream, lossless: up to 16384 components. */
  KV_J2K_OUTPUT_J2K = 75,
  /** JP2 file with a lossless codestream: up to 16384 components. */
  KV_J2K_OUTPUT_JP2 = 77
};

/** The versions of the codec and of OpenJPEG in it, for people. Never null; valid for good. */
KV_J2K_API const char* kv_j2k_get_version_text(void);

/** Makes a handle; the caller owns it: kv_j2k_destroy. Returns 0; 1; 3 when codec is null. */
KV_J2K_API int32_t kv_j2k_create(void** codec);

/** Ends a handle. Blocks that it handed out stay valid until kv_j2k_free. Returns 0; 2. */
KV_J2K_API int32_t kv_j2k_destroy(void* codec);

/** The reason of the last failure of a call on this handle, in English, for a log or a user;
 * OpenJPEG's own messages are part of it. Empty after a success. Never null; valid until the next
 * call on the handle. For a null handle, a fixed text. */
KV_J2K_API const char* kv_j2k_get_error_text(void* codec);

/**
 * Limits the work that a codestream may ask for, so that a hostile one can't take memory or time
 * out of proportion. The work is counted in samples: those decoded or those delivered, whichever
 * are more, plus a charge for tiles, precincts, code-blocks and packets. One unit is about two
 * bytes of memory, besides three times `free` at most for the part of the picture that is being
 * decoded. Where the codestream holds no data for a sample it takes some 10 ns of one core; data
 * take longer, at most about 150 ns for each sample and 0.3 ms for each byte. Work up to `free` is
 * always allowed, work beyond `max` never, and in between the codestream must have one byte for
 * every `max_per_byte` of it. Each codestream is judged for itself, and each decoding of a part of
 * it (kv_j2k_get_work).
 *
 * For each argument 0 stands for the default.
 *   max            default 2^29 (536 870 912; an RGB picture of 13 000 x 13 000)
 *   max_per_byte   default 4096
 *   free           default 2^27 (134 217 728; an RGB picture of 6 500 x 6 500)
 * Takes effect at the next kv_j2k_set_input_image and at the next decoding. The error text of a
 * refusal tells the work asked for, what is allowed, and the setting to change. Returns 0; 2.
 */
KV_J2K_API int32_t kv_j2k_set_limits(void* codec, uint64_t max, uint64_t max_per_byte,
                                     uint64_t free);

/** Tells the work of the last decoding, in the unit of kv_j2k_set_limits, also of one that failed
 * on the way; 0 when the limits refused it or nothing has been decoded. Who decodes many
 * codestreams of one origin bounds their sum by it. Returns 0; 2; 3 when work is null. */
KV_J2K_API int32_t kv_j2k_get_work(void* codec, uint64_t* work);

/**
 * Takes a JPEG 2000 codestream. The handle keeps its own copy. The headers are read and judged
 * here; the samples are decoded when the output is asked for. Components of more than 31 bits and
 * reference grids of 2^31 and more are refused.
 *
 * Returns 0; 1; 2; 3 when data is null; 18 when the headers are broken, cut off, or are not those
 * of a codestream; 19 when a header asks for more than the limits allow. After a failure the handle
 * has no input.
 */
KV_J2K_API int32_t kv_j2k_set_input_image(void* codec, const void* data, uint32_t length);

/**
 * Takes raw samples, laid out as KV_J2K_OUTPUT_PLANES delivers them. The handle keeps its own copy.
 * Nothing but the output type applies to them: region, resolution and quality are a codestream's.
 * A zero among height, width and components makes an empty picture, which delivers nothing.
 * The last two arguments are reserved; libkvjpx passes 24 and 0, and their values are ignored.
 *
 * Returns 0; 1; 2; 3 when samples is null and the picture is not empty.
 */
KV_J2K_API int32_t kv_j2k_set_input_image_raw(void* codec, const void* samples, uint32_t height,
                                              uint32_t width, uint32_t components,
                                              uint32_t reserved1, uint32_t reserved2);

/**
 * Tells the input's extent on the reference grid (Xsiz and Ysiz: the offset of the image area is
 * included) and its number of components. Each pointer may be null; `reserved` receives 0. For raw
 * samples, their width and height. Returns 0; 2; 8, and then zeros are stored.
 */
KV_J2K_API int32_t kv_j2k_get_input_image_info(void* codec, uint32_t* width, uint32_t* height,
                                               uint32_t* reserved, uint32_t* components);

/**
 * Tells the nominal tile size (XTsiz, YTsiz), the number of tiles in each direction, and the offset
 * of the image area on the reference grid (XOsiz, YOsiz). Each pointer may be null. Raw samples are
 * one tile without offset. Returns 0; 2; 8, and then zeros are stored.
 */
KV_J2K_API int32_t kv_j2k_get_input_j2k_tile_info(void* codec, uint32_t* tile_width,
                                                  uint32_t* tile_height, uint32_t* tiles_across,
                                                  uint32_t* tiles_down, uint32_t* x_offset,
                                                  uint32_t* y_offset);

/**
 * Restricts decoding to a rectangle of the reference grid; right and bottom are exclusive. What
 * lies outside the image area is cut off, so the picture delivered has, with s = 2^r of the
 * reduction r, ceil(min(right, Xsiz) / s) - ceil(max(left, XOsiz) / s) columns, and rows likewise.
 * When nothing is left, nothing is delivered. Four zeros (the setting of a new handle) stand for
 * the whole image. Returns 0; 2.
 */
KV_J2K_API int32_t kv_j2k_set_input_j2k_region_level(void* codec, uint64_t left, uint64_t top,
                                                     uint64_t right, uint64_t bottom);

/**
 * Asks for a reduced resolution. Level 0 or 1 (the setting of a new handle) is the full one; from 2
 * on the low byte less one, modulo 32, is the number r of halvings.
 *
 * flag   1: only the effort is reduced; the picture is enlarged to its full size again by repeating
 *        samples. Any other value: the picture delivered is reduced.
 * A codestream with fewer resolution levels is decoded at its lowest one and averaged down, so the
 * size is the same. Returns 0; 2.
 */
KV_J2K_API int32_t kv_j2k_set_input_j2k_resolution_level(void* codec, int32_t level, int32_t flag);

/**
 * Asks for fewer quality layers. Level 0 or 1 (the setting of a new handle) decodes all; from 2 on
 * the low byte is the number of layers to decode, 0 standing for all. As with the resolution, level
 * 1 means "as it is", so one single layer is asked for with 0x101. Returns 0; 2.
 */
KV_J2K_API int32_t kv_j2k_set_input_j2k_quality_level(void* codec, int32_t level);

/** Chooses what the output functions deliver: kv_j2k_output_type, at first KV_J2K_OUTPUT_PLANES.
 * Any number is accepted. Returns 0; 2. */
KV_J2K_API int32_t kv_j2k_set_output_type(void* codec, int32_t type);

/**
 * Decodes or converts the input into memory. All planes have the picture's size: subsampled
 * components are enlarged by repeating samples. Samples of more than 8 bits keep their upper 8;
 * those of fewer are stretched, so that full scale becomes 255; signed ones are shifted to begin at
 * 0. Components are delivered as coded: neither palette nor colour conversion is applied.
 *
 * *data null            the codec allocates: *data is released with kv_j2k_free, *length is its
 * size. *data set, *length 0  a query: the size goes to *length, and *data is left alone. *data set
 * *data holds *length bytes; it is filled, and *length is what was filled in. When there is nothing
 * to deliver, *length is 0 and *data is left alone. The result is kept, so a query and the call
 * that follows do the work once.
 *
 * Returns 0; 1; 2; 3 when a pointer is null; 5 with the needed size in *length; 8; 18; 19; 20, also
 * for a result of 4 GiB and more; 999. On every failure but 5, *length is 0 and *data is left
 * alone.
 */
KV_J2K_API int32_t kv_j2k_get_output_image(void* codec, void** data, uint32_t* length);

/** As kv_j2k_get_output_image, into a file, which is created or overwritten once the output is
 * ready. A regular file that stands there is replaced only once the new one is complete; meanwhile
 * a private file .kvjpx-XXXXXX stands beside it. (Where no such file can be made, or the old one
 * cannot be replaced, it is overwritten.) A new file is removed again when it fails.
 *
 * Returns besides: 21, and then no file is touched; 100; 102. */
KV_J2K_API int32_t kv_j2k_get_output_image_file(void* codec, const char* path);

/** Releases a block that kv_j2k_get_output_image allocated; null is no block. The handle is not
 * looked at and may be null. Returns 0. */
KV_J2K_API int32_t kv_j2k_free(void* codec, void* block);

#ifdef __cplusplus
}
#endif

#endif /* KV_J2K_H_ */
