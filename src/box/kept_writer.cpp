// Writes a tree of which everything is kept (see kept_writer.h).
//
// First every changed box is measured, and compared with what it was: one that has got its old
// content back counts as unchanged. Where there are fragments, which name bytes of the input by
// their position, the output is then gone through without writing, which tells where those bytes
// come to lie. At last it is written. The boxes between two changed ones are never looked at: they
// are one piece of the input.
#include "box/kept_writer.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include "box/basic.h"
#include "box/findings.h"
#include "box/standard.h"
#include "stream/view.h"

namespace kvjpx {

// A changed box, in the order in which they are met.
struct Measure {
  uint64_t content_length;
  bool is_same;  // as what was read, after all
};

// Bytes of the input that are written as they stood.
struct Run {
  uint64_t from;
  uint64_t to;
  uint64_t length;
};

// A number of the output that differs from the one in the box: the offset of a moved fragment.
struct Patch {
  uint64_t position;
  uint64_t value;
};
constexpr uint64_t kPatchSize = sizeof(uint64_t);

// A fragment list that is written anew.
struct ChangedList {
  Box* box;
  uint64_t position;  // of its content in the output
};

enum class Target { kNone, kMemory, kFile };

struct KeptOutput {
  Environment* env;
  BoxIndex* index;
  Stream* input;
  EntryList measures;
  EntryList runs;
  EntryList patches;
  EntryList changed_lists;
  uint64_t length;
  bool has_marks;  // the index knows all that changed; else every box is looked at

  // Of one pass:
  Target target;
  uint8_t* memory;
  int descriptor;
  bool has_failed;
  uint64_t position;
  uint64_t next_measure;
  uint64_t next_patch;
  Run pending;           // not written yet, as the next piece of the input may follow directly
  uint64_t first_place;  // of the output in its file; 0 for pipes, which have no places
  uint8_t* buffer;
  uint8_t* fill;      // the part of the buffer that serves
  uint64_t room;      // in it, in bytes
  uint64_t buffered;  // of them
};

namespace {

constexpr uint64_t kHeader = 8;
constexpr uint64_t kLongHeader = 16;
constexpr uint64_t kShortLimit = 0xFFFFFFFF;
constexpr uint64_t kBufferSize = 0x40000;
constexpr uint64_t kMostMapped = 0x100000;  // of what is only copied
constexpr uint64_t kTransferLimit = 0x40000000;
constexpr uint64_t kFragmentSize = 14;
constexpr uint64_t kFragmentCountSize = 2;

const BoxEntry* entry_of(const KeptOutput* output, const Box* box) {
  BoxIndex* const index = output->index;
  if (box == index->root) return &index->root_entry;
  if (box->id >= index->count) return nullptr;
  const BoxEntry* const entry = index_entry(index, box->id);
  return entry->box == box && entry->header_length != 0 ? entry : nullptr;
}

uint64_t content_begin(const BoxEntry* entry) { return entry->offset + entry->header_length; }

// Bytes of the content that the box does not render: what its reader did not take.
uint64_t tail_of(const BoxEntry* entry) { return entry != nullptr ? entry->tail_length : 0; }

const uint8_t* input_bytes(const KeptOutput* output, uint64_t offset) {
  return output->input->buffer_start + (offset - output->input->buffer_offset);
}

// ------------------------------------------------------------------------------------- the sink

// Where bytes come to lie a little further on in their page, processors take ten times as long for
// a long copy than for the same in short ones, and so they do with the instruction that a compiler
// puts in place of short ones whose length it knows.
void copy_bytes(uint8_t* to, const uint8_t* from, uint64_t length) {
  constexpr uint64_t kPage = 4096;
  constexpr uint64_t kLittle = 64;
  const volatile uint64_t known_late = 1024;
  const uint64_t shift =
      (reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from)) % kPage;
  const uint64_t most = shift != 0 && shift < kLittle ? known_late : length;
  while (length != 0) {
    const uint64_t step = smaller(length, most);
    memcpy(to, from, step);
    to += step;
    from += step;
    length -= step;
  }
}

void put_raw(KeptOutput* output, const uint8_t* bytes, uint64_t length) {
  while (length != 0 && !output->has_failed) {
    const ssize_t written = write(output->descriptor, bytes, smaller(length, kTransferLimit));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      output->has_failed = true;
      return;
    }
    bytes += written;
    length -= static_cast<uint64_t>(written);
  }
}

