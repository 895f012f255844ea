/// @file
/// lumenharbourctl: the operator's command line to a running daemon. `COMMANDS` is all that it can do.

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

#include "commands.h"

namespace lumenharbour::ctl {
namespace {

constexpr Argument GROUP = {"GROUP", &Arguments::row, true, "group id or name"};
constexpr Argument PID = {"PID", &Arguments::row, true, "product id of the built-in group"};
constexpr Argument INDEX = {"INDEX", &Arguments::row, true, "client index, as 'client list' shows it"};
constexpr Argument MEMBER_MAC = {"MAC", &Arguments::member, true, "MAC address, such as 00:1b:21:0a:0b:0c"};
constexpr Argument MEMBER_PID = {"PID", &Arguments::member, true, "product id"};
constexpr Argument ATTR = {"ATTR", &Arguments::attr, true, "attribute name or number"};
constexpr Argument ATTR_OR_ALL = {"ATTR", &Arguments::attr, false, "attribute name or number; left out: all"};
constexpr Argument VALUE = {"VALUE", &Arguments::value, false, "new value; left out where none is taken"};

constexpr tLumenHarbourTable GRP = LUMENHARBOUR_TABLE_CUSTOMGRP;
constexpr tLumenHarbourTable MACS = LUMENHARBOUR_TABLE_CUSTOMGRPMAC;
constexpr tLumenHarbourTable PIDS = LUMENHARBOUR_TABLE_CUSTOMGRPPID;
constexpr tLumenHarbourTable BUILTIN = LUMENHARBOUR_TABLE_BUILTINGRP;
constexpr tLumenHarbourTable CLIENT = LUMENHARBOUR_TABLE_CLIENT;

constexpr uint32 ACTIVATE = LUMENHARBOUR_ROW_ACTIVE;
constexpr uint32 CREATE = LUMENHARBOUR_ROW_CREATE;
constexpr uint32 DEACTIVATE = LUMENHARBOUR_ROW_INACTIVE;
constexpr uint32 DESTROY = LUMENHARBOUR_ROW_DESTROY;

/// Every command, each family before its members.
constexpr Command COMMANDS[] = {
    {"get", "Print a global attribute, or all of them", {ATTR_OR_ALL}, get},
    {"set", "Set a global attribute", {ATTR, VALUE}, set},
    {"attributes", "List every attribute of every table", {}, list_attributes},

    {"group", "Custom groups: which image and configuration their members run", {}},
    {"group list", "List the custom groups", {}, list<GroupRow>, GRP},
    {"group get", "Print an attribute of a group, or all of them", {GROUP, ATTR_OR_ALL}, get, GRP},
    {"group set", "Set an attribute of a group", {GROUP, ATTR, VALUE}, set, GRP},
    {"group create",
     "Create a group",
     {{"ID", &Arguments::row, true, "id from 0 to group-max - 1, or auto for the lowest free one, which is printed"}},
     create_group,
     GRP,
     CREATE},
    {"group activate", "Write a group's imagelist file", {GROUP}, set_row_status, GRP, ACTIVATE},
    {"group deactivate", "Remove a group's imagelist file", {GROUP}, set_row_status, GRP, DEACTIVATE},
    {"group delete", "Delete a group and its members", {GROUP}, set_row_status, GRP, DESTROY},
    {"group find",
     "Print the id of the group that has a name",
     {{"NAME", &Arguments::row, true, "group name"}},
     find_group,
     GRP},

    {"member", "Members of the custom groups", {}},
    {"member mac", "MAC addresses in groups of type mac", {}},
    {"member mac list", "List the MAC members of all groups", {}, list<MacMemberRow>, MACS},
    {"member mac add", "Add a MAC address to a group", {GROUP, MEMBER_MAC}, set_row_status, MACS, CREATE},
    {"member mac del", "Delete a MAC address from a group", {GROUP, MEMBER_MAC}, set_row_status, MACS, DESTROY},
    {"member mac get", "Print a MAC member's status", {GROUP, MEMBER_MAC, ATTR_OR_ALL}, get, MACS},
    {"member mac set",
     "Set a MAC member's status, as the daemon takes it",
     {GROUP, MEMBER_MAC, ATTR, VALUE},
     set,
     MACS},
    {"member pid", "Product ids in groups of type pid", {}},
    {"member pid list", "List the product-id members of all groups", {}, list<PidMemberRow>, PIDS},
    {"member pid add", "Add a product id to a group", {GROUP, MEMBER_PID}, set_row_status, PIDS, CREATE},
    {"member pid del", "Delete a product id from a group", {GROUP, MEMBER_PID}, set_row_status, PIDS, DESTROY},
    {"member pid get", "Print a product-id member's status", {GROUP, MEMBER_PID, ATTR_OR_ALL}, get, PIDS},
    {"member pid set",
     "Set a product-id member's status, as the daemon takes it",
     {GROUP, MEMBER_PID, ATTR, VALUE},
     set,
     PIDS},

    {"builtin", "Built-in groups, one for a product id: they serve whom no custom group does", {}},
    {"builtin list", "List the built-in groups", {}, list<BuiltinRow>, BUILTIN},
    {"builtin get", "Print an attribute of a built-in group, or all of them", {PID, ATTR_OR_ALL}, get, BUILTIN},
    {"builtin set", "Set an attribute of a built-in group", {PID, ATTR, VALUE}, set, BUILTIN},
    {"builtin create", "Create a built-in group", {PID}, set_row_status, BUILTIN, CREATE},
    {"builtin activate", "Write a built-in group's imagelist file", {PID}, set_row_status, BUILTIN, ACTIVATE},
    {"builtin deactivate", "Remove a built-in group's imagelist file", {PID}, set_row_status, BUILTIN, DEACTIVATE},
    {"builtin delete", "Delete a built-in group", {PID}, set_row_status, BUILTIN, DESTROY},

    {"client", "Client switches that the director has seen", {}},
    {"client list", "List the clients", {}, list<ClientRow>, CLIENT},
    {"client get", "Print an attribute of a client, or all of them", {INDEX, ATTR_OR_ALL}, get, CLIENT},
    {"client set", "Set a client's status: any value forgets it", {INDEX, ATTR, VALUE}, set, CLIENT},
    {"client delete", "Forget a client", {INDEX}, set_row_status, CLIENT, DESTROY},
    {"client flush", "Forget every client", {}, flush_clients},

    {"announce",
     "Announce a client as the DHCP server does, and print what it is to fetch",
     {{"--mac", &Arguments::mac, true, "the client's MAC address", "MAC"},
      {"--pid", &Arguments::pid, false, "the client's product id", "PID"},
      {"--ip", &Arguments::ip, false, "the client's IPv4 address", "IP"}},
     announce},
};

constexpr char FOOTER[] =
    "A switch becomes the director, and a group gets its first member:\n"
    "  lumenharbourctl set state on\n"
    "  lumenharbourctl set director-ip-type 1\n"
    "  lumenharbourctl set director-ip 192.0.2.1\n"
    "  lumenharbourctl group create 0\n"
    "  lumenharbourctl group set 0 name floor-2\n"
    "  lumenharbourctl group set floor-2 type mac\n"
    "  lumenharbourctl group set floor-2 image v2.bin\n"
    "  lumenharbourctl member mac add floor-2 00:1b:21:0a:0b:0c\n"
    "  lumenharbourctl group activate floor-2\n"
    "\n"
    "A value that begins with '-' goes behind '--'.\n"
    "Exit status: 0 done, 1 refused, 2 wrong usage, 3 not found, 4 no daemon reached, 5 no answer in time.";

/// @return help on the attributes that a get or set command takes.
std::string attribute_help(const Command& command) {
  const bool is_set = command.run == set;
  std::string text = "Attributes:\n";
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (attr.table != command.table || attr.value == LUMENHARBOUR_VALUE_RECORD) continue;
    if ((attr.access & (is_set ? LUMENHARBOUR_ATTR_SET : LUMENHARBOUR_ATTR_GET)) == 0) continue;
    std::string line = "  " + std::string(attr.name);
    line.resize(std::max<std::size_t>(line.size() + 1, 30), ' ');
    text += line + (is_set ? expected_value(attr) : kind_name(attr.value)) + '\n';
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
    app_.footer(FOOTER);
    add(&app_, {"-s,--socket", &Arguments::socket, false, "the daemon's socket", "PATH"})->capture_default_str();
    add(&app_, {"-t,--timeout", &Arguments::timeout, false, "how long to wait for an answer", "SECONDS"})
        ->capture_default_str();
    const auto is_among = [&words](std::string_view word) {
      return std::find(words.begin(), words.end(), word) != words.end();
    };
    const auto is_named = [&is_among](const Command& command) {
      return is_among(command.path.substr(0, command.path.find(' ')));
    };
    const bool is_help = is_among("-h") || is_among("--help");
    is_whole_ = is_help || std::none_of(std::begin(COMMANDS), std::end(COMMANDS), is_named);
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
    const CLI::Option* const value = leaf->first->get_option_no_throw(VALUE.name);
    args_->has_value = value != nullptr && value->count() > 0;
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
    if (command.run == announce) app->add_flag("--delete", args_->remove, "forget the client; --mac is enough then");
    if (command.run == get || command.run == set) app->footer([&command] { return attribute_help(command); });
  }

  CLI::Option* add(CLI::App* app, const Argument& argument) {
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
  CLI::App app_{"Controls the zero-touch provisioning daemon of this switch.", "lumenharbourctl"};
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
