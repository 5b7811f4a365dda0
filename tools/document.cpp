// Loads and renders a file.
#include "document.h"

#include "box_path.h"
#include "failure.h"

namespace kvjpx_tool {
namespace {

constexpr std::string_view kSignatureType = "jP  ";

// What the file is instead of a JPX, as far as that is worth telling.
std::string describe_foreign_file(std::string_view bytes) {
  if (bytes.empty()) return "the file is empty";
  if (bytes.substr(0, 4) == "\xFF\x4F\xFF\x51") {
    return "a bare JPEG 2000 codestream without boxes around it";
  }
  return "no signature box";
}

}  // namespace

ContextPointer make_context(const std::string& label) {
  kv_jpx_context* context = nullptr;
  const int32_t code = kv_jpx_create(&context);
  if (code != JPX_OK) throw library_failure(label, code, kInputOutput);
  return ContextPointer(context);
}

bool has_signature(std::string_view bytes) {
  return bytes.size() >= 8 && bytes.substr(4, 4) == kSignatureType;
}

Document::Document(const std::string& name) : file_(name, has_signature) {
  if (!has_signature(bytes())) {
    throw Failure(kNotJpx, label() + ": not a JPX: " + describe_foreign_file(bytes()));
  }
  context_ = make_context(label());
  load();
  tree_ = read_box_tree(context(), bytes(), label());
  tell_refused_boxes();
}

void Document::load() {
  const int32_t code = file_.is_mapped()
                           ? kv_jpx_set_input_image_mapped(context(), file_.name().c_str())
                           : kv_jpx_set_input_image(context(), bytes().data(), bytes().size());
  if (code == JPX_OK) return;
  if (code == JPX_ERR_INVALID_ARGUMENT) {
    throw Failure(kNotJpx, label() + ": boxes are nested more than 256 deep");
  }
  throw library_failure(label(), code, kNotJpx);
}

// Such boxes are in no tree and so in no output: whoever edits the file has to know.
void Document::tell_refused_boxes() const {
  for (const RefusedBox& box : tree_->refused) {
    const std::string rest =
        box.container->is_root()
            ? "it is left out with the rest of the file"
            : "it is left out, and what follows it is taken to follow " + path_of(*box.container);
    report(label() + ": note: the box '" + type_name(box.type) + "' at offset " +
           std::to_string(box.offset) + " is not supported in " + path_of(*box.container) + ": " +
           rest);
  }
}

const Box& Document::find(const std::string& path) const {
  return resolve_path(*tree_, path, label());
}

std::string Document::place(const Box& box) const { return label() + ": " + path_of(box); }

LibraryBlock Document::output() const {
  void* data = nullptr;
  uint64_t length = 0;
  const int32_t code = kv_jpx_get_output_image(context(), &data, &length);
  if (code != JPX_OK) throw library_failure(label(), code, kEditRefused);
  return LibraryBlock(context(), data, length);
}

}  // namespace kvjpx_tool
