// Promises of inputs of which everything is kept (see kept.h).
#include "kept.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "box/registry.h"

namespace kvjpx::fuzz {
namespace {

constexpr int kMaxSteps = 24;
constexpr uint32_t kUnfinished = KV_JPX_BOX_OPEN_ENDED | KV_JPX_BOX_CUT_SHORT;

// A kept input, from memory or from a file of its own.
class KeptInput {
 public:
  KeptInput(const Bytes& file, Source source, size_t failing_allocation)
      : session_(failing_allocation) {
    if (source != Source::kMemory) disk_.emplace(file);
    if (session_.get() == nullptr) return;
    session_.judged(kv_jpx_set_keep_everything(session_.get(), 1));
    const int32_t code =
        disk_.has_value() ? session_.load(disk_->path(), source) : session_.load(file);
    require(code == JPX_OK || session_.allocator().has_failed(), "any bytes load");
    require(session_.allocator().peak_bytes() <= memory_bound(file.size()),
            "loading stays inside its memory bound");
  }

  const Session& session() const { return session_; }
  bool is_alive() const { return session_.get() != nullptr && session_.get()->root != nullptr; }
  const DiskFile* disk() const { return disk_.has_value() ? &*disk_ : nullptr; }

 private:
  std::optional<DiskFile> disk_;
  Session session_;
};

// False for a box that is not from the input.
bool get_extent(const Session& session, uint32_t id, kv_jpx_box_extent* extent) {
  *extent = {};
  extent->size = sizeof(*extent);
  const int32_t code = kv_jpx_get_box_extent(session.get(), id, extent);
  require(code == JPX_OK || code == JPX_ERR_NO_SUCH_FIELD, "every box has an extent or is new");
  return code == JPX_OK;
}

uint64_t begin_of(const kv_jpx_box_extent& extent) { return extent.offset + extent.header_length; }
uint64_t end_of(const kv_jpx_box_extent& extent) {
  return begin_of(extent) + extent.content_length;
}

// Containers with a field in front of their boxes.
bool has_prefix(uint32_t type) { return type == code("cref") || type == code("dtbl"); }

void check_header(const Bytes& file, const BoxInfo& box, const kv_jpx_box_extent& extent) {
  Input header(file.data() + extent.offset, extent.header_length);
  const uint64_t lbox = header.number(4);
  const bool is_long = (extent.flags & KV_JPX_BOX_LONG_HEADER) != 0;
  require(header.number(4) == box.type, "a box's type stands in its header");
  require(extent.header_length == (is_long ? 16 : 8) && (lbox == 1) == is_long &&
              (lbox == 0) == ((extent.flags & KV_JPX_BOX_OPEN_ENDED) != 0),
          "a header has the form that its box's extent says");
  const uint64_t length = is_long ? header.number(8) : lbox;
  require(lbox == 0 || (length == extent.header_length + extent.content_length) ==
                           ((extent.flags & KV_JPX_BOX_CUT_SHORT) == 0),
          "a box is as long as its header says, or cut short");
}

// Boxes and tails stand one behind the other, without gaps.
void check_extents(const Session& session, const Bytes& file) {
  struct Container {
    kv_jpx_box_extent extent;
    uint64_t reached;
  };
  std::map<uint32_t, Container> containers;
  kv_jpx_box_extent extent;
  require(get_extent(session, KV_JPX_ROOT, &extent) && extent.content_length == file.size(),
          "the root is the whole file");
  containers[KV_JPX_ROOT] = {extent, 0};
  for (const BoxInfo& box : walk(session)) {
    require(get_extent(session, box.id, &extent), "a box that was read has an extent");
    Container& parent = containers.at(box.parent);
    const bool is_behind_prefix =
        parent.reached == begin_of(parent.extent) && parent.extent.header_length != 0;
    require(extent.offset == parent.reached || (is_behind_prefix && extent.offset > parent.reached),
            "boxes stand one behind the other");
    check_header(file, box, extent);
    parent.reached = end_of(extent);
    if (box.is_container) containers[box.id] = {extent, begin_of(extent)};
  }
  for (const auto& [id, container] : containers) {
    const uint64_t tail = end_of(container.extent) - container.reached;
    uint32_t type = 0;
    kv_jpx_get_box_type_by_id(session.get(), id, &type);
    const bool is_empty = container.reached == begin_of(container.extent);
    require(container.extent.tail_length == tail || (is_empty && has_prefix(type)),
            "a container is its boxes and its tail");
  }
}

void check_findings(const Session& session) {
  uint64_t reached = 0;
  kv_jpx_finding finding = {};
  finding.size = sizeof(finding);
  for (uint32_t i = 0; kv_jpx_get_finding(session.get(), i, &finding) == JPX_OK; ++i) {
    uint32_t type;
    require(finding.offset >= reached, "findings are in the order of the file");
    require(kv_jpx_get_box_type_by_id(session.get(), finding.box_id, &type) == JPX_OK,
            "a finding is about a box");
    require(finding.text[0] != '\0', "a finding has a text");
    reached = finding.offset;
  }
}

// Null when memory failed.
std::optional<Bytes> write(const Session& session) {
  void* data = nullptr;
  uint64_t length = 0;
  const int32_t code = session.judged(kv_jpx_get_output_image(session.get(), &data, &length));
  if (code == JPX_ERR_MEMORY) return std::nullopt;
  require(code == JPX_OK && (data != nullptr) == (length != 0), "a kept tree is written");
  if (data == nullptr) return Bytes();
  const auto* const bytes = static_cast<const uint8_t*>(data);
  Bytes result(bytes, bytes + length);
  require(kv_jpx_free(session.get(), data) == JPX_OK, "an output block can be freed");
  return result;
}

void check_written(const KeptInput& input, const Bytes& expected, const char* promise) {
  if (!input.is_alive()) return;
  const std::optional<Bytes> bytes = write(input.session());
  require(!bytes.has_value() || *bytes == expected, promise);
}

void check_written_file(const KeptInput& input, const DiskFile& target, const Bytes& expected) {
  if (!input.is_alive()) return;
  const Session& session = input.session();
  const int32_t code = session.judged(kv_jpx_get_output_image_file(session.get(), target.path()));
  require(code == JPX_ERR_MEMORY || (code == JPX_OK && target.contents() == expected),
          "any bytes in, the same bytes out of a file");
}

void check_load(const KeptInput& input, const Bytes& file) {
  if (!input.is_alive()) return;
  check_lookup(input.session(), walk(input.session()));
  check_extents(input.session(), file);
  check_findings(input.session());
  require(kv_jpx_print_box(input.session().get(), KV_JPX_ROOT) == JPX_OK, "a tree can be printed");
  check_written(input, file, "any bytes in, the same bytes out");
  const DiskFile other({'o', 'l', 'd'});
  check_written_file(input, other, file);
  if (input.disk() != nullptr) check_written_file(input, *input.disk(), file);
}

// ------------------------------------------------------------------------------------------ edits

// All that can be read of a box's fields.
struct FieldValue {
  kv_jpx_field_info field;
  uint64_t count;
  uint32_t element_size;
  std::vector<uint64_t> numbers;
  std::optional<Bytes> bytes;

