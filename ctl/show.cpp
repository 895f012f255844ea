#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "role.h"

namespace lumenharbour::ctl {
namespace {

Json global_json(const Record& globals, uint32 cmd) {
  return json_of(*lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd), value_of(globals, cmd));
}

Json pool(const char* name, const Record& globals, uint32 max_cmd, std::size_t used) {
  // In the client role there is no pool, whatever its size is going to be.
  const uint32 max = integer_of(globals, max_cmd);
  const std::size_t left = max > used ? max - used : 0;
  return {{"pool", name}, {"used", used}, {"free", left}, {"max", max}};
}

Json pools_of(const Call& call, const Record& globals) {
  const std::size_t members = walk<MacMemberRow>(call).size() + walk<PidMemberRow>(call).size();
  Json pools = Json::array();
  pools.push_back(pool("groups", globals, LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM, walk<GroupRow>(call).size()));
  pools.push_back(pool("members", globals, LUMENHARBOUR_GLB_GRPIDMAXNUM, members));
  pools.push_back(pool("builtins", globals, LUMENHARBOUR_GLB_BUILTINGRPMAXNUM, walk<BuiltinRow>(call).size()));
  pools.push_back(pool("clients", globals, LUMENHARBOUR_GLB_CLIENTMAXNUM, walk<ClientRow>(call).size()));
  return pools;
}

/// One line of the overview.
struct Item {
  const char* name;
  uint32 cmd;
};

constexpr Item OVERVIEW[] = {
    {"service", LUMENHARBOUR_GLB_STATE},
    {"director-address", LUMENHARBOUR_GLB_DIRECTORIP},
    {"director-type", LUMENHARBOUR_GLB_DIRECTORIPTYPE},
    {"default-image", LUMENHARBOUR_GLB_DEFAULTIMAGENAME},
    {"default-config", LUMENHARBOUR_GLB_DEFAULTCONFIGNAME},
    {"default-image-local", LUMENHARBOUR_GLB_DEFAULTIMAGETYPE},
    {"default-config-local", LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE},
    {"received-image", LUMENHARBOUR_GLB_RCVIMAGENAME},
    {"received-config", LUMENHARBOUR_GLB_RCVCONFIGNAME},
    {"received-image-bytes", LUMENHARBOUR_GLB_IMAGEDOWNLOAD},
    {"received-config-bytes", LUMENHARBOUR_GLB_CONFIGDOWNLOAD},
    {"management-vlans", LUMENHARBOUR_GLB_MANAGEVLANADD},
    {"dhcp-vlan", LUMENHARBOUR_GLB_DHCPCLIENTVLAN},
    {"notify", LUMENHARBOUR_GLB_CLIENTNOTIFY},
    {"debug", LUMENHARBOUR_GLB_DEBUG},
};

/// Prints what an operator would otherwise look for in vain.
void note_emptiness(const Call& call) {
  note(std::string("there are no ") + TABLES[call.command.table].rows +
       (is_director(call) ? "" : std::string("; ") + NOT_DIRECTOR));
}

/// Prints the rows of the command's table, or the one that it names.
///
/// @param[in] headings  columns of the table
/// @param[in] row_json  makes a row out of its record
template <typename R, typename Make>
void show_rows(const Call& call, const std::vector<std::string>& headings, const Make& row_json) {
  if (!call.args.row.empty()) return print_object(call.args, row_json(read_record(call, row_of(call))));
  Json rows = Json::array();
  for (const Record& record : read_table<R>(call)) rows.push_back(row_json(record));
  if (rows.empty()) note_emptiness(call);
  if (!rows.empty() || call.args.is_json()) print_table(call.args, headings, rows);
}

}  // namespace

void show(const Call& call) {
  const Record globals = read_record(call, GlobalRow{});
  Json overview = {{"role", role_of(call)}};
  for (const Item& item : OVERVIEW) overview[item.name] = global_json(globals, item.cmd);
  const Json pools = pools_of(call, globals);
  if (call.args.is_json()) {
    overview["pools"] = pools;
    return print_line(dump(overview));
  }
  for (const auto& [name, value] : overview.items()) {
    std::string label = name;
    label.resize(24, ' ');
    print_line(label + text_of(value));
  }
  print_line("");
  print_table(call.args, {"pool", "used", "free", "max"}, pools);
  const bool is_unmade = std::any_of(pools.begin(), pools.end(), [](const Json& row) { return row.at("max") == 0; });
  if (is_unmade) note("pools that the daemon was given no size for get theirs when this switch becomes the director");
}

void show_groups(const Call& call) {
  const std::vector<MacMemberRow> macs = walk<MacMemberRow>(call);
  const std::vector<PidMemberRow> pids = walk<PidMemberRow>(call);
  const bool is_counted = call.args.row.empty() && !call.args.is_json();
  show_rows<GroupRow>(call, {"id", "name", "type", "status", "members", "image", "config"}, [&](const Record& record) {
    Json row = json_of(record);
    const Json members = members_of(std::get<GroupRow>(record.row).id, macs, pids);
    row["members"] = is_counted ? Json(members.size()) : members;
    return row;
  });
}

void show_builtins(const Call& call) {
  show_rows<BuiltinRow>(call, {"pid", "status", "image", "config"},
                        [](const Record& record) { return json_of(record); });
}

void show_clients(const Call& call) {
  show_rows<ClientRow>(call, {"index", "mac", "ip", "pid"}, [](const Record& record) { return json_of(record); });
}

void show_vlans(const Call& call) {
  const Record globals = read_record(call, GlobalRow{});
  print_object(call.args, {{"management", global_json(globals, LUMENHARBOUR_GLB_MANAGEVLANADD)},
                           {"dhcp-client", global_json(globals, LUMENHARBOUR_GLB_DHCPCLIENTVLAN)}});
}

}  // namespace lumenharbour::ctl
