#include "commands.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

namespace lumenharbour::ctl {
namespace {

constexpr char NOT_DIRECTOR[] =
    "only the director has groups and clients, and this switch is not it (director-state is off)";

/// How a table is spoken of.
struct Table {
  const char* name;     ///< in the list of attributes
  const char* row;      ///< one row
  const char* rows;     ///< its rows
  const char* columns;  ///< heading of the key's first column
};

/// In the order of `tLumenHarbourTable`.
constexpr Table TABLES[] = {
    {"global", "", "", ""},
    {"group", "group", "groups", "ID"},
    {"member mac", "MAC member", "MAC members", "GROUP"},
    {"member pid", "product-id member", "product-id members", "GROUP"},
    {"builtin", "built-in group", "built-in groups", "PID"},
    {"client", "client", "clients", "INDEX"},
};

using Line = std::vector<std::string>;  ///< one line of a list, a text for each column

void print_line(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
}

// ---- Failures ----

/// Prints a sentence on standard error, in one piece.
void note(const std::string& sentence) {
  const std::string line = "lumenharbourctl: " + sentence + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

bool is_on(const Daemon& daemon, uint32 cmd) {
  const Reply<uint32> state = daemon.get_integer(GlobalRow{}, cmd);
  return state && state.value == LUMENHARBOUR_ON;
}

bool is_director(const Call& call) {
  return is_on(call.daemon, LUMENHARBOUR_GLB_DIRECTORSTATE);
}

/// @return the reason for missing rows that an operator would otherwise look for in vain; empty on a director.
std::string role_advice(const Call& call) {
  return is_director(call) ? "" : std::string("; ") + NOT_DIRECTOR;
}

/// @return what may help where the daemon refused, as the rest of a sentence.
std::string refusal_advice(const Call& call, int code, const tLumenHarbourAttr* attr) {
  if (code == ERR_ZOR_NOTSTARTED) return "";
  if (call.command.table != LUMENHARBOUR_TABLE_GLOBAL) return role_advice(call);
  if (attr == nullptr || code != ERR_ZOR_UNSUPPORTED) return "";
  if (attr->access == LUMENHARBOUR_ATTR_GET) return "; it can be read, not set";
  if (attr->access == LUMENHARBOUR_ATTR_SET && call.command.run == get) return "; it can be set, not read";
  return attr->guard == LUMENHARBOUR_GUARD_CLIENT ? "; it is set in the client role only" : "";
}

std::string advice(const Call& call, const Result& result, const tLumenHarbourAttr* attr) {
  switch (result.status) {
    case Status::unreachable:
      if (result.code != ENOENT && result.code != ECONNREFUSED) return "";
      return ". Is lumenharbourd running? --socket names another socket";
    case Status::timed_out:
      return ". It answers nobody while it fetches a file: try again, or wait longer with --timeout";
    case Status::refused:
      return refusal_advice(call, result.code, attr);
    default:
      return "";
  }
}

Exit exit_of(const Result& result) {
  switch (result.status) {
    case Status::done:
      return EXIT_DONE;
    case Status::none:
      return EXIT_NOT_FOUND;
    case Status::unreachable:
      return EXIT_UNREACHABLE;
    case Status::timed_out:
      return EXIT_TIMED_OUT;
    default:
      return result.code == ERR_ZOR_NOTFOUND ? EXIT_NOT_FOUND : EXIT_REFUSED;
  }
}

/// Ends the process unless `result` is done.
///
/// @param[in] attempt  what was tried, as it stands behind "cannot"
/// @param[in] attr     the attribute that it was about, null for none
void check(const Call& call, const Result& result, const std::string& attempt,
           const tLumenHarbourAttr* attr = nullptr) {
  if (result) return;
  die(exit_of(result), "cannot " + attempt + ": " + call.daemon.explain(result) + advice(call, result, attr));
}

// ---- Rows in words ----

/// @return a row's key, a text for each column.
Line key_of(const GlobalRow&) {
  return {};
}
Line key_of(const GroupRow& row) {
  return {std::to_string(row.id)};
}
Line key_of(const MacMemberRow& row) {
  return {std::to_string(row.group_id), format_mac(row.mac)};
}
Line key_of(const PidMemberRow& row) {
  return {std::to_string(row.group_id), std::to_string(row.pid)};
}
Line key_of(const BuiltinRow& row) {
  return {std::to_string(row.pid)};
}
Line key_of(const ClientRow& row) {
  return {std::to_string(row.index)};
}

/// @return a row in words, such as "group 3" or "MAC member 00:1b:21:0a:0b:0c of group 3".
std::string describe(const Row& row) {
  const Line key = std::visit([](const auto& of_table) { return key_of(of_table); }, row);
  std::string name = TABLES[row.index()].row;
  if (key.empty()) return name;
  return key.size() == 1 ? name + ' ' + key[0] : name + ' ' + key[1] + " of group " + key[0];
}

/// @return an attribute of a row in words, such as "state" or "image of group 3".
std::string describe(const Row& row, const tLumenHarbourAttr& attr) {
  const std::string name = (parse_number(attr.name) ? "attribute " : "") + std::string(attr.name);
  return row.index() == LUMENHARBOUR_TABLE_GLOBAL ? name : name + " of " + describe(row);
}

uint32 number_of(const std::string& text, const char* what, uint32 max = 0xffffffffU) {
  const std::optional<uint32> number = parse_number(text, max);
  if (!number)
    die(EXIT_USAGE, '\'' + text + "' is no " + what + ": expected a number from 0 to " + std::to_string(max));
  return *number;
}

Mac mac_of(const std::string& text) {
  const std::optional<Mac> mac = parse_mac(text);
  if (!mac) die(EXIT_USAGE, '\'' + text + "' is no MAC address: expected one such as 00:1b:21:0a:0b:0c");
  return *mac;
}

uint32 group_named(const Call& call, const std::string& name) {
  const Reply<GroupRow> group = call.daemon.find_group(name);
  if (group.status == Status::none) {
    die(EXIT_NOT_FOUND, "no group has the name '" + name + '\'' + role_advice(call));
  }
  check(call, group, "find group '" + name + '\'');
  return group.value.id;
}

/// @return the group that a word says: an id, or else a name.
uint32 group_of(const Call& call, const std::string& word) {
  const std::optional<uint32> id = parse_number(word);
  return id ? *id : group_named(call, word);
}

Row mac_member_of(const Call& call) {
  const Mac mac = mac_of(call.args.member);
  const uint32 id = group_of(call, call.args.row);
  if (id > 0xffff) die(EXIT_USAGE, std::to_string(id) + " is no group id: expected a number from 0 to 65535");
  return MacMemberRow{static_cast<uint16>(id), mac};
}

Row pid_member_of(const Call& call) {
  const uint32 pid = number_of(call.args.member, "product id");
  return PidMemberRow{group_of(call, call.args.row), pid};
}

/// @return the row that the command line names.
Row row_of(const Call& call) {
  switch (call.command.table) {
    case LUMENHARBOUR_TABLE_GLOBAL:
      break;
    case LUMENHARBOUR_TABLE_CUSTOMGRP:
      return GroupRow{group_of(call, call.args.row)};
    case LUMENHARBOUR_TABLE_CUSTOMGRPMAC:
      return mac_member_of(call);
    case LUMENHARBOUR_TABLE_CUSTOMGRPPID:
      return pid_member_of(call);
    case LUMENHARBOUR_TABLE_BUILTINGRP:
      return BuiltinRow{number_of(call.args.row, "product id")};
    case LUMENHARBOUR_TABLE_CLIENT:
      return ClientRow{number_of(call.args.row, "client index")};
  }
  return GlobalRow{};
}

// ---- Attributes ----

[[noreturn]] void die_of_unknown_attribute(tLumenHarbourTable table, const std::string& name) {
  std::string close;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == table && is_close(name, attr.name)) close += (close.empty() ? "" : ", ") + std::string(attr.name);
  const std::string hint =
      close.empty() ? "'lumenharbourctl attributes' lists them all" : "Did you mean " + close + '?';
  die(EXIT_USAGE, std::string("there is no ") + TABLES[table].name + " attribute '" + name + "'. " + hint);
}

/// @param[in] word  a name or a number, which must outlive the result. A number without a name stands for an integer.
tLumenHarbourAttr attribute_of(tLumenHarbourTable table, const std::string& word) {
  const std::optional<uint32> number = parse_number(word);
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == table && (attr.name == word || attr.cmd == number)) return attr;
  if (!number) die_of_unknown_attribute(table, word);
  constexpr uint8 both = LUMENHARBOUR_ATTR_GET | LUMENHARBOUR_ATTR_SET;
  return {table, *number, word, LUMENHARBOUR_VALUE_NUMBER, both, LUMENHARBOUR_GUARD_NONE};
}

/// @return true for an attribute that a listing of whole rows shows.
bool is_shown(const tLumenHarbourAttr& attr, tLumenHarbourTable table) {
  return attr.table == table && (attr.access & LUMENHARBOUR_ATTR_GET) != 0 && attr.value != LUMENHARBOUR_VALUE_RECORD;
}

/// @return the attribute's value as text; `none` for a free group id without a director.
Reply<std::string> read_attribute(const Daemon& daemon, const Row& row, const tLumenHarbourAttr& attr) {
  if (attr.table == LUMENHARBOUR_TABLE_GLOBAL && attr.cmd == LUMENHARBOUR_GLB_CUSTOMGRPFREEID) {
    const Reply<GroupRow> group = daemon.free_group();
    return {group, std::to_string(group.value.id)};
  }
  if (attr.value < LUMENHARBOUR_VALUE_TEXT) {
    const Reply<uint32> number = daemon.get_integer(row, attr.cmd);
    return {number, format_value(attr, number.value)};
  }
  const bool is_bitmap = attr.value == LUMENHARBOUR_VALUE_VLANS;
  const Reply<std::string> octets =
      daemon.get_octets(row, attr.cmd, is_bitmap ? LUMENHARBOUR_VLANLIST_SIZE : LUMENHARBOUR_FILENAME_SIZE - 1);
  return {octets, format_value(attr, octets.value)};
}

void print_row(const Call& call, const Row& row) {
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (!is_shown(attr, call.command.table)) continue;
    const Reply<std::string> text = read_attribute(call.daemon, row, attr);
    // No free group id is no failure where every attribute is wanted.
    const bool is_none = text.status == Status::none || text.code == ERR_BARE_NOMEM;
    if (!is_none) check(call, text, "get " + describe(row, attr), &attr);
    print_line(std::string(attr.name) + ": " + (is_none || text.value.empty() ? "(none)" : text.value));
  }
}

