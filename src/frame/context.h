// The context: the one handle that a caller holds, owner of the box tree, the input and the
// settings for decoding.
#ifndef KVJPX_FRAME_CONTEXT_H_
#define KVJPX_FRAME_CONTEXT_H_

#include "frame/memory.h"

namespace kvjpx {
struct Box;
struct Stream;
struct BoxIndex;
constexpr uint64_t kContextMagic = 0x6DE7FB61;
constexpr uint32_t kRoot = 0xFFFFFFFF;  // type and identifier of the root; also "no box"
}  // namespace kvjpx

struct kv_jpx_context {
  uint64_t magic;
  kvjpx::Environment environment;  // internal functions know the context by this address
  kvjpx::Box* root;
  uint32_t next_id;  // the identifier given last
  kvjpx::Stream* input;
  uint64_t region_left;
  uint64_t region_right;  // 0: up to the image's edge
  uint64_t region_top;
  uint64_t region_bottom;  // 0: up to the image's edge
  int32_t resolution_level;
  int32_t resolution_flag;
  int32_t quality_level;
  int32_t output_type;
  kvjpx::BoxIndex* index;  // of the boxes under root; null without input
};

static_assert(offsetof(kv_jpx_context, environment) == 8, "the environment follows the magic word");
static_assert(offsetof(kvjpx::Environment, jump) == 0,
              "the environment is known by its jump buffer");

namespace kvjpx {

using Context = kv_jpx_context;

// Drops the references into released memory that an error exit leaves behind.
inline void forget_input(Context& context) {
  context.root = nullptr;
  context.input = nullptr;
  context.index = nullptr;
}

}  // namespace kvjpx

#endif  // KVJPX_FRAME_CONTEXT_H_
