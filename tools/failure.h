// What ends a command before its work is done: an exit code and a message for people.
#ifndef KVJPX_TOOLS_FAILURE_H_
#define KVJPX_TOOLS_FAILURE_H_

#include <cstdint>
#include <stdexcept>
#include <string>

#include "kvjpx.hpp"

namespace kvjpx_tool {

// Documented in the program's help; scripts rely on the numbers.
enum ExitCode {
  kDone = 0,
  kFindings = 1,  // of check and diff
  kUsage = 2,
  kInputOutput = 3,
  kNotJpx = 4,
  kNoSuchPlace = 5,
  kEditRefused = 6,
  kNothingDecoded = 7,
};

class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exit_code, const std::string& message)
      : std::runtime_error(message), exit_code_(exit_code) {}

  ExitCode exit_code() const { return exit_code_; }

 private:
  ExitCode exit_code_;
};

// A failed system call: "<place>: <what>: <the system's reason>".
Failure system_failure(const std::string& place, const std::string& what);

// What the context's last call failed for, in the library's words. `refusal` is the exit code for
// what the library judges; short memory and unreadable files have their own.
Failure library_failure(const std::string& place, kv_jpx_context* context, ExitCode refusal);
Failure library_failure(const std::string& place, const kvjpx::error& error, ExitCode refusal);

// What the library answered, or its refusal as a Failure.
template <class Value>
Value taken(kvjpx::result<Value> result, const std::string& place, ExitCode refusal) {
  if (!result) throw library_failure(place, result.error(), refusal);
  return std::move(result).value();
}

// Writes "kvjpx: <message>" to standard error.
void report(const std::string& message);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_FAILURE_H_
