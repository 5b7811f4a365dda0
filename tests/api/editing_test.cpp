// The public functions that walk, edit and print the tree.

#include <cstring>
#include <random>

#include "box/basic.h"
#include "box/super.h"
#include "box/test_document.h"

namespace kvjpx::test {
namespace {

constexpr uint32_t kUnknownId = 12345;

// Where a query puts its answer; all null for a caller that gives no place.
struct Out {
  uint32_t* number;
  uint64_t* wide;
  void** block;
};

// A public function on a context; id is what it looks up, if it does.
struct Function {
  const char* name;
  int32_t (*call)(kv_jpx_context*, uint32_t id, const Out&);
  int32_t on_spent = JPX_ERR_NO_INPUT;
  int32_t unknown = 3;      // answer to an unknown identifier
  int32_t without_out = 3;  // the same, with nowhere to put the answer
};
constexpr int32_t kNoQuery = -1;  // as the answer of a function that looks nothing up

uint32_t id_out;
uint8_t flag_out;
uint64_t wide_out;
void* null_block;

// clang-format off
const Function kFunctions[] = {
    {"next_by_type", [](auto* c, auto id, auto& out) { return kv_jpx_get_next_box_id_by_type(c, id, 0, out.number); }, 8, 3, 0},
    {"count_by_type", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_count_by_type(c, id, out.number); }, 8, 0, 0},
    {"type_by_id", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_type_by_id(c, id, out.number); }, 8, 3, 0},
    {"next", [](auto* c, auto id, auto& out) { return kv_jpx_get_next_box_id(c, id, out.number); }},
    {"first_child", [](auto* c, auto id, auto& out) { return kv_jpx_get_first_child_box_id(c, id, out.number); }},
    {"is_super", [](auto* c, auto id, auto&) { return kv_jpx_is_box_super(c, id, &flag_out); }},
    {"print", [](auto* c, auto id, auto&) { return kv_jpx_print_box(c, id); }},
    {"get_int", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_field_int(c, id, 1, 0, out.wide); }},
    {"set_int", [](auto* c, auto id, auto&) { return kv_jpx_set_box_field_int(c, id, 1, 0, 0); }},
    {"count", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_field_count(c, id, 1, out.wide, nullptr); }},
    {"set_buffer", [](auto* c, auto id, auto&) { return kv_jpx_set_box_field_buffer(c, id, 1, 1, 1, "x"); }},
    {"get_buffer", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_field_buffer(c, id, 1, nullptr, nullptr, out.block); }},
    {"add", [](auto* c, auto id, auto& out) { return kv_jpx_add_box(c, code("none"), id, kPlaceFirst, out.number); }},
    {"delete", [](auto* c, auto id, auto&) { return kv_jpx_delete_box(c, id); }},
    {"box_buffer", [](auto* c, auto id, auto& out) { return kv_jpx_get_box_buffer(c, id, &wide_out, out.block); }},
    {"callbacks", [](auto* c, auto, auto&) { return kv_jpx_register_callbacks(c, c, c, c, c, c); }, JPX_OK, kNoQuery},
    {"free", [](auto* c, auto, auto&) { return kv_jpx_free(c, c); }, JPX_ERR_MEMORY, kNoQuery},
    {"region", [](auto* c, auto, auto&) { return kv_jpx_set_input_jpx_region_level(c, 1, 2, 3, 4); }, JPX_OK, kNoQuery},
    {"resolution", [](auto* c, auto, auto&) { return kv_jpx_set_input_jpx_resolution_level(c, 0, 0); }, 3, kNoQuery},
    {"quality", [](auto* c, auto, auto&) { return kv_jpx_set_input_jpx_quality_level(c, 0); }, 3, kNoQuery},
    {"input", [](auto* c, auto, auto&) { return kv_jpx_set_input_image(c, "", 0); }, JPX_ERR_MEMORY, kNoQuery},
    {"input_file", [](auto* c, auto, auto&) { return kv_jpx_set_input_image_file(c, "/dev/null"); }, JPX_ERR_MEMORY, kNoQuery},
    {"input_mapped", [](auto* c, auto, auto&) { return kv_jpx_set_input_image_mapped(c, "/dev/null"); }, JPX_ERR_MEMORY, kNoQuery},
    {"output_type", [](auto* c, auto, auto&) { return kv_jpx_set_output_type(c, 74); }, JPX_OK, kNoQuery},
    {"output", [](auto* c, auto, auto&) { return kv_jpx_get_output_image(c, &null_block, &wide_out); }, 8, kNoQuery},
    {"output_file", [](auto* c, auto, auto&) { return kv_jpx_get_output_image_file(c, "/none/file"); }, 8, kNoQuery},
};
// clang-format on

