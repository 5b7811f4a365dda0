/*
 * libkvjpx: opens, inspects, edits and writes JPX and JP2 files (ISO/IEC 15444-2, 15444-1).
 *
 * A context holds one file as a tree of boxes. Every box has a 32-bit identifier; fields of a box
 * are read and written by numeric keys (kvjpx_fields.h). All functions return 0 or one of the codes
 * of kvjpx_errors.h.
 *
 * Codes that any function taking a context can return, besides those named with the function:
 *   2    the context is null or not live; nothing has changed
 *   1    an allocation failed: an *ending error*
 * An ending error is one that a failure deep inside raised: everything that the context had loaded
 * is gone, and so are all blocks that it handed out. From then on the context answers 8 to whatever
 * needs an input and 1 to a new input; it is fit to be destroyed only. Where an error of this kind
 * is possible the comment says "(ending)".
 *
 * One context is used by one thread at a time; separate contexts are independent of each other.
 * A context that has not returned from a call must not be used from a callback of that call.
 */
#ifndef KVJPX_H_
#define KVJPX_H_

#include <stddef.h>
#include <stdint.h>

#include "kvjpx_errors.h"
#include "kvjpx_fields.h"

#if defined(__GNUC__) || defined(__clang__)
#define KV_JPX_API __attribute__((visibility("default")))
#else
#define KV_JPX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kv_jpx_context kv_jpx_context;

/** Identifier (and type) of the root, the nameless box whose content is the whole file. Where an
 *  identifier is returned it also stands for "no box". */
#define KV_JPX_ROOT 0xFFFFFFFFu

/** A four-character box type as a number: KV_JPX_TYPE('j','p','2','h') is 0x6A703268. */
#define KV_JPX_TYPE(a, b, c, d)                                                  \
  (((uint32_t)(unsigned char)(a) << 24) | ((uint32_t)(unsigned char)(b) << 16) | \
   ((uint32_t)(unsigned char)(c) << 8) | (uint32_t)(unsigned char)(d))

/** Output type of the JPX file itself, written from the (edited) box tree. The default. The other
 *  types are the codec's (kv_j2k_output_type in kv_j2k.h). */
#define KV_JPX_OUTPUT_JPX 74

/** The version that kv_jpx_get_library_version tells: major, minor, patch and build as
 *  1000000 x major + 10000 x minor + 100 x patch + build. */
#define KV_JPX_VERSION 1000200

/** Where kv_jpx_add_box puts a box. */
enum kv_jpx_placement {
  /** Directly before the reference, which must not be a first child. */
  KV_JPX_PLACE_BEFORE = 0,
  /** Directly after the reference. */
  KV_JPX_PLACE_AFTER = 1,
  /** As first child of the reference. */
  KV_JPX_PLACE_FIRST_CHILD = 2,
  /** As last child of the reference; of kv_jpx_move_box only. */
  KV_JPX_PLACE_LAST_CHILD = 3
};

/* ------------------------------------------------------------------------------- Life cycle */

/**
 * Tells the library's version (1000200 stands for 1.0.2) and its banner.
 *
 * version      receives the number; may be null.
 * banner       receives 31 characters and a terminating zero; may be null.
 * banner_size  bytes at banner; may be null. Must be at least 33; it stays as it was on success and
 *              becomes 32 when it is too small, so offering exactly 32 is refused again.
 * Returns 0; 5 when the banner's buffer is too small.
 */
KV_JPX_API int32_t kv_jpx_get_library_version(uint32_t* version, char* banner,
                                              uint32_t* banner_size);

/**
 * Makes a context that allocates with malloc. The caller owns it: kv_jpx_destroy.
 * Returns 0; 1 when out is null or memory is short (out is then left as it was).
 */
KV_JPX_API int32_t kv_jpx_create(kv_jpx_context** out);

/**
 * Makes a context that allocates with the caller's functions. They are used only if both are
 * given; else malloc and free serve for everything.
 *
 * user_data    passed back as first argument of both.
 * allocate     returns a block of the given size, aligned for any type, or null.
 * release      takes a block back; never called with null. Releases balance allocations exactly
 *              once the context is destroyed.
 * Returns 0; 1 as kv_jpx_create.
 */
