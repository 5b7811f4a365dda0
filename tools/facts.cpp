// Asks the library for facts.
#include "facts.h"

#include <nettle/sha2.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "icc_profile.h"
#include "names.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

constexpr size_t kUuidSize = 16;
constexpr size_t kFewBytes = 32;
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

// In the order in which they are shown.
constexpr std::pair<uint32_t, const char*> kMarks[] = {
    {KV_JPX_BOX_MALFORMED, "malformed"}, {KV_JPX_BOX_MISPLACED, "misplaced"},
    {KV_JPX_BOX_CUT_SHORT, "cut short"}, {KV_JPX_BOX_OPEN_ENDED, "open-ended"},
    {KV_JPX_BOX_LONG_HEADER, "64-bit"},
};

void append_sha256(std::string& text, std::string_view bytes) {
  sha256_ctx state;
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_init(&state);
  sha256_update(&state, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
  sha256_digest(&state, sizeof digest, digest);
  append_hex(text, {reinterpret_cast<const char*>(digest), sizeof digest});
}

const std::vector<kv_jpx_field_info>& known_fields(kvjpx::type type) {
  static const auto all_fields = [] {
    std::map<kvjpx::type, std::vector<kv_jpx_field_info>> fields;
    for (uint32_t i = 0; const auto info = kvjpx::field_info(i); ++i) {
      fields[kvjpx::type(info->box_type)].push_back(*info);
    }
    return fields;
  }();
  static const std::vector<kv_jpx_field_info> none;
  const auto found = all_fields.find(type);
  return found != all_fields.end() ? found->second : none;
}

bool is_signed(uint32_t key) {
  return key == JPX_FIELD_COLR_PREC || key == JPX_FIELD_RESC_VR_E || key == JPX_FIELD_RESC_HR_E;
}

// The fields of a box with their names; what it does not have now is left out.
class FieldFacts {
 public:
  explicit FieldFacts(const BoxHead& head) : box_(head.box) {
    for (const kv_jpx_field_info& info : known_fields(head.type)) {
      if (info.key != JPX_FIELD_UUID_DATA) add(info);
    }
  }

  Json fields = Json::object();
  Json names = Json::object();

 private:
  void add(const kv_jpx_field_info& info) {
    const bool repeats = (info.access & KV_JPX_FIELD_REPEATS) != 0;
    if (fields.contains(info.name)) return;
    if ((info.access & KV_JPX_FIELD_INTEGER) != 0) {
      repeats ? add_list(info) : add_number(info);
    } else if ((info.access & KV_JPX_FIELD_BYTES) != 0) {
      add_bytes(info, repeats);
    }
  }

  static Json value_fact(const kv_jpx_field_info& info, uint64_t value) {
    if (is_code_field(info.key)) return code_text(static_cast<uint32_t>(value));
    if (is_signed(info.key)) return static_cast<int8_t>(value);
    return number_fact(value);
  }

  void add_number(const kv_jpx_field_info& info) {
    const auto value = box_.get(info.key);
    if (!value) return;
    fields[info.name] = value_fact(info, *value);
    const std::string name = value_name(info.key, *value);
    if (!name.empty()) names[info.name] = name;
  }

  void add_list(const kv_jpx_field_info& info) {
    const auto count = box_.count(info.key);
    if (!count) return;
    Json values = Json::array();
    Json words = Json::array();
    bool has_words = false;
    for (uint64_t i = 0; i < *count; ++i) {
      const auto value = box_.get(info.key, i);
      if (!value) break;
      values.push_back(value_fact(info, *value));
      words.push_back(value_name(info.key, *value));
      has_words |= !words.back().get_ref<const std::string&>().empty();
    }
    fields[info.name] = std::move(values);
    if (has_words) names[info.name] = std::move(words);
  }

  void add_bytes(const kv_jpx_field_info& info, bool repeats) {
    const auto bytes = box_.bytes(info.key);
    if (!bytes) return;
    const std::string_view text = bytes->text();
    if (repeats) {
      add_uuids(info, text);
    } else if (info.key == JPX_FIELD_COLR_UUID || info.key == JPX_FIELD_UUID_ID) {
      fields[info.name] = uuid_text(text);
      if (!uuid_name(text).empty()) names[info.name] = uuid_name(text);
    } else if (info.key == JPX_FIELD_URL_LOC && is_utf8(text)) {
      fields[info.name] = text.substr(0, text.find('\0'));
    } else {
      fields[info.name] = bytes_fact(text);
      const std::string name =
          info.key == JPX_FIELD_COLR_ICC ? profile_description(text) : std::string();
      if (!name.empty()) names[info.name] = name;
    }
  }

  void add_uuids(const kv_jpx_field_info& info, std::string_view uuids) {
    Json& values = fields[info.name] = Json::array();
    Json& words = names[info.name] = Json::array();
    for (; uuids.size() >= kUuidSize; uuids.remove_prefix(kUuidSize)) {
      values.push_back(uuid_text(uuids.substr(0, kUuidSize)));
      words.push_back(uuid_name(uuids.substr(0, kUuidSize)));
    }
  }

  kvjpx::box box_;
};

std::string_view uuid_name_of(kvjpx::box box) {
  const auto id = box.bytes<kvjpx::uuid::id>();
  return id ? uuid_name(id->text()) : std::string_view();
}

bool is_text_type(const BoxHead& head) {
  return head.type == "xml" || head.type == "lbl" || head.uuid == "XMP";
}

bool is_plain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

// Texts of JSON are put together by hand where there are as many as boxes.
void append_quoted(std::string& text, std::string_view words) {
  if (!is_plain(words)) {
    text += json_text(words);
    return;
  }
  text += '"';
  text += words;
  text += '"';
}

void append_number(std::string& text, uint64_t number) {
  const std::string digits = std::to_string(number);
  if (number <= kLargestExact) {
    text += digits;
  } else {
    append_quoted(text, digits);
  }
}

void append_bytes(std::string& text, std::string_view bytes) {
  text += "{\"length\":";
  append_number(text, bytes.size());
  text += ",\"sha256\":\"";
  append_sha256(text, bytes);
  if (bytes.size() <= kFewBytes) {
    text += "\",\"hex\":\"";
    append_hex(text, bytes);
  }
  text += "\"}";
}

// What is in a box.
class Content {
 public:
  explicit Content(const BoxHead& head) : fields(head) {
    if (head.box.is_container()) return;
    // Of the boxes with fields, only uuid boxes have a payload, too.
    if (!fields.fields.empty() && head.type != "uuid") return;
    if (auto payload = head.box.payload()) {
      payload_ = *std::move(payload);
      bytes = payload_.text();
    } else if (const auto content = head.box.source_content(); content && fields.fields.empty()) {
      bytes = content->text();
    }
    is_text = bytes && is_text_type(head) && is_utf8(*bytes);
  }

  FieldFacts fields;
  std::optional<std::string_view> bytes;  // where no fields say what they are
  bool is_text = false;

 private:
  kvjpx::block payload_;
};

class HeaderCollector final : public kvjpx_codestream::Observer {
 public:
  explicit HeaderCollector(Json& facts) : facts_(facts) {
    facts["segments"] = Json::array();
    facts["problems"] = Json::array();
  }
  void segment(kvjpx_codestream::Segment&& segment) override {
    facts_["segments"].push_back(segment_facts(segment));
  }
  void problem(const kvjpx_codestream::Problem& problem) override {
    if (facts_["whole"] == true) facts_["problems"].push_back(problem_facts(problem));
  }

 private:
  Json& facts_;
};

}  // namespace

