// Scripts of boxes: field ranges and oddities, a line or two each.
//
// A case starts with the type of a box and its payload: bytes (see support/bytes.h), "*" for
// those of the type's sample, or "new" for a box that is made. Operations follow, on indented lines
// too:
//   KEY=N              a get gives the number N
//   KEY!C              it answers the code C
//   KEY:N              a set of N is taken
//   KEY:N!C            it answers C, with 3 changing nothing
//   KEY:=N             both: N is kept, in the field's low bytes
//   KEY#N, KEY#N/W     the count (and the width)
//   KEY#!C             its code
//   KEY<B, KEY<W/B     bytes are taken, in entries of W
//   KEY<B!C            they are answered by C
//   KEY>B              the bytes that the field holds
//   KEY>B!C            the same, got and counted in every way; C answers a buffer without its size
//   KEY%N/W!C          a buffer with room for N entries of W bytes is answered by C
//   =B, ~N             the payload as it is written, its length as the box tells it
//   +TYPE              a box is added into this one
// "^" says that the file is written as it was read; it is for kept ones.
// KEY may be a list, with an [index] for all; N may be a list where it is set. "@DATA" is the key
// of opaque payloads, "?" one that no box has.

#include <regex>
#include <sstream>

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

uint64_t number_of(const std::string& text) {
  if (text[0] == '\'') return type_code(text.substr(1, text.size() - 2));
  return strtoull(text.c_str(), nullptr, 0);
}

// The parts of a text between separators that stand outside of quotes.
std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  bool is_quoted = false;
  for (const char c : text) {
    if (c == '\'') is_quoted = !is_quoted;
    if (c != separator || is_quoted) {
      parts.back() += c;
    } else if (!parts.back().empty()) {
      parts.emplace_back();
    }
  }
  return parts;
}

kv_jpx_field_info field_of(const std::string& type, const std::string& name) {
  kv_jpx_field_info info = {0, 0, 0x12345678, "", 1, 0};
  if (name == "?") return info;
  const uint32_t box_type = name[0] == '@' ? 0 : type_code(type);
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    if (info.box_type == box_type && info.name == name.substr(name[0] == '@')) return info;
  }
  ADD_FAILURE() << "no field " << name;
  return info;
}

class ScriptedBox : public BoxUnderTest {
 public:
  using BoxUnderTest::BoxUnderTest;

