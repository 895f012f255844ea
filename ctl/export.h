#pragma once

/// @file
/// A director's state as the text of a file for `apply`.

#include "document.h"

namespace lumenharbour::ctl {

/// @return the daemon's state in the format that the command line asks for, a line feed at its end.
/// @throws Failure when the daemon does not answer as it should, or has a name that no file can hold
std::string state_text(const Call& call);

/// @return likewise. @throws Failure for a stopped daemon too, unless the command line has `Arguments::stopped`: it
/// has nothing left of what a file of before holds
std::string export_text(const Call& call);

}  // namespace lumenharbour::ctl
