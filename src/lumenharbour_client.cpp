/// @file
/// The client role: the text and path utilities, the imagelist parser, fetching and installing files, and the timed
/// sequence from the DHCP options to the reboot.

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "lumenharbour.h"
#include "zor_attr.h"
#include "zor_dhcpc.h"
#include "zor_system.h"

namespace {

using tFileNameField = char (tLumenHarbourInfo::*)[LUMENHARBOUR_FILENAME_SIZE];

constexpr uint32 PATH_LIMIT = 255;       // a path or item of this many bytes is too long for the normaliser
constexpr uint32 MAC_TEXT_LEN = 17;      // six two-digit groups and five separators
constexpr uint32 LINE_SIZE = 512;        // imagelist line buffer
constexpr int LINE_READ_LIMIT = 511;     // with the terminator; a longer line is read as several
constexpr uint32 LINE_WORD_MAX = 256;    // bytes that a line may have before its first white space
constexpr uint32 SERVER_TEXT_SIZE = 64;  // an address as text
constexpr uint32 CHECK_INTERVAL = 60;    // seconds between attempts
constexpr char AUTH_MSG[] = "quaylanterns";
constexpr char IMAGELIST_NAME[] = "imagelist.txt";

// The longest command, an FTP fetch, has two credentials of 63 bytes, two paths of 255 and an address of 15. Room for
// all of them means that no name which a server may give is ever cut, which would run a command that means another
// file.
constexpr uint32 COMMAND_SIZE = 1024;

uint32 text_len(const char* text) {
  return static_cast<uint32>(strlen(text));
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// Text and addresses

uint32 lumenharbour_char2int(uint8 param) {
  if (param >= '0' && param <= '9') return param - uint32{'0'};
  if (param >= 'A' && param <= 'F') return param - uint32{'A'} + 10;
  if (param >= 'a' && param <= 'f') return param - uint32{'a'} + 10;
  return 0;
}

void lumenharbour_mac_str2hex(const char* mac_str, uint8* mac_hex) {
  for (size_t i = 0; i < LUMENHARBOUR_MAC_SIZE; i++) {
    const uint32 high = lumenharbour_char2int(static_cast<uint8>(mac_str[3 * i]));
    const uint32 low = lumenharbour_char2int(static_cast<uint8>(mac_str[3 * i + 1]));
    mac_hex[i] = static_cast<uint8>(high << 4 | low);
  }
}

tLumenHarbourMacText::tLumenHarbourMacText(const uint8* mac) {
  snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

namespace {

/// @return false when the text does not end within `PATH_LIMIT` bytes.
bool backslashes_turn(char* str) {
  for (uint32 i = 0; i < PATH_LIMIT; i++) {
    if (str[i] == '\0') return true;
    if (str[i] == '\\') str[i] = '/';
  }
  return false;
}

/// Drops every run of dots that follows a slash: "..", but the dot of a hidden name too. Names that come from the
/// network depend on it: they cannot climb out of a directory.
void slash_dots_drop(char* str) {
  bool after_slash = false;
  char* out = str;
  for (const char* in = str; *in != '\0'; in++) {
    if (*in == '.' && after_slash) continue;
    after_slash = *in == '/';
    *out++ = *in;
  }
  *out = '\0';
}

void slash_runs_collapse(char* str) {
  char last = '\0';
  char* out = str;
  for (const char* in = str; *in != '\0'; in++) {
    if (*in != '/' || last != '/') *out++ = *in;
    last = *in;
  }
  *out = '\0';
}

}  // namespace

int32 lumenharbour_left_to_right_slash(char* str, uint32 len) {
  if (len >= PATH_LIMIT || !backslashes_turn(str)) {
    str[0] = '\0';
    return -1;
  }
  slash_dots_drop(str);
  slash_runs_collapse(str);
  return 0;
}

int32 lumenharbour_split_path_and_name(const char* p_str, uint32 str_len, char* p_filepath, char* p_filename) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Split the file: %s to path and name.\r\n", p_str);
  const char* p_slash = strrchr(p_str, '/');
  if (p_slash == nullptr) {
    p_filepath[0] = '\0';
    memcpy(p_filename, p_str, str_len);
    return 0;
  }
  const uint32 dir_len = std::min(static_cast<uint32>(p_slash - p_str) + 1, str_len);
  memcpy(p_filepath, p_str, dir_len);
  memcpy(p_filename, p_str + dir_len, str_len - dir_len);
  return 0;
}

uint32 lumenharbour_get_fs_free_space() {
  struct sysinfo info = {};
  if (sysinfo(&info) != 0) return 0;
  return static_cast<uint32>(std::min<uint64>(info.freeram, std::numeric_limits<uint32>::max()));
}

// ---------------------------------------------------------------------------------------------------------------------
// The imagelist

namespace {

/// A key of an imagelist item whose value is kept.
struct tImagelistKey {
  const char* word;      ///< the key, case-sensitive
  tFileNameField field;  ///< where the value goes
  const char* message;   ///< debug message with the value
};

constexpr tImagelistKey IMAGELIST_KEYS[] = {
    {"imagefile", &tLumenHarbourInfo::rcv_image_name, "[LumenHarbour] Image file name is %s.\r\n"},
    {"imagever", &tLumenHarbourInfo::image_version, "[LumenHarbour] Image file version is %s.\r\n"},
    {"cfgfile", &tLumenHarbourInfo::rcv_config_name, "[LumenHarbour] Config file name is %s.\r\n"},
};

bool key_is(const char* item, uint32 key_len, const char* word) {
  return key_len == text_len(word) && strncmp(item, word, key_len) == 0;
}

/// @return false when the item names another switch.
bool mac_item_match(const char* value) {
  // A short value is filled up with zero digits, not with whatever follows it in the line.
  char text[MAC_TEXT_LEN + 1] = {};
  strncpy(text, value, MAC_TEXT_LEN);
  uint8 mac[LUMENHARBOUR_MAC_SIZE];
  lumenharbour_mac_str2hex(text, mac);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Mac address is %s.\r\n", tLumenHarbourMacText(mac).text);
  if (memcmp(mac, gLumenHarbourInfo.sys_mac, sizeof(mac)) == 0) return true;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Mac address mismatch!\r\n");
  return false;
}

/// Takes one item of a line.
///
/// Lengths are those from before the normaliser, words and values those from after it. Both fit together: a key that
/// the normaliser changes has a slash, which stays in its place and matches no word, and an item that it empties
/// matches none either. So the value of a known key stands behind the "=" that was measured.
///
/// @return false when the line is for another switch
bool item_take(char* item) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] String is: %s\r\n", item);
  const char* p_equal = strchr(item, '=');
  if (p_equal == nullptr) return true;
  const uint32 item_len = text_len(item);
  const uint32 key_len = static_cast<uint32>(p_equal - item);
  LUMENHARBOUR_DEBUG("[LumenHarbour] String length is %d, key length is %d.\r\n", static_cast<int>(item_len),
                     static_cast<int>(key_len));
  lumenharbour_left_to_right_slash(item, item_len);

  const char* value = item + key_len + 1;
  if (key_is(item, key_len, "mac")) return mac_item_match(value);
  for (const tImagelistKey& key : IMAGELIST_KEYS) {
    if (!key_is(item, key_len, key.word)) continue;
    char* field = gLumenHarbourInfo.*key.field;
    memset(field, 0, LUMENHARBOUR_FILENAME_SIZE);
    memcpy(field, value, strlen(value));  // fits, or the item would have been emptied
    LUMENHARBOUR_DEBUG(key.message, field);
    break;
  }
  return true;
}

uint32 first_word_len(const char* line) {
  uint32 len = 0;
  while (line[len] != '\0' && isspace(static_cast<unsigned char>(line[len])) == 0) len++;
  return len;
}

}  // namespace

