#include "apply.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "commands.h"
#include "confirm.h"
#include "export.h"
#include "guard.h"
#include "lock.h"
#include "order.h"
#include "role.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

/// What a change does, as JSON, a line of output, and a sentence behind "cannot" say it.
struct Op {
  const char* name;
  const char* sign;
  const char* verb;
};

constexpr Op ADD = {"add", "+ ", "add "};
constexpr Op CHANGE = {"change", "~ ", "set "};
constexpr Op DELETE = {"delete", "- ", "delete "};

/// A request that sets an attribute.
struct Set {
  Row row;
  uint32 cmd;
  Value value;
};

/// A change, and the requests that make it.
struct Change {
  Op op;
  std::string what;       ///< the row; empty for the global attributes
  std::string attribute;  ///< what changes about it; empty for the row itself
  Json before, after;     ///< the attribute's values
  std::vector<Set> sets;
};

/// Both kinds of group, and members, have their status under one number.
constexpr uint32 STATUS = LUMENHARBOUR_CUSTOMGRP_STATUS;
static_assert(STATUS == LUMENHARBOUR_BUILTINGRP_STATUS && STATUS == LUMENHARBOUR_GRPMAC_STATUS &&
              STATUS == LUMENHARBOUR_GRPPID_STATUS);

const tLumenHarbourAttr& attr_of(const Row& row, uint32 cmd) {
  return *lumenharbour_attr_find(static_cast<tLumenHarbourTable>(row.index()), cmd);
}

std::string name_of(const Row& row, const std::string& name) {
  return name.empty() ? describe(row) : "group " + printable(name);
}

std::string member_name(const std::string& member, const std::string& group) {
  std::string name = "member ";
  return name.append(member).append(" of ").append(group);
}

std::string with_id(const Row& row, const std::string& what) {
  if (what == describe(row)) return what;
  return what + " (id " + std::to_string(std::get<GroupRow>(row).id) + ')';
}

uint32 id_of(const Record& group) {
  return std::get<GroupRow>(group.row).id;
}

// ---- Making changes ----

/// Makes changes, or with `--dry-run` only tells them.
class Maker {
 public:
  /// @param[in] is_quiet  nothing is printed
  explicit Maker(const Call& call, bool is_quiet = false) : call_(call), is_quiet_(is_quiet) {}

  /// @return how many changes there were.
  std::size_t count() const { return told_.size(); }

  void make(const std::vector<Change>& changes) {
    for (const Change& change : changes) {
      if (!call_.args.dry_run)
        for (const Set& set : change.sets) send(change, set);
      tell(change);
    }
  }

