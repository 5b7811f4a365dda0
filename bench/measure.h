// Runs a piece of work in a process of its own and says what it cost.
#ifndef KVJPX_BENCH_MEASURE_H_
#define KVJPX_BENCH_MEASURE_H_

#include <functional>
#include <string>
#include <vector>

struct Cost {
  double seconds = 0;    // of processor time, in the program and in the system for it
  double bytes = 0;      // of memory, at most
  bool is_over = false;  // ended after the limit
  int exit_code = 0;
};

// Under a limit the system tells processor time in steps of some milliseconds.
constexpr unsigned kNoLimit = 0;

// Runs work, which returns the cost, in a child.
Cost measure_work(const std::function<Cost()>& work, unsigned seconds_limit);

// Runs a program without its output.
Cost measure_program(const std::vector<std::string>& arguments, unsigned seconds_limit);

double processor_seconds();

#endif  // KVJPX_BENCH_MEASURE_H_
