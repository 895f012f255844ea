#include "rule.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <queue>

namespace lumenharbour::ctl {
namespace {

uint32 id_of(const Record* group) {
  return std::get<GroupRow>(group->row).id;
}

/// @return the last part of a path.
std::string_view base_of(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

/// @return true when the director may have answered so because of this group. One that was renamed is taken for the one
///         that has its former name, if any: both tell one file.
bool answers(const Record* group, const FileNames& names) {
  if (octets_of(*group, LUMENHARBOUR_CUSTOMGRP_CONFIGNAME) != names.config) return false;
  const uint32 status = integer_of(*group, LUMENHARBOUR_CUSTOMGRP_STATUS);
  // It tells the file of its last activation, and none before the first.
  if (names.imagelist.empty()) return status != LUMENHARBOUR_ROW_ACTIVE;
  const std::string file = octets_of(*group, LUMENHARBOUR_CUSTOMGRP_NAME) + ".txt";
  return status != LUMENHARBOUR_ROW_CREATE && base_of(names.imagelist) == base_of(file);
}

Mac mac_of(const Record& client) {
  Mac mac{};
  const std::string& octets = octets_of(client, LUMENHARBOUR_CLIENT_MAC);
  std::copy_n(octets.begin(), std::min(octets.size(), mac.size()), mac.begin());
  return mac;
}

tLumenHarbourClientInfo info_of(const Mac& mac, uint32 pid, const std::string& ip) {
  tLumenHarbourClientInfo info{};
  std::copy(mac.begin(), mac.end(), info.mac);
  std::copy_n(ip.begin(), std::min(ip.size(), sizeof info.ip), info.ip);
  info.pid = pid;
  info.family = AF_INET;
  info.op = 1;
  return info;
}

tLumenHarbourClientInfo info_of(const Record& client) {
  return info_of(mac_of(client), integer_of(client, LUMENHARBOUR_CLIENT_PID),
                 octets_of(client, LUMENHARBOUR_CLIENT_IP));
}

}  // namespace

std::vector<std::string> labels_of(const std::vector<const Record*>& groups) {
  std::vector<std::string> labels;
  labels.reserve(groups.size());
  for (const Record* const group : groups) labels.push_back(label_of(*group));
  return labels;
}

std::string label_of(const Record& group) {
  const std::string& name = octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME);
  return name.empty() ? std::to_string(id_of(&group)) : printable(name);
}

std::string title_of(const Record& group) {
  return group.row.index() == LUMENHARBOUR_TABLE_CUSTOMGRP ? "group " + label_of(group) : describe(group.row);
}

std::string listed(const std::vector<std::string>& words, const char* last) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); i++) text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + words[i];
  return text;
}

std::vector<const Record*> Choice::candidates() const {
  if (winner != nullptr) return {winner};
  return overlap == nullptr ? std::vector<const Record*>() : overlap->maybe;
}

std::string server_of(const Choice& choice) {
  if (choice.winner == choice.builtin && choice.winner != nullptr)
    return "builtin " + std::to_string(std::get<BuiltinRow>(choice.winner->row).pid);
  const std::vector<const Record*> candidates = choice.candidates();
  return candidates.empty() ? "defaults" : listed(labels_of(candidates), " or ");
}

const char* kind_of(const Choice& choice) {
  if (choice.candidates().empty()) return "defaults";
  return choice.winner != nullptr && choice.winner == choice.builtin ? "builtin" : "custom";
}

State state_around(const Call& call, const std::vector<Record>& clients) {
  State state{read_record(call, GlobalRow{}), {}, {}, {}};
  if (!state.is_director()) return state;
  std::set<std::string> wanted;
  std::set<uint32> pids;
  for (const Record& client : clients) {
    pids.insert(integer_of(client, LUMENHARBOUR_CLIENT_PID));
    wanted.insert(std::to_string(integer_of(client, LUMENHARBOUR_CLIENT_PID)));
    wanted.insert(format_mac(mac_of(client)));
  }
  const auto add = [&](uint32 group_id, const std::string& member) {
    if (wanted.contains(member)) state.members[group_id].push_back(member);
  };
  for (const MacMemberRow& row : walk<MacMemberRow>(call)) add(row.group_id, format_mac(row.mac));
  for (const PidMemberRow& row : walk<PidMemberRow>(call)) add(row.group_id, std::to_string(row.pid));
  std::vector<Row> groups, builtins;
  for (const auto& [id, members] : state.members) groups.push_back(GroupRow{id});
  for (const BuiltinRow& row : walk<BuiltinRow>(call))
    if (pids.contains(row.pid)) builtins.push_back(row);
  state.groups = read_records(call, groups);
  state.builtins = read_records(call, builtins);
  return state;
}

