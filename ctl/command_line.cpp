#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "figures.h"
#include "layout.h"
#include "pager.h"
#include "report.h"
#include "tool.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

constexpr int DEFAULT_TIMEOUT_MS = 5000;
constexpr char HELP[] = "--help";
constexpr char VERSION[] = "--version";

std::string see_help(const std::string& path) {
  return "see '" + std::string(TOOL) + (path.empty() ? "" : " ") + path + " --help'";
}

[[noreturn]] void fail_usage(const std::string& message, const std::string& advice) {
  throw Failure{EXIT_USAGE, message, advice};
}

// ---- Finding the command ----

[[noreturn]] void fail_unknown(Commands commands, const std::string& path, const std::string& word) {
  std::string close;
  for (const Command* const command : children_of(commands, path))
    if (is_close(word, word_of(*command))) close += (close.empty() ? "" : ", ") + std::string(word_of(*command));
  fail_usage((path.empty() ? "there is no command " : quote(path) + " has no command ") + quote(word),
             close.empty() ? see_help(path) : "did you mean " + close + '?');
}

/// @return the command below `path` that the word names, in full or as the only one that begins so; null for none.
const Command* find_child(Commands commands, const std::string& path, const std::string& word) {
  const Command* found = nullptr;
  std::string several;
  for (const Command& command : commands) {
    if (command.path.substr(0, command.path.size() - word_of(command).size()) != (path.empty() ? "" : path + ' '))
      continue;
    if (word_of(command) == word) return &command;
    if (word.empty() || !word_of(command).starts_with(word) || command.help == nullptr) continue;
    several += (found == nullptr ? "" : ", ") + std::string(word_of(command));
    found = &command;
  }
  if (several.find(',') != std::string::npos) fail_usage(quote(word) + " is ambiguous", "it begins " + several);
  return found;
}

/// @return true for an option of every command that takes the word behind it.
bool takes_next(const std::string& word) {
  return std::any_of(OPTIONS.begin(), OPTIONS.end(), [&word](const Argument& option) {
    const std::string names = ',' + std::string(option.name) + ',';
    return !std::holds_alternative<bool Arguments::*>(option.field) && names.find(',' + word + ',') != names.npos;
  });
}

bool has_children(Commands commands, const std::string& path) {
  return std::any_of(commands.begin(), commands.end(),
                     [&path](const Command& command) { return command.path.starts_with(path + ' '); });
}

// ---- Options and arguments ----

void add(CLI::App* app, Arguments* args, const Argument& argument) {
  CLI::Option* option = nullptr;
  if (const auto* const flag = std::get_if<bool Arguments::*>(&argument.field)) {
    app->add_flag(argument.name, args->**flag, argument.help);
    return;
  }
  if (const auto* const list = std::get_if<std::vector<std::string> Arguments::*>(&argument.field)) {
    option = app->add_option(argument.name, args->**list, argument.help);
    // Each value of an option has the option's name before it, so that it takes nothing of what follows.
    if (is_option(argument)) option->expected(1)->take_all();
  } else {
    option = app->add_option(argument.name, args->*std::get<std::string Arguments::*>(argument.field), argument.help);
  }
  std::string type = argument.type;
  if (argument.hint == Hint::words && is_option(argument))
    for (const std::string_view word : argument.words)
      type += (word == argument.words[0] ? ":" : "|") + std::string(word);
  option->required(argument.required)->type_name(type);
}

/// @return what value an attribute takes, or has.
std::string expected_in(const Command& command, const tLumenHarbourAttr& attr) {
  return name_in(command, attr) == attr.name ? expected_value(attr) : "yes or no";
}

/// @return the attributes that a get or set command takes, and what each expects.
Json attribute_help(const Command& command) {
  Json help = Json::array();
  for (const tLumenHarbourAttr* const attr : attributes_of(command))
    help.push_back({{"name", name_in(command, *attr)}, {"expected", expected_in(command, *attr)}});
  if (command.table == LUMENHARBOUR_TABLE_GLOBAL && !command.changes)
    for (const Figure& figure : figures()) help.push_back({{"name", figure.name}, {"expected", figure.expected}});
  return help;
}

