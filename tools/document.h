// A file that a command works on: its bytes, the library's context that has it loaded so that
// nothing in it is lost, and the tree of its boxes as they were when it was loaded.
#ifndef KVJPX_TOOLS_DOCUMENT_H_
#define KVJPX_TOOLS_DOCUMENT_H_

#include <memory>
#include <string>
#include <string_view>

#include "box_tree.h"
#include "failure.h"
#include "input_file.h"
#include "kvjpx.hpp"
#include "output.h"

namespace kvjpx_tool {

// Bytes that the library has handed out, given back with their scope. The context must outlive
// them.
class LibraryBlock {
 public:
  LibraryBlock(kv_jpx_context* context, void* data, uint64_t length)
      : data_(data, Deleter{context}), length_(length) {}

  std::string_view bytes() const {
    return data_ ? std::string_view(static_cast<const char*>(data_.get()), length_)
                 : std::string_view();
  }

 private:
  struct Deleter {
    kv_jpx_context* context;
    void operator()(void* data) const { kv_jpx_free(context, data); }
  };

  std::unique_ptr<void, Deleter> data_;
  uint64_t length_;
};

struct ContextDeleter {
  void operator()(kv_jpx_context* context) const { kv_jpx_destroy(context); }
};
using ContextPointer = std::unique_ptr<kv_jpx_context, ContextDeleter>;

// A context without a file; `label` names the file in messages.
ContextPointer make_context(const std::string& label);

class Document {
 public:
  enum class Content { kBoxes, kAnything };

  // Loads a file ("-" is standard input); throws a Failure when it is not of the kind that is
  // wanted, which boxes make it.
  explicit Document(const std::string& name, Content wanted = Content::kBoxes);

  const std::string& label() const { return file_.label(); }
  std::string_view bytes() const { return file_.bytes(); }
  kv_jpx_context* context() const { return library_.context(); }
  const kvjpx::document& library() const { return library_; }
  const Box& root() const { return tree_->root; }

  // Loads the file into a context, in the way that is set there; the library's result.
  int32_t load_into(kv_jpx_context* context) const;

  // Throws a Failure that tells what else the file seems to be when it has not one box.
  void check_has_boxes() const;

  const Box& find(const std::string& path) const;
  // The boxes that a path with wildcards names (see box_path.h), one at least.
  std::vector<const Box*> find_all(const std::string& path) const;
  // The box of the loaded file that has this identifier; null for one that was added since.
  const Box* find(uint32_t id) const { return tree_->find(id); }
  const BoxTree& tree() const { return *tree_; }
  // "file:offset: path", for messages.
  std::string place(const Box& box) const;

  // Writes the edited file to the target.
  void save(const Target& target) const;

 private:
  void check_written(int32_t code, const std::string& name) const;
  void tell_torn_fragments() const;

  InputFile file_;
  kvjpx::document library_;
  std::unique_ptr<BoxTree> tree_;
};

// The output of a context in its present setting: the file itself, or a decoded picture.
LibraryBlock output_of(kv_jpx_context* context, const std::string& label, ExitCode refusal);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_DOCUMENT_H_
