// Starts the processes and talks with them.
#include "workers.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

namespace kvjpx_tool {
namespace {

// Stands in front of every piece of output, and of the message that ends a task.
struct Header {
  enum Kind : uint32_t { kOutput, kEnd };

  uint32_t kind;
  uint32_t exit_code;
  uint64_t length;
};

bool read_all(int descriptor, void* data, size_t length) {
  for (char* to = static_cast<char*>(data); length > 0;) {
    const ssize_t done = read(descriptor, to, length);
    if (done == 0 || (done < 0 && errno != EINTR)) return false;
    if (done < 0) continue;
    to += done;
    length -= static_cast<size_t>(done);
  }
  return true;
}

bool write_all(int descriptor, const void* data, size_t length) {
  for (const char* from = static_cast<const char*>(data); length > 0;) {
    const ssize_t done = write(descriptor, from, length);
    if (done < 0 && errno != EINTR) return false;
    if (done < 0) continue;
    from += done;
    length -= static_cast<size_t>(done);
  }
  return true;
}

template <typename Number>
bool read_number(int descriptor, Number& number) {
  return read_all(descriptor, &number, sizeof number);
}

template <typename Number>
bool write_number(int descriptor, const Number& number) {
  return write_all(descriptor, &number, sizeof number);
}

void send(int descriptor, const Header& header, std::string_view bytes) {
  if (write_number(descriptor, header) && write_all(descriptor, bytes.data(), bytes.size())) return;
  _exit(kInputOutput);
}

// Passes on what a header announces; false when the sender has ended before.
bool receive(int descriptor, uint64_t length, const Sink& sink) {
  char piece[1 << 16];
  while (length > 0) {
    const size_t wanted = length < sizeof piece ? static_cast<size_t>(length) : sizeof piece;
    if (!read_all(descriptor, piece, wanted)) return false;
    sink({piece, wanted});
    length -= wanted;
  }
  return true;
}

}  // namespace

Workers::Pipe::Pipe() {
  if (pipe2(ends, O_CLOEXEC) != 0) throw system_failure("jobs", "cannot make a pipe");
}

Workers::Pipe::~Pipe() {
  close(ends[0]);
  close(ends[1]);
}

Workers::Workers(size_t count, unsigned jobs, Task task)
    : count_(count), task_(std::move(task)), workers_(jobs) {
  write_number(next_.writing_end(), uint64_t{0});
  for (uint32_t place = 0; place < jobs; ++place) start(place);
}

Workers::~Workers() {
  for (const Worker& worker : workers_) {
    if (worker.process < 0) continue;
    // Nobody waits for its results any more.
    kill(worker.process, SIGKILL);
    close(worker.results);
    waitpid(worker.process, nullptr, 0);
  }
}

void Workers::start(uint32_t place) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw system_failure("jobs", "cannot make a pipe");
  // A copy of what waits to be written would be written again.
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work(place, ends[1]);
  }
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    throw system_failure("jobs", "cannot start a process");
  }
  workers_[place] = {process, ends[0]};
}

void Workers::work(uint32_t place, int results) const {
  const Sink sink = [results](std::string_view bytes) {
    send(results, {Header::kOutput, 0, bytes.size()}, bytes);
  };
  for (uint64_t number; read_number(next_.reading_end(), number);) {
    const bool is_task = number < count_;
    if (is_task) write_number(takers_.writing_end(), place);
    write_number(next_.writing_end(), number + (is_task ? 1 : 0));
    if (!is_task) break;
    const Outcome outcome = task_(number, sink);
    send(results, {Header::kEnd, static_cast<uint32_t>(outcome.exit_code), outcome.message.size()},
         outcome.message);
  }
  // The parent's objects and streams are not this process's to end.
  _exit(kDone);
}

Outcome Workers::collect(const std::string& label, const Sink& sink) {
  uint32_t place = 0;
  read_number(takers_.reading_end(), place);
  const int results = workers_[place].results;
  Header header;
  while (read_number(results, header)) {
    if (header.kind == Header::kOutput) {
      if (!receive(results, header.length, sink)) break;
      continue;
    }
    Outcome outcome{static_cast<ExitCode>(header.exit_code), {}};
    const Sink keep = [&outcome](std::string_view bytes) { outcome.message += bytes; };
    if (receive(results, header.length, keep)) return outcome;
    break;
  }
  return outcome_of_broken(place, label);
}

Outcome Workers::outcome_of_broken(uint32_t place, const std::string& label) {
  int status = 0;
  waitpid(workers_[place].process, &status, 0);
  close(workers_[place].results);
  workers_[place] = {};
  start(place);
  // One that has ended by itself has said why.
  if (!WIFSIGNALED(status)) return {kInputOutput, {}};
  return {kInputOutput,
          label + ": reading it broke down: " + std::string(strsignal(WTERMSIG(status)))};
}

}  // namespace kvjpx_tool
