// Operations of super boxes (see super.h; their reader is in parser.cpp).
#include "box/super.h"

#include <stdio.h>

namespace kvjpx {
namespace {

constexpr BoxOperations kSuperOperations =
    container_operations(jpx_super_length, jpx_super_render, jpx_super_print);

// The children of a super box; none of any other box.
Box* first_child_of(Box* box) {
  return box->kind == kSuper ? static_cast<SuperBox*>(box)->first_child : nullptr;
}

}  // namespace

uint64_t jpx_super_length(Box* box) {
  uint64_t length = 0;
  for (Box* child = first_child_of(box); child != nullptr; child = child->next) {
    length += child->box_length(child);
  }
  return length;
}

void jpx_super_render(Box* box, Environment* env, Stream* stream) {
  for (Box* child = first_child_of(box); child != nullptr; child = child->next) {
    child->box_render(child, env, stream);
  }
}

void jpx_super_print(Box* box) {
  if (box->kind != kSuper) return;
  printf("Super box of type ");
  jpx_print_atom(box->type);
  printf(" length %llu\n", printable(box->box_length(box)));
  puts("***Content Boxes:");
  for (Box* child = first_child_of(box); child != nullptr; child = child->next) {
    printf("BOX ID: %u\n", child->id);
    child->print(child);
  }
  puts("***End of Content Boxes");
}

void jpx_super_destroy(Box* box, Environment* env) {
  for (Box* child = first_child_of(box); child != nullptr;) {
    Box* const next = child->next;
    child->destroy(child, env);
    JPX_SafeFreeInternal(env, child);
    child = next;
  }
  if (box->kind != kSuper) return;
  static_cast<SuperBox*>(box)->first_child = nullptr;
  static_cast<SuperBox*>(box)->last_child = nullptr;
}

Box* jpx_super_find_by_id(Box* box, uint32_t id) {
  if (box->kind != kSuper) return nullptr;
  if (box->id == id) return box;
  for (Box* child = first_child_of(box); child != nullptr; child = child->next) {
    if (Box* found = child->find_by_id(child, id)) return found;
  }
  return nullptr;
}

Box* jpx_super_find_by_type(Box* box, uint32_t type, uint32_t after) {
  if (box->kind != kSuper) return nullptr;
  Box* candidate = jpx_generic_find_by_type(box, type, after);
  for (Box* child = first_child_of(box); child != nullptr; child = child->next) {
    Box* const found = child->find_by_type(child, type, after);
    if (found != nullptr && (candidate == nullptr || found->id < candidate->id)) candidate = found;
  }
  return candidate;
}

void append_child(SuperBox* parent, Box* box) {
  box->next = nullptr;
  box->previous = parent->last_child;
  (parent->last_child != nullptr ? parent->last_child->next : parent->first_child) = box;
  parent->last_child = box;
}

uint32_t container_depth(const Box* parent) {
  uint32_t depth = 1;
  for (; parent != nullptr && parent->type != kRoot && depth <= kMaxDepth;
       parent = parent->parent) {
    ++depth;
  }
  return depth;
}

extern "C" Box* jpx_make_super_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_record(env, sizeof(SuperBox), kSuper, type, parent, id, kSuperOperations);
}

}  // namespace kvjpx
