#pragma once

/// @file
/// What holds for the tool as a whole: its name and texts, its options and its exit statuses.

#include "command.h"

namespace lumenharbour::ctl {

/// An exit status in words.
struct ExitText {
  Exit status;
  const char* text;
};

extern const std::span<const Argument> OPTIONS;  ///< options of every command, help and version first
extern const std::span<const ExitText> EXITS;    ///< every exit status

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
