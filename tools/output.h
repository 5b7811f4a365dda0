// Where results go: standard output, or a file that is replaced as a whole or not at all.
#ifndef KVJPX_TOOLS_OUTPUT_H_
#define KVJPX_TOOLS_OUTPUT_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kvjpx_tool {

// A target as given on the command line.
struct Target {
  std::string name = "-";  // "-" is standard output
  bool force = false;      // binary data may go to a terminal

  bool is_stdout() const { return name == "-"; }
};

// Text for people or scripts, on standard output.
void print_text(std::string_view text);

// Throws a Failure when the target is a terminal and not forced. Commands call it before long work.
void check_takes_binary(const Target& target);

// Writes a result. A regular file is written beside its target and renamed, so that a failure
// leaves the old file as it was; an existing file keeps its permissions. Devices and pipes, and
// files that cannot be replaced, are written directly. Binary bytes are kept from a terminal.
void write_result(const Target& target, std::string_view bytes);

// A result that is made bit by bit, with the promises of write_result: what is seen of a regular
// file is the old or the whole new one. Throws a Failure when it can't be written, or when the user
// asked the program to end, which takes effect at the next write.
class ResultStream {
 public:
  explicit ResultStream(const Target& target);
  // Without finish(), a regular file stays as it was.
  ~ResultStream();
  ResultStream(const ResultStream&) = delete;
  ResultStream& operator=(const ResultStream&) = delete;

  void write(std::string_view bytes);
  bool can_seek() const;
  // To where the next bytes go; not behind the end of what has been written.
  void seek(uint64_t position);
  void finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Runs `fill`, which makes and writes a file of this name, so that neither a signal nor a limit on
// file sizes ends it half-way.
void fill_file(const std::string& name, const std::function<void()>& fill);

// Makes sure that everything printed has arrived; throws a Failure when not.
void finish_stdout();

// Gives the three standard descriptors a meaning when the caller has closed them, so that no file
// opened later lands on their numbers; reading or writing them still fails.
void secure_standard_descriptors();

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_OUTPUT_H_
