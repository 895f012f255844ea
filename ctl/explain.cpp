#include <algorithm>

#include "commands.h"
#include "imagelist.h"
#include "rule.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

/// What the director takes for local in an attribute about a place.
constexpr uint32 LOCAL = 1;

/// Whom the command line asks about.
struct Subject {
  Mac mac{};
  std::optional<uint32> pid;    ///< nothing: not known
  std::optional<uint32> index;  ///< among the clients; nothing: the director has not seen it
};

/// What a client would be told, should `group` serve it, and what comes of that.
struct Outcome {
  const Record* group;                   ///< null for the defaults
  Imagelist list;                        ///< the group's file
  std::optional<std::string> imagelist;  ///< what the director names; nothing where that is not known
  std::string config;
  Imagelist fetched;  ///< the file that the switch asks for
  std::vector<std::string> notes;
};

Subject subject_of(const Call& call) {
  const Arguments& args = call.args;
  if (args.row.empty() == args.mac.empty())
    throw Failure{EXIT_USAGE, "explain needs a client that the director has seen, or --mac", "expected one of them"};
  Subject subject;
  if (!args.mac.empty()) subject.mac = mac_of(args.mac);
  if (!args.pid.empty()) subject.pid = number_of(args.pid, "product id");
  const std::optional<uint32> index =
      args.row.empty() ? std::nullopt : std::optional<uint32>(client_of(call, args.row));
  if (index) read_record(call, ClientRow{*index});
  for (const Record& client : read_table<ClientRow>(call)) {
    const uint32 at = std::get<ClientRow>(client.row).index;
    const std::string& mac = octets_of(client, LUMENHARBOUR_CLIENT_MAC);
    if (index ? at != *index : !std::equal(mac.begin(), mac.end(), subject.mac.begin(), subject.mac.end())) continue;
    std::copy_n(mac.begin(), std::min(mac.size(), subject.mac.size()), subject.mac.begin());
    if (!subject.pid) subject.pid = integer_of(client, LUMENHARBOUR_CLIENT_PID);
    subject.index = at;
  }
  return subject;
}

/// Tells what the director names for a group that is not active, or was not when it got its name.
void tell_status(const Record& group, bool is_custom, Outcome* outcome) {
  const uint32 status = integer_of(group, LUMENHARBOUR_CUSTOMGRP_STATUS);
  if (status == LUMENHARBOUR_ROW_ACTIVE) {
    if (outcome->list.state == FileState::missing)
      outcome->notes.push_back("it is active: if it was renamed since, the director still names the file that it had");
    if (outcome->list.path.empty()) {
      outcome->imagelist = std::nullopt;
      outcome->notes.push_back(
          "the director names one of /tmp/built_in*.txt; which, the files that are there do not tell");
    }
  } else if (status == LUMENHARBOUR_ROW_CREATE && is_custom) {
    outcome->imagelist = "";
    outcome->notes.push_back("it was never activated, and serves all the same: the director names no imagelist");
  } else if (status == LUMENHARBOUR_ROW_CREATE) {
    outcome->imagelist = std::nullopt;
    outcome->notes.push_back(
        "it was never activated, and serves all the same: the director names no imagelist, or that of a built-in group "
        "which had its place before, which is gone");
  } else {
    if (outcome->list.path.empty()) outcome->imagelist = std::nullopt;
    outcome->notes.push_back(
        "it is inactive, and serves all the same: the director names the imagelist of its last activation, which is "
        "gone, or none if it had none");
  }
}

