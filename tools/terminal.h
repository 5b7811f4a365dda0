// What a terminal may see. Names, types and texts come from files, and control characters among
// them would move the cursor, change colours or make the terminal type; pipes and files get every
// byte as it is.
#ifndef KVJPX_TOOLS_TERMINAL_H_
#define KVJPX_TOOLS_TERMINAL_H_

#include <functional>
#include <string>
#include <string_view>

namespace kvjpx_tool {

// The text with every byte of what cannot be printed in the user's locale written as \xNN. Line
// ends and tabs stay.
std::string printable(std::string_view text);

// The same for a stream that is a terminal, the text itself for any other.
std::string text_for(int descriptor, std::string_view text);

// How the program sets off its own words, in colours.
enum class Style { kHeading, kOddity, kFailure };

// The text in a style, for a stream that shows one: a terminal, unless the user has set NO_COLOR or
// has one that knows no colours. It has to go through text_for() or print_text() of this program,
// which no escape sequence passes but those that come from here.
std::string styled(int descriptor, Style style, const std::string& text);

// The lines of a help, with headings set off.
std::string with_headings(int descriptor, const std::string& text);

// What a function prints to standard output, which does not get it.
std::string printed_by(const std::function<void()>& print);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_TERMINAL_H_