int32 lumenharbour_get_file_info(char* p_buf, uint32 len) {
  if (p_buf == nullptr || len == 0) return -1;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Parse information: len %d, string is %s\r\n", static_cast<int>(len), p_buf);
  char* rest = nullptr;
  for (char* item = strtok_r(p_buf, ";", &rest); item != nullptr; item = strtok_r(nullptr, ";", &rest)) {
    // What the line said before its "mac" item stays: writers of lists for several switches put that item first.
    if (!item_take(item)) return -1;
  }
  return 0;
}

int32 lumenharbour_parse_imagelist_file(const char* p_filename, [[maybe_unused]] uint32 name_len) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Parse the imagelsit file %s.\r\n", p_filename);
  // Never closed, deliberately: the stream goes with the process, which a provisioned switch restarts. One that keeps
  // failing opens another each minute. The tools that it runs do not inherit it.
  FILE* file = fopen(p_filename, "re");
  if (file == nullptr) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Open the imagelsit file ERROR!\r\n");
    return -1;
  }
  char line[LINE_SIZE] = {};
  while (fgets(line, LINE_READ_LIMIT, file) != nullptr) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Imagelist file information is %s\r\n", line);
    if (line[0] == '\0') continue;
    const uint32 len = first_word_len(line);
    if (len > LINE_WORD_MAX) return -1;
    // The line goes on whole, so that a name keeps its blanks, and its line end where the writer left out the last ";".
    if (lumenharbour_get_file_info(line, len) == 0) return 0;
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get file information ERROR!\r\n");
    memset(line, 0, sizeof(line));
  }
  return -1;
}

