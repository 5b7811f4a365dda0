// The boxes of a loaded file as a tree: what the library holds, together with where each box stands
// in the file's bytes, which the library does not tell.
#ifndef KVJPX_TOOLS_BOX_TREE_H_
#define KVJPX_TOOLS_BOX_TREE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kvjpx.h"

namespace kvjpx_tool {

struct Box {
  uint32_t id = KV_JPX_ROOT;
  uint32_t type = KV_JPX_ROOT;
  bool is_container = true;

  // Positions in the file; the end is the first byte behind the box.
  uint64_t begin = 0;
  uint64_t content_begin = 0;
  uint64_t end = 0;

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

// A box that the library does not take in `container`.
struct RefusedBox {
  const Box* container;
  uint32_t type;
  uint64_t offset;
};

struct BoxTree {
  Box root;
  std::vector<RefusedBox> refused;
  // Null where an identifier was spent on a refused box.
  std::vector<const Box*> boxes_by_id;

  // Null for a box that was not in the file when it was loaded.
  const Box* find(uint64_t id) const { return id < boxes_by_id.size() ? boxes_by_id[id] : nullptr; }
};

// The boxes in a container, as the library has them at the moment.
std::vector<uint32_t> child_ids(kv_jpx_context* context, uint32_t container);

bool is_container(kv_jpx_context* context, uint32_t id);

// Bytes of a container's own fields before its first child.
uint64_t prefix_length(uint32_t type);

// Reads a number of `width` bytes, all of which must be there.
uint64_t big_endian(std::string_view bytes, uint64_t position, unsigned width);

// Pairs the tree of the freshly loaded `context` with the headers in the file's bytes. `label`
// names the file in messages.
std::unique_ptr<BoxTree> read_box_tree(kv_jpx_context* context, std::string_view bytes,
                                       const std::string& label);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_BOX_TREE_H_
