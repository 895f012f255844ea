#include <algorithm>
#include <cstdio>
#include <utility>

#include "commands.h"
#include "groups.h"
#include "role.h"
#include "rule.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

/// Puts a global attribute into `object` under its name.
void put(Json* object, const Record& globals, uint32 cmd) {
  const tLumenHarbourAttr& attr = *lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd);
  (*object)[std::string(attr.name)] = json_of(attr, value_of(globals, cmd));
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

/// Attributes of the overview, in order.
constexpr uint32 OVERVIEW[] = {
    LUMENHARBOUR_GLB_STATE,
    LUMENHARBOUR_GLB_DIRECTORIP,
    LUMENHARBOUR_GLB_DIRECTORIPTYPE,
    LUMENHARBOUR_GLB_DEFAULTIMAGENAME,
    LUMENHARBOUR_GLB_DEFAULTCONFIGNAME,
    LUMENHARBOUR_GLB_DEFAULTIMAGETYPE,
    LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE,
    LUMENHARBOUR_GLB_RCVIMAGENAME,
    LUMENHARBOUR_GLB_RCVCONFIGNAME,
    LUMENHARBOUR_GLB_IMAGEDOWNLOAD,
    LUMENHARBOUR_GLB_CONFIGDOWNLOAD,
    LUMENHARBOUR_GLB_MANAGEVLANADD,
    LUMENHARBOUR_GLB_DHCPCLIENTVLAN,
    LUMENHARBOUR_GLB_CLIENTNOTIFY,
    LUMENHARBOUR_GLB_DEBUG,
};

/// Prints what an operator would otherwise look for in vain.
void note_emptiness(const Call& call) {
  note(std::string("there are no ") + TABLES[call.command.table].rows +
       (is_director(call) ? "" : std::string("; ") + NOT_DIRECTOR));
}

/// @return the fields that the command line wants. @param[in] all  those that there are @param[in] usual  where it says
/// nothing
std::vector<std::string> fields_of(const Call& call, const std::vector<std::string>& all,
                                   const std::vector<std::string>& usual) {
  if (call.args.fields.empty()) return call.args.wide || call.args.is_json() ? all : usual;
  std::vector<std::string> fields;
  for (std::size_t at = 0; at <= call.args.fields.size();) {
    const std::size_t end = std::min(call.args.fields.find(',', at), call.args.fields.size());
    fields.push_back(call.args.fields.substr(at, end - at));
    at = end + 1;
  }
  for (const std::string& field : fields) {
    std::string expected;
    for (const std::string& name : all) expected += (expected.empty() ? "expected some of " : ", ") + name;
    if (std::find(all.begin(), all.end(), field) == all.end())
      throw Failure{EXIT_USAGE, quote(field) + " is no field", expected};
  }
  return fields;
}

/// @return the fields of a row that are wanted, in their order.
Json pick(const Json& row, const std::vector<std::string>& fields) {
  Json picked = Json::object();
  for (const std::string& field : fields) picked[field] = row.at(field);
  return picked;
}

/// Prints rows, objects that have the fields.
void print_rows(const Call& call, const std::vector<std::string>& fields, const Json& rows) {
  if (rows.empty()) note_emptiness(call);
  if (!rows.empty() || call.args.is_json()) print_table(call.args, fields, rows);
}

/// @return every field of the command's table, the first being its key.
std::vector<std::string> all_fields(const Call& call, const char* key) {
  std::vector<std::string> fields = {key};
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(call.command.table)) fields.push_back(field_of(*attr));
  return fields;
}

/// @return the rows of the command's table, or the one that it names.
template <typename R>
std::vector<Record> shown(const Call& call) {
  if (call.args.row.empty()) return read_table<R>(call);
  return {read_record(call, row_of(call))};
}

/// Prints the rows of the command's table, or the one that it names.
///
/// @param[in] all      every field, the first being the key
/// @param[in] usual    columns of the table
/// @param[in] records  what `shown` returned
/// @param[in] make     makes all fields of a row out of its record
template <typename Make>
void show_rows(const Call& call, const std::vector<std::string>& all, const std::vector<std::string>& usual,
               const std::vector<Record>& records, const Make& make) {
  const bool is_one = !call.args.row.empty();
  const std::vector<std::string> fields = fields_of(call, all, is_one ? all : usual);
  if (is_one) return print_object(call.args, pick(make(records.front()), fields));
  Json rows = Json::array();
  for (const Record& record : records) rows.push_back(pick(make(record), fields));
  print_rows(call, fields, rows);
}

