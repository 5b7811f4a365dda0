// Public functions: adding and deleting boxes.
#include "api/lookup.h"
#include "box/basic.h"
#include "box/registry.h"
#include "box/standard.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

enum Placement : int32_t {  // any other value: after
  kBefore = KV_JPX_PLACE_BEFORE,
  kFirstChild = KV_JPX_PLACE_FIRST_CHILD,
  kLastChild = -1,  // this file's own, where 3 is "after"
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
  if (next != nullptr) next->previous = box;
}

void link_box(Environment* env, BoxIndex* index, Box* box, Box* reference, int32_t placement) {
  auto* const parent = static_cast<SuperBox*>(box->parent);
  if (placement == kFirstChild) {
    link_between(parent, nullptr, box, parent->first_child);
  } else if (placement == kLastChild) {
    append_child(parent, index_last_child(index, parent), box);
  } else if (placement == kBefore) {
    link_between(parent, reference->previous, box, reference);
  } else {
    link_between(parent, reference, box, reference->next);
  }
  if (box->next == nullptr) index_note_last_child(index, parent, box);
  index_note_link(env, index, box->previous);
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
  index_announce(&context.environment, context.index, box->id);
  index_settle(&context.environment, context.index, box->id, box);
  link_box(&context.environment, context.index, box, reference, placement);
  index_note_change(&context.environment, context.index, box);
  if (new_id != nullptr) *new_id = box->id;
  return JPX_OK;
}

bool is_within(const Box* place, const Box* box) {
  while (place != nullptr && place != box) place = place->parent;
  return place == box;
}

// How many containers are nested in one of them, itself included; 0 for other boxes.
uint32_t height_of(const Box* box) {
  if (box->kind != kSuper) return 0;
  uint32_t height = 0;
  const Box* child = static_cast<const SuperBox*>(box)->first_child;
  for (; child != nullptr; child = child->next) {
    const uint32_t below = height_of(child);
    if (below > height) height = below;
  }
  return height + 1;
}

int32_t move_box(Context& context, Box* box, Box* reference, int32_t placement) {
  if (box == context.root || is_within(reference, box)) return JPX_ERR_INVALID_ARGUMENT;
  const bool is_child = placement == kFirstChild || placement == kLastChild;
  Box* const parent = is_child ? reference : reference->parent;
  if (parent == nullptr || parent->kind != kSuper) return JPX_ERR_INVALID_ARGUMENT;
  if (!is_allowed(context, box->type, parent)) return JPX_ERR_CANNOT_MAKE_BOX;
  const uint32_t height = height_of(box);
  if (height != 0 && container_depth(parent) + height - 1 > kMaxDepth) {
    return JPX_ERR_INVALID_ARGUMENT;
  }
  Environment* const env = &context.environment;
  BoxIndex* const index = context.index;
  auto* const old_parent = static_cast<SuperBox*>(box->parent);
  index_note_change(env, index, old_parent);
  index_note_link(env, index, box->previous);
  index_note_link(env, index, box);
  if (box->next != nullptr) box->next->previous = box->previous;
  (box->previous != nullptr ? box->previous->next : old_parent->first_child) = box->next;
  if (box->next == nullptr) index_note_last_child(index, old_parent, box->previous);
  box->parent = parent;
  if (placement == kBefore && reference->previous == nullptr) {
    link_box(env, index, box, parent, kFirstChild);
  } else {
    link_box(env, index, box, reference, placement);
  }
  index_note_change(env, index, parent);
  return JPX_OK;
}

// A record for a content, which has fields if they hold all of it.
Box* read_content(Environment* env, const Box* old, const void* data, uint64_t length) {
  const BoxLayout* const layout = standard_layout(old->type);
  Box* box = make_standard_box(env, old->type, old->parent, old->id);
  if (layout != nullptr && box->kind != kSuper) {
    Stream* stream = bs_reader_from_buffer(env, data, length);
    stream->keeps_everything = 1;
    bs_push_read_limit(env, stream, length);
    read_typed(env, stream, *layout, box);
    const bool is_whole = stream->content_is_bad == 0 && stream->unread == 0;
    bs_pop_read_limit(env, stream);
    // A payload, that of a url box included, stays in the stream.
    const bool holds_payload = layout->own.destroy == release_payload;
    if (is_whole && holds_payload) static_cast<BasicBox*>(box)->owns_stream = 1;
    if (is_whole && holds_payload) return box;
    destroy_stream(env, stream);
    if (is_whole) return box;
  }
  if (box->kind != kBasic || layout != nullptr) {
    mark_block(box, kPlain);
    box->destroy(box, env);
    JPX_SafeFreeInternal(env, box);
    box = jpx_make_basic_box(env, old->type, old->parent, old->id);
  }
  box->set_buffer_field(box, env, JPX_FIELD_JP2C_DATA, length, 1, data);
  return box;
}

int32_t set_content(Context& context, Box* old, const void* data, uint64_t length) {
  const bool is_possible = old != context.root && (data != nullptr || length == 0) &&
                           context.index->keeps_everything != 0;
  if (!is_possible) return JPX_ERR_INVALID_ARGUMENT;
  Environment* const env = &context.environment;
  Box* const box = read_content(env, old, data, length);
  link_between(static_cast<SuperBox*>(old->parent), old->previous, box, old->next);
  index_replace(context.index, old, box);
  if (BoxEntry* const entry = entry_of_box(context, box)) entry->tail_length = 0;
  index_note_change(env, context.index, box);
  old->destroy(old, env);
  JPX_SafeFreeInternal(env, old);
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
    index_note_change(&live.environment, live.index, box->parent);
    index_note_link(&live.environment, live.index, box->previous);
    if (box->next == nullptr && live.index->is_all_ours) {
      index_note_last_child(live.index, static_cast<SuperBox*>(box->parent), box->previous);
    }
    index_forget(live.index, box);
    box->box_destroy(box, &live.environment);
    return JPX_OK;
  });
}

int32_t kv_jpx_move_box(kv_jpx_context* context, uint32_t id, uint32_t reference,
                        int32_t placement) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    Box* const place = find_box(live, reference);
    const bool is_known = placement >= KV_JPX_PLACE_BEFORE && placement <= KV_JPX_PLACE_LAST_CHILD;
    if (place == nullptr || !is_known) return JPX_ERR_INVALID_ARGUMENT;
    note_place(live, place);
    return move_box(live, box, place,
                    placement == KV_JPX_PLACE_LAST_CHILD ? kLastChild : placement);
  });
}

int32_t kv_jpx_set_box_content(kv_jpx_context* context, uint32_t id, const void* data,
                               uint64_t length) {
  return guarded_with_box(context, id, [&](Context& live, Box* box) -> int32_t {
    return set_content(live, box, data, length);
  });
}
