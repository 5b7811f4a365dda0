// Every public function with every one of its allocations failing: the call answers 1, the context
// is spent but destroyable, and nothing leaks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "boxes/box_types.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

using Act = std::function<int32_t(TestDocument&)>;

struct Scenario {
  std::string name;
  std::string file;  // loaded before memory gets short
  Act act;           // gives 1 if any of its calls does
  bool allocates = true;
};

// What a host sees of a context whose last call answered 1.
void expect_spent(TestDocument& document, const std::string& name) {
  uint32_t type;
  EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), KV_JPX_ROOT, &type), JPX_ERR_NO_INPUT)
      << name;
  EXPECT_EQ(document.load(signature_box()), JPX_ERR_MEMORY) << name;
  document.destroy();
  EXPECT_EQ(document.allocator().live_blocks(), 0u) << name;
}

// Fails the nth allocation of the scenario; false when it has fewer.
constexpr size_t kEnough = 10'000;  // no scenario has so many
bool fails_at(const Scenario& scenario, size_t n) {
  TestDocument document;
  EXPECT_LT(n, kEnough) << scenario.name;
  if (!scenario.file.empty()) {
    EXPECT_EQ(document.load(scenario.file), JPX_OK) << scenario.name;
  }
  document.allocator().fail_at(n);
  const int32_t code = scenario.act(document);
  const bool has_failed = document.allocator().has_failed();
  document.allocator().fail_at(0);
  EXPECT_EQ(code == JPX_ERR_MEMORY, has_failed) << scenario.name << " allocation " << n;
  if (has_failed) expect_spent(document, scenario.name);
  return has_failed && n < kEnough;
}

void run(const Scenario& scenario) {
  const size_t descriptors = open_descriptors();
  size_t failures = 0;
  while (fails_at(scenario, failures + 1)) ++failures;
  EXPECT_EQ(failures != 0, scenario.allocates) << scenario.name;
  EXPECT_EQ(open_descriptors(), descriptors) << scenario.name;
}

// 1 if any of the codes is, else 0: fields answer many things.
int32_t worst(std::initializer_list<int32_t> codes) {
  for (const int32_t code : codes) {
    if (code == JPX_ERR_MEMORY) return code;
  }
  return JPX_OK;
}

std::string every_box() {
  std::string result;
  for (const TypeRule& rule : type_rules()) {
    result += in_parents(rule.type, box(rule.type, rule.payload));
  }
  return result;
}

TEST(FailingMemory, WhileLoading) {
  const TempFile file(every_box());
  run({"memory", "", [&](auto& document) { return document.load(every_box()); }});
  run({"memory again", every_box(), [&](auto& document) { return document.load(every_box()); }});
  run({"file", "",
       [&](auto& document) { return kv_jpx_set_input_image_file(document.get(), file.path()); }});
  run({"mapped", "",
       [&](auto& document) { return kv_jpx_set_input_image_mapped(document.get(), file.path()); }});
  EXPECT_EQ(mappings_of(file), 0u);
}

// All operations of one field in a row, on a box that was read or made.
int32_t use_field(TestDocument& document, uint32_t id, const kv_jpx_field_info& field) {
  kv_jpx_context* const context = document.get();
  const std::pair<uint64_t, uint64_t> settings[] = {{0, 3}, {0, 2}, {100, 1}, {1, 0}};
  for (const auto& [index, value] : settings) {
    uint64_t ignored;
    const int32_t code =
        worst({kv_jpx_set_box_field_int(context, id, field.key, index, value),
               kv_jpx_get_box_field_int(context, id, field.key, index, &ignored),
               kv_jpx_get_box_field_count(context, id, field.key, &ignored, nullptr)});
    if (code != JPX_OK) return code;
  }
  for (const uint64_t count : {1, 3, 2, 0}) {
    const std::string data = pattern(16 * count);
    void* block = nullptr;
    const uint32_t width = field.key == JPX_FIELD_COLR_UUID ? 16 : field.width;
    int32_t code = kv_jpx_set_box_field_buffer(context, id, field.key, count, width, data.data());
    if (code == JPX_ERR_MEMORY) return code;
    code = kv_jpx_get_box_field_buffer(context, id, field.key, nullptr, nullptr, &block);
    if (code == JPX_ERR_MEMORY) return code;
    if (block != nullptr && kv_jpx_free(context, block) != JPX_OK) return -1;
  }
  return JPX_OK;
}

// Whether use_field on a small box of the type asks for memory: fields in storage of their own and
// the numbers that size it do.
bool needs_memory(const std::string& type, const kv_jpx_field_info& field) {
  const std::set<uint32_t> sizes = {JPX_FIELD_PCLR_NE,   JPX_FIELD_PCLR_NPC, JPX_FIELD_CDEF_N,
                                    JPX_FIELD_OPCT_OTyp, JPX_FIELD_OPCT_nch, JPX_FIELD_RREQ_NSF,
                                    JPX_FIELD_RREQ_NVF};
  if (type == "colr") return field.key == JPX_FIELD_COLR_ICC;  // the box holds a profile
  const bool can_be_set = (field.access & ~uint32_t{KV_JPX_FIELD_REPEATS}) != 0;
  const bool has_storage = (field.access & (KV_JPX_FIELD_BYTES | KV_JPX_FIELD_REPEATS)) != 0;
  return sizes.count(field.key) != 0 || (can_be_set && has_storage);
}

