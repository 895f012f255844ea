#pragma once

/// @file
/// What packages install beside lumenharbourctl, made from the same tables as its parser: completion scripts and the
/// manual page. None of it asks the daemon.

#include "command.h"

namespace lumenharbour::ctl {

void print_bash_completion(const Call& call);  ///< prints a script that bash sources
void print_zsh_completion(const Call& call);   ///< prints an autoload function for a directory of zsh's `fpath`
void print_manual(const Call& call);           ///< prints the manual page in man(7)

}  // namespace lumenharbour::ctl
