#pragma once

/// @file
/// Shell commands, which run as they would from a shell.

#include <csignal>
#include <cstdlib>

/// Runs a shell command to its end, as `system` does.
///
/// The daemon ignores SIGPIPE, and a command would inherit that: a tool whose reader has gone would write for ever.
///
/// @return as of `system`
inline int zor_system(const char* command) {
  void (*const own)(int) = signal(SIGPIPE, SIG_DFL);
  const int status = system(command);
  signal(SIGPIPE, own);
  return status;
}
