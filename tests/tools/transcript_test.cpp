// Transcripts: what a user types, and what the program must answer.
//
//   == Name          starts a scenario, in a fresh folder that holds the file a.jp2
//   = NAME BYTES     {NAME} stands for these bytes (see support/bytes.h) from here on
//   if LINE          skips the scenario unless the line succeeds
//   > FILE BYTES     writes a file
//   < FILE BYTES     the file holds exactly these bytes
//   $ LINE           runs a line with sh: it exits with 0, and prints the lines that follow, first
//                    to standard output, then to standard error; "..." stands for what is left
//   $ LINE => TEXT   the same for a single line
//   5$ LINE          the same, with exit code 5
//   5? LINE          the same, whatever is printed
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"

namespace kvjpx::test {
namespace {

namespace fs = std::filesystem;

// Exact 8-byte headers throughout, so it is written back as it was read.
constexpr char kSmallFile[] =
    "[jP  0D0A870A][ftyp'jp2 '00000000'jp2 '][jp2h[ihdr00000003_00000005_0001_07070000]"
    "[colr010000_00000010][colr010000_00000011]][lbl 'Nemo'][jp2cFF4F0001FFD9]";

void write(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

struct Result {
  int exit_code;
  std::string printed;
};

// The output files stand outside the test's folder, so that a test can look at what is left there.
Result run(const std::string& line) {
  const TempFile out, err;
  const int status = std::system(("{ " + line + "\n} >" + out.path() + " 2>" + err.path()).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.contents() + err.contents()};
}

struct Scenario {
  std::string name;
  std::string where;
  std::vector<std::string> lines;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.where; }

std::vector<Scenario> scenarios() {
  std::vector<Scenario> result;
  for (const char* const file : {"program", "decode", "edit", "check", "see"}) {
    std::istringstream lines(
        file_contents(KVJPX_TRANSCRIPTS "/" + std::string(file) + ".transcript"));
    std::vector<std::pair<std::string, std::string>> names;
    for (std::string line; std::getline(lines, line);) {
      if (line[0] == '#') continue;
      for (const auto& [name, bytes] : names) {
        for (size_t at = 0; (at = line.find(name)) != std::string::npos;) {
          line.replace(at, name.size(), bytes);
        }
      }
      if (line.rfind("= ", 0) == 0) {
        const size_t end = line.find(' ', 2);
        names.emplace_back("{" + line.substr(2, end - 2) + "}", line.substr(end));
      } else if (line.rfind("== ", 0) == 0) {
        result.push_back({line.substr(3), std::string(file) + ".transcript", {}});
      } else if (!result.empty()) {
        result.back().lines.push_back(line);
      }
    }
  }
  return result;
}

class Transcript : public testing::TestWithParam<Scenario> {
 protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(folder_.data()), nullptr);
    fs::current_path(folder_);
    const std::string program = fs::path(KVJPX_PROGRAM).parent_path();
    setenv("PATH", (program + ":/usr/bin:/bin").c_str(), 1);
    setenv("SAMPLES", KVJPX_SOURCES "/samples", 1);
    setenv("FUZZ", KVJPX_SOURCES "/fuzz", 1);
    setenv("CODEC", KVJPX_CODEC, 1);
    setenv("NO_COLOR", "1", 1);
    setenv("FAILING_CODEC", KVJPX_FAILING_CODEC, 1);
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer calls dlopen in the program's stead, and then the program's own search path for
    // the codec does not count.
    setenv("LD_LIBRARY_PATH", (program + "/../lib").c_str(), 1);
    // Starting the program is what takes long there: of many cases of a kind it gets every seventh.
    setenv("STEP", "7", 1);
#else
    setenv("STEP", "1", 1);
#endif
    write("a.jp2", bytes_of(kSmallFile));
  }
  void TearDown() override {
    fs::current_path("/");
    fs::remove_all(folder_);
  }

 private:
  std::string folder_ = testing::TempDir() + "kvjpx-XXXXXX";
};
INSTANTIATE_TEST_SUITE_P(Tool, Transcript, testing::ValuesIn(scenarios()),
                         [](const auto& info) { return info.param.name; });

TEST_P(Transcript, IsWhatHappens) {
  static const std::regex kDirective(R"((\d*)([$?]|if|[<>]) (\S*)(.*))");
  const std::vector<std::string>& lines = GetParam().lines;
  std::smatch parts;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    SCOPED_TRACE(GetParam().where + ": " + lines[i]);
    ASSERT_TRUE(std::regex_match(lines[i], parts, kDirective));
    const std::string action = parts[2];
    if (action == ">") {
      write(parts[3], bytes_of(parts[4]));
    } else if (action == "<") {
      EXPECT_EQ(file_contents(parts[3]), bytes_of(parts[4]));
    } else {
      std::string command = parts[3].str() + parts[4].str();
      std::string expected;
      if (const size_t arrow = command.find(" => "); arrow != std::string::npos) {
        expected = command.substr(arrow + 4);
        command.resize(arrow);
      }
      const Result result = run(command);
      if (action == "if" && result.exit_code != 0) GTEST_SKIP() << lines[i];
      EXPECT_EQ(std::to_string(result.exit_code), parts[1].length() == 0 ? "0" : parts[1].str());
      while (i + 1 < lines.size() && !std::regex_match(lines[i + 1], kDirective)) {
        expected += lines[++i] + '\n';
      }
      std::string actual = result.printed;
      const auto strip = [](std::string& text) { text.erase(text.find_last_not_of(" \n") + 1); };
      strip(actual);
      strip(expected);
      if (expected.size() > 3 && expected.substr(expected.size() - 3) == "...") {
        expected.resize(expected.size() - 3);
        actual.resize(std::min(actual.size(), expected.size()));
      }
      if (action == "$") {
        EXPECT_EQ(actual, expected);
      }
    }
  }
}

}  // namespace
}  // namespace kvjpx::test
