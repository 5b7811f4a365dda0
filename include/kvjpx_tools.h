/*
 * libkvjpx-tools: what the program kvjpx knows of a file beyond the library, for other programs and
 * languages. It stands beside libkvjpx.so, which it uses, and needs the C++ run-time library.
 *
 * The functions share nothing but the codec; any number of threads may call them.
 */
#ifndef KVJPX_TOOLS_H_
#define KVJPX_TOOLS_H_

#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define KVJPX_TOOLS_API __attribute__((visibility("default")))
#else
#define KVJPX_TOOLS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Tells everything that is in a file as JSON: the line that `kvjpx dump --format json` prints of
 * it, which docs/dump.schema.json describes.
 *
 * name         of the file. It is mapped and must not be shortened meanwhile: the system ends a
 *              process that reads a mapping past the end of its file.
 * data         where not null, the file's bytes; `name` is then what the answer calls it.
 * length       of them, in bytes.
 * codestreams  not 0: with the marker segments of the codestreams (dump --codestream).
 * answer       receives the line without its end, or, where the result is not 0, a sentence in
 *              English that says why; null where there is no memory for it. The caller gives it
 *              back with kvjpx_tools_free.
 * Returns 0; an exit code of the program where the file cannot be told of: 3 when it cannot be read
 * or memory is short, 4 when it has neither a box nor a codestream; 2 when name or answer is null.
 */
KVJPX_TOOLS_API int32_t kvjpx_tools_dump(const char* name, const void* data, uint64_t length,
                                         int32_t codestreams, char** answer);

/**
 * Holds a file against the standard: the line that `kvjpx check --json` prints of it, which
 * docs/check.schema.json describes.
 *
 * profile  "jp2", "jpx" or "jph"; null for the one that the file claims.
 * Other arguments and results as kvjpx_tools_dump, but that every file can be told of; 2 also for
 * an unknown profile.
 */
KVJPX_TOOLS_API int32_t kvjpx_tools_check(const char* name, const void* data, uint64_t length,
                                          const char* profile, char** answer);

/** Which picture of a file; `number` counts from 0. */
enum kvjpx_tools_part {
  /** The one that the file means: the first frame of its composition, or else layer 0. */
  KVJPX_TOOLS_WHOLE = 0,
  KVJPX_TOOLS_LAYER = 1,      /**< compositing layer `number` by itself */
  KVJPX_TOOLS_CODESTREAM = 2, /**< components of codestream `number`, whatever the boxes say */
  KVJPX_TOOLS_FRAME = 3       /**< frame `number` of the composition */
};

enum kvjpx_tools_decode_flags {
  KVJPX_TOOLS_SRGB = 1,  /**< convert the colours to sRGB, grey stays grey */
  KVJPX_TOOLS_STRICT = 2 /**< damage is a failure; else what is there is shown, the rest mid-grey */
};

/** What to decode. Everything zero but `size` asks for the whole picture. */
typedef struct kvjpx_tools_decode_request {
  uint32_t size;   /**< set by the caller to sizeof(kvjpx_tools_decode_request) */
  uint32_t flags;  /**< kvjpx_tools_decode_flags */
  uint32_t part;   /**< kvjpx_tools_part */
  uint32_t number; /**< of the layer, codestream or frame */
  uint64_t left;   /**< region, in samples of the full-size picture */
  uint64_t top;
  uint64_t right; /**< exclusive; here and for bottom, 0 is the picture's edge */
  uint64_t bottom;
  uint32_t reduce; /**< halvings of width and height, 0 to 31 */
  uint32_t layers; /**< quality layers, 1 to 255; 0: all */
  uint64_t limit;  /**< million samples that it may have, up to 1000000; 0: 540, and less where the
                        file is too short to need so many */
} kvjpx_tools_decode_request;

/** What the colour channels are. */
enum kvjpx_tools_colours {
  KVJPX_TOOLS_GREY = 0,
  KVJPX_TOOLS_RGB = 1,
  KVJPX_TOOLS_CMYK = 2, /**< 0 is no ink */
  KVJPX_TOOLS_LAB = 3,  /**< CIE L*a*b*, L* from 0 to 100, a* and b* from -128 to 127 */
  KVJPX_TOOLS_OTHER = 4
};

/** Whether the last channel is opacity, which `channels` counts. */
enum kvjpx_tools_opacity {
  KVJPX_TOOLS_NO_OPACITY = 0,
  KVJPX_TOOLS_STRAIGHT = 1,
  KVJPX_TOOLS_PREMULTIPLIED = 2 /**< colours have been multiplied by it */
};

/**
 * How samples are laid out: row by row from the top, pixels from the left, the channels of a pixel
 * next to each other. Each is an unsigned number from 0 to 2^bits - 1 in a byte, or in a uint16_t
 * of the machine's byte order where there are more than 8 bits.
 */
typedef struct kvjpx_tools_picture {
  uint32_t size; /**< set by the caller to sizeof(kvjpx_tools_picture) */
  uint32_t width;
  uint32_t height;
  uint32_t channels;
  uint32_t bits;    /**< 1 to 16 */
  uint32_t colours; /**< kvjpx_tools_colours */
  uint32_t opacity; /**< kvjpx_tools_opacity */
} kvjpx_tools_picture;

/**
 * Decodes the picture that a file means, as `kvjpx decode` does: with its palettes, channels,
 * colour spaces, layers and composition (ISO/IEC 15444-1, Annex I; 15444-2, Annex M), which
 * docs/decoding.md describes. Needs libkvj2k.so.
 *
 * name     of the file, data and length as for kvjpx_tools_dump.
 * request  null for the whole picture.
 * picture  receives the layout of the samples, unless the result is 2 for another reason than
 *          `samples_length`.
 * samples  receive the picture; null to ask for the layout only, which reads headers alone. The
 *          caller's; what is in them is undefined where the result is not 0.
 * samples_length
 *          their size in bytes: width * height * channels, twice that for more than 8 bits.
 * answer   receives what must be said of the picture, as of damage and of colours that are not
 *          known: sentences in English, a line each without the last end of line, empty for none.
 *          Where the result is not 0, the reason; null where there is no memory for it. The caller
 *          gives it back with kvjpx_tools_free.
 * Returns 0; 2 for arguments that are null or out of range and another samples_length; 3 when the
 * file cannot be read or memory is short; 4 when it has neither a box nor a codestream; 5 when
 * there is no such layer, codestream or frame; 7 when nothing can be decoded, where the limit
 * forbids it and where there is no codec, too.
 */
KVJPX_TOOLS_API int32_t kvjpx_tools_decode(const char* name, const void* data, uint64_t length,
                                           const kvjpx_tools_decode_request* request,
                                           kvjpx_tools_picture* picture, void* samples,
                                           uint64_t samples_length, char** answer);

/** Gives an answer back; null is nothing. */
KVJPX_TOOLS_API void kvjpx_tools_free(char* answer);

#ifdef __cplusplus
}
#endif

#endif /* KVJPX_TOOLS_H_ */