  /// Takes the names of the groups that are there, for what is told about them.
  void know(const State& state) {
    for (const Record& group : state.groups) names_[id_of(group)] = octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME);
  }

  /// Tells what is lost with the director role.
  void lose(const Loss& loss) {
    lost_ = loss.json();
    if (!call_.args.is_json() && !is_quiet_)
      print_line(std::string(DELETE.sign) + "the director role, and with it " + loss.text());
  }

  /// Tells how many changes there were, or all of them in JSON.
  void finish() const {
    if (call_.args.is_json()) {
      Json object = {{"changed", told_}, {"dry-run", call_.args.dry_run}};
      if (!lost_.is_null()) object["lost"] = lost_;
      return print_line(dump(object));
    }
    if (told_.empty()) return print_line("nothing to change");
    print_line(plural(told_.size(), "change ", "changes ") + (call_.args.dry_run ? "to make" : "made"));
  }

  /// Tells in JSON what was changed before a failure; plain lines have told it.
  void break_off() const {
    if (call_.args.is_json() && !told_.empty()) finish();
  }

 private:
  void send(const Change& change, const Set& set) const {
    const tLumenHarbourAttr& attr = attr_of(set.row, set.cmd);
    const auto* const number = std::get_if<uint32>(&set.value);
    const Result result = number != nullptr
                              ? call_.daemon.set_integer(set.row, set.cmd, *number)
                              : call_.daemon.set_octets(set.row, set.cmd, std::get<std::string>(set.value));
    const std::string of = change.attribute.empty() || change.what.empty() ? "" : " of ";
    check(call_, result, change.op.verb + change.attribute + of + change.what, set.row, &attr);
  }

  /// @return a change in the fields that 'watch' has for one.
  Json entry_of(const Change& change) {
    const Row row = change.sets.empty() ? Row(GlobalRow{}) : change.sets.front().row;
    Json attribute = change.attribute.empty() ? Json() : Json(change.attribute);
    Json before = change.before;
    Json after = change.after;
    Json key;
    if (const auto* const builtin = std::get_if<BuiltinRow>(&row)) key = builtin->pid;
    if (const auto* const group = std::get_if<GroupRow>(&row)) key = group->id;
    const auto take_member = [&](uint32 group_id, const Json& member) {
      key = group_id;
      attribute = "member";
      (std::string_view(change.op.name) == DELETE.name ? before : after) = member;
    };
    if (const auto* const mac = std::get_if<MacMemberRow>(&row)) take_member(mac->group_id, format_mac(mac->mac));
    if (const auto* const pid = std::get_if<PidMemberRow>(&row)) take_member(pid->group_id, pid->pid);
    for (const Set& set : change.sets)
      if (std::holds_alternative<GroupRow>(row) && set.cmd == LUMENHARBOUR_CUSTOMGRP_NAME)
        names_[key.get<uint32>()] = std::get<std::string>(set.value);
    const bool is_builtin = std::holds_alternative<BuiltinRow>(row);
    const bool is_group = !is_builtin && !key.is_null();
    const tLumenHarbourTable table = is_builtin ? LUMENHARBOUR_TABLE_BUILTINGRP
                                     : is_group ? LUMENHARBOUR_TABLE_CUSTOMGRP
                                                : LUMENHARBOUR_TABLE_GLOBAL;
    const std::string name = is_group ? names_[key.get<uint32>()] : "";
    return {{"op", change.op.name},
            {"what", TABLES[table].name},
            {"key", key},
            {"name", name.empty() ? Json() : Json(name)},
            {"attribute", attribute},
            {"old", before},
            {"new", after}};
  }

  void tell(const Change& change) {
    told_.push_back(entry_of(change));
    if (call_.args.is_json() || is_quiet_) return;
    std::string line = change.op.sign + change.what;
    if (!change.attribute.empty())
      line += (change.what.empty() ? "" : ": ") + change.attribute + (change.what.empty() ? ": " : " ") +
              text_of(change.attribute, change.before) + " -> " + text_of(change.attribute, change.after);
    print_line(line);
    flush_output();
  }

  const Call& call_;
  const bool is_quiet_;
  Json told_ = Json::array();
  std::map<uint32, std::string> names_;  // of the groups, by id
  Json lost_;
};

// ---- Planning them ----

/// @return whether a group is to be active in the end. Left out it stays; one that was never active nor made inactive
/// is
///         as new, as a run leaves it that broke off. @param[in] before  its status, 0 for one that is to be added
bool is_to_be_active(const Entry& entry, uint32 before) {
  return entry.active.value_or(before != LUMENHARBOUR_ROW_INACTIVE);
}

/// Finds out what differs between what a file says and what the daemon has.
class Planner {
 public:
  /// @param[in] is_assumed  the state is that of a switch which will first become the director
  Planner(const Call& call, const Document& wanted, const State& now, bool is_assumed)
      : call_(call), wanted_(wanted), now_(now), is_assumed_(is_assumed) {}

  void plan_role();
  void plan_vlans();
  void plan_stop();
  void plan_defaults();
  void plan_groups();
  void plan_builtins();

  /// Fails when a pool is too small for what is planned.
  void check_pools() const;

  /// Tells on standard error what stays only because nobody asked to delete it, or because it is not known.
  void note_unlisted() const;

  /// @return the changes in the order in which they can be made. Deletions come first: they give back what the rest
  ///         may need.
  std::vector<Change> changes() const {
    std::vector<Change> all = deletions_;
    all.insert(all.end(), changes_.begin(), changes_.end());
    return all;
  }

 private:
  bool change(const Row& row, const std::string& what, uint32 cmd, const Value& before, const Value& after);
  void change_global(uint32 cmd);
  void change_status(const Record& record, const std::string& what, const Entry& entry, bool is_stale);
  bool change_files(const Record& record, const std::string& what, const Entry& entry);
  void add_row(const Row& row, const std::string& what, const Entry& entry);
  void delete_row(const Row& row, const std::string& what) {
    deletions_.push_back({DELETE, what, "", {}, {}, {{row, STATUS, uint32{LUMENHARBOUR_ROW_DESTROY}}}});
  }
  /// Deletes what the file does not list, or counts it.
  void delete_unlisted(const Row& row, const std::string& what);
  const Record* find_group(const Entry& entry);
  void change_group(const Record& group, const Entry& entry);
  void add_group(uint32 id, const Entry& entry);
  void change_members(uint32 id, const std::string& what, const Entry& entry, const std::vector<std::string>& now);
  Place place_of(const Record* group, const Entry& entry) const;
  void move_group(const Entry& entry, const Place& place, const Move& move);
  const std::vector<std::string>& members_of(uint32 id) const;

