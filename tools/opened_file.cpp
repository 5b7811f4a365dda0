// Loads a file for looking into it.
#include "opened_file.h"

#include <utility>

#include "failure.h"
#include "foreign_file.h"

namespace kvjpx_tool {

namespace {

kvjpx::document load(const InputFile& file, bool has_boxes) {
  auto opened = !has_boxes         ? kvjpx::document::create()
                : file.is_mapped() ? kvjpx::document::open(file.name())
                                   : kvjpx::document::read(file.bytes());
  if (!opened) throw library_failure(file.label(), opened.error(), kInputOutput);
  return *std::move(opened);
}

}  // namespace

OpenedFile::OpenedFile(const std::string& name) : file_(name) { open(); }

OpenedFile::OpenedFile(const std::string& label, std::string_view bytes) : file_(label, bytes) {
  open();
}

void OpenedFile::open() {
  is_codestream_ = is_bare_codestream(bytes());
  document_ = load(file_, !is_codestream_);
  document_->set_source(bytes());
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