/// Tells which members of the groups that are shown other groups list as well, and who serves them.
///
/// @param[in] members  each as often as groups list it
void note_overlaps(const Call& call, std::vector<std::string> members) {
  std::sort(members.begin(), members.end());
  if (std::adjacent_find(members.begin(), members.end()) == members.end()) return;
  const State state = read_state(call);
  Rule rule(call, state);
  const std::optional<Row> shown = call.args.row.empty() ? std::nullopt : std::optional<Row>(row_of(call));
  for (const Overlap& overlap : rule.overlaps())
    if (!shown || std::any_of(overlap.groups.begin(), overlap.groups.end(),
                              [&](const Record* group) { return group->row == *shown; }))
      note(rule.describe(overlap));
}

}  // namespace

void show(const Call& call) {
  const Record globals = read_record(call, GlobalRow{});
  Json overview = {{"role", role_of(call)}};
  for (const uint32 cmd : OVERVIEW) put(&overview, globals, cmd);
  const Json pools = pools_of(call, globals);
  if (call.args.is_json()) {
    overview["pools"] = pools;
    return print_line(dump(overview));
  }
  for (const auto& [name, value] : overview.items()) {
    std::string label = name;
    label.resize(24, ' ');
    print_line(label + text_of(name, value));
  }
  print_line("");
  print_table(call.args, {"pool", "used", "free", "max"}, pools);
  const bool is_unmade = std::any_of(pools.begin(), pools.end(), [](const Json& row) { return row.at("max") == 0; });
  if (is_unmade) note("pools that the daemon was given no size for get theirs when this switch becomes the director");
}

void show_groups(const Call& call) {
  std::vector<std::string> all = all_fields(call, "id");
  all.emplace_back(MEMBERS_FIELD);
  const bool is_one = !call.args.row.empty();
  const std::vector<std::string> fields = fields_of(
      call, all,
      is_one ? all : std::vector<std::string>{"id", "name", "type", "active", MEMBERS_FIELD, "image", "config"});
  std::vector<std::string> members;
  if (is_one) {
    const Row group = row_of(call);
    const std::vector<MacMemberRow> macs = walk<MacMemberRow>(call);
    const std::vector<PidMemberRow> pids = walk<PidMemberRow>(call);
    Json row = json_of(read_record(call, group));
    row[MEMBERS_FIELD] = members_of(std::get<GroupRow>(group).id, macs, pids);
    print_object(call.args, pick(row, fields));
    for (const MacMemberRow& mac : macs) members.push_back(format_mac(mac.mac));
    for (const PidMemberRow& pid : pids) members.push_back(std::to_string(pid.pid));
    return note_overlaps(call, std::move(members));
  }
  Json rows = read_groups(call, fields);
  for (Json& row : rows) {
    if (!row.contains(MEMBERS_FIELD)) break;
    for (const Json& member : row[MEMBERS_FIELD]) members.push_back(member.dump());
    if (!call.args.is_json()) row[MEMBERS_FIELD] = row[MEMBERS_FIELD].size();
  }
  print_rows(call, fields, rows);
  note_overlaps(call, std::move(members));
}

void show_builtins(const Call& call) {
  show_rows(call, all_fields(call, "pid"), {"pid", "active", "image", "config"}, shown<BuiltinRow>(call),
            [](const Record& record) { return json_of(record); });
}

void show_clients(const Call& call) {
  const std::vector<Record> clients = shown<ClientRow>(call);
  const State state = state_around(call, clients);
  Rule rule(call, state);
  const std::vector<std::string> all = {"index", "ip", "mac", "pid", "group", "kind"};
  show_rows(call, all, {"index", "mac", "ip", "pid", "group"}, clients, [&rule](const Record& record) {
    Json row = json_of(record);
    const Choice choice = rule.choose(record);
    row["group"] = server_of(choice);
    row["kind"] = kind_of(choice);
    return row;
  });
}

void show_vlans(const Call& call) {
  const Record globals = read_record(call, GlobalRow{});
  Json vlans = Json::object();
  for (const uint32 cmd : {LUMENHARBOUR_GLB_MANAGEVLANADD, LUMENHARBOUR_GLB_DHCPCLIENTVLAN}) put(&vlans, globals, cmd);
  print_object(call.args, vlans);
}

}  // namespace lumenharbour::ctl