  const Call& call_;
  const Document& wanted_;
  const State& now_;
  const bool is_assumed_;
  std::vector<Change> deletions_, changes_;
  std::size_t rows_[LUMENHARBOUR_TABLE_CLIENT] = {};      // how many there will be, by table
  std::size_t unlisted_[LUMENHARBOUR_TABLE_CLIENT] = {};  // how many the file does not list, by table
  std::map<std::string, const Record*> by_name_;
  std::map<uint32, const Record*> by_id_;
  std::map<uint32, std::size_t> listed_;  // lines of the groups that are there, by id
  std::vector<std::string> doubts_;       // about the order of groups
};

bool Planner::change(const Row& row, const std::string& what, uint32 cmd, const Value& before, const Value& after) {
  const tLumenHarbourAttr& attr = attr_of(row, cmd);
  // An address that is not set comes as no bytes, and goes as zeros.
  const bool is_same =
      attr.value == LUMENHARBOUR_VALUE_IPV4 ? format_value(attr, before) == format_value(attr, after) : before == after;
  if (is_same) return false;
  changes_.push_back({CHANGE, what, field_of(attr), json_of(attr, before), json_of(attr, after), {{row, cmd, after}}});
  return true;
}

void Planner::change_global(uint32 cmd) {
  if (const auto wanted = wanted_.globals.find(cmd); wanted != wanted_.globals.end())
    change(GlobalRow{}, "", cmd, value_of(now_.global, cmd), wanted->second);
}

void Planner::plan_role() {
  if (const auto state = wanted_.globals.find(LUMENHARBOUR_GLB_STATE);
      state != wanted_.globals.end() && state->second == Value(uint32{LUMENHARBOUR_ON}))
    change_global(LUMENHARBOUR_GLB_STATE);
  change_global(LUMENHARBOUR_GLB_DIRECTORIPTYPE);
  change_global(LUMENHARBOUR_GLB_DIRECTORIP);
  const bool is_changed = !changes_.empty() && changes_.back().sets.back().cmd == LUMENHARBOUR_GLB_DIRECTORIP;
  if (is_changed && now_.is_director() && wanted_.needs_director())
    throw Failure{EXIT_REFUSED,
                  "cannot apply " + wanted_.file + ": it gives the director the address " +
                      text_of(changes_.back().after) + " in place of " + text_of(changes_.back().before),
                  "an address that is not this switch's would lose every group; change it by itself first, with "
                  "'lumenharbourctl director address'"};
}

void Planner::plan_vlans() {
  const auto wanted = wanted_.globals.find(LUMENHARBOUR_GLB_MANAGEVLANADD);
  if (wanted == wanted_.globals.end()) return;
  const std::string& after = std::get<std::string>(wanted->second);
  std::string before = octets_of(now_.global, LUMENHARBOUR_GLB_MANAGEVLANADD);
  before.resize(after.size());
  if (is_assumed_) before[0] = static_cast<char>(before[0] | 0x80);  // a new director manages VLAN 0
  if (before == after) return;
  std::string missing = after;
  std::string extra = before;
  for (std::size_t i = 0; i < after.size(); i++) {
    missing[i] = static_cast<char>(after[i] & ~before[i]);
    extra[i] = static_cast<char>(before[i] & ~after[i]);
  }
  Change vlans = {CHANGE, "", "management-vlans", format_vlans(before), format_vlans(after), {}};
  if (!format_vlans(missing).empty()) vlans.sets.push_back({GlobalRow{}, LUMENHARBOUR_GLB_MANAGEVLANADD, missing});
  if (!format_vlans(extra).empty()) vlans.sets.push_back({GlobalRow{}, LUMENHARBOUR_GLB_MANAGEVLANDEL, extra});
  changes_.push_back(std::move(vlans));
}

