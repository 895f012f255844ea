#pragma once

/// @file
/// What may stand next on a command line, for the completion of bash, of zsh and of the tool's own prompt.

#include "command.h"

namespace lumenharbour::ctl {

/// Finds what may stand in place of the last word of a line.
///
/// @param[in] commands  every command that the line may name
/// @param[in] words     the line without the tool's own name; the last word may be empty
/// @param[in] defaults  options that hold where the line says nothing else, such as the daemon's socket
/// @param[out] is_file  receives whether a file may stand there, which is not among what is returned
/// @return words that begin with the last one. Names of groups and the like come from the daemon: without one there
///         are none.
std::vector<std::string> candidates(Commands commands, const std::vector<std::string>& words, const Arguments& defaults,
                                    bool* is_file);

/// What may stand next, and what it is for.
struct Offer {
  std::string word;  ///< a word, or the name of an argument
  std::string help;
};

/// @return what may stand in place of the last word of a line, as for `candidates`; options last.
std::vector<Offer> explained(Commands commands, const std::vector<std::string>& words, const Arguments& defaults);

/// Prints the candidates for `Arguments::words`, one a line; a line of "/" for files. For completion scripts.
void print_candidates(const Call& call);

}  // namespace lumenharbour::ctl
