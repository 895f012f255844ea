#pragma once

/// @file
/// All that lumenharbourctl can do, as data. Parsing and help, completion and the manual page are made from it.

#include <span>
#include <vector>

#include "commands.h"

namespace lumenharbour::ctl {

/// An exit status in words.
struct ExitText {
  Exit status;
  const char* text;
};

extern const std::span<const Command> COMMANDS;  ///< every command, each family before its members
extern const std::span<const Argument> OPTIONS;  ///< options of every command, help and version first
extern const std::span<const ExitText> EXITS;    ///< every exit status

/// @return the attributes that a get or set command takes, in the order of their list.
std::vector<const tLumenHarbourAttr*> attributes_of(const Command& command);

inline constexpr char TOOL[] = "lumenharbourctl";
inline constexpr char SUMMARY[] = "Controls the zero-touch provisioning daemon of this switch.";

inline constexpr char EXAMPLE_TITLE[] = "A switch becomes the director, and a group gets its first member:";
inline constexpr char EXAMPLE[] =
    "  lumenharbourctl service start\n"
    "  lumenharbourctl director address 192.0.2.1\n"
    "  lumenharbourctl group add auto floor-2 --type mac --image v2.bin --activate\n"
    "  lumenharbourctl group member add floor-2 00:1b:21:0a:0b:0c\n"
    "  lumenharbourctl show group floor-2\n";

inline constexpr char NOTE[] =
    "Words of commands may be abbreviated as long as they are unambiguous. A value that begins with '-' goes behind "
    "'--'. Without a command it reads commands from standard input, at a terminal with completion and history.";

}  // namespace lumenharbour::ctl
