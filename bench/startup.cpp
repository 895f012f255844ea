// Measures the time from exec to a management socket that accepts connections, and prints the median in milliseconds.
// Usage: startup DAEMON

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "lumenharbour_protocol.h"

namespace {

constexpr int STARTS = 20;
constexpr double PATIENCE = 5000;  // ms

bool can_connect() {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  memcpy(addr.sun_path, LUMENHARBOUR_SOCKET_PATH, sizeof LUMENHARBOUR_SOCKET_PATH);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  close(fd);
  return connected;
}

/// @return milliseconds from just before the fork until the daemon listens, or a negative number.
double start_once(const char* daemon) {
  unlink(LUMENHARBOUR_SOCKET_PATH);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    execl(daemon, daemon, static_cast<char*>(nullptr));
    _exit(127);
  }
  double elapsed = 0;
  bool listens = false;
  while (!listens && elapsed < PATIENCE) {
    const timespec pause = {0, 50'000};
    nanosleep(&pause, nullptr);
    listens = can_connect();
    elapsed = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return listens ? elapsed : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fputs("usage: startup DAEMON\n", stderr);
    return 2;
  }
  std::array<double, STARTS> times{};
  for (double& time : times) {
    time = start_once(argv[1]);
    if (time < 0) {
      fprintf(stderr, "startup: %s does not listen\n", argv[1]);
      return 1;
    }
  }
  std::sort(times.begin(), times.end());
  printf("%.2f\n", (times[STARTS / 2 - 1] + times[STARTS / 2]) / 2);
}