KV_JPX_API int32_t kv_jpx_create_with_memory_manager(kv_jpx_context** out, void* user_data,
                                                     void* (*allocate)(void* user_data,
                                                                       size_t size),
                                                     void (*release)(void* user_data, void* block));

/**
 * Releases the context and everything that it holds or has handed out. Also ends a context that
 * has had an ending error. Returns 0.
 */
KV_JPX_API int32_t kv_jpx_destroy(kv_jpx_context* context);

/** Stores five values of pointer size with the context. The library never calls or reads them;
 *  they are there for code that looks them up in the context's memory record. Returns 0. */
KV_JPX_API int32_t kv_jpx_register_callbacks(kv_jpx_context* context, void* first, void* second,
                                             void* third, void* fourth, void* fifth);

/**
 * Releases a block that the library handed out (field bytes, box bytes, an output image).
 * Returns 0; 1 (ending) when the block is null or has been released already.
 */
KV_JPX_API int32_t kv_jpx_free(kv_jpx_context* context, void* block);

/* ------------------------------------------------------------------------------------ Input */

/**
 * Replaces the input by a file held in memory. The bytes are copied, so the caller's buffer may go
 * on return. The whole tree is read at once; payloads of opaque boxes stay in the copy.
 *
 * data, length  the file; length in bytes. An empty file is an empty tree.
 * Returns 0; 3 when data is null and length is not 0, and then the old input stays; (ending) 3 when
 * containers are nested more than 256 deep, 7 when the signature box is wrong, 18 when a box
 * reaches past the end of its container or of the file.
 */
KV_JPX_API int32_t kv_jpx_set_input_image(kv_jpx_context* context, const void* data,
                                          uint64_t length);

/**
 * The same for a file on disk, which is read in pieces of 4 MiB and stays open as long as it is the
 * input. Meant for files up to that size: a larger one cannot be read everywhere (999). Use
 * kv_jpx_set_input_image_mapped for files of any size.
 *
 * Returns as kv_jpx_set_input_image, and (ending) 100 when the file cannot be opened, 102 when
 * reading fails, 999 when a box of a large file lies where no whole piece can be read.
 */
KV_JPX_API int32_t kv_jpx_set_input_image_file(kv_jpx_context* context, const char* path);

/**
 * The same for a file of any size, mapped into memory as a whole and not copied. It must not be
 * shortened by anybody while it is the input: the system ends a process that reads a mapping past
 * the end of its file.
 *
 * Returns as kv_jpx_set_input_image, and (ending) 100 when the file cannot be opened, 102 when it
 * cannot be mapped.
 */
KV_JPX_API int32_t kv_jpx_set_input_image_mapped(kv_jpx_context* context, const char* path);

/* -------------------------------------------------------------------------- Keeping everything */

/**
 * Chooses how inputs that are set from now on are read and written. Off (0), the default, is exact
 * in what the field functions mean but strict in what it loads, and normalises what it writes. On
 * (any other value), nothing in a file is ever lost:
 *
 * - Every sequence of bytes loads. What cannot be read as boxes is the tail of its container; a
 *   box whose content its type's reader cannot take is an opaque box of that type. Loading fails
 *   for memory, for the system's refusals and for null arguments only. kv_jpx_get_finding tells
 *   what a strict reader would have refused.
 * - Written without a change, the file is the same, byte for byte. After a change, the changed
 * boxes are written anew, the containers above them get new lengths, and every other byte stays.
 * When a change is undone, the original bytes come back.
 * - Boxes are read with their fields wherever they stand, and may be added wherever ISO/IEC 15444-1
 *   and 15444-2 put them. Fields mean what these standards say.
 *
 * A file given by kv_jpx_set_input_image_file is then mapped, as by kv_jpx_set_input_image_mapped,
 * or read whole where it cannot be mapped. Returns 0; 2.
 */
KV_JPX_API int32_t kv_jpx_set_keep_everything(kv_jpx_context* context, int32_t on);

