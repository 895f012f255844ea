#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zor_attr.h"
#include "zor_fd.h"
#include "zor_linux.h"
#include "zor_system.h"

namespace {

constexpr std::string_view REBOOT_TEXT = "reboot";
constexpr mode_t DUMP_MODE = 0600;  // a configuration may hold passwords
constexpr mode_t DIRECTORY_MODE = 0755;

int report_failed(const char* path) {
  fprintf(stderr, "%s: saved configuration not dumped: %s\n", path, strerror(errno));
  return -1;
}

std::string_view view_of(const octetstring* text) {
  return {reinterpret_cast<const char*>(text->pBuf), text->len};
}

int get_mac(octetstring* value) {
  tZorLinuxUplink uplink;
  constexpr uint8 none[sizeof(uplink.mac)] = {};
  if (value->len < sizeof(uplink.mac) || zorLinuxUplink(&uplink) != 0) return -1;
  if (memcmp(uplink.mac, none, sizeof(none)) == 0) return -1;
  memcpy(value->pBuf, uplink.mac, sizeof(uplink.mac));
  value->len = sizeof(uplink.mac);
  return 0;
}

// A configuration that may be there but cannot be looked at counts as one byte long: better a switch that keeps what it
// has than one that takes itself for new and overwrites it.
off_t saved_size(const char* source) {
  struct stat status;
  if (stat(source, &status) == 0) return status.st_size;
  return errno == ENOENT || errno == ENOTDIR ? 0 : 1;
}

// Not truncated: until the copy is complete the file must not become empty, see `dump_write`.
int dump_open(const char* path) {
  constexpr int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
  const int fd = open(path, flags, DUMP_MODE);
  if (fd >= 0 || errno != ENOENT) return fd;
  char directory[ZOR_LINUX_TEXT_SIZE];
  const std::string_view whole = path;
  directory[zorLinuxHead(whole, whole.rfind('/')).copy(directory, sizeof(directory) - 1)] = '\0';
  if (mkdir(directory, DIRECTORY_MODE) != 0) return -1;
  return open(path, flags, DUMP_MODE);
}

bool write_all(int fd, const char* bytes, size_t count) {
  while (count > 0) {
    const ssize_t written = write(fd, bytes, count);
    if (written < 0) return false;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

// The dump gets its size before its bytes. The daemon tells a configured switch by the dump's size, and a size needs no
// room, so a copy that fails on a full RAM disk or an unreadable source still does not make the switch look new.
int dump_write(const char* source, off_t size, const char* path) {
  const tZorFd to(dump_open(path));
  if (to.fd < 0 || ftruncate(to.fd, size) != 0) return report_failed(path);
  const tZorFd from(open(source, O_RDONLY | O_CLOEXEC));
  if (from.fd < 0) return report_failed(source);
  off_t copied = 0;
  char block[4096];
  for (;;) {
    const ssize_t count = read(from.fd, block, sizeof(block));
    if (count < 0) return report_failed(source);
    if (count == 0) break;
    if (!write_all(to.fd, block, static_cast<size_t>(count))) return report_failed(path);
    copied += count;
  }
  return ftruncate(to.fd, copied) == 0 ? 0 : report_failed(path);
}

// With nothing saved, "no dump" is the answer, and a successful one.
int dump_config(const octetstring* name) {
  const std::string_view wanted = view_of(name);
  char path[ZOR_LINUX_TEXT_SIZE];
  if (wanted.empty() || wanted.size() >= sizeof(path) || wanted.find('\0') != wanted.npos) {
    fprintf(stderr, "saved configuration not dumped: file name of %zu bytes; allowed are 1 to %zu without NUL\n",
            wanted.size(), sizeof(path) - 1);
    return -1;
  }
  path[wanted.copy(path, sizeof(path) - 1)] = '\0';
  const char* source = zorLinuxConf().startup_config;
  const off_t size = saved_size(source);
  if (size != 0) return dump_write(source, size, path);
  if (unlink(path) == 0 || errno == ENOENT || errno == ENOTDIR) return 0;
  fprintf(stderr, "%s: old dump not removed: %s\n", path, strerror(errno));
  return -1;
}

}  // namespace

int zorScalarGetApi(uint32 unit, uint32 attr, octetstring* value) {
  if (unit != 0) return -1;
  if (attr == SYS_MAC_ADDRESS) return get_mac(value);
  if (attr == SYS_READ_CONFIG) return dump_config(value);
  return -1;
}

int zorScalarSetApi(uint32 unit, uint32 attr, const octetstring* value) {
  if (unit != 0 || attr != SYS_CLEAR_BIOS || view_of(value) != REBOOT_TEXT) return -1;
  return zorLinuxCommandRun("reboot_command", zorLinuxConf().reboot_command);
}

int zorLinuxCommandRun(const char* key, const char* command) {
  printf("%s: running %s\n", key, command);
  fflush(stdout);
  const int status = zor_system(command);
  if (status == 0) return 0;
  if (status == -1) {
    fprintf(stderr, "%s: \"%s\" not run: %s\n", key, command, strerror(errno));
  } else if (WIFSIGNALED(status)) {
    fprintf(stderr, "%s: \"%s\" killed by signal %d\n", key, command, WTERMSIG(status));
  } else {
    fprintf(stderr, "%s: \"%s\" failed with exit status %d\n", key, command, WEXITSTATUS(status));
  }
  return -1;
}
