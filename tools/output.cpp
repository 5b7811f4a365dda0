// Writes results so that an error is never lost and a file is never left half written.
#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "descriptor.h"
#include "failure.h"
#include "terminal.h"

namespace kvjpx_tool {
namespace {

const char kStdoutLabel[] = "standard output";

// Control characters other than white space mark binary data (and could drive the terminal).
bool is_text(std::string_view bytes) {
  return std::none_of(bytes.begin(), bytes.end(), [](unsigned char c) {
    return (c < ' ' && c != '\n' && c != '\r' && c != '\t') || c == 0x7F;
  });
}

void write_all(int descriptor, std::string_view bytes, const std::string& label) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR) {
      throw system_failure(label, "cannot write");
    }
  }
}

// Holds back the signals that end a program from outside until the file stands or is gone again.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &before_);
  }
  ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

// A new file beside its target, removed again unless it has taken the target's place.
class TemporaryFile {
 public:
  TemporaryFile(const std::string& target, const std::string& label)
      : target_(target),
        label_(label),
        name_(std::filesystem::path(target).replace_filename(".kvjpx-XXXXXX")),
        file_(create()) {}

  ~TemporaryFile() {
    if (!name_.empty()) unlink(name_.c_str());
  }

  int descriptor() const { return file_.get(); }

  void take_over_attributes(const struct stat& old) {
    // Only the superuser can keep a foreign owner; others then own the new file.
    [[maybe_unused]] const int is_foreign = fchown(file_.get(), old.st_uid, old.st_gid);
    if (fchmod(file_.get(), old.st_mode & 0777) != 0) {
      throw system_failure(label_, "cannot keep its permissions");
    }
  }

  void rename_to_target() {
    if (fsync(file_.get()) != 0 || !file_.close()) throw system_failure(label_, "cannot write");
    if (rename(name_.c_str(), target_.c_str()) != 0) {
      throw system_failure(label_, "cannot replace");
    }
    name_.clear();
  }

 private:
  int create() {
    const int descriptor = mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor < 0) {
      name_.clear();
      throw system_failure(label_, "cannot create");
    }
    // mkostemp makes private files; a new result has the permissions of any new file.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, 0666 & ~mask);
    return descriptor;
  }

  const std::string& target_;
  const std::string& label_;
  std::string name_;
  Descriptor file_;
};

std::optional<struct stat> status_of(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0) return status;
  return std::nullopt;
}

void write_stdout(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
    throw system_failure(kStdoutLabel, "cannot write");
  }
}

void write_device(const std::string& name, std::string_view bytes) {
  Descriptor device(open(name.c_str(), O_WRONLY | O_CLOEXEC));
  if (device.get() < 0) throw system_failure(name, "cannot open");
  write_all(device.get(), bytes, name);
  if (!device.close()) throw system_failure(name, "cannot write");
}

void replace_file(const std::string& name, const std::optional<struct stat>& old,
                  std::string_view bytes) {
  // Through a symbolic link the file behind it is replaced, not the link.
  std::error_code ignored;
  const std::filesystem::path real = std::filesystem::canonical(name, ignored);
  const std::string target = real.empty() ? name : real.string();
  if (old && access(target.c_str(), W_OK) != 0) throw system_failure(name, "cannot write");

  const SignalsHeld held;
  TemporaryFile file(target, name);
  if (old) file.take_over_attributes(*old);
  write_all(file.descriptor(), bytes, name);
  file.rename_to_target();
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
  const std::optional<struct stat> old = status_of(target.name);
  if (old && !S_ISREG(old->st_mode)) {
    write_device(target.name, bytes);
  } else {
    replace_file(target.name, old, bytes);
  }
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
