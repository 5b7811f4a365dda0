// Words for what went wrong.
#include "failure.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "terminal.h"

namespace kvjpx_tool {

Failure system_failure(const std::string& place, const std::string& what) {
  // The system refuses to take bytes that a mapped file no longer has.
  const bool is_input_shorter = errno == EFAULT;
  return Failure(kInputOutput, place + ": " + what + ": " +
                                   (is_input_shorter ? "the input was shortened meanwhile"
                                                     : std::strerror(errno)));
}

Failure library_failure(const std::string& place, kv_jpx_context* context, ExitCode refusal) {
  kv_jpx_error_info error = {};
  error.size = sizeof error;
  kv_jpx_get_last_error(context, &error);
  return library_failure(place, kvjpx::error(error.code, error.text), refusal);
}

Failure library_failure(const std::string& place, const kvjpx::error& error, ExitCode refusal) {
  switch (error.code()) {
    case JPX_ERR_MEMORY:
      return Failure(kInputOutput, place + ": not enough memory");
    case JPX_ERR_READ_PAST_END:
      // A file that has been loaded was complete then.
      return Failure(kInputOutput, place + ": the file was shortened while it was read");
    case JPX_ERR_OPEN_FILE:
    case JPX_ERR_FILE_IO:
    case JPX_ERR_INTERNAL:
      refusal = kInputOutput;
  }
  return Failure(refusal, place + ": " + error.text());
}

void report(const std::string& message) {
  std::fprintf(
      stderr, "%s\n",
      text_for(STDERR_FILENO, styled(STDERR_FILENO, Style::kFailure, "kvjpx:") + " " + message)
          .c_str());
}

}  // namespace kvjpx_tool
