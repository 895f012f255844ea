#include "commands.h"

#include <sys/socket.h>

#include <algorithm>

#include "command_line.h"
#include "figures.h"
#include "guard.h"
#include "lock.h"
#include "role.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

// ---- Attributes ----

[[noreturn]] void fail_unknown_attribute(const Command& command, const std::string& name) {
  std::string close;
  const auto consider = [&](std::string_view known) {
    if (is_close(name, known)) close += (close.empty() ? "" : ", ") + std::string(known);
  };
  const bool is_global = command.table == LUMENHARBOUR_TABLE_GLOBAL;
  for (const Figure& figure : figures())
    if (is_global && !command.changes) consider(figure.name);
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (attr.table != command.table) continue;
    consider(name_in(command, attr));
    if (name == attr.name || name == field_of(attr)) close = name_in(command, attr);
  }
  if (is_global && command.changes && figure_named(name) != nullptr)
    throw Failure{EXIT_USAGE, quote(name) + " can be read, not set", ""};
  throw Failure{EXIT_USAGE, std::string("there is no ") + TABLES[command.table].name + " attribute " + quote(name),
                close.empty() ? "'lumenharbourctl attributes' lists them all" : "did you mean " + close + '?'};
}

/// @param[in] word  a name or a number, which must outlive the result. A number without a name stands for an integer.
tLumenHarbourAttr attribute_named(const Command& command, const std::string& word) {
  const std::optional<uint32> number = parse_number(word);
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == command.table && (name_in(command, attr) == word || attr.cmd == number)) return attr;
  if (!number) fail_unknown_attribute(command, word);
  constexpr uint8 both = LUMENHARBOUR_ATTR_GET | LUMENHARBOUR_ATTR_SET;
  return {command.table, *number, word, LUMENHARBOUR_VALUE_NUMBER, both, LUMENHARBOUR_GUARD_NONE};
}

/// @return the attribute that a set command is about.
tLumenHarbourAttr attribute_of(const Call& call) {
  if (call.command.attr == 0) return attribute_named(call.command, call.args.attr);
  return *lumenharbour_attr_find(call.command.table, call.command.attr);
}

/// @return the value that a set command sets.
Value value_of(const Call& call, const tLumenHarbourAttr& attr) {
  const Arguments& args = call.args;
  const std::string name = call.command.attr == 0 ? std::string(attr.name) : quote(std::string(call.command.path));
  if (call.command.value != 0) return call.command.value;
  if (attr.value == LUMENHARBOUR_VALUE_IGNORED && args.has_value)
    throw Failure{EXIT_USAGE, name + " takes no value", "leave " + quote(args.value) + " out"};
  if (attr.value == LUMENHARBOUR_VALUE_IGNORED) return uint32{0};
  if (!args.has_value) throw Failure{EXIT_USAGE, name + " needs a value", "expected " + expected_value(attr)};
  Value value = value_to_set(attr, args.value, "bad value " + quote(args.value) + " for " + name);
  if (attr.table == LUMENHARBOUR_TABLE_CUSTOMGRP && attr.cmd == LUMENHARBOUR_CUSTOMGRP_NAME)
    check_group_name(args.value);
  return value;
}

Result send(const Call& call, const Row& row, uint32 cmd, const Value& value) {
  const auto* const number = std::get_if<uint32>(&value);
  return number != nullptr ? call.daemon.set_integer(row, cmd, *number)
                           : call.daemon.set_octets(row, cmd, std::get<std::string>(value));
}

/// @return what is tried, as it stands behind "cannot".
std::string attempt_of(const Call& call, const Row& row, const tLumenHarbourAttr& attr, const Value& value) {
  constexpr const char* verbs[] = {"", "activate ", "create ", "deactivate ", "delete "};
  const auto* const status = std::get_if<uint32>(&value);
  const bool is_verb = attr.value == LUMENHARBOUR_VALUE_ROWSTATUS && status != nullptr && *status < std::size(verbs);
  return is_verb ? verbs[*status] + describe(call, row) : "set " + describe(call, row, attr);
}

/// Fails for a group with members: under another type they would be read as something else.
void refuse_members(const Call& call, const GroupRow& group, const std::string& attempt) {
  const Json members = members_of(group.id, walk<MacMemberRow>(call), walk<PidMemberRow>(call));
  if (!members.empty())
    throw Failure{EXIT_REFUSED, "cannot " + attempt + ": it has the members " + text_of(members),
                  "delete them first with 'lumenharbourctl group member del'"};
}

