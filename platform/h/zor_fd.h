#pragma once

/// @file
/// The one owner of a file descriptor, for every piece that has one for the length of a block.

#include <unistd.h>

/// A descriptor that closes itself; a negative one is none.
struct tZorFd {
  int fd;  ///< the descriptor

  explicit tZorFd(int number = -1) : fd(number) {}
  ~tZorFd() { reset(-1); }
  tZorFd(const tZorFd&) = delete;
  tZorFd& operator=(const tZorFd&) = delete;

  /// @return the descriptor, which the caller now owns.
  int release() {
    const int released = fd;
    fd = -1;
    return released;
  }

  /// Closes the descriptor and owns `number` in its place.
  void reset(int number) {
    if (fd >= 0) close(fd);
    fd = number;
  }
};