TEST(FailingMemory, WhileFieldsAreUsed) {
  kv_jpx_field_info field;
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    const std::string type = field.box_type == 0 ? "none" : be32(field.box_type);
    const std::string name = type + '.' + field.name;
    run({name, in_parents(type, box(type, rule_of(type).payload)),
         [&](TestDocument& document) { return use_field(document, document.find(type), field); },
         needs_memory(type, field)});
    run({"made " + name, in_parents(type, box("lbl ")), [&](TestDocument& document) {
           uint32_t id;
           const int32_t code = kv_jpx_add_box(document.get(), type_code(type),
                                               document.find("lbl "), kPlaceAfter, &id);
           return code == JPX_OK ? use_field(document, id, field) : code;
         }});
  }
}

TEST(FailingMemory, WhileColourMethodsAreUsed) {
  kv_jpx_field_info field;
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    if (field.box_type != code("colr")) continue;
    for (const std::string& payload : {bytes({1, 0, 0}) + be32(14), bytes({1, 0, 0}) + be32(19),
                                       bytes({3, 0, 0}) + "icc", bytes({4, 0, 0}) + pattern(20)}) {
      const Scenario scenario = {field.name, in_parents("colr", box("colr", payload)),
                                 [&](TestDocument& document) {
                                   return use_field(document, document.find("colr"), field);
                                 }};
      for (size_t n = 1; fails_at(scenario, n);) ++n;
    }
  }
}

TEST(FailingMemory, WhileBoxesAreAddedAndDeleted) {
  for (const TypeRule& rule : type_rules()) {
    const std::string neighbours = in_parents(rule.type, box("lbl "));
    run({"add " + rule.type, neighbours, [&](TestDocument& document) {
           uint32_t id;
           return kv_jpx_add_box(document.get(), type_code(rule.type), document.find("lbl "),
                                 kPlaceAfter, &id);
         }});
    run({"delete " + rule.type, in_parents(rule.type, box(rule.type, rule.payload)),
         [&](TestDocument& document) {
           return kv_jpx_delete_box(document.get(), document.find(rule.type));
         },
         false});
  }
}

TEST(FailingMemory, WhileTheFileIsDelivered) {
  const std::string file = every_box();
  const TempFile existing("old");
  const TempFile fresh;
  run({"output", file, [](TestDocument& document) {
         void* data = nullptr;
         uint64_t length;
         return kv_jpx_get_output_image(document.get(), &data, &length);
       }});
  run({"file", file, [&](TestDocument& document) {
         return kv_jpx_get_output_image_file(document.get(), existing.path());
       }});
  run({"new file", file, [&](TestDocument& document) {
         unlink(fresh.path());
         return kv_jpx_get_output_image_file(document.get(), fresh.path());
       }});
  EXPECT_EQ(existing.contents(), TestDocument(file).written());
  EXPECT_EQ(fresh.contents(), existing.contents());
  run({"payload", file, [](TestDocument& document) {
         void* data = nullptr;
         uint64_t length;
         int32_t code = JPX_OK;
         captured_stdout([&] {
           code = kv_jpx_get_box_buffer(document.get(), document.find("jp2c"), &length, &data);
         });
         return code;
       }});
}

TEST(FailingMemory, IsNoMatterForWhatNeedsNone) {
  constexpr uint32_t kUuid = code("uuid");
  const auto act = [](TestDocument& document) {
    uint32_t out;
    uint8_t flag;
    int32_t code = JPX_OK;
    captured_stdout([&] { code = kv_jpx_print_box(document.get(), KV_JPX_ROOT); });
    return worst(
        {code, kv_jpx_get_next_box_id_by_type(document.get(), kUuid, 0, &out),
         kv_jpx_get_box_count_by_type(document.get(), kUuid, &out),
         kv_jpx_get_next_box_id(document.get(), 0, &out),
         kv_jpx_get_first_child_box_id(document.get(), KV_JPX_ROOT, &out),
         kv_jpx_is_box_super(document.get(), 0, &flag), kv_jpx_set_output_type(document.get(), 74),
         kv_jpx_set_input_jpx_region_level(document.get(), 1, 2, 3, 4),
         kv_jpx_set_input_jpx_resolution_level(document.get(), 2, 1),
         kv_jpx_set_input_jpx_quality_level(document.get(), 2),
         kv_jpx_register_callbacks(document.get(), nullptr, nullptr, nullptr, nullptr, nullptr)});
  };
  run({"queries", every_box(), act, false});
}

}  // namespace
}  // namespace kvjpx::test
