#pragma once

/// @file
/// All that lumenharbourctl can do, as data. Parsing and help, completion and the manual page are made from it.

#include "command.h"

namespace lumenharbour::ctl {

extern const Commands COMMANDS;  ///< every command of the tool

}  // namespace lumenharbour::ctl
