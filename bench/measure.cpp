// Measuring in children (see measure.h).
#include "measure.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

namespace {

void limit_child(unsigned seconds) {
  if (seconds == kNoLimit) return;
  const rlimit limit = {seconds, seconds + 1};
  setrlimit(RLIMIT_CPU, &limit);
}

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// Of a child that tells nothing itself.
Cost wait_for(pid_t child) {
  int status = 0;
  rusage usage = {};
  wait4(child, &status, 0, &usage);
  Cost cost;
  cost.seconds = seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
  cost.bytes = static_cast<double>(usage.ru_maxrss) * 1024;
  cost.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  cost.is_over =
      WIFSIGNALED(status) && (WTERMSIG(status) == SIGXCPU || WTERMSIG(status) == SIGKILL);
  return cost;
}

void silence() {
  const int nowhere = open("/dev/null", O_RDWR);
  dup2(nowhere, STDIN_FILENO);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

}  // namespace

double processor_seconds() {
  timespec time;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Cost measure_work(const std::function<Cost()>& work, unsigned seconds_limit) {
  int ends[2];
  fflush(nullptr);
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    limit_child(seconds_limit);
    silence();
    const Cost cost = work();
    const bool is_told = write(ends[1], &cost, sizeof(cost)) == sizeof(cost);
    _exit(is_told ? 0 : 1);
  }
  close(ends[1]);
  Cost told;
  const bool is_told = read(ends[0], &told, sizeof(told)) == sizeof(told);
  close(ends[0]);
  const Cost seen = wait_for(child);
  return is_told ? told : seen;
}

Cost measure_program(const std::vector<std::string>& arguments, unsigned seconds_limit) {
  std::vector<char*> words;
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    limit_child(seconds_limit);
    silence();
    execv(words[0], words.data());
    _exit(127);
  }
  return wait_for(child);
}
