// A file that a command looks into: its bytes and what the library makes of them, nothing lost.
#ifndef KVJPX_TOOLS_OPENED_FILE_H_
#define KVJPX_TOOLS_OPENED_FILE_H_

#include <optional>
#include <string>
#include <string_view>

#include "input_file.h"
#include "kvjpx.hpp"

namespace kvjpx_tool {

class OpenedFile {
 public:
  // "-" is standard input. Throws a Failure when the file cannot be read.
  explicit OpenedFile(const std::string& name);
  // Of a file that is in memory, whose bytes must outlive this.
  OpenedFile(const std::string& label, std::string_view bytes);

  const std::string& label() const { return file_.label(); }
  std::string_view bytes() const { return file_.bytes(); }
  void release_memory() const { file_.release_memory(); }
  // Without a box for a bare codestream.
  const kvjpx::document& document() const { return *document_; }
  bool is_codestream() const { return is_codestream_; }

  // Throw a Failure that tells what the file seems to be when it has not one box; a bare codestream
  // is known.
  void check_has_boxes() const;
  void check_is_known() const;

 private:
  void open();

  InputFile file_;
  std::optional<kvjpx::document> document_;
  bool is_codestream_ = false;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_OPENED_FILE_H_
