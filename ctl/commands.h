#pragma once

/// @file
/// What lumenharbourctl's commands are made of, and what each does. A command returns when it is done and throws a
/// `Failure` when it is not.

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "format.h"
#include "lumenharbour_mgmt.h"

namespace lumenharbour::ctl {

/// Exit statuses; scripts depend on them.
enum Exit : int {
  EXIT_DONE = 0,         ///< the daemon did it
  EXIT_REFUSED = 1,      ///< the daemon refused it, or could not be understood
  EXIT_USAGE = 2,        ///< the command line is wrong
  EXIT_NOT_FOUND = 3,    ///< there is no such row
  EXIT_UNREACHABLE = 4,  ///< no daemon reached
  EXIT_TIMED_OUT = 5,    ///< no answer in time
};

/// Why a command was not done.
struct Failure {
  Exit exit;
  std::string message;      ///< what was tried, and why it failed
  std::string advice;       ///< what to do about it; may be empty
  int code = 0;             ///< the daemon's code, 0 where it gave none
  std::string format = {};  ///< that the line asked for which failed; empty before any was
};

inline constexpr char FORMAT_JSON[] = "json";

/// What the command line said. `COMMANDS` tells which fields a command fills.
struct Arguments {
  std::string socket = LUMENHARBOUR_SOCKET_PATH;  ///< path of the daemon's socket
  std::string timeout;                            ///< seconds to wait for an answer
  std::string format = "plain";                   ///< of what is printed: plain or json
  std::vector<std::string> lines;                 ///< commands to run one after the other
  bool read_only = false;                         ///< refuse what changes the daemon

  std::string row;                     ///< group id or name, product id, client index or MAC address
  std::vector<std::string> members;    ///< MAC addresses or product ids in a group
  std::string attr;                    ///< attribute name or number
  std::string value;                   ///< an attribute's new value
  bool has_value = false;              ///< `value` was given
  std::string name;                    ///< new group: name
  std::string type;                    ///< new group: type
  std::string image;                   ///< new group: image file
  std::string config;                  ///< new group: configuration file
  bool activate = false;               ///< new group: activate it
  std::string mac;                     ///< announced client: MAC address
  std::string pid;                     ///< announced client: product id
  std::string ip;                      ///< announced client: IPv4 address
  bool remove = false;                 ///< announced client: forget it
  std::string after;                   ///< seconds until the reload, or off
  std::string file;                    ///< file to apply
  bool dry_run = false;                ///< apply: only print the changes
  bool prune = false;                  ///< apply: delete what the file does not name
  std::vector<std::string> words;      ///< words of another command
  std::string limit;                   ///< watch: changes to print
  std::string interval;                ///< watch, wait: seconds between two looks
  std::vector<std::string> condition;  ///< wait: what must hold

  /// @return true when JSON is wanted.
  bool is_json() const { return format == FORMAT_JSON; }
};

/// What completion offers in an argument's place.
enum class Hint { none, words, group, builtin, client, attribute, value, file };

/// An argument of a command.
struct Argument {
  const char* name;  ///< as help shows it; an option when it begins with "-"
  std::variant<std::string Arguments::*, std::vector<std::string> Arguments::*, bool Arguments::*> field;
  bool required;
  const char* help;
  const char* type = "";                         ///< option: what help calls its value
  Hint hint = Hint::none;                        ///< what completion offers
  std::span<const std::string_view> words = {};  ///< `Hint::words`: all that it may be
};

struct Call;

/// A command, or a family of commands when `run` is null. `show` is both.
struct Command {
  std::string_view path;  ///< its words, from the top
  const char* help;       ///< null for one that only completion scripts use
  std::initializer_list<Argument> arguments = {};
  void (*run)(const Call& call) = nullptr;
  bool changes = false;                                  ///< it changes the daemon
  tLumenHarbourTable table = LUMENHARBOUR_TABLE_GLOBAL;  ///< the table it is about
  uint32 attr = 0;                                       ///< the attribute it sets; 0: the command line says it
  uint32 value = 0;                                      ///< the value it sets; 0: the command line says it
};

/// A command at work.
struct Call {
  Daemon daemon;
  Arguments args;
  const Command& command;
};

void get(const Call& call);              ///< prints one attribute of a row, or all of them
void set(const Call& call);              ///< sets an attribute of a row, or gives it another status
void list_attributes(const Call& call);  ///< lists every attribute of every table
void add_group(const Call& call);        ///< makes a custom group, whole or not at all
void add_builtin(const Call& call);      ///< makes a built-in group, whole or not at all
void set_members(const Call& call);      ///< gives the members of a group the row status `Command::value`
void reload(const Call& call);           ///< sets or clears the time of a reload
void announce(const Call& call);         ///< announces a client and prints what it is to fetch

void show(const Call& call);           ///< prints what the daemon is doing, and how full it is
void show_groups(const Call& call);    ///< prints the custom groups, or one of them
void show_builtins(const Call& call);  ///< prints the built-in groups, or one of them
void show_clients(const Call& call);   ///< prints the clients, or one of them
void show_vlans(const Call& call);     ///< prints the management VLANs and the DHCP client's VLAN

void apply(const Call& call);         ///< makes the daemon what a file says
void export_state(const Call& call);  ///< prints the daemon's state as a file for `apply`
void watch(const Call& call);         ///< prints what changes
void wait(const Call& call);          ///< returns when conditions hold

}  // namespace lumenharbour::ctl
