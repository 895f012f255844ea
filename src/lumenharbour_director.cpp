#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lumenharbour.h"
#include "zor_fd.h"

namespace {

constexpr uint32 CLIENTS_DEFAULT = 100;
constexpr uint32 GROUPS_DEFAULT = 10;  // custom and built-in groups alike

void size_default(uint32* p_size, uint32 size) {
  if (*p_size == 0) *p_size = size;
}

bool grp_matches(tLumenHarbourGrpEntry* p_grp, const tLumenHarbourClientEntry* p_client) {
  return lumenharbour_custom_mac_lookup(p_grp, p_client->mac) != nullptr ||
         lumenharbour_custom_pid_lookup(p_grp, p_client->pid) != nullptr;
}

/// @return the custom group for a client: the smallest type, and of one type the newest; null when none matches.
tLumenHarbourGrpEntry* custom_grp_best(const tLumenHarbourClientEntry* p_client) {
  tLumenHarbourGrpEntry* p_best = nullptr;
  list_each<tLumenHarbourGrpEntry>(&gLumenHarbourInfo.custom_grp_used_tbl, [&](tLumenHarbourGrpEntry* p_grp) {
    if (!grp_matches(p_grp, p_client)) return;
    if (p_best == nullptr || p_grp->custom_type < p_best->custom_type) p_best = p_grp;
  });
  return p_best;
}

/// Ends the process with SIGSEGV.
///
/// Deliberate. The message due here, "[LumenHarbour] Lookup the best built-in group, pid is %d.\r\n", takes its number
/// from the custom group that was not found, so this point has always been a fault on a null pointer and the message
/// has never come out. Debug runs are known to stop here, and that stays. A raised signal keeps it certain where a
/// compiler may drop or move a null read; `abort` stands behind it for a process that blocks or ignores the signal.
[[noreturn]] void builtin_match_fault() {
  raise(SIGSEGV);
  abort();
}

/// @return the client with this MAC address, the newest of several, or null.
tLumenHarbourClientEntry* client_find(const uint8* p_mac) {
  return list_find<tLumenHarbourClientEntry>(&gLumenHarbourInfo.client_used_tbl,
                                             [p_mac](const tLumenHarbourClientEntry* p_client) {
                                               return memcmp(p_client->mac, p_mac, LUMENHARBOUR_MAC_SIZE) == 0;
                                             });
}

/// @return a new client with this MAC address, or null when the database is full.
tLumenHarbourClientEntry* client_new(const uint8* p_mac) {
  tLumenHarbourClientEntry* p_client = lumenharbour_client_add();
  if (p_client != nullptr) memcpy(p_client->mac, p_mac, LUMENHARBOUR_MAC_SIZE);
  return p_client;
}

/// Hands a name back without its terminator. @return 0, or -1 with nothing written when it does not fit.
int name_put(octetstring* p_room, const char* name) {
  const size_t len = strlen(name);
  if (p_room->len < len) return -1;
  p_room->len = static_cast<uint32>(len);
  memcpy(p_room->pBuf, name, len);
  return 0;
}

/// Hands back an imagelist's name: its whole path when it is local, else what follows the last slash.
int imagelist_put(octetstring* p_room, const char* path, bool local) {
  if (local) return name_put(p_room, path);
  char directory[LUMENHARBOUR_FILENAME_SIZE] = {};
  char name[LUMENHARBOUR_FILENAME_SIZE] = {};
  lumenharbour_split_path_and_name(path, static_cast<uint32>(strlen(path)), directory, name);
  return name_put(p_room, name);
}

/// Hands back the names that a group gives, or without one the director's defaults.
int names_put(tLumenHarbourGrpEntry* p_grp, octetstring* p_image_file, octetstring* p_config_file) {
  const tLumenHarbourInfo& info = gLumenHarbourInfo;
  const char* imagelist = p_grp != nullptr ? lumenharbour_grp_imagelist(p_grp) : info.default_imagelist_name;
  const char* config = p_grp != nullptr ? p_grp->config_file_name : info.default_config_name;
  const uint32 location = p_grp != nullptr ? p_grp->imagelist_is_local : info.default_imagelist_local;
  if (imagelist_put(p_image_file, imagelist, location == LUMENHARBOUR_LOCATION_LOCAL) != 0) return -1;
  return name_put(p_config_file, config);
}

/// Opens a file in a directory where everybody may write: a link that somebody planted there is not followed, a FIFO
/// not waited for. @return the descriptor, owned by the caller, or -1, also for what is no regular file.
int32 regular_open(const char* path, int flags) {
  tZorFd file(open(path, flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
  struct stat status;
  if (file.fd < 0 || fstat(file.fd, &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  return file.release();
}

}  // namespace

int lumenharbour_director_enable() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  size_default(&info.client_max_num, CLIENTS_DEFAULT);
  size_default(&info.custom_grp_max_num, GROUPS_DEFAULT);
  size_default(&info.builtin_grp_max_num, GROUPS_DEFAULT);
  info.grpid_max_num = info.custom_grp_max_num;
  if (lumenharbour_mem_alloc() != 0) return ERR_BARE_NOMEM;
  info.manage_vlan_list[0] |= 0x80;  // VLAN 0
  if (lumenharbour_default_imagelist_create() != 0) {
    lumenharbour_mem_free();
    return ERR_AUTOCFG_IMAGELIST;
  }
  info.role = LUMENHARBOUR_ROLE_DIRECTOR;
  return 0;
}

void lumenharbour_director_disable() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  list_each<tLumenHarbourGrpEntry>(&info.custom_grp_used_tbl, lumenharbour_custom_grp_del);
  list_each<tLumenHarbourGrpEntry>(&info.builtin_grp_used_tbl, lumenharbour_builtin_grp_del);
  lumenharbour_imagelist_file_remove(info.default_imagelist_name);
  lumenharbour_database_flush();
  lumenharbour_mem_free();
  memset(info.default_image_name, 0, sizeof(info.default_image_name));
  memset(info.default_config_name, 0, sizeof(info.default_config_name));
  memset(info.default_imagelist_name, 0, sizeof(info.default_imagelist_name));
  info.default_image_local = 0;
  info.default_config_local = 0;
  info.default_imagelist_local = 0;
  info.role = LUMENHARBOUR_ROLE_NONE;
}

void lumenharbour_director_timeout() {}

void lumenharbour_client_grp_lookup(tLumenHarbourClientEntry* p_client) {
  if (p_client == nullptr) return;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Lookup a group for the client %s.\r\n", tLumenHarbourMacText(p_client->mac).text);
  if (tLumenHarbourGrpEntry* p_best = custom_grp_best(p_client); p_best != nullptr) {
    p_client->p_grp = p_best;
    LUMENHARBOUR_DEBUG("[LumenHarbour] Lookup the best custom group %s.\r\n", p_best->name);
    return;
  }
  p_client->p_grp = lumenharbour_builtin_grp_lookup(p_client->pid);
  if (p_client->p_grp != nullptr && (gLumenHarbourInfo.debug & 1U) != 0) builtin_match_fault();
}

int lumenharbour_client_entry_callback(const tLumenHarbourClientInfo* p_info, octetstring* p_image_file,
                                       octetstring* p_config_file) {
  if (p_info == nullptr) return -1;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Lumenharbour client callback: %s a client: mac %s, pid %d.\r\n",
                     p_info->op != 0 ? "add" : "delete", tLumenHarbourMacText(p_info->mac).text,
                     static_cast<int>(p_info->pid));
  if (gLumenHarbourInfo.role != LUMENHARBOUR_ROLE_DIRECTOR) return -1;

  const tLumenHarbourLock lock;
  tLumenHarbourClientEntry* p_client = client_find(p_info->mac);
  if (p_info->op == 0) {
    lumenharbour_client_del(p_client);
    return 0;
  }
  if (p_image_file == nullptr || p_config_file == nullptr) return -1;
  if (p_client == nullptr) p_client = client_new(p_info->mac);
  if (p_client == nullptr) {
    p_image_file->len = 0;
    p_config_file->len = 0;
    return -1;
  }
  p_client->pid = p_info->pid;
  p_client->ip = lumenharbour_ip_read(p_info->ip);
  lumenharbour_client_grp_lookup(p_client);
  return names_put(p_client->p_grp, p_image_file, p_config_file);
}

int32 lumenharbour_imagelist_file_create(const char* p_inname, uint32 name_len, char* p_outname) {
  const char* directory = gLumenHarbourInfo.io_default_path;
  char path[LUMENHARBOUR_FILENAME_SIZE];
  const int len = snprintf(path, sizeof(path), "%s/%s.txt", directory, p_inname);
  // The announced length decides, and the real one where the two differ.
  const uint64 announced = uint64{name_len} + strlen("/.txt") + strlen(directory);
  if (announced >= sizeof(path) || static_cast<uint32>(len) >= sizeof(path)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Imagelsit file name is too long!\r\n");
    return -1;
  }
  memcpy(p_outname, path, static_cast<uint32>(len));
  LUMENHARBOUR_DEBUG("[LumenHarbour] Create imagelsit file: %s.\r\n", path);
  const int32 fd = regular_open(path, O_WRONLY | O_CREAT | O_TRUNC);
  if (fd < 0) LUMENHARBOUR_DEBUG("[LumenHarbour] Open imagelsit file ERROR!\r\n");
  return fd;
}

int lumenharbour_imagelist_file_write(int32 fd, const char* p_buf, uint32 len) {
  const tZorFd closer(fd);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Write imagelsit file: len %d, buffer: %s.\r\n", static_cast<int>(len), p_buf);
  if (len >= lumenharbour_get_fs_free_space()) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Ram disk is full!\r\n");
    return -1;
  }
  if (write(fd, p_buf, len) != static_cast<ssize_t>(len)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Write imagelist data ERROR!\r\n");
    return -1;
  }
  return 0;
}