// ---------------------------------------------------------------------------------------------------------------------
// Fetching and installing files

namespace {

/// Echoes a command line on standard output, whatever the debug switch says, and runs it with the shell. Names are not
/// quoted: the shell sees them as the server gave them.
///
/// @param[in] label,line_end  what stands before and behind the command in the echo
/// @return 0 when the command succeeded; `errno` tells more of a failure, if there is more to tell
[[gnu::format(printf, 3, 4)]] int command_run(const char* label, const char* line_end, const char* format, ...) {
  char command[COMMAND_SIZE];
  va_list args;
  va_start(args, format);
  const int len = vsnprintf(command, sizeof(command), format, args);
  va_end(args);
  if (len < 0 || static_cast<uint32>(len) >= sizeof(command)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  printf("%s%s%s", label, command, line_end);
  fflush(stdout);  // what the tool prints comes after its command line
  return zor_system(command);
}

/// Writes the file server's address as text. @return false, with a line on standard error, when it has none.
bool server_text(char (&text)[SERVER_TEXT_SIZE]) {
  if (inet_ntop(AF_INET, &gLumenHarbourInfo.ftp_server, text, sizeof(text) - 1) != nullptr) return true;
  perror("server ip is invalid:");
  return false;
}

/// Judges a transfer by the command's result alone; an empty file is a success.
int32 transfer_finish(int rc, const char* p_localfile, uint32* p_rcvbytes, int32* p_status) {
  struct stat status = {};
  if (rc != 0 || stat(p_localfile, &status) != 0) {
    *p_status = errno;
    return -1;
  }
  *p_rcvbytes = static_cast<uint32>(status.st_size);
  return 0;
}

/// What differs between the kinds of file that are fetched.
struct tFileKind {
  tFileNameField local_name;            ///< where the local path is kept
  uint32 tLumenHarbourInfo::*rcv_size;  ///< where the size is kept
  const char* message;                  ///< debug message with the local path
};

constexpr tFileKind IMAGELIST_KIND = {&tLumenHarbourInfo::local_imagelist_name, &tLumenHarbourInfo::imagelist_file_rcv,
                                      "[LumenHarbour] Local imagelist file name: %s.\r\n"};
constexpr tFileKind IMAGE_KIND = {&tLumenHarbourInfo::local_image_name, &tLumenHarbourInfo::image_file_rcv,
                                  "[LumenHarbour] Local image file name: %s.\r\n"};
constexpr tFileKind CONFIG_KIND = {&tLumenHarbourInfo::local_config_name, &tLumenHarbourInfo::config_file_rcv,
                                   "[LumenHarbour] Local config file name: %s.\r\n"};

const tFileKind& file_kind(uint32 file_type) {
  if (file_type == LUMENHARBOUR_FILE_IMAGELIST) return IMAGELIST_KIND;
  return file_type == LUMENHARBOUR_FILE_IMAGE ? IMAGE_KIND : CONFIG_KIND;
}

}  // namespace

int32 lumenharbour_get_file_by_tftp(const char* p_remotefile, [[maybe_unused]] uint32 name_len, const char* p_localfile,
                                    uint32* p_rcvbytes, int32* p_status) {
  char server[SERVER_TEXT_SIZE];
  if (!server_text(server)) return -1;
  const int rc = command_run("cmd: ", "\n", "tftp -g -r %s -l %s %s", p_remotefile, p_localfile, server);
  return transfer_finish(rc, p_localfile, p_rcvbytes, p_status);
}

int32 lumenharbour_get_file_by_ftp(const char* p_remotepath, const char* p_remotename, const char* p_localfile,
                                   uint32* p_rcvbytes, int32* p_status) {
  char server[SERVER_TEXT_SIZE];
  if (!server_text(server)) return -1;
  // The echo shows the password; operators read the console to see what was tried.
  const int rc = command_run("cmd: ", "\r\n", "ftpget -u %s -p %s %s %s %s%s", gLumenHarbourInfo.ftp_username,
                             gLumenHarbourInfo.ftp_password, server, p_localfile, p_remotepath, p_remotename);
  return transfer_finish(rc, p_localfile, p_rcvbytes, p_status);
}

int32 lumenharbour_get_file(const char* p_remotefile, uint32 len, uint32 file_type, int32* p_status) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Get the file: %s.\r\n", p_remotefile);
  char path[LUMENHARBOUR_FILENAME_SIZE] = {};
  char name[LUMENHARBOUR_FILENAME_SIZE] = {};
  if (lumenharbour_split_path_and_name(p_remotefile, len, path, name) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Split the imagelsit file path and name ERROR!\r\n");
    return -1;
  }
  LUMENHARBOUR_DEBUG("[LumenHarbour] File path is: %s, name is: %s.\r\n", path, name);
  char local[2 * LUMENHARBOUR_FILENAME_SIZE];
  const int local_len = snprintf(local, sizeof(local), "%s/%s", gLumenHarbourInfo.io_default_path, name);
  if (static_cast<uint32>(local_len) >= LUMENHARBOUR_FILENAME_SIZE) return -1;

