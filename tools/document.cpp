// Loads and saves a file.
#include "document.h"

#include <unistd.h>

#include "box_path.h"
#include "failure.h"
#include "foreign_file.h"
#include "metadata.h"

namespace kvjpx_tool {
ContextPointer make_context(const std::string& label) {
  kv_jpx_context* context = nullptr;
  const int32_t code = kv_jpx_create(&context);
  if (code != JPX_OK) throw Failure(kInputOutput, label + ": not enough memory");
  return ContextPointer(context);
}

Document::Document(const std::string& name, Content wanted)
    : file_(name), library_(kvjpx::document::adopt(make_context(label()).release())) {
  kv_jpx_set_keep_everything(context(), 1);
  if (load_into(context()) != JPX_OK) throw library_failure(label(), context(), kInputOutput);
  tree_ = read_box_tree(context());
  if (wanted == Content::kBoxes) check_has_boxes();
}

int32_t Document::load_into(kv_jpx_context* context) const {
  return file_.is_mapped() ? kv_jpx_set_input_image_mapped(context, file_.name().c_str())
                           : kv_jpx_set_input_image(context, bytes().data(), bytes().size());
}

void Document::check_has_boxes() const {
  if (!root().children.empty()) return;
  throw Failure(kNotJpx, label() + ": not a JPX: no box can be read at offset 0" +
                             describe_foreign_file(bytes()));
}

const Box& Document::find(const std::string& path) const {
  if (path.find(':') != std::string::npos) {
    const std::vector<const Box*> boxes = find_all(path);
    if (boxes.size() == 1) return *boxes.front();
    throw Failure(kNoSuchPlace, label() + ": " + path + ": there are " +
                                    std::to_string(boxes.size()) + "; choose one by its index");
  }
  return resolve_path(*tree_, path, label());
}

std::vector<const Box*> Document::find_all(const std::string& path) const {
  return resolve_paths(*tree_, path, label(), [this](const Box& box, const std::string& kind) {
    return is_metadata(library_.by_id(box.id), kind);
  });
}

std::string Document::place(const Box& box) const {
  const std::string offset = box.is_root() ? "" : ":" + std::to_string(box.begin);
  return label() + offset + ": " + path_of(box);
}

void Document::save(const Target& target) const {
  if (target.is_stdout() && isatty(STDOUT_FILENO) == 0) {
    finish_stdout();
    check_written(kv_jpx_write_jpx(context(), STDOUT_FILENO), "standard output");
  } else if (target.is_stdout()) {
    write_result(target, output_of(context(), label(), kEditRefused).bytes());
  } else {
    fill_file(target.name, [&] {
      check_written(kv_jpx_get_output_image_file(context(), target.name.c_str()), target.name);
    });
  }
  tell_torn_fragments();
}

void Document::check_written(int32_t code, const std::string& name) const {
  if (code == JPX_ERR_OPEN_FILE || code == JPX_ERR_FILE_IO) {
    throw system_failure(name, "cannot write");
  }
  if (code != JPX_OK) throw library_failure(label(), context(), kEditRefused);
}

// Fragments of codestreams are named by their position in the file. They follow the bytes there,
// but for those that the edit has changed or removed.
void Document::tell_torn_fragments() const {
  kv_jpx_finding finding = {};
  finding.size = sizeof finding;
  for (uint32_t i = 0; kv_jpx_get_finding(context(), i, &finding) == JPX_OK; ++i) {
    if (finding.kind == KV_JPX_FINDING_FRAGMENT) report(label() + ": note: " + finding.text);
  }
}

LibraryBlock output_of(kv_jpx_context* context, const std::string& label, ExitCode refusal) {
  void* data = nullptr;
  uint64_t length = 0;
  const int32_t code = kv_jpx_get_output_image(context, &data, &length);
  if (code != JPX_OK) throw library_failure(label, context, refusal);
  return LibraryBlock(context, data, length);
}

}  // namespace kvjpx_tool
