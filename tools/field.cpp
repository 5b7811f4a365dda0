// Reads and changes fields, guided by the library's table of them.
#include "field.h"

#include <strings.h>

#include <algorithm>

#include "box_path.h"
#include "facts.h"
#include "failure.h"
#include "input_file.h"
#include "names.h"
#include "suggestion.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

// The rows of the library's table that can apply to a type: its own, then the payload that opaque
// boxes of every type have.
std::vector<kv_jpx_field_info> known_fields(kvjpx::type box_type) {
  std::vector<kv_jpx_field_info> own;
  std::vector<kv_jpx_field_info> common;
  kv_jpx_field_info info = {};
  for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
    if (info.box_type == box_type.code()) own.push_back(info);
    if (info.box_type == 0) common.push_back(info);
  }
  own.insert(own.end(), common.begin(), common.end());
  return own;
}

// Whether the box has the field in its present state. Some numbers can be counted but not read, and
// others the other way round, so it is reading that decides.
bool is_live(kvjpx::box box, const kv_jpx_field_info& info) {
  const bool is_single_number =
      (info.access & KV_JPX_FIELD_INTEGER) != 0 && (info.access & KV_JPX_FIELD_REPEATS) == 0;
  return (is_single_number ? box.get(info.key) : box.count(info.key)).has_value();
}

std::vector<kv_jpx_field_info> live_fields(kvjpx::box box) {
  std::vector<kv_jpx_field_info> live;
  for (const kv_jpx_field_info& info : known_fields(box.type())) {
    bool is_alias = false;
    for (const kv_jpx_field_info& other : live) is_alias |= strcasecmp(other.name, info.name) == 0;
    if (!is_alias && is_live(box, info)) live.push_back(info);
  }
  return live;
}

// Names differ by more than case within a box type, so case is left to the user's taste.
kv_jpx_field_info find_field(const OpenedFile& file, kvjpx::box box, const std::string& name) {
  const std::string place = place_of(file, box) + "." + name;
  for (const kv_jpx_field_info& info : known_fields(box.type())) {
    if (strcasecmp(info.name, name.c_str()) != 0) continue;
    if (is_live(box, info)) return info;
    if (info.box_type != 0) {
      throw Failure(kNoSuchPlace, place + ": the box has no such field in its present state");
    }
  }
  std::string names;
  Suggestion suggestion(name);
  for (const kv_jpx_field_info& info : live_fields(box)) {
    names += (names.empty() ? "" : ", ") + std::string(info.name);
    suggestion.consider(info.name);
  }
  throw Failure(kNoSuchPlace, place + ": no such field; the box has " +
                                  (names.empty() ? std::string("no fields") : names) +
                                  suggestion.text());
}

// "PATH.FIELD[i]" in its parts.
struct Address {
  std::string path;
  std::string name;
  std::optional<uint64_t> index;
};

Address parse_address(const std::string& address, const std::string& label) {
  // Paths have their dots escaped, so the first one begins the field's name.
  const size_t dot = address.find('.');
  if (dot == std::string::npos || dot + 1 == address.size()) {
    throw Failure(kNoSuchPlace, label + ": '" + address + "' names no field (PATH.FIELD)");
  }
  Address parts{address.substr(0, dot), address.substr(dot + 1), std::nullopt};
  const size_t bracket = parts.name.find('[');
  if (bracket == std::string::npos) return parts;
  const std::string index = parts.name.substr(bracket + 1);
  if (!index.empty() && index.back() == ']') {
    parts.index = parse_number(index.substr(0, index.size() - 1));
  }
  if (!parts.index) {
    throw Failure(kNoSuchPlace, label + ": '" + address + "' has no proper [index]");
  }
  parts.name.resize(bracket);
  return parts;
}

// Fields of two's complement numbers (ISO/IEC 15444-1, I.5.3.3 to I.5.3.7); all others count from
// 0.
bool takes_sign(const kv_jpx_field_info& info) {
  return info.key == JPX_FIELD_COLR_PREC || info.key == JPX_FIELD_RESC_VR_E ||
         info.key == JPX_FIELD_RESC_HR_E || info.key == JPX_FIELD_PCLR_C;
}

uint64_t largest_number(const kv_jpx_field_info& info) {
  return ~uint64_t{0} >> (64 - 8 * std::min(info.width, 8u));
}

}  // namespace

std::optional<std::string> parse_bytes(const std::string& value, const std::string& place) {
  if (value.rfind('@', 0) == 0) return std::string(InputFile(value.substr(1)).bytes());
  if (value.rfind("text:", 0) == 0) return value.substr(5);
  if (value.rfind("hex:", 0) != 0) return std::nullopt;
  std::optional<std::string> bytes = parse_hex(value.substr(4));
  if (!bytes) throw Failure(kEditRefused, place + ": '" + value + "' is not hexadecimal");
  return bytes;
}

