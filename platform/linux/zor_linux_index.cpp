#include <ifaddrs.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "zor_attr.h"
#include "zor_fd.h"
#include "zor_linux.h"

namespace {

constexpr uint8 KIND_IPV4 = 1;

struct tFreeIfaddrs {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using tIfaddrs = std::unique_ptr<ifaddrs, tFreeIfaddrs>;

// One entry for each address of each interface; link-level entries are of the family AF_PACKET.
tIfaddrs interface_addresses() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) perror("list of interfaces");
  return tIfaddrs(list);
}

// Reads the link-level part of an entry. @return false when it is an entry of another family.
bool read_link(const ifaddrs& entry, tZorLinuxUplink* link) {
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET) return false;
  sockaddr_ll address;
  memcpy(&address, entry.ifa_addr, sizeof(address));
  *link = {static_cast<uint32>(address.sll_ifindex), {}};
  if (address.sll_halen == sizeof(link->mac)) memcpy(link->mac, address.sll_addr, sizeof(link->mac));
  return true;
}

bool is_uplink(const ifaddrs& entry, const tZorLinuxUplink& link, const char* configured) {
  if (configured[0] != '\0') return strcmp(entry.ifa_name, configured) == 0;
  const bool has_mac = std::any_of(link.mac, link.mac + sizeof(link.mac), [](uint8 byte) { return byte != 0; });
  return has_mac && (entry.ifa_flags & IFF_LOOPBACK) == 0;
}

int unit_of_uplink(uint32* unit) {
  tZorLinuxUplink uplink;
  if (zorLinuxUplink(&uplink) != 0) return -1;
  *unit = uplink.index;
  return 0;
}

// @return the VLAN id that an interface carries, -1 when it is no VLAN interface.
int vlan_id(const char* name) {
  const tZorFd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (sock.fd < 0) return -1;
  vlan_ioctl_args request = {};
  static_assert(sizeof(request.device1) >= IF_NAMESIZE);
  request.cmd = GET_VLAN_VID_CMD;
  memcpy(request.device1, name, strnlen(name, IF_NAMESIZE - 1));
  return ioctl(sock.fd, SIOCGIFVLAN, &request) == 0 ? request.u.VID : -1;
}

int unit_of_vlan(uint32 wanted, uint32* unit) {
  const tIfaddrs list = interface_addresses();
  tZorLinuxUplink link;
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!read_link(*entry, &link)) continue;
    const int carried = vlan_id(entry->ifa_name);
    if (carried < 0 || static_cast<uint32>(carried) != wanted) continue;
    *unit = link.index;
    return 0;
  }
  return -1;
}

bool owns_address(const ifaddrs& entry, in_addr_t wanted) {
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) return false;
  sockaddr_in address;
  memcpy(&address, entry.ifa_addr, sizeof(address));
  return address.sin_addr.s_addr == wanted;
}

// An address entry bears the address's label, which may follow the interface's name after a colon.
uint32 index_of_entry(const ifaddrs& entry) {
  char name[IF_NAMESIZE] = {};
  memcpy(name, entry.ifa_name, std::min(strcspn(entry.ifa_name, ":"), sizeof(name) - 1));
  return if_nametoindex(name);
}

int unit_of_address(const octetstring* key, uint32* unit) {
  if (key->len != IP2LOGICAL_KEY_LEN || key->pBuf[IP2LOGICAL_KEY_TYPE] != KIND_IPV4) return -1;
  in_addr_t wanted;
  memcpy(&wanted, key->pBuf + IP2LOGICAL_KEY_ADDR, sizeof(wanted));
  // A switch whose director address was never set asks for this one; no interface may claim it.
  if (wanted == INADDR_ANY) return -1;
  const tIfaddrs list = interface_addresses();
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!owns_address(*entry, wanted)) continue;
    const uint32 index = index_of_entry(*entry);
    if (index == 0) continue;
    *unit = index;
    return 0;
  }
  return -1;
}

}  // namespace

int zorLinuxUplink(tZorLinuxUplink* uplink) {
  const char* configured = zorLinuxConf().uplink;
  const tIfaddrs list = interface_addresses();
  tZorLinuxUplink link;
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!read_link(*entry, &link) || !is_uplink(*entry, link, configured)) continue;
    *uplink = link;
    return 0;
  }
  if (configured[0] != '\0') fprintf(stderr, "uplink: there is no interface \"%s\"\n", configured);
  return -1;
}

int zorIfGetApi(uint32 ifindex, uint32 attr, void* value) {
  char name[IF_NAMESIZE];
  if (attr != SYS_IF_VLANVID || if_indextoname(ifindex, name) == nullptr) return -1;
  const int carried = vlan_id(name);
  if (carried < 0) return -1;
  const auto result = static_cast<uint32>(carried);
  memcpy(value, &result, sizeof(result));
  return 0;
}

int zorIndexTrans(const void* key, uint32 kind, uint32* unit) {
  switch (kind) {
    case SYS_PHY2LOGICAL_NUM:
      return unit_of_uplink(unit);
    case SYS_VLAN2LOGICAL:
      return unit_of_vlan(static_cast<const tPhyIfInfo*>(key)->virtualnum, unit);
    case SYS_IP2LOGICAL:
      return unit_of_address(static_cast<const octetstring*>(key), unit);
    default:
      return -1;
  }
}
