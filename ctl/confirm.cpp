#include "confirm.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "commands.h"
#include "report.h"

namespace lumenharbour::ctl {
namespace {

constexpr char TOKEN = 'y';  // asks for the confirmation, and is the answer
constexpr int TOKEN_MS = 1000;

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    throw Failure{EXIT_USAGE, "the path " + path + " is too long for a socket", ""};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

std::string path_beside(const std::string& socket) {
  return socket + ".confirm";
}

tZorFd stream_socket() {
  return tZorFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

/// @return 0, or why nobody who waits is reached there.
int reach(int fd, const sockaddr_un& address) {
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

/// @return true when the other end sent the token in time.
bool take_token(int fd) {
  char token = '\0';
  pollfd ready = {fd, POLLIN, 0};
  return poll(&ready, 1, TOKEN_MS) > 0 && recv(fd, &token, 1, MSG_DONTWAIT) == 1 && token == TOKEN;
}

bool send_token(int fd) {
  return send(fd, &TOKEN, 1, MSG_NOSIGNAL) == 1;
}

}  // namespace

Confirmation::Confirmation(const std::string& socket)
    : path_(path_beside(socket)), listener_(stream_socket()), on_pipe_(SIG_DFL), on_stop_(SIG_DFL) {
  const sockaddr_un address = address_of(path_);
  const tZorFd probe = stream_socket();
  const int reason = reach(probe.fd, address);
  if (reason == 0)
    throw Failure{EXIT_REFUSED, "another 'apply --confirm' waits already", "'lumenharbourctl confirm' confirms it"};
  if (reason == ECONNREFUSED) unlink(path_.c_str());  // left by one that was killed
  const mode_t before = umask(0177);
  const bool is_bound = bind(listener_.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = errno;
  umask(before);
  if (!is_bound || listen(listener_.fd, 1) != 0)
    throw Failure{EXIT_REFUSED,
                  "cannot wait for a confirmation on " + path_ + ": " + std::strerror(is_bound ? errno : error), ""};
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, &mask_);
  signals_.reset(signalfd(-1, &set, SFD_CLOEXEC));
  on_pipe_ = std::signal(SIGPIPE, SIG_IGN);
  on_stop_ = std::signal(SIGTSTP, SIG_IGN);
}

Confirmation::~Confirmation() {
  unlink(path_.c_str());
  std::signal(SIGTSTP, on_stop_);
  std::signal(SIGPIPE, on_pipe_);
  sigprocmask(SIG_SETMASK, &mask_, nullptr);
}

bool Confirmation::accept_one() const {
  const tZorFd peer(accept4(listener_.fd, nullptr, nullptr, SOCK_CLOEXEC));
  return peer.fd >= 0 && take_token(peer.fd) && send_token(peer.fd);
}

Confirmation::End Confirmation::wait(double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  pollfd ready[] = {{listener_.fd, POLLIN, 0}, {signals_.fd, POLLIN, 0}};
  // Who confirmed before it was all applied has not seen it.
  while (poll(ready, 1, 0) > 0) tZorFd(accept4(listener_.fd, nullptr, nullptr, SOCK_CLOEXEC));
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return End::over;
    if (poll(ready, std::size(ready), static_cast<int>(left)) <= 0) continue;
    if (ready[1].revents != 0) {
      signalfd_siginfo info{};
      if (read(signals_.fd, &info, sizeof info) == sizeof info) return End::interrupted;
    }
    if (ready[0].revents != 0 && accept_one()) return End::confirmed;
  }
}

void confirm(const Call& call) {
  const std::string path = path_beside(call.args.socket);
  const sockaddr_un address = address_of(path);
  const tZorFd fd = stream_socket();
  const int reason = reach(fd.fd, address);
  if (reason == ENOENT || reason == ECONNREFUSED)
    throw Failure{EXIT_NOT_FOUND, "no 'apply --confirm' waits", "if its time is over, the former state is back"};
  if (reason != 0)
    throw Failure{EXIT_REFUSED, "cannot confirm on " + path + ": " + std::strerror(reason),
                  "who has applied it can, and root"};
  if (!send_token(fd.fd) || !take_token(fd.fd))
    throw Failure{EXIT_REFUSED, "the 'apply --confirm' that waits did not take it",
                  "it is still applying, or its time is over: try again"};
  print_done(call.args);
}

}  // namespace lumenharbour::ctl