void flush_buffer(KeptOutput* output) {
  put_raw(output, output->fill, output->buffered);
  output->buffered = 0;
}

// Where the next byte comes to lie in the output file.
uint64_t next_place(const KeptOutput* output) { return output->first_place + output->position; }

// Processors take several times as long to copy bytes a little further on in their pages than they
// were, so the buffer's part that serves lies half a page away from the place in the output. It is
// full where a page of the output ends.
void begin_buffer(KeptOutput* output) {
  const uint64_t page = output->input->alignment;
  const uint64_t place = next_place(output) % page;
  const auto address = reinterpret_cast<uintptr_t>(output->buffer);
  output->fill = output->buffer + (place + page / 2 - address) % page;
  output->room = kBufferSize - place;
}

void put_buffered(KeptOutput* output, const uint8_t* bytes, uint64_t length) {
  while (length != 0) {
    if (output->buffered == 0) begin_buffer(output);
    const uint64_t step = smaller(length, output->room - output->buffered);
    copy_bytes(output->fill + output->buffered, bytes, step);
    output->buffered += step;
    output->position += step;
    bytes += step;
    length -= step;
    if (output->buffered == output->room) flush_buffer(output);
  }
}

void put_plain(KeptOutput* output, const uint8_t* bytes, uint64_t length) {
  if (output->target == Target::kFile && length <= kBufferSize) {
    put_buffered(output, bytes, length);
    return;
  }
  if (length == 0) return;
  if (output->target == Target::kMemory)
    copy_bytes(output->memory + output->position, bytes, length);
  if (output->target == Target::kFile) {
    flush_buffer(output);
    put_raw(output, bytes, length);
  }
  output->position += length;
}

// The mapped pages that lie between two places; they come back when they are touched. So the memory
// that a copy needs does not grow with the file.
void give_back_pages(const KeptOutput* output, uint64_t begin, uint64_t end) {
  const uint64_t page = output->input->alignment;
  begin = (begin + page - 1) & ~(page - 1);
  end &= ~(page - 1);
  if (begin >= end) return;
  madvise(const_cast<uint8_t*>(input_bytes(output, begin)), end - begin, MADV_DONTNEED);
}

// Copies a piece of the input file through the buffer.
void copy_by_hand(KeptOutput* output, uint64_t offset, uint64_t length) {
  while (length != 0 && !output->has_failed) {
    const uint64_t step = smaller(length, kMostMapped);
    require_present(output->env, output->input, offset, step);
    put_buffered(output, input_bytes(output, offset), step);
    if (step == kMostMapped) give_back_pages(output, offset, offset + step);
    offset += step;
    length -= step;
  }
}

// Copies a piece of the input file inside the system, which costs no memory. Where the bytes come
// to lie elsewhere in their pages, that takes three times as long as going through the buffer.
void copy_file_piece(KeptOutput* output, uint64_t offset, uint64_t length) {
  uint64_t left = length;
  if ((next_place(output) - offset) % output->input->alignment == 0) {
    flush_buffer(output);
    auto from = static_cast<off_t>(offset);
    while (left != 0 && !output->has_failed) {
      const ssize_t moved = sendfile(output->descriptor, output->input->descriptor, &from,
                                     smaller(left, kTransferLimit));
      if (moved < 0 && errno == EINTR) continue;
      if (moved == 0) JPX_ErrorExit(output->env, JPX_ERR_READ_PAST_END);
      if (moved < 0) break;  // the system does not do that between such files
      left -= static_cast<uint64_t>(moved);
    }
    output->position += length - left;
  }
  copy_by_hand(output, offset + (length - left), left);
}

void put_input(KeptOutput* output, uint64_t offset, uint64_t length) {
  const bool is_file = output->target == Target::kFile && output->input->descriptor >= 0 &&
                       output->input->source == kMapped;
  if (is_file && length > kBufferSize) {
    copy_file_piece(output, offset, length);
  } else {
    put_plain(output, input_bytes(output, offset), length);
  }
}

