// Public functions: adding and deleting boxes.
#include "api/lookup.h"
#include "box/registry.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

enum Placement : int32_t { kBefore = 0, kFirstChild = 2 };  // any other value: after

bool is_possible_place(const Box* reference, int32_t placement) {
  if (placement == kFirstChild) return reference->kind == kSuper;
  const bool is_root = reference->parent == nullptr;
  if (is_root) return false;
  return placement != kBefore || reference->previous != nullptr;
}

// Judged only for a container that its type allows there; any other is refused as such.
bool is_too_deep(uint32_t type, const Box* parent) {
  const BoxType* const known = find_box_type(type);
  return known != nullptr && known->kind == kSuper && may_stand(type, parent) &&
         container_depth(parent) > kMaxDepth;
}

// Puts the box between two neighbours, either of which may be null.
void link_between(Box* previous, Box* box, Box* next) {
  box->previous = previous;
  box->next = next;
  if (previous != nullptr) previous->next = box;
  if (next != nullptr) next->previous = box;
}

void link_box(Box* box, Box* reference, int32_t placement) {
  if (placement == kFirstChild) {
    Box*& first_child = static_cast<SuperBox*>(reference)->first_child;
    link_between(nullptr, box, first_child);
    first_child = box;
  } else if (placement == kBefore) {
    link_between(reference->previous, box, reference);
  } else {
    link_between(reference, box, reference->next);
  }
}

int32_t add_box(Context& context, uint32_t type, Box* reference, int32_t placement,
                uint32_t* new_id) {
  if (!is_possible_place(reference, placement)) return JPX_ERR_INVALID_ARGUMENT;
  Box* const parent = placement == kFirstChild ? reference : reference->parent;
  if (is_too_deep(type, parent)) return JPX_ERR_INVALID_ARGUMENT;
  const BoxType* const known = find_box_type(type);
  MakeFn* const make = known != nullptr ? known->make : jpx_make_unknown_box;
  Box* const box = make(&context.environment, type, parent, context.next_id + 1);
  if (box == nullptr) return JPX_ERR_CANNOT_MAKE_BOX;
  ++context.next_id;
  index_announce(&context.environment, context.index, box->id, type);
  index_settle(context.index, box->id, box);
  link_box(box, reference, placement);
  if (new_id != nullptr) *new_id = box->id;
  return JPX_OK;
}

}  // namespace
}  // namespace kvjpx

using namespace kvjpx;

int32_t kv_jpx_add_box(kv_jpx_context* context, uint32_t type, uint32_t reference,
                       int32_t placement, uint32_t* new_id) {
  return guarded_with_box(context, reference, [&](Context& live, Box* box) -> int32_t {
    return add_box(live, type, box, placement, new_id);
  });
}

int32_t kv_jpx_delete_box(kv_jpx_context* context, uint32_t id) {
  return guarded_with_box(context, id, [](Context& live, Box* box) -> int32_t {
    if (box == live.root) return JPX_ERR_INVALID_ARGUMENT;
    index_forget(live.index, box);
    box->box_destroy(box, &live.environment);
    return JPX_OK;
  });
}
