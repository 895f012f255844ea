#include "generate.h"

#include <cstdio>
#include <vector>

#include "command_table.h"

namespace lumenharbour::ctl {
namespace {

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

bool is_option(const Argument& argument) {
  return argument.name[0] == '-';
}

/// Appends a word behind a blank.
void append(std::string* words, std::string_view word) {
  if (!words->empty()) *words += ' ';
  *words += word;
}

/// @return the commands directly below `path`, or at the top for an empty one.
std::vector<const Command*> children_of(std::string_view path) {
  std::vector<const Command*> children;
  for (const Command& command : COMMANDS) {
    const std::size_t space = command.path.rfind(' ');
    const std::string_view family = space == std::string_view::npos ? "" : command.path.substr(0, space);
    if (family == path) children.push_back(&command);
  }
  return children;
}

// ---- Completion ----

/// @return a word as the shell reads it back.
std::string quoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + '\'';
}

/// @return an option's spellings, `separator` in place of the comma.
std::string spellings(const Argument& option, std::string_view separator) {
  std::string text;
  for (const char c : std::string_view(option.name)) text += c == ',' ? std::string(separator) : std::string(1, c);
  return text;
}

/// @return the branch of a `case` that tells what may follow a command.
std::string branch_of(std::string_view path, const Command* command) {
  std::string next;
  for (const Command* const child : children_of(path)) append(&next, child->path.substr(child->path.rfind(' ') + 1));
  std::string options;
  std::string rest;
  std::string attributes;
  if (command != nullptr) {
    for (const Argument& argument : command->arguments) {
      if (is_option(argument)) append(&options, spellings(argument, " "));
      if (is_option(argument)) continue;
      append(&rest, argument.field == &Arguments::attr ? "attr" : argument.field == &Arguments::value ? "value" : "-");
    }
    if (command->run == get || command->run == set)
      for (const tLumenHarbourAttr* const attr : attributes_of(*command)) append(&attributes, attr->name);
  }
  std::string branch = "    " + quoted(path) + ")";
  if (!next.empty()) branch += " next=" + quoted(next);
  if (!options.empty()) branch += " own=" + quoted(options);
  if (!rest.empty()) branch += " rest=" + quoted(rest);
  if (!attributes.empty()) branch += " attributes=" + quoted(attributes);
  return branch + " ;;\n";
}

/// @return a function that tells what may follow a command, in the variables of its caller.
std::string command_function() {
  std::string text = "_lumenharbourctl_command() {\n  next='' own='' rest='' attributes=''\n  case $1 in\n";
  text += branch_of("", nullptr);
  for (const Command& command : COMMANDS) text += branch_of(command.path, &command);
  return text + "  esac\n}\n\n";
}

/// @return a function that offers the words for an attribute's value.
std::string value_function() {
  std::string text = "_lumenharbourctl_value() {\n  case $1 in\n";
  for (const Command& command : COMMANDS) {
    if (command.run != set) continue;
    for (const tLumenHarbourAttr* const attr : attributes_of(command)) {
      std::string words;
      for (const std::string_view word : value_words(*attr)) append(&words, word);
      if (words.empty()) continue;
      text += "    " + quoted(std::string(command.path) + ' ' + std::string(attr->name)) + ") offer=" + quoted(words) +
              " ;;\n";
    }
  }
  return text + "  esac\n}\n\n";
}

/// @return the pattern of the options that take a value.
std::string valued_options() {
  std::string pattern;
  const auto add = [&pattern](const Argument& argument) {
    if (!is_option(argument) || argument.field == nullptr) return;
    pattern += (pattern.empty() ? "" : " | ") + spellings(argument, " | ");
  };
  for (const Argument& option : OPTIONS) add(option);
  for (const Command& command : COMMANDS)
    for (const Argument& argument : command.arguments) add(argument);
  return pattern;
}

/// @return the pattern of the options that take a file.
std::string file_options() {
  std::string pattern;
  for (const Argument& option : OPTIONS)
    if (option.field == &Arguments::socket) pattern = spellings(option, " | ");
  return pattern;
}

std::string every_option() {
  std::string options;
  for (const Argument& option : OPTIONS) append(&options, spellings(option, " "));
  return options;
}

/// @return the functions that bash and zsh share: neither splits words nor counts array elements in them, which the two
///         do differently, and no variable has a name that is special in one of them.
std::string shared_functions() {
  return "# Made by lumenharbourctl from its own tables.\n\n" + command_function() + value_function() +
         "# Sets offer to what may stand in place of the word $1 behind the words that follow it; files for a file.\n"
         "_lumenharbourctl_offer() {\n"
         "  local current=$1 word at='' pending='' plain='' kind attribute='' next own rest attributes\n"
         "  shift\n"
         "  offer=''\n"
         "  _lumenharbourctl_command ''\n"
         "  for word; do\n"
         "    if [[ -n $pending ]]; then\n"
         "      pending=''\n"
         "      continue\n"
         "    fi\n"
         "    if [[ -z $plain ]]; then\n"
         "      case $word in\n"
         "        --) plain=1; continue ;;\n"
         "        " +
         valued_options() +
         ") pending=$word; continue ;;\n"
         "        -*) continue ;;\n"
         "      esac\n"
         "    fi\n"
         "    if [[ -n $next ]]; then\n"
         "      [[ \" $next \" == *\" $word \"* ]] || return 0\n"
         "      at=\"${at:+$at }$word\"\n"
         "      _lumenharbourctl_command \"$at\"\n"
         "      continue\n"
         "    fi\n"
         "    kind=\"${rest%% *}\"\n"
         "    rest=\"${rest#\"$kind\"}\"\n"
         "    rest=\"${rest# }\"\n"
         "    if [[ $kind == attr ]]; then attribute=$word; fi\n"
         "  done\n"
         "  case $pending in\n"
         "    '') ;;\n"
         "    " +
         file_options() +
         ") offer=files; return 0 ;;\n"
         "    *) return 0 ;;\n"
         "  esac\n"
         "  if [[ -z $plain && $current == -* ]]; then\n"
         "    offer=\"" +
         every_option() +
         "${own:+ $own}\"\n"
         "    return 0\n"
         "  fi\n"
         "  case ${rest%% *} in\n"
         "    attr) offer=$attributes ;;\n"
         "    value) _lumenharbourctl_value \"$at $attribute\" ;;\n"
         "    '') offer=$next ;;\n"
         "  esac\n"
         "}\n\n";
}

constexpr char BASH_FUNCTION[] =
    R"(_lumenharbourctl() {
  local offer glue='' i last
  local -a given=()
  for ((i = 1; i <= COMP_CWORD; i++)); do
    # Readline parts words at ':' and '=', as in a MAC address.
    if [[ ${#given[@]} -gt 0 && (-n $glue || ${COMP_WORDS[i]} == [:=]*) ]]; then
      given[${#given[@]}-1]+=${COMP_WORDS[i]}
    else
      given+=("${COMP_WORDS[i]}")
    fi
    glue=''
    if [[ ${COMP_WORDS[i]} == *[:=] ]]; then glue=1; fi
  done
  COMPREPLY=()
  last=$((${#given[@]} - 1))
  _lumenharbourctl_offer "${given[last]}" "${given[@]:0:last}"
  if [[ $offer == files ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "${given[last]}")
  elif [[ -n $offer ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$offer" -- "${given[last]}")
  fi
}

complete -F _lumenharbourctl lumenharbourctl
)";

constexpr char ZSH_FUNCTION[] =
    R"(_lumenharbourctl() {
  local offer
  _lumenharbourctl_offer "$PREFIX" "${(@)words[2,CURRENT-1]}"
  if [[ $offer == files ]]; then
    _files
  elif [[ -n $offer ]]; then
    compadd -- ${=offer}
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

/// @return an argument as a synopsis has it.
std::string synopsis_of(const Argument& argument) {
  std::string text = is_option(argument) ? bold(argument.name) : italic(argument.name);
  if (*argument.type != '\0') text += ' ' + italic(argument.type);
  return argument.required ? text : '[' + text + ']';
}

std::string manual_options() {
  const Arguments defaults;
  std::string text = section("OPTIONS");
  for (const Argument& option : OPTIONS) {
    std::string tag = bold(spellings(option, ", "));
    std::string help = escaped(option.help);
    if (*option.type != '\0') tag += ' ' + italic(option.type);
    if (option.field != nullptr) help += "; " + bold(defaults.*option.field) + " if left out";
    text += term(tag, help + '.');
  }
  return text;
}

std::string manual_commands() {
  std::string text = section("COMMANDS");
  for (const Command& command : COMMANDS) {
    if (command.run == nullptr) {
      text += ".SS " + escaped(command.path) + '\n' + escaped(command.help) + ".\n";
      continue;
    }
    const bool is_top = command.path.find(' ') == std::string_view::npos;
    std::string tag = bold(command.path);
    for (const Argument& argument : command.arguments) tag += ' ' + synopsis_of(argument);
    // A command of its own ends the family above it.
    if (is_top) text += ".SS " + escaped(command.path) + '\n';
    text += term(tag, escaped(command.help) + '.');
    if (command.arguments.size() == 0) continue;
    text += ".RS\n";
    for (const Argument& argument : command.arguments)
      text += term(is_option(argument) ? bold(argument.name) : italic(argument.name), escaped(argument.help));
    text += ".RE\n";
  }
  return text;
}

std::string manual_attributes() {
  std::string text = section("ATTRIBUTES");
  const std::vector<std::vector<std::string>> lines = attribute_lines();
  std::string table;
  for (std::size_t i = 1; i < lines.size(); i++) {
    const std::vector<std::string>& line = lines[i];
    if (line[COLUMN_TABLE] != table) text += ".SS " + escaped("Table " + line[COLUMN_TABLE]) + '\n';
    table = line[COLUMN_TABLE];
    std::string what = "Number " + line[COLUMN_NUMBER] + "; " + line[COLUMN_KIND] + "; " + line[COLUMN_ACCESS];
    if (!line[COLUMN_ROLE].empty()) what += "; set in role: " + line[COLUMN_ROLE];
    text += term(bold(line[COLUMN_NAME]), escaped(what + '.'));
  }
  return text;
}

std::string manual_exits() {
  std::string text = section("EXIT STATUS");
  for (const ExitText& exit : EXITS) text += term(bold(std::to_string(exit.status)), escaped(exit.text));
  return text;
}

std::string manual_head() {
  std::string summary = SUMMARY;
  summary.pop_back();
  summary.front() = static_cast<char>(summary.front() - 'A' + 'a');
  return ".TH LUMENHARBOURCTL 8 \"\" lumenharbour\n" + section("NAME") + escaped(TOOL) + " \\- " + escaped(summary) +
         '\n' + section("SYNOPSIS") + bold(TOOL) + " [" + italic("OPTIONS") + "] " + italic("COMMAND") + " [" +
         italic("ARGUMENTS") + "]\n" + section("DESCRIPTION") + escaped(SUMMARY) + '\n' + escaped(NOTE) + '\n';
}

}  // namespace

void print_bash_completion(const Call&) {
  print(shared_functions());
  print(BASH_FUNCTION);
}

void print_zsh_completion(const Call&) {
  print("#compdef lumenharbourctl\n");
  print(shared_functions());
  print(ZSH_FUNCTION);
}

void print_manual(const Call&) {
  print(manual_head() + manual_options() + manual_commands() + manual_attributes() + manual_exits());
  print(section("FILES") + term(italic(Arguments().socket), "the daemon\\(aqs socket"));
  print(section("EXAMPLES") + escaped(EXAMPLE_TITLE) + "\n.PP\n.nf\n" + escaped(EXAMPLE) + ".fi\n");
  print(section("SEE ALSO") + bold("lumenharbourd") + ", the daemon, and its operator\\(aqs guide\n");
}

}  // namespace lumenharbour::ctl
