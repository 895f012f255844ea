#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <set>
#include <thread>
#include <tuple>

#include "command_line.h"
#include "commands.h"
#include "figures.h"
#include "role.h"
#include "rule.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

using Seconds = std::chrono::duration<double>;
using Clock = std::chrono::steady_clock;

Seconds interval_of(const Call& call, double unset) {
  return Seconds(call.args.interval.empty() ? unset : seconds_of(call.args.interval, "interval"));
}

// ---- What is watched ----

/// A row by its table and key, or a member by its group and what it is.
struct Place {
  tLumenHarbourTable table;
  uint32 key;
  std::string member;
  bool operator<(const Place& other) const {
    return std::tie(table, key, member) < std::tie(other.table, other.key, other.member);
  }
};
using Snapshot = std::map<Place, Json>;

/// Which rows are watched.
struct Scope {
  bool is_everything = true;
  tLumenHarbourTable table = LUMENHARBOUR_TABLE_GLOBAL;  ///< the one table, unless everything is watched
  std::optional<uint32> key;                             ///< the one row
  bool is_vlans = false;                                 ///< of the global row, what VLANs it is about

  bool has(tLumenHarbourTable other) const { return is_everything || table == other; }
};

uint32 key_of(const Row& row) {
  if (const auto* const group = std::get_if<GroupRow>(&row)) return group->id;
  if (const auto* const builtin = std::get_if<BuiltinRow>(&row)) return builtin->pid;
  if (const auto* const client = std::get_if<ClientRow>(&row)) return client->index;
  return 0;
}

/// @return what the words behind 'watch' name.
Scope scope_of(const Call& call) {
  if (call.args.words.empty()) return {};
  Arguments defaults = call.args;
  defaults.words.clear();
  const CommandLine line = parse(call.commands, call.args.words, defaults);
  const Command* const command = line.command;
  if (command == nullptr || !command->path.starts_with("show"))
    throw Failure{EXIT_USAGE, "only what 'show' shows can be watched", "see 'lumenharbourctl show --help'"};
  if (command->run == show) return {};
  Scope scope{false, command->table, std::nullopt, command->run == show_vlans};
  if (!line.args.row.empty()) scope.key = key_of(row_of({call.daemon, line.args, *command, call.commands}));
  return scope;
}

/// @return the global attributes without those that say the same as others.
Json globals_of(const Call& call, bool is_vlans) {
  Json object;
  if (!is_vlans) object["role"] = role_of(call);
  const Json globals = json_of(read_record(call, GlobalRow{}));
  for (const auto& [name, value] : globals.items()) {
    const bool is_repeated = name == "group-free-id" || name == "management-vlans-remove" || name == "director-state";
    if (!is_repeated && (!is_vlans || name.find("vlan") != std::string::npos)) object[name] = value;
  }
  return object;
}

template <typename R>
void add_table(const Call& call, const Scope& scope, Snapshot* snapshot) {
  constexpr auto table = static_cast<tLumenHarbourTable>(Row(R{}).index());
  if (!scope.has(table)) return;
  for (const Record& record : read_table<R>(call)) {
    const uint32 key = key_of(record.row);
    if (!scope.key || *scope.key == key) (*snapshot)[{table, key, ""}] = json_of(record);
  }
}

Snapshot take_snapshot(const Call& call, const Scope& scope) {
  Snapshot snapshot;
  if (scope.has(LUMENHARBOUR_TABLE_GLOBAL))
    snapshot[{LUMENHARBOUR_TABLE_GLOBAL, 0, ""}] = globals_of(call, scope.is_vlans);
  add_table<GroupRow>(call, scope, &snapshot);
  add_table<BuiltinRow>(call, scope, &snapshot);
  add_table<ClientRow>(call, scope, &snapshot);
  if (!scope.has(LUMENHARBOUR_TABLE_CUSTOMGRP)) return snapshot;
  const auto add_member = [&](uint32 id, const Json& member) {
    if (!scope.key || *scope.key == id) snapshot[{LUMENHARBOUR_TABLE_CUSTOMGRP, id, text_of(member)}] = member;
  };
  for (const MacMemberRow& member : walk<MacMemberRow>(call)) add_member(member.group_id, format_mac(member.mac));
  for (const PidMemberRow& member : walk<PidMemberRow>(call)) add_member(member.group_id, member.pid);
  return snapshot;
}

// ---- What has changed ----

/// @return the time of day as RFC 3339 has it.
std::string time_text() {
  char time[32];
  const std::time_t now = std::time(nullptr);
  std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%S%z", std::localtime(&now));
  std::string text = time;
  return text.insert(text.size() - 2, ":");
}

