#pragma once

/// @file
/// A director's state as a file says it, for `apply` and `export`, and as the daemon has it.

#include <map>
#include <span>

#include "rows.h"

namespace lumenharbour::ctl {

/// @name What a file may say of an attribute
/// @{

/// A key of the file and the attribute behind it.
struct Field {
  std::string_view key;
  uint32 cmd;
};

inline constexpr Field DIRECTOR_FIELDS[] = {{"address", LUMENHARBOUR_GLB_DIRECTORIP},
                                            {"type", LUMENHARBOUR_GLB_DIRECTORIPTYPE}};

inline constexpr Field DEFAULT_FIELDS[] = {{"image", LUMENHARBOUR_GLB_DEFAULTIMAGENAME},
                                           {"config", LUMENHARBOUR_GLB_DEFAULTCONFIGNAME},
                                           {"image-local", LUMENHARBOUR_GLB_DEFAULTIMAGETYPE},
                                           {"config-local", LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE}};

inline constexpr Field GROUP_FIELDS[] = {{"type", LUMENHARBOUR_CUSTOMGRP_TYPE},
                                         {"image", LUMENHARBOUR_CUSTOMGRP_IMAGENAME},
                                         {"config", LUMENHARBOUR_CUSTOMGRP_CONFIGNAME},
                                         {"image-local", LUMENHARBOUR_CUSTOMGRP_IMAGETYPE},
                                         {"config-local", LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE}};

inline constexpr Field BUILTIN_FIELDS[] = {{"image", LUMENHARBOUR_BUILTINGRP_IMAGENAME},
                                           {"config", LUMENHARBOUR_BUILTINGRP_CONFIGNAME},
                                           {"image-local", LUMENHARBOUR_BUILTINGRP_IMAGETYPE},
                                           {"config-local", LUMENHARBOUR_BUILTINGRP_CONFIGTYPE}};

/// @}

/// A member that a file lists.
struct Member {
  std::size_t line;  ///< where it stands, from 1
  std::string text;  ///< MAC address or product id, written as the daemon's own are
};

/// A group that a file lists.
struct Entry {
  std::size_t line = 0;            ///< where it begins, from 1
  std::string name;                ///< custom group: its name; empty for one that is named by its id
  std::optional<uint32> key;       ///< id of a custom group without name, or product id of a built-in group
  std::map<uint32, Value> values;  ///< the other attributes that are given, by number
  std::optional<bool> active;      ///< its imagelist file is to be there; nothing: as it is, for a new one yes
  std::optional<std::vector<Member>> members;  ///< nothing: left as they are
};

/// What a file says. What it leaves out is to be left as it is.
struct Document {
  std::string file;                          ///< its name, for messages
  std::map<uint32, Value> globals;           ///< global attributes by number; VLANs as `LUMENHARBOUR_GLB_MANAGEVLANADD`
  std::optional<std::vector<Entry>> groups;  ///< custom groups
  std::optional<std::vector<Entry>> builtins;  ///< built-in groups

  /// @return true when it says something that only a director has.
  bool needs_director() const;

  /// Says of what it leaves out that there is none, as what `export` leaves out is meant.
  void make_whole();

  /// @return a failure with `EXIT_USAGE` whose message begins with the file and the line.
  Failure failure(std::size_t line, const std::string& message, const std::string& advice) const;
};

/// Reads a file of YAML or JSON.
///
/// @param[in] path  the file, or "-" for standard input
/// @return what it says; every value is one that the daemon keeps whole
/// @throws Failure with `EXIT_NOT_FOUND` when there is no such file, else with `EXIT_USAGE`
Document read_document(const std::string& path);

/// Reads likewise what a file holds. @param[in] name  what messages call it
Document parse_document(const std::string& bytes, const std::string& name);

/// Fails unless all members of `entry` are what a group of type `type` holds. @throws Failure with `EXIT_USAGE`
void check_members(const Document& document, const Entry& entry, uint32 type);

/// What the daemon has.
struct State {
  Record global;
  std::vector<Record> groups;                          ///< custom groups; none but on a director
  std::map<uint32, std::vector<std::string>> members;  ///< by group id, as text, in the order in which they were added
  std::vector<Record> builtins;                        ///< built-in groups; none but on a director

  bool is_director() const { return integer_of(global, LUMENHARBOUR_GLB_DIRECTORSTATE) == LUMENHARBOUR_ON; }
};

/// @return the daemon's state. @throws Failure when the daemon does not answer as it should
State read_state(const Call& call);

}  // namespace lumenharbour::ctl
