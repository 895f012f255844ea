#pragma once

/// @file
/// What lumenharbourctl's commands are made of. A command returns when it is done and throws a `Failure` when it is
/// not.

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
  bool is_told = false;     ///< what was printed says it all
};

inline constexpr char FORMAT_JSON[] = "json";

/// What the command line said. A command's arguments tell which fields it fills.
struct Arguments {
  std::string socket = LUMENHARBOUR_SOCKET_PATH;  ///< path of the daemon's socket
  std::string timeout;                            ///< seconds to wait for an answer
  std::string deadline;                           ///< seconds for a command as a whole
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
  std::string fields;                  ///< show: what of each row
  bool wide = false;                   ///< show: all of each row, and nothing cut
  std::string confirm;                 ///< apply: seconds to wait for a confirmation
  std::string generations;             ///< save: how many older files to keep
  bool stopped = false;                ///< export, save: also when the service is stopped
  bool force = false;                  ///< do it whatever is lost
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

/// Every command that a line may name, each family before its members.
using Commands = std::span<const Command>;

/// A command at work.
struct Call {
  Daemon daemon;
  Arguments args;
  const Command& command;
  Commands commands;  ///< all that its line could name
};

}  // namespace lumenharbour::ctl