/// Refuses what the daemon would accept without keeping it: a director's attribute in the client role. A daemon whose
/// service is stopped refuses by itself, with the better reason.
void check_role(const Call& call, const tLumenHarbourAttr& attr) {
  if (attr.guard != LUMENHARBOUR_GUARD_DIRECTOR) return;
  const Reply<uint32> director = call.daemon.get_integer(GlobalRow{}, LUMENHARBOUR_GLB_DIRECTORSTATE);
  check(call, director, "get director-state");
  if (director.value == LUMENHARBOUR_ON || !is_on(call.daemon, LUMENHARBOUR_GLB_STATE)) return;
  die(EXIT_REFUSED, "cannot set " + std::string(attr.name) +
                        ": this switch is not the director (director-state is off), and the daemon would take the "
                        "value without keeping it");
}

Value value_of(const Arguments& args, const tLumenHarbourAttr& attr) {
  const std::string name(attr.name);
  const std::string expected = expected_value(attr);
  if (attr.value == LUMENHARBOUR_VALUE_IGNORED) {
    if (args.has_value) die(EXIT_USAGE, name + " takes no value");
    return uint32{0};
  }
  if (!args.has_value) die(EXIT_USAGE, name + " needs a value: expected " + expected);
  std::optional<Value> value = parse_value(attr, args.value);
  if (!value) die(EXIT_USAGE, "bad value '" + args.value + "' for " + name + ": expected " + expected);
  return *std::move(value);
}