Field Field::find(const OpenedFile& file, const std::string& address) {
  const Address parts = parse_address(address, file.label());
  const kvjpx::box box = find_box(file, parts.path);
  return Field(file, box, find_field(file, box, parts.name), parts.index);
}

std::vector<Field> Field::all_of(const OpenedFile& file, kvjpx::box box) {
  std::vector<Field> fields;
  for (const kv_jpx_field_info& info : live_fields(box)) {
    const Field field(file, box, info, std::nullopt);
    if (field.is_integer() || field.is_bytes()) fields.push_back(field);
  }
  return fields;
}

std::string Field::text(bool is_raw) const {
  if (std::optional<std::string> words = is_raw ? std::nullopt : as_text()) {
    // The end of a URL in a file.
    if (!words->empty() && words->back() == '\0') words->pop_back();
    return *words + "\n";
  }
  std::string lines;
  for (const std::string& value : is_raw ? values() : words()) lines += value + "\n";
  return lines;
}

std::string Field::raw() const {
  if (!is_bytes()) return text(true);
  return index_ ? entry_bytes(*index_) : all_bytes();
}

std::string Field::assignments(bool is_raw) const {
  std::string lines;
  std::vector<std::string> all = is_raw ? values() : words();
  const std::optional<std::string> as_words = is_raw ? std::nullopt : as_text();
  if (as_words && as_words->find('\0') == std::string::npos) {
    all = {"text:" + *as_words};
  }
  for (size_t i = 0; i < all.size(); ++i) {
    const std::string index = repeats() ? "[" + std::to_string(i) + "]" : "";
    lines += file_.paths().path(box_) + "." + info_.name + index + "=" + all[i] + "\n";
  }
  return lines;
}

std::vector<std::string> Field::values() const {
  if (!is_integer() && !is_bytes()) {
    throw Failure(kNoSuchPlace, place() + ": the library only counts these entries; there are " +
                                    std::to_string(count()));
  }
  if (index_)
    return {is_integer() ? std::to_string(integer(*index_)) : to_hex(entry_bytes(*index_))};
  const uint64_t entries = repeats() ? count() : 1;
  const std::string bytes = is_integer() ? "" : all_bytes();
  const uint64_t size = entries == 0 ? 0 : bytes.size() / entries;
  std::vector<std::string> all;
  for (uint64_t i = 0; i < entries; ++i) {
    all.push_back(is_integer() ? std::to_string(integer(i))
                               : to_hex(std::string_view(bytes).substr(i * size, size)));
  }
  return all;
}

// Values with types as 'jp2 ', but for those with characters that cannot be printed.
std::vector<std::string> Field::words() const {
  std::vector<std::string> all = values();
  if (!is_code_field(info_.key)) return all;
  for (std::string& value : all) {
    const std::string code = code_text(static_cast<uint32_t>(*parse_number(value)));
    if (code.find('%') == std::string::npos) value = "'" + code + "'";
  }
  return all;
}

// The bytes of a field that is text.
std::optional<std::string> Field::as_text() const {
  const bool is_text_type = box_.type() == kvjpx::type("xml") || box_.type() == kvjpx::type("lbl");
  if (index_) return std::nullopt;
  if (info_.key != JPX_FIELD_URL_LOC && (info_.key != JPX_FIELD_JP2C_DATA || !is_text_type)) {
    return std::nullopt;
  }
  std::string bytes = all_bytes();
  return is_utf8(bytes) ? std::optional<std::string>(std::move(bytes)) : std::nullopt;
}

uint64_t Field::count() const { return taken(box_.count(info_.key)); }

uint64_t Field::integer(uint64_t index) const { return taken(box_.get(info_.key, index)); }

std::string Field::all_bytes() const { return std::string(taken(box_.bytes(info_.key)).text()); }

std::string Field::entry_bytes(uint64_t index) const {
  const std::string bytes = all_bytes();
  const size_t size = bytes.size() / check_index();
  return bytes.substr(index * size, size);
}

Json Field::only(const Json& box_facts) const {
  check_index();
  Json facts = {{"path", box_facts["path"]}};
  for (const char* const part : {"fields", "names"}) {
    const Json members = box_facts.value(part, Json::object());
    if (!members.contains(info_.name)) continue;
    const Json& value = members[info_.name];
    facts[part][info_.name] = index_ && value.is_array() ? value[*index_] : value;
  }
  // The payload is no row of the fields there.
  if (!facts.contains("fields")) facts["fields"][info_.name] = box_facts.value("payload", Json());
  return facts;
}

