#pragma once

/// @file
/// What lumenharbourctl's commands do. Each returns when it is done; a failure prints one sentence on standard error
/// and ends the process with its exit status.

#include <initializer_list>
#include <string>
#include <string_view>
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

/// What the command line said. `COMMANDS` tells which fields a command fills.
struct Arguments {
  std::string socket = LUMENHARBOUR_SOCKET_PATH;  ///< path of the daemon's socket
  std::string timeout = "5";                      ///< seconds to wait for an answer
  std::string row;                                ///< group id or name, product id or client index
  std::string member;                             ///< MAC address or product id in a group
  std::string attr;                               ///< attribute name or number
  std::string value;                              ///< an attribute's new value
  std::string mac;                                ///< announced client: MAC address
  std::string pid;                                ///< announced client: product id
  std::string ip;                                 ///< announced client: IPv4 address
  bool has_value = false;                         ///< `value` was given
  bool remove = false;                            ///< announced client: forget it
};

struct Call;

/// An argument of a command.
struct Argument {
  const char* name;  ///< as help shows it; an option when it begins with "--"
  std::string Arguments::*field;
  bool required;
  const char* help;
  const char* type = "";            ///< option: what help calls its value
  bool Arguments::*flag = nullptr;  ///< option without a value: what it sets; `field` is null then
};

/// A command, or a family of commands when `run` is null.
struct Command {
  std::string_view path;  ///< its words, from the top
  const char* help;
  std::initializer_list<Argument> arguments = {};
  void (*run)(const Call& call) = nullptr;
  tLumenHarbourTable table = LUMENHARBOUR_TABLE_GLOBAL;  ///< the table it is about
  uint32 row_status = 0;                                 ///< the status that `set_row_status` sets
};

/// A command at work.
struct Call {
  const Daemon daemon;
  const Arguments& args;
  const Command& command;
};

/// Prints a sentence on standard error and ends the process.
[[noreturn]] void die(Exit status, const std::string& sentence);

/// @return true when `candidate` may be what `word` was meant to say.
bool is_close(std::string_view word, std::string_view candidate);

/// @return what an attribute's values are, in two words.
const char* kind_name(tLumenHarbourValue value);

/// Where a text stands in a line of `attribute_lines`.
enum Column : std::size_t { COLUMN_TABLE, COLUMN_NAME, COLUMN_NUMBER, COLUMN_KIND, COLUMN_ACCESS, COLUMN_ROLE };

/// @return every attribute of every table in words, below a line of headings. The role is empty where nothing is set.
std::vector<std::vector<std::string>> attribute_lines();

void get(const Call& call);              ///< prints one attribute of a row, or all of them
void set(const Call& call);              ///< sets one attribute of a row
void set_row_status(const Call& call);   ///< sets the row status `Command::row_status`
void create_group(const Call& call);     ///< as `set_row_status`; the id "auto" takes and prints a free one
void find_group(const Call& call);       ///< prints the id of a group
void flush_clients(const Call& call);    ///< has every client forgotten
void list_attributes(const Call& call);  ///< lists every attribute of every table
void announce(const Call& call);         ///< announces a client and prints what it is to fetch

/// Lists a table as aligned columns; a note on standard error says that it is empty. For every row type but the global.
template <typename R>
void list(const Call& call);

}  // namespace lumenharbour::ctl