Json number_fact(uint64_t number) {
  return number <= kLargestExact ? Json(number) : Json(std::to_string(number));
}

Json bytes_fact(std::string_view bytes) {
  std::string text;
  append_bytes(text, bytes);
  return Json::parse(text);
}

bool is_utf8(std::string_view text) {
  if (is_plain(text)) return true;
  try {
    Json(text).dump();
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

std::string json_text(const Json& json) {
  static const bool is_for_terminal = isatty(STDOUT_FILENO) != 0;
  return json.dump(-1, ' ', is_for_terminal, Json::error_handler_t::replace);
}

void BoxHead::look_at(const kvjpx::box_paths& paths, const kvjpx::box_paths::item& other) {
  box = other.box;
  type = other.type;
  extent = box.extent().value_or({});
  path.clear();
  paths.append_path(path, box);
  uuid = type == "uuid" ? uuid_name_of(box) : std::string_view();
  marks.clear();
  for (const auto& [flag, word] : kMarks) {
    if ((extent.flags & flag) != 0) marks.push_back(word);
  }
}

BoxHead head_of(const kvjpx::box_paths& paths, kvjpx::box box) {
  BoxHead head;
  head.look_at(paths, {box, box.type(), 0});
  return head;
}

void append_head(std::string& text, const BoxHead& head) {
  const uint32_t flags = head.extent.flags;
  text += "{\"path\":";
  append_quoted(text, head.path);
  text += ",\"type\":";
  append_quoted(text, code_text(head.type.code()));
  text += ",\"id\":";
  append_number(text, head.box.id());
  text += ",\"offset\":";
  append_number(text, head.extent.offset);
  text += ",\"length\":";
  append_number(text, head.length());
  text += ",\"header_length\":";
  append_number(text, head.extent.header_length);
  text += (flags & KV_JPX_BOX_OPEN_ENDED) != 0    ? ",\"header\":\"open-ended\""
          : (flags & KV_JPX_BOX_LONG_HEADER) != 0 ? ",\"header\":\"64-bit\""
                                                  : ",\"header\":\"32-bit\"";
  if (!head.uuid.empty()) {
    text += ",\"uuid\":";
    append_quoted(text, head.uuid);
  }
  text += ",\"marks\":[";
  for (const char* const mark : head.marks) {
    if (text.back() != '[') text += ',';
    append_quoted(text, mark);
  }
  text += "]}";
}

Json head_facts(const BoxHead& head) {
  std::string text;
  append_head(text, head);
  return Json::parse(text);
}

Json tail_facts(const BoxHead& container) {
  return {{"path", container.path},
          {"offset", number_fact(container.tail_offset())},
          {"length", number_fact(container.extent.tail_length)}};
}

Json box_facts(const BoxHead& head) {
  Json facts = head_facts(head);
  Content content(head);
  if (!content.fields.fields.empty()) facts["fields"] = std::move(content.fields.fields);
  if (!content.fields.names.empty()) facts["names"] = std::move(content.fields.names);
  if (content.bytes) facts["payload"] = bytes_fact(*content.bytes);
  if (content.is_text) facts["payload"]["text"] = *content.bytes;
  return facts;
}

void append_box(std::string& text, const BoxHead& head) {
  append_head(text, head);
  text.pop_back();
  const Content content(head);
  if (!content.fields.fields.empty()) text += ",\"fields\":" + json_text(content.fields.fields);
  if (!content.fields.names.empty()) text += ",\"names\":" + json_text(content.fields.names);
  if (content.bytes) {
    text += ",\"payload\":";
    append_bytes(text, *content.bytes);
  }
  if (content.is_text) {
    text.back() = ',';
    text += "\"text\":";
    append_quoted(text, *content.bytes);
    text += '}';
  }
  text += '}';
}

std::string profile_description(std::string_view bytes) {
  const IccProfile profile(bytes);
  return profile.fault().empty() ? profile.description() : "";
}

Json segment_facts(const kvjpx_codestream::Segment& segment) {
  Json facts = {{"name", segment.name},
                {"marker", to_hex(std::string{static_cast<char>(segment.marker >> 8),
                                              static_cast<char>(segment.marker)})},
                {"offset", number_fact(segment.offset)}};
  if (segment.has_length) facts["length"] = segment.length;
  if (segment.tile_part != kvjpx_codestream::kNone) facts["tile_part"] = segment.tile_part;
  Json fields = Json::object();
  Json names = Json::object();
  for (const kvjpx_codestream::Field& field : segment.fields) {
    if (field.kind == kvjpx_codestream::Field::Kind::kText) {
      fields[field.name] = field.text;
      continue;
    }
    const bool is_list = field.kind == kvjpx_codestream::Field::Kind::kList;
    Json values = Json::array();
    for (const uint64_t value : field.values) values.push_back(number_fact(value));
    fields[field.name] = is_list ? std::move(values) : values.front();
    if (is_list && !field.words.empty()) names[field.name] = field.words;
    if (!is_list && !field.words.empty() && !field.words[0].empty()) {
      names[field.name] = field.words[0];
    }
  }
  if (!fields.empty()) facts["fields"] = std::move(fields);
  if (!names.empty()) facts["names"] = std::move(names);
  return facts;
}

Json problem_facts(const kvjpx_codestream::Problem& problem) {
  Json facts = {{"id", identifier(problem.kind)},
                {"text", meaning(problem.kind)},
                {"offset", number_fact(problem.offset)},
                {"segment", kvjpx_codestream::marker_name(problem.marker)},
                {"expected", number_fact(problem.expected)},
                {"found", number_fact(problem.found)}};
  if (problem.index != kvjpx_codestream::kNone) facts["index"] = problem.index;
  return facts;
}

std::string problem_text(const Json& problem) {
  const std::string segment = problem["segment"];
  return (segment.empty() ? "" : segment + ": ") + problem["text"].get<std::string>();
}

void add_summary(Json& facts, const kvjpx_codestream::Summary& summary) {
  if (summary.has_image) {
    const kvjpx_codestream::Image& image = summary.image;
    facts["width"] = image.x.size();
    facts["height"] = image.y.size();
    facts["tile_width"] = image.x.tile_size;
    facts["tile_height"] = image.y.tile_size;
    facts["tiles"] = number_fact(image.tiles());
    facts["profile"] = kvjpx_codestream::profile_name(image.capabilities);
    Json& components = facts["components"] = Json::array();
    for (const kvjpx_codestream::Component& component : image.components) {
      components.push_back({{"depth", component.depth},
                            {"signed", component.is_signed},
                            {"dx", component.dx},
                            {"dy", component.dy}});
    }
  }
  if (summary.has_coding) {
    const kvjpx_codestream::CodingStyle& coding = summary.coding;
    facts["levels"] = coding.levels;
    facts["layers"] = coding.layers;
    facts["progression"] = kvjpx_codestream::progression_name(coding.progression);
    facts["transformation"] = kvjpx_codestream::transformation_name(coding.transformation);
    facts["colour_transform"] = kvjpx_codestream::colour_transform_name(coding);
  }
  if (summary.has_quantization) {
    facts["quantization"] = kvjpx_codestream::quantization_name(summary.quantization);
  }
  facts["high_throughput"] = summary.is_high_throughput;
  facts["tile_parts"] = number_fact(summary.tile_parts);
}

void add_headers(Json& facts, kvjpx_codestream::Source& source) {
  HeaderCollector collector(facts);
  const kvjpx_codestream::Summary summary = walk(source, collector);
  add_summary(facts, summary);
}

Json finding_facts(const kvjpx::box_paths& paths, const kvjpx::finding& finding) {
  Json facts = {{"path", paths.path(finding.place)}, {"text", finding.text}};
  if (finding.offset != UINT64_MAX) facts["offset"] = number_fact(finding.offset);
  return facts;
}

}  // namespace kvjpx_tool
