// kvjpx: looks into JPX and JP2 files and edits them from the command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <new>
#include <sstream>

#include "commands.h"
#include "input_file.h"
#include "many.h"
#include "output.h"
#include "reference.h"
#include "suggestion.h"
#include "terminal.h"
#include "version.h"

namespace kvjpx_tool {
namespace {

const char kDescription[] =
    R"(kvjpx looks into JPX and JP2 files (ISO/IEC 15444-2, 15444-1) and edits them.)";

const char kConventions[] =
    R"(PATH names a box: jp2h/ihdr, or jp2h/colr[1] (counting from 0 among siblings of one
type; without [i] the first), or #17 for an identifier; / is the file itself. Blanks
at the end of a type may be left out; unusual characters are written %XX. 'kvjpx ls'
prints every path.
FILE and OUT may be - for standard input and output. OUT may be FILE itself: outputs
are written beside their target and renamed when complete. Edits change what they name,
the lengths of the boxes around it and the positions of moved fragments; every other
byte stays as it is, in damaged files, too. Messages about a box begin with FILE:OFFSET:
and its path.

Exit codes, of several files the highest:
  0  done
  2  wrong usage
  3  a file cannot be opened, read or written
  4  not a JPX: the file has no box
  5  no such path or field
  6  an edit is refused; nothing is written
  7  nothing could be decoded

Examples:
  kvjpx ls photo.jpx
  kvjpx get photo.jpx jp2h/ihdr.WIDTH
  kvjpx set photo.jpx jp2h/ihdr.IPR=1 -o changed.jpx
  kvjpx decode photo.jpx -o photo.png)";

// Hidden commands are for other programs.
bool is_shown(const CLI::App* command) { return !command->get_group().empty(); }

// The table of commands: a function add_<name>() is a row of it, with the name, the summary, the
// examples, the function to run, and the arguments and options. What the words FILE, PATH, OUT and
// F stand for is the same in all rows. Holds what the command line gave.
class CommandLine {
 public:
  CommandLine() : app_(kDescription, "kvjpx") {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", version_text);
    app_.footer(kConventions);
    add_ls();
    add_print();
    add_get();
    add_set();
    add_add();
    add_rm();
    add_extract();
    add_copy();
    add_decode();
    add_reference();
    add_complete();
  }

  ExitCode run(int argc, char** argv) {
    // An empty word comes from a variable that was not set, and names nothing.
    if (std::find(argv, argv + argc, std::string_view()) != argv + argc) {
      throw Failure(kUsage, "an argument is empty");
    }
    try {
      app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      if (error.get_exit_code() != 0) {
        throw Failure(kUsage, usage_message(error) + " (see kvjpx --help)");
      }
      // A call for help or the version.
      std::ostringstream text;
      app_.exit(error, text, text);
      print_text(with_headings(STDOUT_FILENO, text.str()));
      return kDone;
    }
    return action_();
  }

 private:
  // The parser misses a command before it looks at what stands in its place.
  std::string usage_message(const CLI::ParseError& error) const {
    const std::vector<std::string> unknown = app_.remaining(true);
    if (unknown.empty()) return error.what();
    const std::vector<CLI::App*> command = app_.get_subcommands();
    const std::string word = "'" + unknown.front() + "' is ";
    Suggestion suggestion(unknown.front().substr(0, unknown.front().find('=')));
    if (command.empty()) {
      for (const CLI::App* known : app_.get_subcommands(is_shown)) {
        suggestion.consider(known->get_name());
      }
      return word + "no command" + suggestion.text();
    }
    for (const CLI::Option* option : command.front()->get_options()) {
      for (const std::string& name : option->get_lnames()) suggestion.consider("--" + name);
    }
    return word + "not expected by " + command.front()->get_name() + suggestion.text();
  }

  CLI::App* command(const std::string& name, const std::string& description,
                    const std::string& examples, const std::function<ExitCode()>& action) {
    CLI::App* command = app_.add_subcommand(name, description);
    command->footer("Examples:\n" + examples + kSeeProgramHelp);
    command->callback([this, action] { action_ = action; });
    return command;
  }

  void take_file(CLI::App* command, std::string& file) {
    command->add_option("FILE", file, "JPX or JP2 file; - is standard input")
        ->required()
        ->type_name("");
  }

  // For commands that read any number of files, with read_files().
  void take_files(CLI::App* command, bool may_be_codestreams = false) {
    const std::string files =
        may_be_codestreams ? "JPX or JP2 files or bare codestreams" : "JPX or JP2 files";
    command->parse_complete_callback(
        [this, may_be_codestreams] { files_.may_be_codestreams = may_be_codestreams; });
    command->add_option("FILE", files_.names, files + "; - is standard input")->type_name("");
    command->add_flag(
        "-r,--recursive", files_.is_recursive,
        "Take all " + files + " in a directory and in those below it, by their endings");
    command
        ->add_option("--files-from", files_.names_file,
                     "File with the names of files, one a line; - is standard input")
        ->type_name("F");
    command->add_flag("-0,--null", files_.names_end_with_null,
                      "The names in that file end with a zero byte, as find -print0 writes them");
    command
        ->add_option("-j,--jobs", files_.jobs,
                     "Read N files at a time; 0 for as many as there are processors")
        ->check(CLI::Range(0, 1024))
        ->type_name("N");
  }

