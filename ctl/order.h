#pragma once

/// @file
/// The order in which groups were created, which decides between two of one type that list one member: how to bring it
/// about that the later group of a file serves it.

#include "rule.h"

namespace lumenharbour::ctl {

/// A group of a file, as it is going to be.
struct Place {
  const Record* group = nullptr;     ///< the group that is there; null for one that is to be added
  std::string title;                 ///< as messages name it
  bool is_woken = false;             ///< it is not active and is going to be
  std::vector<std::string> members;  ///< all that it is going to list
};

/// Why a group has to be made anew.
struct Move {
  std::string before, after;  ///< its order, as "before group NAME"
};

/// Finds the groups that have to be deleted and made anew, behind what stands before them in the file, so that of all
/// groups that list a member the last one in the file serves it.
///
/// @param[in]  places  in the order of the file
/// @param[out] doubts  sentences about members of which it cannot be told whether their groups have to
/// @return for each place a move, or nothing
std::vector<std::optional<Move>> moves_of(Rule* rule, const std::vector<Place>& places,
                                          std::vector<std::string>* doubts);

}  // namespace lumenharbour::ctl