void Field::set(const std::string& value) const {
  std::optional<std::string> bytes = parse_bytes(value, place());
  if (!bytes && !is_integer()) bytes = parse_hex(value);
  if (bytes && is_bytes()) {
    index_ ? set_entry(*index_, *bytes) : set_all_bytes(*bytes);
  } else if (is_integer()) {
    set_integer(value);
  } else {
    throw Failure(kEditRefused, place() + ": '" + value +
                                    "' is no value for this field; it takes " +
                                    (is_bytes() ? "@FILE, hex:... or text:..." : "none"));
  }
}

void Field::set_integer(const std::string& text) const {
  std::optional<uint64_t> value = parse_signed_number(text);
  if (!value) value = value_of_name(info_.key, text);
  const std::vector<std::string_view> names = value_names(info_.key);
  const bool takes_code = info_.width == 4 && (names.empty() || is_code_field(info_.key));
  if (!value && takes_code) value = parse_code(text);
  if (!value) {
    Suggestion suggestion(text);
    for (const std::string_view name : names) suggestion.consider(name);
    throw Failure(kEditRefused, place() + ": '" + text + "' is not a number" +
                                    (names.empty() ? "" : ", nor a name that the field knows") +
                                    suggestion.text());
  }
  check_range(*value, text);
  const uint64_t index = index_.value_or(0);
  const bool appends = repeats() && index == count();
  if (!appends) {
    // Behind the end, the library would append an entry, too.
    check_index();
    // Files hold values that no edit could give them; keeping such a value is no edit.
    if (integer(index) == *value) return;
  }
  const auto result = box_.set(info_.key, index, *value);
  if (!result) throw refusal(result.error(), "value " + text + " is out of range");
  // Bits of some values are dropped; a negative one, which the field takes, may lose those in
  // front.
  const uint64_t held = integer(index);
  if (held == *value || text[0] == '-') return;
  throw Failure(kEditRefused, place() + ": value " + text +
                                  " is out of range: the field would hold " + std::to_string(held));
}

void Field::check_range(uint64_t value, const std::string& text) const {
  const uint64_t largest = largest_number(info_);
  // Negative numbers are compared as what they are in two's complement.
  const uint64_t lowest = takes_sign(info_) ? ~(largest >> 1) : 0;
  const bool is_negative = text[0] == '-' && value != 0;
  if (is_negative ? lowest != 0 && value >= lowest : value <= largest) return;
  throw Failure(kEditRefused, place() + ": value " + text + " is out of range: the field takes " +
                                  std::to_string(static_cast<int64_t>(lowest)) + " to " +
                                  std::to_string(largest));
}

// Sets one entry among the others, or one more at the end.
void Field::set_entry(uint64_t index, const std::string& bytes) const {
  if (!repeats() || index != count()) check_index();
  if (bytes.size() != info_.width) {
    throw Failure(kEditRefused, place() + ": an entry has " + std::to_string(info_.width) +
                                    " bytes, not " + std::to_string(bytes.size()));
  }
  set_all_bytes(all_bytes().replace(index * info_.width, info_.width, bytes));
}

void Field::set_all_bytes(const std::string& bytes) const {
  const auto result = box_.set_bytes(info_.key, bytes, info_.width);
  if (!result) {
    throw refusal(result.error(),
                  "the field does not take " + std::to_string(bytes.size()) + " bytes");
  }
  if (all_bytes() != bytes) {
    throw Failure(kEditRefused, place() + ": the field would not hold these bytes unchanged");
  }
}

std::string Field::place() const {
  const std::string index = index_ ? "[" + std::to_string(*index_) + "]" : "";
  return place_of(file_, box_) + "." + info_.name + index;
}

Failure Field::refusal(const kvjpx::error& error, const std::string& out_of_range) const {
  if (error.code() == JPX_ERR_INVALID_ARGUMENT) {
    return Failure(kEditRefused, place() + ": " + out_of_range);
  }
  return library_failure(place(), error,
                         error.code() == JPX_ERR_NO_SUCH_FIELD ? kNoSuchPlace : kEditRefused);
}

// Judges the index that the user gave; without one the first entry is meant. Returns how many
// entries there are.
uint64_t Field::check_index() const {
  const uint64_t entries = repeats() ? count() : 1;
  if (index_.value_or(0) < entries) return entries;
  throw Failure(kNoSuchPlace,
                place() + ": the index is out of range; entries: " + std::to_string(entries));
}

}  // namespace kvjpx_tool
