// meta, label and gml: boxes that tell of the picture.
#include <algorithm>

#include "commands.h"
#include "metadata.h"

namespace kvjpx_tool {
namespace {

kvjpx::box add_metadata_box(const Edit& edit, kvjpx::type type) {
  const kvjpx::box samples = first_of_samples(edit.root());
  return edit.taken(samples ? samples.add_before(type) : edit.root().append(type),
                    edit.place(edit.root()));
}

kvjpx::box append(const Edit& edit, kvjpx::box container, kvjpx::type type,
                  kvjpx::byte_view content) {
  const kvjpx::box box = edit.taken(container.append(type), edit.place(container));
  edit.check(box.set_content(content), edit.place(box));
  return box;
}

// Containers whose boxes tell of something go as a whole when all is removed.
bool goes_with_all(kvjpx::box box) {
  for (const kvjpx::type type : {kvjpx::type("uuid"), kvjpx::type("uinf"), kvjpx::type("xml"),
                                 kvjpx::type("mp7b"), kvjpx::type("asoc"), kvjpx::type("lbl")}) {
    if (box.type() == type) return true;
  }
  return false;
}

size_t remove_kind(const Edit& edit, kvjpx::box container, const std::string& kind) {
  size_t count = 0;
  for (const kvjpx::box box : container.children()) {
    if (kind == "all" ? goes_with_all(box) : is_metadata(box, kind)) {
      edit.check(box.remove(), edit.place(container));
      ++count;
    } else {
      count += remove_kind(edit, box, kind);
    }
  }
  return count;
}

void set_kind(const Edit& edit, const std::string& kind, const InputFile& file) {
  const std::string fault = metadata_fault(kind, file.bytes());
  if (!fault.empty()) edit.refuse(file.label(), fault);
  std::vector<kvjpx::box> present;
  for (const kvjpx::box box : edit.root().children()) {
    if (is_metadata(box, kind)) present.push_back(box);
  }
  if (kind == "xml" && present.size() > 1) {
    throw Failure(kEditRefused, edit.label() + ": there are " + std::to_string(present.size()) +
                                    " xml boxes; choose one: kvjpx replace FILE 'xml[0]' "
                                    "--payload " +
                                    file.name());
  }
  // Of two, readers would take either.
  for (size_t i = 1; i < present.size(); ++i) edit.check(present[i].remove(), edit.label());
  const kvjpx::box box =
      present.empty() ? add_metadata_box(edit, metadata_type(kind)) : present.front();
  edit.check(box.set_content(metadata_content(kind, file.bytes())), edit.place(box));
}

bool has_label(kvjpx::box association, std::string_view label) {
  const kvjpx::box box = association.child("lbl");
  if (association.type() != kvjpx::type("asoc") || !box) return false;
  const auto text = box.payload();
  return text && text->text() == label;
}

kvjpx::box find_labelled(kvjpx::box container, std::string_view label) {
  for (const kvjpx::box box : container.children()) {
    if (has_label(box, label)) return box;
  }
  return {};
}

}  // namespace

void set_metadata(const MetaRequest& request, const EditRequest& edit_request) {
  const std::vector<std::string>& kinds = metadata_kinds();
  for (const std::string& kind : request.removed) {
    if (kind != "all" && std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
      throw Failure(kUsage, "'" + kind + "' is none of xmp, exif, iptc, geotiff, xml and all");
    }
  }
  if (request.removed.empty() && request.files.empty()) {
    throw Failure(kUsage, "meta needs something to set or --remove");
  }
  const Edit edit(edit_request);
  for (const std::string& kind : request.removed) {
    if (remove_kind(edit, edit.root(), kind) == 0 && kind != "all") {
      throw Failure(kNoSuchPlace, edit.label() + ": there is no " + kind + " in it");
    }
  }
  for (const auto& [kind, name] : request.files) set_kind(edit, kind, InputFile(name));
  edit.finish();
}

void set_label(const std::string& text, const std::optional<std::string>& container,
               const EditRequest& edit_request) {
  const Edit edit(edit_request);
  if (!container) {
    // The number of the rendered result is 0 (ISO/IEC 15444-2, M.11).
    const kvjpx::box association = add_metadata_box(edit, "asoc");
    append(edit, association, "nlst", std::string(4, '\0'));
    append(edit, association, "lbl", text);
  } else {
    const kvjpx::box place = edit.find(*container);
    if (const kvjpx::box label = place.child("lbl")) {
      edit.check(label.set_content(text), edit.place(label));
    } else {
      append(edit, place, "lbl", text);
    }
  }
  edit.finish();
}

void set_gml(const std::string& gml_file, const EditRequest& edit_request) {
  static const char kData[] = "gml.data";
  static const char kInstance[] = "gml.root-instance";
  const InputFile gml(gml_file);
  const Edit edit(edit_request);
  const std::string fault = xml_fault(gml.bytes());
  if (!fault.empty()) edit.refuse(gml.label(), fault);
  kvjpx::box data = find_labelled(edit.root(), kData);
  if (!data) {
    data = add_metadata_box(edit, "asoc");
    append(edit, data, "lbl", std::string(kData));
  }
  kvjpx::box instance = find_labelled(data, kInstance);
  if (!instance) {
    instance = edit.taken(data.append("asoc"), edit.place(data));
    append(edit, instance, "lbl", std::string(kInstance));
  }
  if (const kvjpx::box xml = instance.child("xml")) {
    edit.check(xml.set_content(gml.bytes()), edit.place(xml));
  } else {
    append(edit, instance, "xml", gml.bytes());
  }
  edit.finish();
}

}  // namespace kvjpx_tool
