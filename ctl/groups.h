#pragma once

/// @file
/// The custom groups as a table shows them, read with as few requests as what is shown takes.

#include "rows.h"

namespace lumenharbour::ctl {

/// What `show group` calls the members of a group.
inline constexpr char MEMBERS_FIELD[] = "members";

/// Reads every custom group. A director may have thousands, and each request costs it a search.
///
/// @param[in] fields  "id", names of the table's attributes, and `MEMBERS_FIELD`; nothing else is asked for
/// @return an object with these members for each group, by ascending id, without those that have gone meanwhile
/// @throws Failure when the daemon does not answer as it should
Json read_groups(const Call& call, const std::vector<std::string>& fields);

}  // namespace lumenharbour::ctl