/// Stops the service: behind the VLANs, which only a service that runs takes.
void Planner::plan_stop() {
  if (const auto state = wanted_.globals.find(LUMENHARBOUR_GLB_STATE);
      state != wanted_.globals.end() && state->second == Value(uint32{LUMENHARBOUR_OFF}))
    change_global(LUMENHARBOUR_GLB_STATE);
}

void Planner::plan_defaults() {
  const std::size_t planned = changes_.size();
  change_global(LUMENHARBOUR_GLB_DEFAULTIMAGETYPE);
  change_global(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE);
  const bool is_stale = changes_.size() > planned;
  const std::string& image = octets_of(now_.global, LUMENHARBOUR_GLB_DEFAULTIMAGENAME);
  const auto wanted = wanted_.globals.find(LUMENHARBOUR_GLB_DEFAULTIMAGENAME);
  // The imagelist file is written anew by a set of the image alone.
  if (is_stale && !image.empty() && (wanted == wanted_.globals.end() || wanted->second == Value(image)))
    changes_.back().sets.push_back({GlobalRow{}, LUMENHARBOUR_GLB_DEFAULTIMAGENAME, image});
  change_global(LUMENHARBOUR_GLB_DEFAULTIMAGENAME);
  // Behind the image, so that nobody is told of a configuration alone.
  change_global(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME);
}

bool Planner::change_files(const Record& record, const std::string& what, const Entry& entry) {
  bool is_stale = false;
  const bool has_type = record.row.index() == LUMENHARBOUR_TABLE_CUSTOMGRP;
  for (const auto& [cmd, value] : entry.values) {
    const bool differs = change(record.row, what, cmd, value_of(record, cmd), value);
    is_stale = is_stale || (differs && !(has_type && cmd == LUMENHARBOUR_CUSTOMGRP_TYPE));
  }
  return is_stale;
}

void Planner::change_status(const Record& record, const std::string& what, const Entry& entry, bool is_stale) {
  const uint32 before = integer_of(record, STATUS);
  const bool is_active = before == LUMENHARBOUR_ROW_ACTIVE;
  const bool is_wanted = is_to_be_active(entry, before);
  const uint32 status = is_wanted ? LUMENHARBOUR_ROW_ACTIVE : LUMENHARBOUR_ROW_INACTIVE;
  if (is_active != is_wanted) change(record.row, what, STATUS, value_of(record, STATUS), status);
  // The imagelist file is written by an activation alone.
  else if (is_active && is_stale)
    changes_.back().sets.push_back({record.row, STATUS, status});
}

void Planner::add_row(const Row& row, const std::string& what, const Entry& entry) {
  Change added = {ADD, with_id(row, what), "", {}, {}, {{row, STATUS, uint32{LUMENHARBOUR_ROW_CREATE}}}};
  if (!entry.name.empty()) added.sets.push_back({row, LUMENHARBOUR_CUSTOMGRP_NAME, entry.name});
  const bool has_name = row.index() == LUMENHARBOUR_TABLE_CUSTOMGRP;
  // All of them, since a record goes on with the values of the row that had it before.
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(static_cast<tLumenHarbourTable>(row.index()))) {
    if (attr->cmd == STATUS || (has_name && attr->cmd == LUMENHARBOUR_CUSTOMGRP_NAME)) continue;
    const auto given = entry.values.find(attr->cmd);
    const Value none = lumenharbour_value_is_integer(attr->value) ? Value(uint32{0}) : Value(std::string());
    added.sets.push_back({row, attr->cmd, given == entry.values.end() ? none : given->second});
  }
  if (is_to_be_active(entry, 0)) added.sets.push_back({row, STATUS, uint32{LUMENHARBOUR_ROW_ACTIVE}});
  changes_.push_back(std::move(added));
  rows_[row.index()]++;
}

void Planner::delete_unlisted(const Row& row, const std::string& what) {
  if (call_.args.prune) {
    delete_row(row, what);
    rows_[row.index()]--;
  } else {
    unlisted_[row.index()]++;
  }
}

// ---- Groups ----

const Record* Planner::find_group(const Entry& entry) {
  const Record* group = nullptr;
  if (const auto named = by_name_.find(entry.name); !entry.key && named != by_name_.end()) group = named->second;
  if (const auto numbered = entry.key ? by_id_.find(*entry.key) : by_id_.end(); numbered != by_id_.end())
    group = numbered->second;
  if (group == nullptr) return nullptr;
  const auto [other, is_new] = listed_.emplace(id_of(*group), entry.line);
  if (!is_new)
    throw wanted_.failure(entry.line, describe(group->row) + " is the group of line " + std::to_string(other->second),
                          "expected one entry for it");
  return group;
}

