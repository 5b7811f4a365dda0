// The bytes of a file that a command reads, or of standard input.
#ifndef KVJPX_TOOLS_INPUT_FILE_H_
#define KVJPX_TOOLS_INPUT_FILE_H_

#include <string>
#include <string_view>
#include <utility>

namespace kvjpx_tool {

class InputFile {
 public:
  // Regular files that have a size are mapped where the system can; pipes, devices and standard
  // input ("-") are read whole. Throws a Failure when one does not seem to end.
  explicit InputFile(const std::string& name);
  // Of one that is in memory already, whose bytes must outlive this.
  InputFile(std::string label, std::string_view bytes) : label_(std::move(label)), bytes_(bytes) {}
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  const std::string& name() const { return name_; }
  // What messages call the file.
  const std::string& label() const { return label_; }
  bool is_mapped() const { return is_mapped_; }
  std::string_view bytes() const { return bytes_; }
  // Lets go of the memory that reading them has taken, where the file gives them again.
  void release_memory() const;

  // For the handler of SIGBUS: the mapped file, `file` or one opened before it, that the address
  // lies in. The library has mappings of its own of the file that was opened first.
  static const InputFile* mapped_around(const InputFile* file, const void* address);
  const std::string& shortened_message() const { return shortened_message_; }

 private:
  bool map(int descriptor, size_t size);
  void read_whole(int descriptor);

  std::string name_;
  std::string label_;
  bool is_mapped_ = false;
  std::string contents_;
  std::string_view bytes_;
  std::string shortened_message_;
  // The mapped file that was opened before this one; such files are closed in reverse order.
  const InputFile* outer_ = nullptr;
};

// Makes the program end with a message when another one shortens a file that is mapped, where it
// would be killed (SIGBUS) by reading on.
void report_shortened_files();

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_INPUT_FILE_H_
