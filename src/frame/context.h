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
constexpr uint64_t kNoOffset = UINT64_MAX;

// What was wrong, and where; what the two numbers are depends on it (see report.cpp).
struct Trouble {
  uint32_t kind;  // kv_jpx_finding_kind; 0: not known
  uint32_t box_type;
  uint32_t box_id;  // kRoot: none
  uint64_t offset;  // in the input; kNoOffset: none
  uint64_t numbers[2];
};
constexpr Trouble kNoTrouble = {0, kRoot, kRoot, kNoOffset, {0, 0}};

constexpr size_t kReportSize = 200;

// What came of a decoding (kv_jpx_get_decode_report).
struct DecodeRecord {
  uint32_t codestreams;
  uint32_t delivered;
  uint32_t failed;
  int32_t codec_code;  // of the first that failed
  int32_t output_code;
  Trouble failed_at;
};
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
  kvjpx::BoxIndex* index;           // of the boxes under root; null without input
  kvjpx::Trouble at;                // where the call is that runs
  int32_t failed_with;              // code of the last call that failed
  kvjpx::Trouble failed_at;         // and where
  char report[kvjpx::kReportSize];  // the text handed out last
  int32_t keeps_everything;         // of inputs from now on
  uint64_t most_samples;            // of a composed image; 0: no bound
  uint32_t most_components;         // likewise
  kvjpx::DecodeRecord decoded;      // of the last decoding
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
