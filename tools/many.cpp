// Finds the files, reads them and puts what is said about them in order.
#include "many.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <streambuf>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "input_file.h"
#include "output.h"
#include "terminal.h"
#include "workers.h"

namespace kvjpx_tool {
namespace {

namespace fs = std::filesystem;

// By their endings: boxes, and bare codestreams behind them.
constexpr std::string_view kEndings[] = {".jp2", ".jpx", ".jpf", ".jph", ".jpm",
                                         ".mj2", ".j2k", ".j2c", ".jpc", ".jhc"};
constexpr size_t kBoxEndings = 6;

bool is_picture(const fs::path& path, bool may_be_codestream) {
  std::string ending = path.extension();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto* const end = may_be_codestream ? std::end(kEndings) : kEndings + kBoxEndings;
  return std::find(kEndings, end, ending) != end;
}

// The names of all files that a list stands for.
class Names {
 public:
  explicit Names(const FileList& list) : list_(list) {
    for (const std::string& name : list.names) add(name);
    if (!list.names_file.empty()) add_listed();
    is_one_file_ = names_.size() == 1 && list.names.size() == 1 && names_[0] == list.names[0];
  }

  const std::vector<std::string>& all() const { return names_; }
  // Whether one file was asked for by its name, and no other was or could have been.
  bool is_one_file() const { return is_one_file_; }
  // Of directories that cannot be read.
  ExitCode exit_code() const { return exit_code_; }

 private:
  void add(const std::string& name) {
    std::error_code error;
    if (list_.is_recursive && fs::is_directory(name, error)) {
      add_directory(name);
    } else {
      names_.push_back(name);
    }
  }

  // The order within a directory is that of the names, which no file system changes.
  void add_directory(const std::string& name) {
    std::error_code error;
    std::vector<fs::path> found;
    fs::recursive_directory_iterator place(name, error);
    for (; !error && place != fs::recursive_directory_iterator(); place.increment(error)) {
      std::error_code ignored;
      if (is_picture(place->path(), list_.may_be_codestreams) && place->is_regular_file(ignored)) {
        found.push_back(place->path());
      }
    }
    if (error) {
      report(name + ": cannot read the directory: " + error.message());
      exit_code_ = kInputOutput;
    }
    std::sort(found.begin(), found.end());
    names_.insert(names_.end(), found.begin(), found.end());
  }

  void add_listed() {
    const InputFile file(list_.names_file);
    const char end = list_.names_end_with_null ? '\0' : '\n';
    for (std::string_view rest = file.bytes(); !rest.empty();) {
      const std::string_view name = rest.substr(0, rest.find(end));
      if (!name.empty()) add(std::string(name));
      rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
    if (list_.names_file == "-" && std::find(names_.begin(), names_.end(), "-") != names_.end()) {
      throw Failure(kUsage, "standard input cannot be both a file and the list of files");
    }
  }

  const FileList& list_;
  std::vector<std::string> names_;
  bool is_one_file_ = false;
  ExitCode exit_code_ = kDone;
};

// Passes on what is written in large pieces.
class Buffer : public std::streambuf {
 public:
  // Where whole lines are wanted, a piece ends with the end of one.
  Buffer(Sink sink, bool wants_lines) : sink_(std::move(sink)), wants_lines_(wants_lines) {}

  void finish() {
    if (!pending_.empty()) sink_(pending_);
    pending_.clear();
    passable_ = 0;
  }

 protected:
  int_type overflow(int_type character) override {
    const char c = traits_type::to_char_type(character);
    if (!traits_type::eq_int_type(character, traits_type::eof())) xsputn(&c, 1);
    return traits_type::not_eof(character);
  }

  std::streamsize xsputn(const char* text, std::streamsize length) override {
    const std::string_view piece(text, static_cast<size_t>(length));
    const size_t passable = wants_lines_ ? piece.rfind('\n') + 1 : piece.size();
    if (passable != 0) passable_ = pending_.size() + passable;
    pending_ += piece;
    if (passable_ >= kPiece) {
      sink_(std::string_view(pending_).substr(0, passable_));
      pending_.erase(0, passable_);
      passable_ = 0;
    }
    return length;
  }