  bool operator==(const FieldValue& other) const {
    return field.key == other.field.key && count == other.count && numbers == other.numbers &&
           bytes == other.bytes;
  }
};
using Snapshot = std::vector<FieldValue>;

std::vector<kv_jpx_field_info> fields_of(uint32_t type) {
  std::vector<kv_jpx_field_info> result;
  kv_jpx_field_info field = {};
  field.size = sizeof(field);
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    if (field.box_type == type || field.box_type == 0) result.push_back(field);
  }
  return result;
}

class Edits {
 public:
  Edits(const KeptInput& input, const Bytes& file, Input steps)
      : input_(input), session_(input.session()), file_(file), steps_(steps) {}

  void run() {
    const int count = steps_.byte() % kMaxSteps;
    for (int i = 0; i < count && is_alive(); ++i) take_step();
    check_output();
    while (!undo_.empty() && is_alive()) undo_last();
    if (is_undone_) check_written(input_, file_, "undoing edits restores the file");
    for (int i = 0; i < kMaxSteps && !steps_.is_empty() && is_alive(); ++i) {
      take_rough_step();
    }
    check_output();
  }

 private:
  // A box that was added, or a box that was changed with what it was like.
  struct Step {
    uint32_t id;
    std::optional<Snapshot> before;
  };

  bool is_alive() const { return input_.is_alive(); }
  kv_jpx_context* context() const { return session_.get(); }
  BoxInfo pick() { return pick_box(steps_, walk(session_)); }

  void take_step() {
    const uint8_t operation = steps_.byte();
    const BoxInfo box = pick();
    if (operation % 4 == 0) {
      add(box);
    } else {
      change(box, operation);
    }
  }

  // One that is not undone.
  void take_rough_step() {
    const uint8_t operation = steps_.byte();
    if (operation % 4 == 0) {
      kv_jpx_delete_box(context(), pick().id);
    } else if (operation % 4 == 1) {
      const uint32_t moved = pick().id;
      session_.judged(kv_jpx_move_box(context(), moved, pick().id, operation / 4 % 5));
    } else if (operation % 4 == 2) {
      const BoxInfo filled = pick();
      const Bytes content = steps_.bytes(steps_.byte());
      // A container is opaque then until it is read anew, which the shape would show.
      if (filled.is_container) return;
      filled_.insert(filled.id);
      session_.judged(kv_jpx_set_box_content(context(), filled.id, content.data(), content.size()));
    } else {
      take_step();
    }
  }