const std::vector<std::string>& Planner::members_of(uint32 id) const {
  static const std::vector<std::string> none;
  const auto members = now_.members.find(id);
  return members == now_.members.end() ? none : members->second;
}

void Planner::change_members(uint32 id, const std::string& what, const Entry& entry,
                             const std::vector<std::string>& now) {
  if (!entry.members) return;
  const std::set<std::string> there(now.begin(), now.end());
  std::set<std::string> listed;
  for (const Member& member : *entry.members) {
    listed.insert(member.text);
    if (there.contains(member.text)) continue;
    const Row row = member_of(id, member.text);
    changes_.push_back(
        {ADD, member_name(member.text, what), "", {}, {}, {{row, STATUS, uint32{LUMENHARBOUR_ROW_CREATE}}}});
    rows_[row.index()]++;
  }
  for (const std::string& member : now)
    if (!listed.contains(member)) delete_unlisted(member_of(id, member), member_name(member, what));
}

void Planner::change_group(const Record& group, const Entry& entry) {
  const std::string what = name_of(group.row, octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME));
  const uint32 before = integer_of(group, LUMENHARBOUR_CUSTOMGRP_TYPE);
  const auto given = entry.values.find(LUMENHARBOUR_CUSTOMGRP_TYPE);
  const uint32 after = given == entry.values.end() ? before : std::get<uint32>(given->second);
  check_members(wanted_, entry, after);
  std::vector<std::string> members = members_of(id_of(group));
  if (before != after) {
    // They can be deleted only while the group has their type, and would be read as members of the new one.
    for (const std::string& member : members) {
      const Row row = member_of(id_of(group), member);
      delete_row(row, member_name(member, what));
      rows_[row.index()]--;
    }
    members.clear();
  }
  change_status(group, what, entry, change_files(group, what, entry));
  change_members(id_of(group), what, entry, members);
}

void Planner::add_group(uint32 id, const Entry& entry) {
  const std::string what = name_of(GroupRow{id}, entry.name);
  if (!entry.values.contains(LUMENHARBOUR_CUSTOMGRP_TYPE))
    throw wanted_.failure(entry.line, what + " is not there yet and has no type", "expected a type, mac or pid");
  try {
    if (!entry.key) check_group_name(entry.name);
  } catch (const Failure& failure) {
    throw wanted_.failure(entry.line, failure.message, failure.advice);
  }
  const uint32 max = integer_of(now_.global, LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM);
  if (entry.key && max > 0 && id >= max)
    throw wanted_.failure(entry.line, "id is " + quote(std::to_string(id)),
                          "expected a number below group-max, which is " + std::to_string(max));
  add_row(GroupRow{id}, what, entry);
  change_members(id, what, entry, {});
}

Place Planner::place_of(const Record* group, const Entry& entry) const {
  Place place = {group, name_of(GroupRow{entry.key.value_or(0)}, entry.name), is_to_be_active(entry, 0), {}};
  const auto type = entry.values.find(LUMENHARBOUR_CUSTOMGRP_TYPE);
  if (group != nullptr) {
    place.title = name_of(group->row, octets_of(*group, LUMENHARBOUR_CUSTOMGRP_NAME));
    const uint32 status = integer_of(*group, STATUS);
    place.is_woken = is_to_be_active(entry, status) && status != LUMENHARBOUR_ROW_ACTIVE;
    const bool is_kept = type == entry.values.end() || type->second == value_of(*group, LUMENHARBOUR_CUSTOMGRP_TYPE);
    if (is_kept && (!entry.members || !call_.args.prune)) place.members = members_of(id_of(*group));
  }
  const std::set<std::string> kept(place.members.begin(), place.members.end());
  if (entry.members)
    for (const Member& member : *entry.members)
      if (!kept.contains(member.text)) place.members.push_back(member.text);
  return place;
}

