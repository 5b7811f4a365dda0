// The boxes of a loaded file as a tree, with where each stands in the file's bytes.
#ifndef KVJPX_TOOLS_BOX_TREE_H_
#define KVJPX_TOOLS_BOX_TREE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "kvjpx.h"

namespace kvjpx_tool {

struct Box {
  uint32_t id = KV_JPX_ROOT;
  uint32_t type = KV_JPX_ROOT;
  bool is_container = true;
  uint32_t flags = 0;  // bits of kv_jpx_box_flags

  // Positions in the file; the end is the first byte behind the box. The tail, in front of it, is
  // what belongs to no box in a container.
  uint64_t begin = 0;
  uint64_t content_begin = 0;
  uint64_t end = 0;
  uint64_t tail_length = 0;

  // Place among the siblings of the same type, and how many of them there are.
  uint32_t index = 0;
  uint32_t same_type_count = 1;

  const Box* parent = nullptr;
  std::vector<std::unique_ptr<Box>> children;
  // The same boxes by type, those of one type in their order.
  std::vector<const Box*> children_by_type;

  bool is_root() const { return id == KV_JPX_ROOT; }

  // The box of this type and index in a container; null when there is none.
  const Box* find_child(uint32_t child_type, uint64_t child_index) const;
};

// Calls `visit` for every box under `box`, a container before its content.
void for_each_box(const Box& box, const std::function<void(const Box&)>& visit);

struct BoxTree {
  Box root;
  std::vector<const Box*> boxes_by_id;

  // Null for a box that was not in the file when it was loaded.
  const Box* find(uint64_t id) const { return id < boxes_by_id.size() ? boxes_by_id[id] : nullptr; }
};

// The tree of a freshly loaded context.
std::unique_ptr<BoxTree> read_box_tree(kv_jpx_context* context);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_TREE_H_
