#include "generate.h"

#include <cstdio>
#include <string>
#include <vector>

#include "command_line.h"
#include "lock.h"
#include "rows.h"
#include "shell.h"
#include "tool.h"

namespace lumenharbour::ctl {
namespace {

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// ---- Completion ----

// Both shells run the tool that the line runs, so that offer and parser are of one version.

constexpr char BASH_SCRIPT[] =
    R"(# Completion of lumenharbourctl for bash: the tool itself says what may follow.
_lumenharbourctl() {
  local tool=${1/#\~\//"$HOME"/} raw='' glue='' head tail word i
  local -a words=() offered=()
  for ((i = 1; i <= COMP_CWORD; i++)); do
    raw=${COMP_WORDS[i]}
    word=${raw//[\\\'\"]/}
    # Readline parts words at ':', '=' and '@', as in a MAC address.
    if [[ ${#words[@]} -gt 0 && (-n $glue || $raw == [:=@]*) ]]; then
      words[${#words[@]}-1]+=$word
    else
      words+=("$word")
    fi
    glue=''
    if [[ $raw == [:=@]* || $raw == *[:=@] ]]; then glue=1; fi
  done
  # What readline replaces is the part behind the last of these characters.
  tail=${raw//[\\\'\"]/}
  if [[ $raw == [:=@]* ]]; then tail=${tail##*[:=@]}; fi
  word=${words[${#words[@]}-1]}
  head=${word%"$tail"}
  COMPREPLY=()
  mapfile -t offered < <("$tool" complete -- "${words[@]}" 2>/dev/null)
  if [[ ${offered[*]} == / ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$tail")
    return 0
  fi
  for word in "${offered[@]}"; do
    word=${word#"$head"}
    if [[ $raw != [\'\"]* ]]; then printf -v word %q "$word"; fi
    COMPREPLY+=("$word")
  done
}

complete -F _lumenharbourctl lumenharbourctl
)";

constexpr char ZSH_SCRIPT[] =
    R"(#compdef lumenharbourctl
# Completion of lumenharbourctl for zsh: the tool itself says what may follow.
_lumenharbourctl() {
  local tool=${(Q)words[1]}
  local -a offered
  offered=("${(@f)$("${tool/#\~\//$HOME/}" complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}")
  offered=(${offered:#})
  if [[ $offered == / ]]; then
    compset -P '--*='
    _files
  elif (( $#offered )); then
    compadd -- $offered
  else
    return 1
  fi
}

if [[ $funcstack[1] == _lumenharbourctl ]]; then
  _lumenharbourctl "$@"
else
  compdef _lumenharbourctl lumenharbourctl
fi
)";

// ---- Manual page ----

/// @return a text that roff sets as it stands.
std::string escaped(std::string_view text) {
  std::string result;
  if (text.starts_with('.')) result = "\\&";
  for (const char c : text) {
    if (c == '\\')
      result += "\\e";
    else if (c == '-')
      result += "\\-";
    else if (c == '\'')
      result += "\\(aq";
    else
      result += c;
  }
  return result;
}

std::string bold(std::string_view text) {
  return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(std::string_view text) {
  return "\\fI" + escaped(text) + "\\fR";
}

std::string section(std::string_view title) {
  return ".SH " + std::string(title) + '\n';
}

/// @return an entry of a list of terms.
std::string term(const std::string& tag, const std::string& text) {
  return ".TP\n" + tag + '\n' + text + '\n';
}

/// @return an argument's spellings.
std::string tag_of(const Argument& argument) {
  if (!is_option(argument)) return italic(argument.name);
  std::string spellings;
  for (const char c : std::string_view(argument.name)) spellings += c == ',' ? std::string(", ") : std::string(1, c);
  return bold(spellings) + (*argument.type == '\0' ? "" : ' ' + italic(argument.type));
}

/// @return an argument as a synopsis has it.
std::string synopsis_of(const Argument& argument) {
  const bool is_repeated = std::holds_alternative<std::vector<std::string> Arguments::*>(argument.field);
  const std::string text = tag_of(argument) + (is_repeated ? " ..." : "");
  return argument.required ? text : '[' + text + ']';
}

/// @return what an argument is for, and its default where it has one.
std::string help_of(const Argument& argument) {
  const Arguments defaults;
  const auto* const field = std::get_if<std::string Arguments::*>(&argument.field);
  const bool has_default = field != nullptr && !(defaults.**field).empty();
  return escaped(argument.help) + (has_default ? "; " + bold(defaults.**field) + " if left out" : "") + '.';
}

std::string manual_options() {
  std::string text = section("OPTIONS");
  for (const Argument& option : OPTIONS) text += term(tag_of(option), help_of(option));
  return text;
}

std::string manual_command(const Command& command) {
  std::string tag = bold(command.path);
  for (const Argument& argument : command.arguments) tag += ' ' + synopsis_of(argument);
  std::string text = term(tag, escaped(command.help) + '.');
  if (command.arguments.size() == 0) return text;
  text += ".RS\n";
  for (const Argument& argument : command.arguments) text += term(tag_of(argument), help_of(argument));
  return text + ".RE\n";
}

std::string manual_commands(Commands commands) {
  std::string text = section("COMMANDS");
  for (const Command& command : commands) {
    if (command.help == nullptr) continue;
    // A command without a family ends the family above it.
    const bool is_top = command.path.find(' ') == std::string_view::npos;
    if (is_top || command.run == nullptr) text += ".SS " + escaped(command.path) + '\n';
    text += command.run == nullptr ? escaped(command.help) + ".\n" : manual_command(command);
  }
  return text;
}

std::string what_of(const tLumenHarbourAttr& attr) {
  constexpr const char* accesses[] = {"", "read only", "set only", "read and set"};
  constexpr const char* guards[] = {"", "; set in the client role only", "; set in the director role only"};
  static_assert((LUMENHARBOUR_ATTR_GET | LUMENHARBOUR_ATTR_SET) + 1 == std::size(accesses));
  return "Number " + std::to_string(attr.cmd) + ": " + expected_value(attr) + "; " + accesses[attr.access] +
         guards[attr.guard] + '.';
}

std::string manual_attributes() {
  std::string text = section("ATTRIBUTES");
  const Table* table = nullptr;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (attr.value == LUMENHARBOUR_VALUE_RECORD) continue;
    if (table != &TABLES[attr.table]) {
      table = &TABLES[attr.table];
      text += ".SS " + escaped(std::string("Table ") + table->name) + '\n';
    }
    text += term(bold(attr.name), escaped(what_of(attr)));
  }
  return text;
}

std::string manual_exits() {
  std::string text = section("EXIT STATUS");
  for (const ExitText& exit : EXITS) text += term(bold(std::to_string(exit.status)), escaped(exit.text) + '.');
  return text;
}

std::string manual_head() {
  std::string summary = SUMMARY;
  summary.pop_back();
  summary.front() = static_cast<char>(summary.front() - 'A' + 'a');
  return ".TH LUMENHARBOURCTL 8 \"November 23, 2026\" lumenharbour\n" + section("NAME") + escaped(TOOL) + " \\- " +
         escaped(summary) + '\n' + section("SYNOPSIS") + bold(TOOL) + " [" + italic("OPTIONS") + "] [" +
         italic("COMMAND") + " [" + italic("ARGUMENTS") + "]]\n" + section("DESCRIPTION") + escaped(SUMMARY) + '\n' +
         escaped(NOTE) + '\n';
}

constexpr char PROMPT_TEXT[] = R"(.SH PROMPT
At a terminal the tool without a command reads command lines, without its own
name, until
.BR exit ,
.B quit
or the end of input.
Blanks part words, quotes and backslashes keep them together, and
.B #
in front of a word begins a comment.
Options on a line hold for that line.
.B help
prints the help,
.B ?
says what may follow, the Tab key completes, the arrow keys recall earlier lines, and
Ctrl\-R finds them.
Ctrl\-C gives up a line, and ends a running command without ending the tool.
A failed command is told, and the exit status is 0.
.PP
Where standard input or output is no terminal there is no prompt.
The first command that fails then ends the tool with its exit status, and the
message names its line.
)";

constexpr char JSON_TEXT[] = R"(.SH JSON
With
.B \-f json
each command prints one line of JSON;
.B watch
prints one for each change.
A command that has nothing to answer prints
.PP
.nf
{"status":"done"}
.fi
.PP
and one that fails prints, likewise on standard output and in one line,
.PP
.nf
{"error":{"status":"refused","exit":1,"code":65536022,"name":"ERR_ZOR_NOTSTARTED",
"message":"cannot add a group: ERR_ZOR_NOTSTARTED: the service is stopped",
"advice":"start it with \(aqlumenharbourctl service start\(aq"}}
.fi
.PP
whose members are always all there:
.B status
is the exit status in a word (refused, usage, not\-found, unreachable,
timed\-out),
.B exit
its number,
.B code
and
.B name
are what the daemon answered, null where it answered with no code.
Notes for a person are on standard error.
)";

constexpr char ENVIRONMENT_TEXT[] = R"(.SH ENVIRONMENT
.TP
\fBHOME\fR, \fBXDG_STATE_HOME\fR
where the prompt keeps its history.
.TP
\fBPAGER\fR
shows what does not fit the terminal, in place of
.BR less .
.TP
\fBTERM\fR
the terminal that the prompt edits lines on.
)";

std::string manual_files() {
  const std::string home = HISTORY_IN_HOME;
  const std::string state = HISTORY_IN_STATE;
  return section("FILES") + term(italic(Arguments().socket), "the daemon\\(aqs socket.") +
         term(italic(lock_path(Arguments().socket)),
              "locked by commands that look before they change, as apply. Only who may use the socket may open it.") +
         term(italic("$XDG_STATE_HOME/" + state) + ", " + italic("~/" + home),
              "the prompt\\(aqs history: the second where the variable is not set. Nobody else may read it.");
}

}  // namespace

void print_bash_completion(const Call&) {
  print(BASH_SCRIPT);
}

void print_zsh_completion(const Call&) {
  print(ZSH_SCRIPT);
}

void print_manual(const Call& call) {
  print(manual_head() + manual_options() + manual_commands(call.commands) + manual_attributes());
  print(PROMPT_TEXT);
  print(JSON_TEXT);
  print(manual_exits() + ENVIRONMENT_TEXT + manual_files());
  print(section("EXAMPLES") + escaped(EXAMPLE_TITLE) + "\n.PP\n.nf\n" + escaped(EXAMPLE) + ".fi\n");
  print(section("SEE ALSO") + bold("lumenharbourd") + ", the daemon, and its operator\\(aqs guide.\n");
}

}  // namespace lumenharbour::ctl
