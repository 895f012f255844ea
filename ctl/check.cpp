#include <algorithm>

#include "commands.h"
#include "imagelist.h"
#include "rule.h"

namespace lumenharbour::ctl {
namespace {

/// What an operator should look at.
struct Finding {
  const char* kind;         ///< a word for programs
  std::string about;        ///< the group, member, file or pool
  std::string text;         ///< a sentence
  const char* advice = "";  ///< what to do about it; may be empty
};
using Findings = std::vector<Finding>;

const std::string& name_of(const Record& group) {
  return octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME);
}

/// @return how many of its members a group serves, or may serve.
std::size_t members_served(Rule* rule, const State& state, const Record& group) {
  const auto found = state.members.find(std::get<GroupRow>(group.row).id);
  if (found == state.members.end()) return 0;
  std::set<std::string> members(found->second.begin(), found->second.end());
  for (const Overlap& overlap : rule->overlaps())
    if (overlap.winner != nullptr && overlap.winner != &group) members.erase(overlap.member);
  return members.size();
}

/// @return the custom group that lists a product id, or null.
const Record* lister_of(const State& state, const Record& builtin) {
  const std::string pid = std::to_string(std::get<BuiltinRow>(builtin.row).pid);
  for (const Record& group : state.groups) {
    const auto found = state.members.find(std::get<GroupRow>(group.row).id);
    if (found != state.members.end() &&
        std::find(found->second.begin(), found->second.end(), pid) != found->second.end())
      return &group;
  }
  return nullptr;
}

// ---- Who serves whom ----

void find_overlaps(Rule* rule, Findings* findings) {
  for (const Overlap& overlap : rule->overlaps())
    findings->push_back({overlap.winner == nullptr ? "order" : "shadowed", overlap.member, rule->describe(overlap),
                         "list it in one group only"});
}

void find_shadowed_builtins(const State& state, Findings* findings) {
  for (const Record& builtin : state.builtins)
    if (const Record* const group = lister_of(state, builtin); group != nullptr)
      findings->push_back({"shadowed", title_of(builtin),
                           title_of(builtin) + " serves nobody: group " + label_of(*group) + " lists that product id"});
}

void find_inactive(Rule* rule, const State& state, Findings* findings) {
  const auto add = [findings](const Record& group, const std::string& whom) {
    const uint32 status = integer_of(group, LUMENHARBOUR_CUSTOMGRP_STATUS);
    if (status == LUMENHARBOUR_ROW_ACTIVE) return;
    const bool is_new = status == LUMENHARBOUR_ROW_CREATE;
    findings->push_back({"inactive", title_of(group),
                         title_of(group) + (is_new ? " was never activated" : " is inactive") + ", and serves " + whom +
                             " all the same, " +
                             (is_new ? "without an imagelist" : "with the imagelist that it had, which is gone"),
                         "activate it, or delete it"});
  };
  for (const Record& group : state.groups)
    if (const std::size_t count = members_served(rule, state, group); count > 0)
      add(group, "its " + (count == 1 ? std::string("member") : std::to_string(count) + " members"));
  for (const Record& builtin : state.builtins)
    if (lister_of(state, builtin) == nullptr) add(builtin, "switches of that product id");
}

// ---- Imagelist files ----

void find_files(const Call& call, const State& state, Findings* findings) {
  const std::vector<Imagelist> lists = read_imagelists(call, state);
  bool is_unseen = false;
  for (const Imagelist& list : lists) {
    if (list.state == FileState::good || list.state == FileState::none) continue;
    is_unseen = is_unseen || list.state == FileState::unknown;
    if (list.state == FileState::unknown) continue;
    const char* const advice = list.state == FileState::left         ? "remove the file"
                               : list.state == FileState::unreadable ? "remove what lies there"
                               : list.group == nullptr               ? "set the default image again"
                                                                     : "activate the group again";
    findings->push_back(
        {word_of(list.state), list.of, list.of + ": " + printable(list.path) + ' ' + verdict_on(list), advice});
  }
  if (is_unseen)
    findings->push_back({"unseen", "files", "there are imagelists that cannot be told, or not seen from here"});
  for (const std::string& name : stray_imagelists(call, lists))
    findings->push_back({"stray", "/tmp/" + name, "/tmp/" + printable(name) + " is an imagelist of no group",
                         "if a group was renamed, make it anew; then remove the file"});
}

void find_shared_files(const State& state, Findings* findings) {
  std::map<std::string, std::vector<const Record*>> by_name;
  for (const Record& group : state.groups) by_name[name_of(group)].push_back(&group);
  static constexpr char advice[] = "give one of them another name";
  for (const auto& [name, groups] : by_name) {
    const std::string file = "/tmp/" + printable(name) + ".txt";
    if (groups.size() > 1) {
      std::vector<std::string> ids;
      for (const Record* const group : groups) ids.push_back(std::to_string(std::get<GroupRow>(group->row).id));
      findings->push_back({"shared-file", file, "groups " + listed(ids) + " have one name, and share " + file, advice});
    }
    if (name == "imagelist")
      findings->push_back({"shared-file", file, "group imagelist and the defaults share " + file, advice});
    if (!builtin_number(name)) continue;
    std::string what = "group " + name;
    what += " and a built-in group share " + file + ", or will as soon as there is one";
    findings->push_back({"shared-file", file, what, advice});
  }
}

// ---- Names and room ----

void find_bad_names(const Record& record, const std::string& of, Findings* findings) {
  const auto table = static_cast<tLumenHarbourTable>(record.row.index());
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(table)) {
    if (attr->value != LUMENHARBOUR_VALUE_TEXT || attr->access == LUMENHARBOUR_ATTR_GET) continue;
    const std::string& name = octets_of(record, attr->cmd);
    const std::string fault = fault_of_name(name);
    if (fault.empty()) continue;
    std::string what(attr->name);
    if (!of.empty()) what += " of " + of;
    what += " is '" + printable(name) + "': it " + fault + ", and every switch refuses it";
    findings->push_back({"name", of.empty() ? "defaults" : of, what, "give it another name"});
  }
}

