// Reads or maps an input.
#include "input_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <limits>

#include "descriptor.h"
#include "failure.h"
#include "terminal.h"

namespace kvjpx_tool {
namespace {

constexpr size_t kMebibyte = size_t{1} << 20;

// What an input may hold before it is taken for one without an end, as devices can be and pipes.
size_t largest_size(int descriptor) {
  struct stat status;
  const mode_t mode = fstat(descriptor, &status) == 0 ? status.st_mode : 0;
  if (S_ISREG(mode)) return std::numeric_limits<size_t>::max();
  return S_ISCHR(mode) ? 16 * kMebibyte : 1024 * kMebibyte;
}

// The mapped file that this thread opened last, from which the others are reached.
thread_local const InputFile* volatile last_mapped = nullptr;

void end_by_shortened_file(int signal, siginfo_t* info, void*) {
  const InputFile* const file = InputFile::mapped_around(last_mapped, info->si_addr);
  if (!file) {
    // Something else went wrong, and goes wrong again at once.
    std::signal(signal, SIG_DFL);
    return;
  }
  const std::string& message = file->shortened_message();
  [[maybe_unused]] const ssize_t told = write(STDERR_FILENO, message.data(), message.size());
  _exit(kInputOutput);
}

}  // namespace

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
  // Files without a size can have content all the same, those of /proc do.
  const bool has_size = S_ISREG(status.st_mode) && status.st_size > 0;
  if (!has_size || !map(file.get(), static_cast<size_t>(status.st_size))) read_whole(file.get());
}

void InputFile::release_memory() const {
  if (is_mapped_) madvise(const_cast<char*>(bytes_.data()), bytes_.size(), MADV_DONTNEED);
}

InputFile::~InputFile() {
  if (!is_mapped_) return;
  last_mapped = outer_;
  munmap(const_cast<char*>(bytes_.data()), bytes_.size());
}

bool InputFile::map(int descriptor, size_t size) {
  void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address == MAP_FAILED) return false;
  is_mapped_ = true;
  bytes_ = std::string_view(static_cast<const char*>(address), size);
  shortened_message_ =
      "kvjpx: " + text_for(STDERR_FILENO, label_) + ": the file was shortened while it was read\n";
  outer_ = last_mapped;
  last_mapped = this;
  return true;
}

const InputFile* InputFile::mapped_around(const InputFile* file, const void* address) {
  const auto is_in = [&](std::string_view bytes) {
    return std::less_equal<>()(static_cast<const void*>(bytes.data()), address) &&
           std::less<>()(address, static_cast<const void*>(bytes.data() + bytes.size()));
  };
  while (file && file->outer_ && !is_in(file->bytes_)) file = file->outer_;
  return file;
}

void InputFile::read_whole(int descriptor) {
  const size_t largest = largest_size(descriptor);
  char piece[65536];
  for (;;) {
    if (contents_.size() > largest) {
      throw Failure(kInputOutput, label_ + ": does not end within " +
                                      std::to_string(largest / kMebibyte) +
                                      " MiB; a file may be larger");
    }
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

void report_shortened_files() {
  struct sigaction action = {};
  action.sa_sigaction = end_by_shortened_file;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace kvjpx_tool
