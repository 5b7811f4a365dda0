// add, rm and copy: the tree of boxes.
#include <algorithm>

#include "box_path.h"
#include "commands.h"
#include "document.h"
#include "save.h"

namespace kvjpx_tool {
namespace {

// Where the library puts a new box, relative to the box with this identifier.
struct Placement {
  enum Relation : int32_t { kBefore = 0, kAfter = 1, kFirstChild = 2 };

  uint32_t reference;
  Relation relation;
  // The container that the new box will stand in, for messages.
  const Box* parent;
};

Placement place_into(const Document& document, const Box& container) {
  if (!container.is_container) {
    throw Failure(kEditRefused, document.place(container) + ": not a container of boxes");
  }
  // People expect a new box at the end of its container.
  if (container.children.empty()) return {container.id, Placement::kFirstChild, &container};
  return {container.children.back()->id, Placement::kAfter, &container};
}

Placement place_beside(const Document& document, const Box& sibling, bool is_before) {
  if (sibling.is_root()) {
    throw Failure(kEditRefused, document.place(sibling) + ": nothing can stand beside the file");
  }
  const Box& parent = *sibling.parent;
  if (!is_before) return {sibling.id, Placement::kAfter, &parent};
  const bool is_first = parent.children.front().get() == &sibling;
  if (is_first) return {parent.id, Placement::kFirstChild, &parent};
  return {sibling.id, Placement::kBefore, &parent};
}

Placement choose_placement(const Document& document, const AddRequest& request) {
  const Box& reference = document.find(*request.reference);
  if (request.place == AddRequest::Place::kInto) return place_into(document, reference);
  return place_beside(document, reference, request.place == AddRequest::Place::kBefore);
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
  if (code != JPX_OK) throw library_failure(place, code, kEditRefused);
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
  check_is_complete(document, target);
  const Placement placement = choose_placement(document, request);
  const std::string place =
      document.place(*placement.parent) + ": new box '" + type_name(type) + "'";

  uint32_t id = KV_JPX_ROOT;
  const int32_t code =
      kv_jpx_add_box(document.context(), type, placement.reference, placement.relation, &id);
  if (code == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kEditRefused, place + ": boxes would be nested more than 256 deep");
  }
  if (code != JPX_OK) throw library_failure(place, code, kEditRefused);
  if (request.payload_file) set_payload(document, id, *request.payload_file, place);
  save(document, target);
}

void remove_boxes(const std::string& file, const std::vector<std::string>& paths,
                  const Target& target) {
  check_takes_binary(target);
  const Document document(file);
  check_is_complete(document, target);
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
    if (code != JPX_OK) throw library_failure(document.place(*box), code, kEditRefused);
  }
  save(document, target);
}

void copy_file(const std::string& file, const Target& target) {
  check_takes_binary(target);
  const Document document(file);
  check_is_complete(document, target);
  save(document, target);
}

}  // namespace kvjpx_tool