void lumenharbour_imagelist_file_remove(const char* p_filename) {
  if (p_filename == nullptr) return;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Remove imagelsit file: %s.\r\n", p_filename);
  const tZorFd file(regular_open(p_filename, O_RDONLY));
  if (file.fd >= 0) unlink(p_filename);
}

int lumenharbour_imagelist_record_write(int32 fd, const char* image_name) {
  // The semicolon keeps the line feed out of the name that the client reads.
  char line[512] = {};
  const int len = snprintf(line, sizeof(line), "imagefile=%s;\n", image_name);
  return lumenharbour_imagelist_file_write(fd, line, static_cast<uint32>(len));
}

int lumenharbour_default_imagelist_create() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  if (info.default_image_name[0] == '\0') return 0;
  if (info.default_config_local == LUMENHARBOUR_LOCATION_LOCAL ||
      info.default_image_local == LUMENHARBOUR_LOCATION_LOCAL)
    info.default_imagelist_local = LUMENHARBOUR_LOCATION_LOCAL;
  constexpr char base_name[] = "imagelist";
  const int32 fd = lumenharbour_imagelist_file_create(base_name, sizeof(base_name) - 1, info.default_imagelist_name);
  if (fd < 0) return -1;
  if (lumenharbour_imagelist_record_write(fd, info.default_image_name) == 0) return 0;
  lumenharbour_imagelist_file_remove(info.default_imagelist_name);
  return -1;
}