  const tFileKind& kind = file_kind(file_type);
  char* p_local = gLumenHarbourInfo.*kind.local_name;
  uint32* p_rcvbytes = &(gLumenHarbourInfo.*kind.rcv_size);
  memcpy(p_local, local, strlen(local) + 1);
  LUMENHARBOUR_DEBUG(kind.message, p_local);

  lumenharbour_unlock();
  // A TFTP server serves from its root, so the directory goes; an FTP name keeps it.
  const int32 rc = gLumenHarbourInfo.tftp_support == 1
                       ? lumenharbour_get_file_by_tftp(name, text_len(name), p_local, p_rcvbytes, p_status)
                       : lumenharbour_get_file_by_ftp(path, name, p_local, p_rcvbytes, p_status);
  lumenharbour_lock();
  return rc;
}

int32 lumenharbour_update_image_file() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Update system image file.\r\n");
  if (command_run("cmd: ", "\n", "flashcp -v %s /dev/mtd5", gLumenHarbourInfo.local_image_name) == 0) return 0;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Update system image file ERROR errno %u!\r\n", static_cast<unsigned>(errno));
  return -1;
}

int32 lumenharbour_update_config_file() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Update system config file.\r\n");
  if (command_run("cmd:", "\n", "mv  %s /mnt/mtd/startcfg", gLumenHarbourInfo.local_config_name) == 0) return 0;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Write startcfg file ERROR errno %u!\r\n", static_cast<unsigned>(errno));
  return -1;
}

// ---------------------------------------------------------------------------------------------------------------------
// Starting and stopping the role

namespace {

/// @return true when the switch has a saved start-up configuration. The platform dumps it on request, and leaves no
/// dump when there is none.
bool config_is_saved() {
  char path[] = "/Ram/startcfg";
  octetstring value = {reinterpret_cast<uint8*>(path), sizeof(path) - 1};
  zorScalarGetApi(0, SYS_READ_CONFIG, &value);
  struct stat status = {};
  return stat(path, &status) == 0 && status.st_size != 0;
}

}  // namespace

void lumenharbour_notify_timer_start(uint32 seconds) {
  constexpr tTimerCallback callback = [](uintptr_t, uintptr_t, uintptr_t) { lumenharbour_timeout(); };
  timerStart(&gLumenHarbourInfo.timer_list, &gLumenHarbourInfo.notify_timer,
             uint64{seconds} * gLumenHarbourInfo.sys_clk_rate, callback, 0, 0, 0);
}

