// Finding boxes for the public functions (see lookup.h).
#include "api/lookup.h"

namespace kvjpx {
namespace {

Box* first_child_of(const Box* box) {
  return box->kind == kSuper ? static_cast<const SuperBox*>(box)->first_child : nullptr;
}

// Whether the box still stands in its parent: other code may have unlinked it meanwhile.
bool is_linked(const Box* box) {
  if (box->previous != nullptr) return box->previous->next == box;
  return box->parent != nullptr && first_child_of(box->parent) == box;
}

bool is_in_tree(const Box* box, const Box* root) {
  while (box != nullptr && box != root && is_linked(box)) box = box->parent;
  return box == root;
}

Box* find_near(Box* box, uint32_t id) {
  Box* const neighbours[] = {box, box->next, first_child_of(box), box->parent, box->previous};
  for (Box* near : neighbours) {
    if (near != nullptr && near->id == id) return near;
  }
  return nullptr;
}

}  // namespace

Box* find_box(Context& context, uint32_t id) {
  Box*& last_found = context.environment.tail->last_found;
  Box* found = nullptr;
  if (last_found != nullptr && is_in_tree(last_found, context.root))
    found = find_near(last_found, id);
  if (found == nullptr) found = context.root->find_by_id(context.root, id);
  if (found != nullptr) last_found = found;
  return found;
}

}  // namespace kvjpx
