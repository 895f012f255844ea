#pragma once

/// @file
/// The daemon: its one global record, the roles, and the functions that the pieces call of each other.
///
/// Everything runs on one thread, to completion. `lumenharbour_lock` marks where a lock would stand.

#include "lumenharbour_database.h"
#include "lumenharbour_group.h"
#include "lumenharbour_nm.h"
#include "zor_debug.h"
#include "zor_osix.h"
#include "zor_timer.h"
#include "zor_types.h"

/// Roles of the switch.
enum : uint32 {
  LUMENHARBOUR_ROLE_NONE = 0,
  LUMENHARBOUR_ROLE_CLIENT = 1,
  LUMENHARBOUR_ROLE_DIRECTOR = 2,
};

/// How a client came to want its files.
enum : uint32 {
  LUMENHARBOUR_UPGRADE_AUTO = 1,    ///< whatever names DHCP and the imagelist give
  LUMENHARBOUR_UPGRADE_MANUAL = 2,  ///< what management asked for: `upgrade_image`, `upgrade_config`
};

/// Kinds of file that a client fetches.
enum : uint32 {
  LUMENHARBOUR_FILE_IMAGELIST = 1,
  LUMENHARBOUR_FILE_IMAGE = 2,
  LUMENHARBOUR_FILE_CONFIG = 3,
};

/// What a location kind of 1 means: the file lies on the director itself, and its imagelist is named by its full path.
constexpr uint32 LUMENHARBOUR_LOCATION_LOCAL = 1;

/// Signature of the DHCP client's attribute function; see `dhcpcIfGetApi`.
using tLumenHarbourDhcpFunc = int (*)(uint32 ifindex, uint32 attr, void* result);

