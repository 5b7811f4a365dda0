// Loads a file for looking into it.
#include "opened_file.h"

#include <utility>

#include "failure.h"
#include "foreign_file.h"

namespace kvjpx_tool {

OpenedFile::OpenedFile(const std::string& name, Content wanted) : file_(name) {
  open();
  if (wanted == Content::kBoxes) check_has_boxes();
}

OpenedFile::OpenedFile(const std::string& label, std::string_view bytes) : file_(label, bytes) {
  open();
}

void OpenedFile::open() {
  is_codestream_ = is_bare_codestream(bytes());
  kv_jpx_context* context = nullptr;
  int32_t code =
      kv_jpx_create_with_memory_manager(&context, &memory_, Arena::allocate, Arena::release);
  if (code != JPX_OK) throw library_failure(label(), context, kInputOutput);
  document_ = kvjpx::document::adopt(context);
  kv_jpx_set_keep_everything(context, 1);
  const std::string_view boxes = is_codestream_ ? std::string_view() : bytes();
  code = file_.is_mapped() && !is_codestream_
             ? kv_jpx_set_input_image_mapped(context, file_.name().c_str())
             : kv_jpx_set_input_image(context, boxes.data(), boxes.size());
  if (code != JPX_OK) throw library_failure(label(), context, kInputOutput);
  document_->set_source(bytes());
}

const kvjpx::box_paths& OpenedFile::paths() const {
  if (!paths_) paths_.emplace(document());
  return *paths_;
}

kvjpx::result<kvjpx::document> OpenedFile::read_again(kvjpx::reading mode) const {
  return file_.is_mapped() ? kvjpx::document::open(file_.name(), mode)
                           : kvjpx::document::read(bytes(), mode);
}

void OpenedFile::check_is_known() const {
  if (!is_codestream_) check_has_boxes();
}

void OpenedFile::check_has_boxes() const {
  if (document().root().first_child()) return;
  throw Failure(kNotJpx, label() + ": not a JPX: no box can be read at offset 0" +
                             describe_foreign_file(bytes()));
}

}  // namespace kvjpx_tool