// ---- Lists ----

/// Prints lines as columns. An empty cell reads "-", so that columns can be counted.
void print_columns(const std::vector<Line>& lines) {
  std::vector<std::size_t> widths(lines.front().size(), 1);
  for (const Line& line : lines)
    for (std::size_t i = 0; i < line.size(); i++) widths[i] = std::max(widths[i], line[i].size());
  for (const Line& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); i++) {
      const std::string cell = line[i].empty() ? "-" : line[i];
      text += cell;
      if (i + 1 < line.size()) text.append(widths[i] + 2 - cell.size(), ' ');
    }
    print_line(text);
  }
}

std::string upper(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return result;
}

/// @return true for the tables whose rows are nothing but their key.
bool is_member_table(tLumenHarbourTable table) {
  return table == LUMENHARBOUR_TABLE_CUSTOMGRPMAC || table == LUMENHARBOUR_TABLE_CUSTOMGRPPID;
}

Line heading(tLumenHarbourTable table) {
  Line line = {TABLES[table].columns};
  if (is_member_table(table)) {
    line.emplace_back(table == LUMENHARBOUR_TABLE_CUSTOMGRPMAC ? "MAC" : "PID");
    return line;
  }
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (is_shown(attr, table)) line.push_back(upper(attr.name));
  return line;
}

