// Fuzzer: field operations on the boxes of a file, and on one fresh box of every type. The input is
// a file and steps (see steps.h); a step is an operation, a box, a field and what the operation
// needs.
#include "box/registry.h"
#include "steps.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

constexpr int kMaxSteps = 100;

using Fields = std::vector<kv_jpx_field_info>;

const Fields& all_fields() {
  static const Fields fields = [] {
    Fields result;
    kv_jpx_field_info info = {};
    for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) result.push_back(info);
    return result;
  }();
  return fields;
}

// The first box of a type that a parent is looked for; small numbers stand for any parent.
bool find_parent(const Session& session, uint32_t type, uint32_t* id) {
  *id = KV_JPX_ROOT;
  return type <= 2 || type == KV_JPX_ROOT ||
         kv_jpx_get_next_box_id_by_type(session.get(), type, 0, id) == JPX_OK;
}

// One box of every type, so that no field waits for a file with its box. Parents stand in front of
// their children in the registry.
void add_one_of_each(const Session& session) {
  for (const BoxType& type : all_box_types()) {
    for (const uint32_t parent : type.parents) {
      uint32_t id;
      if (parent != 0 && find_parent(session, parent, &id) &&
          session.judged(kv_jpx_add_box(session.get(), type.code, id, 2, nullptr)) == JPX_OK) {
        break;
      }
    }
  }
}

class Operations {
 public:
  Operations(const Session& session, Input steps, const BoxInfo& box)
      : session_(session), steps_(steps), box_(box) {
    const size_t choice = steps_.byte();
    Fields own;
    for (const kv_jpx_field_info& field : all_fields()) {
      if (field.box_type == box.type || field.box_type == 0) own.push_back(field);
    }
    field_ = choice < 240 ? own[choice % own.size()] : all_fields()[choice % all_fields().size()];
    if (choice == 255) field_.key = static_cast<uint32_t>(steps_.number(4));
  }

  // Returns what is left of the steps.
  Input run(uint8_t operation) {
    constexpr void (Operations::*kAll[])() = {
        &Operations::set_integer, &Operations::set_integer, &Operations::get_integer,
        &Operations::count,       &Operations::set_buffer,  &Operations::set_wrong_buffer,
        &Operations::get_buffer,  &Operations::fill_buffer, &Operations::get_payload,
        &Operations::print};
    (this->*kAll[operation % std::size(kAll)])();
    return steps_;
  }

 private:
  kv_jpx_context* context() const { return session_.get(); }

  void get_integer() {
    uint64_t value;
    session_.judged(
        kv_jpx_get_box_field_int(context(), box_.id, field_.key, steps_.any_number(), &value));
  }

  void set_integer() {
    const uint64_t index = steps_.any_number();
    session_.judged(
        kv_jpx_set_box_field_int(context(), box_.id, field_.key, index, steps_.any_number()));
  }

  void count() {
    uint64_t count;
    uint32_t size;
    session_.judged(kv_jpx_get_box_field_count(context(), box_.id, field_.key, &count, &size));
  }

  void set_buffer() {
    const uint64_t count = steps_.byte();
    const uint32_t choice = steps_.byte();
    const uint32_t size = choice < 224 ? field_.width : choice - 224;
    Bytes data = steps_.bytes(count * size);
    data.resize(count * size);
    session_.judged(
        kv_jpx_set_box_field_buffer(context(), box_.id, field_.key, count, size, data.data()));
  }

  // Bytes without a source, and sizes that overflow.
  void set_wrong_buffer() {
    const uint64_t count = steps_.number(8) | uint64_t{1} << 63;
    const int32_t code = session_.judged(
        kv_jpx_set_box_field_buffer(context(), box_.id, field_.key, count, field_.width, nullptr));
    require(code != JPX_OK, "bytes without a source are refused");
  }

