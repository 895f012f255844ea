#pragma once

/// @file
/// What the pieces of the Linux platform share: the record read from platform.conf, and small functions for files and
/// commands. Nothing outside this folder includes it but the platform's own tests.

#include <net/if.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

#include "zor_types.h"

constexpr std::size_t ZOR_LINUX_TEXT_SIZE = 512;   ///< room for a path or command, terminator included
constexpr std::size_t ZOR_LINUX_LINE_SIZE = 1024;  ///< longest line of a file that the platform reads

/// What platform.conf says, or its defaults; all texts are terminated.
struct tZorLinuxConf {
  char uplink[IF_NAMESIZE];                       ///< interface name; empty: the first that has a hardware address
  char startup_config[ZOR_LINUX_TEXT_SIZE];       ///< path of the saved start-up configuration
  char reboot_command[ZOR_LINUX_TEXT_SIZE];       ///< shell command that restarts the switch
  char dhcp_state[ZOR_LINUX_TEXT_SIZE];           ///< path of what the DHCP client's hook writes
  char dhcp_notify_command[ZOR_LINUX_TEXT_SIZE];  ///< shell command, empty for none
  uint32 clock_speed;                             ///< 1 to 1000
};

/// @return the record. The first call reads the file that the environment variable `LUMENHARBOUR_PLATFORM_CONF` names,
///         or else /etc/lumenharbour/platform.conf where that exists.
const tZorLinuxConf& zorLinuxConf();

/// Fills the record afresh: defaults, then what a file says in lines of `key = value`. A `#` that begins a line or
/// follows a blank begins a comment. What is wrong is reported on standard error as `FILE:LINE: what is wrong` and
/// changes nothing.
///
/// @param[in] path      the file
/// @param[in] optional  true: a file that does not exist is not reported
void zorLinuxConfLoad(const char* path, bool optional);

/// The interface that carries the switch's identity and its DHCP client.
struct tZorLinuxUplink {
  uint32 index;  ///< kernel's interface index
  uint8 mac[6];  ///< hardware address, zero when the interface has none
};

/// Looks the uplink up among the present interfaces.
///
/// @param[out] uplink  left alone on failure
/// @return 0, or -1 when there is none
int zorLinuxUplink(tZorLinuxUplink* uplink);

/// Runs a shell command and says so on standard output; a failure is reported on standard error.
///
/// @param[in] key      key of platform.conf that names the command, for the messages
/// @param[in] command  the command
/// @return 0 when it ended with status 0, else -1
int zorLinuxCommandRun(const char* key, const char* command);

/// Closes a file; for `tZorLinuxFile`.
struct tZorLinuxFileClose {
  void operator()(FILE* file) const { fclose(file); }
};
using tZorLinuxFile = std::unique_ptr<FILE, tZorLinuxFileClose>;

/// Opens a file for reading, close-on-exec.
///
/// @param[in] flags  more flags of open(2)
/// @return the file, or null with `errno` set
tZorLinuxFile zorLinuxFileOpen(const char* path, int flags = 0);

/// One line of a file, as it stands there: it may hold any byte, NUL included, except its newline.
struct tZorLinuxLine {
  char text[ZOR_LINUX_LINE_SIZE];  ///< not terminated
  std::size_t len;                 ///< bytes in `text`
  bool cut;                        ///< the line is longer; what follows `text` is skipped
};

/// Reads the next line; the last one may lack its newline. @return false at the end of the file or on a read error.
bool zorLinuxLineRead(FILE* file, tZorLinuxLine* line);

/// Reads a decimal number that is digits only. @return false when it is anything else or exceeds 32 bits; `number` is
/// then left alone.
bool zorLinuxNumberRead(std::string_view text, uint32* number);

/// @return whether a byte is a control character: below a blank, or DEL.
constexpr bool zorLinuxIsControl(char c) {
  return static_cast<uint8>(c) < 0x20 || c == 0x7F;
}

/// @return the first `n` bytes of a text, or all of them. Unlike `substr`, this and the next cannot throw, so that the
///         daemon does not need the C++ library's shared object for an exception that never comes.
constexpr std::string_view zorLinuxHead(std::string_view text, std::size_t n) {
  return {text.data(), std::min(n, text.size())};
}

/// @return what follows the first `n` bytes of a text, or nothing.
constexpr std::string_view zorLinuxTail(std::string_view text, std::size_t n) {
  text.remove_prefix(std::min(n, text.size()));
  return text;
}