void flush_run(KeptOutput* output) {
  Run run = output->pending;
  output->pending = {};
  if (run.length == 0) return;
  if (output->target == Target::kNone) {
    run.to = output->position;
    list_append(output->env, &output->runs, sizeof(Run), &run);
    output->position += run.length;
    return;
  }
  require_present(output->env, output->input, run.from, run.length);
  uint64_t done = 0;
  for (; output->next_patch < output->patches.count; ++output->next_patch) {
    const Patch& patch = *entry_at<Patch>(output->patches, output->next_patch);
    if (patch.position >= output->position + (run.length - done)) break;
    const uint64_t before = patch.position - output->position;
    put_input(output, run.from + done, before);
    uint8_t number[kPatchSize];
    for (uint64_t i = 0; i < kPatchSize; ++i) {
      number[i] = static_cast<uint8_t>(patch.value >> (8 * (kPatchSize - 1 - i)));
    }
    put_plain(output, number, kPatchSize);
    done += before + kPatchSize;
  }
  put_input(output, run.from + done, run.length - done);
}

void put_run(KeptOutput* output, uint64_t offset, uint64_t length) {
  Run& pending = output->pending;
  if (pending.length != 0 && pending.from + pending.length != offset) flush_run(output);
  if (pending.length == 0) pending.from = offset;
  pending.length += length;
}

// Bytes made anew, in which patches are applied, too.
void put_bytes(KeptOutput* output, uint8_t* bytes, uint64_t length) {
  flush_run(output);
  while (output->target != Target::kNone && output->next_patch < output->patches.count) {
    const Patch& patch = *entry_at<Patch>(output->patches, output->next_patch);
    if (patch.position >= output->position + length) break;
    uint8_t* const place = bytes + (patch.position - output->position);
    for (uint64_t i = 0; i < kPatchSize; ++i) {
      place[i] = static_cast<uint8_t>(patch.value >> (8 * (kPatchSize - 1 - i)));
    }
    ++output->next_patch;
  }
  put_plain(output, bytes, length);
}

// ------------------------------------------------------------------------------------- sorted
// lists

// Sorts by `number`, a member of the entries: boxes that were moved stand in another order than in
// the input. In place (a heap), as the C library's sort may allocate. Most lists are in order.
template <class Entry>
void sort_list(const EntryList& list, uint64_t Entry::*number) {
  auto* const entries = entry_at<Entry>(list, 0);
  const auto swap = [entries](uint64_t i, uint64_t j) {
    const Entry entry = entries[i];
    entries[i] = entries[j];
    entries[j] = entry;
  };
  const auto sink = [&](uint64_t i, uint64_t count) {
    for (uint64_t child; child = 2 * i + 1, child < count; i = child) {
      if (child + 1 < count && entries[child].*number < entries[child + 1].*number) ++child;
      if (entries[i].*number >= entries[child].*number) return;
      swap(i, child);
    }
  };
  uint64_t sorted = 1;
  while (sorted < list.count && entries[sorted - 1].*number <= entries[sorted].*number) ++sorted;
  if (sorted >= list.count) return;
  for (uint64_t i = list.count / 2; i-- != 0;) sink(i, list.count);
  for (uint64_t count = list.count; count-- > 1;) {
    swap(0, count);
    sink(0, count);
  }
}

// The place of the first entry whose number is above, in a list that is sorted by it.
template <class Entry>
uint64_t first_above(const EntryList& list, uint64_t Entry::*number, uint64_t value) {
  uint64_t first = 0;
  for (uint64_t end = list.count; first < end;) {
    const uint64_t middle = first + (end - first) / 2;
    if (entry_at<Entry>(list, middle)->*number > value) {
      end = middle;
    } else {
      first = middle + 1;
    }
  }
  return first;
}

// Leaves the marks of boxes that are still there, in the order of the input.
void prepare_marks(BoxIndex* index) {
  uint64_t count = 0;
  for (uint64_t i = 0; i < index->marks.count; ++i) {
    const Mark mark = *entry_at<Mark>(index->marks, i);
    if (index_entry(index, mark.id)->box != nullptr) {
      *entry_at<Mark>(index->marks, count++) = mark;
    }
  }
  index->marks.count = count;
  sort_list(index->marks, &Mark::offset);
}

// ------------------------------------------------------------------------------------- measuring

// What a leaf box writes: what it renders, in a block of its own, and then the payload of an opaque
// one, where that lies.
struct Leaf {
  uint8_t* front;
  uint64_t front_length;
  const BasicBox* payload;  // null: none
};

uint64_t length_of(const Leaf& leaf) {
  return leaf.front_length + (leaf.payload != nullptr ? leaf.payload->payload_length : 0);
}

bool is_in_input(const KeptOutput* output, const BasicBox* payload) {
  return payload->source == output->input;
}

