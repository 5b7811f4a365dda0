// Reading commands over many files: which files, in how many processes, and what comes of each.
//
// A command takes the list with CommandLine::take_files(command, whether bare codestreams will do),
// which adds FILE..., --recursive, --files-from, --null and --jobs, and hands its work on one file
// to read_files():
//
//   return read_files(files_, json ? Form::kJsonLines : Form::kHeadings,
//                     [&](const std::string& file, std::ostream& out) {
//                       describe(OpenedFile(file), out);
//                       return kDone;
//                     });
#ifndef KVJPX_TOOLS_MANY_H_
#define KVJPX_TOOLS_MANY_H_

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "failure.h"

namespace kvjpx_tool {

// What a command line says about the files to read.
struct FileList {
  std::vector<std::string> names;  // "-" is standard input
  bool is_recursive = false;       // a directory stands for the pictures in it
  std::string names_file;          // with further names, one a line; "-" is standard input
  bool names_end_with_null = false;
  bool may_be_codestreams = false;  // bare ones are pictures, too
  unsigned jobs = 1;  // files that are read at a time; 0 for as many as there are processors
};

enum class Form {
  kHeadings,   // text, under the file's name when several files were asked for
  kText,       // text that names its file itself
  kJsonLines,  // one line a file; one that cannot be read gets an object with its error
};

// Writes what a command says about one file. It may print nowhere but to `out`, keeps nothing for
// the next file, and tells what it must say besides by throwing a Failure, also after it has
// written something; with kJsonLines it writes one whole line or throws before it writes.
using ReadFile = std::function<ExitCode(const std::string& file, std::ostream& out)>;

// Reads the files one after the other, or several at a time in processes of their own, so that not
// even one that breaks the program keeps it from the others. What is written to `out` goes to
// standard output as it comes, in the order of the files whatever the number of jobs, and is
// filtered for terminals. Goes on after a failure, and returns the highest of all exit codes.
ExitCode read_files(const FileList& list, Form form, const ReadFile& read);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_MANY_H_
