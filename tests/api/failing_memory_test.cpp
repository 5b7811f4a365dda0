// Every public function with every one of its allocations failing: the call answers 1, the context
// is spent but destroyable, and nothing leaks.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "box/test_document.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

using Act = std::function<int32_t(TestDocument&)>;

struct Scenario {
  std::string name;
  std::string file;     // loaded before memory gets short
  Act act;              // gives 1 if any of its calls does
  size_t needless = 0;  // allocations that it succeeds without
};

// Fails the nth allocation of the scenario; false when it has fewer. Counts those that were
// needless.
constexpr size_t kEnough = 10'000;  // no scenario has so many
bool fails_at(const Scenario& scenario, size_t n, size_t* needless) {
  SCOPED_TRACE(scenario.name + " allocation " + std::to_string(n));
  TestDocument document;
  EXPECT_EQ(scenario.file.empty() ? JPX_OK : document.load(scenario.file), JPX_OK);
  document.allocator().fail_at(n);
  const int32_t code = scenario.act(document);
  const bool has_failed = document.allocator().has_failed();
  document.allocator().fail_at(0);
  EXPECT_TRUE(code == JPX_OK || (code == JPX_ERR_MEMORY && has_failed)) << code;
  EXPECT_LT(n, kEnough);
  if (!has_failed || n >= kEnough) return false;
  if (code == JPX_OK) ++*needless;
  if (code == JPX_OK) return true;
  // What a host sees of a context whose last call answered 1.
  uint32_t type;
  EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), KV_JPX_ROOT, &type), JPX_ERR_NO_INPUT);
  EXPECT_EQ(document.load(signature_box()), JPX_ERR_MEMORY);
  document.destroy();
  EXPECT_EQ(document.allocator().live_blocks(), 0u);
  return true;
}

void run(const Scenario& scenario) {
  const size_t descriptors = open_descriptors();
  size_t failures = 0;
  size_t needless = 0;
  while (fails_at(scenario, failures + 1, &needless)) ++failures;
  EXPECT_EQ(needless, scenario.needless) << scenario.name;
  EXPECT_NE(failures, 0u) << scenario.name;
  EXPECT_EQ(open_descriptors(), descriptors) << scenario.name;
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
  uint64_t ignored;
  for (const auto& [index, value] : settings) {
    const int32_t set_code = kv_jpx_set_box_field_int(context, id, field.key, index, value);
    if (set_code == JPX_ERR_MEMORY) return set_code;
    kv_jpx_get_box_field_int(context, id, field.key, index, &ignored);
    kv_jpx_get_box_field_count(context, id, field.key, &ignored, nullptr);
  }
  for (const uint64_t count : {1, 3, 2, 0, 3}) {
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

int32_t add_beside_label(TestDocument& document, const std::string& type, uint32_t* id) {
  return kv_jpx_add_box(document.get(), type_code(type), document.find("lbl "), kPlaceAfter, id);
}

TEST(FailingMemory, WhileFieldsAreUsed) {
  kv_jpx_field_info field = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    const std::string type = field.box_type == 0 ? "none" : be32(field.box_type);
    const std::string name = type + '.' + field.name;
    const std::string read = in_parents(type, box(type, rule_of(type).payload));
    run({"read " + name, "", [&](TestDocument& document) {
           const int32_t code = document.load(read);
           return code == JPX_OK ? use_field(document, document.find(type), field) : code;
         }});
    // The blocks of a box go with it, not only with the context.
    run({"made " + name, in_parents(type, box("lbl ")), [&](TestDocument& document) {
           const size_t blocks = document.allocator().live_blocks();
           uint32_t id;
           int32_t code = add_beside_label(document, type, &id);
           if (code == JPX_OK) code = use_field(document, id, field);
           if (code == JPX_OK) {
             code = kv_jpx_delete_box(document.get(), id);
             EXPECT_EQ(document.allocator().live_blocks(), blocks);
           }
           return code;
         }});
  }
}

TEST(FailingMemory, WhileBoxesAreAdded) {
  for (const TypeRule& rule : type_rules()) {
    run({"add " + rule.type, in_parents(rule.type, box("lbl ")),
         [&](TestDocument& document) { return add_beside_label(document, rule.type, nullptr); }});
  }
}

TEST(FailingMemory, WhileTheFileIsDelivered) {
  const std::string file = every_box();
  const TempFile existing("old");
  void* data;
  uint64_t length;
  run({"output", file, [&](TestDocument& document) {
         data = nullptr;
         return kv_jpx_get_output_image(document.get(), &data, &length);
       }});
  run({"file", file, [&](TestDocument& document) {
         return kv_jpx_get_output_image_file(document.get(), existing.path());
       }});
  EXPECT_EQ(existing.contents(), TestDocument(file).written());
  run({"payload", file, [&](TestDocument& document) {
         data = nullptr;
         int32_t code = -1;
         captured_stdout([&] {
           code = kv_jpx_get_box_buffer(document.get(), document.find("jp2c"), &length, &data);
         });
         return code;
       }});
}

TEST(FailingMemory, WhereEverythingIsKept) {
  const std::string bad = box("asoc", box("nlst", be32(1) + "?") + box("cref", box("free"))) +
                          box("ftbl", box("flst", be16(1) + be64(0) + be32(4) + be16(0))) + "tail";
  const TempFile file(bad + box("jp2c", pattern(100'000)));
  const TempFile target("old");
  run({"load, edit and write", "",
       [&](TestDocument& document) {
         kv_jpx_context* const context = document.get();
         kv_jpx_set_keep_everything(context, 1);
         int32_t code = document.load(bad);
         if (code == JPX_OK) code = kv_jpx_set_input_image_file(context, file.path());
         for (int round = 0; code == JPX_OK && round < 2; ++round) {
           void* data = nullptr;
           uint64_t length = 0;
           code = kv_jpx_append_box(context, type_code("nlst"), 0, nullptr);
           if (code == JPX_OK) code = kv_jpx_set_box_content(context, 1, "unread", 6);
           if (code == JPX_OK) code = kv_jpx_move_box(context, 1, 0, KV_JPX_PLACE_LAST_CHILD);
           if (code == JPX_OK) code = kv_jpx_get_output_image(context, &data, &length);
           if (code == JPX_OK) code = kv_jpx_get_output_image_file(context, target.path());
         }
         return code;
       },
       3});  // of the search for fragment lists
  EXPECT_EQ(mappings_of(file), 0u);
}

}  // namespace
}  // namespace kvjpx::test
