// Renders, reads back, writes.
#include "save.h"

#include <vector>

#include "failure.h"

namespace kvjpx_tool {
namespace {

// The types of all boxes in a container, each with its content, which a mark ends.
void append_outline(kv_jpx_context* context, uint32_t container, std::vector<uint32_t>& outline) {
  uint32_t id = KV_JPX_ROOT;
  if (kv_jpx_get_first_child_box_id(context, container, &id) != JPX_OK) return;
  while (id != KV_JPX_ROOT) {
    uint32_t type = 0;
    kv_jpx_get_box_type_by_id(context, id, &type);
    outline.push_back(type);
    append_outline(context, id, outline);
    outline.push_back(KV_JPX_ROOT);
    kv_jpx_get_next_box_id(context, id, &id);
  }
}

std::vector<uint32_t> outline_of(kv_jpx_context* context) {
  std::vector<uint32_t> outline;
  append_outline(context, KV_JPX_ROOT, outline);
  return outline;
}

void check_reads_back(const Document& document, std::string_view bytes) {
  const ContextPointer context = make_context(document.label());
  const int32_t code = kv_jpx_set_input_image(context.get(), bytes.data(), bytes.size());
  if (code == JPX_ERR_MEMORY) throw library_failure(document.label(), code, kEditRefused);
  if (code == JPX_OK && outline_of(context.get()) == outline_of(document.context())) return;
  throw Failure(kEditRefused,
                document.label() +
                    ": the library would write boxes with wrong lengths, and the result could not "
                    "be read again; nothing is written (--force writes it all the same)");
}

}  // namespace

void save(const Document& document, const Target& target) {
  const LibraryBlock rendered = document.output();
  if (!target.force) check_reads_back(document, rendered.bytes());
  write_result(target, rendered.bytes());
}

}  // namespace kvjpx_tool