void find_names(const State& state, Findings* findings) {
  find_bad_names(state.global, "", findings);
  for (const Record& group : state.groups) find_bad_names(group, title_of(group), findings);
  for (const Record& builtin : state.builtins) find_bad_names(builtin, title_of(builtin), findings);
}

void find_full_pools(const Call& call, const State& state, Findings* findings) {
  std::size_t members = 0;
  for (const auto& [id, of_group] : state.members) members += of_group.size();
  const struct {
    const char* rows;
    std::size_t used;
    uint32 cmd;
  } pools[] = {{"groups", state.groups.size(), LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM},
               {"members", members, LUMENHARBOUR_GLB_GRPIDMAXNUM},
               {"built-in groups", state.builtins.size(), LUMENHARBOUR_GLB_BUILTINGRPMAXNUM},
               {"clients", walk<ClientRow>(call).size(), LUMENHARBOUR_GLB_CLIENTMAXNUM}};
  for (const auto& [rows, used, cmd] : pools) {
    const std::size_t max = integer_of(state.global, cmd);
    if (max > 0 && used * 10 >= max * 9)
      findings->push_back({"pool", rows,
                           std::to_string(used) + " of " + std::to_string(max) + ' ' + rows + " are in use",
                           "start lumenharbourd with larger pools"});
  }
}

void find_fault(const State& state, Findings* findings) {
  if (state.builtins.empty() || integer_of(state.global, LUMENHARBOUR_GLB_DEBUG) == 0) return;
  std::vector<std::string> pids;
  for (const Record& builtin : state.builtins) pids.push_back(std::to_string(std::get<BuiltinRow>(builtin.row).pid));
  findings->push_back(
      {"debug", "debug",
       "debug is on, and the next client that a built-in group serves ends the daemon; there is one for " +
           listed(pids),
       "'lumenharbourctl debug off'"});
}

}  // namespace

void check_state(const Call& call) {
  require_director(call, "check");
  const State state = read_state(call);
  Rule rule(call, state);
  Findings findings;
  find_fault(state, &findings);
  find_overlaps(&rule, &findings);
  find_shadowed_builtins(state, &findings);
  find_inactive(&rule, state, &findings);
  find_files(call, state, &findings);
  find_shared_files(state, &findings);
  find_names(state, &findings);
  find_full_pools(call, state, &findings);
  Json rows = Json::array();
  for (const Finding& finding : findings) {
    rows.push_back(
        {{"finding", finding.kind}, {"about", finding.about}, {"text", finding.text}, {"advice", finding.advice}});
    if (!call.args.is_json())
      print_line(printable(finding.text) + (finding.advice[0] == '\0' ? "" : "; ") + finding.advice);
  }
  if (call.args.is_json()) print_line(dump(rows));
  if (!findings.empty()) throw Failure{.exit = EXIT_REFUSED, .message = "", .advice = "", .is_told = true};
}

}  // namespace lumenharbour::ctl