  void add(const BoxInfo& reference) {
    const BoxTypes types = all_box_types();
    const uint8_t choice = steps_.byte();
    const uint32_t type = choice < 240 ? types.rows[choice % types.count].code
                                       : static_cast<uint32_t>(steps_.number(4));
    const uint8_t place = steps_.byte();
    uint32_t id = KV_JPX_ROOT;
    const uint32_t parent = place % 8 == 7 ? KV_JPX_ROOT : reference.id;
    const int32_t code = session_.judged(
        place % 4 == 3 ? kv_jpx_append_box(context(), type, parent, &id)
                       : kv_jpx_add_box(context(), type, reference.id, place % 4, &id));
    if (code != JPX_OK) return;
    kv_jpx_box_extent extent;
    require(!get_extent(session_, id, &extent), "a box that was added is not from the input");
    undo_.push_back({id, std::nullopt});
  }

  void change(const BoxInfo& box, uint8_t operation) {
    const std::vector<kv_jpx_field_info> fields = fields_of(box.type);
    const kv_jpx_field_info field = fields[steps_.byte() % fields.size()];
    uint64_t count;
    uint32_t element_size;
    if (kv_jpx_get_box_field_count(context(), box.id, field.key, &count, &element_size) != JPX_OK) {
      return;
    }
    undo_.push_back({box.id, snapshot(box.id, box.type)});
    if (operation % 4 == 1) {
      const uint64_t index = steps_.byte();
      session_.judged(
          kv_jpx_set_box_field_int(context(), box.id, field.key, index, steps_.any_number()));
    } else if (operation % 4 == 2) {
      session_.judged(kv_jpx_set_box_field_count(context(), box.id, field.key, steps_.byte()));
    } else {
      const Bytes bytes = steps_.bytes(steps_.byte());
      const uint32_t size = element_size == 0 ? 1 : element_size;
      session_.judged(kv_jpx_set_box_field_buffer(context(), box.id, field.key, bytes.size() / size,
                                                  size, bytes.data()));
    }
  }

  Snapshot snapshot(uint32_t id, uint32_t type) const {
    Snapshot result;
    for (const kv_jpx_field_info& field : fields_of(type)) {
      FieldValue value = {field, 0, 0, {}, {}};
      if (kv_jpx_get_box_field_count(context(), id, field.key, &value.count, &value.element_size) !=
          JPX_OK) {
        continue;
      }
      uint64_t number;
      for (uint64_t i = 0; i < value.count; ++i) {
        if (kv_jpx_get_box_field_int(context(), id, field.key, i, &number) != JPX_OK) break;
        value.numbers.push_back(number);
      }
      void* data = nullptr;
      uint64_t count = 0;
      uint32_t size = 0;
      if (session_.judged(kv_jpx_get_box_field_buffer(context(), id, field.key, &count, &size,
                                                      &data)) == JPX_OK) {
        const auto* const bytes = static_cast<const uint8_t*>(data);
        value.bytes = data != nullptr ? Bytes(bytes, bytes + count * size) : Bytes();
        if (data != nullptr) kv_jpx_free(context(), data);
      }
      result.push_back(value);
      if (!is_alive()) return {};
    }
    return result;
  }

  void set_back(uint32_t id, const Snapshot& before) const {
    for (const FieldValue& value : before) {
      const uint32_t key = value.field.key;
      session_.judged(kv_jpx_set_box_field_count(context(), id, key, value.count));
      if (value.bytes.has_value() && is_alive()) {
        session_.judged(kv_jpx_set_box_field_buffer(context(), id, key, value.count,
                                                    value.element_size, value.bytes->data()));
      }
      for (size_t i = 0; i < value.numbers.size() && is_alive(); ++i) {
        session_.judged(kv_jpx_set_box_field_int(context(), id, key, i, value.numbers[i]));
      }
      if (!is_alive()) return;
    }
  }

  // Entries that no field shows whole (the vendors' UUIDs of an rreq box) do not come back.
  static bool loses_hidden_entries(const Snapshot& before, const Snapshot& after) {
    return std::any_of(before.begin(), before.end(), [&](const FieldValue& value) {
      const auto same = std::find_if(after.begin(), after.end(), [&](const FieldValue& other) {
        return other.field.key == value.field.key;
      });
      const uint64_t left = same != after.end() ? same->count : 0;
      return value.numbers.empty() && !value.bytes.has_value() && left < value.count;
    });
  }

