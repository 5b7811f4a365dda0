// The index from identifier to box (see index.h).
#include "box/index.h"

#include <string.h>

#include "kvjpx.h"

namespace kvjpx {
namespace {

constexpr uint32_t kAhead = 8;  // boxes that memory is asked for before they are looked at
constexpr uint32_t kSmallestTable = 16;

TypeNode& node_of(const BoxIndex& index, uint32_t id) {
  return index.node_chunks[id / kEntriesOfChunk][id % kEntriesOfChunk];
}

// Asks for the memory of a box and its block's header, which will be wanted soon: of large trees
// none of it is in the caches. Always inline, as compilers leave out calls of a function that does
// nothing but this.
__attribute__((always_inline)) inline void prefetch(const BoxIndex& index, uint32_t id) {
  if (id >= index.count) return;
  const Box* const box = entry_of(index, id).box;
  if (box == nullptr) return;
  const char* const header = reinterpret_cast<const char*>(box) - sizeof(BlockHeader);
  for (size_t i = 0; i < 4; ++i) __builtin_prefetch(header + 64 * i);
}

// Makes room for an entry with this identifier.
void provide_entry(Environment* env, BoxIndex* index, uint32_t id) {
  const uint32_t chunk = id / kEntriesOfChunk;
  if (chunk >= index->chunk_capacity) {
    const uint32_t capacity = chunk + chunk / 2 + 1;
    index->chunks =
        static_cast<BoxEntry**>(reallocate(env, index->chunks, size_t{capacity} * sizeof(void*)));
    index->chunk_capacity = capacity;
  }
  while (index->chunk_count <= chunk) {
    void* const fresh = allocate_zeroed(env, kEntriesOfChunk * sizeof(BoxEntry));
    index->chunks[index->chunk_count++] = static_cast<BoxEntry*>(fresh);
  }
  if (id >= index->count) index->count = id + 1;
}

// Makes room for the node of an entry. False when memory is short.
bool provide_node(Environment* env, BoxIndex* index, uint32_t id) {
  const uint32_t chunk = id / kEntriesOfChunk;
  if (chunk >= index->node_chunk_capacity) {
    // As many as there may be entries, so that it is not made anew for each.
    const uint32_t capacity = index->chunk_capacity;
    void* const fresh = try_allocate_zeroed(env, size_t{capacity} * sizeof(void*));
    if (fresh == nullptr) return false;
    if (index->node_chunk_count != 0) {
      memcpy(fresh, index->node_chunks, index->node_chunk_count * sizeof(void*));
    }
    release(env, index->node_chunks);
    index->node_chunks = static_cast<TypeNode**>(fresh);
    index->node_chunk_capacity = capacity;
  }
  while (index->node_chunk_count <= chunk) {
    void* const fresh = try_allocate_zeroed(env, kEntriesOfChunk * sizeof(TypeNode));
    if (fresh == nullptr) return false;
    index->node_chunks[index->node_chunk_count++] = static_cast<TypeNode*>(fresh);
  }
  return true;
}

// No two numbers become the same one, and no row of them with equal steps comes out in order.
uint32_t scrambled(uint32_t number) {
  number = (number ^ number >> 16) * 0x85EBCA6Bu;
  number = (number ^ number >> 13) * 0xC2B2AE35u;
  return number ^ number >> 16;
}

// The tree of a type, or the free place for it.
TypeTree* tree_of(const BoxIndex& index, uint32_t type) {
  const uint32_t mask = index.tree_capacity - 1;
  uint32_t place = scrambled(type) & mask;
  while (index.trees[place].is_used && index.trees[place].type != type) {
    place = (place + 1) & mask;
  }
  return index.trees + place;
}

// Keeps at least half of the table free. False when memory is short.
bool provide_tree(Environment* env, BoxIndex* index) {
  if (index->tree_count * 2 < index->tree_capacity) return true;
  const uint32_t old_capacity = index->tree_capacity;
  TypeTree* old = index->trees;
  const uint32_t capacity = old_capacity != 0 ? old_capacity * 2 : kSmallestTable;
  void* const fresh = try_allocate_zeroed(env, capacity * sizeof(TypeTree));
  if (fresh == nullptr) return false;
  index->trees = static_cast<TypeTree*>(fresh);
  index->tree_capacity = capacity;
  for (uint32_t i = 0; i < old_capacity; ++i) {
    if (old[i].is_used) *tree_of(*index, old[i].type) = old[i];
  }
  release(env, old);
  return true;
}

bool is_above(uint32_t id, uint32_t other) { return scrambled(id) > scrambled(other); }

// Enters a box, whose identifier is larger than all in the tree, so all that is below it is to its
// left. False when memory is short.
bool add_to_tree(Environment* env, BoxIndex* index, uint32_t id, uint32_t type) {
  if (!provide_node(env, index, id) || !provide_tree(env, index)) return false;
  TypeTree* const tree = tree_of(*index, type);
  if (!tree->is_used) {
    *tree = {type, kNoId, kNoId, 0, true};
    ++index->tree_count;
  }
  uint32_t* link = &tree->root;
  while (*link != kNoId && is_above(*link, id)) link = &node_of(*index, *link).right;
  node_of(*index, id) = {type, *link, kNoId, kNoId};
  *link = id;
  if (tree->count++ != 0) node_of(*index, tree->last).next = id;
  tree->last = id;
  return true;
}

// Takes an identifier from the list of its type, in which `before` is in front; kNoId: nothing.
void take_from_list(BoxIndex* index, TypeTree* tree, uint32_t before, uint32_t id) {
  TypeNode& node = node_of(*index, id);
  if (before != kNoId) node_of(*index, before).next = node.next;
  if (tree->last == id) tree->last = before;
  node.next = id;
  --tree->count;
}

void take_from_tree(BoxIndex* index, uint32_t id) {
  if (!index->has_trees || node_of(*index, id).next == id) return;
  const TypeNode& node = node_of(*index, id);
  TypeTree* const tree = tree_of(*index, node.type);
  uint32_t before = kNoId;
  uint32_t* link = &tree->root;
  while (*link != id) {
    TypeNode& above = node_of(*index, *link);
    if (id > *link) before = *link;
    link = id < *link ? &above.left : &above.right;
  }
  for (uint32_t below = node.left; below != kNoId; below = node_of(*index, below).right) {
    before = below;
  }
  uint32_t left = node.left;
  uint32_t right = node.right;
  while (left != kNoId && right != kNoId) {
    if (is_above(left, right)) {
      *link = left;
      link = &node_of(*index, left).right;
      left = *link;
    } else {
      *link = right;
      link = &node_of(*index, right).left;
      right = *link;
    }
  }
  *link = left != kNoId ? left : right;
  take_from_list(index, tree, before, id);
}

// What other code moved can't be told from what it left, so every container is to be looked into.
void enter_children(BoxIndex* index, const SuperBox* parent) {
  if (parent->id == kRoot || parent->id < index->count) {
    index_entry(index, parent->id)->flags |= kLookInside;
  }
  for (Box* box = parent->first_child; box != nullptr; box = box->next) {
    if (box->type == code("flst")) index->has_fragments = true;
    if (box->id >= index->count || entry_of(*index, box->id).box != nullptr) {
      index->has_strangers = true;
    } else {
      entry_of(*index, box->id).box = box;
    }
    if (box->kind == kSuper) enter_children(index, static_cast<SuperBox*>(box));
  }
}

// Builds the trees of the types, unless they are there. False when memory is short; the next search
// tries again.
bool provide_trees(Environment* env, BoxIndex* index) {
  if (index->has_trees) return true;
  if (index->tree_count != 0) {
    memset(index->trees, 0, index->tree_capacity * sizeof(TypeTree));
    index->tree_count = 0;
  }
  for (uint32_t id = 0; id < index->count; ++id) {
    const Box* const box = entry_of(*index, id).box;
    if (box == nullptr) {
      if (!provide_node(env, index, id)) return false;
      node_of(*index, id).next = id;
    } else if (!add_to_tree(env, index, id, box->type)) {
      return false;
    }
  }
  index->has_trees = true;
  return true;
}

// Enters what the tree holds now, if other code may have changed it.
void bring_up_to_date(BoxIndex* index) {
  const uint64_t changes = outside_changes();
  if (index->seen_changes == changes) return;
  for (uint32_t id = 0; id < index->count; ++id) entry_of(*index, id).box = nullptr;
  index->has_strangers = false;
  index->has_trees = false;
  enter_children(index, static_cast<SuperBox*>(index->root));
  index->seen_changes = changes;
  index->is_all_ours = false;
}

// The smallest identifier above `after` in a tree; kNoId for none.
uint32_t search_tree(const BoxIndex& index, uint32_t type, uint32_t after) {
  if (after < index.count) {
    const TypeNode& node = node_of(index, after);
    if (node.type == type && node.next != after) return node.next;
  }
  const TypeTree& tree = *tree_of(index, type);
  uint32_t found = kNoId;
  for (uint32_t id = tree.is_used ? tree.root : kNoId; id != kNoId;) {
    const TypeNode& node = node_of(index, id);
    if (id > after) found = id;
    id = id > after ? node.left : node.right;
  }
  return found;
}

// The end of the record itself is no change by other code either.
void forget_content(BoxIndex* index, Box* box) {
  if (box->kind == kSuper) {
    Box* child = static_cast<SuperBox*>(box)->first_child;
    for (; child != nullptr; child = child->next) index_forget(index, child);
  }
  mark_block(box, kPlain);
}

}  // namespace

BoxIndex* make_index(Environment* env, Trouble* at) {
  auto* index = static_cast<BoxIndex*>(allocate_zeroed(env, sizeof(BoxIndex)));
  index->at = at;
  index->is_all_ours = true;
  index->seen_changes = outside_changes();
  return index;
}

void destroy_index(Environment* env, BoxIndex*& index) {
  if (index == nullptr) return;
  for (uint32_t i = 0; i < index->chunk_count; ++i) release(env, index->chunks[i]);
  release(env, index->chunks);
  for (uint32_t i = 0; i < index->node_chunk_count; ++i) release(env, index->node_chunks[i]);
  release(env, index->node_chunks);
  release(env, index->trees);
  list_release(env, &index->findings);
  list_release(env, &index->marks);
  release(env, index);
}

BoxEntry* index_announce_apart(Environment* env, BoxIndex* index, uint32_t id) {
  if (id < index->count) {  // the numbers have come round
    index->has_strangers = true;
    index->has_trees = false;
  }
  provide_entry(env, index, id);
  return &entry_of(*index, id);
}

void index_enter_type(Environment* env, BoxIndex* index, uint32_t id, uint32_t type) {
  index->has_trees = add_to_tree(env, index, id, type);
}

// An identifier that is out of date is found out by the box that it leads to.
Box* index_last_child(BoxIndex* index, const SuperBox* parent) {
  const bool is_known = parent->id == kRoot || parent->id < index->count;
  if (is_known && !index->has_strangers) {
    const uint32_t id = index_entry(index, parent->id)->last_child;
    Box* const last = id < index->count ? entry_of(*index, id).box : nullptr;
    if (last != nullptr && last->parent == parent && last->next == nullptr) return last;
  }
  Box* last = parent->first_child;
  while (last != nullptr && last->next != nullptr) last = last->next;
  return last;
}

void index_note_last_child(BoxIndex* index, const SuperBox* parent, const Box* last) {
  if (parent->id != kRoot && parent->id >= index->count) return;
  index_entry(index, parent->id)->last_child = last != nullptr ? last->id : kNoId;
}

void index_forget(BoxIndex* index, Box* box) {
  forget_content(index, box);
  if (box->id >= index->count || entry_of(*index, box->id).box != box) return;
  take_from_tree(index, box->id);
  entry_of(*index, box->id).box = nullptr;
}

void index_replace(BoxIndex* index, Box* box, Box* by) {
  forget_content(index, box);
  if (box->id < index->count && entry_of(*index, box->id).box == box) {
    entry_of(*index, box->id).box = by;
  }
}

void index_end_boxes(Environment* env, BoxIndex* index) {
  if (index->has_strangers || index->seen_changes != outside_changes()) return;
  for (uint32_t id = index->count; id-- > 0;) {
    prefetch(*index, id - kAhead);
    Box* const box = entry_of(*index, id).box;
    if (box == nullptr) continue;
    if (box->kind == kSuper) static_cast<SuperBox*>(box)->first_child = nullptr;
    box->destroy(box, env);
    JPX_SafeFreeInternal(env, box);
  }
  static_cast<SuperBox*>(index->root)->first_child = nullptr;
}

void index_discard(Environment* env, BoxIndex* index, Box* box) {
  index_forget(index, box);
  // The identifiers of what was in it are given again; taken for strangers, they would make every
  // look-up a search.
  for (uint32_t id = box->id + 1; id < index->count; ++id) entry_of(*index, id) = {};
  index->count = box->id + 1;
  box->destroy(box, env);
  JPX_SafeFreeInternal(env, box);
}

void index_note_link(Environment* env, BoxIndex* index, const Box* box) {
  if (index->keeps_everything == 0 || box == nullptr || box->id >= index->count) return;
  BoxEntry& entry = entry_of(*index, box->id);
  if (entry.header_length == 0 || (entry.flags & kMarked) != 0) return;
  entry.flags |= kMarked;
  const Mark mark = {entry.offset, box->id};
  list_append(env, &index->marks, sizeof(mark), &mark);
}

void index_note_change(Environment* env, BoxIndex* index, const Box* box) {
  while (box != nullptr) {
    if (box->id == kRoot || box->id < index->count) {
      index_entry(index, box->id)->flags |= KV_JPX_BOX_CHANGED;
    }
    index_note_link(env, index, box);
    // What other code inserted may name a parent that is no more.
    box = index->is_all_ours || index->keeps_everything != 0 ? box->parent : nullptr;
  }
}

Box* index_find(Environment*, BoxIndex* index, uint32_t id) {
  bring_up_to_date(index);
  if (index->has_strangers) return index->root->find_by_id(index->root, id);
  if (id == kRoot) return index->root;
  prefetch(*index, id + kAhead);  // who asks for one mostly asks for those behind it next
  return id < index->count ? entry_of(*index, id).box : nullptr;
}

bool index_find_by_type(Environment* env, BoxIndex* index, uint32_t type, uint32_t after,
                        uint32_t* found) {
  bring_up_to_date(index);
  Box* const root = index->root;
  if (index->has_strangers || !provide_trees(env, index)) {
    const Box* const box = root->find_by_type(root, type, after);
    if (box != nullptr) *found = box->id;
    return box != nullptr;
  }
  const uint32_t id = index->tree_count != 0 ? search_tree(*index, type, after) : kNoId;
  if (id == kNoId && jpx_generic_find_by_type(root, type, after) == nullptr) return false;
  *found = id;
  return true;
}

uint32_t index_count(Environment* env, BoxIndex* index, uint32_t type) {
  bring_up_to_date(index);
  Box* const root = index->root;
  const bool is_known = !index->has_strangers && root->next == nullptr;
  if (!is_known || !provide_trees(env, index)) return jpx_count_boxes_of_type(root, type);
  const uint32_t count = index->tree_count != 0 ? tree_of(*index, type)->count : 0;
  return count + (root->type == type ? 1 : 0);
}

}  // namespace kvjpx
