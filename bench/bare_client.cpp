// The least that a program can do to learn the daemon's state, the yardstick of the control tool's whole run: connects,
// sends what the tool sends, reads the reply and exits. It uses the C library alone. Usage: bare_client SOCKET

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "lumenharbour_protocol.h"
#include "zor_codec.h"

namespace {

struct Message {
  uint32 len = 0;
  char bytes[64] = {};
};

void put(Message* message, const void* data, uint32 len) {
  memcpy(message->bytes + message->len, data, len);
  message->len += len;
}

void put_element(Message* message, uint8 tag, uint32 value) {
  const uint8 head[] = {tag, ADR_TYPE_INT32};
  const uint16 len = sizeof value;
  put(message, head, sizeof head);
  put(message, &len, sizeof len);
  put(message, &value, sizeof value);
}

Message get_state() {
  Message message;
  put_element(&message, ADR_TAG_FUNC, LUMENHARBOUR_GLOBAL_GETAPI);
  put_element(&message, ADR_TAG_RETCODE, 0);
  put_element(&message, ADR_TAG_CMD, LUMENHARBOUR_GLB_STATE);
  // An index of no items counts 0, and one is read all the same.
  const uint8 index[] = {ADR_TAG_INDEX, 0, ADR_TYPE_INT32};
  put(&message, index, sizeof index);
  const uint16 len = sizeof(uint32);
  const uint32 zero = 0;
  put(&message, &len, sizeof len);
  put(&message, &zero, sizeof zero);
  put_element(&message, ADR_TAG_VALUE, 0);
  return message;
}

}  // namespace

int main(int argc, char** argv) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strncpy(addr.sun_path, argc == 2 ? argv[1] : "", sizeof addr.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    perror("bare_client: SOCKET");
    return 1;
  }
  const Message message = get_state();
  char reply[sizeof message];
  if (send(fd, &message, sizeof message.len + message.len, 0) < 0) return 1;
  if (recv(fd, reply, sizeof reply, 0) != static_cast<ssize_t>(sizeof message.len + message.len)) return 1;
  return 0;
}