/// Makes a group anew as it is to be, under the id that it has, right behind its other changes.
void Planner::move_group(const Entry& entry, const Place& place, const Move& move) {
  const Row& row = place.group->row;
  const std::string& name = octets_of(*place.group, LUMENHARBOUR_CUSTOMGRP_NAME);
  Change moved = {CHANGE, place.title, "order", move.before, move.after, {}};
  moved.sets.push_back({row, STATUS, uint32{LUMENHARBOUR_ROW_DESTROY}});
  moved.sets.push_back({row, STATUS, uint32{LUMENHARBOUR_ROW_CREATE}});
  if (!name.empty()) moved.sets.push_back({row, LUMENHARBOUR_CUSTOMGRP_NAME, name});
  for (const Field& field : GROUP_FIELDS) {
    const auto given = entry.values.find(field.cmd);
    moved.sets.push_back(
        {row, field.cmd, given == entry.values.end() ? value_of(*place.group, field.cmd) : given->second});
  }
  if (is_to_be_active(entry, integer_of(*place.group, STATUS)))
    moved.sets.push_back({row, STATUS, uint32{LUMENHARBOUR_ROW_ACTIVE}});
  // Behind the activation: whom it serves is told of its imagelist at once.
  for (const std::string& member : place.members)
    moved.sets.push_back({member_of(id_of(*place.group), member), STATUS, uint32{LUMENHARBOUR_ROW_CREATE}});
  changes_.push_back(std::move(moved));
}

void Planner::plan_groups() {
  rows_[LUMENHARBOUR_TABLE_CUSTOMGRP] = now_.groups.size();
  for (const auto& [id, members] : now_.members)
    for (const std::string& member : members) rows_[member_of(id, member).index()]++;
  if (!wanted_.groups) return;
  for (const Record& group : now_.groups) {
    by_id_[id_of(group)] = &group;
    const std::string& name = octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME);
    if (!name.empty()) by_name_[name] = &group;
  }
  std::vector<const Record*> found;
  std::set<uint32> taken;
  for (const Entry& entry : *wanted_.groups) {
    found.push_back(find_group(entry));
    if (entry.key) taken.insert(*entry.key);
  }
  for (const Record& group : now_.groups) {
    if (!call_.args.prune || listed_.contains(id_of(group))) taken.insert(id_of(group));
    if (listed_.contains(id_of(group))) continue;
    delete_unlisted(group.row, with_id(group.row, name_of(group.row, octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME))));
    if (!call_.args.prune) continue;
    for (const std::string& member : members_of(id_of(group))) rows_[member_of(id_of(group), member).index()]--;
  }
  std::vector<Place> places;
  for (const Entry& entry : *wanted_.groups) places.push_back(place_of(found[places.size()], entry));
  Rule rule(call_, now_);
  const std::vector<std::optional<Move>> moves = moves_of(&rule, places, &doubts_);
  uint32 free_id = 0;
  std::size_t at = 0;
  for (const Entry& entry : *wanted_.groups) {
    const std::size_t i = at++;
    if (found[i] != nullptr) {
      change_group(*found[i], entry);
      if (moves[i]) move_group(entry, places[i], *moves[i]);
      continue;
    }
    while (!entry.key && taken.contains(free_id)) free_id++;
    add_group(entry.key ? *entry.key : free_id++, entry);
  }
}

void Planner::plan_builtins() {
  rows_[LUMENHARBOUR_TABLE_BUILTINGRP] = now_.builtins.size();
  if (!wanted_.builtins) return;
  std::map<uint32, const Record*> by_pid;
  for (const Record& builtin : now_.builtins) by_pid[std::get<BuiltinRow>(builtin.row).pid] = &builtin;
  std::set<uint32> listed;
  for (const Entry& entry : *wanted_.builtins) {
    listed.insert(*entry.key);
    const Row row = BuiltinRow{*entry.key};
    if (const auto found = by_pid.find(*entry.key); found == by_pid.end()) {
      add_row(row, describe(row), entry);
    } else {
      change_status(*found->second, describe(row), entry, change_files(*found->second, describe(row), entry));
    }
  }
  for (const auto& [pid, builtin] : by_pid)
    if (!listed.contains(pid)) delete_unlisted(builtin->row, describe(builtin->row));
}

