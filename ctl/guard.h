#pragma once

/// @file
/// Stands before what loses a director's state, and before what ends the daemon.

#include "report.h"

namespace lumenharbour::ctl {

/// What a director forgets when it leaves its role.
struct Loss {
  std::size_t groups = 0;
  std::size_t members = 0;
  std::size_t builtins = 0;
  std::size_t clients = 0;
  bool has_defaults = false;

  /// @return it in words, such as "2 groups, 1 member and the defaults"; empty for nothing.
  std::string text() const;

  /// @return it as an object.
  Json json() const;
};

/// @return what is lost when the daemon leaves the director role; nothing where it is not in it.
/// @throws Failure when the daemon does not answer as it should
Loss loss_of(const Call& call);

/// @return why an address would take the director role from the switch that has it, as a clause; empty for one that is
/// known to be the switch's own
std::string danger_of(const Call& call, const std::string& address);

/// Asks whether to go on: a person on a terminal; a script must have said so with `Arguments::force`.
///
/// @param[in] attempt  what is tried, as it stands behind "cannot"
/// @param[in] danger   what happens then, as a clause
/// @param[in] advice   what else can be done about it; may be empty
/// @throws Failure when it is not to go on
void ask(const Call& call, const std::string& attempt, const std::string& danger, const std::string& advice);

/// Asks before a director's state is lost.
///
/// @param[in] attempt  what is tried, as it stands behind "cannot"
/// @param[in] reason   why it loses something, as a clause
/// @throws Failure when it is not to go on
void ask_for_loss(const Call& call, const std::string& attempt, const std::string& reason, const Loss& loss);

/// Asks before a global attribute is set to a value that loses something, or ends the daemon.
///
/// @param[in] attempt  what is tried, as it stands behind "cannot"
/// @throws Failure when it is not to go on
void guard_set(const Call& call, const tLumenHarbourAttr& attr, const Value& value, const std::string& attempt);

/// Asks, where debug is on, before a director gets a built-in group.
///
/// @param[in] attempt  what is tried, as it stands behind "cannot"
/// @throws Failure when it is not to go on
void guard_builtins(const Call& call, const std::string& attempt);

}  // namespace lumenharbour::ctl
