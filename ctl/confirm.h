#pragma once

/// @file
/// How somebody lets `apply --confirm` know that the switch can still be reached: over a socket beside the daemon's,
/// that only the user who waits, and root, can use.

#include <csignal>
#include <string>

#include "zor_fd.h"

namespace lumenharbour::ctl {

/// Waits for a confirmation. From its beginning to its end no signal of a user, and no lost terminal, ends this
/// process: what it has to put back must not be left behind.
class Confirmation {
 public:
  /// How a wait ended.
  enum class End { confirmed, over, interrupted };

  /// @param[in] socket  the daemon's
  /// @throws Failure when somebody waits already, or the directory cannot be written
  explicit Confirmation(const std::string& socket);
  ~Confirmation();
  Confirmation(const Confirmation&) = delete;
  Confirmation& operator=(const Confirmation&) = delete;

  /// Waits for the confirmation, the end of the time, or a signal.
  End wait(double seconds);

 private:
  bool accept_one() const;

  std::string path_;
  tZorFd listener_;
  tZorFd signals_;
  sigset_t mask_{};  ///< of before
  void (*on_pipe_)(int);
  void (*on_stop_)(int);
};

}  // namespace lumenharbour::ctl
