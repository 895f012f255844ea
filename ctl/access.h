#pragma once

/// @file
/// Who may use the daemon's socket, for somebody who may not.

#include <string>

namespace lumenharbour::ctl {

/// @return who may connect to the socket, as advice; empty when that cannot be told.
std::string who_may_use(const std::string& socket);

}  // namespace lumenharbour::ctl