/// Thrown when as many changes are printed as were wanted.
struct Enough {};

/// Prints changes as they are found.
class Printer {
 public:
  Printer(const Arguments& args, uint32 limit) : args_(args), left_(limit) {}

  /// Tells that the daemon went away or is back. @param[in] why  null for no reason
  void print_daemon(const char* event, const Json& why = nullptr) {
    print(event, {"daemon", "daemon", nullptr, nullptr}, nullptr, nullptr, why);
  }

  void compare(const Snapshot& before, const Snapshot& after) {
    auto old_row = before.begin();
    for (const auto& [place, row] : after) {
      for (; old_row != before.end() && old_row->first < place; ++old_row) print_row("deleted", before, *old_row);
      if (old_row == before.end() || place < old_row->first) {
        print_row("added", after, {place, row});
        continue;
      }
      if (old_row->second != row)
        for (const auto& [name, value] : row.items())
          if (const Json& old = old_row->second.at(name); old != value)
            print("changed", subject_of(before, place), name, old, value);
      ++old_row;
    }
    for (; old_row != before.end(); ++old_row) print_row("deleted", before, *old_row);
  }

 private:
  /// What changed.
  struct Subject {
    const char* kind;   ///< in JSON
    const char* words;  ///< for a person
    Json key;           ///< null for none
    Json name;          ///< what people call it, null for none
  };

  /// @param[in] snapshot  has the row
  static Subject subject_of(const Snapshot& snapshot, const Place& place) {
    const Table& table = TABLES[place.table];
    if (place.table == LUMENHARBOUR_TABLE_GLOBAL) return {table.name, table.name, nullptr, nullptr};
    Subject subject = {table.name, table.row, place.key, nullptr};
    const auto row = snapshot.find({place.table, place.key, ""});
    if (row == snapshot.end()) return subject;  // it came or went between two walks
    for (const char* const field : {"name", "mac"})
      if (const std::string name = row->second.value(field, ""); !name.empty()) subject.name = name;
    return subject;
  }

  void print_row(const char* event, const Snapshot& snapshot, const Snapshot::value_type& row) {
    const bool is_new = std::string_view(event) == "added";
    const Json attribute = row.first.member.empty() ? Json() : Json("member");
    print(event, subject_of(snapshot, row.first), attribute, is_new ? Json() : row.second,
          is_new ? row.second : Json());
  }

  void print(const char* event, const Subject& subject, const Json& attribute, const Json& before, const Json& after) {
    const Json line = {{"time", time_text()},  {"event", event},         {"what", subject.kind}, {"key", subject.key},
                       {"name", subject.name}, {"attribute", attribute}, {"old", before},        {"new", after}};
    print_line(args_.is_json() ? dump(line) : plain(subject, line));
    flush_output();
    if (left_ > 0 && --left_ == 0) throw Enough();
  }

  static std::string plain(const Subject& subject, const Json& line) {
    std::string text = text_of(line["time"]) + ' ' + subject.words;
    for (const char* const part : {subject.name.is_null() ? "key" : "name", "attribute", "event"})
      if (!line[part].is_null()) text += ' ' + text_of(line[part]);
    const Json& after = line["new"];
    if (line["event"] == "changed") {
      const std::string name = line["attribute"];
      return text + ": " + text_of(name, line["old"]) + " -> " + text_of(name, after);
    }
    const Json& row = after.is_null() ? line["old"] : after;
    if (!row.is_object()) return row.is_null() ? text : text + ": " + text_of(row);
    const char* separator = ": ";
    for (const auto& [name, value] : row.items()) {
      text += separator + name + ' ' + text_of(name, value);
      separator = ", ";
    }
    return text;
  }

  const Arguments& args_;
  uint32 left_;  ///< changes still to print; 0: no limit
};

/// Rests between two looks, and no longer than the command may take.
void pause(const Call& call, Seconds interval) {
  const std::optional<Clock::time_point> end = call.daemon.connection().deadline;
  if (end) interval = std::min<Seconds>(interval, std::max<Seconds>(*end - Clock::now(), Seconds(0)));
  std::this_thread::sleep_for(interval);
}

/// Looks until there is something to compare with. A daemon that goes away is told once, and when it is back.
Snapshot look(const Call& call, const Scope& scope, Seconds interval, Printer* printer) {
  for (bool is_lost = false;; is_lost = true) {
    pause(call, interval);
    try {
      Snapshot snapshot = take_snapshot(call, scope);
      if (is_lost) printer->print_daemon("back");
      return snapshot;
    } catch (const Failure& failure) {
      check_deadline(call, "watch");
      if (!is_lost) printer->print_daemon("lost", failure.message);
    }
  }
}

