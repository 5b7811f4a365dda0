// The commands of kvjpx. Each reports failure by throwing a Failure.
#ifndef KVJPX_TOOLS_COMMANDS_H_
#define KVJPX_TOOLS_COMMANDS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "edit.h"
#include "failure.h"
#include "kvjpx.hpp"
#include "many.h"
#include "output.h"

namespace kvjpx_tool {

// ls: one line a box, or one JSON object a file.
enum class ListForm { kPlain, kTree, kJson };
struct ListRequest {
  FileList files;
  ListForm form = ListForm::kPlain;
};
ExitCode list_boxes(const ListRequest& request);
// The same of the boxes directly in a container.
void list_children(const kvjpx::document& document, kvjpx::box container, std::ostream& out);

// diff: what differs between two files, kFindings if anything does.
ExitCode diff_files(const std::string& a, const std::string& b);

// dump: everything in files, as text or as one JSON object a file (docs/dump.schema.json).
struct DumpRequest {
  FileList files;
  std::string format = "text";
  bool codestreams = false;  // their headers, too
};
ExitCode dump_files(const DumpRequest& request);

// info: what files are, on one screen or as one JSON object a file.
struct InfoRequest {
  FileList files;
  bool json = false;
};
ExitCode show_info(const InfoRequest& request);
// complete: the paths that begin with a word; with fields, also the fields of the box before a dot.
void list_words(const std::string& file, const std::string& word, bool with_fields);

// print: the library's description of a box, of each file's.
ExitCode print_boxes(const FileList& files, const std::string& path);

// extract: the payload of a box as it stands in the file.
void extract_payload(const std::string& file, const std::string& path, const Target& target);
// The same of the first profile ("icc") or piece of metadata of a kind that metadata.h knows,
// without the UUID in front of it.
void extract_kind(const std::string& file, const std::string& kind, const Target& target);

// get: one field, or all fields of a box, of each file.
struct GetRequest {
  FileList files;
  std::string address;
  bool is_raw = false;  // numbers and hexadecimal only
  bool json = false;    // one object a file
  // Where the raw bytes of a field go; without one its text goes to standard output.
  std::optional<Target> raw_target;
};
ExitCode get_fields(const GetRequest& request);

// set: assignments "PATH.FIELD=VALUE", all of them or none.
void set_fields(const std::vector<std::string>& assignments, const EditRequest& edit);

// Where a box is to stand, relative to another.
struct Placement {
  kv_jpx_placement place = KV_JPX_PLACE_LAST_CHILD;
  std::optional<std::string> reference;
};

// add: a new box, empty, with a payload, or with content in the notation of box_notation.h.
struct AddRequest {
  std::string box;
  Placement placement;
  std::optional<std::string> payload_file;
};
void add_box(const AddRequest& request, const EditRequest& edit);

// rm: boxes with everything in them.
void remove_boxes(const std::vector<std::string>& paths, const EditRequest& edit);

// mv: a box to another place.
void move_box(const std::string& path, const Placement& placement, const EditRequest& edit);

// replace: all that stands behind the header of a box.
void replace_payload(const std::string& path, const std::string& payload_file,
                     const EditRequest& edit);

// resolution: samples a metre, as capture or default display resolution; without either, those
// that are there, or capture.
struct ResolutionRequest {
  std::string resolution;  // "300dpi"
  bool sets_capture = false;
  bool sets_display = false;
};
void set_resolution(const ResolutionRequest& request, const EditRequest& edit);

// icc: a colr box with a profile, in the place of one that is there or beside it.
struct IccRequest {
  std::string profile;
  bool adds = false;
};
void set_profile(const IccRequest& request, const EditRequest& edit);
// The content of a colr box with a profile, with the method that the profile is fit for.
std::string colour_content(std::string_view profile, char precedence, char approximation);

// meta: metadata of the kinds that metadata.h knows.
struct MetaRequest {
  std::map<std::string, std::string> files;  // by kind
  std::vector<std::string> removed;          // kinds, or "all"
};
void set_metadata(const MetaRequest& request, const EditRequest& edit);

// label: a lbl box in a container, or one for the rendered result.
void set_label(const std::string& text, const std::optional<std::string>& container,
               const EditRequest& edit);

// gml: the root instance of a GMLJP2 file.
void set_gml(const std::string& gml_file, const EditRequest& edit);

// wrap: a JP2 of a bare codestream; unwrap: a codestream of a file.
void wrap_codestream(const std::string& file, const std::string& colour, bool is_unchecked,
                     const Target& target);
void unwrap_codestream(const std::string& file, std::optional<uint64_t> number,
                       const Target& target);

// copy: the file as every edit writes it.
void copy_file(const std::string& file, const Target& target);

// decode: the picture that a file means, or with raw the planes that the library composes.
struct DecodeRequest {
  std::string file;
  std::string format;  // empty: by the target's name
  std::string region;  // "left,top,right,bottom"; empty: everything
  unsigned reduce = 0;
  std::optional<unsigned> layers;
  std::optional<uint64_t> layer;  // at most one of these three
  std::optional<uint64_t> codestream;
  std::optional<uint64_t> frame;
  std::optional<uint64_t> limit;  // million samples
  bool srgb = false;              // colours are converted
  bool strict = false;            // a damaged codestream is a failure
  bool raw = false;
  int quality = 95;  // of JPEG
};
void decode_picture(const DecodeRequest& request, const Target& target);
// The names that --format takes, with something between them.
std::string decode_formats(const std::string& between);

// check: what of the standard a file breaks, a line each.
struct CheckRequest {
  FileList files;
  unsigned profile = 0;  // kvjpx_check::Profile; 0: what the file claims to be
  std::vector<std::string> only;
  std::vector<std::string> ignore;
  std::optional<uint64_t> max;
  bool is_json = false;
  bool is_strict = false;
};
ExitCode check_files(const CheckRequest& request);
// The table of rules, as Markdown.
void list_rules();

// report: all about a file as one HTML page.
void write_report(const std::string& file, const Target& target);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_COMMANDS_H_