int lumenharbour_client_enable(uint32 init) {
  const tPhyIfInfo port = {.unit = 1, .slot = 1, .port = 1, .channel = 1, .virtualnum = 1, .endType = 3, .card = 0};
  zorIndexTrans(&port, SYS_PHY2LOGICAL_NUM, &gLumenHarbourInfo.dhcp_client_vlan);
  if (config_is_saved()) return 0;

  gLumenHarbourInfo.check_interval = CHECK_INTERVAL;
  memset(gLumenHarbourInfo.auth_msg, 0, sizeof(gLumenHarbourInfo.auth_msg));
  memcpy(gLumenHarbourInfo.auth_msg, AUTH_MSG, sizeof(AUTH_MSG));
  if (init != 0) {
    gLumenHarbourInfo.upgrade_mode = LUMENHARBOUR_UPGRADE_AUTO;
    lumenharbour_notify_timer_start(CHECK_INTERVAL);
  }
  lumenharbour_info_clear();
  gLumenHarbourInfo.role = LUMENHARBOUR_ROLE_CLIENT;
  gLumenHarbourInfo.dhcp_client_notify = 1;
  return 0;
}

void lumenharbour_client_disable() {
  lumenharbour_local_files_remove();
  lumenharbour_info_clear();
  timerStop(&gLumenHarbourInfo.timer_list, &gLumenHarbourInfo.notify_timer);
  gLumenHarbourInfo.role = LUMENHARBOUR_ROLE_NONE;
}

void lumenharbour_local_files_remove() {
  constexpr tFileNameField fields[] = {&tLumenHarbourInfo::local_imagelist_name, &tLumenHarbourInfo::local_image_name,
                                       &tLumenHarbourInfo::local_config_name};
  // Not remove(), which takes empty directories too: the path of a file without a name is the download directory.
  for (const tFileNameField field : fields)
    if ((gLumenHarbourInfo.*field)[0] != '\0') unlink(gLumenHarbourInfo.*field);
}

void lumenharbour_info_clear() {
  gLumenHarbourInfo.image_file_rcv = 0;
  gLumenHarbourInfo.config_file_rcv = 0;
  gLumenHarbourInfo.imagelist_file_rcv = 0;
  gLumenHarbourInfo.ftp_server = 0;
  gLumenHarbourInfo.reboot_time = 0;
  gLumenHarbourInfo.tftp_support = 0;
  gLumenHarbourInfo.reboot_flag = 0;
  memset(gLumenHarbourInfo.ftp_username, 0, sizeof(gLumenHarbourInfo.ftp_username));
  memset(gLumenHarbourInfo.ftp_password, 0, sizeof(gLumenHarbourInfo.ftp_password));
  constexpr tFileNameField fields[] = {&tLumenHarbourInfo::rcv_imagelist_name,   &tLumenHarbourInfo::image_version,
                                       &tLumenHarbourInfo::rcv_config_name,      &tLumenHarbourInfo::rcv_image_name,
                                       &tLumenHarbourInfo::local_imagelist_name, &tLumenHarbourInfo::local_image_name,
                                       &tLumenHarbourInfo::local_config_name};
  for (const tFileNameField field : fields) memset(gLumenHarbourInfo.*field, 0, LUMENHARBOUR_FILENAME_SIZE);
}

// ---------------------------------------------------------------------------------------------------------------------
// The provisioning step