void Planner::check_pools() const {
  struct Pool {
    std::size_t wanted;
    uint32 cmd;
    const char* rows;
  };
  const Pool pools[] = {{rows_[LUMENHARBOUR_TABLE_CUSTOMGRP], LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM, "groups"},
                        {rows_[LUMENHARBOUR_TABLE_CUSTOMGRPMAC] + rows_[LUMENHARBOUR_TABLE_CUSTOMGRPPID],
                         LUMENHARBOUR_GLB_GRPIDMAXNUM, "members"},
                        {rows_[LUMENHARBOUR_TABLE_BUILTINGRP], LUMENHARBOUR_GLB_BUILTINGRPMAXNUM, "built-in groups"}};
  for (const auto& [wanted, cmd, rows] : pools) {
    const uint32 size = integer_of(now_.global, cmd);
    // No size yet: a daemon that was started without one takes its own when it becomes the director.
    if (size == 0 || wanted <= size) continue;
    throw Failure{
        EXIT_REFUSED,
        "cannot apply " + wanted_.file + ": that makes " + std::to_string(wanted) + ' ' + rows + ", and " +
            std::string(attr_of(GlobalRow{}, cmd).name) + " is " + std::to_string(size),
        "list fewer, delete others with --prune, or save the state and start lumenharbourd with larger pools"};
  }
}

void Planner::note_unlisted() const {
  for (const std::string& doubt : doubts_) note(doubt);
  Loss loss;  // with --prune
  loss.groups = unlisted_[LUMENHARBOUR_TABLE_CUSTOMGRP];
  loss.members = unlisted_[LUMENHARBOUR_TABLE_CUSTOMGRPMAC] + unlisted_[LUMENHARBOUR_TABLE_CUSTOMGRPPID];
  loss.builtins = unlisted_[LUMENHARBOUR_TABLE_BUILTINGRP];
  const bool is_one = loss.groups + loss.members + loss.builtins == 1;
  if (const std::string text = loss.text(); !text.empty())
    note(text + (is_one ? " is" : " are") + " not in the file; --prune deletes " + (is_one ? "it" : "them"));
}

/// @return true when a change sets a director's address.
bool sets_address(const std::vector<Change>& changes) {
  return std::any_of(changes.begin(), changes.end(),
                     [](const Change& change) { return change.sets.back().cmd == LUMENHARBOUR_GLB_DIRECTORIP; });
}

/// Makes the changes that are about the role, and with them the director of a switch that has the file's address.
///
/// @param[in] becomes  the switch is not the director, and the file wants it to be
void make_role(const Call& call, const Document& wanted, const std::vector<Change>& role, bool becomes, Maker* maker) {
  const std::string former = role_of(call);
  maker->make(role);
  const bool is_address_new = sets_address(role);
  if (!call.args.dry_run && (becomes || is_address_new)) {
    const std::string& address = std::get<std::string>(wanted.globals.at(LUMENHARBOUR_GLB_DIRECTORIP));
    const bool is_own = take_address(call, address);
    if (!is_own && wanted.needs_director())
      throw Failure{EXIT_REFUSED, "cannot apply " + wanted.file + ": " + foreign(address),
                    "give this switch the address, or correct the file", ERR_AUTOCFG_IPMISMATCH};
    if (!is_own) note(foreign(address));
  }
  if (becomes && !is_address_new) maker->make({{CHANGE, "", "role", former, "director", {}}});
}

/// Asks before the changes take the role from a director that has something to lose, and tells it.
void guard_role(const Call& call, const Document& wanted, const std::vector<Change>& role, Maker* maker) {
  const auto state = wanted.globals.find(LUMENHARBOUR_GLB_STATE);
  std::string reason;
  if (sets_address(role))
    reason = danger_of(call, std::get<std::string>(wanted.globals.at(LUMENHARBOUR_GLB_DIRECTORIP)));
  if (state != wanted.globals.end() && state->second != Value(uint32{LUMENHARBOUR_ON})) reason = "it stops the service";
  const Loss loss = reason.empty() ? Loss() : loss_of(call);
  if (loss.text().empty()) return;
  if (!call.args.dry_run) ask_for_loss(call, "apply " + wanted.file, reason, loss);
  maker->lose(loss);
}

