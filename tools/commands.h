// The commands of kvjpx. Each reports failure by throwing a Failure.
#ifndef KVJPX_TOOLS_COMMANDS_H_
#define KVJPX_TOOLS_COMMANDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "failure.h"
#include "many.h"
#include "output.h"

namespace kvjpx_tool {

// ls: one line a box.
ExitCode list_boxes(const FileList& files);

// complete: the paths that begin with a word; with fields, also the fields of the box before a dot.
void list_words(const std::string& file, const std::string& word, bool with_fields);

// print: the library's description of a box.
void print_box(const std::string& file, const std::string& path);

// extract: the payload of a box as it stands in the file.
void extract_payload(const std::string& file, const std::string& path, const Target& target);

// get: one field, or all fields of a box.
struct GetRequest {
  std::string file;
  std::string address;
  // Where the raw bytes of a field go; without one its text goes to standard output.
  std::optional<Target> raw_target;
};
void get_field(const GetRequest& request);

// set: assignments "PATH.FIELD=VALUE", all of them or none.
void set_fields(const std::string& file, const std::vector<std::string>& assignments,
                const Target& target);

// add: a new box in a place given relative to another.
struct AddRequest {
  enum class Place { kInto, kBefore, kAfter };

  std::string file;
  std::string type;
  Place place = Place::kInto;
  std::optional<std::string> reference;
  std::optional<std::string> payload_file;
};
void add_box(const AddRequest& request, const Target& target);

// rm: boxes with everything in them.
void remove_boxes(const std::string& file, const std::vector<std::string>& paths,
                  const Target& target);

// copy: the file as every edit writes it.
void copy_file(const std::string& file, const Target& target);

// decode: a picture.
struct DecodeRequest {
  std::string file;
  std::string format;  // empty: by the target's name
  std::string region;  // "left,top,right,bottom"; empty: everything
  unsigned reduce = 0;
  std::optional<unsigned> layers;
  std::optional<uint64_t> codestream;
  std::optional<uint64_t> limit;  // million samples
};
// An RGB picture of 10,000 x 10,000 samples.
constexpr uint64_t kDefaultDecodeLimit = 300;
void decode_picture(const DecodeRequest& request, const Target& target);
// The names that --format takes, with something between them.
std::string decode_formats(const std::string& between);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_COMMANDS_H_
