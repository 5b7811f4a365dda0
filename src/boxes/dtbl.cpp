// dtbl, the data reference box (ISO/IEC 15444-2, M.11).
//
//   2 NDR, then url boxes
//
// Kept for compatibility: NDR is not kept. A box that was made writes the number of its children,
// and one that is read becomes a plain super box, which is written without NDR. Read like it is
// made, a file's NDR would be written.
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("dtbl");
constexpr uint64_t kFixedSize = 2;

uint64_t child_count(const Box* box) {
  uint64_t count = 0;
  const Box* child = static_cast<const SuperBox*>(box)->first_child;
  for (; child != nullptr; child = child->next) ++count;
  return count;
}

uint64_t jpx_dtbl_length(Box* box) {
  return box->type == kType ? kFixedSize + jpx_super_length(box) : 0;
}

void jpx_dtbl_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  bs_write_2_byte_big(env, stream, child_count(box));
  jpx_super_render(box, env, stream);
}

// NDR where everything is kept: read to be judged, and written as the number of the children.
struct DtblBox : SuperBox {
  uint32_t announced;
};

uint64_t load_count(const void* record) { return child_count(static_cast<const Box*>(record)); }
void store_announced(void* record, uint64_t value) {
  static_cast<DtblBox*>(record)->announced = static_cast<uint32_t>(value);
}
constexpr Field kFields[] = {
    single(0, "NDR", kFixedSize, {load_count, store_announced}),
};

void judge_count(Environment*, Stream* stream, Box* box) {
  if (static_cast<DtblBox*>(box)->announced != child_count(box)) stream->content_is_bad = 1;
}

}  // namespace

constexpr BoxOperations kDtblOperations =
    container_operations(jpx_dtbl_length, jpx_dtbl_render, jpx_super_print);
constexpr BoxLayout kDtbl =
    box_layout<DtblBox, kFields>(kType, jpx_super_print, {nullptr, nullptr, judge_count});

extern "C" {

Box* jpx_make_dtbl_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_record(env, sizeof(SuperBox), kSuper, type, parent, id, kDtblOperations);
}

Box* jpx_read_dtbl_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  bs_read_2_byte_big(env, stream);
  return jpx_read_super_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
