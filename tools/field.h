// Fields of boxes, addressed as "PATH.FIELD" or "PATH.FIELD[i]".
#ifndef KVJPX_TOOLS_FIELD_H_
#define KVJPX_TOOLS_FIELD_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "facts.h"
#include "failure.h"
#include "opened_file.h"

namespace kvjpx_tool {

// The bytes that "@FILE", "hex:..." or "text:..." stand for; nothing for any other value.
std::optional<std::string> parse_bytes(const std::string& value, const std::string& place);

class Field {
 public:
  // Finds what `address` names. Throws a Failure with kNoSuchPlace.
  static Field find(const OpenedFile& file, const std::string& address);
  // All fields that a box has in its present state and that can be read.
  static std::vector<Field> all_of(const OpenedFile& file, kvjpx::box box);

  std::string name() const { return info_.name; }

  // The value: numbers in decimal, types as 'jp2 ', texts as they are and other bytes in
  // hexadecimal; raw, numbers and hexadecimal only. Entries of a repeating field without an index
  // come one a line, each line with its end.
  std::string text(bool is_raw) const;
  // The bytes of a field held as bytes, the text of any other.
  std::string raw() const;
  // Lines "PATH.FIELD=VALUE" that `set` takes again, entries with their index.
  std::string assignments(bool is_raw) const;

  // What box_facts() says of this field alone.
  Json only(const Json& box_facts) const;

  // Changes the field; throws a Failure when the library refuses.
  void set(const std::string& value) const;

 private:
  Field(const OpenedFile& file, kvjpx::box box, const kv_jpx_field_info& info,
        std::optional<uint64_t> index)
      : file_(file), box_(box), info_(info), index_(index) {}

  bool is_integer() const { return (info_.access & KV_JPX_FIELD_INTEGER) != 0; }
  bool is_bytes() const { return (info_.access & KV_JPX_FIELD_BYTES) != 0; }
  bool repeats() const { return (info_.access & KV_JPX_FIELD_REPEATS) != 0; }

  uint64_t count() const;
  std::vector<std::string> values() const;
  std::vector<std::string> words() const;
  std::optional<std::string> as_text() const;
  uint64_t integer(uint64_t index) const;
  std::string all_bytes() const;
  std::string entry_bytes(uint64_t index) const;

  void set_integer(const std::string& text) const;
  void check_range(uint64_t value, const std::string& text) const;
  void set_entry(uint64_t index, const std::string& bytes) const;
  void set_all_bytes(const std::string& bytes) const;

  std::string place() const;
  // The value, or the library's refusal as a Failure.
  template <class Value>
  Value taken(kvjpx::result<Value> result) const {
    if (!result) throw library_failure(place(), result.error(), kNoSuchPlace);
    return std::move(result).value();
  }
  Failure refusal(const kvjpx::error& error, const std::string& out_of_range) const;
  uint64_t check_index() const;

  const OpenedFile& file_;
  kvjpx::box box_;
  kv_jpx_field_info info_;
  std::optional<uint64_t> index_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_FIELD_H_
