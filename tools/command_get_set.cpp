// get and set: fields of boxes.
#include "commands.h"
#include "document.h"
#include "field.h"

namespace kvjpx_tool {

void get_field(const GetRequest& request) {
  const Document document(request.file);
  if (request.address.find('.') == std::string::npos) {
    if (request.raw_target) {
      throw Failure(kUsage, "-o takes one field: " + request.address + ".FIELD");
    }
    const Box& box = document.find(request.address);
    for (const Field& field : Field::all_of(document, box)) {
      print_text(field.assignments(request.is_raw));
    }
    const kvjpx::document& tree = document.library();
    if (box.is_container) list_children(tree, box.is_root() ? tree.root() : tree.by_id(box.id));
    return;
  }
  const Field field = Field::find(document, request.address);
  if (request.raw_target) {
    write_result(*request.raw_target, field.raw());
  } else {
    print_text(field.text(request.is_raw));
  }
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