/** What is special about a box; bits. */
enum kv_jpx_box_flags {
  /** The header has the 64-bit form, with an XLBox (ISO/IEC 15444-1, I.4). */
  KV_JPX_BOX_LONG_HEADER = 1,
  /** The header gives no length (LBox 0): the box goes on to the end of the file. */
  KV_JPX_BOX_OPEN_ENDED = 2,
  /** The box, or one in it, has been changed since it was read. */
  KV_JPX_BOX_CHANGED = 4,
  /** Its type's reader could not take the content, so the box is opaque. */
  KV_JPX_BOX_MALFORMED = 8,
  /** The header gives a length that reaches past the end of the container. */
  KV_JPX_BOX_CUT_SHORT = 16,
  /** The box stands where the standard does not put it. */
  KV_JPX_BOX_MISPLACED = 32
};

/** Where a box stands in the input; all numbers in bytes. */
typedef struct kv_jpx_box_extent {
  /** sizeof(kv_jpx_box_extent), set by the caller. */
  uint32_t size;
  /** Bits of kv_jpx_box_flags. */
  uint32_t flags;
  /** Of the header's first byte, from the start of the file. */
  uint64_t offset;
  /** 8 or 16; 0 for the root. */
  uint64_t header_length;
  /** Of what follows the header, as far as it is there. */
  uint64_t content_length;
  /** What stands at the end of a container's content and belongs to no box in it. */
  uint64_t tail_length;
} kv_jpx_box_extent;

/**
 * Tells where a box stood in the input when it was read.
 *
 * out  receives the answer; the caller sets its size.
 * Returns 0; 3 for an unknown identifier, a null out or a wrong size; 4 for a box that is not from
 * the input; 8.
 */
KV_JPX_API int32_t kv_jpx_get_box_extent(kv_jpx_context* context, uint32_t id,
                                         kv_jpx_box_extent* out);

/** What a finding or an error is about. */
enum kv_jpx_finding_kind {
  /** Bytes at the end of a container that are no box. */
  KV_JPX_FINDING_TRAILING = 1,
  /** A header whose length is smaller than the header itself. */
  KV_JPX_FINDING_BAD_LENGTH = 2,
  /** A box that reaches past the end of its container or of the file. */
  KV_JPX_FINDING_CUT_SHORT = 3,
  /** A content that is not what its box type asks for. */
  KV_JPX_FINDING_MALFORMED = 4,
  /** Bytes at the end of a content that its box type knows nothing of. */
  KV_JPX_FINDING_UNREAD = 5,
  /** Containers nested deeper than 256. */
  KV_JPX_FINDING_TOO_DEEP = 6,
  /** A box that stands where the standard does not put it. */
  KV_JPX_FINDING_MISPLACED = 7,
  /** Met when writing: a fragment whose bytes have changed, so that it could not follow them. */
  KV_JPX_FINDING_FRAGMENT = 8,
  /** Met when decoding: an image larger than kv_jpx_set_decode_limits allows. */
  KV_JPX_FINDING_IMAGE_SIZE = 9
};

/** Something that a strict reader would refuse. */
typedef struct kv_jpx_finding {
  /** sizeof(kv_jpx_finding), set by the caller. */
  uint32_t size;
  /** A kv_jpx_finding_kind. */
  uint32_t kind;
  /** The box that it is about; KV_JPX_ROOT for the file itself. */
  uint32_t box_id;
  /** Type of the box, or of what looks like one. */
  uint32_t box_type;
  /** In the input, in bytes. */
  uint64_t offset;
  /** A sentence in English; the context's, until the next call that hands out a text. */
  const char* text;
} kv_jpx_finding;

/**
 * Tells what the reader of an input that is kept met, in order of the file. Without
 * kv_jpx_set_keep_everything there are no findings.
 *
 * index  from 0.
 * out    receives the finding; the caller sets its size.
 * Returns 0; 3 past the last, for a null out or a wrong size; 8.
 */
KV_JPX_API int32_t kv_jpx_get_finding(kv_jpx_context* context, uint32_t index, kv_jpx_finding* out);

/* --------------------------------------------------------------------------------------- Errors */

/** Names a result code in a few words of English; a static string, for unknown codes too. */
KV_JPX_API const char* kv_jpx_get_error_text(int32_t code);

