#include "pager.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace lumenharbour::ctl {
namespace {

constexpr char LESS[] = "less";

/// @return true when the folders in $PATH have the program.
bool is_there(const std::string& program) {
  const char* const path = std::getenv("PATH");
  const std::string_view folders = path == nullptr ? "" : path;
  for (std::size_t at = 0; at < folders.size();) {
    const std::size_t end = std::min(folders.find(':', at), folders.size());
    if (access((std::string(folders.substr(at, end - at)) + '/' + program).c_str(), X_OK) == 0) return true;
    at = end + 1;
  }
  return false;
}

/// @return what the shell is to run; empty for nothing.
std::string pager() {
  const char* const wanted = std::getenv("PAGER");
  if (wanted != nullptr && *wanted != '\0') return wanted;
  return is_there(LESS) ? LESS : "";
}

/// @return true when the text has more lines than the terminal on standard output has rows.
bool is_long(const std::string& text) {
  winsize size{};
  if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) return false;
  return std::count(text.begin(), text.end(), '\n') >= size.ws_row;
}

/// Writes all of it, or as much as somebody reads.
void write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

/// Runs the pager and waits for its end. @return false when it cannot be run.
bool page(const std::string& command, const std::string& text) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[0], STDIN_FILENO);
    setenv("LESS", "FRX", 0);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  close(ends[0]);
  // A key that interrupts, or a pager that ends early, is the pager's own matter.
  const auto interrupt = std::signal(SIGINT, SIG_IGN);
  const auto broken = std::signal(SIGPIPE, SIG_IGN);
  if (child > 0) write_all(ends[1], text);
  close(ends[1]);
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  std::signal(SIGINT, interrupt);
  std::signal(SIGPIPE, broken);
  return child > 0 && !(WIFEXITED(status) && WEXITSTATUS(status) == 127);
}

}  // namespace

void print_text(const std::string& text) {
  if (const std::string command = is_long(text) ? pager() : ""; !command.empty()) {
    std::fflush(stdout);
    if (page(command, text)) return;
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace lumenharbour::ctl
