// Fuzzer: one box reader by itself. The input's first byte chooses the reader, the second the type
// of the parent, the third the type that the box gets and its read limit; two bytes are the number
// of the allocation that fails; the rest is the payload.
#include "box/registry.h"
#include "box/super.h"
#include "session.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

struct Choice {
  ReadFn* read;
  uint32_t type;
  uint32_t parent_type;  // 0: no parent
  uint64_t limit;
  size_t failing_allocation;
};

BoxType pick_type(uint8_t choice) {
  const BoxTypes types = all_box_types();
  if (choice % (types.count + 1) < types.count) return types.rows[choice % (types.count + 1)];
  return {code("????"),         kBasic,  jpx_read_unknown_box,
          jpx_make_unknown_box, nullptr, nullptr,
          Misplaced::kTaken,    true,    {}};
}

// Half of the parents are one that the box may stand in.
uint32_t pick_parent(uint8_t choice, const BoxType& type) {
  if (choice == 255) return 0;
  if (choice % 2 == 0) {
    const uint32_t parent = type.parents[choice / 2 % kMaxParents];
    return parent > 2 ? parent : kRoot;  // small numbers stand for any parent
  }
  return pick_type(choice / 2).code;
}

Choice take_choice(Input& input) {
  const BoxType type = pick_type(input.byte());
  Choice result = {type.read, type.code, pick_parent(input.byte(), type), 0, 0};
  const uint8_t odds = input.byte();
  if (odds >= 240) result.type = code("odd ");
  result.failing_allocation = input.number(2);
  result.limit = odds < 128 || odds >= 240 ? input.size() : input.size() / (odds - 126u);
  return result;
}

void use_fields(Box* box) {
  uint64_t value;
  uint32_t size;
  kv_jpx_field_info info = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    for (uint64_t index = 0; index < 3; ++index) box->get_int_field(box, info.key, index, &value);
    box->get_field_count(box, info.key, &value, &size);
  }
}

// Renders into exactly the room that the box asks for. A palette asks for another size than it
// takes, see session.cpp.
void render(Environment* env, Box* box) {
  const uint64_t length = box->box_length(box);
  if (length == 0) return;
  Stream* writer = bs_writer_to_buffer(env, allocate(env, length), length);
  box->box_render(box, env, writer);
  uint64_t written;
  uint8_t* bytes = bs_writer_get_buffer(env, writer, &written);
  release(env, bytes);
  require(written == length || jpx_count_boxes_of_type(box, code("pclr")) != 0,
          "a box renders to its own box_length");
  destroy_stream(env, writer);
}

Box* make_parent(Environment* env, uint32_t type, Box* root) {
  if (type == kRoot) return root;
  return type == 0 ? nullptr : jpx_make_super_box(env, type, root, 0);
}

void read_one(Environment* env, const Choice& choice, const uint8_t* payload, size_t size) {
  Stream* stream = bs_reader_from_buffer(env, payload, size);
  Box* const root = jpx_make_super_box(env, kRoot, nullptr, kRoot);
  Box* const parent = make_parent(env, choice.parent_type, root);
  uint32_t counter = 1;
  bs_push_read_limit(env, stream, choice.limit);
  Box* const box = choice.read(env, choice.type, stream, parent, &counter);
  bs_pop_read_limit(env, stream);
  if (box != nullptr) {
    require(box->id == 1 && box->parent == parent, "a box knows its place");
    box->print(box);
    use_fields(box);
    render(env, box);
    box->box_destroy(box, env);
  }
  destroy_stream(env, stream);
}

}  // namespace

void run(Input input) {
  const Choice choice = take_choice(input);
  Session session(choice.failing_allocation);
  if (session.get() == nullptr) return;
  Environment* const env = &session.get()->environment;
  const int code = raised(env, [&] { read_one(env, choice, input.data(), input.size()); });
  session.judged(code);
}

}  // namespace kvjpx::fuzz
