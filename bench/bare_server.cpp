// The least that a server of this framing can do, the yardstick of the daemon's request rate: accepts, reads the
// length, reads the body, sends both back and closes. Usage: bare_server SOCKET

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "lumenharbour_protocol.h"

namespace {

int listen_on(const char* path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strncpy(addr.sun_path, path, sizeof addr.sun_path - 1);
  unlink(path);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(fd, 10) != 0) return -1;
  return fd;
}

void serve(int fd) {
  static uint8 body[LUMENHARBOUR_MSG_MAX];
  int32 len = 0;
  if (recv(fd, &len, sizeof len, 0) != sizeof len || len < 0 || static_cast<uint32>(len) > sizeof body) return;
  if (recv(fd, body, static_cast<uint32>(len), 0) != len) return;
  iovec parts[] = {{&len, sizeof len}, {body, static_cast<uint32>(len)}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  if (sendmsg(fd, &message, MSG_NOSIGNAL) < 0) perror("sendmsg");
}

}  // namespace

int main(int argc, char** argv) {
  const int server = argc == 2 ? listen_on(argv[1]) : -1;
  if (server < 0) {
    perror("usage: bare_server SOCKET");
    return 1;
  }
  for (;;) {
    const int fd = accept(server, nullptr, nullptr);
    if (fd < 0) continue;
    serve(fd);
    close(fd);
  }
}
