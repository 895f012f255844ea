#pragma once

/// @file
/// What each command does that is about the daemon.

#include "command.h"

namespace lumenharbour::ctl {

void get(const Call& call);              ///< prints one attribute of a row, or all of them
void set(const Call& call);              ///< sets an attribute of a row, or gives it another status
void list_attributes(const Call& call);  ///< lists every attribute of every table
void add_group(const Call& call);        ///< makes a custom group, whole or not at all
void add_builtin(const Call& call);      ///< makes a built-in group, whole or not at all
void set_members(const Call& call);      ///< gives the members of a group the row status `Command::value`
void reload(const Call& call);           ///< sets or clears the time of a reload
void announce(const Call& call);         ///< announces a client and prints what it is to fetch
void explain(const Call& call);          ///< prints what a client would be told, and why
void check_state(const Call& call);      ///< prints what an operator should look at, and fails when there is something

void show(const Call& call);             ///< prints what the daemon is doing, and how full it is
void show_groups(const Call& call);      ///< prints the custom groups, or one of them
void show_builtins(const Call& call);    ///< prints the built-in groups, or one of them
void show_clients(const Call& call);     ///< prints the clients, or one of them
void show_imagelists(const Call& call);  ///< prints what the imagelist files say, and should say
void show_vlans(const Call& call);       ///< prints the management VLANs and the DHCP client's VLAN

void apply(const Call& call);         ///< makes the daemon what a file says
void export_state(const Call& call);  ///< prints the daemon's state as a file for `apply`
void save(const Call& call);          ///< writes that file, and keeps those of before
void rollback(const Call& call);      ///< makes the daemon what the file of before says
void confirm(const Call& call);       ///< lets the changes of an `apply --confirm` stay
void watch(const Call& call);         ///< prints what changes
void wait(const Call& call);          ///< returns when conditions hold

}  // namespace lumenharbour::ctl