TEST(OrderOfChecks, IsContextInputNullOutLookUp) {
  CheckingAllocator allocator;
  allocator.keep_released();
  kv_jpx_context* spent = nullptr;
  kv_jpx_create_with_memory_manager(&spent, &allocator, CheckingAllocator::allocate,
                                    CheckingAllocator::release);
  EXPECT_EQ(kv_jpx_set_input_image(spent, "short", 5), JPX_ERR_READ_PAST_END);
  kv_jpx_context foreign;
  memset(&foreign, 0x5A, sizeof(foreign));
  TestDocument without_input;
  TestDocument loaded(jp2_file());
  void* block = nullptr;
  const Out out = {&id_out, &wide_out, &block};
  for (const Out& place : {out, Out{}}) {
    for (const Function& function : kFunctions) {
      EXPECT_EQ(function.call(spent, 0, place), function.on_spent) << function.name;
    }
  }
  EXPECT_EQ(kv_jpx_destroy(spent), JPX_OK);
  EXPECT_EQ(allocator.live_blocks(), 0u);
  for (const Function& function : kFunctions) {
    SCOPED_TRACE(function.name);
    for (const Out& place : {out, Out{}}) {
      for (kv_jpx_context* bad : {static_cast<kv_jpx_context*>(nullptr), &foreign, spent}) {
        EXPECT_EQ(function.call(bad, 0, place), JPX_ERR_BAD_CONTEXT);
        EXPECT_EQ(kv_jpx_destroy(bad), JPX_ERR_BAD_CONTEXT);
      }
      if (function.unknown == kNoQuery) continue;
      EXPECT_EQ(function.call(without_input.get(), 0, place), JPX_ERR_NO_INPUT);
      EXPECT_EQ(function.call(loaded.get(), kUnknownId, place),
                place.number != nullptr ? function.unknown : function.without_out);
    }
  }
}

TEST(Adding, PutsBoxesWhereItIsTold) {
  TestDocument document(box("aaaa") + box("asoc", box("bbbb")) + box("cccc"));
  const uint32_t asoc = document.find("asoc");
  EXPECT_EQ(document.add("dddd", asoc, kPlaceFirst), 4u);
  EXPECT_EQ(document.add("eeee", asoc, kPlaceBefore), 5u);
  EXPECT_EQ(document.add("ffff", asoc, kPlaceAfter), 6u);
  EXPECT_EQ(document.add("gggg", document.find("cccc"), -7), 7u) << "any other placement is after";
  EXPECT_EQ(document.add("hhhh", document.find("bbbb"), 3), 8u);
  EXPECT_EQ(document.add("iiii", KV_JPX_ROOT, kPlaceFirst), 9u);
  EXPECT_EQ(document.tree(), "iiii,aaaa,eeee,asoc(dddd,bbbb,hhhh),ffff,cccc,gggg");
}

TEST(Adding, RefusesImpossiblePlaces) {
  TestDocument document(jp2_file() + box("asoc", box("lbl ")));
  const auto add = [&](const char* type, uint32_t reference, int32_t placement) {
    return kv_jpx_add_box(document.get(), type_code(type), reference, placement, nullptr);
  };
  const std::string before = document.tree();
  EXPECT_EQ(add("none", 0, kPlaceBefore), 3) << "in front of a first child";
  EXPECT_EQ(add("none", document.find("ihdr"), kPlaceFirst), 3) << "not a container";
  EXPECT_EQ(add("asoc", KV_JPX_ROOT, kPlaceAfter), 3);
  EXPECT_EQ(add("ihdr", document.find("ftyp"), kPlaceAfter), 6);
  EXPECT_EQ(kv_jpx_delete_box(document.get(), KV_JPX_ROOT), 3);
  EXPECT_EQ(document.tree(), before);
  EXPECT_EQ(document.add("ihdr", document.find("ihdr"), kPlaceAfter), 6u)
      << "the refused box used up no identifier";
}