/// All state of the daemon. Zero after start-up unless a field says otherwise. "Management" is the handlers of
/// `lumenharbour_nm.h`, "the client role" the functions of `lumenharbour_client.cpp`.
struct tLumenHarbourInfo {
  tOsixSemId sem;              ///< semaphore, never taken; created at start-up, kept after its deletion at shutdown
  tTimerLst timer_list;        ///< the daemon's timers; run by the main loop
  tTimerNode notify_timer;     ///< drives the client role's step; started by the client role and management
  int32 rt_socket;             ///< route message socket, -1: closed; open while a role runs
  int32 cmd_socket;            ///< listening management socket, -1: closed; open from start-up on
  uint32 sys_clk_rate;         ///< timer ticks per second, 100; set at start-up
  uint32 check_interval;       ///< seconds between attempts, 60; set when the client role starts
  uint32 client_max_num;       ///< client records; command line, 0 becomes 100 when the director starts
  uint32 custom_grp_max_num;   ///< custom group records; command line, 0 becomes 10 when the director starts
  uint32 builtin_grp_max_num;  ///< built-in group records; command line, 0 becomes 10 when the director starts
  uint32 grpid_max_num;        ///< member records of all custom groups together; always `custom_grp_max_num`
  uint8 manage_vlan_list[LUMENHARBOUR_VLANLIST_SIZE];  ///< management VLANs, VLAN 0 in the first byte's top bit;
                                                       ///< management, director start
  uint32 dhcp_client_vlan;                 ///< interface unit on which the DHCP client runs; management, client role
  tLumenHarbourClientEntry* client_tbl;    ///< client pool, null unless the director role runs
  list_head client_free_tbl;               ///< clients never used, those of a released pool first
  list_head client_used_tbl;               ///< clients in use, the newest first
  tLumenHarbourGrpEntry* custom_grp_tbl;   ///< custom group pool, null unless the director role runs
  list_head custom_grp_free_tbl;           ///< free custom groups, those of a released pool last
  list_head custom_grp_used_tbl;           ///< custom groups in use, the newest first
  tLumenHarbourGrpEntry* builtin_grp_tbl;  ///< built-in group pool, null unless the director role runs
  list_head builtin_grp_free_tbl;          ///< free built-in groups, those of a released pool last
  list_head builtin_grp_used_tbl;          ///< built-in groups in use, the newest first
  tLumenHarbourGrpIdEntry* grpid_tbl;      ///< member pool, null unless the director role runs
  list_head grpid_free_tbl;                ///< free members, those of a released pool last; others hang on groups
  tLumenHarbourDhcpFunc api_func;          ///< reads a DHCP attribute; set at start-up
  tLumenHarbourDhcpFunc dhcp_client_callback;  ///< tells the DHCP client of a failed attempt; set at start-up
  uint32 image_file_rcv;                       ///< bytes of the last image fetched; client role
  uint32 config_file_rcv;                      ///< bytes of the last configuration fetched; client role
  uint32 imagelist_file_rcv;                   ///< bytes of the last imagelist fetched; client role
  uint32 director_ip;  ///< director's IPv4 address, first byte most significant; management, 0 once disabled
  uint32 if_unit;      ///< interface unit that carries the director address; management, route messages
  uint32 ftp_server;   ///< file server, TFTP or FTP, network byte order; client role, from DHCP
  char ftp_username[LUMENHARBOUR_TEXT_SIZE];                ///< client role, from DHCP
  char ftp_password[LUMENHARBOUR_TEXT_SIZE];                ///< client role, from DHCP
  char default_image_name[LUMENHARBOUR_FILENAME_SIZE];      ///< image for clients without a group; management
  char default_config_name[LUMENHARBOUR_FILENAME_SIZE];     ///< configuration for clients without a group; management
  char default_imagelist_name[LUMENHARBOUR_FILENAME_SIZE];  ///< path of the default imagelist; director role
  char rcv_imagelist_name[LUMENHARBOUR_FILENAME_SIZE];      ///< remote imagelist; client role, from DHCP
  char local_imagelist_name[LUMENHARBOUR_FILENAME_SIZE];    ///< path of the fetched imagelist; client role
  char rcv_image_name[LUMENHARBOUR_FILENAME_SIZE];          ///< remote image; client role, from DHCP or imagelist
  char local_image_name[LUMENHARBOUR_FILENAME_SIZE];        ///< path of the fetched image; client role
  char image_version[LUMENHARBOUR_FILENAME_SIZE];           ///< version named in the imagelist, shown only; client role
  char rcv_config_name[LUMENHARBOUR_FILENAME_SIZE];    ///< remote configuration; client role, from DHCP or imagelist
  char local_config_name[LUMENHARBOUR_FILENAME_SIZE];  ///< path of the fetched configuration; client role
  char auth_msg[LUMENHARBOUR_TEXT_SIZE];               ///< message a DHCP server must present; client role
  char io_default_path[LUMENHARBOUR_FILENAME_SIZE];    ///< directory of downloads and imagelists, "/tmp"; role start
  uint32 reboot_time;                                  ///< seconds from installation to reboot; client role, from DHCP
  uint32 image_reload_time;                            ///< seconds, another reboot delay; management
  uint32 config_reload_time;                           ///< seconds, another reboot delay; management

