// Public functions: walking the tree, finding and printing boxes.
#include <stdio.h>

#include "api/lookup.h"
#include "kvjpx.h"

using namespace kvjpx;

int32_t kv_jpx_get_next_box_id_by_type(kv_jpx_context* context, uint32_t type, uint32_t after,
                                       uint32_t* out) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (out == nullptr) return JPX_OK;
    return index_find_by_type(&live.environment, live.index, type, after, out)
               ? JPX_OK
               : JPX_ERR_INVALID_ARGUMENT;
  });
}

int32_t kv_jpx_get_box_count_by_type(kv_jpx_context* context, uint32_t type, uint32_t* out) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (out != nullptr) *out = index_count(&live.environment, live.index, type);
    return JPX_OK;
  });
}

int32_t kv_jpx_get_box_type_by_id(kv_jpx_context* context, uint32_t id, uint32_t* out) {
  return guarded_with_input(context, [&](Context& live) -> int32_t {
    if (out == nullptr) return JPX_OK;
    const Box* const box = find_box(live, id);
    if (box == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = box->type;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_next_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    if (out == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = box->next != nullptr ? box->next->id : kRoot;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_previous_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    if (out == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = box->previous != nullptr ? box->previous->id : kRoot;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_parent_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    if (out == nullptr || box->parent == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = box->parent->id;
    return JPX_OK;
  });
}

int32_t kv_jpx_get_first_child_box_id(kv_jpx_context* context, uint32_t id, uint32_t* out) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    if (out == nullptr || box->kind != kSuper) return JPX_ERR_INVALID_ARGUMENT;
    const Box* const child = static_cast<SuperBox*>(box)->first_child;
    if (child == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = child->id;
    return JPX_OK;
  });
}

int32_t kv_jpx_is_box_super(kv_jpx_context* context, uint32_t id, uint8_t* out) {
  return guarded_with_box(context, id, [&](Context&, Box* box) -> int32_t {
    if (out == nullptr) return JPX_ERR_INVALID_ARGUMENT;
    *out = box->kind == kSuper;
    return JPX_OK;
  });
}

int32_t kv_jpx_print_box(kv_jpx_context* context, uint32_t id) {
  return guarded_with_box(context, id, [](Context&, Box* box) -> int32_t {
    box->print(box);
    fflush(stdout);
    return JPX_OK;
  });
}
