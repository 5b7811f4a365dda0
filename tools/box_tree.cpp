// Asks the library for its tree.
#include "box_tree.h"

#include <algorithm>

namespace kvjpx_tool {
namespace {

void number_siblings(Box& container) {
  std::vector<Box*> sorted;
  for (const auto& child : container.children) sorted.push_back(child.get());
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Box* a, const Box* b) { return a->type < b->type; });
  for (auto first = sorted.begin(); first != sorted.end();) {
    const uint32_t type = (*first)->type;
    const auto last =
        std::find_if(first, sorted.end(), [&](const Box* box) { return box->type != type; });
    for (auto box = first; box != last; ++box) {
      (*box)->index = static_cast<uint32_t>(box - first);
      (*box)->same_type_count = static_cast<uint32_t>(last - first);
    }
    first = last;
  }
  container.children_by_type.assign(sorted.begin(), sorted.end());
}

void read_box(kv_jpx_context* context, Box& box, BoxTree& tree) {
  uint8_t is_container = 0;
  kv_jpx_get_box_type_by_id(context, box.id, &box.type);
  kv_jpx_is_box_super(context, box.id, &is_container);
  box.is_container = is_container != 0;

  kv_jpx_box_extent extent = {};
  extent.size = sizeof extent;
  kv_jpx_get_box_extent(context, box.id, &extent);
  box.flags = extent.flags;
  box.begin = extent.offset;
  box.content_begin = box.begin + extent.header_length;
  box.end = box.content_begin + extent.content_length;
  box.tail_length = extent.tail_length;

  uint32_t id = KV_JPX_ROOT;
  int32_t code = kv_jpx_get_first_child_box_id(context, box.id, &id);
  while (code == JPX_OK && id != KV_JPX_ROOT) {
    auto child = std::make_unique<Box>();
    child->id = id;
    child->parent = &box;
    if (id >= tree.boxes_by_id.size()) tree.boxes_by_id.resize(id + 1);
    tree.boxes_by_id[id] = child.get();
    read_box(context, *child, tree);
    box.children.push_back(std::move(child));
    code = kv_jpx_get_next_box_id(context, id, &id);
  }
  number_siblings(box);
}

}  // namespace

const Box* Box::find_child(uint32_t child_type, uint64_t child_index) const {
  const auto first =
      std::lower_bound(children_by_type.begin(), children_by_type.end(), child_type,
                       [](const Box* box, uint32_t wanted) { return box->type < wanted; });
  if (first == children_by_type.end() || (*first)->type != child_type) return nullptr;
  return child_index < (*first)->same_type_count ? first[static_cast<ptrdiff_t>(child_index)]
                                                 : nullptr;
}

void for_each_box(const Box& box, const std::function<void(const Box&)>& visit) {
  for (const auto& child : box.children) {
    visit(*child);
    for_each_box(*child, visit);
  }
}

std::unique_ptr<BoxTree> read_box_tree(kv_jpx_context* context) {
  auto tree = std::make_unique<BoxTree>();
  read_box(context, tree->root, *tree);
  return tree;
}

}  // namespace kvjpx_tool
