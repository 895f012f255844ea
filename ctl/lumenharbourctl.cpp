/// @file
/// lumenharbourctl: the operator's command line to a running daemon.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "command_table.h"

namespace lumenharbour::ctl {
namespace {

/// @return the text under the top level's help.
std::string footer() {
  std::string text = std::string(EXAMPLE_TITLE) + '\n' + EXAMPLE + '\n' + NOTE + "\nExit status: ";
  for (const ExitText& exit : EXITS)
    text += (exit.status == EXIT_DONE ? "" : ", ") + std::to_string(exit.status) + ' ' + exit.text;
  return text + '.';
}

/// @return help on the attributes that a get or set command takes.
std::string attribute_help(const Command& command) {
  const bool is_set = command.run == set;
  std::string text = "Attributes:\n";
  for (const tLumenHarbourAttr* const attr : attributes_of(command)) {
    std::string line = "  " + std::string(attr->name);
    line.resize(std::max<std::size_t>(line.size() + 1, 30), ' ');
    text += line + (is_set ? expected_value(*attr) : kind_name(attr->value)) + '\n';
  }
  return text;
}

/// `COMMANDS` in the form of the command-line parser.
class CommandLine {
 public:
  /// @param[out] args   receives what the command line says
  /// @param[in]  words  the command line. Only commands whose first word is among them are built, since the others
  ///                    cannot be chosen and building them takes longer than a request; all when help is wanted or no
  ///                    command is named.
  CommandLine(Arguments* args, const std::vector<std::string_view>& words) : args_(args) {
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.footer(footer);
    app_.set_help_flag(OPTIONS[0].name, OPTIONS[0].help);
    for (const Argument& option : OPTIONS.subspan(1)) add(&app_, option)->capture_default_str();
    const auto is_among = [&words](std::string_view word) {
      return std::find(words.begin(), words.end(), word) != words.end();
    };
    const auto is_named = [&is_among](const Command& command) {
      return is_among(command.path.substr(0, command.path.find(' ')));
    };
    const bool is_help = is_among("-h") || is_among("--help");
    is_whole_ = is_help || std::none_of(COMMANDS.begin(), COMMANDS.end(), is_named);
    for (const Command& command : COMMANDS)
      if (is_whole_ || is_named(command)) add(command);
  }

  /// Takes the command line apart. @return the command; help and wrong usage end the process.
  const Command& parse(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
      std::fputs(app_.help().c_str(), stdout);
      std::exit(EXIT_DONE);
    } catch (const CLI::ParseError& error) {
      die_of(error);
    }
    const auto leaf =
        std::find_if(leaves_.begin(), leaves_.end(), [](const auto& entry) { return entry.first->parsed(); });
    for (const Argument& argument : leaf->second->arguments)
      if (argument.field == &Arguments::value) args_->has_value = leaf->first->count(argument.name) > 0;
    return *leaf->second;
  }

 private:
  void add(const Command& command) {
    const std::size_t space = command.path.rfind(' ');
    CLI::App* const parent = space == std::string_view::npos ? &app_ : families_.at(command.path.substr(0, space));
    CLI::App* const app = parent->add_subcommand(std::string(command.path.substr(space + 1)), command.help);
    app->footer("");
    if (command.run == nullptr) {
      app->require_subcommand(1);
      families_[command.path] = app;
      return;
    }
    leaves_.emplace_back(app, &command);
    for (const Argument& argument : command.arguments) add(app, argument);
    if (command.run == get || command.run == set) app->footer([&command] { return attribute_help(command); });
  }

  CLI::Option* add(CLI::App* app, const Argument& argument) {
    if (argument.flag != nullptr) return app->add_flag(argument.name, args_->*argument.flag, argument.help);
    return app->add_option(argument.name, args_->*argument.field, argument.help)
        ->required(argument.required)
        ->type_name(argument.type);
  }

  /// Ends the process with a sentence on what is wrong; where no command is named at all, with help.
  [[noreturn]] void die_of(const CLI::ParseError& error) {
    CLI::App* app = &app_;
    std::string path = app->get_name();
    while (!app->get_subcommands().empty()) {
      app = app->get_subcommands().back();
      path += ' ' + app->get_name();
    }
    const bool is_command_missing =
        app->get_require_subcommand_min() > 0 && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (!is_command_missing) die(EXIT_USAGE, std::string(error.what()) + ". See '" + path + " --help'");
    const std::vector<std::string> rest = app_.remaining(true);
    if (!rest.empty()) die_of_unknown_command(*app, path, rest.front());
    if (app == &app_ && !is_whole_) die(EXIT_USAGE, "a command is missing. See '" + path + " --help'");
    std::fputs(app_.help().c_str(), stderr);
    std::exit(EXIT_USAGE);
  }

  [[noreturn]] static void die_of_unknown_command(const CLI::App& family, const std::string& path,
                                                  const std::string& word) {
    std::string close;
    for (const CLI::App* const app : family.get_subcommands([](const CLI::App*) { return true; }))
      if (is_close(word, app->get_name())) close += (close.empty() ? "" : ", ") + app->get_name();
    const std::string hint = close.empty() ? "See '" + path + " --help'" : "Did you mean " + close + '?';
    die(EXIT_USAGE, path + " has no command '" + word + "'. " + hint);
  }

  Arguments* args_;
  CLI::App app_{SUMMARY, TOOL};
  bool is_whole_ = false;  ///< every command is built
  std::map<std::string_view, CLI::App*> families_;
  std::vector<std::pair<CLI::App*, const Command*>> leaves_;
};

int timeout_ms_of(const std::string& text) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || !(seconds > 0 && seconds <= 86400)) {
    die(EXIT_USAGE, '\'' + text + "' is no time-out: expected seconds, above 0 and up to 86400");
  }
  return static_cast<int>(std::ceil(seconds * 1000));
}

}  // namespace
}  // namespace lumenharbour::ctl

int main(int argc, char** argv) {
  using namespace lumenharbour::ctl;
  Arguments args;
  CommandLine line(&args, {argv + 1, argv + argc});
  const Command& command = line.parse(argc, argv);
  command.run({lumenharbour::Daemon({args.socket, timeout_ms_of(args.timeout)}), args, command});
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
    die(EXIT_REFUSED, std::string("cannot write the answer: ") + std::strerror(errno));
  return EXIT_DONE;
}
