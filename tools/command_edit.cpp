// add, rm, mv, replace and copy: the tree of boxes.
#include <algorithm>

#include "box_notation.h"
#include "box_path.h"
#include "commands.h"

namespace kvjpx_tool {
namespace {

bool is_inside(const Placement& placement) { return placement.place == KV_JPX_PLACE_LAST_CHILD; }

// The box that the place is relative to, and the container that this makes the parent.
struct FoundPlace {
  kvjpx::box reference;
  kvjpx::box parent;
};

FoundPlace find_place(const Edit& edit, const Placement& placement) {
  const kvjpx::box reference = edit.find(*placement.reference);
  if (is_inside(placement)) {
    if (reference.is_container()) return {reference, reference};
    throw Failure(kEditRefused, edit.place(reference) + ": not a container of boxes");
  }
  if (!reference.is_root()) return {reference, reference.parent()};
  throw Failure(kEditRefused, edit.place(reference) + ": nothing can stand beside the file");
}

kvjpx::result<kvjpx::box> add_at(kvjpx::box reference, const kvjpx_tool::Placement& placement,
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
    const std::string inner_place = place + ": new box '" + inner.type.name() + "'";
    fill(edit, added(edit, box.append(inner.type), inner_place), inner, inner_place);
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
bool stands_before(kvjpx::box a, kvjpx::box b) { return a.id() < b.id(); }

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
  const FoundPlace found = find_place(edit, request.placement);
  const std::string place = edit.place(found.parent) + ": new box '" + noted.type.name() + "'";
  const kvjpx::box box = added(edit, add_at(found.reference, request.placement, noted.type), place);
  if (request.payload_file) set_payload(edit, box, *request.payload_file, place);
  fill(edit, box, noted, place);
  edit.finish();
}

void remove_boxes(const std::vector<std::string>& paths, const EditRequest& edit_request) {
  const Edit edit(edit_request);
  // All paths mean the file as it was given, so they are resolved before anything goes.
  std::vector<kvjpx::box> boxes;
  for (const std::string& path : paths) {
    for (const kvjpx::box box : find_boxes(edit.file(), path)) {
      if (box.is_root()) throw Failure(kEditRefused, edit.place(box) + ": cannot be removed");
      boxes.push_back(box);
    }
  }
  std::sort(boxes.begin(), boxes.end(), stands_before);
  boxes.erase(std::unique(boxes.begin(), boxes.end()), boxes.end());
  for (const kvjpx::box box : boxes) {
    // It may have gone with its container.
    if (!box.exists()) continue;
    const std::string place = place_of(edit.file(), box);
    edit.check(box.remove(), place);
  }
  edit.finish();
}

void move_box(const std::string& path, const Placement& placement,
              const EditRequest& edit_request) {
  if (!placement.reference) throw Failure(kUsage, "mv needs --into, --before or --after");
  Edit edit(edit_request);
  const kvjpx::box moved = edit.find(path);
  const std::string place = edit.place(moved);
  if (moved.is_root()) throw Failure(kEditRefused, place + ": cannot be moved");
  const FoundPlace found = find_place(edit, placement);
  for (kvjpx::box box = found.reference; box; box = box.parent()) {
    if (box == moved)
      throw Failure(kEditRefused, place + ": cannot be moved into or beside itself");
  }
  const auto result = moved.move(found.reference, placement.place);
  if (result.code() == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kEditRefused, place + ": boxes would be nested more than 256 deep");
  }
  edit.check(result, place);
  edit.note_moved(moved);
  edit.finish();
}

void replace_payload(const std::string& path, const std::string& payload_file,
                     const EditRequest& edit_request) {
  const InputFile payload(payload_file);
  const Edit edit(edit_request);
  const kvjpx::box box = edit.find(path);
  const std::string place = edit.place(box);
  if (box.is_root()) throw Failure(kEditRefused, place + ": cannot be replaced");
  edit.check(box.set_content(payload.bytes()), place);
  edit.finish();
}

void copy_file(const std::string& file, const Target& target) {
  check_takes_binary(target);
  const OpenedFile opened(file);
  if (opened.is_codestream()) return write_result(target, opened.bytes());
  save(opened, target);
}

}  // namespace kvjpx_tool
