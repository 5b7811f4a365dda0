// Box types as ISO/IEC 15444-1 and -2 have them, for inputs of which everything is kept: where a
// box belongs, and a second set of readers and operations for the types whose ordinary ones
// deviate.
#ifndef KVJPX_BOX_STANDARD_H_
#define KVJPX_BOX_STANDARD_H_

#include "box/index.h"
#include "box/typed_box.h"

namespace kvjpx {

// Whether the standard puts a box of this type into such a container. Types that it does not know
// belong everywhere.
bool belongs(uint32_t type, const Box* parent);

// Makes an empty box, wherever it is to stand. Never null.
Box* make_standard_box(Environment* env, uint32_t type, Box* parent, uint32_t id);

// Reads a box wherever it stands. Never null; stream->content_is_bad tells whether the content was
// not what the type asks for, and stream->unread how much of it was not taken.
Box* read_standard_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter);

// Whether the input has this value in a field of the box, which may be one that no set takes.
bool stood_there(Environment* env, BoxIndex* index, Stream* input, Box* box, uint32_t key,
                 uint64_t index_of_entry, uint64_t value);

// The layout that a box's operations come from; null for one without fields.
const BoxLayout* layout_of(const Box* box);

// The layout of a type; null for plain containers and opaque boxes. That of a container describes
// what stands in front of its boxes.
const BoxLayout* standard_layout(uint32_t type);

}  // namespace kvjpx

#endif  // KVJPX_BOX_STANDARD_H_
