// The route message socket: a new address can turn a client switch into the director.

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lumenharbour.h"
#include "zor_attr.h"

namespace {

constexpr uint32 READ_SIZE = 1000;

/// Header of a routing message (linux/netlink.h, struct nlmsghdr), native byte order.
struct tRouteMsgHead {
  uint32 len;    ///< bytes in the message, this header included
  uint16 type;   ///< `RTM_*`
  uint16 flags;  ///< not read
  uint32 seq;    ///< not read
  uint32 port;   ///< not read
};

static_assert(sizeof(tRouteMsgHead) == 16);

/// Message types that are acted on (linux/netlink.h, linux/rtnetlink.h).
enum : uint16 {
  ROUTE_MSG_ERROR = 2,
  ROUTE_MSG_DONE = 3,
  RTM_NEWADDR = 20,
};

/// A client switch that has not been told of a director tries to be it.
void new_address_handle() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  if (info.role != LUMENHARBOUR_ROLE_CLIENT || info.director_ip != 0) return;
  uint32 unit = 0;
  if (lumenharbour_if_unit_lookup(info.director_ip, &unit) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get ifunit from director ip failed!\r\n");
    return;
  }
  if (lumenharbour_director_enable() != 0) return;
  info.role = LUMENHARBOUR_ROLE_DIRECTOR;
  info.if_unit = unit;
}

/// @return false when the rest of the read is to be dropped.
bool route_message_handle(uint16 type) {
  if (type == ROUTE_MSG_DONE) return false;
  if (type == ROUTE_MSG_ERROR) {
    const int error = errno;
    LUMENHARBOUR_DEBUG("[LumenHarbour] Route message ERROR: errno %d %s\r\n", error, strerror(error));
    return false;
  }
  LUMENHARBOUR_DEBUG("[LumenHarbour] Receive a route message: type 0x%0x.\r\n", type);
  if (type == RTM_NEWADDR) new_address_handle();
  return true;
}

/// @return whether a whole message stands at `buf`, `left` bytes before the end of the read.
bool head_read(const uint8* buf, uint32 left, tRouteMsgHead* head) {
  if (left < sizeof(*head)) return false;
  memcpy(head, buf, sizeof(*head));
  return head->len >= sizeof(*head) && head->len <= left;
}

}  // namespace

int lumenharbour_if_unit_lookup(uint32 ip, uint32* if_unit) {
  uint8 key[IP2LOGICAL_KEY_LEN] = {};
  key[IP2LOGICAL_KEY_TYPE] = 1;
  lumenharbour_ip_write(ip, key + IP2LOGICAL_KEY_ADDR);
  const octetstring index = {key, sizeof(key)};
  return zorIndexTrans(&index, SYS_IP2LOGICAL, if_unit);
}

int32 lumenharbour_route_socket_open() {
  // Neither bound nor subscribed to a group, and deliberately so. On Linux such a socket has no port that anybody could
  // send to, and the kernel tells it of no address: what comes in here comes from platforms whose route sockets hear
  // all messages. On a plain Linux system the start script watches the addresses, and repeats the director address.
  const int32 fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (fd <= 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to create route socket\r\n");
    return -1;
  }
  int on = 1;
  ioctl(fd, FIONBIO, &on);
  return fd;
}

void lumenharbour_socket_close() {
  int32& fd = gLumenHarbourInfo.rt_socket;
  if (fd == -1) return;
  close(fd);
  fd = -1;
}

void lumenharbour_route_socket_rcv() {
  if (gLumenHarbourInfo.rt_socket == -1) return;
  uint8 buf[READ_SIZE] = {};
  const ssize_t count = recv(gLumenHarbourInfo.rt_socket, buf, sizeof(buf), 0);
  if (count <= 0) return;

  const uint32 end = static_cast<uint32>(count);
  uint32 pos = 0;
  tRouteMsgHead head;
  while (pos <= end && head_read(buf + pos, end - pos, &head)) {
    if (!route_message_handle(head.type)) return;
    pos += (head.len + 3) & ~3U;  // messages are padded to a multiple of 4
  }
}