  CLI::Option* take_target(CLI::App* command) {
    command->add_flag("--force", target_.force, "Write binary data even to a terminal");
    return command->add_option("-o,--output", target_.name, "Output file; - is standard output")
        ->type_name("OUT");
  }

  void add_ls() {
    CLI::App* ls = command(
        "ls", "List boxes: offset, total length, identifier, path, type",
        "  kvjpx ls photo.jpx\n  kvjpx ls --jobs 4 --recursive archive\n"
        "Behind the type stands what is odd about a box: malformed, misplaced, cut short,\n"
        "open-ended (it has no length) or 64-bit (it has a long one). Bytes that belong to\n"
        "no box have a line of their own.",
        [this] { return list_boxes(files_); });
    take_files(ls);
  }

  void add_print() {
    CLI::App* print = command("print", "Describe a box with everything in it",
                              "  kvjpx print photo.jpx\n  kvjpx print photo.jpx jp2h/colr", [this] {
                                print_box(file_, path_.empty() ? "/" : path_);
                                return kDone;
                              });
    take_file(print, file_);
    print->add_option("PATH", path_, "Box to describe; without it, the whole file")->type_name("");
  }

  void add_get() {
    CLI::App* get =
        command("get", "Read a field of a box, or all its fields",
                "  kvjpx get photo.jpx jp2h/ihdr.WIDTH\n"
                "  kvjpx get photo.jpx ftyp.CL[0]\n"
                "  kvjpx get photo.jpx jp2h/colr          (all fields)\n"
                "  kvjpx get photo.jpx jp2h/colr.ICC -o profile.icc\n"
                "Numbers are printed in decimal, bytes in hexadecimal; a repeating field\n"
                "prints one entry a line.",
                [this] {
                  GetRequest request{file_, path_, std::nullopt};
                  if (has_target_->count() > 0) request.raw_target = target_;
                  get_field(request);
                  return kDone;
                });
    take_file(get, file_);
    get->add_option("PATH.FIELD", path_, "Field, PATH.FIELD[i] for one entry; PATH for all")
        ->required()
        ->type_name("");
    has_target_ = take_target(get)->description("Write the field's bytes as they are to this file");
  }

  void add_set() {
    CLI::App* set =
        command("set", "Change fields of boxes; all of them or, if one is refused, none",
                "  kvjpx set photo.jpx jp2h/ihdr.IPR=1 jp2h/ihdr.UnkC=0 -o changed.jpx\n"
                "  kvjpx set photo.jpx \"ftyp.BR='jpx '\" -o photo.jpx\n"
                "  kvjpx set photo.jpx xml.DATA=@note.xml -o changed.jpx\n"
                "Values: decimal or 0x numbers, also negative; four-character codes in\n"
                "quotes; bytes as @FILE, hex:00ff or text:words. An entry number equal to\n"
                "the number of entries appends one.",
                [this] {
                  set_fields(file_, items_, target_);
                  return kDone;
                });
    take_file(set, file_);
    set->add_option("PATH.FIELD=VALUE", items_, "What to change")->required()->type_name("");
    take_target(set)->required();
  }

  void add_add() {
    CLI::App* add = command("add", "Add an empty box, or one with a payload",
                            "  kvjpx add photo.jpx xml --into / --payload note.xml -o changed.jpx\n"
                            "  kvjpx add photo.jpx colr --after jp2h/ihdr -o changed.jpx",
                            [this] {
                              add_box(add_, target_);
                              return kDone;
                            });
    take_file(add, add_.file);
    add->add_option("TYPE", add_.type, "Four-character type; trailing blanks may be left out")
        ->required()
        ->type_name("");
    CLI::Option* into = add_place(add, "--into", AddRequest::Place::kInto,
                                  "Put it as the last box into this container");
    CLI::Option* before =
        add_place(add, "--before", AddRequest::Place::kBefore, "Put it directly before this box");
    CLI::Option* after =
        add_place(add, "--after", AddRequest::Place::kAfter, "Put it directly after this box");
    into->excludes(before)->excludes(after);
    before->excludes(after);
    add->add_option("--payload", add_.payload_file, "File with the payload; - is standard input")
        ->type_name("F");
    take_target(add)->required();
  }

  CLI::Option* add_place(CLI::App* add, const std::string& name, AddRequest::Place place,
                         const std::string& description) {
    const auto take = [this, place](const std::string& path) {
      add_.place = place;
      add_.reference = path;
    };
    return add->add_option_function<std::string>(name, take, description)->type_name("PATH");
  }

