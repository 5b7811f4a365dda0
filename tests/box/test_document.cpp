// Loaded files under test (see test_document.h).
#include "box/test_document.h"

#include <fstream>
#include <iterator>

#include "box/super.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

const Box* first_child_of(const Box* box) {
  return box->kind == kSuper ? static_cast<const SuperBox*>(box)->first_child : nullptr;
}

std::string tree_below(const Box* parent) {
  std::string result;
  for (const Box* child = first_child_of(parent); child != nullptr; child = child->next) {
    if (!result.empty()) result += ',';
    result += be32(child->type);
    if (child->kind == kSuper) result += '(' + tree_below(child) + ')';
  }
  return result;
}

const Box* find_below(const Box* parent, uint32_t type, int& nth) {
  for (const Box* child = first_child_of(parent); child != nullptr; child = child->next) {
    if (child->type == type && nth-- == 0) return child;
    if (const Box* const deeper = find_below(child, type, nth)) return deeper;
  }
  return nullptr;
}

}  // namespace

std::string TestDocument::tree() { return tree_below(get()->root); }

uint32_t TestDocument::find(std::string_view type, int nth) {
  const Box* const found = find_below(get()->root, type_code(type), nth);
  return found != nullptr ? found->id : KV_JPX_ROOT;
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

std::string TestDocument::take(void* block, uint64_t length) {
  if (block == nullptr) return {};
  std::string result(static_cast<char*>(block), length);
  EXPECT_EQ(kv_jpx_free(get(), block), JPX_OK);
  return result;
}

std::string TestDocument::field_bytes(uint32_t id, uint32_t key) {
  uint64_t count = 0;
  uint32_t element_size = 0;
  void* data = nullptr;
  EXPECT_EQ(kv_jpx_get_box_field_buffer(get(), id, key, &count, &element_size, &data), JPX_OK);
  return take(data, count * element_size);
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
  const auto render = [&] {
    Stream* const writer = bs_writer_to_buffer(env(), buffer.data(), buffer.size());
    box->render(box, env(), writer);
    bs_writer_get_buffer(env(), writer, &length);
    bs_destroy(env(), writer);
    JPX_SafeFreeInternal(env(), writer);
  };
  EXPECT_EQ(raised(env(), render), 0);
  return buffer.substr(0, length);
}

std::string TestDocument::printed(uint32_t id) {
  return captured_stdout([&] { EXPECT_EQ(kv_jpx_print_box(get(), id), JPX_OK); });
}

std::string TestDocument::written() {
  void* data = nullptr;
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(get(), &data, &length), JPX_OK);
  return take(data, length);
}

std::string file_contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace kvjpx::test
