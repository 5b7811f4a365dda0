// get and set: fields of boxes.
#include "box_path.h"
#include "commands.h"
#include "facts.h"
#include "field.h"

namespace kvjpx_tool {

namespace {

void get_box(const OpenedFile& file, const std::string& path, bool is_raw, std::ostream& out) {
  const kvjpx::box box = find_box(file, path);
  for (const Field& field : Field::all_of(file, box)) out << field.assignments(is_raw);
  if (box.is_container()) list_children(file.document(), box, out);
}

// What dump says of a box, of all its fields or of one.
Json facts_of(const OpenedFile& file, const std::string& address) {
  const size_t dot = address.find('.');
  const std::optional<Field> field =
      dot == address.npos ? std::nullopt : std::optional(Field::find(file, address));
  const kvjpx::box box = find_box(file, address.substr(0, dot));
  const kvjpx::box_paths& paths = file.paths();
  Json facts = box.is_root() ? Json{{"path", "/"}} : box_facts(head_of(paths, box));
  if (field) return field->only(facts);
  if (!box.is_container()) return facts;
  facts["boxes"] = Json::array();
  for (const kvjpx::box child : box.children()) {
    facts["boxes"].push_back(head_facts(head_of(paths, child)));
  }
  return facts;
}

}  // namespace

ExitCode get_fields(const GetRequest& request) {
  const bool is_field = request.address.find('.') != std::string::npos;
  if (request.raw_target && !is_field) {
    throw Failure(kUsage, "-o takes one field: " + request.address + ".FIELD");
  }
  if (request.raw_target) {
    if (request.files.names.size() != 1 || !request.files.names_file.empty()) {
      throw Failure(kUsage, "-o takes the field of one file");
    }
    const OpenedFile file(request.files.names.front(), OpenedFile::Content::kBoxes);
    write_result(*request.raw_target, Field::find(file, request.address).raw());
    return kDone;
  }
  const Form form = request.json ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const OpenedFile file(name, OpenedFile::Content::kBoxes);
    if (request.json) {
      Json facts = {{"file", file.label()}};
      facts.update(facts_of(file, request.address));
      out << json_text(facts) << "\n";
    } else if (is_field) {
      out << Field::find(file, request.address).text(request.is_raw);
    } else {
      get_box(file, request.address, request.is_raw, out);
    }
    return kDone;
  });
}

void set_fields(const std::vector<std::string>& assignments, const EditRequest& edit_request) {
  const Edit edit(edit_request);
  for (const std::string& assignment : assignments) {
    // A box type may hold '=' only in its escaped form, so the first one begins the value.
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
      throw Failure(kUsage, "'" + assignment + "' is not of the form PATH.FIELD=VALUE");
    }
    Field::find(edit.file(), assignment.substr(0, equals)).set(assignment.substr(equals + 1));
  }
  edit.finish();
}

}  // namespace kvjpx_tool
