// The box registry: one row for every box type with a reader and a maker of its own. Parser,
// add-box and the public table of fields all read it.
#ifndef KVJPX_BOX_REGISTRY_H_
#define KVJPX_BOX_REGISTRY_H_

#include "box/box.h"

namespace kvjpx {

struct BoxLayout;

// Reads a box whose header has been read, up to the stream's read limit, and leaves the stream
// there. Null when the box may not stand in the parent.
using ReadFn = Box*(Environment*, uint32_t type, Stream*, Box* parent, uint32_t* counter);

// Makes an empty box; null when it may not stand in the parent.
using MakeFn = Box*(Environment*, uint32_t type, Box* parent, uint32_t id);

constexpr uint32_t kMaxParents = 4;

// What a reader does with a box that stands where its type may not.
enum class Misplaced {
  kTaken,    // read all the same
  kRefused,  // skipped; ends the parse of its container
  kOpaque,   // kept as an opaque box of its type, so that nothing is lost
};

struct BoxType {
  uint32_t code;
  Kind kind;
  ReadFn* read;
  MakeFn* make;
  const BoxLayout* layout;          // null: no fields, a plain container or opaque box
  const BoxOperations* operations;  // with the layout
  Misplaced misplaced;
  bool has_own_reader;            // else read_by_row serves
  uint32_t parents[kMaxParents];  // types of box that it may be made in; 0: none further
};

struct BoxTypes {
  const BoxType* rows;
  uint32_t count;
  const BoxType* begin() const { return rows; }
  const BoxType* end() const { return rows + count; }
};

BoxTypes all_box_types();

// Null for a code without a row.
const BoxType* find_box_type(uint32_t code);

// Whether boxes of this type may be made in the parent.
bool may_stand(uint32_t code, const Box* parent);
bool may_stand(const BoxType& row, const Box* parent);

// What the make and read functions of all rows do that have none of their own.
Box* make_by_row(const BoxType& row, Environment* env, uint32_t type, Box* parent, uint32_t id);
Box* read_by_row(const BoxType& row, Environment* env, uint32_t type, Stream* stream, Box* parent,
                 uint32_t* counter);

extern "C" {
// Boxes without a row are opaque; they may stand anywhere, even without a parent.
KVJPX_EXPORT MakeFn jpx_make_unknown_box;
KVJPX_EXPORT ReadFn jpx_read_unknown_box;
}

}  // namespace kvjpx

#endif  // KVJPX_BOX_REGISTRY_H_