/// Says what the daemon does not: that it has taken a value without effect, or that the value waits for something.
void tell_aftermath(const Call& call, const Row& row, const tLumenHarbourAttr& attr, const Value& value) {
  const bool is_global = attr.table == LUMENHARBOUR_TABLE_GLOBAL;
  if (is_global && attr.cmd == LUMENHARBOUR_GLB_DHCPCLIENTVLAN) {
    const Reply<uint32> vlan = call.daemon.get_integer(row, attr.cmd);
    check(call, vlan, "get " + describe(call, row, attr));
    if (Value(vlan.value) == value) return;
    throw Failure{EXIT_REFUSED,
                  "cannot set " + describe(call, row, attr) + ": VLAN " + format_value(attr, value) +
                      " has no interface on this switch",
                  "make the interface first"};
  }
  const bool is_written = attr.name == "name" || attr.name == "image" || attr.name.ends_with("-local");
  if (is_global || !is_written) return;
  const Reply<uint32> status = call.daemon.get_integer(row, LUMENHARBOUR_CUSTOMGRP_STATUS);
  if (status && status.value == LUMENHARBOUR_ROW_ACTIVE)
    note(describe(call, row) + " is active; its imagelist file stays as it is until it is activated again");
}

// ---- New groups ----

/// One value of a new group.
struct Setting {
  uint32 cmd;
  Value value;
};

/// Makes a row whole or not at all: what is refused midway is deleted again.
///
/// @param[in] what  the row in words
void make_row(const Call& call, const Row& row, const std::string& what, std::vector<Setting> settings) {
  const uint32 status = LUMENHARBOUR_CUSTOMGRP_STATUS;
  check(call, call.daemon.set_integer(row, status, LUMENHARBOUR_ROW_CREATE), "add " + what, row);
  if (call.args.activate) settings.push_back({status, uint32{LUMENHARBOUR_ROW_ACTIVE}});
  for (const Setting& setting : settings) {
    const Result result = send(call, row, setting.cmd, setting.value);
    if (result) continue;
    // Also when the time is over that the command has as a whole.
    Connection connection = call.daemon.connection();
    connection.deadline.reset();
    Daemon(connection).set_integer(row, status, LUMENHARBOUR_ROW_DESTROY);
    const tLumenHarbourAttr* const attr = lumenharbour_attr_find(call.command.table, setting.cmd);
    check(call, result, "add " + what + ": its " + std::string(attr->name), row, attr);
  }
}

/// @return a name of the command line. @throws Failure for one that the daemon would cut, or a switch refuse.
Value name_to_set(const std::string& text, uint32 cmd) {
  const tLumenHarbourAttr* const attr = lumenharbour_attr_find(LUMENHARBOUR_TABLE_CUSTOMGRP, cmd);
  return value_to_set(*attr, text, "bad value " + quote(text) + " for " + std::string(attr->name));
}

uint32 new_group_id(const Call& call) {
  if (call.args.row != "auto") return number_of(call.args.row, "group id (or auto)");
  require_director(call, "add a group");
  const Reply<GroupRow> free = call.daemon.free_group();
  check(call, free, "add a group", GroupRow{});
  return free.value.id;
}

/// Fails for an id that the director has no place for, and says which there are.
void check_group_id(const Call& call, const GroupRow& row, const std::string& what) {
  const Reply<uint32> max = call.daemon.get_integer(GlobalRow{}, LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM);
  if (max && row.id >= max.value && is_director(call))
    throw Failure{EXIT_REFUSED, "cannot add " + what + ": ids go from 0 to " + std::to_string(max.value - 1),
                  "take one of these or auto, or start lumenharbourd with larger pools"};
}

// ---- Announcements ----

/// Fails for an address that no switch has.
void check_unicast(const Mac& mac) {
  const bool is_several = (mac[0] & 1) != 0;
  if (is_several || mac == Mac{})
    throw Failure{EXIT_USAGE, "no switch has the MAC address " + format_mac(mac),
                  is_several ? "it is a group's: the last bit of its first byte is set" : "expected the switch's own"};
}

