// The table of commands as a manual page and as completions for shells.
#ifndef KVJPX_TOOLS_REFERENCE_H_
#define KVJPX_TOOLS_REFERENCE_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kvjpx_tool {

// Ends the help of every command; a manual page holds what it points to.
constexpr char kSeeProgramHelp[] = "\nPaths and exit codes: kvjpx --help";

// "man", and the names of the shells.
std::vector<std::string> reference_forms();

// `form` is one of them. What a command takes in a place follows from what its row calls it: PATH
// is a path in the command's first FILE, PATH.FIELD a field, words with | between them are the
// choices, N, NAME, TYPE, VALUE and the like are free text, and everything else is a file.
std::string reference(const CLI::App& program, const std::string& form);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_REFERENCE_H_
