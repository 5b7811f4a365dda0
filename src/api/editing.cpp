// Public functions: adding and deleting boxes.
#include "api/lookup.h"
#include "box/registry.h"
#include "box/standard.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

enum Placement : int32_t {  // any other value: after
  kBefore = KV_JPX_PLACE_BEFORE,
  kFirstChild = KV_JPX_PLACE_FIRST_CHILD,
  kLastChild = -1,  // this file's own
};

bool is_possible_place(const Box* reference, int32_t placement) {
  if (placement == kFirstChild || placement == kLastChild) return reference->kind == kSuper;
  const bool is_root = reference->parent == nullptr;
  if (is_root) return false;
  return placement != kBefore || reference->previous != nullptr;
}

// Where everything is kept also the places that only the standard knows.
bool is_allowed(const Context& context, uint32_t type, const Box* parent) {
  return may_stand(type, parent) || (context.index->keeps_everything != 0 && belongs(type, parent));
}

// Judged only for a container that its type allows there; any other is refused as such.
bool is_too_deep(const Context& context, uint32_t type, const Box* parent) {
  const BoxType* const known = find_box_type(type);
  return known != nullptr && known->kind == kSuper && is_allowed(context, type, parent) &&
         container_depth(parent) > kMaxDepth;
}

// Puts the box between two neighbours, either of which may be null.
void link_between(SuperBox* parent, Box* previous, Box* box, Box* next) {
  box->previous = previous;
  box->next = next;
  (previous != nullptr ? previous->next : parent->first_child) = box;
  if (next != nullptr) {
    next->previous = box;
  } else if (parent->kind == kSuper) {
    // Boxes that other code inserted may name any box as their parent.
    parent->last_child = box;
  }
}

void link_box(Box* box, Box* reference, int32_t placement) {
  auto* const parent = static_cast<SuperBox*>(box->parent);
  if (placement == kFirstChild) {
    link_between(parent, nullptr, box, parent->first_child);
  } else if (placement == kLastChild) {
    append_child(parent, box);
  } else if (placement == kBefore) {
    link_between(parent, reference->previous, box, reference);
  } else {
    link_between(parent, reference, box, reference->next);
  }
}

// Null for a type that may not stand there.
Box* make_box(Context& context, uint32_t type, Box* parent) {
  Environment* const env = &context.environment;
  const uint32_t id = context.next_id + 1;
  if (context.index->keeps_everything != 0) {
    return is_allowed(context, type, parent) ? make_standard_box(env, type, parent, id) : nullptr;
  }
  const BoxType* const known = find_box_type(type);
  return (known != nullptr ? known->make : jpx_make_unknown_box)(env, type, parent, id);
}

int32_t add_box(Context& context, uint32_t type, Box* reference, int32_t placement,
                uint32_t* new_id) {
  if (!is_possible_place(reference, placement)) return JPX_ERR_INVALID_ARGUMENT;
  const bool is_child = placement == kFirstChild || placement == kLastChild;
  Box* const parent = is_child ? reference : reference->parent;
  if (is_too_deep(context, type, parent)) return JPX_ERR_INVALID_ARGUMENT;
  Box* const box = make_box(context, type, parent);
  if (box == nullptr) return JPX_ERR_CANNOT_MAKE_BOX;
  ++context.next_id;
  index_announce(&context.environment, context.index, box->id, type);
  index_settle(context.index, box->id, box);
  link_box(box, reference, placement);
  index_note_change(context.index, box);
  if (new_id != nullptr) *new_id = box->id;
  return JPX_OK;
}

}  // namespace
}  // namespace kvjpx

using namespace kvjpx;

int32_t kv_jpx_add_box(kv_jpx_context* context, uint32_t type, uint32_t reference,
                       int32_t placement, uint32_t* new_id) {
  return guarded_with_box(context, reference, [&](Context& live, Box* box) -> int32_t {
    return add_box(live, type, box, placement == kLastChild ? KV_JPX_PLACE_AFTER : placement,
                   new_id);
  });
}

int32_t kv_jpx_append_box(kv_jpx_context* context, uint32_t type, uint32_t parent,
                          uint32_t* new_id) {
  return guarded_with_box(context, parent, [&](Context& live, Box* box) -> int32_t {
    return add_box(live, type, box, kLastChild, new_id);
  });
}

int32_t kv_jpx_delete_box(kv_jpx_context* context, uint32_t id) {
  return guarded_with_box(context, id, [](Context& live, Box* box) -> int32_t {
    if (box == live.root) return JPX_ERR_INVALID_ARGUMENT;
    index_note_change(live.index, box->parent);
    index_forget(live.index, box);
    box->box_destroy(box, &live.environment);
    return JPX_OK;
  });
}
