// A loaded file in the terms that tests of boxes think in.
#ifndef KVJPX_TESTS_BOX_TEST_DOCUMENT_H_
#define KVJPX_TESTS_BOX_TEST_DOCUMENT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "box/box.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/test_context.h"

namespace kvjpx::test {

constexpr int32_t kPlaceBefore = 0;
constexpr int32_t kPlaceAfter = 1;
constexpr int32_t kPlaceFirst = 2;

class TestDocument : public TestContext {
 public:
  TestDocument() = default;
  explicit TestDocument(const std::string& file, bool is_kept = false) {
    kv_jpx_set_keep_everything(get(), is_kept ? 1 : 0);
    EXPECT_EQ(load(file), JPX_OK);
  }

  // All boxes by type, children in parentheses: "jP  ,ftyp,jp2h(ihdr,colr)".
  std::string tree();

  // The first box of a type by identifier; KV_JPX_ROOT when there is none.
  uint32_t find(std::string_view type);

  // Adds a box that must be taken.
  uint32_t add(std::string_view type, uint32_t reference, int32_t placement = kPlaceFirst);

  // Fields. The codes that the functions without a code give are expected to be 0.
  int32_t set(uint32_t id, uint32_t key, uint64_t value, uint64_t index = 0) {
    return kv_jpx_set_box_field_int(get(), id, key, index, value);
  }
  int32_t get_code(uint32_t id, uint32_t key, uint64_t index = 0) {
    uint64_t ignored;
    return kv_jpx_get_box_field_int(get(), id, key, index, &ignored);
  }
  uint64_t value(uint32_t id, uint32_t key, uint64_t index = 0);
  std::string field_bytes(uint32_t id, uint32_t key);
  int32_t set_bytes(uint32_t id, uint32_t key, std::string_view data, uint32_t element_size = 1) {
    return kv_jpx_set_box_field_buffer(get(), id, key, data.size() / element_size, element_size,
                                       data.empty() ? nullptr : data.data());
  }

  // The contents of a block that the library handed out, which is freed; none for null.
  std::string take(void* block, uint64_t length);

  // The box record behind an identifier.
  Box* record(uint32_t id);

  // What the box's own render writes, and what its own length says of that.
  std::string content(uint32_t id);
  uint64_t content_length(uint32_t id) { return record(id)->length(record(id)); }

  std::string printed(uint32_t id);

  // The whole file, written to memory.
  std::string written();
};

// What the format promises of every box type that the library knows, and a small box of each.
constexpr char kInRoot[] = "";
constexpr char kAnywhere[] = "*";

struct TypeRule {
  std::string type;
  Kind kind;
  std::vector<std::string> parents;  // types of box that it may be made in
  std::string payload;               // a small one; repeating fields have two entries in it
};

const std::vector<TypeRule>& type_rules();
const TypeRule& rule_of(std::string_view type);

// The payload of a colr box with an enumerated space.
inline std::string enumerated(uint32_t space) { return bytes({1, 0, 0}) + be32(space); }

// Wraps a box of this type into the first parent that takes it, up to the root.
std::string in_parents(std::string_view type, const std::string& box);

// A file with one box of the type, in the first parent that takes it: read from a payload or, if
// there is none, added to the loaded parent.
class BoxUnderTest : public TestDocument {
 public:
  BoxUnderTest(std::string_view type, const std::string& payload, bool is_kept = false,
               const std::string& front = {})
      : TestDocument(front + in_parents(type, box(type, payload)), is_kept), id(find(type)) {}
  explicit BoxUnderTest(std::string_view type);

  std::string content() { return TestDocument::content(id); }
  uint64_t content_length() { return TestDocument::content_length(id); }
  std::string printed() { return TestDocument::printed(id); }

  const uint32_t id;
};

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_BOX_TEST_DOCUMENT_H_