// Every answer is that of a search through the tree, whatever was done to it, by whom.
TEST(LookUp, AnswersWhatASearchOfTheTreeWould) {
  std::mt19937 random(1);
  const auto below = [&](size_t bound) { return static_cast<uint32_t>(random() % bound); };
  const char* const types[] = {"asoc", "aaaa", "bbbb"};
  TestDocument document(box("aaaa") + box("asoc", box("bbbb") + box("asoc", box("aaaa"))));
  Environment* const env = document.env();
  Box* const root = document.record(KV_JPX_ROOT);
  for (int step = 0; step < 4000 && !HasFailure(); ++step) {
    const uint32_t last = document.get()->next_id;
    Box* const picked = root->find_by_id(root, below(last + 1));
    const uint32_t action = below(10);
    if (action < 4 || picked == nullptr) {
      const bool is_after = picked != nullptr && picked->kind != kSuper;
      document.add(types[below(3)], picked != nullptr ? picked->id : KV_JPX_ROOT,
                   is_after ? kPlaceAfter : kPlaceFirst);
    } else if (action < 7) {
      kv_jpx_delete_box(document.get(), picked->id);
    } else if (action == 7) {
      picked->box_destroy(picked, env);
    } else if (picked->previous != nullptr && picked->next == nullptr) {
      // A last child moves behind the first of its siblings, or for good.
      Box* const first = static_cast<SuperBox*>(picked->parent)->first_child;
      jpx_remove_box(picked);
      if (action == 8 && picked->kind != kSuper) {
        JPX_SafeFreeInternal(env, picked);
      } else if (first->next == nullptr) {
        jpx_insert_box(picked, first);
      } else {
        picked->next = picked->previous = nullptr;
        picked->parent = nullptr;
        picked->box_destroy(picked, env);
      }
    }
    for (int look = 0; look < 3; ++look) {
      const uint32_t id = below(last + 2);
      const uint32_t type = below(8) == 0 ? KV_JPX_ROOT : type_code(types[below(3)]);
      uint32_t found = 0;
      const Box* box = root->find_by_id(root, id);
      EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), id, &found), box != nullptr ? JPX_OK : 3);
      EXPECT_TRUE(box == nullptr || found == box->type);
      box = root->find_by_type(root, type, id);
      EXPECT_EQ(kv_jpx_get_next_box_id_by_type(document.get(), type, id, &found),
                box != nullptr ? JPX_OK : 3);
      EXPECT_TRUE(box == nullptr || found == box->id);
      EXPECT_EQ(kv_jpx_get_box_count_by_type(document.get(), type, &found), JPX_OK);
      EXPECT_EQ(found, jpx_count_boxes_of_type(root, type));
    }
  }
  // A second box with an identifier that is taken.
  const uint32_t taken = document.add("aaaa", KV_JPX_ROOT);
  jpx_insert_box(jpx_make_unknown_box(env, type_code("twin"), root, taken), document.record(taken));
  uint32_t type = 0;
  EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), taken, &type), JPX_OK);
  EXPECT_EQ(type, type_code("aaaa"));
  EXPECT_EQ(kv_jpx_get_next_box_id_by_type(document.get(), type_code("twin"), taken - 1, &type), 0);
  // A tree that ends does not trust what was known before either.
  TestDocument ending(box("aaaa") + box("bbbb"));
  Box* const gone = ending.record(0);
  gone->box_destroy(gone, ending.env());
}

// The fetch prints where the payload lies.
TEST(BoxBuffer, HandsOutOpaquePayloadsAndSaysSo) {
  TestDocument document(jp2_file() + box("xml ", "<x/>") + box("uuid", pattern(16) + "data") +
                        box("free"));
  EXPECT_EQ(document.set_bytes(document.find("uuid"), JPX_FIELD_UUID_DATA, "its own"), JPX_OK);
  uint64_t length = 0;
  void* data = nullptr;
  for (const auto& [type, payload] :
       {std::pair{"xml ", "<x/>"}, {"uuid", "its own"}, {"free", ""}}) {
    const uint32_t id = document.find(type);
    data = nullptr;
    const std::string line = captured_stdout(
        [&] { EXPECT_EQ(kv_jpx_get_box_buffer(document.get(), id, &length, &data), JPX_OK); });
    EXPECT_EQ(document.take(data, length), payload);
    const auto* const box = static_cast<BasicBox*>(document.record(id));
    const auto source = static_cast<int>(reinterpret_cast<uintptr_t>(box->source));
    EXPECT_EQ(line, std::to_string(strlen(payload)) + ' ' + std::to_string(box->payload_offset) +
                        ' ' + std::to_string(source) + ' ' + std::to_string(box->owns_stream) +
                        '\n');
  }
  for (const char* typed : {"ihdr", "jp2h", "jP  "}) {
    EXPECT_EQ(kv_jpx_get_box_buffer(document.get(), document.find(typed), &length, &data), 4);
  }
  EXPECT_EQ(kv_jpx_get_box_buffer(document.get(), 0, nullptr, &data), 3);
}

}  // namespace
}  // namespace kvjpx::test