/// Appends a row's cells behind its key. @return false when the row has gone meanwhile.
bool read_row(const Call& call, const Row& row, Line* line) {
  const tLumenHarbourTable table = call.command.table;
  if (is_member_table(table)) return true;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (!is_shown(attr, table)) continue;
    const Reply<std::string> text = read_attribute(call.daemon, row, attr);
    if (text.status == Status::refused && text.code == ERR_ZOR_NOTFOUND) return false;
    check(call, text, "get " + describe(row, attr), &attr);
    line->push_back(text.value);
  }
  return true;
}

/// @return every row of a table.
template <typename R>
std::vector<R> walk(const Call& call) {
  std::vector<R> rows;
  Reply<R> row = call.daemon.first<R>();
  for (; row; row = call.daemon.next(row.value)) rows.push_back(row.value);
  if (row.status != Status::none) check(call, row, std::string("list the ") + TABLES[call.command.table].rows);
  return rows;
}

/// @return how many single-character edits lead from one word to the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> line(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); j++) line[j] = j;
  for (std::size_t i = 1; i <= from.size(); i++) {
    std::size_t diagonal = std::exchange(line[0], i);
    for (std::size_t j = 1; j <= to.size(); j++) {
      const std::size_t changed = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = line[j];
      line[j] = std::min({changed, line[j] + 1, line[j - 1] + 1});
    }
  }
  return line[to.size()];
}

tLumenHarbourClientInfo client_of(const Arguments& args) {
  tLumenHarbourClientInfo client{};
  const Mac mac = mac_of(args.mac);
  std::copy(mac.begin(), mac.end(), client.mac);
  client.family = AF_INET;
  client.op = args.remove ? 0 : 1;
  if (args.remove) return client;
  if (args.pid.empty() || args.ip.empty()) die(EXIT_USAGE, "announce needs --pid and --ip, or --delete");
  client.pid = number_of(args.pid, "product id");
  const auto ip = parse_ipv4(args.ip);
  if (!ip) die(EXIT_USAGE, '\'' + args.ip + "' is no IPv4 address: expected one such as 192.0.2.1");
  std::copy(ip->begin(), ip->end(), client.ip);
  return client;
}

}  // namespace

void die(Exit status, const std::string& sentence) {
  std::fflush(stdout);
  note(sentence);
  std::exit(status);
}

bool is_close(std::string_view word, std::string_view candidate) {
  const std::size_t typos = std::clamp<std::size_t>(word.size() / 3, 1, 2);
  return distance(word, candidate) <= typos || (word.size() > 2 && candidate.find(word) != std::string_view::npos);
}

const char* kind_name(tLumenHarbourValue value) {
  constexpr const char* names[] = {"none",         "number",      "on/off",    "row status", "text",
                                   "IPv4 address", "MAC address", "VLAN list", "record"};
  return names[value];
}

std::vector<std::vector<std::string>> attribute_lines() {
  constexpr const char* access[] = {"-", "read", "write", "read, write"};
  constexpr const char* roles[] = {"any", "client", "director"};
  std::vector<Line> lines = {{"TABLE", "NAME", "NUMBER", "KIND", "ACCESS", "SET IN ROLE"}};
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    const bool is_set = (attr.access & LUMENHARBOUR_ATTR_SET) != 0;
    lines.push_back({TABLES[attr.table].name, std::string(attr.name), std::to_string(attr.cmd), kind_name(attr.value),
                     access[attr.access], is_set ? roles[attr.guard] : ""});
  }
  return lines;
}

