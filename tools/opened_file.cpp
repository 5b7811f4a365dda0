// Loads a file for looking into it.
#include "opened_file.h"

#include "document.h"
#include "failure.h"
#include "foreign_file.h"

namespace kvjpx_tool {

OpenedFile::OpenedFile(const std::string& name)
    : file_(name),
      document_(kvjpx::document::adopt(make_context(label()).release())),
      is_codestream_(is_bare_codestream(bytes())) {
  kv_jpx_context* const context = document_.context();
  kv_jpx_set_keep_everything(context, 1);
  if (is_codestream_) return;
  const int32_t code = file_.is_mapped()
                           ? kv_jpx_set_input_image_mapped(context, file_.name().c_str())
                           : kv_jpx_set_input_image(context, bytes().data(), bytes().size());
  if (code != JPX_OK) throw library_failure(label(), context, kInputOutput);
  document_.set_source(bytes());
}

void OpenedFile::check_is_known() const {
  if (!is_codestream_) check_has_boxes();
}

void OpenedFile::check_has_boxes() const {
  if (document_.root().first_child()) return;
  throw Failure(kNotJpx, label() + ": not a JPX: no box can be read at offset 0" +
                             describe_foreign_file(bytes()));
}

}  // namespace kvjpx_tool
