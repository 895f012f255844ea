#pragma once

/// @file
/// All that lumenharbourctl can do, as data. Parsing and help, the completion scripts and the manual page are made from
/// it.

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
extern const std::span<const Argument> OPTIONS;  ///< options of every command, help first
extern const std::span<const ExitText> EXITS;    ///< every exit status

/// @return the attributes that a get or set command takes, in the order of their list.
std::vector<const tLumenHarbourAttr*> attributes_of(const Command& command);

inline constexpr char TOOL[] = "lumenharbourctl";
inline constexpr char SUMMARY[] = "Controls the zero-touch provisioning daemon of this switch.";

inline constexpr char EXAMPLE_TITLE[] = "A switch becomes the director, and a group gets its first member:";
inline constexpr char EXAMPLE[] =
    "  lumenharbourctl set state on\n"
    "  lumenharbourctl set director-ip-type 1\n"
    "  lumenharbourctl set director-ip 192.0.2.1\n"
    "  lumenharbourctl group create 0\n"
    "  lumenharbourctl group set 0 name floor-2\n"
    "  lumenharbourctl group set floor-2 type mac\n"
    "  lumenharbourctl group set floor-2 image v2.bin\n"
    "  lumenharbourctl member mac add floor-2 00:1b:21:0a:0b:0c\n"
    "  lumenharbourctl group activate floor-2\n";

inline constexpr char NOTE[] = "A value that begins with '-' goes behind '--'.";

}  // namespace lumenharbour::ctl
