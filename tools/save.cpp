// Renders, mends, reads back, writes.
#include "save.h"

#include <vector>

#include "failure.h"
#include "mending.h"

namespace kvjpx_tool {
namespace {

// The types of all boxes in a container, each with its content, which a mark ends.
void append_outline(kv_jpx_context* context, uint32_t container, std::vector<uint32_t>& outline) {
  for (const uint32_t id : child_ids(context, container)) {
    uint32_t type = 0;
    kv_jpx_get_box_type_by_id(context, id, &type);
    outline.push_back(type);
    append_outline(context, id, outline);
    outline.push_back(KV_JPX_ROOT);
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
  const bool is_read = code == JPX_OK && has_signature(bytes);
  if (is_read && outline_of(context.get()) == outline_of(document.context())) return;
  throw Failure(kEditRefused,
                document.label() +
                    ": the result could not be read again as the same boxes; nothing is written "
                    "(--force writes it all the same)");
}

}  // namespace

void save(const Document& document, const Target& target) {
  const MendedFile file(document, target.force);
  if (!target.force) check_reads_back(document, file.bytes());
  write_result(target, file.bytes());
}

}  // namespace kvjpx_tool