const uint8_t* payload_bytes(const BasicBox* payload) {
  return payload->source->buffer_start + payload->payload_offset;
}

Leaf render_leaf(KeptOutput* output, Box* box) {
  Environment* const env = output->env;
  auto* const opaque = box->kind == kBasic ? static_cast<BasicBox*>(box) : nullptr;
  const uint64_t payload_length = opaque != nullptr ? opaque->payload_length : 0;
  if (opaque != nullptr) opaque->payload_length = 0;
  const uint64_t length = box->length(box);
  auto* front = static_cast<uint8_t*>(allocate(env, length));
  Stream* writer = bs_writer_to_buffer(env, front, length);
  box->render(box, env, writer);
  destroy_stream(env, writer);
  if (opaque != nullptr) opaque->payload_length = payload_length;
  return {front, length, payload_length != 0 ? opaque : nullptr};
}

// In front of a container's children.
uint64_t prefix_length(const Box* box) {
  const BoxLayout* const layout = box->kind == kSuper ? standard_layout(box->type) : nullptr;
  return layout != nullptr ? layout->single.size : 0;
}

uint8_t* render_prefix(KeptOutput* output, const Box* box, uint64_t length) {
  Environment* const env = output->env;
  auto* bytes = static_cast<uint8_t*>(allocate(env, length));
  Stream* writer = bs_writer_to_buffer(env, bytes, length);
  render_numbers(env, writer, standard_layout(box->type)->single, box);
  destroy_stream(env, writer);
  return bytes;
}

bool equals_input(const KeptOutput* output, const uint8_t* bytes, uint64_t offset,
                  uint64_t length) {
  require_present(output->env, output->input, offset, length);
  return length == 0 || memcmp(bytes, input_bytes(output, offset), length) == 0;
}

bool is_changed(const BoxEntry* entry) {
  return entry == nullptr || (entry->flags & (KV_JPX_BOX_CHANGED | kLookInside)) != 0;
}

// What stands behind a box in the output.
enum class Behind {
  kNothing,
  kElsewhere,  // behind its container only
  kSomething,  // in its container
};

// Whether the box, or its last descendant, goes on to the end of the file by its header.
bool is_open_at_end(const KeptOutput* output, const Box* box) {
  for (;;) {
    const BoxEntry* const entry = entry_of(output, box);
    if (entry == nullptr) return false;
    const uint16_t ending = entry->flags & (KV_JPX_BOX_OPEN_ENDED | KV_JPX_BOX_CUT_SHORT);
    if (ending == KV_JPX_BOX_OPEN_ENDED) return true;
    if (box->kind != kSuper || entry->tail_length != 0) return false;
    box = index_last_child(output->index, static_cast<const SuperBox*>(box));
    if (box == nullptr) return false;
  }
}

// Whether the header's length must become an honest one, because something follows now.
bool needs_length(const BoxEntry* entry, Behind behind) {
  if ((entry->flags & KV_JPX_BOX_CUT_SHORT) != 0) return behind == Behind::kSomething;
  return (entry->flags & KV_JPX_BOX_OPEN_ENDED) != 0 && behind != Behind::kNothing;
}

// Whether the box is gone through, rather than copied as it stood.
bool is_written_anew(const KeptOutput* output, const Box* box, const BoxEntry* entry,
                     Behind behind) {
  return is_changed(entry) || needs_length(entry, behind) ||
         (behind != Behind::kNothing && is_open_at_end(output, box));
}

uint64_t header_length(const BoxEntry* entry, uint64_t content) {
  const bool was_long = entry != nullptr && (entry->flags & KV_JPX_BOX_LONG_HEADER) != 0;
  return was_long || content + kHeader > kShortLimit ? kLongHeader : kHeader;
}

uint64_t measure_box(KeptOutput* output, Box* box, Behind behind, bool* is_same);

Behind behind_child(const Box* child, const BoxEntry* parent, Behind behind_parent) {
  if (child->next != nullptr || tail_of(parent) != 0) return Behind::kSomething;
  return behind_parent == Behind::kNothing ? Behind::kNothing : Behind::kElsewhere;
}

