#include "groups.h"

#include <algorithm>
#include <future>
#include <map>

namespace lumenharbour::ctl {
namespace {

/// The members that the walks met.
struct Members {
  std::vector<MacMemberRow> macs;
  std::vector<PidMemberRow> pids;
};

/// What is known of a group: values by attribute.
struct Group {
  uint32 id;
  std::map<uint32, Value> values;
};

const tLumenHarbourAttr& attr_of(uint32 cmd) {
  return *lumenharbour_attr_find(LUMENHARBOUR_TABLE_CUSTOMGRP, cmd);
}

Query query_of(uint32 id, uint32 cmd) {
  return {GroupRow{id}, cmd, lumenharbour_value_is_integer(attr_of(cmd).value)};
}

bool is_gone(const Query& query) {
  return query.reply.code == ERR_ZOR_NOTFOUND;
}

void check_query(const Call& call, const Query& query) {
  const tLumenHarbourAttr& attr = attr_of(query.cmd);
  check(call, query.reply, "get " + describe(call, query.row, attr), query.row, &attr);
}

/// Finds the groups by asking for one attribute of ids that follow one another: where they lie close, that takes no
/// walk. Where they do not, the daemon is asked for the next.
///
/// @param[in] cmd  the attribute, which is known of each of them afterwards
std::vector<Group> find_groups(const Call& call, uint32 cmd) {
  constexpr std::size_t least = 4;
  constexpr std::size_t most = 1024;
  std::vector<Group> groups;
  Reply<GroupRow> row = call.daemon.first<GroupRow>();
  std::size_t width = least;
  while (row) {
    std::vector<Query> queries;
    for (std::size_t i = 0; i < width; i++) queries.push_back(query_of(row.value.id + static_cast<uint32>(i), cmd));
    call.daemon.get_all(queries);
    std::size_t found = 0;
    for (Query& query : queries) {
      if (is_gone(query)) continue;
      check_query(call, query);
      groups.push_back({std::get<GroupRow>(query.row).id, {{cmd, std::move(query.reply.value)}}});
      found++;
    }
    width = found == width ? std::min(width * 2, most) : least;
    const GroupRow last = std::get<GroupRow>(queries.back().row);
    row = call.daemon.next(last);
    if (row && row.value.id <= last.id) row.status = Status::broken;
  }
  if (row.status != Status::none) check(call, row, "list the groups");
  return groups;
}

/// Reads attributes of all groups. Those that have gone meanwhile lack them.
void read_values(const Call& call, const std::vector<uint32>& cmds, std::vector<Group>* groups) {
  std::vector<Query> queries;
  for (const Group& group : *groups)
    for (const uint32 cmd : cmds)
      if (!group.values.contains(cmd)) queries.push_back(query_of(group.id, cmd));
  call.daemon.get_all(queries);
  auto group = groups->begin();
  for (Query& query : queries) {
    while (group->id != std::get<GroupRow>(query.row).id) ++group;
    if (is_gone(query)) continue;
    check_query(call, query);
    group->values[query.cmd] = std::move(query.reply.value);
  }
}

/// A group that holds members of a type has that type, of which it need not be asked.
void take_types(const Members& members, std::vector<Group>* groups) {
  std::map<uint32, uint32> types;
  for (const MacMemberRow& member : members.macs) types[member.group_id] = LUMENHARBOUR_CUSTOMGRP_TYPE_MAC;
  for (const PidMemberRow& member : members.pids) types[member.group_id] = LUMENHARBOUR_CUSTOMGRP_TYPE_PID;
  for (Group& group : *groups)
    if (const auto type = types.find(group.id); type != types.end())
      group.values[LUMENHARBOUR_CUSTOMGRP_TYPE] = type->second;
}

/// @return the members of each group as text.
std::map<uint32, Json> texts_of(const Members& members) {
  std::map<uint32, Json> texts;
  for (const MacMemberRow& member : members.macs) texts[member.group_id].push_back(format_mac(member.mac));
  for (const PidMemberRow& member : members.pids) texts[member.group_id].push_back(member.pid);
  return texts;
}

}  // namespace

Json read_groups(const Call& call, const std::vector<std::string>& fields) {
  const auto has = [&fields](std::string_view field) {
    return std::find(fields.begin(), fields.end(), field) != fields.end();
  };
  std::vector<uint32> cmds;
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(LUMENHARBOUR_TABLE_CUSTOMGRP))
    if (has(field_of(*attr))) cmds.push_back(attr->cmd);
  if (cmds.empty()) cmds.push_back(LUMENHARBOUR_CUSTOMGRP_STATUS);

  // Each member's walk waits for the answer before, so it goes on beside what is asked many at a time.
  std::future<Members> walked;
  if (has(MEMBERS_FIELD))
    walked = std::async(std::launch::async, [&call] {
      return Members{walk<MacMemberRow>(call), walk<PidMemberRow>(call)};
    });
  const auto type = std::find(cmds.begin(), cmds.end(), LUMENHARBOUR_CUSTOMGRP_TYPE);
  const bool is_typed = walked.valid() && type != cmds.end() && cmds.size() > 1;
  if (is_typed) cmds.erase(type);
  std::vector<Group> groups = find_groups(call, cmds.front());
  read_values(call, cmds, &groups);
  Members members;
  if (walked.valid()) members = walked.get();
  if (is_typed) {
    take_types(members, &groups);
    read_values(call, {LUMENHARBOUR_CUSTOMGRP_TYPE}, &groups);
    cmds.push_back(LUMENHARBOUR_CUSTOMGRP_TYPE);
  }

  std::map<uint32, Json> texts = texts_of(members);
  Json rows = Json::array();
  for (const Group& group : groups) {
    if (group.values.size() < cmds.size()) continue;
    Json& row = rows.emplace_back(Json::object());
    for (const std::string& field : fields) {
      if (field == "id") row[field] = group.id;
      if (field == MEMBERS_FIELD) row[field] = texts.contains(group.id) ? std::move(texts[group.id]) : Json::array();
      for (const auto& [cmd, value] : group.values)
        if (field_of(attr_of(cmd)) == field) row[field] = json_of(attr_of(cmd), value);
    }
  }
  return rows;
}

}  // namespace lumenharbour::ctl
