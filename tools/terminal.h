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

// Runs `print`, which writes to the stdio stream of standard output, so that a terminal gets
// printable text only.
void print_filtered(const std::function<void()>& print);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_TERMINAL_H_