 private:
  static constexpr size_t kPiece = size_t{1} << 16;

  const Sink sink_;
  const bool wants_lines_;
  std::string pending_;
  size_t passable_ = 0;
};

Outcome read_one(const std::string& file, const ReadFile& read, Buffer& buffer) {
  Outcome outcome;
  std::ostream out(&buffer);
  // Without this, a stream keeps to itself what the sink throws.
  out.exceptions(std::ios::badbit);
  try {
    outcome.exit_code = read(file, out);
  } catch (const Failure& failure) {
    outcome = {failure.exit_code(), failure.what()};
  } catch (const std::bad_alloc&) {
    outcome = {kInputOutput, file + ": not enough memory"};
  }
  buffer.finish();
  return outcome;
}

// One line on a terminal that does not get the results themselves.
class Count {
 public:
  explicit Count(size_t total)
      : total_(total), is_shown_(total > 1 && isatty(STDERR_FILENO) && !isatty(STDOUT_FILENO)) {}

  void show(size_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (!is_shown_ || now < due_) return;
    due_ = now + std::chrono::milliseconds(200);
    std::fprintf(stderr, "\r%zu of %zu files", done, total_);
    is_written_ = true;
  }

  void wipe() {
    if (is_written_) std::fputs("\r\033[K", stderr);
    is_written_ = false;
  }

 private:
  const size_t total_;
  const bool is_shown_;
  bool is_written_ = false;
  std::chrono::steady_clock::time_point due_ =
      std::chrono::steady_clock::now() + std::chrono::seconds(1);
};

std::string error_line(const std::string& file, const Outcome& outcome) {
  using Json = nlohmann::ordered_json;
  const Json line = {{"file", file},
                     {"error", outcome.message},
                     {"exit_code", static_cast<int>(outcome.exit_code)}};
  return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

ExitCode read_files(const FileList& list, Form form, const ReadFile& read) {
  if (list.names.empty() && list.names_file.empty()) {
    throw Failure(kUsage, "no file is named: FILE, or --files-from");
  }
  const Names names(list);
  const std::vector<std::string>& files = names.all();
  const unsigned jobs = list.jobs > 0 ? list.jobs : std::thread::hardware_concurrency();
  std::optional<Workers> workers;
  if (jobs > 1 && files.size() > 1) {
    const auto count = static_cast<unsigned>(std::min<size_t>(jobs, files.size()));
    workers.emplace(files.size(), count, [&](size_t number, const Sink& sink) {
      Buffer buffer(sink, false);
      return read_one(files[number], read, buffer);
    });
  }

  Buffer printed([](std::string_view text) { print_text(text); }, isatty(STDOUT_FILENO) != 0);
  std::ostream out(&printed);
  out.exceptions(std::ios::badbit);
  Count count(files.size());
  ExitCode worst = names.exit_code();
  for (size_t i = 0; i < files.size(); ++i) {
    count.show(i);
    if (form == Form::kHeadings && !names.is_one_file()) {
      out << (i > 0 ? "\n" : "") << styled(STDOUT_FILENO, Style::kHeading, files[i] + ":") << "\n";
    }
    const Outcome outcome =
        workers ? workers->collect(files[i], [&](std::string_view text) { out << text; })
                : read_one(files[i], read, printed);
    printed.finish();
    // Where the results cannot go, no further file helps.
    if (std::ferror(stdout) != 0) finish_stdout();
    worst = std::max(worst, outcome.exit_code);
    if (outcome.message.empty()) continue;
    count.wipe();
    report(outcome.message);
    if (form == Form::kJsonLines) print_text(error_line(files[i], outcome));
  }
  count.wipe();
  return worst;
}

}  // namespace kvjpx_tool
