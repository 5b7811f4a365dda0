// A file that a command works on: its bytes and what the library makes of them, nothing lost.
#ifndef KVJPX_TOOLS_OPENED_FILE_H_
#define KVJPX_TOOLS_OPENED_FILE_H_

#include <optional>
#include <string>
#include <string_view>

#include "arena.h"
#include "input_file.h"
#include "kvjpx.hpp"

namespace kvjpx_tool {

class OpenedFile {
 public:
  enum class Content { kBoxes, kAnything };

  // "-" is standard input. Throws a Failure when the file cannot be read, or has not one box and
  // should.
  explicit OpenedFile(const std::string& name, Content wanted = Content::kAnything);
  // Of a file that is in memory, whose bytes must outlive this.
  OpenedFile(const std::string& label, std::string_view bytes);

  const std::string& label() const { return file_.label(); }
  std::string_view bytes() const { return file_.bytes(); }
  void release_memory() const { file_.release_memory(); }
  // Without a box for a bare codestream.
  const kvjpx::document& document() const { return *document_; }
  bool is_codestream() const { return is_codestream_; }
  // The paths of the boxes as they are when this is called first: before anything is edited.
  const kvjpx::box_paths& paths() const;

  // The file once more, as it was when it was opened.
  kvjpx::result<kvjpx::document> read_again(kvjpx::reading mode) const;

  // Throw a Failure that tells what the file seems to be when it has not one box; a bare codestream
  // is known.
  void check_has_boxes() const;
  void check_is_known() const;

 private:
  void open();

  InputFile file_;
  Arena memory_;
  std::optional<kvjpx::document> document_;
  mutable std::optional<kvjpx::box_paths> paths_;
  bool is_codestream_ = false;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_OPENED_FILE_H_
