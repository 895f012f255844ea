#pragma once

/// @file
/// A file that an operator gives, read and judged before anything is made of it.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace lumenharbour::ctl {

/// What is wrong with a file.
struct InputFault {
  std::size_t line;     ///< where, from 1
  std::string message;  ///< what, behind the file and the line
  const char* advice;
};

/// Reads a file, of which nobody needs to have looked at the size: it may be a device or a pipe.
///
/// @param[in] path  the file, or "-" for standard input
/// @return all its bytes
/// @throws Failure with `EXIT_NOT_FOUND` when there is no such file; with `EXIT_USAGE` when it cannot be read or is
/// larger
///         than any director's state
std::string read_input(const std::string& path);

/// Looks through YAML once, in time and memory that its size bounds, before the nodes are made, for which neither
/// holds.
///
/// @return what is no YAML, or what no director's state needs: nests too deep, anchors and aliases, too many values
std::optional<InputFault> fault_of_yaml(const std::string& bytes);

/// @return what a truth value of YAML says, however a library spells it; nothing for another text.
std::optional<bool> parse_truth(std::string_view text);

/// @return the MAC address that YAML 1.1 reads as this number, to base 60, where nobody has quoted it; nothing for
/// another
///         text.
std::optional<std::string> mac_of_base_60(std::string_view text);

}  // namespace lumenharbour::ctl