/** The last call that failed. */
typedef struct kv_jpx_error_info {
  /** sizeof(kv_jpx_error_info), set by the caller. */
  uint32_t size;
  /** Its result; 0 when no call has failed. */
  int32_t code;
  /** Identifier of the box that it was about; KV_JPX_ROOT when there is none. */
  uint32_t box_id;
  /** Type of that box; KV_JPX_ROOT when there is none. */
  uint32_t box_type;
  /** Where in the input it was noticed, in bytes; UINT64_MAX when that is not known. */
  uint64_t offset;
  /** A sentence in English; the context's, until the next call that hands out a text. */
  const char* text;
} kv_jpx_error_info;

/**
 * Tells more about the last call on this context that did not return 0, also after an ending error.
 * Calls that return 0, and this one, change nothing of it.
 * Returns 0; 2; 3 for a null out or a wrong size.
 */
KV_JPX_API int32_t kv_jpx_get_last_error(kv_jpx_context* context, kv_jpx_error_info* out);

/* ----------------------------------------------------------------------------- Walking the tree */

/**
 * Finds the box of a type with the smallest identifier greater than `after`, anywhere in the tree.
 * Start with after = 0: the box with identifier 0 (the signature box of a well-formed file) is
 * reached by walking only.
 * Returns 0 (also, without effect, when out is null); 3 when there is none; 8.
 */
KV_JPX_API int32_t kv_jpx_get_next_box_id_by_type(kv_jpx_context* context, uint32_t type,
                                                  uint32_t after, uint32_t* out);

/** Counts the boxes of a type in the whole tree. Returns 0 (also, without effect, when out is
 * null); 8. */
KV_JPX_API int32_t kv_jpx_get_box_count_by_type(kv_jpx_context* context, uint32_t type,
                                                uint32_t* out);

/** Tells a box's four-character type. Returns 0 (also, without effect, when out is null); 3 for an
 *  unknown identifier; 8. */
KV_JPX_API int32_t kv_jpx_get_box_type_by_id(kv_jpx_context* context, uint32_t id, uint32_t* out);

/** Tells the identifier of a box's next sibling, KV_JPX_ROOT behind the last. out must not be null.
 *  Returns 0; 3 for an unknown identifier; 8. */
KV_JPX_API int32_t kv_jpx_get_next_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out);

/** Tells the identifier of a box's first child; KV_JPX_ROOT gives the file's first box. out must
 *  not be null. Returns 0; 3 for an unknown identifier, a box that is not a container, or an empty
 *  container; 8. */
KV_JPX_API int32_t kv_jpx_get_first_child_box_id(kv_jpx_context* context, uint32_t id,
                                                 uint32_t* out);

/** Tells the identifier of a box's previous sibling, KV_JPX_ROOT before the first.
 *  Returns 0; 3 for an unknown identifier or a null out; 8. */
KV_JPX_API int32_t kv_jpx_get_previous_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out);

/** Tells the identifier of the container that a box stands in, KV_JPX_ROOT at the top level.
 *  Returns 0; 3 for an unknown identifier, the root or a null out; 8. */
KV_JPX_API int32_t kv_jpx_get_parent_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out);

/** Tells whether a box is a container (1) or not (0). out must not be null.
 *  Returns 0; 3 for an unknown identifier; 8. */
KV_JPX_API int32_t kv_jpx_is_box_super(kv_jpx_context* context, uint32_t id, uint8_t* out);

/**
 * Prints a box in readable form on standard output and flushes it. KV_JPX_ROOT prints the whole
 * tree. Returns 0; 3 for an unknown identifier; 8.
 */
KV_JPX_API int32_t kv_jpx_print_box(kv_jpx_context* context, uint32_t id);

/* --------------------------------------------------------------------------- Fields and editing */

/**
 * Finds a field by its name in the table of kv_jpx_get_field_info. Needs no context.
 *
 * box_type  four-character code of the box type; every type also has the payload field DATA of
 *           opaque boxes.
 * info      receives the description.
 * Returns 0; 3 for a null name or info; 4 when the type has no such field.
 */
KV_JPX_API int32_t kv_jpx_find_field(uint32_t box_type, const char* name, kv_jpx_field_info* info);

/**
 * Reads an integer field.
 *
 * key    a JPX_FIELD_... constant of the box's type.
 * index  0 for single fields, the entry's number (from 0) for repeating ones.
 * Returns 0; 3 for a null out or an unknown identifier; 4 when the box has no such field now or the
 * index is out of range; 8.
 */