// The box at which the run of boxes ends that stand in the output as in the input, from a child on;
// the child itself if it must be looked at. The last child always is, because it may have to get
// another header when something follows its container.
Box* end_of_run(const KeptOutput* output, Box* child, Box* last) {
  const BoxEntry* const entry = entry_of(output, child);
  if (!output->has_marks || entry == nullptr || (entry->flags & kMarked) != 0) return child;
  const EntryList& marks = output->index->marks;
  const uint64_t place = first_above(marks, &Mark::offset, entry->offset);
  const Mark* const mark = place < marks.count ? entry_at<Mark>(marks, place) : nullptr;
  const BoxEntry* const end = entry_of(output, last);
  if (end != nullptr && end->offset >= entry->offset &&
      (mark == nullptr || end->offset <= mark->offset)) {
    return last;
  }
  return mark != nullptr ? index_entry(output->index, mark->id)->box : child;
}

// The last child of a container, if that is of use for the end of a run.
Box* last_child(const KeptOutput* output, const SuperBox* box) {
  return output->has_marks ? index_last_child(output->index, box) : nullptr;
}

uint64_t run_length(const KeptOutput* output, const Box* child, const Box* end) {
  return entry_of(output, end)->offset - entry_of(output, child)->offset;
}

Measure measure_container(KeptOutput* output, SuperBox* box, const BoxEntry* entry, Behind behind) {
  const uint64_t prefix = prefix_length(box);
  Measure measure = {prefix + tail_of(entry), entry != nullptr};
  uint64_t expected = 0;
  if (entry != nullptr) {
    expected = content_begin(entry) + prefix;
    if (prefix != 0) {
      uint8_t* bytes = render_prefix(output, box, prefix);
      measure.is_same = equals_input(output, bytes, content_begin(entry), prefix);
      release(output->env, bytes);
    }
  }
  Box* const last = last_child(output, box);
  for (Box* child = box->first_child; child != nullptr; child = child->next) {
    Box* const end = end_of_run(output, child, last);
    if (end != child) {
      const uint64_t begin = entry_of(output, child)->offset;
      const uint64_t length = run_length(output, child, end);
      measure.content_length += length;
      measure.is_same = measure.is_same && begin == expected;
      expected = begin + length;
      child = end;
    }
    bool is_same;
    const Behind behind_it = behind_child(child, entry, behind);
    measure.content_length += measure_box(output, child, behind_it, &is_same);
    const BoxEntry* const stood = entry_of(output, child);
    measure.is_same = measure.is_same && is_same && stood->offset == expected;
    if (stood != nullptr) expected = content_begin(stood) + stood->content_length;
  }
  if (entry != nullptr &&
      expected != content_begin(entry) + entry->content_length - tail_of(entry)) {
    measure.is_same = false;
  }
  return measure;
}

Measure measure_leaf(KeptOutput* output, Box* box, const BoxEntry* entry) {
  if (!is_changed(entry)) return {entry->content_length, true};
  Leaf leaf = render_leaf(output, box);
  const uint64_t length = length_of(leaf) + tail_of(entry);
  bool is_same = entry != nullptr && length == entry->content_length &&
                 equals_input(output, leaf.front, content_begin(entry), leaf.front_length);
  if (is_same && leaf.payload != nullptr) {
    const uint64_t begin = content_begin(entry) + leaf.front_length;
    is_same = is_in_input(output, leaf.payload) ? leaf.payload->payload_offset == begin
                                                : equals_input(output, payload_bytes(leaf.payload),
                                                               begin, leaf.payload->payload_length);
  }
  release(output->env, leaf.front);
  return {length, is_same};
}

// The length of a box in the output, and whether its bytes are the input's.
uint64_t measure_box(KeptOutput* output, Box* box, Behind behind, bool* is_same) {
  const BoxEntry* const entry = entry_of(output, box);
  if (!is_written_anew(output, box, entry, behind)) {
    *is_same = true;
    return entry->header_length + entry->content_length;
  }
  const uint64_t number = output->measures.count;
  list_append(output->env, &output->measures, sizeof(Measure), nullptr);
  Measure measure = box->kind == kSuper
                        ? measure_container(output, static_cast<SuperBox*>(box), entry, behind)
                        : measure_leaf(output, box, entry);
  if (entry != nullptr && needs_length(entry, behind)) measure.is_same = false;
  if (measure.is_same) {
    list_resize(output->env, &output->measures, sizeof(Measure), number + 1);
  }
  *entry_at<Measure>(output->measures, number) = measure;
  *is_same = measure.is_same;
  if (box->id == kRoot) return measure.content_length;
  return header_length(entry, measure.content_length) + measure.content_length;
}

// ---------------------------------------------------------------------------------------- writing

