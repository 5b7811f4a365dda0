/*
 * libkvjpx-tools: what the program kvjpx knows of a file beyond the library, for other programs and
 * languages. It stands beside libkvjpx.so, which it uses, and needs the C++ run-time library.
 *
 * The functions share nothing; any number of threads may call them.
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

/** Gives an answer back; null is nothing. */
KVJPX_TOOLS_API void kvjpx_tools_free(char* answer);

#ifdef __cplusplus
}
#endif

#endif /* KVJPX_TOOLS_H_ */