namespace {

/// The one octet string of a step. The byte behind its room stays zero, so that the longest value prints as text too.
struct tDhcpText {
  uint8 buf[LUMENHARBOUR_FILENAME_SIZE + 1] = {};
  octetstring value = {buf, LUMENHARBOUR_FILENAME_SIZE};
};

int number_read(uint32 attr, uint32* number) {
  return gLumenHarbourInfo.api_func(gLumenHarbourInfo.dhcp_client_vlan, attr, number);
}

int text_read(tDhcpText& text, uint32 attr) {
  memset(text.buf, 0, sizeof(text.buf));
  text.value.len = LUMENHARBOUR_FILENAME_SIZE;
  return gLumenHarbourInfo.api_func(gLumenHarbourInfo.dhcp_client_vlan, attr, &text.value);
}

/// Copies the value, at most `limit` bytes of it. @return the bytes copied.
uint32 text_copy(const tDhcpText& text, char* field, uint32 limit) {
  const uint32 len = std::min(text.value.len, limit);
  memcpy(field, text.buf, len);
  return len;
}

bool credential_read(tDhcpText& text, uint32 attr, char* field) {
  if (text_read(text, attr) == -1 || text.value.len == 0) return false;
  text_copy(text, field, LUMENHARBOUR_TEXT_SIZE - 1);
  return true;
}

bool ftp_server_find(tDhcpText& text) {
  uint32 ip = 0;
  if (number_read(DHCPC_IF_FTPSERVERIP, &ip) == -1 || ip == 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get FTP server ip address failed!\r\n");
    return false;
  }
  gLumenHarbourInfo.ftp_server = htonl(ip);
  if (!credential_read(text, DHCPC_IF_FTPUSERNAME, gLumenHarbourInfo.ftp_username)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get FTP username failed!\r\n");
    return false;
  }
  if (!credential_read(text, DHCPC_IF_FTPPASSWORD, gLumenHarbourInfo.ftp_password)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get FTP password failed!\r\n");
    return false;
  }
  return true;
}

bool server_find(tDhcpText& text) {
  uint32 ip = 0;
  if (number_read(DHCPC_IF_TFTPSERVERIP, &ip) == 0 && ip != 0) {
    gLumenHarbourInfo.ftp_server = htonl(ip);
    gLumenHarbourInfo.tftp_support = 1;
    return true;
  }
  LUMENHARBOUR_DEBUG("[LumenHarbour] Get TFTP server ip address failed!\r\n");
  return ftp_server_find(text);
}

/// Reads a file name into `field`, which is zero. @return false when DHCP has none.
bool name_read(tDhcpText& text, uint32 attr, char* field, uint32 limit) {
  if (text_read(text, attr) != 0 || text.value.len == 0) return false;
  lumenharbour_left_to_right_slash(field, text_copy(text, field, limit));
  return true;
}

void names_read(tDhcpText& text) {
  constexpr uint32 limit = LUMENHARBOUR_FILENAME_SIZE - 1;
  name_read(text, DHCPC_IF_CONFIGFILE, gLumenHarbourInfo.rcv_config_name, limit);
  // Alone of the three the image name is taken at its full length: one that fills its field loses its terminator, but
  // the normaliser then empties it.
  name_read(text, DHCPC_IF_IMAGEFILE, gLumenHarbourInfo.rcv_image_name, LUMENHARBOUR_FILENAME_SIZE);
  if (!name_read(text, DHCPC_IF_IMAGELIST, gLumenHarbourInfo.rcv_imagelist_name, limit)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get imagelist file name, get the defalut imagelist file!\r\n");
    memcpy(gLumenHarbourInfo.rcv_imagelist_name, IMAGELIST_NAME, sizeof(IMAGELIST_NAME));
  }
}

void reboot_time_read() {
  if (number_read(DHCPC_IF_REBOOTTIME, &gLumenHarbourInfo.reboot_time) != 0)
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get reboot time!\r\n");
  LUMENHARBOUR_DEBUG("[LumenHarbour] Reboot time is %d.\r\n", static_cast<int>(gLumenHarbourInfo.reboot_time));
}

bool file_fetch(const char* p_remotefile, uint32 file_type) {
  int32 status = 0;  // nobody asks why a transfer failed; the tool has printed it
  return lumenharbour_get_file(p_remotefile, text_len(p_remotefile), file_type, &status) == 0;
}

/// The imagelist is optional: without one, or with one that is not for this switch, the names that DHCP gave count.
void imagelist_fetch() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Get imagelist file.\r\n");
  if (!file_fetch(gLumenHarbourInfo.rcv_imagelist_name, LUMENHARBOUR_FILE_IMAGELIST)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get imagelist file!\r\n");
    return;
  }
  const char* p_local = gLumenHarbourInfo.local_imagelist_name;
  lumenharbour_parse_imagelist_file(p_local, text_len(p_local));
}

