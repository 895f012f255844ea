#pragma once

/// @file
/// Keeps commands from one another that look first and then change what they saw.

#include "command.h"

namespace lumenharbour::ctl {

/// @return the file's path: beside the socket, hidden, so that nobody who completes the socket's path is offered it.
std::string lock_path(const std::string& socket);

/// Held by one command of all that reach a daemon by one path of its socket, until it is destroyed.
///
/// The lock is on a file beside the socket, which whoever may use the socket may lock and nobody else: one that others
/// could have put there, or may open, is not taken; a note says so, and the command goes on. It also goes on where no
/// file can be made. The file stays.
class Lock {
 public:
  /// Waits until it is held. @param[in] attempt  what is tried, as it stands behind "cannot"
  /// @throws Failure with `EXIT_TIMED_OUT` when another command holds it for a minute, or for the command's whole time
  Lock(const Call& call, const std::string& attempt);
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

}  // namespace lumenharbour::ctl
