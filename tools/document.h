// A JPX file that a command works on: its bytes, the library's context that has it loaded, and the
// tree of its boxes as they were when it was loaded.
#ifndef KVJPX_TOOLS_DOCUMENT_H_
#define KVJPX_TOOLS_DOCUMENT_H_

#include <memory>
#include <string>
#include <string_view>

#include "box_tree.h"
#include "input_file.h"
#include "kvjpx.h"

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

// Whether a file begins with a signature box, as every JPX does.
bool has_signature(std::string_view bytes);

class Document {
 public:
  // Loads a file ("-" is standard input); throws a Failure when it is not a readable JPX.
  explicit Document(const std::string& name);

  const std::string& label() const { return file_.label(); }
  std::string_view bytes() const { return file_.bytes(); }
  kv_jpx_context* context() const { return context_.get(); }
  const Box& root() const { return tree_->root; }
  const BoxTree& tree() const { return *tree_; }

  const Box& find(const std::string& path) const;
  // "file: path", for messages.
  std::string place(const Box& box) const;

  // The library's output in its present setting: the file itself, or a decoded picture.
  LibraryBlock output() const;

 private:
  void load();
  void tell_refused_boxes() const;

  InputFile file_;
  ContextPointer context_;
  std::unique_ptr<BoxTree> tree_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_DOCUMENT_H_