std::string attribute_text(const Command& command) {
  std::string text = "Attributes:\n";
  for (const Json& attribute : attribute_help(command)) {
    std::string line = "  " + attribute["name"].get<std::string>();
    line.resize(std::max<std::size_t>(line.size() + 1, 30), ' ');
    text += line + attribute["expected"].get<std::string>() + '\n';
  }
  return text;
}

/// @return true for a command that is about the attribute that its line names.
bool names_attribute(const Command& command) {
  return std::any_of(command.arguments.begin(), command.arguments.end(),
                     [](const Argument& argument) { return argument.hint == Hint::attribute; });
}

/// @return the text under the top level's help.
std::string overall_help() {
  std::string text = std::string(EXAMPLE_TITLE) + '\n' + EXAMPLE + '\n' + NOTE + "\nExit status: ";
  for (const ExitText& exit : EXITS)
    text += (exit.status == EXIT_DONE ? "" : ", ") + std::to_string(exit.status) + ' ' + exit.text;
  return text + '.';
}

std::string help_of(CLI::App* app, const CommandLine& line, const std::string& path) {
  for (const Command* const child : children_of(line.commands, path))
    app->add_subcommand(std::string(word_of(*child)), child->help)->footer("");
  if (path.empty()) app->footer(overall_help());
  if (line.command != nullptr && names_attribute(*line.command)) app->footer(attribute_text(*line.command));
  return app->help();
}

/// @return arguments as JSON has them: the options, or the others.
Json arguments_json(std::span<const Argument> arguments, bool are_options) {
  Json list = Json::array();
  for (const Argument& argument : arguments) {
    if (is_option(argument) != are_options) continue;
    Json& entry = list.emplace_back(Json{{"name", argument.name}, {"help", argument.help}});
    entry["required"] = argument.required;
    entry["repeated"] = std::holds_alternative<std::vector<std::string> Arguments::*>(argument.field);
    if (are_options) entry["value"] = *argument.type == '\0' ? Json() : Json(argument.type);
    entry["words"] = Json::array();
    for (const std::string_view word : argument.words) entry["words"].push_back(std::string(word));
  }
  return list;
}

/// @return what help says of a command, or of all where the line names none.
Json help_json(const CommandLine& line, const std::string& path) {
  const bool is_command = line.command != nullptr;
  const std::span<const Argument> arguments = is_command ? line.command->arguments : std::span<const Argument>();
  Json help = {{"command", path}, {"help", is_command && line.command->help != nullptr ? line.command->help : SUMMARY}};
  help["arguments"] = arguments_json(arguments, false);
  help["options"] = arguments_json(is_command ? arguments : OPTIONS, true);
  help["commands"] = Json::array();
  for (const Command* const child : children_of(line.commands, path))
    help["commands"].push_back({{"name", std::string(word_of(*child))}, {"help", child->help}});
  help["attributes"] = is_command && names_attribute(*line.command) ? attribute_help(*line.command) : Json::array();
  return help;
}

/// @return true when one of the words is that option.
bool is_there(const std::vector<std::string>& words, const char* option) {
  const auto end = std::find(words.begin(), words.end(), "--");
  return std::find(words.begin(), end, option) != end;
}

/// @return true when the line gives a value, be it an empty one.
bool has_value(const CLI::App& app, const Command& command) {
  return std::any_of(command.arguments.begin(), command.arguments.end(), [&app](const Argument& argument) {
    const auto* const field = std::get_if<std::string Arguments::*>(&argument.field);
    return field != nullptr && *field == &Arguments::value && app.count(argument.name) > 0;
  });
}

int timeout_ms_of(const Arguments& args) {
  if (args.timeout.empty()) return DEFAULT_TIMEOUT_MS;
  const int ms = static_cast<int>(std::ceil(seconds_of(args.timeout, "time-out") * 1000));
  // What 'wait' waits for is no answer to one request.
  return args.condition.empty() ? ms : std::min(ms, DEFAULT_TIMEOUT_MS);
}

