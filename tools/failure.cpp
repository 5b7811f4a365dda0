// Words for what went wrong.
#include "failure.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kvjpx_errors.h"
#include "terminal.h"

namespace kvjpx_tool {

Failure system_failure(const std::string& place, const std::string& what) {
  // The system refuses to take bytes that a mapped file no longer has.
  const bool is_input_shorter = errno == EFAULT;
  return Failure(kInputOutput, place + ": " + what + ": " +
                                   (is_input_shorter ? "the input was shortened meanwhile"
                                                     : std::strerror(errno)));
}

std::string library_reason(int32_t code) {
  switch (code) {
    case JPX_ERR_MEMORY:
      return "not enough memory";
    case JPX_ERR_INVALID_ARGUMENT:
      return "the value is out of range";
    case JPX_ERR_NO_SUCH_FIELD:
      return "the box has no such field in its present state, or the index is out of range";
    case JPX_ERR_BUFFER_TOO_SMALL:
      return "a box holds more bytes than its length says";
    case JPX_ERR_CANNOT_MAKE_BOX:
      return "a box of this type may not stand there";
    case JPX_ERR_BAD_SIGNATURE:
      return "the signature box does not hold the JPEG 2000 signature";
    case JPX_ERR_READ_PAST_END:
      return "the file ends inside a box, or a box reaches past the end of its container";
    case JPX_ERR_OPEN_FILE:
      return "the file cannot be opened";
    case JPX_ERR_FILE_IO:
      return "reading the file failed";
    default:
      return "unexpected result " + std::to_string(code) + " of the library";
  }
}

Failure library_failure(const std::string& place, int32_t code, ExitCode refusal) {
  // A file that has been loaded was complete then.
  if (code == JPX_ERR_READ_PAST_END && refusal != kNotJpx) {
    return Failure(kInputOutput, place + ": the file was shortened while it was read");
  }
  const bool out_of_means = code == JPX_ERR_MEMORY || code == JPX_ERR_OPEN_FILE ||
                            code == JPX_ERR_FILE_IO || code == JPX_ERR_INTERNAL;
  return Failure(out_of_means ? kInputOutput : refusal, place + ": " + library_reason(code));
}

void report(const std::string& message) {
  std::fprintf(stderr, "kvjpx: %s\n", text_for(STDERR_FILENO, message).c_str());
}

}  // namespace kvjpx_tool
