#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "zor_dhcpc.h"
#include "zor_linux.h"

namespace {

enum class Kind { text, address, number };

struct tAttribute {
  uint32 attr;
  const char* key;
  Kind kind;
};

constexpr tAttribute ATTRIBUTES[] = {
    {DHCPC_IF_CONFIGFILE, "config-file", Kind::text},   {DHCPC_IF_FTPUSERNAME, "ftp-username", Kind::text},
    {DHCPC_IF_FTPPASSWORD, "ftp-password", Kind::text}, {DHCPC_IF_FTPSERVERIP, "ftp-server", Kind::address},
    {DHCPC_IF_IMAGEFILE, "image-file", Kind::text},     {DHCPC_IF_REBOOTTIME, "reboot-time", Kind::number},
    {DHCPC_IF_AUTHMSG, "auth-msg", Kind::text},         {DHCPC_IF_TFTPSERVERIP, "tftp-server", Kind::address},
    {DHCPC_IF_IMAGELIST, "imagelist", Kind::text},
};

// The value itself is not printed: it came over the network, and may be a password.
int refuse(const tAttribute& attribute, const char* reason) {
  fprintf(stderr, "%s: %s: %s; not used\n", zorLinuxConf().dhcp_state, attribute.key, reason);
  return -1;
}

// @return the value of a line `key=value`, a view without data when the line is of another key.
std::string_view value_of(const tZorLinuxLine& line, std::string_view key) {
  const std::string_view text(line.text, line.len);
  if (!text.starts_with(key) || !zorLinuxTail(text, key.size()).starts_with('=')) return {};
  return zorLinuxTail(text, key.size() + 1);
}

int store_text(const tAttribute& attribute, std::string_view value, octetstring* result) {
  if (value.size() > result->len) return refuse(attribute, "longer than its reader's buffer");
  value.copy(reinterpret_cast<char*>(result->pBuf), value.size());
  result->len = static_cast<uint32>(value.size());
  return 0;
}

int store_address(const tAttribute& attribute, std::string_view value, uint32* result) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr address;
  const bool fits = value.copy(text, sizeof(text) - 1) == value.size();
  if (!fits || inet_pton(AF_INET, text, &address) != 1) return refuse(attribute, "not a dotted IPv4 address");
  *result = ntohl(address.s_addr);
  return 0;
}

int store_number(const tAttribute& attribute, std::string_view value, uint32* result) {
  return zorLinuxNumberRead(value, result) ? 0 : refuse(attribute, "not a number of seconds from 0 to 4294967295");
}

int store(const tAttribute& attribute, const tZorLinuxLine& line, std::string_view value, void* result) {
  if (std::any_of(value.begin(), value.end(), zorLinuxIsControl)) return refuse(attribute, "control character");
  if (line.cut) return refuse(attribute, "line too long");
  switch (attribute.kind) {
    case Kind::text:
      return store_text(attribute, value, static_cast<octetstring*>(result));
    case Kind::address:
      return store_address(attribute, value, static_cast<uint32*>(result));
    case Kind::number:
      return store_number(attribute, value, static_cast<uint32*>(result));
  }
  return -1;
}

// The file is read anew each time: the DHCP client replaces it whenever it learns something.
int read_attribute(const tAttribute& attribute, void* result) {
  const tZorLinuxFile file = zorLinuxFileOpen(zorLinuxConf().dhcp_state);
  if (file == nullptr) return errno == ENOENT ? -1 : refuse(attribute, strerror(errno));
  tZorLinuxLine line;
  while (zorLinuxLineRead(file.get(), &line)) {
    const std::string_view value = value_of(line, attribute.key);
    if (value.data() != nullptr) return store(attribute, line, value, result);
  }
  return ferror(file.get()) == 0 ? -1 : refuse(attribute, strerror(errno));
}

int notify_client(uint32 ifindex) {
  printf("DHCP client on interface %u: provisioning failed, fresh information wanted\n", ifindex);
  fflush(stdout);
  const char* command = zorLinuxConf().dhcp_notify_command;
  return command[0] == '\0' ? 0 : zorLinuxCommandRun("dhcp_notify_command", command);
}

}  // namespace

int dhcpcIfGetApi(uint32 ifindex, uint32 attr, void* result) {
  if (attr == DHCPC_IF_LUMENHARBOUR) return notify_client(ifindex);
  const auto* known = std::find_if(std::begin(ATTRIBUTES), std::end(ATTRIBUTES),
                                   [attr](const tAttribute& attribute) { return attribute.attr == attr; });
  return known == std::end(ATTRIBUTES) ? -1 : read_attribute(*known, result);
}