  // One word of flags. The first of the list below is the word's most significant bit on either byte order; compilers
  // fill a word from its other end on little-endian machines, hence the two orders of declaration.
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  uint32 dhcp_client_notify : 1;       ///< 1: a failed attempt is reported and tried again; management, client role
  uint32 tftp_support : 1;             ///< 1: files come by TFTP, 0: by FTP; client role
  uint32 enable : 1;                   ///< 1: a role runs
  uint32 reboot_flag : 1;              ///< 1: the next expiry of `notify_timer` reboots; client role
  uint32 default_image_local : 2;      ///< location kind of the default image; management
  uint32 default_config_local : 2;     ///< location kind of the default configuration; management
  uint32 default_imagelist_local : 2;  ///< 1: the default imagelist is handed out by its full path; director role
  uint32 role : 2;                     ///< `LUMENHARBOUR_ROLE_*`; set where a role starts and stops
  uint32 debug : 2;                    ///< debug level, the lowest bit switches messages on; management
  uint32 director_ip_type : 4;         ///< kind of `director_ip`, 0: none; management
  uint32 upgrade_mode : 2;             ///< `LUMENHARBOUR_UPGRADE_*`; management, client role
  uint32 upgrade_image : 1;            ///< 1: management asked for an image
  uint32 image_reload : 1;             ///< 1: reload after an image; management
  uint32 upgrade_config : 1;           ///< 1: management asked for a configuration
  uint32 config_reload : 1;            ///< 1: reload after a configuration; management
  uint32 imageUpFlag : 1;  ///< 1: a configuration has been installed and is not installed again; client role
  uint32 rsv : 7;          ///< 0
#else
  uint32 rsv : 7;
  uint32 imageUpFlag : 1;
  uint32 config_reload : 1;
  uint32 upgrade_config : 1;
  uint32 image_reload : 1;
  uint32 upgrade_image : 1;
  uint32 upgrade_mode : 2;
  uint32 director_ip_type : 4;
  uint32 debug : 2;
  uint32 role : 2;
  uint32 default_imagelist_local : 2;
  uint32 default_config_local : 2;
  uint32 default_image_local : 2;
  uint32 reboot_flag : 1;
  uint32 enable : 1;
  uint32 tftp_support : 1;
  uint32 dhcp_client_notify : 1;
#endif

  uint8 sys_mac[LUMENHARBOUR_MAC_SIZE];  ///< the switch's MAC address; read once at start-up
  uint8 rsv1[2];                         ///< 0
};

extern tLumenHarbourInfo gLumenHarbourInfo;  ///< the one record; every piece reads and writes its fields directly
extern uint32 gLumenHarbourInit;             ///< 1 from a successful start-up until shutdown

/// Prints a debug message while the debug switch is on; arguments are not evaluated while it is off.
#define LUMENHARBOUR_DEBUG(...)                                            \
  do {                                                                     \
    if ((gLumenHarbourInfo.debug & 1U) != 0) NM_DEBUG_OUTPUT(__VA_ARGS__); \
  } while (0)

/// @name Core (lumenharbour_main.cpp)
/// @{

/// Prepares the global record, the timer list and the listening management socket. A second call does nothing.
///
/// @param[in] client_max_num,custom_grp_max_num,builtin_grp_max_num  pool sizes, 0 for the defaults
/// @param[in] role    role to start when `enable` is 1
/// @param[in] enable  1 starts `role` at once; any other value leaves no role running
/// @param[in] api_func,dhcp_client_callback  the DHCP client's functions, null for none
/// @return 0, or -1 when the semaphore, the socket or the role cannot be had; everything is then shut down again
int lumenharbour_init(uint32 client_max_num, uint32 custom_grp_max_num, uint32 builtin_grp_max_num, uint32 role,
                      uint32 enable, tLumenHarbourDhcpFunc api_func, tLumenHarbourDhcpFunc dhcp_client_callback);

/// Undoes the start-up: stops the role, deletes the semaphore, closes and unlinks the management socket.
void lumenharbour_shutdown();

/// Starts a role; does nothing while one runs.
///
/// @param[in] role  `LUMENHARBOUR_ROLE_CLIENT` or `LUMENHARBOUR_ROLE_DIRECTOR`
/// @param[in] init  handed to `lumenharbour_client_enable`
/// @return 0; -1 for another role or when the route socket cannot be opened; or the role's own code
int lumenharbour_enable(uint32 role, uint32 init);

/// Stops the running role; a role of 0 stops the client role, which may have started its timer. @return 0.
int lumenharbour_disable();

/// Runs the daemon for ever.
[[noreturn]] void lumenharbour_main();

/// One pass of the main loop: waits for a socket or a timer, runs due timers, then handles route messages and at most
/// one management connection.
void lumenharbour_main_pass();

/// @return how long one pass may wait, in microseconds: until the next timer is due, at least one tick and at most 5 s.
uint32 lumenharbour_wait_time();

/// Callback of `notify_timer`: one step of the client role, nothing in another role.
void lumenharbour_timeout();

/// Builds the record pools that do not exist, from the sizes in the global record.
/// @return 0, or -1 when memory is short; all pools are then released.
int lumenharbour_mem_alloc();

