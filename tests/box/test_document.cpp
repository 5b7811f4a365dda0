// Loaded files under test (see test_document.h).
#include "box/test_document.h"

#include <fstream>
#include <sstream>

#include "support/files.h"

namespace kvjpx::test {
namespace {

std::string type_text(uint32_t type) { return be32(type); }

}  // namespace

uint32_t TestDocument::first_child(uint32_t id) {
  uint32_t child = KV_JPX_ROOT;
  kv_jpx_get_first_child_box_id(get(), id, &child);
  return child;
}

uint32_t TestDocument::next(uint32_t id) {
  uint32_t sibling = KV_JPX_ROOT;
  EXPECT_EQ(kv_jpx_get_next_box_id(get(), id, &sibling), JPX_OK);
  return sibling;
}

std::string TestDocument::tree_below(uint32_t id) {
  std::string result;
  for (uint32_t child = first_child(id); child != KV_JPX_ROOT; child = next(child)) {
    uint32_t type = 0;
    uint8_t is_super = 0;
    EXPECT_EQ(kv_jpx_get_box_type_by_id(get(), child, &type), JPX_OK);
    EXPECT_EQ(kv_jpx_is_box_super(get(), child, &is_super), JPX_OK);
    if (!result.empty()) result += ',';
    result += type_text(type);
    if (is_super != 0) result += '(' + tree_below(child) + ')';
  }
  return result;
}

uint32_t TestDocument::find_below(uint32_t id, std::string_view type, int& nth) {
  for (uint32_t child = first_child(id); child != KV_JPX_ROOT; child = next(child)) {
    uint32_t child_type = 0;
    kv_jpx_get_box_type_by_id(get(), child, &child_type);
    if (child_type == type_code(type) && nth-- == 0) return child;
    const uint32_t deeper = find_below(child, type, nth);
    if (deeper != KV_JPX_ROOT) return deeper;
  }
  return KV_JPX_ROOT;
}

uint32_t TestDocument::add(std::string_view type, uint32_t reference, int32_t placement) {
  uint32_t id = KV_JPX_ROOT;
  EXPECT_EQ(kv_jpx_add_box(get(), type_code(type), reference, placement, &id), JPX_OK) << type;
  return id;
}

uint64_t TestDocument::value(uint32_t id, uint32_t key, uint64_t index) {
  uint64_t result = 0;
  EXPECT_EQ(kv_jpx_get_box_field_int(get(), id, key, index, &result), JPX_OK) << "index " << index;
  return result;
}

std::pair<uint64_t, uint32_t> TestDocument::count(uint32_t id, uint32_t key) {
  std::pair<uint64_t, uint32_t> result;
  EXPECT_EQ(kv_jpx_get_box_field_count(get(), id, key, &result.first, &result.second), JPX_OK);
  return result;
}

std::string TestDocument::field_bytes(uint32_t id, uint32_t key) {
  uint64_t count = 0;
  uint32_t element_size = 0;
  void* data = nullptr;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(get(), id, key, &count, &element_size, &data), JPX_OK);
  if (data == nullptr) return {};
  std::string result(static_cast<char*>(data), count * element_size);
  EXPECT_EQ(kv_jpx_free(get(), data), JPX_OK);
  return result;
}

Box* TestDocument::record(uint32_t id) {
  Box* const box = get()->root->find_by_id(get()->root, id);
  EXPECT_NE(box, nullptr);
  return box;
}

std::string TestDocument::content(uint32_t id) {
  Box* const box = record(id);
  // Some boxes render more than their length says.
  std::string buffer(box->length(box) + 4096, '#');
  uint64_t length = 0;
  EXPECT_EQ(raised(env(),
                   [&] {
                     Stream* const writer =
                         bs_writer_to_buffer(env(), buffer.data(), buffer.size());
                     box->render(box, env(), writer);
                     bs_writer_get_buffer(env(), writer, &length);
                     bs_destroy(env(), writer);
                     JPX_SafeFreeInternal(env(), writer);
                   }),
            0);
  return buffer.substr(0, length);
}

std::string TestDocument::printed(uint32_t id) {
  return captured_stdout([&] { EXPECT_EQ(kv_jpx_print_box(get(), id), JPX_OK); });
}

std::string TestDocument::written() {
  void* data = nullptr;
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(get(), &data, &length), JPX_OK);
  if (data == nullptr) return {};
  std::string result(static_cast<char*>(data), length);
  EXPECT_EQ(kv_jpx_free(get(), data), JPX_OK);
  return result;
}

std::string file_contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

}  // namespace kvjpx::test
