// Every public function with every one of its allocations failing: the call answers 1, the context
// is spent but destroyable, and nothing leaks.

#include <functional>

#include "api/recording_codec.h"
#include "box/test_document.h"

namespace kvjpx::test {
namespace {

// Fails each allocation of the act in turn, which gives 1 if any of its calls does. The file is
// loaded before memory gets short. So many allocations are needless: the act succeeds without them.
void run(const std::string& name, const std::string& file,
         const std::function<int32_t(TestDocument&)>& act, size_t needless = 0) {
  const size_t descriptors = open_descriptors();
  constexpr size_t kEnough = 10'000;  // no act has so many
  size_t n = 0;
  for (bool has_failed = true; has_failed && n < kEnough;) {
    SCOPED_TRACE(name + " allocation " + std::to_string(++n));
    TestDocument document;
    EXPECT_EQ(file.empty() ? JPX_OK : document.load(file), JPX_OK);
    document.allocator().fail_at(n);
    const int32_t code = act(document);
    has_failed = document.allocator().has_failed();
    document.allocator().fail_at(0);
    EXPECT_TRUE(code == JPX_OK || (code == JPX_ERR_MEMORY && has_failed)) << code;
    if (!has_failed) break;
    if (code == JPX_OK) --needless;
    if (code == JPX_OK) continue;
    uint32_t type;
    EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), KV_JPX_ROOT, &type), JPX_ERR_NO_INPUT);
    EXPECT_EQ(document.load(signature_box()), JPX_ERR_MEMORY);
  }
  EXPECT_TRUE(n > 1 && n < kEnough) << name;
  EXPECT_EQ(needless, 0u) << name;
  EXPECT_EQ(open_descriptors(), descriptors) << name;
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
  run("memory", "", [&](auto& document) { return document.load(every_box()); });
  run("memory again", every_box(), [&](auto& document) { return document.load(every_box()); });
  run("file", "",
      [&](auto& document) { return kv_jpx_set_input_image_file(document.get(), file.path()); });
  run("mapped", "",
      [&](auto& document) { return kv_jpx_set_input_image_mapped(document.get(), file.path()); });
  EXPECT_EQ(mappings_of(file), 0u);
}

// All operations of one field in a row, on a box that was read or made.
int32_t use_field(TestDocument& document, uint32_t id, const kv_jpx_field_info& field) {
  kv_jpx_context* const context = document.get();
  const std::pair<uint64_t, uint64_t> settings[] = {{0, 3}, {0, 2}, {100, 1}, {1, 0}};
  uint64_t ignored;
  for (const auto& [index, value] : settings) {
    if (document.set(id, field.key, value, index) == JPX_ERR_MEMORY) return JPX_ERR_MEMORY;
    kv_jpx_get_box_field_int(context, id, field.key, index, &ignored);
    kv_jpx_get_box_field_count(context, id, field.key, &ignored, nullptr);
  }
  for (const uint64_t count : {1, 3, 2, 0, 3}) {
    const std::string data = pattern(field.width * count);
    void* block = nullptr;
    if (document.set_bytes(id, field.key, data, field.width) == JPX_ERR_MEMORY ||
        kv_jpx_get_box_field_buffer(context, id, field.key, nullptr, nullptr, &block) ==
            JPX_ERR_MEMORY) {
      return JPX_ERR_MEMORY;
    }
    if (block != nullptr && kv_jpx_free(context, block) != JPX_OK) return -1;
  }
  return JPX_OK;
}

TEST(FailingMemory, WhileFieldsAreUsed) {
  kv_jpx_field_info field = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &field) == JPX_OK; ++i) {
    const std::string type = field.box_type == 0 ? "none" : be32(field.box_type);
    const std::string name = type + '.' + field.name;
    const std::string read = in_parents(type, box(type, rule_of(type).payload));
    run("read " + name, "", [&](TestDocument& document) {
      const int32_t code = document.load(read);
      return code == JPX_OK ? use_field(document, document.find(type), field) : code;
    });
    // The blocks of a box go with it, not only with the context.
    run("made " + name, in_parents(type, box("lbl ")), [&](TestDocument& document) {
      const size_t blocks = document.allocator().live_blocks();
      uint32_t id;
      int32_t code =
          kv_jpx_add_box(document.get(), type_code(type), document.find("lbl "), kPlaceAfter, &id);
      if (code == JPX_OK) code = use_field(document, id, field);
      if (code == JPX_OK) {
        code = kv_jpx_delete_box(document.get(), id);
        EXPECT_EQ(document.allocator().live_blocks(), blocks);
      }
      return code;
    });
  }
}

TEST(FailingMemory, WhileTheFileIsDelivered) {
  const std::string file = every_box();
  const TempFile existing("old");
  void* data;
  uint64_t length;
  run("output", file, [&](TestDocument& document) {
    data = nullptr;
    return kv_jpx_get_output_image(document.get(), &data, &length);
  });
  run("file", file, [&](TestDocument& document) {
    return kv_jpx_get_output_image_file(document.get(), existing.path());
  });
  EXPECT_EQ(existing.contents(), TestDocument(file).written());
  const std::string pictures =
      box("jp2c", picture({2, 2, 1, 1})) + box("jp2c", picture({1, 1, 1, 2}));
  run("decoding", jp2_file() + pictures, [&](TestDocument& document) {
    data = nullptr;
    kv_jpx_set_output_type(document.get(), 68);  // PNG
    return kv_jpx_get_output_image(document.get(), &data, &length);
  });
  EXPECT_EQ(codec().instances + codec().blocks, 0);
  run("payload", file, [&](TestDocument& document) {
    data = nullptr;
    int32_t code = -1;
    captured_stdout([&] {
      code = kv_jpx_get_box_buffer(document.get(), document.find("jp2c"), &length, &data);
    });
    return code;
  });
}

TEST(FailingMemory, WhereEverythingIsKept) {
  const std::string bad = box("asoc", box("nlst", be32(1) + "?") + box("cref", box("free"))) +
                          box("ftbl", box("flst", be16(1) + be64(0) + be32(4) + be16(0))) + "tail";
  const TempFile file(bad + box("jp2c", pattern(100'000)));
  const TempFile target("old");
  run(
      "load, edit and write", "",
      [&](TestDocument& document) {
        kv_jpx_context* const context = document.get();
        kv_jpx_set_keep_everything(context, 1);
        int32_t code = document.load(bad);
        if (code == JPX_OK) code = kv_jpx_set_input_image_file(context, file.path());
        for (int round = 0; code == JPX_OK && round < 2; ++round) {
          void* data = nullptr;
          uint64_t length = 0;
          code = kv_jpx_append_box(context, type_code("nlst"), 0, nullptr);
          if (code == JPX_OK) code = kv_jpx_get_output_image(context, &data, &length);
          if (code == JPX_OK) code = kv_jpx_get_output_image_file(context, target.path());
        }
        return code;
      },
      3);  // of the search for fragment lists
  EXPECT_EQ(mappings_of(file), 0u);
}

}  // namespace
}  // namespace kvjpx::test
