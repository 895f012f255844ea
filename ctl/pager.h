#pragma once

/// @file
/// Long answers, on a terminal that they do not fit.

#include <string>

namespace lumenharbour::ctl {

/// Prints lines on standard output: by $PAGER, or else 'less', where that is a terminal with fewer rows and there is
/// such a program.
void print_text(const std::string& text);

}  // namespace lumenharbour::ctl
