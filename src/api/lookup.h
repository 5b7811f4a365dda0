// Finding boxes for the public functions, without an entry guard of its own.
#ifndef KVJPX_API_LOOKUP_H_
#define KVJPX_API_LOOKUP_H_

#include "box/index.h"
#include "frame/guard.h"

namespace kvjpx {

// Null for an unknown identifier.
inline Box* find_box(Context& context, uint32_t id) {
  return index_find(&context.environment, context.index, id);
}

// Destroys the tree with its index, if there is one.
inline void destroy_tree(Context& context) {
  Environment* const env = &context.environment;
  if (context.root != nullptr) {
    begin_tree_end(env);
    index_end_boxes(env, context.index);
    context.root->box_destroy(context.root, env);
    finish_tree_end(env);
  }
  destroy_index(env, context.index);
  context.root = nullptr;
  context.next_id = kRoot;
}

// Null for a box that does not stand in the index under its identifier.
inline BoxEntry* entry_of_box(Context& context, const Box* box) {
  if (box != context.root && box->id >= context.index->count) return nullptr;
  return index_entry(context.index, box->id);
}

inline Trouble place_of(Context& context, const Box* box) {
  const BoxEntry* const entry = entry_of_box(context, box);
  const bool is_read = entry != nullptr && entry->header_length != 0;
  return {0, box->type, box->id, is_read ? entry->offset : kNoOffset, {0, 0}};
}

// Says which box the call is about, for kv_jpx_get_last_error.
inline void note_place(Context& context, const Box* box) { context.at = place_of(context, box); }

// Runs body(context, box) on the box with the identifier; 3 when there is none.
template <class Body>
int32_t guarded_with_box(Context* context, uint32_t id, const Body& body) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    Box* const box = find_box(live, id);
    if (box == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    note_place(live, box);
    return body(live, box);
  });
}

}  // namespace kvjpx

#endif  // KVJPX_API_LOOKUP_H_
