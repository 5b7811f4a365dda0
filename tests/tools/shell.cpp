// Folders and command lines.
#include "shell.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

// Captured output lies outside the test's folder, so that a test can look at what is left there.
std::string captured(const std::string& folder, const char* stream) {
  return folder + "." + stream;
}

std::string file_contents(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

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
  for (const char* stream : {"out", "err"}) std::filesystem::remove(captured(folder_, stream));
}

Result ShellTest::run(const std::string& line) {
  const std::string out = captured(folder_, "out");
  const std::string err = captured(folder_, "err");
  const int status = std::system(("{ " + line + "\n} >" + out + " 2>" + err).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, file_contents(out), file_contents(err)};
}

std::string ShellTest::output_of(const std::string& line) {
  const Result result = run(line);
  EXPECT_EQ(result.exit_code, 0) << line;
  EXPECT_EQ(result.err, "") << line;
  return result.out;
}

void ShellTest::write(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

std::string ShellTest::read(const std::string& name) { return file_contents(name); }

testing::AssertionResult fails(const Result& result, int exit_code, const std::string& message) {
  if (result.exit_code == exit_code && result.err == "kvjpx: " + message + "\n" &&
      result.out.empty()) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << "exit " << result.exit_code << ", message: " << result.err << "output: " << result.out;
}