/// Releases the record pools. The list heads are left as they are and lead into the released records, which stay
/// readable until the next pools are released. So members of a released pool are taken again behind those of the next
/// one: twice as many fit. Groups and clients are taken by their place in the pool, never from there.
void lumenharbour_mem_free();

/// @return entries on a list.
uint32 lumenharbour_list_head_cnt(const list_head* p_head);

/// @return entries on a list; as `lumenharbour_list_head_cnt`.
uint32 lumenharbour_list_count(const list_head* p_head);

/// Marks where the global record would have to be guarded if there were a second thread; empty. A lock put here must be
/// re-entrant: a client's announcement takes it twice.
void lumenharbour_lock();

/// The end of what `lumenharbour_lock` begins; empty.
void lumenharbour_unlock();

/// Holds the global lock from its declaration to the end of the block.
struct tLumenHarbourLock {
  tLumenHarbourLock() { lumenharbour_lock(); }
  ~tLumenHarbourLock() { lumenharbour_unlock(); }
  tLumenHarbourLock(const tLumenHarbourLock&) = delete;
  tLumenHarbourLock& operator=(const tLumenHarbourLock&) = delete;
};

/// Serves one connection of the management socket: reads a request, runs it, sends the reply.
/// @return 0 when the reply went out whole, else -1; the connection is closed in either case.
int32 lumenHarbour_cmd_server();

/// Runs one request and rewrites it in place into its reply.
///
/// @param[in,out] bufRx  request body
/// @param[in]     lenRx  its length in bytes, at most `LUMENHARBOUR_MSG_MAX`
/// @return the reply's length, which is `lenRx`; 0 when the request is refused; 22 for an empty request
int32 lumenHarbour_cmd_process(uint8* bufRx, int32 lenRx);

/// @}
/// @name Route messages (lumenharbour_socket.cpp)
/// @{

/// Opens the route message socket, non-blocking. @return the descriptor, owned by the caller, or -1.
int32 lumenharbour_route_socket_open();

/// Closes `rt_socket` if it is open.
void lumenharbour_socket_close();

/// Reads route messages from `rt_socket` once and handles them: a new address makes a client switch without a director
/// address try to become director.
void lumenharbour_route_socket_rcv();

/// Looks for the interface of this switch that owns an address.
///
/// @param[in]  ip       IPv4 address, first byte most significant
/// @param[out] if_unit  its interface unit, left alone on failure
/// @return 0, or not 0 when the address is not this switch's
int lumenharbour_if_unit_lookup(uint32 ip, uint32* if_unit);

/// @}
/// @name Director role (lumenharbour_director.cpp)
/// @{

/// Starts the director role: default pool sizes, pools, default imagelist; sets `role`, not `enable`.
/// @return 0; 12 (ENOMEM) when the pools cannot be built; `ERR_AUTOCFG_IMAGELIST` when the default imagelist cannot be
///         written, the pools being released again.
int lumenharbour_director_enable();

/// Stops the director role: groups, clients, imagelist files, pools and defaults go, `role` becomes 0. Safe in any
/// role.
void lumenharbour_director_disable();

/// Periodic hook of the role; the director has no periodic work, so nothing calls it.
void lumenharbour_director_timeout();

/// Chooses the group that serves a client and stores it in the client's record.
///
/// A MAC group wins over a product-id group; between two groups of one type the one created last wins. Groups of every
/// row status take part, so a deactivated group still answers with the list it last wrote. With the debug switch on, a
/// client that falls to a built-in group ends the process with SIGSEGV after `p_grp` is stored.
///
/// @param[in,out] p_client  record in use; null does nothing. On return `p_grp` is the group, or null for the
///                          director's defaults.
void lumenharbour_client_grp_lookup(tLumenHarbourClientEntry* p_client);