/// Looks until there is a daemon to look at; one that is not there yet is told once, and when it is.
///
/// @param[out] scope  what the command line names, for which a daemon may have to be asked
Snapshot first_look(const Call& call, Seconds interval, Scope* scope, Printer* printer) {
  for (bool is_awaited = false;; is_awaited = true) {
    try {
      *scope = scope_of(call);
      Snapshot snapshot = take_snapshot(call, *scope);
      if (is_awaited) printer->print_daemon("back");
      return snapshot;
    } catch (const Failure& failure) {
      check_deadline(call, "watch");
      if (failure.exit != EXIT_UNREACHABLE && failure.exit != EXIT_TIMED_OUT) throw;
      if (!is_awaited) printer->print_daemon("lost", failure.message);
    }
    pause(call, interval);
  }
}

// ---- Conditions ----

constexpr std::string_view RELATIONS[] = {">=", "<=", "!=", "=", ">", "<"};

/// What must hold of a value that changes.
struct Condition {
  std::string text;
  std::string name;
  std::string_view relation;
  std::string wanted;  ///< as the value reads
};

const tLumenHarbourAttr* attribute_named(const std::string& name) {
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(LUMENHARBOUR_TABLE_GLOBAL))
    if (name == attr->name) return attr;
  return nullptr;
}

// What is about a client that the director has seen.
constexpr char CLIENT[] = "client";
constexpr char CLIENT_GROUP[] = "client-group";

/// @return the value of a condition about clients as it is compared; nothing for one that cannot be.
std::optional<std::string> client_value(const Condition& condition) {
  const std::optional<Mac> mac = parse_mac(condition.wanted);
  const bool is_comparable = condition.relation == "=" || condition.relation == "!=";
  if (!is_comparable || condition.wanted.empty() || (condition.name == CLIENT && !mac)) return std::nullopt;
  return condition.name == CLIENT ? format_mac(*mac) : condition.wanted;
}

Condition client_condition(Condition condition) {
  const std::optional<std::string> value = client_value(condition);
  if (!value)
    throw Failure{EXIT_USAGE, "bad value '" + condition.wanted + "' in condition '" + condition.text + '\'',
                  "expected = or !=, then " + std::string(condition.name == CLIENT ? "a MAC address" : "a group")};
  condition.wanted = *value;
  return condition;
}

/// @param[in] all  another of them may say which client it is about
/// @return what is wanted where a client has it, else what the clients have.
std::string found_by_client(const Call& call, const Condition& condition, const std::vector<Condition>& all) {
  const tLumenHarbourAttr& attr = *lumenharbour_attr_find(LUMENHARBOUR_TABLE_CLIENT, LUMENHARBOUR_CLIENT_MAC);
  const bool is_group = condition.name == CLIENT_GROUP;
  std::set<std::string> found;
  const std::vector<Record> clients = read_table<ClientRow>(call);
  const State state = is_group ? state_around(call, clients) : State{};
  Rule rule(call, state);
  for (const Record& client : clients) {
    const std::string mac = format_value(attr, value_of(client, attr.cmd));
    const bool is_meant = std::all_of(all.begin(), all.end(), [&mac](const Condition& other) {
      return other.name != CLIENT || other.relation != "=" || other.wanted == mac;
    });
    if (!is_group) found.insert(mac);
    if (!is_group || !is_meant) continue;
    const Choice choice = rule.choose(client);
    const bool is_by_id = choice.winner != nullptr && choice.winner != choice.builtin &&
                          std::get<GroupRow>(choice.winner->row).id == parse_number(condition.wanted);
    found.insert(is_by_id ? condition.wanted : server_of(choice));
  }
  if (found.contains(condition.wanted)) return condition.wanted;
  return found.empty() || !is_group ? "not there" : listed({found.begin(), found.end()});
}

