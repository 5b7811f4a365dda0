// Filters what goes to a terminal.
#include "terminal.h"

#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <iterator>
#include <sstream>

#include "descriptor.h"
#include "failure.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

// Stands for an escape sequence of the program's own, with a digit behind it, until the text has
// been filtered. No file can hold it, since it is another one every time the program is started.
std::string make_mark() {
  unsigned char random[16];
  if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) return {};
  return "\033" + to_hex({reinterpret_cast<const char*>(random), sizeof random});
}
const std::string kMark = make_mark();

constexpr const char* kSequences[] = {"\033[1m", "\033[33m", "\033[1;31m", "\033[m"};
constexpr size_t kPlain = std::size(kSequences) - 1;

std::string mark_for(size_t sequence) { return kMark + static_cast<char>('0' + sequence); }

// The sequence that a text begins with a mark for; null when it does not.
const char* marked_sequence(std::string_view text) {
  if (text.size() <= kMark.size() || text.substr(0, kMark.size()) != kMark) return nullptr;
  const size_t sequence = static_cast<unsigned char>(text[kMark.size()]) - size_t{'0'};
  return sequence < std::size(kSequences) ? kSequences[sequence] : nullptr;
}

bool shows_styles(int descriptor) {
  const char* const no_color = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return isatty(descriptor) && !kMark.empty() && (!no_color || !*no_color) && terminal &&
         *terminal && std::string_view(terminal) != "dumb";
}

// The user's character set, for this thread and scope alone: elsewhere the program compares names
// and writes numbers as in the "C" locale.
class UserCharacters {
 public:
  UserCharacters() : users_(newlocale(LC_CTYPE_MASK, "", nullptr)) {
    if (users_) before_ = uselocale(users_);
  }
  ~UserCharacters() {
    if (!users_) return;
    uselocale(before_);
    freelocale(users_);
  }
  UserCharacters(const UserCharacters&) = delete;
  UserCharacters& operator=(const UserCharacters&) = delete;

 private:
  locale_t users_;
  locale_t before_ = nullptr;
};

// How many bytes at the beginning of a text are one character that may pass; 0 when none may.
size_t passing_length(std::string_view text) {
  if (text[0] == '\n' || text[0] == '\t') return 1;
  if (text.substr(0, 2) == "\r\n") return 2;
  if (format_control_length(text) > 0) return 0;
  wchar_t character = 0;
  std::mbstate_t state = {};
  const size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
  const bool is_character = length > 0 && length <= text.size();
  return is_character && std::iswprint(static_cast<wint_t>(character)) ? length : 0;
}

}  // namespace

std::string printable(std::string_view text) {
  const UserCharacters characters;
  std::string result;
  while (!text.empty()) {
    if (text[0] == '\033' && !kMark.empty()) {
      if (const char* const sequence = marked_sequence(text)) {
        result += sequence;
        text.remove_prefix(kMark.size() + 1);
        continue;
      }
    }
    const size_t length = passing_length(text);
    if (length > 0) {
      result += text.substr(0, length);
    } else {
      result += "\\x" + to_hex(text.substr(0, 1));
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return result;
}

std::string text_for(int descriptor, std::string_view text) {
  return isatty(descriptor) ? printable(text) : std::string(text);
}

std::string styled(int descriptor, Style style, const std::string& text) {
  if (!shows_styles(descriptor)) return text;
  return mark_for(static_cast<size_t>(style)) + text + mark_for(kPlain);
}

std::string with_headings(int descriptor, const std::string& text) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const bool is_heading = !line.empty() && line[0] != ' ' && line.back() == ':';
    result += (is_heading ? styled(descriptor, Style::kHeading, line) : line) + "\n";
  }
  return result;
}

std::string printed_by(const std::function<void()>& print) {
  std::fflush(stdout);
  const Descriptor real(dup(STDOUT_FILENO));
  const Descriptor file(memfd_create("printed", MFD_CLOEXEC));
  if (real.get() < 0 || file.get() < 0) throw system_failure("standard output", "cannot write");
  dup2(file.get(), STDOUT_FILENO);
  print();
  std::fflush(stdout);
  dup2(real.get(), STDOUT_FILENO);
  std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
  for (size_t done = 0; done < text.size();) {
    const ssize_t length =
        pread(file.get(), &text[done], text.size() - done, static_cast<off_t>(done));
    if (length <= 0) throw system_failure("standard output", "cannot write");
    done += static_cast<size_t>(length);
  }
  return text;
}

}  // namespace kvjpx_tool
