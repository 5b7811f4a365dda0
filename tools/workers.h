// Processes that share numbered tasks, and hand in their results in the order of the tasks.
#ifndef KVJPX_TOOLS_WORKERS_H_
#define KVJPX_TOOLS_WORKERS_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"

namespace kvjpx_tool {

// What a task came to besides what it wrote: an exit code and, unless empty, a message.
struct Outcome {
  ExitCode exit_code = kDone;
  std::string message;
};

using Sink = std::function<void(std::string_view)>;

// Each process takes the next task as soon as it is free, runs ahead of the caller only as far as a
// pipe holds its output, and ends with the program. One that breaks down costs its task alone.
class Workers {
 public:
  using Task = std::function<Outcome(size_t number, const Sink& sink)>;

  // Starts `jobs` processes for the tasks 0 to `count` - 1. Call it before any thread is started.
  Workers(size_t count, unsigned jobs, Task task);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // The output and the outcome of the next task, which are waited for. `label` is what a message
  // calls it if its process breaks down.
  Outcome collect(const std::string& label, const Sink& sink);

 private:
  struct Worker {
    pid_t process = -1;
    int results = -1;
  };
  struct Pipe {
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reading_end() const { return ends[0]; }
    int writing_end() const { return ends[1]; }

    int ends[2];
  };

  void start(uint32_t place);
  [[noreturn]] void work(uint32_t place, int results) const;
  Outcome outcome_of_broken(uint32_t place, const std::string& label);

  const size_t count_;
  const Task task_;
  // Holds the number of the next task. Who has read it may take that task, and writes the next.
  Pipe next_;
  // The places of the workers that have taken the tasks, in the order of the tasks.
  Pipe takers_;
  std::vector<Worker> workers_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_WORKERS_H_