tLumenHarbourClientInfo client_of(const Arguments& args) {
  tLumenHarbourClientInfo client{};
  const Mac mac = mac_of(args.mac);
  std::copy(mac.begin(), mac.end(), client.mac);
  client.family = AF_INET;
  client.op = args.remove ? 0 : 1;
  if (args.remove) return client;
  check_unicast(mac);
  if (args.pid.empty() || args.ip.empty())
    throw Failure{EXIT_USAGE, "announce needs --pid and --ip", "or --delete, to have the client forgotten"};
  client.pid = number_of(args.pid, "product id");
  const auto ip = parse_ipv4(args.ip);
  if (!ip) throw Failure{EXIT_USAGE, quote(args.ip) + " is no IPv4 address", "expected one such as 192.0.2.1"};
  if (*ip == std::array<uint8, LUMENHARBOUR_IPV4_SIZE>{})
    throw Failure{EXIT_USAGE, "no client has the address 0.0.0.0", "expected the one that it is given"};
  std::copy(ip->begin(), ip->end(), client.ip);
  return client;
}

}  // namespace

void get(const Call& call) {
  const Row row = row_of(call);
  if (call.args.attr.empty()) return print_object(call.args, json_of(read_record(call, row)));
  const bool is_global = call.command.table == LUMENHARBOUR_TABLE_GLOBAL;
  if (const Figure* const figure = is_global ? figure_named(call.args.attr) : nullptr) {
    const Json value = figure->now(call);
    return print_line(call.args.is_json() ? dump({{call.args.attr, value}}) : text_of(value));
  }
  const tLumenHarbourAttr attr = attribute_named(call.command, call.args.attr);
  // Reading a record of zeros would announce a client.
  if (attr.value == LUMENHARBOUR_VALUE_RECORD)
    throw Failure{EXIT_USAGE, std::string(attr.name) + " is no value", "use 'lumenharbourctl announce'"};
  const bool is_free_id = attr.table == LUMENHARBOUR_TABLE_GLOBAL && attr.cmd == LUMENHARBOUR_GLB_CUSTOMGRPFREEID;
  if (is_free_id) require_director(call, "get " + describe(call, row, attr));
  Query query{row, attr.cmd, attr.value < LUMENHARBOUR_VALUE_TEXT};
  call.daemon.get_all({&query, 1});
  check(call, query.reply, "get " + describe(call, row, attr), row, &attr);
  const Json value = json_of(attr, query.reply.value);
  if (call.args.is_json()) return print_line(dump({{field_of(attr), value}}));
  print_line(text_of(field_of(attr), value));
}

void set(const Call& call) {
  const tLumenHarbourAttr attr = attribute_of(call);
  const Value value = value_of(call, attr);
  const Row row = row_of(call);
  const std::string attempt = attempt_of(call, row, attr, value);
  // The daemon would take a director's value in the client role without keeping it, and flush nothing.
  const bool is_flush = attr.table == LUMENHARBOUR_TABLE_GLOBAL && attr.cmd == LUMENHARBOUR_GLB_DBFLUSH;
  if (attr.guard == LUMENHARBOUR_GUARD_DIRECTOR || is_flush) require_director(call, attempt);
  guard_set(call, attr, value, attempt);
  if (attr.table == LUMENHARBOUR_TABLE_CUSTOMGRP && attr.cmd == LUMENHARBOUR_CUSTOMGRP_TYPE)
    refuse_members(call, std::get<GroupRow>(row), attempt);
  if (attr.table == LUMENHARBOUR_TABLE_GLOBAL && attr.cmd == LUMENHARBOUR_GLB_DIRECTORIP) {
    const std::string& address = std::get<std::string>(value);
    if (!take_address(call, address)) note(foreign(address));
  } else {
    check(call, send(call, row, attr.cmd, value), attempt, row, &attr);
  }
  tell_aftermath(call, row, attr, value);
  print_done(call.args);
}

void list_attributes(const Call& call) {
  print_table(call.args, {"table", "name", "number", "kind", "access", "role"}, attribute_table());
}

