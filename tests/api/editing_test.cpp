// The public functions that walk, edit and print the tree.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "box/basic.h"
#include "box/test_document.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

constexpr uint32_t kUnknownId = 12345;

struct Query {
  const char* name;
  std::function<int32_t(kv_jpx_context*, uint32_t id, bool has_out)> call;
  int32_t without_out;  // answer to a null out for an unknown identifier
  int32_t unknown;
};

const std::vector<Query>& queries() {
  static uint32_t id_out;
  static uint8_t flag_out;
  static uint64_t wide_out;
  static void* block;
  static const std::vector<Query> result = {
      {"next_by_type",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_next_box_id_by_type(c, id, 0, has ? &id_out : nullptr);
       },
       0, 3},
      {"count_by_type",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_count_by_type(c, id, has ? &id_out : nullptr);
       },
       0, 0},
      {"type_by_id",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_type_by_id(c, id, has ? &id_out : nullptr);
       },
       0, 3},
      {"next", [](auto* c, uint32_t id, bool) { return kv_jpx_get_next_box_id(c, id, &id_out); }, 3,
       3},
      {"first_child",
       [](auto* c, uint32_t id, bool) { return kv_jpx_get_first_child_box_id(c, id, &id_out); }, 3,
       3},
      {"is_super", [](auto* c, uint32_t id, bool) { return kv_jpx_is_box_super(c, id, &flag_out); },
       3, 3},
      {"print", [](auto* c, uint32_t id, bool) { return kv_jpx_print_box(c, id); }, 3, 3},
      {"get_int",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_field_int(c, id, 1, 0, has ? &wide_out : nullptr);
       },
       3, 3},
      {"set_int",
       [](auto* c, uint32_t id, bool) { return kv_jpx_set_box_field_int(c, id, 1, 0, 0); }, 3, 3},
      {"count",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_field_count(c, id, 1, has ? &wide_out : nullptr, nullptr);
       },
       3, 3},
      {"set_buffer",
       [](auto* c, uint32_t id, bool) { return kv_jpx_set_box_field_buffer(c, id, 1, 1, 1, "x"); },
       3, 3},
      {"get_buffer",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_field_buffer(c, id, 1, nullptr, nullptr, has ? &block : nullptr);
       },
       3, 3},
      {"add",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_add_box(c, code("none"), id, kPlaceFirst, has ? &id_out : nullptr);
       },
       3, 3},
      {"delete", [](auto* c, uint32_t id, bool) { return kv_jpx_delete_box(c, id); }, 3, 3},
      {"box_buffer",
       [](auto* c, uint32_t id, bool has) {
         return kv_jpx_get_box_buffer(c, id, &wide_out, has ? &block : nullptr);
       },
       3, 3},
  };
  return result;
}

TEST(OrderOfChecks, IsContextInputNullOutLookUp) {
  TestDocument without_input;
  TestDocument loaded(jp2_file());
  TestContext spent;
  EXPECT_EQ(spent.load("short"), JPX_ERR_READ_PAST_END);
  for (const Query& query : queries()) {
    for (const bool has_out : {true, false}) {
      EXPECT_EQ(query.call(nullptr, 0, has_out), JPX_ERR_BAD_CONTEXT) << query.name;
      EXPECT_EQ(query.call(without_input.get(), 0, has_out), JPX_ERR_NO_INPUT) << query.name;
      EXPECT_EQ(query.call(spent.get(), 0, has_out), JPX_ERR_NO_INPUT) << query.name;
    }
    EXPECT_EQ(query.call(loaded.get(), kUnknownId, false), query.without_out) << query.name;
    EXPECT_EQ(query.call(loaded.get(), kUnknownId, true), query.unknown) << query.name;
  }
  uint64_t wrong_magic[64] = {1};
  EXPECT_EQ(kv_jpx_print_box(reinterpret_cast<kv_jpx_context*>(wrong_magic), 0), 2);
}

