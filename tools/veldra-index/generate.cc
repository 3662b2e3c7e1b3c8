// What is made of the command line's definition: man page and completions.
#include "veldra-index/generate.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <string_view>

namespace veldra::tool {
namespace {

using Arguments = std::vector<Argument>;

std::string joined(const Arguments& arguments, std::string_view separator) {
  std::string text;
  for (const Argument& argument : arguments) {
    if (!argument.is_option()) continue;
    for (const std::string& name : argument.spellings())
      text += (text.empty() ? "" : std::string(separator)) + name;
  }
  return text;
}

std::string replaced(std::string text, std::string_view old, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += by.size())
    text.replace(at, old.size(), by);
  return text;
}

// The man page -----------------------------------------------------------------------------------

/// Plain text as roff: nothing in it is a request.
std::string roff(const std::string& text) {
  std::string safe = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
  if (safe.starts_with('.') || safe.starts_with('\'')) safe.insert(0, "\\&");
  return safe;
}

std::string man_entry(const Argument& argument) {
  std::string names;
  for (const std::string& name : argument.spellings())
    names += (names.empty() ? "" : ", ") + ("\\fB" + roff(name) + "\\fR");
  if (!argument.value.empty()) names += " \\fI" + argument.value + "\\fR";
  const std::string standard = argument.default_text();
  return ".TP\n" + names + "\n" + roff(argument.text) +
         (standard.empty() ? "" : roff(" (default: " + standard + ")")) + ".\n";
}

std::string man_entry(const Command& command) {
  std::string words;
  std::string entries;
  for (const Argument& argument : command.arguments) {
    if (!argument.is_option()) {
      const std::string word = "\\fI" + argument.names + "\\fR";
      words += argument.required ? " " + word : " [" + word + "]";
    }
    entries += man_entry(argument);
  }
  std::string text = fmt::format(".TP\n\\fB{}\\fR{}\n{}. {}\n", command.name, words,
                                 roff(command.summary), roff(command.details));
  if (!command.exit_status.empty()) text += roff("Exit status " + command.exit_status) + ".\n";
  return entries.empty() ? text : text + ".RS\n" + entries + ".RE\n";
}

constexpr std::string_view MAN_HEAD = R"(.TH VELDRA\-INDEX 1 "" "veldra" "User Commands"
.SH NAME
veldra\-index \- index the source files of a repository and ask about them
.SH SYNOPSIS
\fBveldra\-index\fR \fICOMMAND\fR [\fIARGUMENTS\fR] [\fIOPTIONS\fR]
.SH DESCRIPTION
Keeps an index of the files of a repository: their symbols, what they import, and their text for
full\-text search. The index is one SQLite file.
In a git checkout the files are those that git tracks or would track, elsewhere all that are not
hidden. Binary files and symbolic links are left out.
A question is for the index of the nearest folder, from the current one upward, that has one.
Symbols come from Universal Ctags, which must be installed.
)";
constexpr std::string_view MAN_TAIL = R"(.SH EXIT STATUS
0 on success, 1 on failure, 2 on wrong usage, 128 and the signal's number when interrupted.
.SH FILES
.TP
.I DIR/memory/codebase\-index/index.db
The index. While it is built, a file with .staging and one with .lock behind its name lie beside it.
)";

std::string man(const CommandLine& line) {
  std::string text(MAN_HEAD);
  text += ".SH COMMANDS\n";
  for (const Command& command : line.commands) text += man_entry(command);
  text += ".SH OPTIONS\n";
  for (const Argument& argument : line.common) text += man_entry(argument);
  text += ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nShow help, with examples after a command.\n";
  text += ".TP\n\\fB\\-\\-version\\fR\nShow the version, and that of SQLite.\n";
  text += MAN_TAIL;
  text += ".SH EXAMPLES\n.nf\n";
  for (const Command& command : line.commands)
    for (const Example& example : command.examples) text += roff(example.line) + "\n";
  return text + ".fi\n.SH SEE ALSO\n.BR ctags (1),\n.BR git (1)\n";
}

