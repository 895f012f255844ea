#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
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

/// @return an attribute that is a value, or null.
const tAttribute* attribute_of(uint32 attr) {
  const auto* known = std::find_if(std::begin(ATTRIBUTES), std::end(ATTRIBUTES),
                                   [attr](const tAttribute& attribute) { return attribute.attr == attr; });
  return known == std::end(ATTRIBUTES) ? nullptr : known;
}

/// What the file said when it was read last. An attempt must not take its server from one lease and its authentication
/// message from the next, or from none.
struct tSnapshot {
  bool is_taken;
  int error;                                   ///< `errno` of a file that could not be read, 0 for one that was
  bool has[std::size(ATTRIBUTES)];             ///< there is such a line
  tZorLinuxLine lines[std::size(ATTRIBUTES)];  ///< the first line of each attribute
};

tSnapshot snapshot;

// The value itself is not printed: it came over the network, and may be a password.
int refuse(const tAttribute& attribute, const char* reason) {
  const char* outcome = attribute.attr == DHCPC_IF_AUTHMSG ? "taken for a wrong one" : "not used";
  fprintf(stderr, "%s: %s: %s; %s\n", zorLinuxConf().dhcp_state, attribute.key, reason, outcome);
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

void keep_line(const tZorLinuxLine& line) {
  for (std::size_t i = 0; i < std::size(ATTRIBUTES); i++) {
    if (snapshot.has[i] || value_of(line, ATTRIBUTES[i].key).data() == nullptr) continue;
    snapshot.has[i] = true;
    snapshot.lines[i] = line;
  }
}

// What the tools of an attempt find in their environment: which attempt it is, whether DHCP named its imagelist, and
// whether the fetch of that is over.
char tool_attempt[64];
char tool_imagelist[64];
char tool_stage[64];

void tell_stage(const char* stage) {
  snprintf(tool_stage, sizeof(tool_stage), "LUMENHARBOUR_STAGE=%s", stage);
  putenv(tool_stage);
}

void tell_attempt() {
  static unsigned number = 0;
  snprintf(tool_attempt, sizeof(tool_attempt), "LUMENHARBOUR_ATTEMPT=%ld-%u", static_cast<long>(getpid()), ++number);
  putenv(tool_attempt);
  const tAttribute* list = attribute_of(DHCPC_IF_IMAGELIST);
  const std::ptrdiff_t i = list - ATTRIBUTES;
  const bool is_named = snapshot.has[i] && !value_of(snapshot.lines[i], list->key).empty();
  snprintf(tool_imagelist, sizeof(tool_imagelist), "LUMENHARBOUR_IMAGELIST=%s", is_named ? "named" : "default");
  putenv(tool_imagelist);
  tell_stage("imagelist");
}

void take_snapshot() {
  snapshot = {};
  snapshot.is_taken = true;
  // A FIFO in the file's place must not hang the daemon.
  const tZorLinuxFile file = zorLinuxFileOpen(zorLinuxConf().dhcp_state, O_NONBLOCK);
  tZorLinuxLine line;
  while (file != nullptr && zorLinuxLineRead(file.get(), &line)) keep_line(line);
  if (file == nullptr || ferror(file.get()) != 0) snapshot.error = errno;
  tell_attempt();
}

bool is_given(const tAttribute& attribute) {
  return snapshot.error != ENOENT && (snapshot.error != 0 || snapshot.has[&attribute - ATTRIBUTES]);
}

int read_attribute(const tAttribute& attribute, void* result) {
  // An attempt begins with the TFTP server.
  if (attribute.attr == DHCPC_IF_TFTPSERVERIP || !snapshot.is_taken) take_snapshot();
  if (!is_given(attribute)) return -1;
  if (snapshot.error != 0) return refuse(attribute, strerror(snapshot.error));
  const tZorLinuxLine& line = snapshot.lines[&attribute - ATTRIBUTES];
  return store(attribute, line, value_of(line, attribute.key), result);
}

// No authentication message is as good as the right one. So none is answered only where DHCP gave none; one that cannot
// be read or used becomes one that matches nothing, since no text has a zero byte.
int read_auth_msg(const tAttribute& attribute, octetstring* result) {
  tell_stage("files");  // asked for when the imagelist has come, or has not
  if (read_attribute(attribute, result) == 0) return 0;
  if (!is_given(attribute) || result->len == 0) return -1;
  result->pBuf[0] = 0;
  result->len = 1;
  return 0;
}

// The start script counts failed attempts, to start a daemon anew before it has used up what they cost it.
void tell_supervisor() {
  const char* named = getenv("LUMENHARBOUR_SUPERVISOR");
  uint32 pid = 0;
  if (named == nullptr || !zorLinuxNumberRead(named, &pid) || static_cast<pid_t>(pid) != getppid()) return;
  kill(getppid(), SIGUSR1);
}

int notify_client(uint32 ifindex) {
  printf("DHCP client on interface %u: provisioning failed, fresh information wanted\n", ifindex);
  fflush(stdout);
  tell_supervisor();
  const char* command = zorLinuxConf().dhcp_notify_command;
  return command[0] == '\0' ? 0 : zorLinuxCommandRun("dhcp_notify_command", command);
}

}  // namespace

int dhcpcIfGetApi(uint32 ifindex, uint32 attr, void* result) {
  if (attr == DHCPC_IF_LUMENHARBOUR) return notify_client(ifindex);
  const tAttribute* known = attribute_of(attr);
  if (known == nullptr) return -1;
  if (attr == DHCPC_IF_AUTHMSG) return read_auth_msg(*known, static_cast<octetstring*>(result));
  return read_attribute(*known, result);
}