void add_group(const Call& call) {
  const Value name = name_to_set(call.args.name, LUMENHARBOUR_CUSTOMGRP_NAME);
  check_group_name(call.args.name);
  const Value image = name_to_set(call.args.image, LUMENHARBOUR_CUSTOMGRP_IMAGENAME);
  const Value config = name_to_set(call.args.config, LUMENHARBOUR_CUSTOMGRP_CONFIGNAME);
  const bool is_mac = call.args.type == "mac";
  const uint32 type = is_mac ? LUMENHARBOUR_CUSTOMGRP_TYPE_MAC : LUMENHARBOUR_CUSTOMGRP_TYPE_PID;
  const Lock lock(call, "add a group");
  const GroupRow row{new_group_id(call)};
  const std::string what = describe(row) + " (" + call.args.name + ')';
  check_group_id(call, row, what);
  // All of them: a record that is used again keeps what it held.
  make_row(call, row, what,
           {{LUMENHARBOUR_CUSTOMGRP_NAME, name},
            {LUMENHARBOUR_CUSTOMGRP_TYPE, type},
            {LUMENHARBOUR_CUSTOMGRP_IMAGETYPE, uint32{0}},
            {LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE, uint32{0}},
            {LUMENHARBOUR_CUSTOMGRP_IMAGENAME, image},
            {LUMENHARBOUR_CUSTOMGRP_CONFIGNAME, config}});
  if (call.args.is_json()) return print_line(dump({{"id", row.id}}));
  if (call.args.row == "auto") print_line(std::to_string(row.id));
}

void add_builtin(const Call& call) {
  const Value image = name_to_set(call.args.image, LUMENHARBOUR_CUSTOMGRP_IMAGENAME);
  const Value config = name_to_set(call.args.config, LUMENHARBOUR_CUSTOMGRP_CONFIGNAME);
  const Row row = row_of(call);
  if (is_director(call)) guard_builtins(call, "add " + describe(row));
  const Lock lock(call, "add " + describe(row));
  make_row(call, row, describe(row),
           {{LUMENHARBOUR_BUILTINGRP_IMAGETYPE, uint32{0}},
            {LUMENHARBOUR_BUILTINGRP_CONFIGTYPE, uint32{0}},
            {LUMENHARBOUR_BUILTINGRP_IMAGENAME, image},
            {LUMENHARBOUR_BUILTINGRP_CONFIGNAME, config}});
  print_done(call.args);
}

void set_members(const Call& call) {
  const bool is_adding = call.command.value == LUMENHARBOUR_ROW_CREATE;
  for (const std::string& word : call.args.members) member_of(0, word);  // all are understood before one is added
  const uint32 id = group_of(call, call.args.row);
  if (id > 0xffff) throw Failure{EXIT_NOT_FOUND, "there is no group " + std::to_string(id), "ids end at 65535"};
  const Lock lock(call, "change members");
  // The daemon would link a member once more, and a later deletion would take off only one of the two.
  for (const std::string& word : call.args.members)
    if (const Row row = member_of(id, word); is_adding && call.daemon.get_integer(row, LUMENHARBOUR_GRPMAC_STATUS))
      throw Failure{EXIT_REFUSED, "cannot add " + describe(call, row) + ": it is there already", "none was added"};
  for (const std::string& word : call.args.members) {
    const Row row = member_of(id, word);
    check(call, call.daemon.set_integer(row, LUMENHARBOUR_GRPMAC_STATUS, call.command.value),
          (is_adding ? "add " : "delete ") + describe(call, row), row);
  }
  print_done(call.args);
}

void reload(const Call& call) {
  const uint32 time_cmd = call.command.attr;
  const bool is_image = time_cmd == LUMENHARBOUR_GLB_IMAGERELOADTIME;
  const uint32 state_cmd = is_image ? LUMENHARBOUR_GLB_IMAGERELOADSTATE : LUMENHARBOUR_GLB_CONFIGRELOADSTATE;
  const tLumenHarbourAttr* const attr = lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, state_cmd);
  const auto set_one = [&](uint32 cmd, uint32 value) {
    check(call, call.daemon.set_integer(GlobalRow{}, cmd, value), "set " + std::string(attr->name), GlobalRow{}, attr);
  };
  const bool is_off = call.args.after == "off";
  if (!is_off) set_one(time_cmd, number_of(call.args.after, "number of seconds (or off)"));
  set_one(state_cmd, is_off ? LUMENHARBOUR_OFF : LUMENHARBOUR_ON);
  print_done(call.args);
}

void announce(const Call& call) {
  const tLumenHarbourClientInfo client = client_of(call.args);
  const std::string attempt = (call.args.remove ? "delete client " : "announce ") + format_mac(mac_of(call.args.mac));
  // A deletion is answered alike in every role.
  if (call.args.remove) require_director(call, attempt);
  const Reply<FileNames> names = call.daemon.announce(client);
  if (names.status == Status::none) require_director(call, attempt);
  check(call, names, attempt);
  if (call.args.remove) return print_done(call.args);
  print_object(call.args, {{"imagelist", names.value.imagelist}, {"config", names.value.config}});
}

}  // namespace lumenharbour::ctl
