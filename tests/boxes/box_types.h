// What the format promises of every box type that the library knows, and a small box of each.
#ifndef KVJPX_TESTS_BOXES_BOX_TYPES_H_
#define KVJPX_TESTS_BOXES_BOX_TYPES_H_

#include <string>
#include <string_view>
#include <vector>

#include "box/test_document.h"

namespace kvjpx::test {

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
  BoxUnderTest(std::string_view type, const std::string& payload)
      : TestDocument(in_parents(type, box(type, payload))), id(find(type)) {}
  explicit BoxUnderTest(std::string_view type);

  int32_t set(uint32_t key, uint64_t value, uint64_t index = 0) {
    return TestDocument::set(id, key, value, index);
  }
  int32_t get_code(uint32_t key, uint64_t index = 0) {
    return TestDocument::get_code(id, key, index);
  }
  uint64_t value(uint32_t key, uint64_t index = 0) { return TestDocument::value(id, key, index); }
  uint64_t count(uint32_t key) { return TestDocument::count(id, key).first; }
  std::string field_bytes(uint32_t key) { return TestDocument::field_bytes(id, key); }
  int32_t set_bytes(uint32_t key, std::string_view data, uint32_t element_size = 1) {
    return TestDocument::set_bytes(id, key, data, element_size);
  }
  std::string content() { return TestDocument::content(id); }
  uint64_t content_length() { return TestDocument::content_length(id); }
  // The content once the field, which must take it, has the value.
  std::string content_after(uint32_t key, uint64_t value, uint64_t index = 0) {
    EXPECT_EQ(set(key, value, index), JPX_OK);
    return content();
  }
  std::string printed() { return TestDocument::printed(id); }

  const uint32_t id;
};

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_BOXES_BOX_TYPES_H_
