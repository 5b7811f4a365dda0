// The index from identifier to box (see index.h).
#include "box/index.h"

#include <string.h>

#include "kvjpx.h"

namespace kvjpx {
namespace {

constexpr uint32_t kChunk = 128;  // entries
constexpr uint32_t kSmallestTable = 16;

BoxEntry& entry_of(const BoxIndex& index, uint32_t id) {
  return index.chunks[id / kChunk][id % kChunk];
}

// Makes room for an entry with this identifier.
void provide_entry(Environment* env, BoxIndex* index, uint32_t id) {
  const uint32_t chunk = id / kChunk;
  if (chunk >= index->chunk_capacity) {
    const uint32_t capacity = chunk + chunk / 2 + 1;
    index->chunks = static_cast<BoxEntry**>(
        reallocate(env, index->chunks, size_t{capacity} * sizeof(BoxEntry*)));
    index->chunk_capacity = capacity;
  }
  while (index->chunk_count <= chunk) {
    void* const fresh = allocate_zeroed(env, kChunk * sizeof(BoxEntry));
    index->chunks[index->chunk_count++] = static_cast<BoxEntry*>(fresh);
  }
  if (id >= index->count) index->count = id + 1;
}

// The chain of a type, or the free place for it.
TypeChain* chain_of(const BoxIndex& index, uint32_t type) {
  const uint32_t mask = index.chain_capacity - 1;
  uint32_t place = type * 0x9E3779B1u >> 7 & mask;
  while (index.chains[place].is_used && index.chains[place].type != type) {
    place = (place + 1) & mask;
  }
  return index.chains + place;
}

// Keeps at least half of the table free. False when memory is short.
bool provide_chain(Environment* env, BoxIndex* index) {
  if (index->chain_count * 2 < index->chain_capacity) return true;
  const uint32_t old_capacity = index->chain_capacity;
  TypeChain* old = index->chains;
  const uint32_t capacity = old_capacity != 0 ? old_capacity * 2 : kSmallestTable;
  void* const fresh = try_allocate_zeroed(env, capacity * sizeof(TypeChain));
  if (fresh == nullptr) return false;
  index->chains = static_cast<TypeChain*>(fresh);
  index->chain_capacity = capacity;
  for (uint32_t i = 0; i < old_capacity; ++i) {
    if (old[i].is_used) *chain_of(*index, old[i].type) = old[i];
  }
  release(env, old);
  return true;
}

// False when memory is short.
bool append_to_chain(Environment* env, BoxIndex* index, uint32_t id) {
  if (!provide_chain(env, index)) return false;
  BoxEntry& entry = entry_of(*index, id);
  TypeChain* const chain = chain_of(*index, entry.type);
  if (!chain->is_used) {
    *chain = {entry.type, kNoId, kNoId, kNoId, true};
    ++index->chain_count;
  }
  entry.previous_of_type = chain->last;
  entry.next_of_type = kNoId;
  if (chain->last != kNoId) {
    entry_of(*index, chain->last).next_of_type = id;
  } else {
    chain->first = chain->answered = id;
  }
  chain->last = id;
  return true;
}

void take_out_of_chain(BoxIndex* index, uint32_t id) {
  const BoxEntry& entry = entry_of(*index, id);
  TypeChain* const chain = chain_of(*index, entry.type);
  const uint32_t next = entry.next_of_type;
  const uint32_t previous = entry.previous_of_type;
  (previous != kNoId ? entry_of(*index, previous).next_of_type : chain->first) = next;
  (next != kNoId ? entry_of(*index, next).previous_of_type : chain->last) = previous;
  if (chain->answered == id) chain->answered = next != kNoId ? next : previous;
}

// Also finds the last child of every container anew.
void enter_children(BoxIndex* index, SuperBox* parent) {
  parent->last_child = nullptr;
  for (Box* box = parent->first_child; box != nullptr; box = box->next) {
    parent->last_child = box;
    if (box->id >= index->count || entry_of(*index, box->id).box != nullptr) {
      index->has_strangers = true;
    } else {
      entry_of(*index, box->id).box = box;
    }
    if (box->kind == kSuper) enter_children(index, static_cast<SuperBox*>(box));
  }
}

// Chains the boxes anew. False when memory is short.
bool chain_all(Environment* env, BoxIndex* index) {
  if (index->chain_count != 0) {
    memset(index->chains, 0, index->chain_capacity * sizeof(TypeChain));
    index->chain_count = 0;
  }
  for (uint32_t id = 0; id < index->count; ++id) {
    BoxEntry& entry = entry_of(*index, id);
    if (entry.box == nullptr) continue;
    entry.type = entry.box->type;
    if (!append_to_chain(env, index, id)) return false;
  }
  return true;
}

// Enters what the tree holds now, if other code may have changed it. Whether searches must do
// without the index is in has_strangers then.
void bring_up_to_date(Environment* env, BoxIndex* index) {
  const uint64_t changes = outside_changes();
  if (index->seen_changes == changes) return;
  for (uint32_t id = 0; id < index->count; ++id) entry_of(*index, id).box = nullptr;
  index->has_strangers = false;
  enter_children(index, static_cast<SuperBox*>(index->root));
  if (!chain_all(env, index)) {
    index->has_strangers = true;
    return;  // tried again next time
  }
  index->seen_changes = changes;
}

// The box with the smallest identifier above `after` in a chain. Callers ask on from the answer
// before, so this takes a step or two.
Box* search_chain(const BoxIndex& index, TypeChain* chain, uint32_t after) {
  uint32_t id = chain->answered;
  if (id == kNoId) return nullptr;
  while (id <= after) {
    chain->answered = id;
    id = entry_of(index, id).next_of_type;
    if (id == kNoId) return nullptr;
  }
  for (uint32_t previous;
       previous = entry_of(index, id).previous_of_type, previous != kNoId && previous > after;) {
    id = previous;
  }
  chain->answered = id;
  return entry_of(index, id).box;
}

}  // namespace

BoxIndex* make_index(Environment* env, Trouble* at) {
  auto* index = static_cast<BoxIndex*>(allocate_zeroed(env, sizeof(BoxIndex)));
  index->at = at;
  index->seen_changes = outside_changes();
  return index;
}

void destroy_index(Environment* env, BoxIndex*& index) {
  if (index == nullptr) return;
  for (uint32_t i = 0; i < index->chunk_count; ++i) release(env, index->chunks[i]);
  release(env, index->chunks);
  release(env, index->chains);
  list_release(env, &index->findings);
  release(env, index);
}

BoxEntry* index_entry(BoxIndex* index, uint32_t id) {
  return id == kRoot ? &index->root_entry : &entry_of(*index, id);
}

BoxEntry* index_announce(Environment* env, BoxIndex* index, uint32_t id, uint32_t type) {
  provide_entry(env, index, id);
  BoxEntry& entry = entry_of(*index, id);
  // Identifiers that have come round to a box that is still there.
  if (entry.box != nullptr) index->has_strangers = true;
  entry.type = type;
  if (!append_to_chain(env, index, id)) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  return &entry;
}

void index_settle(BoxIndex* index, uint32_t id, Box* box) {
  if (box == nullptr) take_out_of_chain(index, id);
  entry_of(*index, id).box = box;
}

void index_forget(BoxIndex* index, Box* box) {
  if (box->kind == kSuper) {
    Box* child = static_cast<SuperBox*>(box)->first_child;
    for (; child != nullptr; child = child->next) index_forget(index, child);
  }
  mark_block(box, kPlain);
  if (box->id >= index->count || entry_of(*index, box->id).box != box) return;
  take_out_of_chain(index, box->id);
  entry_of(*index, box->id).box = nullptr;
}

void index_discard(Environment* env, BoxIndex* index, Box* box) {
  index_forget(index, box);
  box->destroy(box, env);
  JPX_SafeFreeInternal(env, box);
}

void index_note_change(BoxIndex* index, const Box* box) {
  for (; box != nullptr; box = box->parent) {
    if (box->id == kRoot || box->id < index->count) {
      index_entry(index, box->id)->flags |= KV_JPX_BOX_CHANGED;
    }
  }
}

Box* index_find(Environment* env, BoxIndex* index, uint32_t id) {
  bring_up_to_date(env, index);
  if (index->has_strangers) return index->root->find_by_id(index->root, id);
  if (id == kRoot) return index->root;
  return id < index->count ? entry_of(*index, id).box : nullptr;
}

Box* index_find_by_type(Environment* env, BoxIndex* index, uint32_t type, uint32_t after) {
  bring_up_to_date(env, index);
  Box* const root = index->root;
  if (index->has_strangers) return root->find_by_type(root, type, after);
  Box* const found =
      index->chain_count != 0 ? search_chain(*index, chain_of(*index, type), after) : nullptr;
  return found != nullptr ? found : jpx_generic_find_by_type(root, type, after);
}

}  // namespace kvjpx