KV_JPX_API int32_t kv_jpx_get_box_field_int(kv_jpx_context* context, uint32_t id, uint32_t key,
                                            uint64_t index, uint64_t* out);

/**
 * Changes an integer field. A repeating field whose index lies at or past the count gets one entry
 * more, wherever the index points.
 * Returns 0; 3 for an unknown identifier or a value out of the field's range; 4 when the box has no
 * such field now or the index is out of range; 8.
 */
KV_JPX_API int32_t kv_jpx_set_box_field_int(kv_jpx_context* context, uint32_t id, uint32_t key,
                                            uint64_t index, uint64_t value);

/**
 * Tells how many entries a field has and how many bytes each takes. count and element_size may be
 * null. Returns 0; 3 for an unknown identifier; 4 when the box has no such field now; 8.
 */
KV_JPX_API int32_t kv_jpx_get_box_field_count(kv_jpx_context* context, uint32_t id, uint32_t key,
                                              uint64_t* count, uint32_t* element_size);

/**
 * Gives a repeating field another number of entries, and with it the other fields of the same list:
 * the last ones go, or new ones of zeros come. Entries of cmap, cdef, creg, inst, flst, nlst and
 * roid boxes, and the brands of an ftyp box. Where everything is kept also the parameters of a colr
 * box, 0 or 1 of each.
 * Returns 0; 3 for an unknown identifier or a count that the box cannot hold (above 65535, or 255
 * where the format counts in 8 bits); 4 when the box has no such repeating field now; 8.
 */
KV_JPX_API int32_t kv_jpx_set_box_field_count(kv_jpx_context* context, uint32_t id, uint32_t key,
                                              uint64_t count);

/**
 * Replaces a field held as bytes by a copy of count entries of element_size bytes.
 * Returns 0; 3 for an unknown identifier, data null with bytes to copy, a size that overflows, or
 * an element size or count that the field does not take; 4 when the box has no such field now; 8.
 */
KV_JPX_API int32_t kv_jpx_set_box_field_buffer(kv_jpx_context* context, uint32_t id, uint32_t key,
                                               uint64_t count, uint32_t element_size,
                                               const void* data);

/**
 * Reads a field held as bytes.
 *
 * data   points to a null pointer: the library allocates the bytes (null when there are none),
 * which the caller releases with kv_jpx_free. Or to a buffer of the caller's with room for *count
 * times *element_size bytes. count, element_size  receive the field's entries and their size; may
 * be null when the library allocates. Returns 0; 3 for an unknown identifier or a null data, and
 * for opaque payloads also when the caller's buffer comes without its size; 4 when the box has no
 * such field now; 5 when the caller's buffer is too small (the needed size is written back) or
 * comes without its size; 8; (ending) 18, 102 or 999 when the input can no longer be read.
 */
KV_JPX_API int32_t kv_jpx_get_box_field_buffer(kv_jpx_context* context, uint32_t id, uint32_t key,
                                               uint64_t* count, uint32_t* element_size,
                                               void** data);

/**
 * Adds an empty box.
 *
 * type       four-character code; an unknown one makes an opaque box.
 * reference  identifier of the box that the place is relative to.
 * placement  2: first child of the reference; 0: directly before it; any other value: directly
 *            after it. Nothing can be put before a first child by 0; use 2 on the parent.
 * new_id     receives the new box's identifier; may be null.
 * Returns 0; 3 for an unknown reference, a placement 2 in a box that is not a container, a
 * placement 0 before a first child, any placement but 2 relative to the root, or a container that
 * would be nested more than 256 deep; 6 when the type may not stand there; 8.
 */
KV_JPX_API int32_t kv_jpx_add_box(kv_jpx_context* context, uint32_t type, uint32_t reference,
                                  int32_t placement, uint32_t* new_id);

/**
 * Adds an empty box as last child of a container; KV_JPX_ROOT is one.
 * Returns as kv_jpx_add_box with placement 2.
 */
KV_JPX_API int32_t kv_jpx_append_box(kv_jpx_context* context, uint32_t type, uint32_t parent,
                                     uint32_t* new_id);

