#pragma once

/// @file
/// How text lies on a terminal: columns that characters take, and lines broken at words.

#include <cstddef>
#include <string>
#include <string_view>

namespace lumenharbour::ctl {

/// @return columns of the terminal on a descriptor; 0 when it is none.
std::size_t terminal_width(int fd);

/// @return how many columns a text of UTF-8 takes, whatever the locale: two for a wide character, none for a combining
/// one.
std::size_t width_of(std::string_view text);

/// @return the text in at most `width` columns, 2 or more, with dots for what is cut.
std::string cut(const std::string& text, std::size_t width);

/// Breaks lines at blanks, so that addresses and names stay whole. What follows stands below the line's second column,
/// or a little inwards where it has none.
///
/// @param[in] width  of the terminal; 0 leaves the text as it is
std::string wrapped(const std::string& text, std::size_t width);

}  // namespace lumenharbour::ctl
