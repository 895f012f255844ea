#pragma once

/// @file
/// The interactive prompt, and commands read from standard input.

#include "command.h"

namespace lumenharbour::ctl {

/// @name The history's file, in `$XDG_STATE_HOME`, or in `$HOME` where that is not set
/// @{
inline constexpr char HISTORY_IN_STATE[] = "lumenharbourctl_history";
inline constexpr char HISTORY_IN_HOME[] = ".lumenharbourctl_history";
/// @}

/// Parts a line into words as a shell does: blanks part, quotes and backslashes keep together, `#` in front of a word
/// begins a comment.
///
/// @throws Failure with `EXIT_USAGE` for a quote that is not closed
std::vector<std::string> split(const std::string& line);

/// Reads command lines from standard input and runs them, until it ends or a line says `exit` or `quit`.
///
/// At a terminal there are a prompt, completion and a history, and a failed command is told and no more. Each command
/// has a process of its own there, so that an interrupt ends it and not the prompt. Otherwise the first
/// failed command ends it.
///
/// @param[in] commands  every command that a line may name
/// @param[in] defaults  options that hold where a line says nothing else
/// @throws Failure of a command, unless at a terminal
void run_shell(Commands commands, const Arguments& defaults);

}  // namespace lumenharbour::ctl