Condition condition_of(const Arguments& args, const std::string& text) {
  const std::size_t at = text.find_first_of("<>=!");
  Condition condition{text, text.substr(0, at), "", ""};
  const std::string_view rest = std::string_view(text).substr(std::min(at, text.size()));
  for (const std::string_view relation : RELATIONS)
    if (condition.relation.empty() && rest.starts_with(relation)) condition.relation = relation;
  condition.wanted = rest.substr(condition.relation.size());
  if (condition.name == CLIENT || condition.name == CLIENT_GROUP) return client_condition(std::move(condition));
  const bool is_order = condition.relation.find_first_of("<>") != std::string_view::npos;
  const tLumenHarbourAttr* const attr = attribute_named(condition.name);
  const Figure* const figure = figure_named(condition.name);
  if (condition.relation.empty() || (attr == nullptr && figure == nullptr))
    throw Failure{EXIT_USAGE, quote(text) + " is no condition",
                  "expected role, client-count, group-count, builtin-count, member-count, client, client-group "
                  "or a global attribute, then one of = != < <= > >=, then a value"};
  const bool is_count = condition.name.ends_with("-count");
  const bool is_role = condition.wanted == "director" || condition.wanted == "client" || condition.wanted == "none";
  const bool is_good = attr != nullptr ? parse_value(*attr, condition.wanted).has_value()
                       : is_count      ? parse_number(condition.wanted).has_value()
                                       : is_role;
  if (!is_good || (is_order && !parse_number(condition.wanted)))
    throw Failure{EXIT_USAGE, "bad value " + quote(condition.wanted) + " in condition " + quote(text),
                  "expected " + (attr != nullptr ? expected_value(*attr) : figure->expected)};
  if (condition.name == "role" && args.read_only && condition.wanted != "director")
    throw Failure{EXIT_REFUSED, "what " + quote(text) + " waits for cannot be told with --read-only",
                  "director alone can be told from the other roles without setting anything"};
  if (attr != nullptr) condition.wanted = format_value(*attr, *parse_value(*attr, condition.wanted));
  return condition;
}

bool holds(const Condition& condition, const std::string& found) {
  if (condition.relation == "=") return found == condition.wanted;
  if (condition.relation == "!=") return found != condition.wanted;
  const std::optional<uint32> number = parse_number(found);
  const uint32 wanted = *parse_number(condition.wanted);
  if (!number) return false;
  if (condition.relation == ">") return *number > wanted;
  if (condition.relation == "<") return *number < wanted;
  return condition.relation == ">=" ? *number >= wanted : *number <= wanted;
}

/// @param[in] all  the conditions of the command
/// @return what the condition finds at present, in words.
std::string found_by(const Call& call, const Condition& condition, const std::vector<Condition>& all) {
  if (condition.name == CLIENT || condition.name == CLIENT_GROUP) return found_by_client(call, condition, all);
  if (const Figure* const figure = figure_named(condition.name)) return text_of(figure->now(call));
  const tLumenHarbourAttr& attr = *attribute_named(condition.name);
  Query query{GlobalRow{}, attr.cmd, attr.value < LUMENHARBOUR_VALUE_TEXT};
  call.daemon.get_all({&query, 1});
  check(call, query.reply, "look at " + condition.name);
  return format_value(attr, query.reply.value);
}

/// @return why the conditions do not hold; empty when they do.
std::string missing(const Call& call, const std::vector<Condition>& conditions) {
  try {
    for (const Condition& condition : conditions)
      if (const std::string found = found_by(call, condition, conditions); !holds(condition, found))
        return condition.name + " is " + found + ", expected " + condition.text;
    return "";
  } catch (const Failure& failure) {
    return failure.message;  // a daemon that is to come may be what is waited for
  }
}

}  // namespace

void watch(const Call& call) {
  const Seconds interval = interval_of(call, 1);
  Printer printer(call.args, call.args.limit.empty() ? 0 : number_of(call.args.limit, "number of changes"));
  try {
    Scope scope;
    Snapshot before = first_look(call, interval, &scope, &printer);
    for (;;) {
      Snapshot after = look(call, scope, interval, &printer);
      printer.compare(before, after);
      before = std::move(after);
    }
  } catch (const Enough&) {
    return;
  }
}

void wait(const Call& call) {
  std::vector<Condition> conditions;
  for (const std::string& text : call.args.condition) conditions.push_back(condition_of(call.args, text));
  const Seconds interval = interval_of(call, 0.2);
  const bool is_endless = call.args.timeout.empty();
  const Seconds patience(is_endless ? 0 : seconds_of(call.args.timeout, "time-out"));
  const auto start = Clock::now();
  for (std::string why;;) {
    const std::string now = missing(call, conditions);
    if (now.empty()) return print_done(call.args);
    const bool is_over = call.daemon.connection().is_over();
    if (why.empty() || !is_over) why = now;  // what was found before says more than that time was over
    if (is_over)
      throw Failure{EXIT_TIMED_OUT, "gave up after " + call.args.deadline + " s: " + why,
                    "give it longer with --deadline"};
    if (!is_endless && Clock::now() - start >= patience)
      throw Failure{EXIT_TIMED_OUT, "gave up after " + call.args.timeout + " s: " + why, ""};
    pause(call, is_endless ? interval : std::min<Seconds>(interval, patience - (Clock::now() - start)));
  }
}

}  // namespace lumenharbour::ctl