Outcome outcome_of(const State& state, const std::vector<Imagelist>& lists, const Record* group) {
  const auto own = std::find_if(lists.begin(), lists.end(), [group](const Imagelist& l) { return l.group == group; });
  Outcome outcome{group, *own, "", "", {}, {}};
  const Record& row = group == nullptr ? state.global : *group;
  const bool is_custom = group != nullptr && group->row.index() == LUMENHARBOUR_TABLE_CUSTOMGRP;
  const auto pick = [&](uint32 global, uint32 custom, uint32 builtin) {
    return group == nullptr ? global : is_custom ? custom : builtin;
  };
  const bool is_local = integer_of(row, pick(LUMENHARBOUR_GLB_DEFAULTIMAGETYPE, LUMENHARBOUR_CUSTOMGRP_IMAGETYPE,
                                             LUMENHARBOUR_BUILTINGRP_IMAGETYPE)) == LOCAL ||
                        integer_of(row, pick(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE, LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE,
                                             LUMENHARBOUR_BUILTINGRP_CONFIGTYPE)) == LOCAL;
  outcome.config = octets_of(row, pick(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, LUMENHARBOUR_CUSTOMGRP_CONFIGNAME,
                                       LUMENHARBOUR_BUILTINGRP_CONFIGNAME));
  outcome.imagelist = is_local ? own->path : own->name();
  if (group != nullptr) {
    tell_status(*group, is_custom, &outcome);
  } else if (!own->is_due) {
    outcome.imagelist = std::nullopt;
    outcome.notes.push_back("there is no default image: the director names no imagelist, or one that is gone");
  }
  const bool is_own = outcome.imagelist ? !outcome.imagelist->empty() : own->is_due;
  outcome.fetched = is_own ? *own : lists.front();
  if (!is_own && group != nullptr)
    outcome.notes.push_back("a switch that is told no imagelist asks for imagelist.txt, that of the defaults");
  const bool is_builtin = group != nullptr && !is_custom;
  if (is_builtin && integer_of(state.global, LUMENHARBOUR_GLB_DEBUG) != 0)
    outcome.notes.push_back("debug is on: a client that a built-in group serves ends the daemon");
  const std::string own_name = is_custom ? octets_of(row, LUMENHARBOUR_CUSTOMGRP_NAME) : "";
  for (const std::string& name : {own_name, outcome.config, outcome.fetched.says})
    if (const std::string fault = fault_of_name(name); !fault.empty())
      outcome.notes.push_back("a switch refuses '" + printable(name) + "': it " + fault);
  return outcome;
}

/// @return true when the switch fetches what it is told; false when it waits for the imagelist.
bool is_fetching(const Outcome& outcome) {
  const FileState state = outcome.fetched.state;
  const bool is_gone = state == FileState::missing || state == FileState::none;
  return state != FileState::unreadable && !(is_gone && !outcome.imagelist.value_or("").empty());
}

/// @return the image that the switch takes from the imagelist; empty for none.
std::string image_of(const Outcome& outcome) {
  const Imagelist& list = outcome.fetched;
  return list.state == FileState::unknown ? list.image : list.says;
}

/// @return what the switch does.
std::string consequence(const Outcome& outcome) {
  if (!is_fetching(outcome)) return "it fetches nothing, and asks for the imagelist again every 60 s";
  const std::string image = image_of(outcome);
  return "it fetches " + (image.empty() ? "the image that DHCP names beside, if any" : "image " + printable(image)) +
         ", and " + (outcome.config.empty() ? "no configuration" : "configuration " + printable(outcome.config));
}

/// @return a step of the story: who lists the client, and whether that decides.
std::string step(const std::vector<const Record*>& groups, const std::string& subject, bool is_reached,
                 const Choice& choice) {
  if (groups.empty()) return "none lists " + subject;
  std::string text = listed(labels_of(groups)) + (groups.size() == 1 ? " lists " : " list ") + subject;
  if (!is_reached) return text + ", but a MAC group comes first";
  if (groups.size() == 1) return text + ", and serves it";
  if (choice.winner != nullptr) return text + "; " + label_of(*choice.winner) + " was created last and serves it";
  return text + "; which of " + listed(labels_of(choice.overlap->maybe)) +
         " was created last and serves it is not known, because " + choice.overlap->why;
}

std::vector<std::string> steps_of(const Subject& subject, const Choice& choice) {
  const std::string pid =
      subject.pid ? "product id " + std::to_string(*subject.pid) : "its product id, which is not known";
  const bool is_mac = !choice.macs.empty();
  const bool is_custom = is_mac || !choice.pids.empty();
  std::vector<std::string> steps;
  steps.push_back("MAC groups: " + step(choice.macs, format_mac(subject.mac), true, choice));
  steps.push_back("product-id groups: " + (subject.pid ? step(choice.pids, pid, !is_mac, choice) : "not reached"));
  const std::string first = is_custom ? ", but a custom group comes first" : ", and serves it";
  steps.push_back("built-in groups: " + (!subject.pid                ? "not reached"
                                         : choice.builtin != nullptr ? "there is one for " + pid + first
                                                                     : "there is none for " + pid));
  steps.push_back(std::string("defaults: ") + (is_custom || choice.builtin != nullptr ? "not reached" : "serve it"));
  return steps;
}