// Completions ------------------------------------------------------------------------------------

constexpr std::string_view BASH = R"(# Completion of veldra-index for bash.
_veldra_index() {{
  local commands="{commands}" options="{options} -h --help"
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} command="" word
  COMPREPLY=()
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case " $commands " in
    *" $word "*) command=$word && break ;;
    esac
  done
  case $command:$previous in
{values}  esac
  case $command in
  "") mapfile -t COMPREPLY < <(compgen -W "$commands $options --version" -- "$current") && return ;;
{own}  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    case $command in
{words}    *) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    esac
  fi
}}
complete -o filenames -F _veldra_index veldra-index
)";

/// A case for the option of `command` before the word: what its value may be.
std::string bash_value(std::string_view command, const Argument& argument) {
  std::string action = "return";
  if (argument.completion == Argument::Completion::File || !argument.choices.empty()) {
    const std::string what = argument.choices.empty()
                                 ? "-f"
                                 : fmt::format("-W \"{}\"", fmt::join(argument.choices, " "));
    action = fmt::format("mapfile -t COMPREPLY < <(compgen {} -- \"$current\") && return", what);
  }
  std::string pattern;
  for (const std::string& name : argument.spellings())
    pattern += fmt::format("{}{}:{}", pattern.empty() ? "" : " | ", command, name);
  return fmt::format("  {}) {} ;;\n", pattern, action);
}

std::string bash(const CommandLine& line) {
  std::vector<std::string> names;
  std::string values;
  std::string own;
  std::string words;
  for (const Argument& argument : line.common)
    if (!argument.is_flag()) values += bash_value("*", argument);
  for (const Command& command : line.commands) {
    names.push_back(command.name);
    for (const Argument& argument : command.arguments) {
      if (argument.is_option() && !argument.is_flag()) values += bash_value(command.name, argument);
      if (argument.completion == Argument::Completion::File && !argument.is_option()) {
        words += fmt::format("    {}) mapfile -t COMPREPLY < <(compgen -f -- \"$current\") ;;\n",
                             command.name);
      }
    }
    const std::string options = joined(command.arguments, " ");
    if (!options.empty()) own += fmt::format("  {}) options+=\" {}\" ;;\n", command.name, options);
  }
  return fmt::format(BASH, fmt::arg("commands", fmt::join(names, " ")),
                     fmt::arg("options", joined(line.common, " ")), fmt::arg("values", values),
                     fmt::arg("own", own), fmt::arg("words", words));
}

/// A text inside single quotes, where `special` characters get a backslash.
std::string quoted(std::string text, std::string_view special) {
  for (const char character : special)
    text = replaced(text, std::string(1, character), std::string("\\") + character);
  return "'" + replaced(text, "'", "'\\''") + "'";
}

std::string zsh_action(const Argument& argument) {
  if (!argument.choices.empty()) return fmt::format("({})", fmt::join(argument.choices, " "));
  if (argument.completion == Argument::Completion::File) return "_files";
  if (argument.completion == Argument::Completion::Directory) return "_files -/";
  return "";
}

std::string zsh_argument(const Argument& argument, int& place) {
  const std::string text = replaced(argument.text, ":", "\\:");
  if (!argument.is_option())
    return quoted(fmt::format("{}:{}:{}", ++place, argument.names, zsh_action(argument)), "");
  std::string behind = "[" + replaced(text, "]", "\\]") + "]";
  if (!argument.is_flag()) behind += ":" + argument.value + ":" + zsh_action(argument);
  const std::vector<std::string> names = argument.spellings();
  if (names.size() == 1) return quoted(names[0] + behind, "");
  if (std::holds_alternative<int*>(argument.target) && argument.is_flag())  // it may be repeated
    return fmt::format("'*'{{{}}}{}", fmt::join(names, ","), quoted(behind, ""));
  return fmt::format("'({})'{{{}}}{}", fmt::join(names, " "), fmt::join(names, ","),
                     quoted(behind, ""));
}