/// @return the format that the words ask for, be they a line or not.
std::string format_of(const std::vector<std::string>& words, const std::string& unset) {
  std::string format = unset;
  for (std::size_t i = 0; i < words.size() && words[i] != "--"; i++) {
    const std::string& word = words[i];
    if ((word == "-f" || word == "--format") && i + 1 < words.size()) format = words[++i];
    for (const std::string_view attached : {"-f", "--format="})
      if (word.size() > attached.size() && word.starts_with(attached)) format = word.substr(attached.size());
  }
  return format;
}

/// @return an argument as messages name it: an option by its long name.
std::string name_of(const Argument& argument) {
  const std::string_view name = argument.name;
  return std::string(name.substr(name.find(',') + 1));
}

/// @return what an argument takes behind "expected"; empty for anything.
std::string words_of(const Argument& argument) {
  std::string text;
  if (argument.hint == Hint::words && is_option(argument))
    for (const std::string_view word : argument.words) text += (text.empty() ? "one of " : ", ") + std::string(word);
  return text;
}

/// Fails when an option that takes certain words has another one.
void check_words(const Arguments& args, std::span<const Argument> arguments) {
  for (const Argument& argument : arguments) {
    const auto* const field = std::get_if<std::string Arguments::*>(&argument.field);
    const std::string expected = words_of(argument);
    if (field == nullptr || expected.empty() || (args.**field).empty()) continue;
    if (std::find(argument.words.begin(), argument.words.end(), args.**field) == argument.words.end())
      fail_usage("bad value " + quote(args.**field) + " for " + name_of(argument), "expected " + expected);
  }
}

/// Says what is wrong with a line in words of ours.
[[noreturn]] void fail_parse(const CLI::App& app, const CommandLine& line, const std::string& path,
                             const CLI::ParseError& error) {
  const std::string whole = path.empty() ? TOOL : path;
  if (const std::vector<std::string> extra = app.remaining(); !extra.empty())
    fail_usage(extra[0].starts_with('-') && extra[0].size() > 1
                   ? quote(whole) + " has no option " + quote(extra[0])
                   : quote(extra[0]) + " is one word too many for " + quote(whole),
               see_help(path));
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    const std::string said = error.what();
    fail_usage(said.substr(0, said.find(':')) + " wants a value", see_help(path));
  }
  if (line.command != nullptr)
    for (const Argument& argument : line.command->arguments)
      if (argument.required && app.count(name_of(argument)) == 0)
        fail_usage(quote(path) + " wants " + name_of(argument) + ": " + argument.help, see_help(path));
  fail_usage("an option has a value that it does not take", see_help(path));
}

/// @return the first word from there on that is no option and none's value.
std::vector<std::string>::iterator first_word(std::vector<std::string>& words,
                                              std::vector<std::string>::iterator word) {
  while (word != words.end() && *word != "--" && word->size() > 1 && word->front() == '-')
    word += takes_next(*word) && word + 1 != words.end() ? 2 : 1;
  return word;
}

CommandLine take_apart(Commands commands, const std::vector<std::string>& words, const Arguments& defaults) {
  CommandLine line{commands, nullptr, defaults, ""};
  std::vector<std::string> rest = words;
  if (const auto first = first_word(rest, rest.begin()); first != rest.end() && *first == "help") {
    rest.erase(first);
    rest.emplace_back(HELP);
  }
  std::string path;
  line.command = take_command(commands, &rest, &path);
  const bool is_family = line.command != nullptr && line.command->run == nullptr;

  CLI::App app(line.command == nullptr         ? SUMMARY
               : line.command->help == nullptr ? ""
                                               : line.command->help,
               std::string(TOOL) + (path.empty() ? "" : " ") + path);
  app.set_help_flag(OPTIONS[0].name, OPTIONS[0].help);
  app.add_flag(OPTIONS[1].name, OPTIONS[1].help);
  for (const Argument& option : OPTIONS.subspan(2)) add(&app, &line.args, option);
  if (line.command != nullptr)
    for (const Argument& argument : line.command->arguments) add(&app, &line.args, argument);
  const bool is_json = format_of(words, defaults.format) == FORMAT_JSON;
  if (is_there(rest, "-h") || is_there(rest, HELP))
    line.help = is_json ? dump(help_json(line, path)) + '\n' : help_of(&app, line, path);
  if (is_there(rest, VERSION))
    line.help = is_json ? dump({{"name", TOOL}, {"version", LUMENHARBOUR_VERSION}}) + '\n'
                        : std::string(TOOL) + ' ' + LUMENHARBOUR_VERSION + '\n';
  if (!line.help.empty()) return line;
  if (is_family) fail_usage(quote(path) + " wants one more word", see_help(path));
  try {
    std::reverse(rest.begin(), rest.end());
    app.parse(std::move(rest));
  } catch (const CLI::ParseError& error) {
    fail_parse(app, line, path, error);
  }
  check_words(line.args, OPTIONS.subspan(2));
  if (line.command != nullptr) check_words(line.args, line.command->arguments);
  line.args.has_value = line.command != nullptr && has_value(app, *line.command);
  return line;
}

