// Folders and command lines.
#include "shell.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/files.h"

void ShellTest::SetUp() {
  std::string pattern = testing::TempDir() + "kvjpx-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  folder_ = pattern;
  std::filesystem::current_path(folder_);
  const std::string program = std::filesystem::path(KVJPX_PROGRAM).parent_path();
  setenv("PATH", (program + ":/usr/bin:/bin").c_str(), 1);
#ifdef __SANITIZE_ADDRESS__
  // The sanitizer calls dlopen in the program's stead, and then the program's own search path for
  // the codec does not count.
  setenv("LD_LIBRARY_PATH", (program + "/../lib").c_str(), 1);
#endif
}

void ShellTest::TearDown() {
  std::filesystem::current_path("/");
  std::filesystem::remove_all(folder_);
}

Result ShellTest::run(const std::string& line) {
  // Outside the test's folder, so that a test can look at what is left there.
  const kvjpx::test::TempFile out, err;
  const int status = std::system(("{ " + line + "\n} >" + out.path() + " 2>" + err.path()).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.contents(), err.contents()};
}

std::string ShellTest::output_of(const std::string& line) {
  const Result result = run(line);
  EXPECT_EQ(result.exit_code, 0) << line;
  EXPECT_EQ(result.err, "") << line;
  return result.out;
}

void ShellTest::refuses(const std::vector<Refusal>& refusals) {
  for (const auto& [arguments, exit_code, message] : refusals) {
    const Result result = run("kvjpx " + arguments);
    EXPECT_TRUE(fails(result, exit_code, message)) << arguments;
  }
}

void ShellTest::write(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

std::string ShellTest::read(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

testing::AssertionResult fails(const Result& result, int exit_code, const std::string& message) {
  const bool is_told = message.empty() || result.err == "kvjpx: " + message + "\n";
  if (result.exit_code == exit_code && is_told && result.out.empty()) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << "exit " << result.exit_code << ", message: " << result.err << "output: " << result.out;
}