void print_story(const Subject& subject, const Choice& choice, const std::vector<Outcome>& outcomes) {
  const auto name = [](const std::string& text) { return text.empty() ? "none" : printable(text); };
  print_line("client " + format_mac(subject.mac) +
             (subject.pid ? ", product id " + std::to_string(*subject.pid) : std::string()) +
             (subject.index ? ", which is client " + std::to_string(*subject.index) : ", not seen yet"));
  std::size_t number = 1;
  for (const std::string& text : steps_of(subject, choice)) print_line(std::to_string(number++) + ". " + text);
  for (const Outcome& outcome : outcomes) {
    const std::string head = outcome.group == nullptr ? "defaults" : title_of(*outcome.group);
    print_line((outcomes.size() > 1 ? "if " + head + " serves it" : head) + ':');
    print_line("  told: imagelist " + (outcome.imagelist ? name(*outcome.imagelist) : "not known") +
               ", configuration " + name(outcome.config));
    for (const std::string& text : outcome.notes) print_line("  note: " + text);
    print_line("  file: " + (outcome.fetched.path.empty() ? "its imagelist" : printable(outcome.fetched.path)) + ' ' +
               verdict_on(outcome.fetched));
    print_line("  then: " + consequence(outcome));
  }
}

Json json_of(const Subject& subject, const Choice& choice, const std::vector<Outcome>& outcomes) {
  Json json = {{"mac", format_mac(subject.mac)},
               {"pid", subject.pid ? Json(*subject.pid) : Json()},
               {"client", subject.index ? Json(*subject.index) : Json()},
               {"group", server_of(choice)},
               {"kind", kind_of(choice)},
               {"mac-groups", labels_of(choice.macs)},
               {"pid-groups", labels_of(choice.pids)},
               {"builtin", choice.builtin != nullptr},
               {"story", steps_of(subject, choice)},
               {"outcomes", Json::array()}};
  for (const Outcome& outcome : outcomes)
    json["outcomes"].push_back({{"group", outcome.group == nullptr ? "defaults" : title_of(*outcome.group)},
                                {"imagelist", outcome.imagelist ? Json(*outcome.imagelist) : Json()},
                                {"config", outcome.config},
                                {"file", outcome.fetched.path},
                                {"file-state", word_of(outcome.fetched.state)},
                                {"file-says", outcome.fetched.says},
                                {"fetches", is_fetching(outcome)},
                                {"image", image_of(outcome)},
                                {"notes", outcome.notes}});
  return json;
}

}  // namespace

void explain(const Call& call) {
  require_director(call, "explain");
  const Subject subject = subject_of(call);
  const State state = read_state(call);
  Rule rule(call, state);
  const Choice choice = rule.choose(subject.mac, subject.pid);
  if (!subject.pid && choice.macs.empty())
    throw Failure{EXIT_USAGE, "no MAC group lists " + format_mac(subject.mac) + ", and its product id is not known",
                  "say it with --pid"};
  const std::vector<Imagelist> lists = read_imagelists(call, state);
  std::vector<Outcome> outcomes;
  for (const Record* const group : choice.candidates()) outcomes.push_back(outcome_of(state, lists, group));
  if (outcomes.empty()) outcomes.push_back(outcome_of(state, lists, nullptr));
  if (call.args.is_json()) return print_line(dump(json_of(subject, choice, outcomes)));
  print_story(subject, choice, outcomes);
}

void show_imagelists(const Call& call) {
  require_director(call, "show imagelists");
  const std::optional<uint32> id =
      call.args.row.empty() ? std::nullopt : std::optional<uint32>(group_of(call, call.args.row));
  if (id) read_record(call, GroupRow{*id});
  Json rows = Json::array();
  const State state = read_state(call);
  for (const Imagelist& list : read_imagelists(call, state)) {
    const bool is_wanted = !id || (list.group != nullptr && list.group->row == Row(GroupRow{*id}));
    if (is_wanted)
      rows.push_back({{"of", list.of},
                      {"file", list.path},
                      {"state", word_of(list.state)},
                      {"says", list.says},
                      {"should-say", list.is_due ? Json(list.image) : Json()}});
  }
  if (id) return print_object(call.args, rows.at(0));
  print_table(call.args, {"of", "file", "state", "says", "should-say"}, rows);
}

}  // namespace lumenharbour::ctl
