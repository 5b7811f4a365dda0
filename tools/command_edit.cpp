// add, rm, mv, replace and copy: the tree of boxes.
#include <algorithm>

#include "box_notation.h"
#include "box_path.h"
#include "commands.h"
#include "document.h"

namespace kvjpx_tool {
namespace {

bool is_inside(const Placement& placement) { return placement.place == KV_JPX_PLACE_LAST_CHILD; }

// The box that the place is relative to, and the container that this makes the parent.
struct FoundPlace {
  const Box* reference;
  const Box* parent;
};

FoundPlace find_place(const Document& document, const Placement& placement) {
  const Box& reference = document.find(*placement.reference);
  if (is_inside(placement)) {
    if (reference.is_container) return {&reference, &reference};
    throw Failure(kEditRefused, document.place(reference) + ": not a container of boxes");
  }
  if (!reference.is_root()) return {&reference, reference.parent};
  throw Failure(kEditRefused, document.place(reference) + ": nothing can stand beside the file");
}

kvjpx::result<kvjpx::box> add_at(kvjpx::box reference, kvjpx_tool::Placement placement,
                                 kvjpx::type type) {
  if (is_inside(placement)) return reference.append(type);
  return placement.place == KV_JPX_PLACE_BEFORE ? reference.add_before(type)
                                                : reference.add_after(type);
}

kvjpx::box added(const Edit& edit, kvjpx::result<kvjpx::box> result, const std::string& place) {
  if (result.code() == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kEditRefused, place + ": boxes would be nested more than 256 deep");
  }
  return edit.taken(std::move(result), place);
}

void fill(const Edit& edit, kvjpx::box box, const NotedBox& noted, const std::string& place) {
  if (noted.content) edit.check(box.set_content(*noted.content), place);
  for (const NotedBox& inner : noted.boxes) {
    if (!box.is_container()) throw Failure(kEditRefused, place + ": not a container of boxes");
    const kvjpx::type type(inner.type);
    const std::string inner_place = place + ": new box '" + type.name() + "'";
    fill(edit, added(edit, box.append(type), inner_place), inner, inner_place);
  }
}

void set_payload(const Edit& edit, kvjpx::box box, const std::string& payload_file,
                 const std::string& place) {
  const InputFile payload(payload_file);
  const auto result = box.set_payload(payload.bytes());
  if (result.code() == JPX_ERR_NO_SUCH_FIELD) {
    throw Failure(kEditRefused,
                  place + ": a box of this type takes no --payload; change its fields with 'set'");
  }
  edit.check(result, place);
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

void add_box(const AddRequest& request, const EditRequest& edit_request) {
  if (!request.placement.reference) {
    throw Failure(kUsage, "add needs --into, --before or --after");
  }
  const NotedBox noted = parse_box(request.box);
  if (request.payload_file && (noted.content || !noted.boxes.empty())) {
    throw Failure(kUsage, "--payload goes with a box that has no content of its own");
  }
  const Edit edit(edit_request);
  const FoundPlace found = find_place(edit.document(), request.placement);
  const kvjpx::type type(noted.type);
  const std::string place =
      edit.document().place(*found.parent) + ": new box '" + type.name() + "'";
  const kvjpx::box box =
      added(edit, add_at(edit.box(*found.reference), request.placement, type), place);
  if (request.payload_file) set_payload(edit, box, *request.payload_file, place);
  fill(edit, box, noted, place);
  edit.finish();
}

void remove_boxes(const std::vector<std::string>& paths, const EditRequest& edit_request) {
  const Edit edit(edit_request);
  const Document& document = edit.document();
  // All paths mean the file as it was given, so they are resolved before anything goes.
  std::vector<const Box*> boxes;
  for (const std::string& path : paths) {
    for (const Box* box : document.find_all(path)) {
      if (box->is_root()) throw Failure(kEditRefused, document.place(*box) + ": cannot be removed");
      boxes.push_back(box);
    }
  }
  std::sort(boxes.begin(), boxes.end(), stands_before);
  boxes.erase(std::unique(boxes.begin(), boxes.end()), boxes.end());
  for (const Box* box : boxes) {
    if (goes_with_container(*box, boxes)) continue;
    edit.check(edit.box(*box).remove(), document.place(*box));
  }
  edit.finish();
}

void move_box(const std::string& path, const Placement& placement,
              const EditRequest& edit_request) {
  if (!placement.reference) throw Failure(kUsage, "mv needs --into, --before or --after");
  Edit edit(edit_request);
  const Box& moved = edit.document().find(path);
  const std::string place = edit.document().place(moved);
  if (moved.is_root()) throw Failure(kEditRefused, place + ": cannot be moved");
  const FoundPlace found = find_place(edit.document(), placement);
  for (const Box* box = found.reference; box; box = box->parent) {
    if (box == &moved)
      throw Failure(kEditRefused, place + ": cannot be moved into or beside itself");
  }
  const kvjpx::box box = edit.box(moved);
  const auto result = box.move(edit.box(*found.reference), placement.place);
  if (result.code() == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kEditRefused, place + ": boxes would be nested more than 256 deep");
  }
  edit.check(result, place);
  edit.note_moved(box);
  edit.finish();
}

void replace_payload(const std::string& path, const std::string& payload_file,
                     const EditRequest& edit_request) {
  const InputFile payload(payload_file);
  const Edit edit(edit_request);
  const Box& box = edit.document().find(path);
  const std::string place = edit.document().place(box);
  if (box.is_root()) throw Failure(kEditRefused, place + ": cannot be replaced");
  edit.check(edit.box(box).set_content(payload.bytes()), place);
  edit.finish();
}

void copy_file(const std::string& file, const Target& target) {
  check_takes_binary(target);
  Document(file, Document::Content::kAnything).save(target);
}

}  // namespace kvjpx_tool
