// get and set: fields of boxes.
#include "commands.h"
#include "document.h"
#include "facts.h"
#include "field.h"

namespace kvjpx_tool {

namespace {

void get_box(const Document& document, const std::string& path, bool is_raw, std::ostream& out) {
  const Box& box = document.find(path);
  for (const Field& field : Field::all_of(document, box)) out << field.assignments(is_raw);
  const kvjpx::document& tree = document.library();
  if (box.is_container) list_children(tree, box.is_root() ? tree.root() : tree.by_id(box.id), out);
}

// What dump says of a box, of all its fields or of one.
Json facts_of(const Document& document, const std::string& address) {
  const size_t dot = address.find('.');
  const std::optional<Field> field =
      dot == address.npos ? std::nullopt : std::optional(Field::find(document, address));
  const Box& place = document.find(address.substr(0, dot));
  const kvjpx::document& tree = document.library();
  const kvjpx::box box = place.is_root() ? tree.root() : tree.by_id(place.id);
  const kvjpx::box_paths paths(tree);
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
    const Document document(request.files.names.front());
    write_result(*request.raw_target, Field::find(document, request.address).raw());
    return kDone;
  }
  const Form form = request.json ? Form::kJsonLines : Form::kHeadings;
  return read_files(request.files, form, [&](const std::string& name, std::ostream& out) {
    const Document document(name);
    if (request.json) {
      Json facts = {{"file", document.label()}};
      facts.update(facts_of(document, request.address));
      out << json_text(facts) << "\n";
    } else if (is_field) {
      out << Field::find(document, request.address).text(request.is_raw);
    } else {
      get_box(document, request.address, request.is_raw, out);
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
    Field::find(edit.document(), assignment.substr(0, equals)).set(assignment.substr(equals + 1));
  }
  edit.finish();
}

}  // namespace kvjpx_tool
