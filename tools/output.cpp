// Writes results so that an error is never lost and a file is never left half written.
#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "descriptor.h"
#include "failure.h"
#include "output_file.h"
#include "terminal.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

const char kStdoutLabel[] = "standard output";

// Holds back every signal until the file stands or what was made for it is gone again. (Those that
// tell of a fault in the program itself are not held back by this.)
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

class OutputFile : public kvjpx_common::OutputFile {
 public:
  explicit OutputFile(const std::string& name) : name_(name) {
    if (!open_output_file(this, name.c_str())) throw system_failure(name, "cannot write");
  }
  ~OutputFile() { close_output_file(this); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void write(std::string_view bytes) {
    // Where the file itself is overwritten, the bytes could be those that are mapped from it.
    std::string copy;
    if (staged < 0 && is_regular) bytes = copy = bytes;
    check(fill_output_file(this, bytes.data(), bytes.size()));
    if (staged >= 0) check(fsync(staged) == 0);
    check(complete_output_file(this));
  }

 private:
  void check(bool is_done) const {
    if (!is_done) throw system_failure(name_, "cannot write");
  }

  const std::string& name_;
};

std::optional<struct stat> status_of(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0) return status;
  return std::nullopt;
}

void write_stdout(std::string_view bytes) {
  if (!bytes.empty() && std::fwrite(bytes.data(), bytes.size(), 1, stdout) != 1) {
    throw system_failure(kStdoutLabel, "cannot write");
  }
}

bool is_terminal(const Target& target) {
  if (target.is_stdout()) return isatty(STDOUT_FILENO) != 0;
  // Opening a pipe only to look at it would disturb its reader.
  const std::optional<struct stat> status = status_of(target.name);
  if (!status || !S_ISCHR(status->st_mode)) return false;
  const Descriptor file(open(target.name.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  return file.get() >= 0 && isatty(file.get()) != 0;
}

}  // namespace

void print_text(std::string_view text) { write_stdout(text_for(STDOUT_FILENO, text)); }

void check_takes_binary(const Target& target) {
  if (!target.force && is_terminal(target)) {
    throw Failure(kUsage,
                  "binary data would go to a terminal: name a file with -o, or use --force");
  }
}

void write_result(const Target& target, std::string_view bytes) {
  if (!is_text(bytes)) check_takes_binary(target);
  std::string filtered;
  if (!target.force && is_terminal(target)) bytes = filtered = printable(bytes);
  if (target.is_stdout()) {
    write_stdout(bytes);
    return;
  }
  fill_file(target.name, [&] { OutputFile(target.name).write(bytes); });
}

void fill_file(const std::string& name, const std::function<void()>& fill) {
  // A limit on file sizes is told like any other failed write.
  std::signal(SIGXFSZ, SIG_IGN);
  // Opening and filling a pipe may take for ever.
  const std::optional<struct stat> status = status_of(name);
  std::optional<SignalsHeld> held;
  if (!status || S_ISREG(status->st_mode)) held.emplace();
  fill();
}

void finish_stdout() {
  // The library flushes what it prints by itself, so an error may lie behind us.
  if (std::ferror(stdout) != 0) {
    throw Failure(kInputOutput, std::string(kStdoutLabel) + ": cannot write");
  }
  if (std::fflush(stdout) != 0) throw system_failure(kStdoutLabel, "cannot write");
}

void secure_standard_descriptors() {
  const int useless_modes[] = {O_WRONLY, O_RDONLY, O_WRONLY};
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) {
      // The lowest free number is the one that was found closed.
      if (open("/dev/null", useless_modes[descriptor]) != descriptor) std::abort();
    }
  }
}

}  // namespace kvjpx_tool