  void add_rm() {
    CLI::App* rm = command("rm", "Remove boxes with everything in them",
                           "  kvjpx rm photo.jpx xml uuid[1] -o smaller.jpx", [this] {
                             remove_boxes(file_, items_, target_);
                             return kDone;
                           });
    take_file(rm, file_);
    rm->add_option("PATH", items_, "Boxes to remove")->required()->type_name("");
    take_target(rm)->required();
  }

  void add_extract() {
    CLI::App* extract =
        command("extract", "Take out the payload of a box, as it stands in the file",
                "  kvjpx extract photo.jpx jp2c -o photo.j2c\n"
                "  kvjpx extract photo.jpx xml | less",
                [this] {
                  extract_payload(file_, path_, target_);
                  return kDone;
                });
    take_file(extract, file_);
    extract->add_option("PATH", path_, "Box whose payload is wanted")->required()->type_name("");
    take_target(extract);
  }

  void add_copy() {
    CLI::App* copy = command("copy", "Read a file and write it again, byte for byte",
                             "  kvjpx copy photo.jpx -o copy.jpx", [this] {
                               copy_file(file_, target_);
                               return kDone;
                             });
    take_file(copy, file_);
    take_target(copy)->required();
  }

  void add_decode() {
    CLI::App* decode =
        command("decode", "Decode a picture",
                "  kvjpx decode photo.jpx -o photo.png\n"
                "  kvjpx decode photo.jpx --region 0,0,640,480 --reduce 1 -o part.tif\n"
                "  kvjpx decode photo.jpx --format ppm -o - | less",
                [this] {
                  decode_picture(decode_, target_);
                  return kDone;
                });
    take_file(decode, decode_.file);
    decode->add_option("--format", decode_.format, "Without it, by the ending of OUT")
        ->type_name(decode_formats("|"));
    decode
        ->add_option("--region", decode_.region,
                     "left,top,right,bottom in samples of the full-size image")
        ->type_name("L,T,R,B");
    decode->add_option("--reduce", decode_.reduce, "Halve width and height N times")
        ->check(CLI::Range(0, 31))
        ->type_name("N");
    decode->add_option("--layers", decode_.layers, "Decode the first N quality layers only")
        ->check(CLI::Range(1, 255))
        ->type_name("N");
    decode
        ->add_option("--codestream", decode_.codestream,
                     "Decode this codestream alone, counting from 0, and compose nothing")
        ->type_name("N");
    decode
        ->add_option("--limit", decode_.limit,
                     "Work on at most N million samples (without it, " +
                         std::to_string(kDefaultDecodeLimit) +
                         ", and less where the file is too short to need so many)")
        ->check(CLI::Range(1, 1000000))
        ->type_name("N");
    take_target(decode)->required();
  }

  // For the build, which installs what comes of it.
  void add_reference() {
    CLI::App* reference = command("reference", "Print the manual page, or completions for a shell",
                                  "  kvjpx reference man | man -l -\n"
                                  "  . <(kvjpx reference bash)",
                                  [this] {
                                    print_text(kvjpx_tool::reference(app_, items_.front()));
                                    return kDone;
                                  });
    reference->group("");
    reference->add_option("FORM", items_, "One of the forms")
        ->required()
        ->check(CLI::IsMember(reference_forms()))
        ->expected(1);
  }

  // For the completions.
  void add_complete() {
    CLI::App* complete = command("complete", "Print the paths in a file, or the fields of a box",
                                 "  kvjpx complete photo.jpx jp2\n"
                                 "  kvjpx complete --fields photo.jpx jp2h/ihdr.",
                                 [this] {
                                   list_words(file_, path_, has_fields_);
                                   return kDone;
                                 });
    complete->group("");
    complete->add_flag("--fields", has_fields_, "Complete fields, too");
    take_file(complete, file_);
    complete->add_option("WORD", path_, "What the words begin with");
  }

  CLI::App app_;
  std::function<ExitCode()> action_;

  std::string file_;
  std::string path_;
  FileList files_;
  std::vector<std::string> items_;
  Target target_;
  CLI::Option* has_target_ = nullptr;
  bool has_fields_ = false;
  AddRequest add_;
  DecodeRequest decode_;
};

ExitCode run(int argc, char** argv) {
  try {
    const ExitCode result = CommandLine().run(argc, argv);
    finish_stdout();
    return result;
  } catch (const Failure& failure) {
    report(failure.what());
    return failure.exit_code();
  } catch (const std::bad_alloc&) {
    report("not enough memory");
    return kInputOutput;
  }
}

}  // namespace
}  // namespace kvjpx_tool

int main(int argc, char** argv) {
  kvjpx_tool::secure_standard_descriptors();
  kvjpx_tool::report_shortened_files();
  return kvjpx_tool::run(argc, argv);
}