constexpr std::string_view ZSH = R"(#compdef veldra-index
# Completion of veldra-index for zsh.

local -a commands common
commands=(
{commands})
common=(
{common}  '(-h --help)'{{-h,--help}}'[Show help]'
)

_arguments -C $common '--version[Show the version]' '1:command:->command' '*::argument:->argument'
case $state in
command) _describe 'command' commands ;;
argument)
  case $words[1] in
{own}  esac
  ;;
esac
)";

std::string zsh(const CommandLine& line) {
  std::string commands;
  std::string common;
  std::string own;
  int place = 0;
  for (const Argument& argument : line.common)
    common += "  " + zsh_argument(argument, place) + "\n";
  for (const Command& command : line.commands) {
    commands += "  " + quoted(command.name + ":" + command.summary, "") + "\n";
    std::string arguments;
    place = 0;
    for (const Argument& argument : command.arguments)
      arguments += " " + zsh_argument(argument, place);
    own += fmt::format("  {}) _arguments $common{} ;;\n", command.name, arguments);
  }
  return fmt::format(ZSH, fmt::arg("commands", commands), fmt::arg("common", common),
                     fmt::arg("own", own));
}

std::string fish_option(const Argument& argument) {
  std::string text;
  for (const std::string& name : argument.spellings())
    text += (name.starts_with("--") ? " -l " : " -s ") + name.substr(name.find_first_not_of('-'));
  if (!argument.choices.empty()) {
    text +=
        fmt::format(" -x -a {}", quoted(fmt::format("{}", fmt::join(argument.choices, " ")), ""));
  } else if (argument.completion == Argument::Completion::File) {
    text += " -r -F";
  } else if (!argument.is_flag()) {
    text += " -x";
  }
  return text + " -d " + quoted(argument.text, "\\");
}

std::string fish(const CommandLine& line) {
  std::string names;
  for (const Command& command : line.commands) names += " " + command.name;
  const std::string begin = "complete -c veldra-index";
  std::string text = "# Completion of veldra-index for fish.\nset -l commands" + names + "\n" +
                     begin + " -f\n" + begin +
                     " -n \"__fish_seen_subcommand_from $commands\""
                     " -a '(__fish_complete_directories)'\n";
  for (const Argument& argument : line.common) text += begin + fish_option(argument) + "\n";
  text += begin + " -s h -l help -d 'Show help'\n" + begin + " -l version -d 'Show the version'\n";
  for (const Command& command : line.commands) {
    text += fmt::format("{} -n \"not __fish_seen_subcommand_from $commands\" -a {} -d {}\n", begin,
                        command.name, quoted(command.summary, "\\"));
    const std::string inside =
        fmt::format("{} -n '__fish_seen_subcommand_from {}'", begin, command.name);
    for (const Argument& argument : command.arguments)
      if (argument.is_option())
        text += inside + fish_option(argument) + "\n";
      else if (argument.completion == Argument::Completion::File)
        text += inside + " -F\n";
  }
  return text;
}

using Generator = std::string (*)(const CommandLine&);
const std::map<std::string, Generator>& generators() {
  static const std::map<std::string, Generator> ALL = {
      {"man", man}, {"bash", bash}, {"zsh", zsh}, {"fish", fish}};
  return ALL;
}

}  // namespace

const std::vector<std::string>& document_kinds() {
  static const std::vector<std::string> KINDS = [] {
    std::vector<std::string> kinds;
    for (const auto& [kind, generator] : generators()) kinds.push_back(kind);
    return kinds;
  }();
  return KINDS;
}

std::string generate(const CommandLine& line, const std::string& kind) {
  return generators().at(kind)(line);
}

}  // namespace veldra::tool