/// Makes all changes that `wanted` asks for.
void make_document(const Call& call, const Document& wanted, Maker* maker) {
  const std::string attempt = "apply " + wanted.file;
  std::optional<Lock> lock;  // another run would add a member a second time
  if (!call.args.dry_run) lock.emplace(call, attempt);
  State now = read_state(call);
  Planner first(call, wanted, now, false);
  first.plan_role();
  const std::vector<Change> role = first.changes();
  const bool was_director = now.is_director();
  const bool becomes = !was_director && wanted.needs_director() && wanted.globals.contains(LUMENHARBOUR_GLB_DIRECTORIP);
  const bool is_assumed = call.args.dry_run && becomes;

  // A director's changes are all planned before the first is made; another switch must become one to be planned for.
  if (becomes && !is_assumed && wanted.builtins && !wanted.builtins->empty()) guard_builtins(call, attempt);
  if (!was_director) make_role(call, wanted, role, becomes, maker);
  if (!was_director && !call.args.dry_run && (becomes || !role.empty())) now = read_state(call);
  if (wanted.needs_director() && !is_assumed) require_director(call, attempt);
  maker->know(now);
  Planner rest(call, wanted, now, is_assumed);
  rest.plan_vlans();
  rest.plan_groups();
  rest.plan_builtins();
  // Last: a switch that asks a director before it has its groups is better told nothing than the default image.
  rest.plan_defaults();
  rest.plan_stop();
  rest.check_pools();
  const std::vector<Change> changes = rest.changes();
  const bool adds_builtin = std::any_of(changes.begin(), changes.end(), [](const Change& change) {
    return std::string_view(change.op.name) == ADD.name && std::holds_alternative<BuiltinRow>(change.sets.front().row);
  });
  if (adds_builtin && was_director && !call.args.dry_run) guard_builtins(call, attempt);
  if (was_director) guard_role(call, wanted, role, maker);
  if (was_director && !role.empty()) {
    make_role(call, wanted, role, becomes, maker);
    // Another address may have ended the role, and a client takes a director's attributes without effect.
    if (wanted.needs_director()) require_director(call, attempt);
  }
  maker->make(changes);
  rest.note_unlisted();
}

/// Puts back what was there before, as soon as the daemon has time for it. @return how many changes that took
std::size_t put_back(const Call& call, const Document& former) {
  Call quiet = call;
  quiet.args.prune = quiet.args.force = true;
  for (int tries = 60;; tries--) {
    try {
      Maker maker(quiet, true);
      make_document(quiet, former, &maker);
      return maker.count();
    } catch (Failure& failure) {
      const bool is_away = failure.exit == EXIT_TIMED_OUT || failure.exit == EXIT_UNREACHABLE;
      failure.message.insert(0, "THE FORMER STATE IS NOT BACK: ");
      if (!is_away || tries == 0) throw;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}

/// Applies a document, and puts the former state back unless somebody confirms it.
void apply_on_trial(const Call& call, const Document& wanted) {
  const double seconds = seconds_of(call.args.confirm, "time to confirm in");
  Document former = parse_document(state_text(call), "the former state");
  former.make_whole();
  Confirmation confirmation(call.args.socket);
  std::size_t changes = 0;
  try {
    changes = apply_document(call, wanted);
    flush_output();
  } catch (Failure& failure) {
    if (put_back(call, former) > 0) failure.message += "; the former state is back";
    throw;
  }
  if (changes == 0) return;
  note("the former state comes back in " + call.args.confirm + " s, unless 'lumenharbourctl confirm' is run before");
  const Confirmation::End end = confirmation.wait(seconds);
  if (end == Confirmation::End::confirmed) return call.args.is_json() ? print_done(call.args) : print_line("confirmed");
  put_back(call, former);
  if (end == Confirmation::End::interrupted)
    throw Failure{EXIT_REFUSED, "interrupted before it was confirmed: the former state is back", ""};
  throw Failure{EXIT_TIMED_OUT, "not confirmed within " + call.args.confirm + " s: the former state is back", ""};
}

}  // namespace

void refuse_read_only(const Call& call, const std::string& file) {
  if (call.args.read_only && !call.args.dry_run)
    throw Failure{EXIT_REFUSED, "cannot apply " + file + ": --read-only refuses changes", "--dry-run prints them"};
}

std::size_t apply_document(const Call& call, const Document& wanted) {
  Maker maker(call);
  try {
    make_document(call, wanted, &maker);
  } catch (const Failure&) {
    maker.break_off();
    throw;
  }
  maker.finish();
  return maker.count();
}

void apply(const Call& call) {
  refuse_read_only(call, call.args.file);
  const Document wanted = read_document(call.args.file);
  if (call.args.confirm.empty() || call.args.dry_run)
    apply_document(call, wanted);
  else
    apply_on_trial(call, wanted);
}

}  // namespace lumenharbour::ctl