Rule::Rule(const Call& call, const State& state) : call_(call), state_(state) {
  for (const Record& group : state.groups) {
    const auto found = state.members.find(id_of(&group));
    if (found == state.members.end()) continue;
    // A MAC address never reads like a product id, so that a member says the type of the groups that list it.
    for (const std::string& member : std::set(found->second.begin(), found->second.end()))
      listing_[member].push_back(&group);
  }
  for (const auto& [member, groups] : listing_) {
    if (groups.size() < 2) continue;
    by_member_[member] = overlaps_.size();
    overlaps_.push_back({member, groups, nullptr, groups, "", false});
  }
}

const std::vector<Record>& Rule::clients() {
  if (!clients_) clients_ = read_table<ClientRow>(call_);
  return *clients_;
}

/// Finds whom to announce so that the answer tells who serves the member.
///
/// @param[out] is_known  the director has it already, and is told what it knows
/// @return nothing when there is nobody
std::optional<tLumenHarbourClientInfo> Rule::witness_for(const Overlap& overlap, bool* is_known) {
  const std::optional<Mac> mac = parse_mac(overlap.member);
  const std::optional<uint32> pid = parse_number(overlap.member);
  *is_known = true;
  for (const Record& client : clients()) {
    const bool is_product = pid == integer_of(client, LUMENHARBOUR_CLIENT_PID);
    if (mac == mac_of(client) || (is_product && !listing_.contains(format_mac(mac_of(client))))) return info_of(client);
  }
  *is_known = false;
  if (clients().size() >= integer_of(state_.global, LUMENHARBOUR_GLB_CLIENTMAXNUM)) return std::nullopt;
  if (mac) return info_of(*mac, 0, "");
  Mac nobody = {2, 0, 0, 0, 0, 0};
  const auto is_taken = [this](const Mac& address) {
    return listing_.contains(format_mac(address)) ||
           std::any_of(clients().begin(), clients().end(), [&](const Record& c) { return mac_of(c) == address; });
  };
  while (is_taken(nobody))
    for (std::size_t i = nobody.size(); i-- > 1 && ++nobody[i] == 0;) continue;
  return info_of(nobody, *pid, "");
}

void Rule::ask(Overlap* overlap) {
  if (overlap->is_asked) return;
  overlap->is_asked = true;
  const auto give_up = [overlap](const char* why) { overlap->why = why; };
  if (call_.args.read_only) return give_up("the director is not asked with --read-only");
  // It would tell of the announcement, and would end itself should the groups go meanwhile and a built-in one serve.
  if (integer_of(state_.global, LUMENHARBOUR_GLB_DEBUG) != 0)
    return give_up("a director whose debug is on is not asked");
  bool is_known = false;
  std::optional<tLumenHarbourClientInfo> witness = witness_for(*overlap, &is_known);
  if (!witness) return give_up("the director has no room for a client to ask about");
  const Reply<FileNames> names = call_.daemon.announce(*witness);
  if (!is_known) {
    witness->op = 0;
    call_.daemon.announce(*witness);
  }
  check(call_, names, "ask which group serves " + overlap->member);
  std::vector<const Record*> fitting;
  for (const Record* const group : overlap->groups)
    if (answers(group, names.value)) fitting.push_back(group);
  if (fitting.empty()) return give_up("the director names the file that a group had under another name");
  if (fitting.size() > 1) {
    overlap->maybe = fitting;
    return give_up("they answer alike");
  }
  overlap->winner = fitting[0];
  for (const Record* const group : overlap->groups)
    if (group != overlap->winner) younger_[group].insert(overlap->winner);
}

const std::vector<Overlap>& Rule::overlaps() {
  if (!is_all_asked_)
    for (Overlap& overlap : overlaps_) ask(&overlap);
  is_all_asked_ = true;
  return overlaps_;
}