  void run(const std::string& type, const std::string& operation) {
    SCOPED_TRACE(operation);
    static const std::regex kForm(
        R"(([\w@?,]*)(?:\[([^\]]+)\])?(:=|[:=!#<>%~+^])(.*?)(?:!(\d+))?)");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(operation, parts, kForm));
    const std::string operand = parts[4];
    const int32_t code = parts[5].matched ? std::stoi(parts[5]) : JPX_OK;
    const std::string action = parts[3];
    if (parts[1].length() != 0) {
      const uint64_t index = parts[2].matched ? number_of(parts[2]) : 0;
      for (const std::string& key : split(parts[1], ',')) {
        use_field(field_of(type, key), index, action, operand, code);
      }
    } else if (action == "^") {
      EXPECT_EQ(written(), original);
    } else if (action == "+") {
      add(operand.substr(1, 4), id);
    } else if (action == "~") {
      EXPECT_EQ(content_length(), number_of(operand));
    } else {
      EXPECT_EQ(content(), bytes_of(operand));
    }
  }

  std::string original;  // the file as it was read

 private:
  void use_field(const kv_jpx_field_info& field, uint64_t index, const std::string& action,
                 const std::string& operand, int32_t code) {
    const std::vector<std::string> parts = split(operand, '/');
    if (action == "=") {
      EXPECT_EQ(value(id, field.key, index), number_of(operand));
    } else if (action == "!") {
      EXPECT_EQ(get_code(id, field.key, index), std::stoi(operand));
    } else if (action == "#") {
      uint64_t count = 0;
      uint32_t width = 0;
      EXPECT_EQ(kv_jpx_get_box_field_count(get(), id, field.key, &count, &width), code);
      EXPECT_TRUE(code != JPX_OK || count == number_of(parts[0])) << count;
      EXPECT_TRUE(parts.size() == 1 || width == number_of(parts[1])) << width;
    } else if (action == ">") {
      EXPECT_EQ(field_bytes(id, field.key), bytes_of(operand));
      if (code != JPX_OK) get_in_every_way(field, bytes_of(operand), code);
    } else if (action == "%") {
      expect_offer(field, number_of(parts[0]), number_of(parts[1]), code,
                   field_bytes(id, field.key));
    } else if (action == "<") {
      const size_t width = parts.size() == 1 ? field.width : number_of(parts[0]);
      const std::string bytes = bytes_of(parts.back());
      EXPECT_EQ(set_bytes(id, field.key, bytes, static_cast<uint32_t>(width)), code);
      if (code != JPX_OK) return;
      const size_t blocks = allocator().live_blocks();
      EXPECT_EQ(set_bytes(id, field.key, bytes, static_cast<uint32_t>(width)), JPX_OK);
      EXPECT_EQ(allocator().live_blocks(), blocks) << "the copy before is released";
    } else {
      for (const std::string& number : split(operand, ',')) {
        uint64_t before = 0, after = 0;
        kv_jpx_get_box_field_int(get(), id, field.key, index, &before);
        EXPECT_EQ(set(id, field.key, number_of(number), index), code) << number;
        kv_jpx_get_box_field_int(get(), id, field.key, index, &after);
        const uint64_t low_bytes = ~uint64_t{0} >> (field.width < 8 ? 64 - 8 * field.width : 0);
        EXPECT_TRUE(action != ":=" || after == (number_of(number) & low_bytes))
            << number << " became " << after;
        EXPECT_TRUE(code != JPX_ERR_INVALID_ARGUMENT || after == before) << number;
      }
    }
  }

  int32_t get_buffer(const kv_jpx_field_info& field, uint64_t* count, uint32_t* width,
                     void** data) {
    return kv_jpx_get_box_field_buffer(get(), id, field.key, count, width, data);
  }
  void expect_offer(const kv_jpx_field_info& field, uint64_t room, uint32_t width, int32_t code,
                    const std::string& bytes) {
    std::string buffer(bytes.size() + 100, '#');
    const std::string untouched = buffer;
    void* data = buffer.data();
    EXPECT_EQ(get_buffer(field, &room, &width, &data), code);
    // A vendor's UUID is counted as one entry and got as 16.
    const uint32_t got_width = field.key == JPX_FIELD_COLR_UUID ? 1 : field.width;
    EXPECT_EQ(std::make_pair(room, width), std::make_pair(bytes.size() / got_width, got_width));
    EXPECT_EQ(buffer, code == JPX_OK ? bytes + untouched.substr(bytes.size()) : untouched);
  }
  void get_in_every_way(const kv_jpx_field_info& field, const std::string& bytes, int32_t code) {
    uint64_t count = bytes.size() / field.width;
    uint32_t width = field.width;
    const std::pair<uint64_t, uint32_t> too_small[] = {{bytes.size() - 1, 1}, {count, 0}, {0, 16}};
    for (const auto& [room, size] : too_small) expect_offer(field, room, size, 5, bytes);
    expect_offer(field, count, width, JPX_OK, bytes);
    void* data = &width;
    EXPECT_EQ(get_buffer(field, nullptr, &width, &data), code);
    EXPECT_EQ(get_buffer(field, &count, nullptr, &data), code);
    EXPECT_EQ(get_buffer(field, &count, &width, nullptr), JPX_ERR_INVALID_ARGUMENT);
    EXPECT_NE(kv_jpx_set_box_field_buffer(get(), id, field.key, count, width, nullptr), JPX_OK);
    use_field(field, 0, "#", std::to_string(count) + '/' + std::to_string(width), JPX_OK);
    const uint32_t wide = code == JPX_ERR_INVALID_ARGUMENT ? 4 : width;  // payloads take any
    const uint64_t wraps = ~uint64_t{0} / wide + 1;
    EXPECT_TRUE(wide == 1 ||
                kv_jpx_set_box_field_buffer(get(), id, field.key, wraps, wide, "x") != JPX_OK);
  }
};

class BoxScript : public ::testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Scripts, BoxScript, ::testing::Values("fields", "quirks", "kept"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(BoxScript, Holds) {
  std::istringstream script(file_contents(std::string("tests/boxes/") + GetParam() + ".script"));
  const bool is_kept = GetParam() == std::string("kept");
  const std::string depths = bytes_of("[jp2h[bpcc070F0B]]");
  std::string type;
  std::unique_ptr<ScriptedBox> box;
  std::string line;
  for (int number = 1; std::getline(script, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    SCOPED_TRACE(std::string(GetParam()) + ".script:" + std::to_string(number));
    std::vector<std::string> words = split(line.substr(line.find_first_not_of(' ')), ' ');
    if (line[0] != ' ') {
      type = (words[0] + "  ").substr(0, 4);
      if (words[1] == "new") {
        box = std::make_unique<ScriptedBox>(type);
      } else {
        const std::string payload = words[1] == "*" ? rule_of(type).payload : bytes_of(words[1]);
        box = std::make_unique<ScriptedBox>(type, payload, is_kept,
                                            is_kept && type == "opct" ? depths : "");
        box->original = is_kept ? box->written() : "";
      }
      words.erase(words.begin(), words.begin() + 2);
    }
    for (const std::string& word : words) box->run(type, word);
  }
}

}  // namespace
}  // namespace kvjpx::test
