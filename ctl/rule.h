#pragma once

/// @file
/// Which group serves a client: the director's own rule, worked out from its tables.
///
/// MAC groups that list the client come first, then product-id groups, then the built-in group of its product id, then
/// the defaults; a group's status does not matter. Of two groups of one type the one that was created last serves it.
/// No attribute tells that order, and ids do not either. But what a director answers does: so where it matters, and
/// nowhere else, the director is asked as a DHCP server asks it, about a client that it knows, which changes nothing,
/// or about one that it forgets again at once. Should that one come to the director in this very moment, it is told
/// what is right, and is not among the clients until it renews its lease.

#include <map>
#include <set>

#include "document.h"

namespace lumenharbour::ctl {

/// A member that several groups of one type list.
struct Overlap {
  std::string member;                 ///< as `State::members` has it
  std::vector<const Record*> groups;  ///< by id
  const Record* winner = nullptr;     ///< the one that serves it; null when that is not known
  std::vector<const Record*> maybe;   ///< where it is not known: those that may serve it, by id
  std::string why;                    ///< why that is not known
  bool is_asked = false;              ///< the director was asked
};

/// What becomes of a client.
struct Choice {
  std::vector<const Record*> macs;   ///< MAC groups that list it, by id
  std::vector<const Record*> pids;   ///< product-id groups that list it, by id
  const Record* builtin = nullptr;   ///< the built-in group of its product id
  const Overlap* overlap = nullptr;  ///< what decides between several groups of one type
  const Record* winner = nullptr;    ///< null for the defaults, and where `overlap` has none

  /// @return the groups one of which serves it, when that is all that is known; else the one, or none for the defaults.
  std::vector<const Record*> candidates() const;
};

/// The rule, on the tables of one moment.
class Rule {
 public:
  /// @param[in] call   says where to ask; with `Arguments::read_only` nothing is asked
  /// @param[in] state  must outlive the rule and what it hands out
  Rule(const Call& call, const State& state);

  /// @param[in] pid  nothing: it is not known, and neither product-id nor built-in groups are looked at
  Choice choose(const Mac& mac, std::optional<uint32> pid);

  /// @return what becomes of a client that the director has seen.
  Choice choose(const Record& client);

  /// @return every member that several groups of one type list.
  const std::vector<Overlap>& overlaps();

  /// @return true when `one` was created before `other`, false when after it; nothing when that is not known.
  std::optional<bool> is_older(const Record* one, const Record* other);

  /// @return the groups in the order in which they were created, as far as that matters and is known; else by id.
  std::vector<const Record*> by_age();

  /// @return what holds of an overlap, as a sentence.
  std::string describe(const Overlap& overlap);

  /// @return true when it is not known in which order the groups of an overlap serve its member.
  bool is_doubtful(const Overlap& overlap);

 private:
  void ask(Overlap* overlap);
  std::optional<tLumenHarbourClientInfo> witness_for(const Overlap& overlap, bool* is_known);
  std::vector<const Record*> losers_in_doubt(const Overlap& overlap);
  const std::vector<Record>& clients();

  const Call& call_;
  const State& state_;
  std::vector<Overlap> overlaps_;
  std::map<std::string, std::size_t> by_member_;  // place in `overlaps_`
  std::map<std::string, std::vector<const Record*>> listing_;
  std::map<const Record*, std::set<const Record*>> younger_;  // who is known to be created after a group
  bool is_all_asked_ = false;
  std::optional<std::vector<Record>> clients_;
};

/// @return the tables as far as they say who serves these clients: of the groups those alone that may. A director may
/// have
///         many groups and few clients.
State state_around(const Call& call, const std::vector<Record>& clients);

/// @return a custom group's name, or its id where it has none, as a command takes it.
std::string label_of(const Record& group);
std::vector<std::string> labels_of(const std::vector<const Record*>& groups);

/// @return "group NAME" or "built-in group PID".
std::string title_of(const Record& group);

/// @return what serves a client in a word or two: a group's name, "builtin PID", "defaults", "NAME or NAME".
std::string server_of(const Choice& choice);

/// @return "custom", "builtin" or "defaults".
const char* kind_of(const Choice& choice);

/// @return words as a sentence lists them, such as "a, b and c".
std::string listed(const std::vector<std::string>& words, const char* last = " and ");

}  // namespace lumenharbour::ctl