Choice Rule::choose(const Mac& mac, std::optional<uint32> pid) {
  Choice choice;
  const auto groups_of = [this](const std::string& member) {
    const auto found = listing_.find(member);
    return found == listing_.end() ? std::vector<const Record*>() : found->second;
  };
  const std::string macs = format_mac(mac);
  const std::string pids = pid ? std::to_string(*pid) : "";
  choice.macs = groups_of(macs);
  if (pid) choice.pids = groups_of(pids);
  for (const Record& builtin : state_.builtins)
    if (std::get<BuiltinRow>(builtin.row).pid == pid) choice.builtin = &builtin;
  const std::vector<const Record*>& best = choice.macs.empty() ? choice.pids : choice.macs;
  if (best.size() > 1) {
    Overlap& overlap = overlaps_[by_member_.at(choice.macs.empty() ? pids : macs)];
    ask(&overlap);
    choice.overlap = &overlap;
    choice.winner = overlap.winner;
  } else {
    choice.winner = best.empty() ? choice.builtin : best[0];
  }
  return choice;
}

Choice Rule::choose(const Record& client) {
  return choose(mac_of(client), integer_of(client, LUMENHARBOUR_CLIENT_PID));
}

std::optional<bool> Rule::is_older(const Record* one, const Record* other) {
  overlaps();
  const auto leads = [this](const Record* from, const Record* to) {
    std::set<const Record*> seen = {from};
    for (std::vector<const Record*> due = {from}; !due.empty();) {
      const Record* const group = due.back();
      due.pop_back();
      const auto found = younger_.find(group);
      if (found == younger_.end()) continue;
      if (found->second.contains(to)) return true;
      for (const Record* const next : found->second)
        if (seen.insert(next).second) due.push_back(next);
    }
    return false;
  };
  if (leads(one, other)) return true;
  if (leads(other, one)) return false;
  return std::nullopt;
}

std::vector<const Record*> Rule::by_age() {
  overlaps();
  std::map<const Record*, std::size_t> older;  // how many must come first
  for (const auto& [group, younger] : younger_)
    for (const Record* const other : younger) older[other]++;
  // Groups lie in the order of their ids.
  std::priority_queue<const Record*, std::vector<const Record*>, std::greater<>> ready;
  for (const Record& group : state_.groups)
    if (!older.contains(&group)) ready.push(&group);
  std::vector<const Record*> order;
  while (!ready.empty()) {
    const Record* const group = ready.top();
    ready.pop();
    order.push_back(group);
    for (const Record* const other : younger_[group])
      if (--older[other] == 0) ready.push(other);
  }
  // Should the answers contradict one another, because groups were made anew between them, none is lost.
  for (const Record& group : state_.groups)
    if (older[&group] > 0) order.push_back(&group);
  return order;
}

/// @return groups behind the winner of which it is not known who comes next.
std::vector<const Record*> Rule::losers_in_doubt(const Overlap& overlap) {
  std::vector<const Record*> losers;
  for (const Record* const group : overlap.groups)
    if (group != overlap.winner) losers.push_back(group);
  // The next one is younger than all others.
  for (const Record* const next : losers) {
    const auto is_behind = [&](const Record* group) { return group == next || is_older(group, next) == true; };
    if (std::all_of(losers.begin(), losers.end(), is_behind)) return {};
  }
  return losers;
}

bool Rule::is_doubtful(const Overlap& overlap) {
  return overlap.winner == nullptr || !losers_in_doubt(overlap).empty();
}

std::string Rule::describe(const Overlap& overlap) {
  const std::string kind = parse_mac(overlap.member) ? "" : "product id ";
  const std::string text = kind + overlap.member + " is in the groups " + listed(labels_of(overlap.groups)) + ": ";
  if (overlap.winner == nullptr)
    return text + "which of " + listed(labels_of(overlap.maybe)) + " serves it is not known, because " + overlap.why;
  const std::vector<const Record*> doubt = losers_in_doubt(overlap);
  return text + label_of(*overlap.winner) + " serves it" +
         (doubt.empty() ? "" : ", and which of " + listed(labels_of(doubt)) + " comes next is not known");
}

}  // namespace lumenharbour::ctl