void put_header(KeptOutput* output, const Box* box, const BoxEntry* entry, uint64_t content,
                Behind behind) {
  if (box->id == kRoot) return;
  uint8_t bytes[kLongHeader];
  const bool stays_open =
      entry != nullptr && (entry->flags & KV_JPX_BOX_OPEN_ENDED) != 0 && behind == Behind::kNothing;
  const uint64_t length = stays_open ? kHeader : header_length(entry, content);
  const uint64_t total = length + content;
  const uint64_t lbox = stays_open ? 0 : length == kLongHeader ? 1 : total;
  for (uint32_t i = 0; i < 4; ++i) {
    bytes[i] = static_cast<uint8_t>(lbox >> (24 - 8 * i));
    bytes[4 + i] = static_cast<uint8_t>(box->type >> (24 - 8 * i));
  }
  for (uint32_t i = 0; i < 8; ++i) bytes[8 + i] = static_cast<uint8_t>(total >> (56 - 8 * i));
  put_bytes(output, bytes, length);
}

void put_box(KeptOutput* output, Box* box, Behind behind);

void put_container(KeptOutput* output, SuperBox* box, const BoxEntry* entry, Behind behind) {
  const uint64_t prefix = prefix_length(box);
  if (prefix != 0) {
    uint8_t* bytes = render_prefix(output, box, prefix);
    put_bytes(output, bytes, prefix);
    release(output->env, bytes);
  }
  Box* const last = last_child(output, box);
  for (Box* child = box->first_child; child != nullptr; child = child->next) {
    Box* const end = end_of_run(output, child, last);
    if (end != child) {
      put_run(output, entry_of(output, child)->offset, run_length(output, child, end));
    }
    child = end;
    put_box(output, child, behind_child(child, entry, behind));
  }
}

// Without the tail.
void put_leaf(KeptOutput* output, Box* box, const BoxEntry* entry) {
  if (!is_changed(entry)) {
    put_run(output, content_begin(entry), entry->content_length - tail_of(entry));
    return;
  }
  if (output->target == Target::kNone && box->type == code("flst")) {
    flush_run(output);
    const ChangedList list = {box, output->position};
    list_append(output->env, &output->changed_lists, sizeof(list), &list);
  }
  Leaf leaf = render_leaf(output, box);
  put_bytes(output, leaf.front, leaf.front_length);
  release(output->env, leaf.front);
  if (leaf.payload == nullptr) return;
  if (is_in_input(output, leaf.payload)) {
    put_run(output, leaf.payload->payload_offset, leaf.payload->payload_length);
  } else {
    flush_run(output);
    put_plain(output, payload_bytes(leaf.payload), leaf.payload->payload_length);
  }
}

void put_box(KeptOutput* output, Box* box, Behind behind) {
  const BoxEntry* const entry = entry_of(output, box);
  if (!is_written_anew(output, box, entry, behind)) {
    put_run(output, entry->offset, entry->header_length + entry->content_length);
    return;
  }
  const Measure measure = *entry_at<Measure>(output->measures, output->next_measure++);
  if (measure.is_same) {
    put_run(output, entry->offset, entry->header_length + entry->content_length);
    return;
  }
  put_header(output, box, entry, measure.content_length, behind);
  if (box->kind == kSuper) {
    put_container(output, static_cast<SuperBox*>(box), entry, behind);
  } else {
    put_leaf(output, box, entry);
  }
  if (tail_of(entry) != 0) {
    const uint64_t end = content_begin(entry) + entry->content_length;
    put_run(output, end - entry->tail_length, entry->tail_length);
  }
}

void go_through(KeptOutput* output) {
  output->position = 0;
  output->next_measure = 0;
  output->next_patch = 0;
  output->pending = {};
  put_box(output, output->index->root, Behind::kNothing);
  flush_run(output);
}

// -------------------------------------------------------------------------------------- fragments

// The run that holds all of a piece of the input; null for none.
const Run* run_with(const KeptOutput* output, uint64_t offset, uint64_t length) {
  const uint64_t behind = first_above(output->runs, &Run::from, offset);
  if (behind == 0) return nullptr;
  const Run* const run = entry_at<Run>(output->runs, behind - 1);
  const uint64_t place = offset - run->from;
  return place < run->length && length <= run->length - place ? run : nullptr;
}

