// The bytes of a file that a command reads, or of standard input.
#ifndef KVJPX_TOOLS_INPUT_FILE_H_
#define KVJPX_TOOLS_INPUT_FILE_H_

#include <string>
#include <string_view>

namespace kvjpx_tool {

class InputFile {
 public:
  // Regular files are mapped; pipes, devices and standard input ("-") are read whole.
  explicit InputFile(const std::string& name);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  const std::string& name() const { return name_; }
  // What messages call the file.
  const std::string& label() const { return label_; }
  bool is_mapped() const { return is_mapped_; }
  std::string_view bytes() const { return bytes_; }

 private:
  void map(int descriptor, size_t size);
  void read_whole(int descriptor);

  std::string name_;
  std::string label_;
  bool is_mapped_ = false;
  std::string contents_;
  std::string_view bytes_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_INPUT_FILE_H_
