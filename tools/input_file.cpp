// Reads or maps an input.
#include "input_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "descriptor.h"
#include "failure.h"

namespace kvjpx_tool {

InputFile::InputFile(const std::string& name)
    : name_(name), label_(name == "-" ? "standard input" : name) {
  if (name == "-") {
    read_whole(STDIN_FILENO);
    return;
  }
  const Descriptor file(open(name.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    throw system_failure(label_, "cannot open");
  }
  if (S_ISREG(status.st_mode)) {
    map(file.get(), static_cast<size_t>(status.st_size));
  } else {
    read_whole(file.get());
  }
}

InputFile::~InputFile() {
  if (is_mapped_) munmap(const_cast<char*>(bytes_.data()), bytes_.size());
}

void InputFile::map(int descriptor, size_t size) {
  if (size == 0) return;
  void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address == MAP_FAILED) throw system_failure(label_, "cannot map");
  is_mapped_ = true;
  bytes_ = std::string_view(static_cast<const char*>(address), size);
}

void InputFile::read_whole(int descriptor) {
  char piece[65536];
  for (;;) {
    const ssize_t length = read(descriptor, piece, sizeof piece);
    if (length == 0) break;
    if (length > 0) {
      contents_.append(piece, static_cast<size_t>(length));
    } else if (errno != EINTR) {
      throw system_failure(label_, "cannot read");
    }
  }
  bytes_ = contents_;
}

}  // namespace kvjpx_tool
