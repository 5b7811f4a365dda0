// What readers met, in words (see findings.h).
#include "box/findings.h"

#include <stdarg.h>
#include <stdio.h>

#include "kv_j2k.h"

namespace kvjpx {
namespace {

struct Text {
  char* place;
  size_t room;
};

// Cut where the room ends.
__attribute__((format(printf, 2, 3))) void append(Text* text, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start
  const int length = vsnprintf(text->place, text->room, format, arguments);
  va_end(arguments);
  if (length < 0 || text->room == 0) return;
  const size_t written =
      static_cast<size_t>(length) < text->room ? static_cast<size_t>(length) : text->room - 1;
  text->place += written;
  text->room -= written;
}

void append_type(Text* text, uint32_t type) {
  append(text, "'");
  for (int shift = 24; shift >= 0; shift -= 8) {
    const int character = static_cast<int>(type >> shift & 0xFF);
    const bool is_plain = character >= ' ' && character <= '~';
    append(text, is_plain ? "%c" : "\\x%02x", character);
  }
  append(text, "'");
}

void append_place(Text* text, const Trouble& trouble) {
  if (trouble.box_type != kRoot) {
    append(text, " in box ");
    append_type(text, trouble.box_type);
  }
  if (trouble.offset != kNoOffset) append(text, " at offset %llu", printable(trouble.offset));
}

void append_box(Text* text, const Trouble& trouble) {
  append(text, "box ");
  append_type(text, trouble.box_type);
  append(text, " at offset %llu", printable(trouble.offset));
}

const char* words_of_codec(int32_t code) {
  switch (code) {
    case KV_J2K_ERR_MEMORY:
      return "not enough memory";
    case KV_J2K_ERR_BROKEN_CODESTREAM:
      return "the codestream is broken or cut off";
    case KV_J2K_ERR_LIMIT:
      return "more work than the codec's limits allow";
    case KV_J2K_ERR_UNSUPPORTED:
      return "the output type cannot hold this picture";
    case KV_J2K_ERR_NOTHING_TO_WRITE:
      return "there is nothing to write";
    case KV_J2K_ERR_OPEN_FILE:
      return "the file cannot be opened";
    case KV_J2K_ERR_FILE_IO:
      return "writing failed";
    default:
      return "an error of its own";
  }
}

}  // namespace

void add_finding(Environment* env, BoxIndex* index, const Trouble& trouble) {
  if (index != nullptr) list_append(env, &index->findings, sizeof(Trouble), &trouble);
}

void describe_trouble(const Trouble& trouble, int32_t code, char* place, size_t size) {
  Text text = {place, size};
  const unsigned long long first = printable(trouble.numbers[0]);
  const unsigned long long second = printable(trouble.numbers[1]);
  switch (trouble.kind) {
    case KV_JPX_FINDING_TRAILING:
      append(&text, "%llu bytes at offset %llu are no box", second, printable(trouble.offset));
      if (second < first) append(&text, ": a header has %llu", first);
      break;
    case KV_JPX_FINDING_BAD_LENGTH:
      append_box(&text, trouble);
      append(&text, " has a length of %llu, less than its header", first);
      break;
    case KV_JPX_FINDING_CUT_SHORT:
      append_box(&text, trouble);
      append(&text, " is cut short: %llu bytes of content are announced, %llu are there", first,
             second);
      break;
    case KV_JPX_FINDING_MALFORMED:
      append_box(&text, trouble);
      append(&text, " has a content that is not that of its type");
      break;
    case KV_JPX_FINDING_UNREAD:
      append(&text, "%llu bytes at offset %llu, at the end of a box ", first,
             printable(trouble.offset));
      append_type(&text, trouble.box_type);
      append(&text, ", are not known to its type");
      break;
    case KV_JPX_FINDING_TOO_DEEP:
      append_box(&text, trouble);
      append(&text, " is nested more than %u deep", kMaxDepth);
      break;
    case KV_JPX_FINDING_MISPLACED:
      append_box(&text, trouble);
      append(&text, " does not belong where it stands");
      break;
    case KV_JPX_FINDING_FRAGMENT:
      append_box(&text, trouble);
      append(&text, " has a fragment at offset %llu, of %llu bytes, that have changed", first,
             second);
      break;
    case KV_JPX_FINDING_IMAGE_SIZE:
      append(&text, "the image has %llu samples in %llu components, more than the limits allow",
             first, second);
      break;
    default:
      append(&text, "%s", kv_jpx_get_error_text(code));
      append_place(&text, trouble);
  }
}

void describe_decoding(const DecodeRecord& record, char* place, size_t size) {
  Text text = {place, size};
  place[0] = 0;
  if (record.failed != 0) {
    append(&text, "the codestream");
    append_place(&text, record.failed_at);
    append(&text, " cannot be decoded: the codec answers %d, %s", record.codec_code,
           words_of_codec(record.codec_code));
  } else if (record.output_code != 0) {
    append(&text, "the image cannot be delivered: the codec answers %d, %s", record.output_code,
           words_of_codec(record.output_code));
  }
}

}  // namespace kvjpx
