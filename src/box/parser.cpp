// The parser: reads box headers one after another inside a read limit and hands each box to the
// reader of its type (ISO/IEC 15444-1, I.4).
//
// A header or box that does not fit raises 18. Where everything is kept, what can't be read as a
// box is the tail of its container instead, and what its type's reader can't take is an opaque box.
#include "box/basic.h"
#include "box/findings.h"
#include "box/index.h"
#include "box/registry.h"
#include "box/standard.h"

namespace kvjpx {
namespace {

constexpr uint64_t kHeaderSize = 8;
constexpr uint64_t kXLBoxSize = 8;

struct Header {
  uint32_t type;
  uint16_t length;
  uint16_t flags;  // bits of kv_jpx_box_flags
  uint64_t offset;
  uint64_t end;  // absolute position behind the content
};

// Garbage can look like a header. A box without a length is believed when its type is one that
// people write, and one that is cut short when its type is known.
bool is_plausible(uint32_t type) {
  for (uint32_t rest = type; rest != 0; rest >>= 8) {
    if ((rest & 0xFF) < ' ' || (rest & 0xFF) > '~') return false;
  }
  return type >> 24 != 0;
}

// The length that follows from LBox or XLBox, without the header. A length smaller than its own
// header means empty content, so that every header takes the parse forward.
uint64_t content_length(uint64_t total, uint64_t header) {
  return total > header ? total - header : 0;
}

// Reads a header as far as there is one. False for one that is wrong, and what is wrong with it; a
// box that is cut short by the end of its container ends there.
bool read_header(Environment* env, Stream* stream, Header* header, Trouble* trouble) {
  const bool keeps = stream->keeps_everything != 0;
  const uint64_t begin = position_of(stream);
  const uint64_t left = bytes_left(stream);
  const auto is_wrong = [&](uint32_t kind, uint64_t announced, uint64_t found) {
    *trouble = {kind, header->type, kRoot, begin, {announced, found}};
    return false;
  };
  *header = {kRoot, 0, 0, begin, 0};
  if (left < kHeaderSize) return is_wrong(KV_JPX_FINDING_TRAILING, kHeaderSize, left);
  uint64_t lbox;
  if (has_in_view(stream, kHeaderSize)) {
    const uint64_t both = number_at(stream->cursor, kHeaderSize);
    stream->cursor += kHeaderSize;
    lbox = both >> 32;
    header->type = static_cast<uint32_t>(both);
  } else {
    lbox = read_number(env, stream, 4);
    header->type = static_cast<uint32_t>(read_number(env, stream, 4));
  }
  header->length = kHeaderSize;
  uint64_t total = lbox;
  if (lbox == 1) {
    header->length += kXLBoxSize;
    header->flags = KV_JPX_BOX_LONG_HEADER;
    if (left < header->length) return is_wrong(KV_JPX_FINDING_TRAILING, header->length, left);
    total = read_number(env, stream, 8);
  }
  const uint64_t content = position_of(stream);
  const uint64_t room = left - header->length;
  uint64_t length = content_length(total, header->length);
  if (lbox == 0) {
    header->flags = KV_JPX_BOX_OPEN_ENDED;
    length = stream->size - content;
  } else if (keeps && total < header->length) {
    return is_wrong(KV_JPX_FINDING_BAD_LENGTH, total, left);
  }
  header->end = content + (length < room ? length : room);
  if (keeps && lbox == 0 && !is_plausible(header->type)) {
    return is_wrong(KV_JPX_FINDING_TRAILING, kHeaderSize, left);
  }
  if (length <= room) return true;
  if (keeps && find_box_type(header->type) == nullptr) {
    return is_wrong(KV_JPX_FINDING_TRAILING, 0, left);
  }
  header->flags |= KV_JPX_BOX_CUT_SHORT;
  return is_wrong(KV_JPX_FINDING_CUT_SHORT, length, room);
}

// The readers of rows and containers are inline here, so that a level of nesting is one call.
inline Box* read_super(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  if (type != kRoot && depth_of_child(stream, parent) > kMaxDepth) {
    if (stream->index != nullptr) stream->index->at->kind = KV_JPX_FINDING_TOO_DEEP;
    JPX_ErrorExit(env, JPX_ERR_INVALID_ARGUMENT);
  }
  auto* box = static_cast<SuperBox*>(jpx_make_super_box(env, type, parent, *counter));
  read_children(env, stream, box, counter);
  return box;
}

inline Box* read_row(const BoxType& row, Environment* env, uint32_t type, Stream* stream,
                     Box* parent, uint32_t* counter) {
  if (row.kind == kSuper) return read_super(env, type, stream, parent, counter);
  if (row.layout == nullptr || (row.misplaced == Misplaced::kOpaque && !may_stand(row, parent)))
    return jpx_read_basic_box(env, type, stream, parent, counter);
  Box* const box = make_by_row(row, env, type, parent, *counter);
  if (box != nullptr) read_typed(env, stream, *row.layout, box);
  skip_content(env, stream);
  return box;
}

inline Box* read_content(Environment* env, const Header& header, Stream* stream, Box* parent,
                         uint32_t* counter) {
  const BoxType* const known = find_box_type(header.type);
  if (known == nullptr) return jpx_read_basic_box(env, header.type, stream, parent, counter);
  if (known->has_own_reader) return known->read(env, header.type, stream, parent, counter);
  return read_row(*known, env, header.type, stream, parent, counter);
}

// A box whose content its type's reader can't take becomes an opaque one.
Box* read_kept(Environment* env, const Header& header, Stream* stream, Box* parent,
               uint32_t* counter) {
  const uint32_t id = *counter;
  BoxIndex* const index = stream->index;
  Trouble trouble = {0, header.type, id, header.offset, {0, 0}};
  const auto report = [&](uint32_t kind) {
    trouble.kind = kind;
    add_finding(env, index, trouble);
  };
  if (!belongs(header.type, parent)) report(KV_JPX_FINDING_MISPLACED);
  const uint64_t begin = position_of(stream);
  const uint64_t findings = index->findings.count;
  const BoxType* const known = find_box_type(header.type);
  const bool is_container = known != nullptr && known->kind == kSuper;
  const bool is_too_deep = is_container && depth_of_child(stream, parent) > kMaxDepth;
  stream->content_is_bad = 0;
  stream->unread = 0;
  Box* box = nullptr;
  if (!is_too_deep) box = read_standard_box(env, header.type, stream, parent, counter);
  if (box != nullptr && stream->content_is_bad == 0) {
    if (stream->unread == 0 || box->kind == kSuper) return box;
    index_entry(index, id)->tail_length = stream->unread;
    trouble.offset = header.end - stream->unread;
    trouble.numbers[0] = stream->unread;
    report(KV_JPX_FINDING_UNREAD);
    return box;
  }
  // What was found inside goes with the boxes that were there.
  if (box != nullptr) index_discard(env, index, box);
  list_resize(env, &index->findings, sizeof(Trouble), findings);
  *counter = id;
  bs_set_current_position(env, stream, begin);
  index_entry(index, id)->flags |= KV_JPX_BOX_MALFORMED;
  index_entry(index, id)->tail_length = 0;
  report(is_too_deep ? KV_JPX_FINDING_TOO_DEEP : KV_JPX_FINDING_MALFORMED);
  return jpx_read_basic_box(env, header.type, stream, parent, counter);
}

// Reads the box behind a header, and notes where it stands. Null for one that may not stand here.
inline Box* read_box(Environment* env, const Header& header, Stream* stream, Box* parent,
                     uint32_t* counter) {
  const uint32_t id = ++*counter;
  BoxIndex* const index = stream->index;
  if (index != nullptr) {
    BoxEntry* const entry = index_announce(env, index, id);
    entry->flags = header.flags;
    entry->header_length = header.length;
    entry->offset = header.offset;
    entry->content_length = header.end - header.offset - header.length;
    *index->at = {0, header.type, id, header.offset, {}};
  }
  // The limit lies in this frame, which costs no block; an error exit ends the stream as well.
  ReadLimit limit = {header.end, stream->limits};
  stream->limits = &limit;
  const bool keeps = index != nullptr && stream->keeps_everything != 0;
  Box* const box = keeps ? read_kept(env, header, stream, parent, counter)
                         : read_content(env, header, stream, parent, counter);
  stream->limits = limit.next;
  if (index != nullptr) index_settle(env, index, id, box);
  return box;
}

}  // namespace

void read_children(Environment* env, Stream* stream, SuperBox* box, uint32_t* counter) {
  BoxIndex* const index = stream->index;
  const Box* const outer = stream->container;
  const uint32_t outer_depth = stream->container_depth;
  stream->container_depth = box->type == kRoot ? 0 : depth_of_child(stream, box->parent);
  stream->container = box;
  uint64_t end_of_boxes = position_of(stream);
  Box* last = nullptr;
  while (position_of(stream) != limit_of(stream)) {
    Header header;
    Trouble trouble;
    if (!read_header(env, stream, &header, &trouble)) {
      const bool is_box = trouble.kind == KV_JPX_FINDING_CUT_SHORT;
      trouble.box_id = is_box ? *counter + 1 : box->id;
      if (index != nullptr) *index->at = trouble;
      if (stream->keeps_everything == 0) JPX_ErrorExit(env, JPX_ERR_READ_PAST_END);
      add_finding(env, index, trouble);
      if (!is_box) break;
    }
    Box* const child = read_box(env, header, stream, box, counter);
    // A box that may not stand here ends the parse of its container, which keeps what it has; the
    // parent's parse goes on behind the refused box.
    if (child == nullptr) break;
    end_of_boxes = header.end;
    append_child(box, last, child);
    last = child;
  }
  stream->container = outer;
  stream->container_depth = outer_depth;
  if (index == nullptr) return;
  BoxEntry* const entry = index_entry(index, box->id);
  entry->tail_length = limit_of(stream) - end_of_boxes;
  if (last != nullptr) entry->last_child = last->id;
  if (stream->keeps_everything == 0) return;
  skip_content(env, stream);
  stream->content_is_bad = 0;
}

Box* read_by_row(const BoxType& row, Environment* env, uint32_t type, Stream* stream, Box* parent,
                 uint32_t* counter) {
  return read_row(row, env, type, stream, parent, counter);
}

extern "C" Box* jpx_read_super_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                                   uint32_t* counter) {
  return read_super(env, type, stream, parent, counter);
}

}  // namespace kvjpx