void get(const Call& call) {
  const Row row = row_of(call);
  if (call.args.attr.empty()) return print_row(call, row);
  const tLumenHarbourAttr attr = attribute_of(call.command.table, call.args.attr);
  // Reading a record of zeros would announce a client.
  if (attr.value == LUMENHARBOUR_VALUE_RECORD) die(EXIT_USAGE, "use 'lumenharbourctl announce'");
  const Reply<std::string> text = read_attribute(call.daemon, row, attr);
  if (text.status == Status::none) die(EXIT_REFUSED, "cannot get " + describe(row, attr) + ": " + NOT_DIRECTOR);
  check(call, text, "get " + describe(row, attr), &attr);
  print_line(text.value);
}

void set(const Call& call) {
  const tLumenHarbourAttr attr = attribute_of(call.command.table, call.args.attr);
  const Value value = value_of(call.args, attr);
  const Row row = row_of(call);
  check_role(call, attr);
  const auto* const number = std::get_if<uint32>(&value);
  const Result result = number != nullptr ? call.daemon.set_integer(row, attr.cmd, *number)
                                          : call.daemon.set_octets(row, attr.cmd, std::get<std::string>(value));
  check(call, result, "set " + describe(row, attr), &attr);
}

void set_row_status(const Call& call) {
  constexpr const char* verbs[] = {"", "activate ", "create ", "deactivate ", "delete "};
  const Row row = row_of(call);
  const std::string attempt = verbs[call.command.row_status] + describe(row);
  // The daemon would link a member once more, and a later deletion would take off only one of the two.
  if (is_member_table(call.command.table) && call.command.row_status == LUMENHARBOUR_ROW_CREATE &&
      call.daemon.get_integer(row, LUMENHARBOUR_GRPMAC_STATUS)) {
    die(EXIT_REFUSED, "cannot " + attempt + ": it is there already");
  }
  // The status is attribute 1 of every table.
  check(call, call.daemon.set_integer(row, LUMENHARBOUR_CUSTOMGRP_STATUS, call.command.row_status), attempt);
}

void create_group(const Call& call) {
  if (call.args.row != "auto") {
    number_of(call.args.row, "group id");
    return set_row_status(call);
  }
  const Reply<GroupRow> group = call.daemon.free_group();
  if (group.status == Status::none) die(EXIT_REFUSED, std::string("cannot create a group: ") + NOT_DIRECTOR);
  check(call, group, "create a group");
  check(call, call.daemon.set_integer(group.value, LUMENHARBOUR_CUSTOMGRP_STATUS, LUMENHARBOUR_ROW_CREATE),
        "create " + describe(group.value));
  print_line(std::to_string(group.value.id));
}

void find_group(const Call& call) {
  print_line(std::to_string(group_named(call, call.args.row)));
}

void flush_clients(const Call& call) {
  check(call, call.daemon.set_integer(GlobalRow{}, LUMENHARBOUR_GLB_DBFLUSH, 0), "flush the clients");
}

void list_attributes(const Call&) {
  print_columns(attribute_lines());
}

void announce(const Call& call) {
  const tLumenHarbourClientInfo client = client_of(call.args);
  const std::string attempt = (call.args.remove ? "delete client " : "announce ") + call.args.mac;
  const Reply<FileNames> names = call.daemon.announce(client);
  // A deletion is answered alike in every role.
  const bool is_unheard = names.status == Status::none || (names && call.args.remove && !is_director(call));
  if (is_unheard) die(EXIT_REFUSED, "cannot " + attempt + ": " + NOT_DIRECTOR);
  check(call, names, attempt);
  if (call.args.remove) return;
  const auto shown = [](const std::string& name) { return name.empty() ? std::string("(none)") : name; };
  print_line("imagelist: " + shown(names.value.imagelist));
  print_line("config: " + shown(names.value.config));
}

template <typename R>
void list(const Call& call) {
  const tLumenHarbourTable table = call.command.table;
  std::vector<Line> lines = {heading(table)};
  for (const R& row : walk<R>(call)) {
    Line line = key_of(row);
    if (read_row(call, row, &line)) lines.push_back(std::move(line));
  }
  if (lines.size() > 1) return print_columns(lines);
  note(std::string("there are no ") + TABLES[table].rows + role_advice(call));
}

template void list<GroupRow>(const Call& call);
template void list<MacMemberRow>(const Call& call);
template void list<PidMemberRow>(const Call& call);
template void list<BuiltinRow>(const Call& call);
template void list<ClientRow>(const Call& call);

}  // namespace lumenharbour::ctl