TEST(Walking, GoesFromFirstChildToNext) {
  TestDocument document(jp2_file(box("colr", bytes({1, 0, 0}) + be32(16)) +
                                 box("colr", bytes({1, 0, 0}) + be32(17))) +
                        box("asoc") + box("xml ", "<x/>"));
  uint32_t id = 99;
  EXPECT_EQ(kv_jpx_get_first_child_box_id(document.get(), KV_JPX_ROOT, &id), JPX_OK);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(kv_jpx_get_next_box_id(document.get(), document.find("xml "), &id), JPX_OK);
  EXPECT_EQ(id, KV_JPX_ROOT);
  for (const char* childless : {"asoc", "xml ", "ihdr"}) {
    EXPECT_EQ(kv_jpx_get_first_child_box_id(document.get(), document.find(childless), &id), 3);
  }
  uint8_t is_super = 0;
  EXPECT_EQ(kv_jpx_is_box_super(document.get(), KV_JPX_ROOT, &is_super), JPX_OK);
  EXPECT_EQ(is_super, 1);

  const auto next = [&](const char* type, uint32_t after) {
    uint32_t found = 0;
    const int32_t code =
        kv_jpx_get_next_box_id_by_type(document.get(), type_code(type), after, &found);
    return code == JPX_OK ? found : KV_JPX_ROOT;
  };
  EXPECT_EQ(next("colr", 0), document.find("colr"));
  EXPECT_EQ(next("colr", document.find("colr")), document.find("colr", 1));
  EXPECT_EQ(next("colr", document.find("colr", 1)), KV_JPX_ROOT);
  EXPECT_EQ(next("jP  ", 0), KV_JPX_ROOT) << "identifier 0 is reached by walking only";
  uint32_t count = 99;
  EXPECT_EQ(kv_jpx_get_box_count_by_type(document.get(), code("colr"), &count), JPX_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(kv_jpx_get_box_count_by_type(document.get(), code("pclr"), &count), JPX_OK);
  EXPECT_EQ(count, 0u);
}

TEST(Adding, PutsBoxesWhereItIsTold) {
  TestDocument document(box("aaaa") + box("asoc", box("bbbb")) + box("cccc"));
  const uint32_t asoc = document.find("asoc");
  const uint32_t last = document.find("cccc");
  EXPECT_EQ(document.add("dddd", asoc, kPlaceFirst), 4u);
  EXPECT_EQ(document.add("eeee", asoc, kPlaceBefore), 5u);
  EXPECT_EQ(document.add("ffff", asoc, kPlaceAfter), 6u);
  EXPECT_EQ(document.add("gggg", last, -7), 7u) << "any other placement is after";
  EXPECT_EQ(document.add("hhhh", document.find("bbbb"), 3), 8u);
  EXPECT_EQ(document.add("iiii", KV_JPX_ROOT, kPlaceFirst), 9u);
  EXPECT_EQ(document.tree(), "iiii,aaaa,eeee,asoc(dddd,bbbb,hhhh),ffff,cccc,gggg");
  std::string backwards;
  for (const Box* box = document.record(document.find("gggg")); box != nullptr;
       box = box->previous) {
    backwards += be32(box->type);
  }
  EXPECT_EQ(backwards, "ggggccccffffasoceeeeaaaaiiii");
  EXPECT_EQ(document.record(document.find("hhhh"))->parent, document.record(asoc));
  EXPECT_EQ(TestDocument(document.written()).tree(), document.tree());
}

TEST(Adding, RefusesImpossiblePlaces) {
  TestDocument document(jp2_file() + box("asoc", box("lbl ")));
  const auto add = [&](const char* type, uint32_t reference, int32_t placement) {
    return kv_jpx_add_box(document.get(), type_code(type), reference, placement, nullptr);
  };
  const std::string before = document.tree();
  EXPECT_EQ(add("none", 0, kPlaceBefore), 3) << "in front of a first child";
  EXPECT_EQ(add("none", document.find("lbl "), kPlaceBefore), 3);
  EXPECT_EQ(add("none", document.find("ihdr"), kPlaceFirst), 3) << "not a container";
  EXPECT_EQ(add("none", KV_JPX_ROOT, kPlaceBefore), 3);
  EXPECT_EQ(add("none", KV_JPX_ROOT, kPlaceAfter), 3);
  EXPECT_EQ(add("asoc", KV_JPX_ROOT, kPlaceAfter), 3);
  EXPECT_EQ(add("ihdr", document.find("ftyp"), kPlaceAfter), 6);
  EXPECT_EQ(document.tree(), before);
  EXPECT_EQ(document.add("ihdr", document.find("ihdr"), kPlaceAfter), 6u)
      << "the refused box used up no identifier";
}

TEST(Deleting, TakesTheSubtreeAndNeverReusesIdentifiers) {
  TestDocument document(box("aaaa") + box("asoc", box("bbbb") + box("asoc", box("cccc"))) +
                        box("dddd"));
  const uint32_t deep = document.find("cccc");
  uint32_t type;
  EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), deep, &type), JPX_OK);
  EXPECT_EQ(kv_jpx_delete_box(document.get(), document.find("asoc")), JPX_OK);
  for (const uint32_t gone : {1u, 2u, 3u, deep}) {
    EXPECT_EQ(kv_jpx_get_box_type_by_id(document.get(), gone, &type), 3);
  }
  EXPECT_EQ(document.tree(), "aaaa,dddd");
  EXPECT_EQ(kv_jpx_delete_box(document.get(), 0), JPX_OK);
  EXPECT_EQ(kv_jpx_delete_box(document.get(), 5), JPX_OK);
  EXPECT_EQ(document.tree(), "");
  EXPECT_EQ(document.add("eeee", KV_JPX_ROOT), 6u);
  EXPECT_EQ(kv_jpx_delete_box(document.get(), KV_JPX_ROOT), 3);
  EXPECT_EQ(document.written(), box("eeee"));
}

