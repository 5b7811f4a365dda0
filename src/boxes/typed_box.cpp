// The common shape of a read function (see typed_box.h).
#include "boxes/typed_box.h"

#include "box/basic.h"

namespace kvjpx {

Box* read_parsed(Environment* env, uint32_t type, Stream* stream, Box* parent, uint32_t* counter,
                 MakeFn* make, ReadPayloadFn* read_payload, Misplaced misplaced) {
  Box* const box = make(env, type, parent, *counter);
  if (box == nullptr && misplaced == Misplaced::kOpaque) {
    return jpx_read_basic_box(env, type, stream, parent, counter);
  }
  if (box != nullptr) read_payload(env, stream, box);
  skip_content(env, stream);
  return box;
}

}  // namespace kvjpx
