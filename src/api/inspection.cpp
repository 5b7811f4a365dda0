// Public functions: where boxes stand, what was found while reading, and what failed.
#include "api/lookup.h"
#include "box/findings.h"
#include "box/standard.h"
#include "kvjpx.h"

using namespace kvjpx;

namespace {

const char* describe(Context& context, const Trouble& trouble, int32_t code) {
  describe_trouble(trouble, code, context.report, sizeof(context.report));
  return context.report;
}

}  // namespace

int32_t kv_jpx_set_keep_everything(kv_jpx_context* context, int32_t on) {
  return guarded(context, [&](Context& live) -> int32_t {
    live.keeps_everything = on;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_box_extent(kv_jpx_context* context, uint32_t id, kv_jpx_box_extent* out) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    if (out == nullptr || out->size != sizeof(*out)) return JPX_ERR_INVALID_ARGUMENT;
    const BoxEntry* const entry = entry_of_box(live, box);
    if (entry == nullptr || (entry->header_length == 0 && box != live.root)) {
      return JPX_ERR_NO_SUCH_FIELD;
    }
    const uint32_t misplaced = belongs(box->type, box->parent) ? 0 : KV_JPX_BOX_MISPLACED;
    *out = {sizeof(*out),          (entry->flags & uint32_t{kPublicFlags}) | misplaced,
            entry->offset,         entry->header_length,
            entry->content_length, box->kind == kSuper ? entry->tail_length : 0};
    return JPX_OK;
  });
}

int32_t kv_jpx_get_finding(kv_jpx_context* context, uint32_t index, kv_jpx_finding* out) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (out == nullptr || out->size != sizeof(*out)) return JPX_ERR_INVALID_ARGUMENT;
    const EntryList& findings = live.index->findings;
    if (index >= findings.count) return JPX_ERR_INVALID_ARGUMENT;
    const Trouble& found = *entry_at<Trouble>(findings, index);
    *out = {sizeof(*out),   found.kind,   found.box_id,
            found.box_type, found.offset, describe(live, found, JPX_OK)};
    return JPX_OK;
  });
}

int32_t kv_jpx_get_decode_report(kv_jpx_context* context, kv_jpx_decode_report* out) {
  return guarded(context, [&](Context& live) -> int32_t {
    if (out == nullptr || out->size != sizeof(*out)) return JPX_ERR_INVALID_ARGUMENT;
    const DecodeRecord& record = live.decoded;
    describe_decoding(record, live.report, sizeof(live.report));
    *out = {sizeof(*out),
            record.delivered,
            record.failed,
            record.codestreams - record.delivered - record.failed,
            record.failed == 0 ? kRoot : record.failed_at.box_id,
            record.codec_code,
            record.output_code,
            live.report};
    return JPX_OK;
  });
}

const char* kv_jpx_get_error_text(int32_t code) {
  switch (code) {
    case JPX_OK:
      return "success";
    case JPX_ERR_MEMORY:
      return "not enough memory, or a block that is not live";
    case JPX_ERR_BAD_CONTEXT:
      return "not a live context";
    case JPX_ERR_INVALID_ARGUMENT:
      return "an argument or value out of range, or no such box";
    case JPX_ERR_NO_SUCH_FIELD:
      return "no such field or entry";
    case JPX_ERR_BUFFER_TOO_SMALL:
      return "the buffer is too small";
    case JPX_ERR_CANNOT_MAKE_BOX:
      return "a box of this type may not stand there";
    case JPX_ERR_BAD_SIGNATURE:
      return "the signature is wrong";
    case JPX_ERR_NO_INPUT:
      return "no input is set";
    case JPX_ERR_READ_PAST_END:
      return "the file ends too early";
    case JPX_ERR_OPEN_FILE:
      return "the file cannot be opened";
    case JPX_ERR_FILE_IO:
      return "reading or writing failed";
    case JPX_ERR_INTERNAL:
      return "a stream that does not serve this";
    default:
      return "an unknown error";
  }
}

// Without the guard, which would take this call for the last one.
int32_t kv_jpx_get_last_error(kv_jpx_context* context, kv_jpx_error_info* out) {
  if (context == nullptr || context->magic != kContextMagic) return JPX_ERR_BAD_CONTEXT;
  if (out == nullptr || out->size != sizeof(*out)) return JPX_ERR_INVALID_ARGUMENT;
  const bool has_failed = context->failed_with != JPX_OK;
  const Trouble& where = has_failed ? context->failed_at : kNoTrouble;
  *out = {sizeof(*out),   context->failed_with, where.box_id,
          where.box_type, where.offset,         describe(*context, where, context->failed_with)};
  return JPX_OK;
}