  void get_buffer() {
    uint64_t count = 0;
    uint32_t size = 0;
    void* data = nullptr;
    const int32_t code = session_.judged(
        kv_jpx_get_box_field_buffer(context(), box_.id, field_.key, &count, &size, &data));
    if (code == JPX_OK) read_and_free(data, count * size);
  }

  void fill_buffer() {
    uint64_t count = steps_.byte();
    uint32_t size = steps_.byte() % 17;
    const uint8_t missing = steps_.byte();
    Bytes room(count * size + 1);  // one more, as an empty vector has no address to give
    void* data = room.data();
    session_.judged(kv_jpx_get_box_field_buffer(
        context(), box_.id, field_.key, missing % 8 == 1 ? nullptr : &count,
        missing % 8 == 2 ? nullptr : &size, missing % 8 == 3 ? nullptr : &data));
  }

  void get_payload() {
    uint64_t length = 0;
    void* data = nullptr;
    const int32_t code = session_.judged(kv_jpx_get_box_buffer(context(), box_.id, &length, &data));
    if (code == JPX_OK) read_and_free(data, length);
  }

  void print() { session_.judged(kv_jpx_print_box(context(), box_.id)); }

  void read_and_free(void* data, uint64_t size) {
    if (data == nullptr) {
      require(size == 0, "no block means no bytes");
      return;
    }
    const auto* const bytes = static_cast<const uint8_t*>(data);
    volatile uint8_t last = 0;
    for (uint64_t i = 0; i < size; ++i) last = bytes[i];
    static_cast<void>(last);
    require(kv_jpx_free(context(), data) == JPX_OK, "a block that was handed out can be freed");
  }

  const Session& session_;
  Input steps_;
  BoxInfo box_;
  kv_jpx_field_info field_;
};

// The written form of a tree with edited fields need not be loadable: fields take numbers that
// files may not have, and counts of 16 bits cannot tell the length of every list.
void check_after(const Session& session) {
  Box* const root = session.get()->root;
  const uint64_t length = root->box_length(root);
  void* data = nullptr;
  uint64_t written = 0;
  const int32_t code = session.judged(kv_jpx_get_output_image(session.get(), &data, &written));
  uint32_t palettes = 0;
  kv_jpx_get_box_count_by_type(session.get(), KV_JPX_TYPE('p', 'c', 'l', 'r'), &palettes);
  if (code != JPX_OK) {
    require(code == JPX_ERR_MEMORY || code == JPX_ERR_BUFFER_TOO_SMALL, "a tree can be rendered");
    return;
  }
  require(written == length || palettes != 0, "a tree renders to its own box_length");
  const auto* const bytes = static_cast<const uint8_t*>(data);
  constexpr uint64_t kQuick = 16384;
  if (written <= kQuick) check_file(Bytes(bytes, bytes + written));
}

void take_steps(const Session& session, Input steps) {
  if (session.judged(kv_jpx_get_box_count_by_type(session.get(), 0, nullptr)) != JPX_OK) return;
  const std::vector<BoxInfo> boxes = walk(session);
  for (int i = 0; i < kMaxSteps && !steps.is_empty(); ++i) {
    const uint8_t operation = steps.byte();
    const BoxInfo box = pick_box(steps, boxes);
    steps = Operations(session, steps, box).run(operation);
    if (session.get()->root == nullptr) return;  // an ending error
  }
  check_after(session);
}

}  // namespace

// The steps of a file that does not load are taken on fresh boxes alone.
void run(Input input) {
  const FileAndSteps wish = take_file_and_steps(input);
  Session probe;
  const bool is_loadable = probe.load(wish.file) == JPX_OK;
  Session session(wish.treatment.failing_allocation);
  if (session.get() == nullptr) return;
  if (session.load(is_loadable ? wish.file : Bytes()) != JPX_OK) return;
  add_one_of_each(session);
  take_steps(session, wish.step_input());
}

}  // namespace kvjpx::fuzz