/** Deletes a box with everything in it. Its identifier is not used again within this input.
 *  Returns 0; 3 for an unknown identifier or the root; 8. */
KV_JPX_API int32_t kv_jpx_delete_box(kv_jpx_context* context, uint32_t id);

/**
 * Moves a box with everything in it. It keeps its identifier and, where everything is kept, its
 * bytes; fragments (flst) follow.
 *
 * reference  identifier of the box that the new place is relative to, which is not in the box.
 * placement  a kv_jpx_placement; a first child can be the reference of KV_JPX_PLACE_BEFORE, too.
 * Returns 0; 3 for an unknown identifier, the root, an unknown placement, a place in the box itself
 * or relative to it, in a box that is not a container, or beside the root, and for a container that
 * would be nested more than 256 deep; 6 when the type may not stand there; 8.
 */
KV_JPX_API int32_t kv_jpx_move_box(kv_jpx_context* context, uint32_t id, uint32_t reference,
                                   int32_t placement);

/**
 * Replaces all that stands behind the header of a box by a copy of these bytes. Only where
 * everything is kept. The box has the fields that its type's reader finds in them; where it does
 * not take them all, and for containers, it is an opaque box until the file is read anew. Boxes
 * that were in it are gone.
 *
 * length  in bytes.
 * Returns 0; 3 for an unknown identifier, the root, null data with bytes to copy, and an input of
 * which not everything is kept; 8.
 */
KV_JPX_API int32_t kv_jpx_set_box_content(kv_jpx_context* context, uint32_t id, const void* data,
                                          uint64_t length);

/**
 * Fetches the payload of an opaque box as a block that the caller releases with kv_jpx_free. Prints
 * one line of four numbers (length, position, source, whether the box owns its source) on standard
 * output (kept for compatibility; without it, nothing would be printed);
 * kv_jpx_get_box_field_buffer with JPX_FIELD_JP2C_DATA does the same silently.
 *
 * length, data  receive the size in bytes and the block (null when the payload is empty).
 * Returns 0; 3 for an unknown identifier or a null length or data; 4 when the box is not opaque or
 * has no payload yet; 8; (ending) 18, 102 or 999 when the input can no longer be read.
 */
KV_JPX_API int32_t kv_jpx_get_box_buffer(kv_jpx_context* context, uint32_t id, uint64_t* length,
                                         void** data);

/* ------------------------------------------------------------------------------------- Output */

/**
 * Sets the rectangle to decode, in samples of the full-size image; right and bottom are exclusive,
 * and 0 there means up to the image's edge. Kept unchecked. Returns 0.
 */
KV_JPX_API int32_t kv_jpx_set_input_jpx_region_level(kv_jpx_context* context, uint64_t left,
                                                     uint64_t top, uint64_t right, uint64_t bottom);

/**
 * Sets the resolution level to decode: 1 is full size, each level more halves width and height.
 * The flag is handed to the codec; 1 keeps the image at full size.
 * Returns 0; 3 for a level below 1, and then nothing changes.
 */
KV_JPX_API int32_t kv_jpx_set_input_jpx_resolution_level(kv_jpx_context* context, int16_t level,
                                                         int16_t flag);

/** Sets the quality level to decode; 1 asks for everything, 2 and more are handed to the codec.
 *  Returns 0; 3 for a level below 1, and then nothing changes. */
KV_JPX_API int32_t kv_jpx_set_input_jpx_quality_level(kv_jpx_context* context, int16_t level);

/**
 * Chooses what the output functions deliver: KV_JPX_OUTPUT_JPX, or a decoded image in one of the
 * codec's types 64, 66 to 72, 75, 77, 79, 89, 128.
 * Returns 0; 3 (ending) for any other type.
 */
KV_JPX_API int32_t kv_jpx_set_output_type(kv_jpx_context* context, int32_t type);

/**
 * Bounds the image that decoding composes (ISO/IEC 15444-1, I.5.3.1: what the image header says),
 * of which the library itself allocates a byte for each sample, whatever the codestreams hold.
 *
 * max_samples     width x height x components after region and resolution level; 0: no bound.
 * max_components  0: no bound.
 * A new context has no bounds. An image beyond one is not decoded; the output functions answer 3.
 * Returns 0.
 */