/// @return where the daemon is, and how long the command that begins now may wait for it.
Connection connection_of(const Arguments& args) {
  if (args.socket.size() > PATH_SHOWN)
    throw Failure{EXIT_UNREACHABLE, "no daemon reached on " + shortened(args.socket) + ": no socket has so long a path",
                  ""};
  Connection connection{args.socket, timeout_ms_of(args), {}};
  if (args.deadline.empty()) return connection;
  const std::chrono::duration<double> seconds(seconds_of(args.deadline, "deadline"));
  using Clock = std::chrono::steady_clock;
  connection.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(seconds);
  return connection;
}

void run_command(const CommandLine& line) {
  const Command& command = *line.command;
  if (command.changes && line.args.read_only)
    throw Failure{EXIT_REFUSED, quote(std::string(command.path)) + " changes the daemon",
                  "it is refused with --read-only"};
  command.run({Daemon(connection_of(line.args)), line.args, command, line.commands});
}

}  // namespace

std::vector<const Command*> children_of(Commands commands, std::string_view path) {
  std::vector<const Command*> children;
  for (const Command& command : commands) {
    const std::size_t space = command.path.rfind(' ');
    const std::string_view family = space == std::string_view::npos ? "" : command.path.substr(0, space);
    if (family == path && command.help != nullptr) children.push_back(&command);
  }
  return children;
}

std::string_view word_of(const Command& command) {
  return command.path.substr(command.path.rfind(' ') + 1);
}

bool is_option(const Argument& argument) {
  return argument.name[0] == '-';
}

std::vector<const tLumenHarbourAttr*> attributes_of(const Command& command) {
  const uint8 access = command.changes ? LUMENHARBOUR_ATTR_SET : LUMENHARBOUR_ATTR_GET;
  std::vector<const tLumenHarbourAttr*> attributes;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == command.table && attr.value != LUMENHARBOUR_VALUE_RECORD && (attr.access & access) != 0)
      attributes.push_back(&attr);
  return attributes;
}

std::string name_in(const Command& command, const tLumenHarbourAttr& attr) {
  return command.changes ? std::string(attr.name) : field_of(attr);
}

const Command* take_command(Commands commands, std::vector<std::string>* words, std::string* path) {
  const Command* command = nullptr;
  for (auto word = words->begin(); word != words->end() && *word != "--";) {
    if (word->size() > 1 && word->front() == '-') {
      word += takes_next(*word) && word + 1 != words->end() ? 2 : 1;
      continue;
    }
    if (command != nullptr && !has_children(commands, *path)) return command;
    const Command* const child = find_child(commands, *path, *word);
    if (child == nullptr) fail_unknown(commands, *path, *word);
    command = child;
    *path = command->path;
    word = words->erase(word);
  }
  return command;
}

CommandLine parse(Commands commands, const std::vector<std::string>& words, const Arguments& defaults) {
  try {
    return take_apart(commands, words, defaults);
  } catch (Failure& failure) {
    failure.format = format_of(words, defaults.format);
    throw;
  }
}

void run(const CommandLine& line) {
  if (!line.help.empty()) {
    print_text(wrapped(line.help, terminal_width(STDOUT_FILENO)));
    return flush_output();
  }
  try {
    run_command(line);
    flush_output();
  } catch (Failure& failure) {
    failure.format = line.args.format;
    throw;
  }
}

}  // namespace lumenharbour::ctl
