// Writes the table of commands for man, bash, zsh and fish.
#include "reference.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>

namespace kvjpx_tool {
namespace {

using Options = std::vector<const CLI::Option*>;

std::vector<const CLI::App*> commands_of(const CLI::App& program) {
  // Hidden commands have no group.
  return program.get_subcommands([](const CLI::App* app) { return !app->get_group().empty(); });
}

Options options_of(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

Options operands_of(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

// "-o", "--output"
std::vector<std::string> names_of(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

// What stands for the value of an option or for an operand; empty for a flag. The parser adds what
// it checks behind a colon, choices in braces.
std::string value_of(const CLI::Option& option) {
  if (option.get_positional()) return option.get_name(true);
  if (option.get_items_expected_max() == 0) return "";
  const std::string name = option.get_type_name();
  const size_t colon = std::min(name.find(':'), name.size());
  if (name.compare(colon, 2, ":{") != 0) return name.substr(0, colon);
  std::string choices = name.substr(colon + 2, name.size() - colon - 3);
  std::replace(choices.begin(), choices.end(), ',', '|');
  return choices;
}

bool repeats(const CLI::Option& option) {
  return option.get_items_expected_max() >= CLI::detail::expected_max_vector_size;
}

enum class Kind { kNone, kFile, kPath, kField, kChoice };

Kind kind_of(const std::string& value) {
  constexpr std::string_view kFree[] = {"",     "N",   "NAME",       "TYPE",   "VALUE",
                                        "TEXT", "BOX", "RESOLUTION", "L,T,R,B"};
  if (value == "PATH") return Kind::kPath;
  if (value.rfind("PATH.", 0) == 0) return Kind::kField;
  if (value.find('|') != value.npos) return Kind::kChoice;
  const bool is_free = std::find(std::begin(kFree), std::end(kFree), value) != std::end(kFree);
  return is_free ? Kind::kNone : Kind::kFile;
}

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::string choices_of(const std::string& value) { return replace_all(value, "|", " "); }

// For a shell's single quotes.
std::string quote(const std::string& text) { return "'" + replace_all(text, "'", "'\\''") + "'"; }

// --- man

std::string roff(const std::string& text) {
  const std::string safe = replace_all(replace_all(text, "\\", "\\e"), "-", "\\-");
  return !safe.empty() && (safe[0] == '.' || safe[0] == '\'') ? "\\&" + safe : safe;
}

// Text as in a help: lines that begin with blanks stay as they are, others are filled. With
// `headings`, a line behind an empty one that ends with a colon heads what follows.
std::string roff_text(const std::string& text, bool headings) {
  std::istringstream lines(text);
  std::string page;
  bool is_display = false, is_behind_empty = true;
  for (std::string line; std::getline(lines, line);) {
    const bool is_displayed = line.rfind("  ", 0) == 0;
    if (is_displayed != is_display) page += is_displayed ? ".PP\n.EX\n" : ".EE\n.PP\n";
    is_display = is_displayed;
    if (line.empty()) {
      page += ".PP\n";
    } else if (headings && is_behind_empty && line.back() == ':') {
      page += ".SH " + roff(line.substr(0, line.size() - 1)) + "\n";
    } else {
      page += roff(line) + "\n";
    }
    is_behind_empty = line.empty();
  }
  return page + (is_display ? ".EE\n" : "");
}

std::string manual_of(const CLI::App& command) {
  std::string synopsis = "\\fBkvjpx " + command.get_name() + "\\fR [\\fIOPTIONS\\fR]";
  std::string items;
  for (const CLI::Option* operand : operands_of(command)) {
    const std::string name =
        "\\fI" + roff(value_of(*operand)) + "\\fR" + (repeats(*operand) ? "..." : "");
    synopsis += operand->get_required() ? " " + name : " [" + name + "]";
    items += ".TP\n" + name + "\n" + roff(operand->get_description()) + "\n";
  }
  for (const CLI::Option* option : options_of(command)) {
    std::string names = "\\fB" + roff(joined(names_of(*option), ", ")) + "\\fR";
    if (!value_of(*option).empty()) names += " \\fI" + roff(value_of(*option)) + "\\fR";
    if (option->get_required()) names += " (required)";
    items += ".TP\n" + names + "\n" + roff(option->get_description()) + "\n";
  }
  std::string footer = command.get_footer();
  footer.resize(std::min(footer.size(), footer.find(kSeeProgramHelp)));
  return ".SS " + command.get_name() + "\n" + synopsis + "\n.PP\n" +
         roff(command.get_description()) + ".\n" + items + ".PP\n" + roff_text(footer, false);
}

std::string manual(const CLI::App& program) {
  std::string page = ".TH KVJPX 1 \"\" \"kvjpx " KVJPX_VERSION "\" \"User commands\"\n.SH NAME\n";
  page += "kvjpx \\- look into JPX and JP2 files and edit them\n.SH SYNOPSIS\n";
  page += "\\fBkvjpx\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR] [\\fIFILE\\fR...]\n.SH DESCRIPTION\n";
  page += roff_text(program.get_description(), false) + ".SH COMMANDS\n";
  for (const CLI::App* command : commands_of(program)) page += manual_of(*command);
  return page + ".SH Paths and files\n" + roff_text(program.get_footer(), true);
}

// --- bash

const char kBash[] = R"(
_kvjpx() {
  local cur=${COMP_WORDS[COMP_CWORD]} command= file= options= valued= operands= value= word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ -n $value ]]; then
      value=
    elif [[ -z $command ]]; then
      [[ $word == -* ]] && continue
      command=$word
      _kvjpx_table "$command"
    elif [[ $word == -?* ]]; then
      [[ $valued == *" $word:"* ]] && { value=${valued#*" $word:"}; value=${value%% *}; }
    else
      [[ -n $file ]] || file=$word
      [[ $operands == *' '* ]] && operands=${operands#* }
    fi
  done
  if [[ -z $command ]]; then
    COMPREPLY=($(compgen -W "$_kvjpx_commands --help --version" -- "$cur"))
    return
  fi
  if [[ -z $value && $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
    return
  fi
  # Behind a = stands the value of a field.
  [[ $cur == = || ${COMP_WORDS[COMP_CWORD - 1]} == = ]] && return
  file=${file/#\~\//$HOME/}
  file=${file//[\\\"\']/}
  case ${value:-${operands%% *}} in
    path) mapfile -t COMPREPLY < <(kvjpx complete "$file" ${cur:+"$cur"} 2>/dev/null) ;;
    field*)
      mapfile -t COMPREPLY < <(kvjpx complete --fields "$file" ${cur:+"$cur"} 2>/dev/null)
      compopt -o nospace ;;
    file)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
    *,*)
      value=${value:-${operands%% *}}
      COMPREPLY=($(compgen -W "${value//,/ }" -- "$cur")) ;;
  esac
}
complete -F _kvjpx kvjpx
)";

std::string bash_kind(const std::string& value) {
  switch (kind_of(value)) {
    case Kind::kNone:
      return "none";
    case Kind::kFile:
      return "file";
    case Kind::kPath:
      return "path";
    case Kind::kField:
      return "field";
    case Kind::kChoice:
      break;
  }
  return replace_all(value, "|", ",");
}

std::string bash(const CLI::App& program) {
  std::vector<std::string> names;
  std::string rows;
  for (const CLI::App* command : commands_of(program)) {
    names.push_back(command->get_name());
    std::vector<std::string> options, operands;
    std::string valued = " ";
    for (const CLI::Option* option : options_of(*command)) {
      for (const std::string& name : names_of(*option)) {
        options.push_back(name);
        const std::string value = value_of(*option);
        if (!value.empty()) valued += name + ":" + bash_kind(value) + " ";
      }
    }
    // The last operand's kind stays for those that are given besides.
    for (const CLI::Option* operand : operands_of(*command)) {
      operands.push_back(bash_kind(value_of(*operand)));
    }
    rows += "    " + command->get_name() + ")\n      options=" + quote(joined(options, " ")) +
            "\n      valued=" + quote(valued) + "\n      operands=" + quote(joined(operands, " ")) +
            " ;;\n";
  }
  return "# Completion for bash of kvjpx's commands, options and files, and of the paths in them.\n"
         "_kvjpx_commands=" +
         quote(joined(names, " ")) + "\n_kvjpx_table() {\n  case $1 in\n" + rows + "  esac\n}" +
         kBash;
}

// --- zsh

const char kZshWords[] = R"--(
_kvjpx_words() {
  local -a found
  found=(${(f)"$(kvjpx complete $@ -- ${(Q)line[1]} ${(Q)PREFIX} 2>/dev/null)"})
  if [[ $1 == --fields ]]; then
    compadd -S '' -a found
  else
    compadd -a found
  fi
}
)--";

// A blank in front keeps the shell from adding arguments of its own.
std::string zsh_action(const std::string& value) {
  switch (kind_of(value)) {
    case Kind::kNone:
      return " ";
    case Kind::kFile:
      return "_files";
    case Kind::kPath:
      return " _kvjpx_words";
    case Kind::kField:
      return " _kvjpx_words --fields";
    case Kind::kChoice:
      break;
  }
  return "(" + choices_of(value) + ")";
}

std::string zsh_text(std::string text) {
  for (const char* const special : {"\\", ":", "[", "]"}) {
    text = replace_all(text, special, std::string("\\") + special);
  }
  return text;
}

std::string zsh(const CLI::App& program) {
  std::string names, rows;
  for (const CLI::App* command : commands_of(program)) {
    names +=
        "    " + quote(command->get_name() + ":" + zsh_text(command->get_description())) + "\n";
    rows += "    " + command->get_name() + ")\n      _arguments -s";
    for (const CLI::Option* option : options_of(*command)) {
      const std::vector<std::string> option_names = names_of(*option);
      const std::string value = value_of(*option);
      for (const std::string& name : option_names) {
        std::string entry = "(" + joined(option_names, " ") + ")" + name + "[" +
                            zsh_text(option->get_description()) + "]";
        if (!value.empty()) entry += ":" + zsh_text(value) + ":" + zsh_action(value);
        rows += " \\\n        " + quote(entry);
      }
    }
    const Options operands = operands_of(*command);
    for (const CLI::Option* operand : operands) {
      const std::string value = value_of(*operand);
      // The shell knows of nothing behind what repeats.
      const bool is_last = operand == operands.back();
      rows += " \\\n        " + quote((is_last && repeats(*operand) ? "*:" : ":") +
                                      zsh_text(value) + ":" + zsh_action(value));
    }
    rows += " ;;\n";
  }
  return "#compdef kvjpx\n"
         "# Completion for zsh of kvjpx's commands, options and files, and of the paths in them." +
         std::string(kZshWords) +
         "_kvjpx() {\n  local -a commands line\n  local -A opt_args\n  commands=(\n" + names +
         "  )\n  if (( CURRENT == 2 )); then\n    _describe command commands\n    return\n  fi\n"
         "  shift words\n  (( CURRENT-- ))\n  case $words[1] in\n" +
         rows + "  esac\n}\n_kvjpx \"$@\"\n";
}

// --- fish

const char kFish[] =
    R"(# Completion for fish of kvjpx's commands, options and files, and of the paths in them.
function __kvjpx_file
  set -l words (commandline -opc)
  for word in $words[3..-1]
    if test -f $word
      echo $word
      return 0
    end
  end
  return 1
end
function __kvjpx_words
  set -l word (commandline -ct)
  test -n "$word"; or set -e word
  kvjpx complete $argv (__kvjpx_file) $word 2>/dev/null
end
complete -c kvjpx -f
)";

std::string fish_arguments(const std::string& value) {
  switch (kind_of(value)) {
    case Kind::kNone:
      return value.empty() ? "" : " -x";
    case Kind::kFile:
      return " -r -F";
    case Kind::kPath:
      return " -x -a '(__kvjpx_words)'";
    case Kind::kField:
      return " -x -a '(__kvjpx_words --fields)'";
    case Kind::kChoice:
      break;
  }
  return " -x -a " + quote(choices_of(value));
}

std::string fish(const CLI::App& program) {
  std::string lines = kFish;
  const auto fish_text = [](const std::string& text) {
    return "'" + replace_all(replace_all(text, "\\", "\\\\"), "'", "\\'") + "'";
  };
  for (const CLI::App* command : commands_of(program)) {
    const std::string& name = command->get_name();
    lines += "complete -c kvjpx -n __fish_use_subcommand -a " + name + " -d " +
             fish_text(command->get_description()) + "\n";
    const std::string seen = "__fish_seen_subcommand_from " + name;
    for (const CLI::Option* option : options_of(*command)) {
      lines += "complete -c kvjpx -n '" + seen + "'";
      for (const std::string& letter : option->get_snames()) lines += " -s " + letter;
      for (const std::string& word : option->get_lnames()) lines += " -l " + word;
      lines +=
          fish_arguments(value_of(*option)) + " -d " + fish_text(option->get_description()) + "\n";
    }
    // The first file is the one whose paths are wanted afterwards.
    const Options operands = operands_of(*command);
    const std::string value = operands.empty() ? "" : value_of(*operands.back());
    const bool is_in_file = kind_of(value) == Kind::kPath || kind_of(value) == Kind::kField;
    lines +=
        "complete -c kvjpx -n '" + seen + (is_in_file ? "; and not __kvjpx_file" : "") + "' -F\n";
    if (is_in_file) {
      lines += "complete -c kvjpx -n '" + seen + "; and __kvjpx_file >/dev/null'" +
               fish_arguments(value) + "\n";
    }
  }
  return lines;
}

struct Form {
  const char* name;
  std::string (*write)(const CLI::App& program);
};
constexpr Form kForms[] = {{"man", manual}, {"bash", bash}, {"zsh", zsh}, {"fish", fish}};

}  // namespace

std::vector<std::string> reference_forms() {
  std::vector<std::string> names;
  for (const Form& form : kForms) names.push_back(form.name);
  return names;
}

std::string reference(const CLI::App& program, const std::string& form) {
  for (const Form& known : kForms) {
    if (form == known.name) return known.write(program);
  }
  return {};
}

}  // namespace kvjpx_tool