TEST(BoxBuffer, HandsOutOpaquePayloadsAndSaysSo) {
  TestDocument document(jp2_file() + box("xml ", "<x/>") + box("uuid", pattern(16) + "data") +
                        box("free"));
  void* data = nullptr;
  uint64_t length = 0;
  const auto fetch = [&](const char* type) {
    data = nullptr;
    return kv_jpx_get_box_buffer(document.get(), document.find(type), &length, &data);
  };
  const auto diagnostic = [&](const char* type) {
    const auto* box = static_cast<BasicBox*>(document.record(document.find(type)));
    return std::to_string(length) + ' ' + std::to_string(box->payload_offset) + ' ' +
           std::to_string(static_cast<int>(reinterpret_cast<uintptr_t>(box->source))) + ' ' +
           std::to_string(box->owns_stream) + '\n';
  };
  int32_t code = -1;
  std::string line = captured_stdout([&] { code = fetch("xml "); });
  EXPECT_EQ(code, JPX_OK);
  EXPECT_EQ(std::string(static_cast<char*>(data), length), "<x/>");
  EXPECT_EQ(line, diagnostic("xml "));
  EXPECT_EQ(line.substr(0, 5), "4 " + std::to_string(jp2_file().size() + 8).substr(0, 2) + ' ');
  EXPECT_EQ(kv_jpx_free(document.get(), data), JPX_OK);

  EXPECT_EQ(document.set_bytes(document.find("uuid"), JPX_FIELD_UUID_DATA, "its own"), JPX_OK);
  line = captured_stdout([&] { code = fetch("uuid"); });
  EXPECT_EQ(code, JPX_OK);
  EXPECT_EQ(std::string(static_cast<char*>(data), length), "its own");
  EXPECT_EQ(line, diagnostic("uuid"));
  EXPECT_EQ(kv_jpx_free(document.get(), data), JPX_OK);

  captured_stdout([&] { code = fetch("free"); });
  EXPECT_EQ(code, JPX_OK);
  EXPECT_EQ(length, 0u);
  for (const char* typed : {"ihdr", "jp2h", "jP  "}) EXPECT_EQ(fetch(typed), 4) << typed;
  EXPECT_EQ(kv_jpx_get_box_buffer(document.get(), 0, nullptr, &data), 3);
}

TEST(Printing, WritesOneBoxAndFlushes) {
  TestDocument document(jp2_file());
  EXPECT_EQ(document.printed(0), "jP   box length 12\n");
  // A descriptor of the test's own sees the text before the process ends.
  const TempFile sink;
  fflush(stdout);
  const int original = dup(1);
  FILE* const file = fopen(sink.path(), "wb");
  dup2(fileno(file), 1);
  EXPECT_EQ(kv_jpx_print_box(document.get(), 0), JPX_OK);
  const std::string flushed = sink.contents();
  dup2(original, 1);
  close(original);
  fclose(file);
  EXPECT_EQ(flushed, "jP   box length 12\n");
}

}  // namespace
}  // namespace kvjpx::test
