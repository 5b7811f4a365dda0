// add, rm and copy: the tree of boxes.
#include <algorithm>

#include "box_path.h"
#include "commands.h"
#include "document.h"

namespace kvjpx_tool {
namespace {

// The container that the new box is to stand in.
const Box& find_parent(const Document& document, const AddRequest& request, const Box& reference) {
  if (request.place == AddRequest::Place::kInto) {
    if (reference.is_container) return reference;
    throw Failure(kEditRefused, document.place(reference) + ": not a container of boxes");
  }
  if (!reference.is_root()) return *reference.parent;
  throw Failure(kEditRefused, document.place(reference) + ": nothing can stand beside the file");
}

int32_t add_to_library(const Document& document, uint32_t type, AddRequest::Place place,
                       const Box& reference, uint32_t* id) {
  if (place == AddRequest::Place::kInto) {
    return kv_jpx_append_box(document.context(), type, reference.id, id);
  }
  const bool is_before = place == AddRequest::Place::kBefore;
  if (is_before && reference.parent->children.front().get() == &reference) {
    return kv_jpx_add_box(document.context(), type, reference.parent->id, KV_JPX_PLACE_FIRST_CHILD,
                          id);
  }
  return kv_jpx_add_box(document.context(), type, reference.id,
                        is_before ? KV_JPX_PLACE_BEFORE : KV_JPX_PLACE_AFTER, id);
}

void set_payload(const Document& document, uint32_t id, const std::string& payload_file,
                 const std::string& place) {
  const InputFile payload(payload_file);
  const int32_t code =
      kv_jpx_set_box_field_buffer(document.context(), id, JPX_FIELD_JP2C_DATA,
                                  payload.bytes().size(), 1, payload.bytes().data());
  if (code == JPX_ERR_NO_SUCH_FIELD) {
    throw Failure(kEditRefused,
                  place + ": a box of this type takes no --payload; change its fields with 'set'");
  }
  if (code != JPX_OK) throw library_failure(place, document.context(), kEditRefused);
}

// A box has a smaller identifier than what follows it in the file.
bool stands_before(const Box* a, const Box* b) { return a->id < b->id; }

// Whether a container of the box is among boxes that are sorted by identifier.
bool goes_with_container(const Box& box, const std::vector<const Box*>& boxes) {
  for (const Box* parent = box.parent; parent; parent = parent->parent) {
    if (std::binary_search(boxes.begin(), boxes.end(), parent, stands_before)) return true;
  }
  return false;
}

}  // namespace

void add_box(const AddRequest& request, const Target& target) {
  if (!request.reference) throw Failure(kUsage, "add needs --into, --before or --after");
  check_takes_binary(target);
  const uint32_t type = parse_type(request.type, kUsage);
  const Document document(request.file);
  const Box& reference = document.find(*request.reference);
  const Box& parent = find_parent(document, request, reference);
  const std::string place = document.place(parent) + ": new box '" + type_name(type) + "'";

  uint32_t id = KV_JPX_ROOT;
  const int32_t code = add_to_library(document, type, request.place, reference, &id);
  if (code == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kEditRefused, place + ": boxes would be nested more than 256 deep");
  }
  if (code != JPX_OK) throw library_failure(place, document.context(), kEditRefused);
  if (request.payload_file) set_payload(document, id, *request.payload_file, place);
  document.save(target);
}

void remove_boxes(const std::string& file, const std::vector<std::string>& paths,
                  const Target& target) {
  check_takes_binary(target);
  const Document document(file);
  // All paths mean the file as it was given, so they are resolved before anything goes.
  std::vector<const Box*> boxes;
  for (const std::string& path : paths) {
    const Box& box = document.find(path);
    if (box.is_root()) throw Failure(kEditRefused, document.place(box) + ": cannot be removed");
    boxes.push_back(&box);
  }
  std::sort(boxes.begin(), boxes.end(), stands_before);
  boxes.erase(std::unique(boxes.begin(), boxes.end()), boxes.end());
  for (const Box* box : boxes) {
    if (goes_with_container(*box, boxes)) continue;
    const int32_t code = kv_jpx_delete_box(document.context(), box->id);
    if (code != JPX_OK) {
      throw library_failure(document.place(*box), document.context(), kEditRefused);
    }
  }
  document.save(target);
}

void copy_file(const std::string& file, const Target& target) {
  check_takes_binary(target);
  Document(file, Document::Content::kAnything).save(target);
}

}  // namespace kvjpx_tool
