// Fuzzer: adds and deletes boxes of a loaded file, then renders and reloads it. The input is a file
// and steps (see steps.h); a step is an operation, a box and what the operation needs. Then edits
// the file with everything kept, which can be undone.
#include <set>

#include "box/registry.h"
#include "kept.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

constexpr int kMaxSteps = 48;

class Editor {
 public:
  Editor(const Session& session, Input steps) : session_(session), steps_(steps) {
    boxes_ = walk(session_);
    for (const BoxInfo& box : boxes_) used_.insert(box.id);
  }

  // False when an ending error has taken the tree away.
  bool run() {
    for (int i = 0; i < kMaxSteps && !steps_.is_empty(); ++i) {
      const uint8_t operation = steps_.byte();
      const size_t expected = take_step(operation, pick_box(steps_, boxes_));
      if (session_.get()->root == nullptr) return false;
      boxes_ = walk(session_);
      require(boxes_.size() == expected, "as many boxes as were added come and deleted go");
    }
    return true;
  }

 private:
  // Returns how many boxes there must be now.
  size_t take_step(uint8_t operation, const BoxInfo& box) {
    if (operation % 8 < 4) return boxes_.size() + (adds(box) ? 1 : 0);
    if (operation % 8 < 6) return boxes_.size() - (removes(box) ? size_of(box) : 0);
    fill(box);
    return boxes_.size();
  }

  uint32_t pick_type() {
    const BoxTypes types = all_box_types();
    const uint8_t choice = steps_.byte();
    return choice < 240 ? types.rows[choice % types.count].code
                        : static_cast<uint32_t>(steps_.number(4));
  }

  bool adds(const BoxInfo& reference) {
    const uint32_t type = pick_type();
    const uint8_t choice = steps_.byte();
    const uint32_t place = choice % 32 == 31 ? KV_JPX_ROOT : reference.id;
    uint32_t id = KV_JPX_ROOT;
    const int32_t code =
        session_.judged(kv_jpx_add_box(session_.get(), type, place, choice % 4 - 1, &id));
    if (code != JPX_OK) return false;
    require(used_.insert(id).second, "an identifier is used once");
    return true;
  }

  bool removes(const BoxInfo& box) {
    const int32_t code = session_.judged(kv_jpx_delete_box(session_.get(), box.id));
    if (code != JPX_OK) return false;
    uint32_t type;
    require(kv_jpx_get_box_type_by_id(session_.get(), box.id, &type) == JPX_ERR_INVALID_ARGUMENT,
            "a deleted box is not found again");
    return true;
  }

  // The box itself and everything below it, which follow it in document order.
  size_t size_of(const BoxInfo& box) const {
    const auto first = std::find_if(boxes_.begin(), boxes_.end(),
                                    [&](const BoxInfo& each) { return each.id == box.id; });
    const auto last = std::find_if(first + 1, boxes_.end(),
                                   [&](const BoxInfo& each) { return each.depth <= box.depth; });
    return static_cast<size_t>(last - first);
  }

  void fill(const BoxInfo& box) {
    const Bytes data = steps_.bytes(steps_.byte());
    session_.judged(kv_jpx_set_box_field_buffer(session_.get(), box.id, JPX_FIELD_JP2C_DATA,
                                                data.size(), 1, data.data()));
  }

  const Session& session_;
  Input steps_;
  std::vector<BoxInfo> boxes_;
  std::set<uint32_t> used_;
};

void check_edits(const FileAndSteps& wish) {
  Session session(wish.treatment.failing_allocation);
  if (session.get() == nullptr) return;
  if (wish.treatment.source == Source::kMemory) {
    if (session.load(wish.file) != JPX_OK) return;
    if (Editor(session, wish.step_input()).run()) check_tree(session);
  } else {
    const DiskFile on_disk(wish.file);
    if (session.load(on_disk.path(), wish.treatment.source) != JPX_OK) return;
    if (Editor(session, wish.step_input()).run()) check_output_file(session, on_disk);
  }
}

}  // namespace

void run(Input input) {
  const FileAndSteps wish = take_file_and_steps(input);
  check_edits(wish);
  check_kept_edits(wish);
}

}  // namespace kvjpx::fuzz