KV_JPX_API int32_t kv_jpx_set_decode_limits(kv_jpx_context* context, uint64_t max_samples,
                                            uint32_t max_components);

/** What came of a decoding. */
typedef struct kv_jpx_decode_report {
  /** sizeof(kv_jpx_decode_report), set by the caller. */
  uint32_t size;
  /** Codestreams that the codec delivered samples of. */
  uint32_t delivered;
  /** Codestreams that the codec answered with an error for; their places were left as they were. */
  uint32_t failed;
  /** Codestreams that were not needed, are empty, or are too long to hand over (4 GiB). */
  uint32_t skipped;
  /** Identifier of the first codestream box that failed; KV_JPX_ROOT when none did. */
  uint32_t failed_box_id;
  /** The codec's answer for that codestream (kv_j2k_error in kv_j2k.h); 0 when none failed. */
  int32_t codec_code;
  /** The codec's answer when the composed image was put into the output type; 0 for success. */
  int32_t output_code;
  /** A sentence in English about the first failure, "" when there was none; the context's, until
   * the next call that hands out a text. */
  const char* text;
} kv_jpx_decode_report;

/**
 * Tells what came of the last decoding on this context (kv_jpx_get_output_image and
 * kv_jpx_get_output_image_file with a decoded type), also of one that failed. Those functions
 * answer 0 whatever the codec says of codestreams. All zero when nothing has been decoded, or there
 * is no codec.
 * Returns 0; 3 for a null out or a wrong size.
 */
KV_JPX_API int32_t kv_jpx_get_decode_report(kv_jpx_context* context, kv_jpx_decode_report* out);

/**
 * Delivers the output in memory.
 *
 * data    points to a null pointer: the library allocates the output, which the caller releases
 * with kv_jpx_free. With KV_JPX_OUTPUT_JPX it may point to a buffer of *length bytes instead.
 * length  receives the output's size in bytes.
 * Returns 0; 3 for a null data or length, and for an image beyond kv_jpx_set_decode_limits; 5 when
 * the caller's buffer is too small (the needed size is written back); 8; (ending) 5 when a box
 * renders more bytes than its length says, 18, 102 or 999 when the input can no longer be read.
 */
KV_JPX_API int32_t kv_jpx_get_output_image(kv_jpx_context* context, void** data, uint64_t* length);

/**
 * Writes the output to a file, which may be the input itself. With KV_JPX_OUTPUT_JPX a regular file
 * that stands there is replaced only once the new one is complete, which keeps its owner, group,
 * permissions and extended attributes as far as the system lets the user keep them (but neither
 * set-user-ID nor set-group-ID); meanwhile a private file .kvjpx-XXXXXX stands beside it. A file
 * that has several names, is reached through /proc or /dev/fd, cannot be replaced or stands where
 * no second file can be made is overwritten once the output is complete; that costs memory of the
 * input's length if it is the input, and of the output's if no second file can be made. Devices
 * and pipes are written to; opening a pipe waits for its reader. A new file is removed again when
 * it fails.
 *
 * Returns 0; 3 for an image beyond kv_jpx_set_decode_limits, and then no file is touched; 8; 100
 * when the file cannot be opened for writing or created; 102 when writing fails
 * (a full disk, say) before the old content was touched; (ending) 102 when it fails later, 1 when
 * memory is short, 18, 102 or 999 when the input can no longer be read. A decoded image is written
 * by the codec (by libkvj2k in the same way); one that it cannot write is answered with 100 or 102,
 * not ending.
 */
KV_JPX_API int32_t kv_jpx_get_output_image_file(kv_jpx_context* context, const char* path);

/**
 * Writes the JPX file to an open descriptor, from its present position on and in order: to a pipe,
 * a socket, or a file that the caller manages. Where everything is kept, it takes memory for the
 * boxes only. The descriptor must not be of the input, and stays the caller's.
 *
 * Returns 0; 8; 102 when the system refuses a part of it; (ending) 5, 18 or 999 as
 * kv_jpx_get_output_image.
 */
KV_JPX_API int32_t kv_jpx_write_jpx(kv_jpx_context* context, int32_t descriptor);

#ifdef __cplusplus
}
#endif

#endif /* KVJPX_H_ */
