#pragma once

/// @file
/// What words of a command line say: times, numbers, addresses and names.

#include "command.h"

namespace lumenharbour::ctl {

/// The most bytes of a path that messages show.
inline constexpr std::size_t PATH_SHOWN = 1024;

/// @return the text for a message: what is longer than `max` bytes ends in dots.
std::string shortened(std::string_view text, std::size_t max = 64);

/// @return what somebody said, shortened, in quotes.
std::string quote(std::string_view said);

/// @return true when `candidate` may be what `word` was meant to say.
bool is_close(std::string_view word, std::string_view candidate);

/// @return a count with its word.
std::string plural(std::size_t count, const std::string& one, const std::string& many);

/// @return the seconds that `text` says, above 0. @throws Failure, which says that it is no `what`.
double seconds_of(const std::string& text, const char* what);

/// @param[in] attr  an attribute that is to be set
/// @param[in] said  what was said, as the message begins, such as "bad value 'x' for state"
/// @return the value that `text` says
/// @throws Failure when it says none, and for a name that every switch would refuse
Value value_to_set(const tLumenHarbourAttr& attr, std::string_view text, const std::string& said);

/// Fails for a group name that is empty, could be taken for an id, or leads the imagelist file elsewhere.
void check_group_name(std::string_view name);

/// @return the number that `text` says. @throws Failure, which says that it is no `what`.
uint32 number_of(const std::string& text, const char* what);

/// @return the address that `text` says. @throws Failure for none.
Mac mac_of(const std::string& text);

}  // namespace lumenharbour::ctl
