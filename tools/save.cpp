// Renders, mends, reads back, writes.
#include "save.h"

#include <vector>

#include "failure.h"
#include "mending.h"

namespace kvjpx_tool {
namespace {

const char kHowToForce[] = "; nothing is written (--force writes it all the same)";

// Compares the content of every box with what the library makes of it when nothing is edited.
class LossFinder {
 public:
  LossFinder(const Document& document, std::string_view rendered)
      : document_(document), rendered_(rendered) {}

  void check() { check_children(document_.root()); }

 private:
  void check_children(const Box& container) {
    for (const auto& box : container.children) check_box(*box);
  }

  void check_box(const Box& box) {
    const uint64_t short_length = big_endian(rendered_, position_, 4);
    const bool has_long_length = short_length == 1;
    const uint64_t length =
        has_long_length ? big_endian(rendered_, position_ + 8, 8) : short_length;
    const uint64_t header = has_long_length ? 16 : 8;
    if (box.is_container) {
      position_ += header + prefix_length(box.type);
      check_children(box);
      return;
    }
    const uint64_t present = box.end - box.content_begin;
    // A compatible brand that stands twice in the file type box is kept once, which loses nothing.
    const bool keeps_all = length - header >= present ||
                           (box.type == KV_JPX_TYPE('f', 't', 'y', 'p') && present % 4 == 0);
    if (!keeps_all) {
      throw Failure(kEditRefused, document_.place(box) + ": " +
                                      std::to_string(present - (length - header)) +
                                      " bytes of the content would be lost" + kHowToForce);
    }
    position_ += length;
  }

  const Document& document_;
  const std::string_view rendered_;
  uint64_t position_ = 0;
};

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
  throw Failure(
      kEditRefused,
      document.label() + ": the result could not be read again as the same boxes" + kHowToForce);
}

}  // namespace

void check_is_complete(const Document& document, const Target& target) {
  if (target.force) return;
  if (!document.tree().refused.empty()) {
    throw Failure(kEditRefused,
                  document.label() + ": boxes that are left out would be lost" + kHowToForce);
  }
  const MendedFile unedited(document, true);
  LossFinder(document, unedited.bytes()).check();
}

void save(const Document& document, const Target& target) {
  const MendedFile file(document, target.force);
  if (!target.force) check_reads_back(document, file.bytes());
  write_result(target, file.bytes());
}

}  // namespace kvjpx_tool
