// The index from identifier to box, through which the public functions find boxes.
//
// Identifiers are dense, so it is an array. The parser and the public functions that add and delete
// boxes keep it right. What other code does to the tree through the exported internal functions it
// learns from outside_changes, and then builds itself anew from the tree.
#ifndef KVJPX_BOX_INDEX_H_
#define KVJPX_BOX_INDEX_H_

#include "box/entry_list.h"
#include "box/super.h"

namespace kvjpx {

constexpr uint32_t kNoId = kRoot;

// Behind the bits of kv_jpx_box_flags: other code may have changed what is in the container; the
// box has a mark.
constexpr uint16_t kLookInside = 0x8000;
constexpr uint16_t kMarked = 0x4000;
constexpr uint16_t kPublicFlags = 0x3FFF;

struct BoxEntry {
  Box* box;  // null: no box of the tree has this identifier
  // Where the box stands in the input: its header, and how long its content is. The tail is the
  // content's end, in which a container has no boxes.
  uint64_t offset;
  uint64_t content_length;
  uint64_t tail_length;
  uint32_t last_child;     // of a container, as far as known; see index_last_child
  uint16_t flags;          // bits of kv_jpx_box_flags, and those above
  uint16_t header_length;  // 0: the box is not from the input
};

// The boxes of one type as a search tree by identifier. What is above what follows from a scrambled
// identifier (a treap), so the tree is flat whatever is added, deleted and searched in which order.
// They are also a list, for those who go from one to the next.
struct TypeTree {
  uint32_t type;
  uint32_t root;   // kNoId: the tree is empty
  uint32_t last;   // the largest identifier
  uint32_t count;  // of boxes
  bool is_used;    // else a free place of the table
};
struct TypeNode {
  uint32_t type;
  uint32_t left;  // kNoId: nothing
  uint32_t right;
  uint32_t next;  // of the type; kNoId: none; the identifier itself: it is in no tree
};

// A box of an input of which everything is kept that has changed, or that has another box behind it
// than in the input. Between marks the boxes stand as they stood, so that nobody need look at them.
struct Mark {
  uint64_t offset;  // of the box in the input
  uint32_t id;
};

struct BoxIndex {
  Box* root;
  BoxEntry root_entry;
  Trouble* at;                  // the context's: where the parser is
  EntryList findings;           // of Trouble
  uint64_t findings_of_reader;  // the first so many; the writer's are behind
  uint8_t keeps_everything;
  bool has_fragments;  // or once had: an flst box
  EntryList marks;     // of Mark, in the order in which they were made
  BoxEntry** chunks;
  uint32_t chunk_capacity;
  uint32_t chunk_count;
  uint32_t count;  // identifiers below have an entry
  // What searches by type need is made by the first of them.
  bool has_trees;
  TypeNode** node_chunks;
  uint32_t node_chunk_capacity;
  uint32_t node_chunk_count;
  TypeTree* trees;  // a hash table
  uint32_t tree_capacity;
  uint32_t tree_count;
  uint64_t seen_changes;  // by other code, when the entries were last right
  bool is_all_ours;       // no other code has changed the tree so far
  bool has_strangers;  // identifiers that are not the index's own, or given twice: search instead
};

BoxIndex* make_index(Environment* env, Trouble* at);
void destroy_index(Environment* env, BoxIndex*& index);

constexpr uint32_t kEntriesOfChunk = 128;

// Of an identifier that was announced.
inline BoxEntry& entry_of(const BoxIndex& index, uint32_t id) {
  return index.chunks[id / kEntriesOfChunk][id % kEntriesOfChunk];
}

// The same, or the root's.
inline BoxEntry* index_entry(BoxIndex* index, uint32_t id) {
  return id == kRoot ? &index->root_entry : &entry_of(*index, id);
}

// Enters a box in two steps, as its content has boxes, too: its identifier, which is larger than
// all before, then the record, null if there will be none. What few boxes need is not inline.
BoxEntry* index_announce_apart(Environment* env, BoxIndex* index, uint32_t id);
inline BoxEntry* index_announce(Environment* env, BoxIndex* index, uint32_t id) {
  if (id < index->count || id / kEntriesOfChunk >= index->chunk_count) {
    return index_announce_apart(env, index, id);
  }
  index->count = id + 1;
  return &entry_of(*index, id);
}
void index_enter_type(Environment* env, BoxIndex* index, uint32_t id, uint32_t type);
inline void index_settle(Environment* env, BoxIndex* index, uint32_t id, Box* box) {
  entry_of(*index, id).box = box;
  if (box != nullptr && box->type == code("flst")) index->has_fragments = true;
  if (box != nullptr && index->has_trees) index_enter_type(env, index, id, box->type);
}

// The last child of a container; null for none. Boxes that other code made may have no room for
// such a pointer, so the index has it.
Box* index_last_child(BoxIndex* index, const SuperBox* parent);
void index_note_last_child(BoxIndex* index, const SuperBox* parent, const Box* last);

// Forgets a box and all below it, before they are destroyed.
void index_forget(BoxIndex* index, Box* box);

// Puts a record in the place of another that has the same identifier and type, and forgets that one
// and all below it, before they are destroyed.
void index_replace(BoxIndex* index, Box* box, Box* by);

// Destroys all boxes below the root, the newest first, if no other code has changed the tree. So
// the allocator gets back first what lies last in its memory, and with glibc's the few blocks that
// it holds ready keep it from handing all of its memory to the system, only to ask for it again for
// the next input.
void index_end_boxes(Environment* env, BoxIndex* index);

// Destroys a box that was read but not settled.
void index_discard(Environment* env, BoxIndex* index, Box* box);

// Notes that a box and so the containers above are no longer as they were read.
void index_note_change(Environment* env, BoxIndex* index, const Box* box);

// Notes that the box, which may be null, gets another one behind it.
void index_note_link(Environment* env, BoxIndex* index, const Box* box);

// What a search through the tree would find; null or false for nothing. No search fails for memory.
Box* index_find(Environment* env, BoxIndex* index, uint32_t id);
bool index_find_by_type(Environment* env, BoxIndex* index, uint32_t type, uint32_t after,
                        uint32_t* found);

// What jpx_count_boxes_of_type counts from the root on.
uint32_t index_count(Environment* env, BoxIndex* index, uint32_t type);

}  // namespace kvjpx

#endif  // KVJPX_BOX_INDEX_H_
