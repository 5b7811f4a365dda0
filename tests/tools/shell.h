// Runs command lines in a folder of their own, as a user would type them.
#ifndef KVJPX_TESTS_TOOLS_SHELL_H_
#define KVJPX_TESTS_TOOLS_SHELL_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

struct Result {
  int exit_code;
  std::string out;
  std::string err;
};

// A fresh folder for each test, the current one while it runs. The program is found as "kvjpx".
class ShellTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Runs a line with sh; output is captured unless the line redirects it.
  Result run(const std::string& line);

  // Runs a line that must succeed silently and returns what it printed.
  std::string output_of(const std::string& line);

  struct Refusal {
    std::string arguments;
    int exit_code;
    std::string message;  // if empty, any
  };

  // Runs the program with arguments that it must refuse.
  void refuses(const std::vector<Refusal>& refusals);

  void write(const std::string& name, const std::string& bytes);
  std::string read(const std::string& name);

 private:
  std::string folder_;
};

// Whether a line failed with this exit code, a message of exactly these words, and no output.
testing::AssertionResult fails(const Result& result, int exit_code, const std::string& message);

#endif  // KVJPX_TESTS_TOOLS_SHELL_H_