/// Takes a client's announcement: adds, refreshes or deletes it, and hands back the names of its files.
///
/// @param[in]     p_info         the client; null fails
/// @param[in,out] p_image_file   room for the imagelist name; `len` is the capacity, then the bytes written. Null fails
///                               unless the client is deleted.
/// @param[in,out] p_config_file  the same for the configuration name
/// @return 0, or -1: not director, database full (both `len` 0), no room given, or a name longer than its room (what
///         came before it stays written; the client stays in the database)
int lumenharbour_client_entry_callback(const tLumenHarbourClientInfo* p_info, octetstring* p_image_file,
                                       octetstring* p_config_file);

/// Creates, or empties, an imagelist file in `io_default_path`.
///
/// @param[in]  p_inname   base name, terminated
/// @param[in]  name_len   its length
/// @param[out] p_outname  256 zeroed bytes; receives the path, also when the file cannot be opened
/// @return a descriptor, owned by the caller, or -1 when the path is too long or cannot be opened
int32 lumenharbour_imagelist_file_create(const char* p_inname, uint32 name_len, char* p_outname);

/// Writes an imagelist file's content and closes `fd` in every case.
///
/// @param[in] p_buf  content, terminated for the debug message
/// @param[in] len    bytes to write
/// @return 0, or -1 when memory is short or the write fails; the caller then removes the file
int lumenharbour_imagelist_file_write(int32 fd, const char* p_buf, uint32 len);

/// Removes the file at `p_filename` if it can be read; null, or a file that cannot, is left alone.
void lumenharbour_imagelist_file_remove(const char* p_filename);

/// Writes an imagelist file's one line, `imagefile=NAME;`, and closes `fd` in every case.
///
/// @param[in] image_name  at most 255 bytes, terminated
/// @return as `lumenharbour_imagelist_file_write`
int lumenharbour_imagelist_record_write(int32 fd, const char* image_name);

/// Writes the default imagelist, unless `default_image_name` is empty. @return 0, or -1 when it cannot be written.
int lumenharbour_default_imagelist_create();

/// @}
/// @name Client role (lumenharbour_client.cpp)
/// @{

/// Starts the client role. A switch that has a saved configuration stays as it is: the call succeeds, but no role is
/// set and no timer runs.
///
/// @param[in] init  not 0: provision by itself, first in 60 s; 0: wait for management
/// @return 0
int lumenharbour_client_enable(uint32 init);

/// Stops the client role: removes the fetched files, forgets what was learnt, stops the timer, sets `role` to 0.
void lumenharbour_client_disable();

/// Forgets everything learnt in an attempt.
void lumenharbour_info_clear();

/// Starts `notify_timer` with `lumenharbour_timeout`. @param[in] seconds until it is due.
void lumenharbour_notify_timer_start(uint32 seconds);

/// One provisioning step: reads what DHCP offers, fetches, installs and asks for the reboot, or arms the next attempt.
/// Called with the global lock held.
void lumenharbour_client_switch_timeout();

/// Removes the files named by the three `local_*_name` fields; files that are not there do not matter.
void lumenharbour_local_files_remove();

/// Parses a fetched imagelist into `rcv_image_name`, `image_version` and `rcv_config_name`.
///
/// The first line that is for this switch wins; what a rejected line said before its "mac" item stays. The stream is
/// left open, so a switch that keeps failing has one more open each minute.
///
/// @param[in] p_filename  path, terminated
/// @param[in] name_len    not looked at
/// @return 0, or -1 when the file cannot be opened, a line is too long, or no line is for this switch
int32 lumenharbour_parse_imagelist_file(const char* p_filename, uint32 name_len);

/// Parses one line of an imagelist.
///
/// @param[in,out] p_buf  the line, terminated; cut up in place
/// @param[in]     len    bytes before its first white space; 0 rejects it
/// @return 0 when the line is accepted, -1 when it is empty or for another switch
int32 lumenharbour_get_file_info(char* p_buf, uint32 len);

/// Fetches one remote file into `io_default_path` by TFTP or FTP and keeps its path and size. Called with the global
/// lock held, which is released during the transfer.
///
/// @param[in]  p_remotefile  remote path, terminated
/// @param[in]  len           its length, at most 255
/// @param[in]  file_type     `LUMENHARBOUR_FILE_*`; every other value is a configuration
/// @param[out] p_status      `errno` of a transfer that failed
/// @return 0, or -1 when the local path is too long or the transfer fails
int32 lumenharbour_get_file(const char* p_remotefile, uint32 len, uint32 file_type, int32* p_status);

