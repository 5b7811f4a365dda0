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
  // Those that stop the program for a while need not wait as long as those that end it.
  explicit SignalsHeld(bool holds_stops = true) {
    sigset_t held;
    sigfillset(&held);
    if (!holds_stops) {
      for (const int number : {SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT}) sigdelset(&held, number);
    }
    sigprocmask(SIG_BLOCK, &held, &before_);
  }
  ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

  // Whether one is waiting that will end the program.
  static bool is_end_waiting() {
    sigset_t waiting;
    sigpending(&waiting);
    for (const int number :
         {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU, SIGPIPE}) {
      struct sigaction action;
      const bool is_ignored =
          sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
      if (sigismember(&waiting, number) == 1 && !is_ignored) return true;
    }
    return false;
  }

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

bool is_regular_or_new(const std::string& name) {
  const std::optional<struct stat> status = status_of(name);
  return !status || S_ISREG(status->st_mode);
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

// In one of four ways: to standard output; into the second file of a regular one; into a device or
// pipe; or, for a regular file without a second, into memory first, as the input could be read from
// the file itself.
struct ResultStream::State {
  explicit State(const Target& target) : name(target.is_stdout() ? kStdoutLabel : target.name) {
    if (target.is_stdout()) return;
    std::signal(SIGXFSZ, SIG_IGN);
    if (is_regular_or_new(name)) held.emplace(false);
    if (!open_output_file(&file.emplace(), name.c_str())) fail();
  }
  ~State() {
    if (file) close_output_file(&*file);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  [[noreturn]] void fail() const { throw system_failure(name, "cannot write"); }
  bool is_staged() const { return file && file->staged >= 0; }
  bool is_in_memory() const { return file && file->staged < 0 && file->is_regular; }

  void end_if_asked() {
    if (!held || !SignalsHeld::is_end_waiting()) return;
    close_output_file(&*file);
    held.reset();
    throw Failure(kInputOutput, name + ": not written: interrupted");
  }

  const std::string name;
  std::optional<SignalsHeld> held;
  std::optional<kvjpx_common::OutputFile> file;
  std::string contents;
  uint64_t position = 0;  // in contents
};

ResultStream::ResultStream(const Target& target) {
  check_takes_binary(target);
  state_ = std::make_unique<State>(target);
}

ResultStream::~ResultStream() = default;

void ResultStream::write(std::string_view bytes) {
  State& state = *state_;
  if (!state.file) {
    write_stdout(bytes);
  } else if (state.is_in_memory()) {
    state.contents.replace(state.position, bytes.size(), bytes);
    state.position += bytes.size();
  } else {
    state.end_if_asked();
    if (!fill_output_file(&*state.file, bytes.data(), bytes.size())) state.fail();
  }
}

bool ResultStream::can_seek() const { return state_->is_staged() || state_->is_in_memory(); }

void ResultStream::seek(uint64_t position) {
  State& state = *state_;
  state.position = position;
  if (state.is_staged() && lseek(state.file->staged, static_cast<off_t>(position), SEEK_SET) < 0) {
    state.fail();
  }
}

void ResultStream::finish() {
  State& state = *state_;
  if (!state.file) return;
  state.end_if_asked();
  const bool is_done =
      (!state.is_in_memory() ||
       fill_output_file(&*state.file, state.contents.data(), state.contents.size())) &&
      (!state.is_staged() || fsync(state.file->staged) == 0) && complete_output_file(&*state.file);
  if (!is_done) state.fail();
}

void fill_file(const std::string& name, const std::function<void()>& fill) {
  // A limit on file sizes is told like any other failed write.
  std::signal(SIGXFSZ, SIG_IGN);
  // Opening and filling a pipe may take for ever.
  std::optional<SignalsHeld> held;
  if (is_regular_or_new(name)) held.emplace();
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
