#pragma once

/// @file
/// The role of the switch, which no attribute of the daemon tells whole, and how it becomes the director.

#include "rows.h"

namespace lumenharbour::ctl {

/// @return "director", "client" or "none"; "client or none" where `Arguments::read_only` forbids to find out.
/// @throws Failure when the daemon does not answer as it should
std::string role_of(const Call& call);

/// Sets the director's address, and makes this switch the director if the address is one of its own. The address's type
/// stays what it was.
///
/// @param[in] address  4 bytes in network order; zeros for none
/// @return false when there is an address and it is none of this switch's
/// @throws Failure when the daemon does not answer as it should
bool take_address(const Call& call, const std::string& address);

/// @return what holds of an address for which `take_address` returned false, as a clause.
std::string foreign(const std::string& address);

}  // namespace lumenharbour::ctl
