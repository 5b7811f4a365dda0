// kvjpx: looks into JPX and JP2 files and edits them from the command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <sstream>
#include <utility>

#include "commands.h"
#include "input_file.h"
#include "many.h"
#include "metadata.h"
#include "output.h"
#include "picture_reading.h"
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
type; without [i] the first), or #17 for an identifier; / is the file itself, and
uuid:xmp the box with XMP (uuid:exif, uuid:iptc, uuid:geotiff). Blanks at the end of a
type may be left out; unusual characters are written %XX. 'kvjpx ls' prints every path.
FILE and OUT may be - for standard input and output. OUT may be FILE itself: outputs
are written beside their target and renamed when complete. Edits change what they name,
the lengths of the boxes around it and the positions of moved fragments; every other
byte stays as it is, in damaged files, too. Messages about a box begin with FILE:OFFSET:
and its path.

Exit codes, of several files the highest:
  0  done
  1  check has found errors, diff differences
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
  // Only the row that is asked for is made, where it is known, as making all of them takes longer
  // than listing a file.
  explicit CommandLine(std::string_view wanted) : app_(kDescription, "kvjpx") {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", version_text);
    app_.footer(kConventions);
    const auto* const only = std::find_if(std::begin(kRows), std::end(kRows),
                                          [=](const Row& r) { return r.name == wanted; });
    if (only != std::end(kRows)) {
      (this->*only->add)();
    } else {
      for (const Row& row : kRows) (this->*row.add)();
    }
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

  void add_info() {
    CLI::App* info =
        command("info", "Tell what a file is: image, colour, resolution, codestreams, metadata",
                "  kvjpx info photo.jpx\n  kvjpx info --json *.jp2 picture.j2c\n"
                "Behind each line stands the box that it comes from. What is unusual comes last:\n"
                "boxes and codestream headers that are not as ISO/IEC 15444 has them.",
                [this] {
                  info_.files = files_;
                  return show_info(info_);
                });
    take_files(info, true);
    info->add_flag("--json", info_.json, "Print one JSON object a file, on a line of its own");
  }

  void add_ls() {
    CLI::App* ls = command(
        "ls", "List boxes: offset, total length, identifier, path, type",
        "  kvjpx ls photo.jpx\n  kvjpx ls --jobs 4 --recursive archive\n"
        "Behind the type stand the name of a UUID and what is odd about the box: malformed,\n"
        "misplaced, cut short, open-ended (it has no length) or 64-bit (it has a long one).\n"
        "Bytes that belong to no box have a line of their own.",
        [this] {
          list_.files = files_;
          return list_boxes(list_);
        });
    take_files(ls);
    const auto form = [this](ListForm wanted) {
      return [this, wanted](std::int64_t) { list_.form = wanted; };
    };
    CLI::Option* tree =
        ls->add_flag_function("--tree", form(ListForm::kTree), "Draw the tree of boxes");
    ls->add_flag_function("--json", form(ListForm::kJson),
                          "Print one JSON object a file, on a line of its own")
        ->excludes(tree);
  }

  void add_dump() {
    CLI::App* dump = command(
        "dump", "Show everything: boxes, fields by name, payloads, codestream headers",
        "  kvjpx dump photo.jpx\n"
        "  kvjpx dump --codestream photo.jpx picture.j2c\n"
        "  kvjpx dump --format json photo.jpx | jq '.boxes[] | select(.type == \"colr\")'\n"
        "Values are followed by their meaning; payloads are told by length and SHA-256, texts in\n"
        "full. Of long lists the text has the beginning, JSON everything: one object a file,\n"
        "numbers above 2^53 as strings.",
        [this] {
          dump_.files = files_;
          return dump_files(dump_);
        });
    take_files(dump, true);
    dump->add_option("--format", dump_.format, "text or json")
        ->check(CLI::IsMember({"text", "json"}))
        ->type_name("NAME");
    dump->add_flag("--codestream", dump_.codestreams,
                   "Add the headers of codestreams, marker by marker");
  }

  void add_diff() {
    CLI::App* diff = command(
        "diff", "Tell in what two files differ: boxes, fields, payloads, codestream headers",
        "  kvjpx diff before.jpx after.jpx\n"
        "A box that only A has begins with -, one that only B has with +. Boxes are paired by\n"
        "type and content, so an inserted one does not make others differ. Exit code 0 means\n"
        "that every byte is the same, 1 that something differs.",
        [this] { return diff_files(file_, path_); });
    diff->add_option("A", file_, "JPX or JP2 file or bare codestream; - is standard input")
        ->required()
        ->type_name("");
    diff->add_option("B", path_, "The other one")->required()->type_name("");
  }

  // Behind the files, which take every word of the command line, stands the path; where no other
  // word does, a path that there need not be.
  std::string take_path(const std::string& without) {
    std::vector<std::string>& words = files_.names;
    const bool has_files = !files_.names_file.empty();
    if (words.size() + (has_files ? 1 : 0) < 2) {
      if (without.empty()) throw Failure(kUsage, "FILE and PATH.FIELD are required");
      return without;
    }
    std::string path = std::move(words.back());
    words.pop_back();
    return path;
  }

  void add_print() {
    CLI::App* print = command("print", "Describe a box with everything in it",
                              "  kvjpx print photo.jpx\n  kvjpx print photo.jpx jp2h/colr\n"
                              "  kvjpx print *.jpx /\n"
                              "Of several words the last one is the path. 'kvjpx dump' tells the "
                              "same to programs.",
                              [this] {
                                const std::string path = take_path("/");
                                return print_boxes(files_, path);
                              });
    take_files(print);
    print->add_option("PATH", path_, "Box to describe; without it, the whole file")->type_name("");
  }

  void add_get() {
    CLI::App* get =
        command("get", "Read a field of a box, or all its fields",
                "  kvjpx get photo.jpx jp2h/ihdr.WIDTH\n"
                "  kvjpx get photo.jpx ftyp.CL[0]\n"
                "  kvjpx get photo.jpx jp2h/colr          (all fields)\n"
                "  kvjpx get photo.jpx jp2h/colr.ICC -o profile.icc\n"
                "  kvjpx get photo.jpx jp2h               (fields, and the boxes in it)\n"
                "  kvjpx get --json -r archive jp2h/ihdr\n"
                "Numbers are printed in decimal, types as 'jp2 ', texts as they are, other\n"
                "bytes in hexadecimal; a repeating field prints one entry a line. The last word\n"
                "is the path.",
                [this] {
                  get_.address = take_path("");
                  get_.files = files_;
                  if (has_target_->count() > 0) get_.raw_target = target_;
                  return get_fields(get_);
                });
    take_files(get);
    get->add_option("PATH.FIELD", path_, "Field, PATH.FIELD[i] for one entry; PATH for all")
        ->type_name("");
    CLI::Option* raw =
        get->add_flag("--raw", get_.is_raw, "Print types and texts as numbers and in hexadecimal");
    has_target_ = take_target(get)->description("Write the field's bytes as they are to this file");
    get->add_flag("--json", get_.json, "Print one JSON object a file, on a line of its own")
        ->excludes(raw)
        ->excludes(has_target_);
  }

  // The options that all edits share. Their action runs with edit_.
  void take_edit(CLI::App* command) {
    take_file(command, edit_.file);
    CLI::Option* output =
        command->add_option("-o,--output", edit_.target.name, "Output file; - is standard output")
            ->type_name("OUT");
    command->add_flag("--in-place", edit_.in_place, "Replace FILE itself, when all is well")
        ->excludes(output);
    command->add_flag("--dry-run", edit_.dry_run, "Write nothing; tell what would change");
    command->add_flag("--unchecked", edit_.unchecked,
                      "Write results, too, that no reader could make sense of");
    command->add_flag("--force", edit_.target.force, "Write binary data even to a terminal");
    command->parse_complete_callback([this, command, output] {
      if (output->count() > 0 || edit_.in_place || edit_.dry_run) return;
      throw Failure(kUsage, command->get_name() + " needs -o OUT or --in-place");
    });
  }

  void add_set() {
    CLI::App* set = command(
        "set", "Change fields of boxes; all of them or, if one is refused, none",
        "  kvjpx set photo.jpx jp2h/ihdr.IPR=1 jp2h/ihdr.UnkC=0 -o changed.jpx\n"
        "  kvjpx set photo.jpx jp2h/colr.EnumCS=sRGB --in-place\n"
        "  kvjpx set photo.jpx \"ftyp.BR='jpx '\" -o photo.jpx\n"
        "  kvjpx set photo.jpx xml.DATA=@note.xml -o changed.jpx\n"
        "Values: decimal or 0x numbers, also negative; names (METH=icc); four-character\n"
        "codes in quotes; bytes as @FILE, hex:00ff or text:words. An entry number equal to\n"
        "the number of entries appends one.",
        [this] {
          set_fields(items_, edit_);
          return kDone;
        });
    take_edit(set);
    set->add_option("PATH.FIELD=VALUE", items_, "What to change")->required()->type_name("");
  }

  void add_add() {
    CLI::App* add = command(
        "add", "Add a box: empty, with a payload, or with boxes in it",
        "  kvjpx add photo.jpx xml --into / --payload note.xml -o changed.jpx\n"
        "  kvjpx add photo.jpx colr --after jp2h/ihdr -o changed.jpx\n"
        "  kvjpx add photo.jpx 'asoc{nlst=hex:00000000 lbl=\"The sky\" xml=@sky.xml}' --into / \\\n"
        "    --in-place\n"
        "BOX is a four-character type (trailing blanks may be left out), with TYPE=VALUE all\n"
        "that stands behind its header: @FILE, hex:00ff, text:words or just words; quotes keep\n"
        "blanks and braces together.",
        [this] {
          add_box(add_, edit_);
          return kDone;
        });
    take_edit(add);
    add->add_option("BOX", add_.box, "TYPE, TYPE=VALUE or TYPE{BOX...}")->required()->type_name("");
    take_place(add, add_.placement);
    add->add_option("--payload", add_.payload_file, "File with the payload; - is standard input")
        ->type_name("F");
  }

  void take_place(CLI::App* command, Placement& placement) {
    CLI::Option* into = place_option(command, "--into", placement, KV_JPX_PLACE_LAST_CHILD,
                                     "Put it as the last box into this container");
    CLI::Option* before = place_option(command, "--before", placement, KV_JPX_PLACE_BEFORE,
                                       "Put it directly before this box");
    CLI::Option* after = place_option(command, "--after", placement, KV_JPX_PLACE_AFTER,
                                      "Put it directly after this box");
    into->excludes(before)->excludes(after);
    before->excludes(after);
  }

  static CLI::Option* place_option(CLI::App* command, const std::string& name, Placement& placement,
                                   kv_jpx_placement place, const std::string& description) {
    const auto take = [&placement, place](const std::string& path) { placement = {place, path}; };
    return command->add_option_function<std::string>(name, take, description)->type_name("PATH");
  }

  void add_rm() {
    CLI::App* rm = command("rm", "Remove boxes with everything in them",
                           "  kvjpx rm photo.jpx xml uuid[1] -o smaller.jpx\n"
                           "  kvjpx rm photo.jpx 'uuid[*]' --in-place\n"
                           "TYPE[*] names all boxes of a type; uuid:xmp, uuid:exif, uuid:iptc and\n"
                           "uuid:geotiff those that hold such metadata.",
                           [this] {
                             remove_boxes(items_, edit_);
                             return kDone;
                           });
    take_edit(rm);
    rm->add_option("PATH", items_, "Boxes to remove")->required()->type_name("");
  }

  void add_mv() {
    CLI::App* mv = command("mv", "Move a box with everything in it",
                           "  kvjpx mv photo.jpx xml --before jp2c -o moved.jpx\n"
                           "  kvjpx mv photo.jpx 'lbl[0]' --into jpch --in-place",
                           [this] {
                             move_box(path_, add_.placement, edit_);
                             return kDone;
                           });
    take_edit(mv);
    mv->add_option("PATH", path_, "Box to move")->required()->type_name("");
    take_place(mv, add_.placement);
  }

  void add_replace() {
    CLI::App* replace = command("replace", "Replace all that stands behind the header of a box",
                                "  kvjpx replace photo.jpx xml --payload note.xml --in-place\n"
                                "It is the reverse of 'kvjpx extract'.",
                                [this] {
                                  replace_payload(path_, *add_.payload_file, edit_);
                                  return kDone;
                                });
    take_edit(replace);
    replace->add_option("PATH", path_, "Box to fill anew")->required()->type_name("");
    replace->add_option("--payload", add_.payload_file, "File with it; - is standard input")
        ->required()
        ->type_name("F");
  }

  void add_resolution() {
    CLI::App* resolution =
        command("resolution", "Set the resolution",
                "  kvjpx resolution photo.jp2 300dpi --in-place\n"
                "  kvjpx resolution photo.jp2 300x600dpi --display -o changed.jp2\n"
                "Units: dpi, dpcm, dpm (dots a metre). Written exactly: 300 dpi is 300/0.0254 a\n"
                "metre. Without --capture and --display those that the file has are set, or else\n"
                "the capture resolution.",
                [this] {
                  set_resolution(resolution_, edit_);
                  return kDone;
                });
    take_edit(resolution);
    resolution->add_option("RESOLUTION", resolution_.resolution, "Such as 300dpi, or WxHdpi")
        ->required()
        ->type_name("");
    resolution->add_flag("--capture", resolution_.sets_capture,
                         "That of the scanner or camera (resc)");
    resolution->add_flag("--display", resolution_.sets_display,
                         "That at which to show the image (resd)");
  }

  void add_icc() {
    CLI::App* icc =
        command("icc", "Tag with an ICC profile",
                "  kvjpx icc photo.jp2 adobe.icc --in-place\n"
                "Input and display profiles for grey, or for RGB by a matrix, become METH 2\n"
                "(restricted), others METH 3, which JPX readers know.",
                [this] {
                  set_profile(icc_, edit_);
                  return kDone;
                });
    take_edit(icc);
    icc->add_option("PROFILE", icc_.profile, "File with the profile")->required()->type_name("");
    icc->add_flag("--add", icc_.adds, "Add a colr box and leave those that are there");
  }

  void add_meta() {
    CLI::App* meta =
        command("meta", "Set or remove metadata",
                "  kvjpx meta photo.jp2 --xmp photo.xmp -o tagged.jp2\n"
                "  kvjpx meta photo.jp2 --remove exif,xmp --in-place\n"
                "  kvjpx meta photo.jp2 --remove all -o plain.jp2\n"
                "New boxes come in front of the codestream; one of the kind that is there is\n"
                "replaced. 'all' is every uuid, xml, uinf, mp7b, asoc and lbl box.",
                [this] {
                  set_metadata(meta_, edit_);
                  return kDone;
                });
    take_edit(meta);
    for (const auto& [kind, description] : {std::pair("xmp", "XMP packet"),
                                            {"exif", "Exif, as TIFF (as in JPEG, too)"},
                                            {"iptc", "IPTC records"},
                                            {"geotiff", "GeoTIFF of one sample"},
                                            {"xml", "XML, in an xml box"}}) {
      meta->add_option_function<std::string>(
              std::string("--") + kind,
              [this, kind = std::string(kind)](const std::string& name) {
                meta_.files[kind] = name;
              },
              description)
          ->type_name("F");
    }
    meta->add_option("--remove", meta_.removed, "Remove these; again, or with commas, for several")
        ->delimiter(',')
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("xmp|exif|iptc|geotiff|xml|all");
  }

  void add_label() {
    CLI::App* label =
        command("label", "Label the picture, or what a container stands for",
                "  kvjpx label photo.jpx 'Low tide' --in-place\n"
                "  kvjpx label photo.jpx Mask --into 'jpch[1]' -o labelled.jpx\n"
                "Without --into, an association of the label with the rendered result is added;\n"
                "with it, the container's label is set.",
                [this] {
                  set_label(text_, add_.placement.reference, edit_);
                  return kDone;
                });
    take_edit(label);
    label->add_option("TEXT", text_, "The label, UTF-8")->required()->type_name("");
    label->add_option("--into", add_.placement.reference, "jpch, jplh or asoc box")
        ->type_name("PATH");
  }

  void add_gml() {
    CLI::App* gml = command("gml", "Set the GML of a GMLJP2 file",
                            "  kvjpx gml photo.jpx place.gml --in-place\n"
                            "It stands in asoc{lbl=gml.data asoc{lbl=gml.root-instance xml}}.",
                            [this] {
                              set_gml(path_, edit_);
                              return kDone;
                            });
    take_edit(gml);
    gml->add_option("GML", path_, "File with the GML")->required()->type_name("");
  }

  void add_wrap() {
    CLI::App* wrap =
        command("wrap", "Make a JP2 of a bare codestream",
                "  kvjpx wrap photo.j2k -o photo.jp2\n"
                "  kvjpx wrap photo.j2k --colour adobe.icc -o photo.jp2\n"
                "Without --colour, one or two components are grey, three or four sRGB,\n"
                "or sYCC if the second and third are coarser.",
                [this] {
                  wrap_codestream(file_, text_, edit_.unchecked, target_);
                  return kDone;
                });
    wrap->add_option("CODESTREAM", file_, "Codestream; - is standard input")
        ->required()
        ->type_name("");
    wrap->add_option("--colour,--color", text_, "sRGB, grey, sYCC, or a file with an ICC profile")
        ->type_name("NAME");
    wrap->add_flag("--unchecked", edit_.unchecked, "Take other colours and profiles, too");
    take_target(wrap)->required();
  }

  void add_unwrap() {
    CLI::App* unwrap = command("unwrap", "Take a codestream out of its file",
                               "  kvjpx unwrap photo.jp2 -o photo.j2k", [this] {
                                 unwrap_codestream(file_, number_, target_);
                                 return kDone;
                               });
    take_file(unwrap, file_);
    unwrap->add_option("--codestream", number_, "Which of several, counting from 0")
        ->type_name("N");
    take_target(unwrap)->required();
  }

  void add_extract() {
    CLI::App* extract =
        command("extract", "Take out the payload of a box, a profile, or metadata",
                "  kvjpx extract photo.jpx jp2c -o photo.j2c\n"
                "  kvjpx extract photo.jpx xml | less\n"
                "  kvjpx extract photo.jpx --icc -o profile.icc\n"
                "  kvjpx extract photo.jpx --geotiff -o place.tif\n"
                "A payload is all that stands behind the header of the box. The options take the\n"
                "first of the kind, as 'kvjpx icc' and 'kvjpx meta' put it in.",
                [this] {
                  if ((path_.empty() ? 0 : 1) + items_.size() != 1) {
                    throw Failure(kUsage, "extract needs PATH or one of --icc, --xmp, ...");
                  }
                  path_.empty() ? extract_kind(file_, items_.front(), target_)
                                : extract_payload(file_, path_, target_);
                  return kDone;
                });
    take_file(extract, file_);
    extract->add_option("PATH", path_, "Box whose payload is wanted")->type_name("");
    std::vector<std::string> kinds = metadata_kinds();
    kinds.insert(kinds.begin(), "icc");
    for (const std::string& kind : kinds) {
      extract->add_flag_callback(
          "--" + kind, [this, kind] { items_.push_back(kind); },
          kind == "icc" ? "Take the ICC profile" : "Take the " + kind + " metadata");
    }
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
        command("decode", "Decode the picture that a file means",
                "  kvjpx decode photo.jpx -o photo.png\n"
                "  kvjpx decode photo.jpx --region 0,0,640,480 --reduce 1 -o part.tif\n"
                "  kvjpx decode photo.jpx --srgb --format ppm -o - | less\n"
                "  kvjpx decode film.jpx -o film.apng",
                [this] {
                  decode_picture(decode_, target_);
                  return kDone;
                });
    const auto take_number = [decode](const char* name, auto& number, const std::string& summary) {
      return decode->add_option(name, number, summary)->type_name("N");
    };
    take_file(decode, decode_.file);
    decode->add_option("--format", decode_.format, "Without it, by the ending of OUT")
        ->type_name(decode_formats("|"));
    decode
        ->add_option("--region", decode_.region,
                     "left,top,right,bottom in samples of the full-size image")
        ->type_name("L,T,R,B");
    take_number("--reduce", decode_.reduce, "Halve width and height N times")
        ->check(CLI::Range(0, 31));
    take_number("--layers", decode_.layers, "Decode the first N quality layers only")
        ->check(CLI::Range(1, 255));
    CLI::Option* const layer =
        take_number("--layer", decode_.layer,
                    "Show this compositing layer, counting from 0, and no composition");
    CLI::Option* const codestream =
        take_number("--codestream", decode_.codestream,
                    "Show the components of this codestream, counting from 0, whatever the file "
                    "says of them");
    CLI::Option* const frame =
        take_number("--frame", decode_.frame, "Show this frame of an animation, counting from 0");
    layer->excludes(codestream)->excludes(frame);
    codestream->excludes(frame);
    decode->add_flag("--srgb", decode_.srgb,
                     "Convert the colours to sRGB, instead of keeping them "
                     "with their ICC profile");
    decode->add_flag("--strict", decode_.strict,
                     "Fail for a damaged codestream, instead of showing what is there of it");
    decode->add_flag("--raw", decode_.raw,
                     "Write the components as they are, with 8 bits a sample, one codestream over "
                     "another (as the formats raw, planar, j2k and jp2 always do)");
    take_number("--quality", decode_.quality, "Quality of JPEG, 1 to 100 (without it 95)")
        ->check(CLI::Range(1, 100));
    take_number("--limit", decode_.limit,
                "Work on at most N million samples (without it " +
                    std::to_string(kDefaultDecodeLimit) +
                    ", and less where the file is too short to need so many)")
        ->check(CLI::Range(1, 1000000));
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

  void add_check() {
    CLI::App* check =
        command("check", "Check files against ISO/IEC 15444-1 and 15444-2",
                "  kvjpx check photo.jp2\n"
                "  kvjpx check --json --max 20 *.jpx\n"
                "  kvjpx check --ignore JP2-XML-FORM --strict photo.jp2\n"
                "Each finding is a line: file, offset, path, severity, identifier, what is\n"
                "wrong, what was found and expected, clause. Errors break the standard;\n"
                "warnings are what readers fail on. Nothing is printed of a file without\n"
                "findings. Bare codestreams are checked, too.",
                [this] {
                  if (lists_rules_) {
                    list_rules();
                    return kDone;
                  }
                  check_.files = files_;
                  check_.files.may_be_codestreams = true;
                  return check_files(check_);
                });
    take_files(check);
    check->add_option("--profile", check_.profile, "jp2, jpx, jph, or what a file claims: auto")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, unsigned>{{"auto", 0}, {"jp2", 1}, {"jpx", 2}, {"jph", 4}}))
        ->type_name("NAME");
    check->add_option("--only", check_.only, "Tell findings of this rule only; may be repeated")
        ->allow_extra_args(false)
        ->type_name("ID");
    check->add_option("--ignore", check_.ignore, "Do not tell findings of this rule; as --only")
        ->allow_extra_args(false)
        ->type_name("ID");
    check->add_option("--max", check_.max, "Tell at most N findings of a file")->type_name("N");
    check->add_flag("--json", check_.is_json, "One JSON object a file (docs/check.schema.json)");
    check->add_flag("--strict", check_.is_strict, "Exit with 1 also when there are warnings only");
    check->add_flag("--list", lists_rules_, "List the rules instead");
  }

  void add_report() {
    CLI::App* report = command(
        "report", "Write a page about a file: picture, facts, findings, boxes, bytes",
        "  kvjpx report photo.jpx -o photo.html\n"
        "One HTML file that needs no other. It has what info, check and dump tell, a small\n"
        "picture and a map of the file's bytes, and says what it leaves out of large files.",
        [this] {
          write_report(file_, target_);
          return kDone;
        });
    take_file(report, file_);
    take_target(report);
  }

  struct Row {
    std::string_view name;
    void (CommandLine::*add)();
  };
  // A command that is told about all others has no name here.
  static constexpr Row kRows[] = {
      {"info", &CommandLine::add_info},
      {"ls", &CommandLine::add_ls},
      {"dump", &CommandLine::add_dump},
      {"diff", &CommandLine::add_diff},
      {"print", &CommandLine::add_print},
      {"get", &CommandLine::add_get},
      {"set", &CommandLine::add_set},
      {"add", &CommandLine::add_add},
      {"rm", &CommandLine::add_rm},
      {"mv", &CommandLine::add_mv},
      {"replace", &CommandLine::add_replace},
      {"resolution", &CommandLine::add_resolution},
      {"icc", &CommandLine::add_icc},
      {"meta", &CommandLine::add_meta},
      {"label", &CommandLine::add_label},
      {"gml", &CommandLine::add_gml},
      {"wrap", &CommandLine::add_wrap},
      {"unwrap", &CommandLine::add_unwrap},
      {"extract", &CommandLine::add_extract},
      {"copy", &CommandLine::add_copy},
      {"decode", &CommandLine::add_decode},
      {"check", &CommandLine::add_check},
      {"report", &CommandLine::add_report},
      {"", &CommandLine::add_reference},
      {"complete", &CommandLine::add_complete},
  };

  CLI::App app_;
  std::function<ExitCode()> action_;

  std::string file_;
  std::string path_;
  FileList files_;
  std::vector<std::string> items_;
  Target target_;
  CLI::Option* has_target_ = nullptr;
  bool has_fields_ = false;
  EditRequest edit_;
  InfoRequest info_;
  ListRequest list_;
  DumpRequest dump_;
  GetRequest get_;
  AddRequest add_;
  ResolutionRequest resolution_;
  IccRequest icc_;
  MetaRequest meta_;
  std::string text_;
  std::optional<uint64_t> number_;
  DecodeRequest decode_;
  CheckRequest check_;
  bool lists_rules_ = false;
};

ExitCode run(int argc, char** argv) {
  try {
    const ExitCode result = CommandLine(argc > 1 ? argv[1] : "").run(argc, argv);
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
