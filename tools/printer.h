// Takes the facts of a file one after the other, in sections, so that they need not be held all at
// once.
#ifndef KVJPX_TOOLS_PRINTER_H_
#define KVJPX_TOOLS_PRINTER_H_

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "facts.h"

namespace kvjpx_tool {

class Printer {
 public:
  virtual ~Printer() = default;
  virtual void begin_file(const Json& facts) = 0;
  virtual void section(const char* name) = 0;
  virtual void entry(const Json& facts) = 0;
  // An entry with the facts of a box.
  virtual void box(const BoxHead& head) { entry(box_facts(head)); }
  virtual void end_file() = 0;
};

// One object a file, on a line of its own, with an array for each section.
class JsonPrinter final : public Printer {
 public:
  explicit JsonPrinter(std::ostream& out) : out_(out) {}

  void begin_file(const Json& facts) override {
    const std::string text = json_text(facts);
    out_ << text.substr(0, text.size() - 1);
    end_ = "}\n";
  }
  void section(const char* name) override {
    out_ << std::string(end_[0] == ']' ? "]" : "") + ",\"" + name + "\":[";
    end_ = "]}\n";
    is_first_ = true;
  }
  void entry(const Json& facts) override {
    add([&](std::string& text) { text += json_text(facts); });
  }
  void box(const BoxHead& head) override {
    add([&](std::string& text) { append_box(text, head); });
  }
  void head(const BoxHead& head) {
    add([&](std::string& text) { append_head(text, head); });
  }
  void end_file() override { out_ << end_; }

 private:
  template <class Append>
  void add(const Append& append) {
    text_ = is_first_ ? "" : ",";
    append(text_);
    out_ << text_;
    is_first_ = false;
  }

  std::ostream& out_;
  std::string text_;  // of one entry, in the same memory for all
  const char* end_ = "";
  bool is_first_ = true;
};

// The sections of the boxes, for each of which `print` is called, and of what stands at the ends of
// containers and is no box.
void print_all_boxes(const kvjpx::box_paths& paths, Printer& printer,
                     const std::function<void(const BoxHead&)>& print);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_PRINTER_H_