void follow_fragment(KeptOutput* output, Box* box, uint64_t number, uint64_t content_position) {
  uint64_t offset = 0;
  uint64_t length = 0;
  uint64_t reference = 0;
  box->get_int_field(box, JPX_FIELD_FLST_OFF, number, &offset);
  box->get_int_field(box, JPX_FIELD_FLST_LEN, number, &length);
  box->get_int_field(box, JPX_FIELD_FLST_DR, number, &reference);
  const uint64_t size = output->input->size;
  if (reference != 0 || length == 0 || offset > size || length > size - offset) return;
  const Run* const run = run_with(output, offset, length);
  if (run == nullptr) {
    const BoxEntry* const entry = entry_of(output, box);
    add_finding(output->env, output->index,
                {KV_JPX_FINDING_FRAGMENT,
                 box->type,
                 box->id,
                 entry != nullptr ? entry->offset : kNoOffset,
                 {offset, length}});
  } else if (run->from != run->to) {
    const Patch patch = {content_position + kFragmentCountSize + number * kFragmentSize,
                         offset - run->from + run->to};
    list_append(output->env, &output->patches, sizeof(patch), &patch);
  }
}

void follow_fragments(KeptOutput* output, Box* box, uint64_t content_position) {
  uint64_t count = 0;
  if (box->kind != kParsed) return;  // one whose content is malformed
  box->get_field_count(box, JPX_FIELD_FLST_OFF, &count, nullptr);
  for (uint64_t i = 0; i < count; ++i) follow_fragment(output, box, i, content_position);
}

void follow_all_fragments(KeptOutput* output) {
  BoxIndex* const index = output->index;
  list_resize(output->env, &index->findings, sizeof(Trouble), index->findings_of_reader);
  sort_list(output->runs, &Run::from);
  const auto follow_untouched = [&](Box* box) {
    const BoxEntry* const entry = entry_of(output, box);
    if (box->type != code("flst") || is_changed(entry)) return;
    const Run* const run = run_with(output, content_begin(entry), entry->content_length);
    if (run == nullptr) return;
    follow_fragments(output, box, run->to + (content_begin(entry) - run->from));
  };
  // The search by type begins behind identifier 0.
  uint32_t id = 0;
  Box* const first = index_find(output->env, index, id);
  if (first != nullptr) follow_untouched(first);
  while (index_find_by_type(output->env, index, code("flst"), id, &id)) {
    follow_untouched(index_find(output->env, index, id));
  }
  for (uint64_t i = 0; i < output->changed_lists.count; ++i) {
    const auto& list = *entry_at<ChangedList>(output->changed_lists, i);
    follow_fragments(output, list.box, list.position);
  }
  // In the order in which the output meets them.
  sort_list(output->patches, &Patch::position);
}

}  // namespace

KeptOutput* plan_kept_output(Environment* env, BoxIndex* index, Stream* input, uint64_t* length) {
  auto* output = static_cast<KeptOutput*>(allocate_zeroed(env, sizeof(KeptOutput)));
  output->env = env;
  output->index = index;
  output->input = input;
  index_find(env, index, kRoot);  // brings the index up to date
  output->has_marks = index->is_all_ours && !index->has_strangers;
  if (output->has_marks) prepare_marks(index);
  bool is_same;
  output->length = measure_box(output, index->root, Behind::kNothing, &is_same);
  if (!is_same && index->has_fragments) {
    go_through(output);
    follow_all_fragments(output);
  }
  *length = output->length;
  return output;
}

void write_kept_to_memory(KeptOutput* output, uint8_t* memory) {
  output->target = Target::kMemory;
  output->memory = memory;
  go_through(output);
}

bool write_kept_to_file(KeptOutput* output, int descriptor) {
  output->target = Target::kFile;
  output->descriptor = descriptor;
  const off_t place = lseek(descriptor, 0, SEEK_CUR);
  output->first_place = place > 0 ? static_cast<uint64_t>(place) : 0;
  const uint64_t size = kBufferSize + output->input->alignment;
  output->buffer = static_cast<uint8_t*>(allocate(output->env, size));
  go_through(output);
  flush_buffer(output);
  release(output->env, output->buffer);
  return !output->has_failed;
}

void end_kept_output(KeptOutput*& output) {
  Environment* const env = output->env;
  list_release(env, &output->measures);
  list_release(env, &output->runs);
  list_release(env, &output->patches);
  list_release(env, &output->changed_lists);
  release(env, output);
}

}  // namespace kvjpx
