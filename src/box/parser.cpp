// The parser: reads box headers one after another inside a read limit and hands each box to the
// reader of its type (ISO/IEC 15444-1, I.4).
#include "box/index.h"
#include "box/registry.h"
#include "box/super.h"

namespace kvjpx {
namespace {

struct Header {
  uint32_t type;
  uint64_t end;  // absolute position behind the content
};

constexpr uint64_t kHeaderSize = 8;
constexpr uint64_t kXLBoxSize = 8;

void require_bytes(Environment* env, Stream* stream, uint64_t count) {
  if (bytes_left(env, stream) < count) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
}

// The length that follows from LBox or XLBox, without the header. A length smaller than its own
// header means empty content, so that every header takes the parse forward.
uint64_t content_length(uint64_t total, uint64_t header) {
  return total > header ? total - header : 0;
}

// Raises 18 when the header or the box that it announces reaches past the end of the container.
Header read_header(Environment* env, Stream* stream) {
  require_bytes(env, stream, kHeaderSize);
  const uint64_t lbox = bs_read_4_byte_big(env, stream);
  const auto type = static_cast<uint32_t>(bs_read_4_byte_big(env, stream));
  uint64_t length;
  if (lbox == 0) {
    length = bs_get_file_size(env, stream) - bs_get_current_position(env, stream);
  } else if (lbox == 1) {
    require_bytes(env, stream, kXLBoxSize);
    length = content_length(bs_read_8_byte_big(env, stream), kHeaderSize + kXLBoxSize);
  } else {
    length = content_length(lbox, kHeaderSize);
  }
  require_bytes(env, stream, length);
  return {type, bs_get_current_position(env, stream) + length};
}

Box* read_content(Environment* env, const Header& header, Stream* stream, Box* parent,
                  uint32_t* counter) {
  bs_push_read_limit(env, stream, header.end);
  const BoxType* const known = find_box_type(header.type);
  ReadFn* const read = known != nullptr ? known->read : jpx_read_unknown_box;
  Box* const box = read(env, header.type, stream, parent, counter);
  bs_pop_read_limit(env, stream);
  return box;
}

}  // namespace

extern "C" Box* jpx_read_super_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                                   uint32_t* counter) {
  if (type != kRoot && container_depth(parent) > kMaxDepth) {
    JPX_ErrorExit(env, JPX_ERR_INVALID_ARGUMENT);
  }
  auto* box = static_cast<SuperBox*>(jpx_make_super_box(env, type, parent, *counter));
  Box* last = nullptr;
  while (bs_at_limit(env, stream) == 0) {
    const Header header = read_header(env, stream);
    const uint32_t id = ++*counter;
    if (stream->index != nullptr) index_announce(env, stream->index, id, header.type);
    Box* const child = read_content(env, header, stream, box, counter);
    if (stream->index != nullptr) index_settle(stream->index, id, child);
    // A box that may not stand here ends the parse of its container, which keeps what it has; the
    // parent's parse goes on behind the refused box.
    if (child == nullptr) break;
    child->next = nullptr;
    child->previous = last;
    (last != nullptr ? last->next : box->first_child) = child;
    last = child;
  }
  return box;
}

}  // namespace kvjpx
