// What there is in a file, as JSON: commands print it as that or as text, so that both tell the
// same. Bare facts: nothing is judged here.
//
// A number above 2^53, which many readers of JSON would round, comes as a string of digits. Members
// of "fields" are as they stand in the file, what they mean is in the member of the same name in
// "names".
#ifndef KVJPX_TOOLS_FACTS_H_
#define KVJPX_TOOLS_FACTS_H_

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "codestream/codestream.h"
#include "opened_file.h"

namespace kvjpx_tool {

using Json = nlohmann::ordered_json;

Json number_fact(uint64_t number);
// Length and SHA-256; of few bytes also the bytes.
Json bytes_fact(std::string_view bytes);
bool is_utf8(std::string_view text);

// One line of valid UTF-8, whatever the strings hold; for a terminal nothing but ASCII.
std::string json_text(const Json& json);

// Where a box stands and what it is.
struct BoxHead {
  kvjpx::box box;
  kvjpx::type type;
  kvjpx::extent extent;
  std::string path;
  std::string_view uuid;           // name of a uuid box's UUID
  std::vector<const char*> marks;  // what is odd or special about it

  uint64_t length() const { return extent.header_length + extent.content_length; }
  uint64_t tail_offset() const { return extent.end() - extent.tail_length; }
  // Goes on to another box, in the same memory.
  void look_at(const kvjpx::box_paths& paths, const kvjpx::box_paths::item& other);
};
BoxHead head_of(const kvjpx::box_paths& paths, kvjpx::box box);
Json head_facts(const BoxHead& head);
// The same as text, which takes a fraction of the time.
void append_head(std::string& text, const BoxHead& head);
// What stands at the end of a container and is no box.
Json tail_facts(const BoxHead& container);

// The same with fields and payload.
Json box_facts(const BoxHead& head);
void append_box(std::string& text, const BoxHead& head);
// The description in an ICC profile; empty when there is none.
std::string profile_description(std::string_view profile);

// Marker segments, problems, and a summary that is added to `facts`.
Json segment_facts(const kvjpx_codestream::Segment& segment);
Json problem_facts(const kvjpx_codestream::Problem& problem);
// All of them of one codestream; of problems none when "whole" in `facts` says that bytes of it are
// not in the file, as what is missing cannot be judged.
void add_headers(Json& facts, kvjpx_codestream::Source& source);
// A problem in words, with the marker that it is about.
std::string problem_text(const Json& problem);
void add_summary(Json& facts, const kvjpx_codestream::Summary& summary);

// What the reader of a document found.
Json finding_facts(const kvjpx::box_paths& paths, const kvjpx::finding& finding);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_FACTS_H_