/// @return false when the DHCP server presents a wrong message; one that presents none is trusted.
bool server_is_trusted(tDhcpText& text) {
  if (text_read(text, DHCPC_IF_AUTHMSG) != 0 || text.value.len == 0) return true;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Authentication message is %s\r\n", reinterpret_cast<const char*>(text.buf));
  return text.value.len == text_len(gLumenHarbourInfo.auth_msg) &&
         memcmp(text.buf, gLumenHarbourInfo.auth_msg, text.value.len) == 0;
}

bool image_install() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Get image file.\r\n");
  if (!file_fetch(gLumenHarbourInfo.rcv_image_name, LUMENHARBOUR_FILE_IMAGE)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get image file!\r\n");
    return false;
  }
  return lumenharbour_update_image_file() == 0;
}

bool config_install() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Get config file.\r\n");
  if (!file_fetch(gLumenHarbourInfo.rcv_config_name, LUMENHARBOUR_FILE_CONFIG)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get config file!\r\n");
    return false;
  }
  if (lumenharbour_update_config_file() != 0) return false;
  gLumenHarbourInfo.imageUpFlag = 1;
  return true;
}

/// Installs what is wanted, the image first. A retry installs the image again, but a configuration only once.
bool files_install() {
  const bool automatic = gLumenHarbourInfo.upgrade_mode == LUMENHARBOUR_UPGRADE_AUTO;
  const bool image = (automatic && gLumenHarbourInfo.rcv_image_name[0] != '\0') || gLumenHarbourInfo.upgrade_image == 1;
  const bool config =
      (automatic && gLumenHarbourInfo.rcv_config_name[0] != '\0') || gLumenHarbourInfo.upgrade_config == 1;
  if (!image && !config) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get image and config file name!\r\n");
    return false;
  }
  if (image && !image_install()) return false;
  return !config || gLumenHarbourInfo.imageUpFlag == 1 || config_install();
}

bool attempt_run(tDhcpText& text) {
  if (!server_find(text)) return false;
  names_read(text);
  reboot_time_read();
  imagelist_fetch();
  return server_is_trusted(text) && files_install();
}

void reboot_request() {
  uint8 request[] = "reboot";
  const octetstring value = {request, sizeof(request) - 1};
  zorScalarSetApi(0, SYS_CLEAR_BIOS, &value);
}

void notify_timer_restart(uint32 seconds) {
  timerRestart(&gLumenHarbourInfo.timer_list, &gLumenHarbourInfo.notify_timer,
               uint64{seconds} * gLumenHarbourInfo.sys_clk_rate);
}

void attempt_succeeded() {
  const uint32 delay = std::max(
      {gLumenHarbourInfo.reboot_time, gLumenHarbourInfo.image_reload_time, gLumenHarbourInfo.config_reload_time});
  LUMENHARBOUR_DEBUG("[LumenHarbour] System will reboot in %d(s).\r\n", static_cast<int>(delay));
  if (delay == 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Reboot time is zero, reboot system now.\r\n");
    reboot_request();
    return;
  }
  gLumenHarbourInfo.reboot_flag = 1;
  notify_timer_restart(delay);
}

void attempt_failed(tDhcpText& text) {
  if (gLumenHarbourInfo.dhcp_client_notify == 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Don't send notify message to dhcp client.\r\n");
    return;
  }
  // The DHCP client may now look for fresh options. What the octet string holds means nothing to it.
  if (gLumenHarbourInfo.dhcp_client_callback != nullptr)
    gLumenHarbourInfo.dhcp_client_callback(gLumenHarbourInfo.dhcp_client_vlan, DHCPC_IF_LUMENHARBOUR, &text.value);
  notify_timer_restart(gLumenHarbourInfo.check_interval);
}

}  // namespace

void lumenharbour_client_switch_timeout() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Client timeout.\r\n");
  if (gLumenHarbourInfo.reboot_flag == 1) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Reboot system now.\r\n");
    reboot_request();
    return;
  }
  if (gLumenHarbourInfo.api_func == nullptr) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Information get api is NULL!\r\n");
    return;
  }
  lumenharbour_info_clear();
  tDhcpText text;
  if (attempt_run(text)) {
    attempt_succeeded();
  } else {
    attempt_failed(text);
  }
}