  // Some changes take others with them that no set brings back: another method of a colr box, for
  // one, drops its profile.
  void undo_last() {
    const Step step = undo_.back();
    undo_.pop_back();
    uint32_t type;
    if (kv_jpx_get_box_type_by_id(context(), step.id, &type) != JPX_OK) return;
    if (!step.before.has_value()) {
      require(kv_jpx_delete_box(context(), step.id) == JPX_OK, "what was added can be deleted");
      return;
    }
    if (loses_hidden_entries(*step.before, snapshot(step.id, type))) is_undone_ = false;
    for (int i = 0; i < 2 && is_alive() && !(snapshot(step.id, type) == *step.before); ++i) {
      set_back(step.id, *step.before);
    }
    if (is_alive() && !(snapshot(step.id, type) == *step.before)) is_undone_ = false;
  }

  // A container whose content could not be taken is one again with another content; and a tail that
  // begins like a box without a length is a box where nothing follows it any more.
  bool may_be_read_otherwise(const BoxInfo& box) const {
    kv_jpx_box_extent stood;
    if (!get_extent(session_, box.id, &stood)) return false;
    constexpr uint32_t kMended = KV_JPX_BOX_MALFORMED | KV_JPX_BOX_CHANGED;
    if ((stood.flags & kMended) == kMended) return true;
    if (!box.is_container || stood.tail_length < 8) return false;
    const uint8_t* const tail = file_.data() + (end_of(stood) - stood.tail_length);
    return std::all_of(tail, tail + 4, [](uint8_t byte) { return byte == 0; });
  }

  void check_output() const {
    if (!is_alive()) return;
    const std::optional<Bytes> written = write(session_);
    if (!written.has_value()) return;
    const KeptInput again(*written, Source::kMemory, 0);
    const std::vector<BoxInfo> boxes = walk(session_);
    if (std::any_of(boxes.begin(), boxes.end(),
                    [&](const BoxInfo& box) { return may_be_read_otherwise(box); })) {
      return;
    }
    const std::vector<BoxInfo> reread = walk(again.session());
    require(have_same_shape(boxes, reread), "an edited tree loads as the same tree");
    for (size_t i = 0; i < boxes.size(); ++i) {
      kv_jpx_box_extent stood;
      kv_jpx_box_extent stands;
      if (filled_.count(boxes[i].id) != 0 || !get_extent(session_, boxes[i].id, &stood)) continue;
      require(get_extent(again.session(), reread[i].id, &stands), "(it was read)");
      check_box(boxes[i], stood, stands, *written);
    }
  }

  void check_box(const BoxInfo& box, const kv_jpx_box_extent& stood,
                 const kv_jpx_box_extent& stands, const Bytes& written) const {
    const auto is_same = [&](uint64_t from, uint64_t to, uint64_t length) {
      return std::equal(file_.begin() + static_cast<ptrdiff_t>(from),
                        file_.begin() + static_cast<ptrdiff_t>(from + length),
                        written.begin() + static_cast<ptrdiff_t>(to));
    };
    require((stands.flags & KV_JPX_BOX_LONG_HEADER) >= (stood.flags & KV_JPX_BOX_LONG_HEADER),
            "a 64-bit header stays one");
    require(stands.tail_length == stood.tail_length &&
                is_same(end_of(stood) - stood.tail_length, end_of(stands) - stands.tail_length,
                        stood.tail_length),
            "tails stay");
    // The offsets of fragments follow what they name.
    if ((stood.flags & KV_JPX_BOX_CHANGED) != 0 || box.is_container || box.type == code("flst")) {
      return;
    }
    require(stands.content_length == stood.content_length &&
                is_same(begin_of(stood), begin_of(stands), stood.content_length),
            "contents that were not touched stay");
    require((stood.flags & kUnfinished) != 0 ||
                (stands.header_length == stood.header_length &&
                 is_same(stood.offset, stands.offset, stood.header_length)),
            "headers that were not touched stay");
  }

  const KeptInput& input_;
  const Session& session_;
  const Bytes& file_;
  Input steps_;
  std::vector<Step> undo_;
  std::set<uint32_t> filled_;  // whose content was replaced; a tail may be new there
  bool is_undone_ = true;
};

}  // namespace

void check_kept_file(const Treatment& treatment, const Bytes& file) {
  check_load(KeptInput(file, treatment.source, treatment.failing_allocation), file);
  if (treatment.source != Source::kMemory) check_load(KeptInput(file, Source::kMemory, 0), file);
}

void check_kept_edits(const FileAndSteps& wish) {
  const Treatment& treatment = wish.treatment;
  const KeptInput input(wish.file, treatment.source, treatment.failing_allocation);
  if (input.is_alive()) Edits(input, wish.file, wish.step_input()).run();
}

}  // namespace kvjpx::fuzz
