#include "lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "report.h"

namespace lumenharbour::ctl {
namespace {

constexpr std::chrono::seconds PATIENCE(60);
constexpr std::chrono::milliseconds REST(10);

/// @return true for a file that nobody but those who may use the socket can open.
bool is_ours(const struct stat& file, const struct stat& socket) {
  const bool is_groups = (socket.st_mode & S_IWGRP) != 0 && file.st_gid == socket.st_gid;
  const bool is_owners = file.st_uid == socket.st_uid || file.st_uid == 0 || file.st_uid == geteuid();
  const bool is_closed = (file.st_mode & S_IRWXO) == 0 && ((file.st_mode & S_IRWXG) == 0 || is_groups);
  return S_ISREG(file.st_mode) && file.st_nlink == 1 && is_closed && (is_owners || is_groups);
}

/// Gives the file to all who may use the socket, and to nobody else.
void hand_over(int fd, const struct stat& socket) {
  // The mode goes last, so that no group but the socket's ever has it.
  if (fchmod(fd, S_IRUSR | S_IWUSR) != 0 || (socket.st_mode & S_IWGRP) == 0) return;
  if (fchown(fd, static_cast<uid_t>(-1), socket.st_gid) == 0) (void)!fchmod(fd, S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP);
}

/// Makes the file. @return its descriptor, or -1
int make(const char* path, const struct stat& socket) {
  const int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd >= 0) hand_over(fd, socket);
  return fd;
}

/// @return the descriptor of the file to lock; -1 to do without
int open_file(const std::string& socket_path) {
  struct stat socket {};
  if (lstat(socket_path.c_str(), &socket) != 0 || !S_ISSOCK(socket.st_mode)) return -1;
  const std::string path = lock_path(socket_path);
  constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  int fd = open(path.c_str(), flags);
  if (fd < 0 && errno == ENOENT) fd = make(path.c_str(), socket);
  if (fd < 0 && errno == EEXIST) fd = open(path.c_str(), flags);
  if (fd < 0 && (errno == EROFS || errno == ENOENT)) return -1;
  struct stat file {};
  const auto is_good = [&] { return fd >= 0 && fstat(fd, &file) == 0 && is_ours(file, socket); };
  if (is_good()) return fd;
  // One of ours may be from a time when another group could use the socket.
  if (S_ISREG(file.st_mode) && file.st_nlink == 1 && file.st_uid == geteuid() && (file.st_mode & S_IRWXO) == 0) {
    hand_over(fd, socket);
    if (is_good()) return fd;
  }
  note(path + " is no lock file that can be used: commands that run at one time may get into each other's way");
  if (fd >= 0) close(fd);
  return -1;
}

}  // namespace

std::string lock_path(const std::string& socket) {
  std::string path = socket;
  return path.insert(path.rfind('/') + 1, ".") + ".lock";
}

Lock::Lock(const Call& call, const std::string& attempt) : fd_(open_file(call.args.socket)) {
  const auto end = std::chrono::steady_clock::now() + PATIENCE;
  while (fd_ >= 0 && flock(fd_, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return;
    if (call.daemon.connection().is_over() || std::chrono::steady_clock::now() >= end) {
      close(fd_);
      throw Failure{EXIT_TIMED_OUT, "cannot " + attempt + ": another command is changing the daemon",
                    "try again when it is done"};
    }
    std::this_thread::sleep_for(REST);
  }
}

Lock::~Lock() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace lumenharbour::ctl