/// Fetches one file with the switch's `tftp` command.
///
/// @param[in]  p_remotefile  remote name, terminated
/// @param[in]  name_len      its length; not looked at
/// @param[in]  p_localfile   local path, terminated
/// @param[out] p_rcvbytes    the file's size in bytes, left alone on failure
/// @param[out] p_status      `errno` on failure
/// @return 0, or -1 when the command fails or leaves no file
int32 lumenharbour_get_file_by_tftp(const char* p_remotefile, uint32 name_len, const char* p_localfile,
                                    uint32* p_rcvbytes, int32* p_status);

/// Fetches one file with the switch's `ftpget` command; the rest is as for `lumenharbour_get_file_by_tftp`.
///
/// @param[in] p_remotepath  directory with its last slash, or empty
/// @param[in] p_remotename  name in it
int32 lumenharbour_get_file_by_ftp(const char* p_remotepath, const char* p_remotename, const char* p_localfile,
                                   uint32* p_rcvbytes, int32* p_status);

/// Writes the fetched image to flash. @return 0, or -1 when the flash tool fails.
int32 lumenharbour_update_image_file();

/// Moves the fetched configuration over the saved start-up configuration. @return 0, or -1 when that fails.
int32 lumenharbour_update_config_file();

/// @}
/// @name Text and addresses
/// @{

/// @return the value of a hexadecimal digit; 0 for every other character, so a malformed MAC has zero nibbles.
uint32 lumenharbour_char2int(uint8 param);

/// Reads a MAC address of six two-digit groups with any separators.
/// @param[in] mac_str at least 17 readable bytes. @param[out] mac_hex 6 bytes.
void lumenharbour_mac_str2hex(const char* mac_str, uint8* mac_hex);

/// Turns a path into a clean slash path, in place: backslashes become slashes, dots right after a slash go, runs of
/// slashes collapse.
///
/// @param[in,out] str  terminated text; emptied when it is too long
/// @param[in]     len  its length as the caller measured it
/// @return 0, or -1 when `len` or the text reaches 255 bytes
int32 lumenharbour_left_to_right_slash(char* str, uint32 len);

/// Splits a path behind its last slash.
///
/// @param[in]  p_str       path, terminated
/// @param[in]  str_len     its length in bytes
/// @param[out] p_filepath  zeroed; receives the directory with its slash, or nothing
/// @param[out] p_filename  zeroed; receives the rest. Both have room for `str_len` bytes and a terminator.
/// @return 0
int32 lumenharbour_split_path_and_name(const char* p_str, uint32 str_len, char* p_filepath, char* p_filename);

/// @return free memory as the kernel counts it, which stands for the free space of the RAM disk; the largest 32-bit
///         number when there is more, 0 when the kernel does not say.
uint32 lumenharbour_get_fs_free_space();

/// A MAC address as text, "xx:xx:xx:xx:xx:xx"; a temporary in a message's arguments.
struct tLumenHarbourMacText {
  char text[18];                                    ///< terminated
  explicit tLumenHarbourMacText(const uint8* mac);  ///< formats the 6 bytes at `mac`
};

/// @return the IPv4 address whose 4 bytes, in network order, stand at `bytes`.
inline uint32 lumenharbour_ip_read(const uint8* bytes) {
  return static_cast<uint32>(bytes[0]) << 24 | static_cast<uint32>(bytes[1]) << 16 |
         static_cast<uint32>(bytes[2]) << 8 | bytes[3];
}

/// Writes an IPv4 address as 4 bytes in network order to `bytes`.
inline void lumenharbour_ip_write(uint32 ip, uint8* bytes) {
  for (int i = 0; i < 4; i++) bytes[i] = static_cast<uint8>(ip >> (24 - 8 * i));
}

/// @}
