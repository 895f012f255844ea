#pragma once

/// @file
/// From words to a command at work: one command line of the shell, of `-c`, or of a line typed at the prompt.

#include "command.h"

namespace lumenharbour::ctl {

/// A command line, taken apart.
struct CommandLine {
  Commands commands;                 ///< all that it could name
  const Command* command = nullptr;  ///< null when the line names none
  Arguments args;
  std::string help;  ///< the help that the line asks for; empty for none
};

/// Takes a command line apart. Commands may be abbreviated as long as one alone begins so.
///
/// @param[in] commands  must outlive the result
/// @param[in] words     the line, without the tool's own name
/// @param[in] defaults  options that hold where the line says nothing else
/// @throws Failure with `EXIT_USAGE`
CommandLine parse(Commands commands, const std::vector<std::string>& words, const Arguments& defaults);

/// Runs a command line, or prints the help that it asks for, and writes out what it printed.
/// @throws Failure when it is not done.
void run(const CommandLine& line);

/// Finds the command that the words name, in front or parted by options.
///
/// @param[in,out] words  loses the command's words; keeps options and arguments
/// @param[out]    path   the command's words in full, as far as they are there
/// @return the command or family; null when the first word is missing
/// @throws Failure with `EXIT_USAGE` for a word that is no command, or begins several
const Command* take_command(Commands commands, std::vector<std::string>* words, std::string* path);

/// @return the commands directly below `path`, or at the top for an empty one, without those that have no help.
std::vector<const Command*> children_of(Commands commands, std::string_view path);

/// @return the last word of a command's path.
std::string_view word_of(const Command& command);

/// @return true for an argument that is an option.
bool is_option(const Argument& argument);

/// @return the attributes that a get or set command takes, in the order of their list.
std::vector<const tLumenHarbourAttr*> attributes_of(const Command& command);

/// @return what a get or set command calls an attribute: a row's status is set, and tells whether the row is active.
std::string name_in(const Command& command, const tLumenHarbourAttr& attr);

}  // namespace lumenharbour::ctl
