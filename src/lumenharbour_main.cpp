// Start-up, main loop, record pools, and the management command channel.

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lumenharbour.h"
#include "zor_attr.h"
#include "zor_codec.h"
#include "zor_fd.h"

tLumenHarbourInfo gLumenHarbourInfo;
uint32 gLumenHarbourInit;

namespace {

constexpr uint32 SEM_KIND = 13;
constexpr int LISTEN_BACKLOG = 10;
constexpr uint32 CLOCK_RATE = 100;
constexpr uint32 LONGEST_WAIT = 5;  // seconds
constexpr uint32 MICROSECONDS = 1000000;
constexpr char DOWNLOAD_PATH[] = "/tmp";
constexpr int RECEIVE_LOW_WATER = 30;

// ---------------------------------------------------------------------------------------------------------------------
// Record pools

/// A pool that was released last. List heads may still lead into it, and a pool built again is linked in with what they
/// lead to, so the records must stay readable until no list holds them any more.
template <typename T>
struct tReleasedPool {
  T* tbl;
  uint32 num;
};

tReleasedPool<tLumenHarbourGrpEntry> custom_grp_released;
tReleasedPool<tLumenHarbourGrpEntry> builtin_grp_released;
tReleasedPool<tLumenHarbourClientEntry> client_released;
tReleasedPool<tLumenHarbourGrpIdEntry> grpid_released;

/// Builds a pool unless it exists. @param[in] link puts record i on its free list. @return false when memory is short.
template <typename T, typename TLink>
bool pool_build(T*& tbl, uint32 num, TLink link) {
  if (tbl != nullptr) return true;
  tbl = static_cast<T*>(calloc(num, sizeof(T)));
  if (tbl == nullptr) return false;
  for (uint32 i = 0; i < num; i++) link(tbl[i], i);
  return true;
}

/// Releases a pool, and gives the memory of the one released before it back to the system.
template <typename T>
void pool_release(T*& tbl, uint32 num, tReleasedPool<T>& released) {
  if (tbl == nullptr) return;
  for (uint32 i = 0; i < released.num; i++) list_unlink(&released.tbl[i].node);
  free(released.tbl);
  released = {tbl, num};
  tbl = nullptr;
}

/// Frees a released pool that no list leads to.
template <typename T>
void pool_forget(tReleasedPool<T>& released) {
  free(released.tbl);
  released = {};
}

int mem_alloc_failed(const char* message) {
  LUMENHARBOUR_DEBUG("%s", message);
  lumenharbour_mem_free();
  return -1;
}

}  // namespace

int lumenharbour_mem_alloc() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  constexpr auto link_custom = [](tLumenHarbourGrpEntry& grp, uint32) {
    list_add_head(&grp.node, &gLumenHarbourInfo.custom_grp_free_tbl);
  };
  constexpr auto link_builtin = [](tLumenHarbourGrpEntry& grp, uint32) {
    list_add_head(&grp.node, &gLumenHarbourInfo.builtin_grp_free_tbl);
  };
  constexpr auto link_client = [](tLumenHarbourClientEntry& client, uint32 i) {
    client.index = i;
    list_add_tail(&client.node, &gLumenHarbourInfo.client_free_tbl);
  };
  constexpr auto link_grpid = [](tLumenHarbourGrpIdEntry& member, uint32) {
    list_add_head(&member.node, &gLumenHarbourInfo.grpid_free_tbl);
  };

  if (!pool_build(info.custom_grp_tbl, info.custom_grp_max_num, link_custom))
    return mem_alloc_failed("[LumenHarbour] Allocate memory for custom group failed!\r\n");
  if (!pool_build(info.builtin_grp_tbl, info.builtin_grp_max_num, link_builtin))
    return mem_alloc_failed("[LumenHarbour] Allocate memory for build-in group failed!\r\n");
  if (!pool_build(info.client_tbl, info.client_max_num, link_client) ||
      !pool_build(info.grpid_tbl, info.grpid_max_num, link_grpid))
    return mem_alloc_failed("[LumenHarbour] Allocate memory for director database failed!\r\n");
  return 0;
}

void lumenharbour_mem_free() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Free memory.\r\n");
  pool_release(info.custom_grp_tbl, info.custom_grp_max_num, custom_grp_released);
  pool_release(info.builtin_grp_tbl, info.builtin_grp_max_num, builtin_grp_released);
  pool_release(info.client_tbl, info.client_max_num, client_released);
  pool_release(info.grpid_tbl, info.grpid_max_num, grpid_released);
}

uint32 lumenharbour_list_head_cnt(const list_head* p_head) {
  uint32 count = 0;
  for (const list_head* node = p_head->next; node != p_head; node = node->next) count++;
  return count;
}

uint32 lumenharbour_list_count(const list_head* p_head) {
  return lumenharbour_list_head_cnt(p_head);
}

void lumenharbour_lock() {}
void lumenharbour_unlock() {}

// ---------------------------------------------------------------------------------------------------------------------
// Start-up and roles

namespace {

/// Makes the record what the main loop can run on, also when the rest of the start-up fails.
void info_reset() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  memset(static_cast<void*>(&info), 0, sizeof(info));
  info.rt_socket = -1;
  info.cmd_socket = -1;
  timerListInit(&info.timer_list);
  for (list_head* head :
       {&info.custom_grp_free_tbl, &info.custom_grp_used_tbl, &info.builtin_grp_free_tbl, &info.builtin_grp_used_tbl,
        &info.client_free_tbl, &info.client_used_tbl, &info.grpid_free_tbl})
    list_init(head);
  pool_forget(custom_grp_released);
  pool_forget(builtin_grp_released);
  pool_forget(client_released);
  pool_forget(grpid_released);
}

void system_mac_read() {
  octetstring mac = {gLumenHarbourInfo.sys_mac, sizeof(gLumenHarbourInfo.sys_mac)};
  zorScalarGetApi(0, SYS_MAC_ADDRESS, &mac);
}

/// @return 0, or -1 when the management socket cannot be opened; what was opened stays in `cmd_socket`.
int cmd_socket_open() {
  int32& fd = gLumenHarbourInfo.cmd_socket;
  unlink(LUMENHARBOUR_SOCKET_PATH);
  fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd <= 0) {
    perror("[LumenHarbour] Create cmdSock failed!\r\n");
    return -1;
  }
  sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  static_assert(sizeof(LUMENHARBOUR_SOCKET_PATH) <= sizeof(addr.sun_path));
  memcpy(addr.sun_path, LUMENHARBOUR_SOCKET_PATH, sizeof(LUMENHARBOUR_SOCKET_PATH));
  if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) < 0) {
    perror("[LumenHarbour] bind failed!\r\n");
    return -1;
  }
  if (listen(fd, LISTEN_BACKLOG) < 0) {
    perror("[LumenHarbour] listen cmdSock ERROR!\r\n");
    return -1;
  }
  return 0;
}

/// Start-up behind the reset of the record. @return 0, or -1 at the first thing that fails.
int start(uint32 role, uint32 enable, tLumenHarbourDhcpFunc api_func, tLumenHarbourDhcpFunc dhcp_client_callback) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.sem = OsixCreateMSem(SEM_KIND);
  if (info.sem == 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Create sem ERROR!\r\n");
    return -1;
  }
  system_mac_read();
  if (cmd_socket_open() != 0) return -1;
  info.api_func = api_func;
  info.dhcp_client_callback = dhcp_client_callback;
  if (enable != 1) return 0;
  if (lumenharbour_enable(role, 1) != 0) return -1;
  info.role = role & 3U;
  return 0;
}

}  // namespace

int lumenharbour_init(uint32 client_max_num, uint32 custom_grp_max_num, uint32 builtin_grp_max_num, uint32 role,
                      uint32 enable, tLumenHarbourDhcpFunc api_func, tLumenHarbourDhcpFunc dhcp_client_callback) {
  if (gLumenHarbourInit == 1) return 0;
  info_reset();
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.sys_clk_rate = CLOCK_RATE;
  info.client_max_num = client_max_num;
  info.custom_grp_max_num = custom_grp_max_num;
  info.builtin_grp_max_num = builtin_grp_max_num;
  info.grpid_max_num = custom_grp_max_num;
  if (start(role, enable, api_func, dhcp_client_callback) != 0) {
    lumenharbour_shutdown();
    return -1;
  }
  gLumenHarbourInit = 1;
  return 0;
}

void lumenharbour_shutdown() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  gLumenHarbourInit = 0;
  info.enable = 0;
  if (info.sem != 0) OsixDeleteSem(info.sem);
  if (info.role == LUMENHARBOUR_ROLE_DIRECTOR)
    lumenharbour_director_disable();
  else if (info.role == LUMENHARBOUR_ROLE_CLIENT)
    lumenharbour_client_disable();
  if (info.cmd_socket == -1) return;
  close(info.cmd_socket);
  unlink(LUMENHARBOUR_SOCKET_PATH);
  info.cmd_socket = -1;
}

int lumenharbour_enable(uint32 role, uint32 init) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  if (info.enable == 1) return 0;
  if (role != LUMENHARBOUR_ROLE_CLIENT && role != LUMENHARBOUR_ROLE_DIRECTOR) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Role is ERROR!\r\n");
    return -1;
  }
  memset(info.io_default_path, 0, sizeof(info.io_default_path));
  memcpy(info.io_default_path, DOWNLOAD_PATH, sizeof(DOWNLOAD_PATH));
  info.rt_socket = lumenharbour_route_socket_open();
  if (info.rt_socket <= 0) return -1;
  const int rc = role == LUMENHARBOUR_ROLE_CLIENT ? lumenharbour_client_enable(init) : lumenharbour_director_enable();
  if (rc != 0) {
    lumenharbour_socket_close();
    return rc;
  }
  info.enable = 1;
  return 0;
}

int lumenharbour_disable() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  lumenharbour_socket_close();
  // Every other role stops the client role, 0 too: a client that found a saved configuration has no role.
  if (info.role == LUMENHARBOUR_ROLE_DIRECTOR)
    lumenharbour_director_disable();
  else
    lumenharbour_client_disable();
  info.enable = 0;
  info.director_ip_type = 0;
  info.director_ip = 0;
  return 0;
}

// ---------------------------------------------------------------------------------------------------------------------
// Main loop

namespace {

/// Adds a socket to the set that `select` watches. One that is closed, or beyond what a set can hold, is left out.
void watch(int32 fd, fd_set* set, int* max) {
  if (fd <= 0 || fd >= FD_SETSIZE) return;
  FD_SET(fd, set);
  *max = std::max(*max, static_cast<int>(fd));
}

/// @return whether a call failed for want of descriptors or memory.
bool is_exhausted(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// Waits a second, so that what fails over and over fills neither the processor nor a log.
void rest() {
  timeval second = {1, 0};
  select(0, nullptr, nullptr, nullptr, &second);
}

bool ready(int32 fd, const fd_set* set) {
  return fd > 0 && fd < FD_SETSIZE && FD_ISSET(fd, set);
}

}  // namespace

uint32 lumenharbour_wait_time() {
  const uint32 rate = gLumenHarbourInfo.sys_clk_rate;
  const uint32 ticks = timerListNextTimeout(&gLumenHarbourInfo.timer_list);
  if (ticks >= LONGEST_WAIT * rate) return LONGEST_WAIT * MICROSECONDS;
  // A timer that is due already costs one tick of waiting: the loop must not spin.
  if (ticks == 0) return MICROSECONDS / rate;
  return ticks / rate * MICROSECONDS + ticks % rate * MICROSECONDS / rate;
}

void lumenharbour_main_pass() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  fd_set set;
  FD_ZERO(&set);
  int max = 0;
  watch(info.rt_socket, &set, &max);
  watch(info.cmd_socket, &set, &max);
  const uint32 wait = lumenharbour_wait_time();
  timeval timeout = {static_cast<time_t>(wait / MICROSECONDS), static_cast<suseconds_t>(wait % MICROSECONDS)};
  const int count = select(max + 1, &set, nullptr, nullptr, &timeout);
  timerListCheck(&info.timer_list);
  if (count <= 0) return;
  // A due timer may have closed the route socket, and one opened since may have its number; reading it does no harm,
  // since it never blocks.
  if (ready(info.rt_socket, &set)) lumenharbour_route_socket_rcv();
  if (!ready(info.cmd_socket, &set)) return;
  errno = 0;
  // A connection that cannot be accepted waits on, and the next pass would find it at once.
  if (lumenHarbour_cmd_server() != 0 && is_exhausted(errno)) rest();
}

void lumenharbour_main() {
  for (;;) lumenharbour_main_pass();
}

void lumenharbour_timeout() {
  const tLumenHarbourLock lock;
  if (gLumenHarbourInfo.role == LUMENHARBOUR_ROLE_CLIENT) lumenharbour_client_switch_timeout();
}

// ---------------------------------------------------------------------------------------------------------------------
// Management command socket

namespace {

int32 connection_accept() {
  sockaddr_un addr = {};
  socklen_t len = sizeof(addr);
  return accept4(gLumenHarbourInfo.cmd_socket, reinterpret_cast<sockaddr*>(&addr), &len, SOCK_CLOEXEC);
}

/// Tells of a transfer that was not whole as `perror` does, but with the bytes where no call has failed.
///
/// @param[in] count  bytes that went through, below 0 for a failed call with its `errno`
void short_transfer_tell(const char* message, ssize_t count, int32 wanted) {
  if (count < 0)
    perror(message);
  else
    fprintf(stderr, "%s: %d of %d bytes\n", message, static_cast<int>(count), wanted);
}

/// Reads `len` bytes in one call. @return false, with a line on standard error, when they do not all come.
bool receive(int32 fd, void* buf, int32 len, const char* message) {
  const ssize_t count = recv(fd, buf, static_cast<size_t>(len), 0);
  if (count == len) return true;
  short_transfer_tell(message, count, len);
  return false;
}

/// Reads the body of a request. @return as `receive`; false also for a length that no request has.
bool body_receive(int32 fd, uint8* buf, int32 len) {
  constexpr char message[] = "[LumenHarbour] Receive buffer failed!\r\n";
  if (len < 0 || len > static_cast<int32>(LUMENHARBOUR_MSG_MAX)) {
    fprintf(stderr, "%s: %d bytes announced, at most %u are allowed\n", message, len, LUMENHARBOUR_MSG_MAX);
    return false;
  }
  // Asking for no bytes would wait for some to come.
  return len == 0 || receive(fd, buf, len, message);
}

/// Sends a length and as many bytes. @return 0, or -1 when not all went out.
int32 reply_send(int32 fd, uint8* buf, int32 len) {
  iovec iov[2] = {{&len, sizeof(len)}, {buf, static_cast<size_t>(len)}};
  msghdr msg = {};
  msg.msg_iov = iov;
  msg.msg_iovlen = 2;
  const int32 whole = len + static_cast<int32>(sizeof(len));
  const ssize_t sent = sendmsg(fd, &msg, 0);
  if (sent == whole) return 0;
  const int error = errno;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Send %d bytes but not %d!\r\n", static_cast<int>(sent), whole);
  errno = error;
  short_transfer_tell("[LumenHarbour] Send message failed!\r\n", sent, whole);
  return -1;
}

}  // namespace

int32 lumenHarbour_cmd_server() {
  const tZorFd connection(connection_accept());
  if (connection.fd <= 0) {
    perror("[LumenHarbour] accept ERROR!\r\n");
    return -1;
  }
  if (setsockopt(connection.fd, SOL_SOCKET, SO_RCVLOWAT, &RECEIVE_LOW_WATER, sizeof(RECEIVE_LOW_WATER)) < 0) {
    perror("[LumenHarbour] Set socket option ERROR!\r\n");
    return -1;
  }
  int32 buflen = 0;
  if (!receive(connection.fd, &buflen, sizeof(buflen), "[LumenHarbour] Receive buflen failed!\r\n")) return -1;
  // Zeroed, since an empty request is answered with bytes that nothing wrote.
  uint8 buf[LUMENHARBOUR_MSG_MAX] = {};
  if (!body_receive(connection.fd, buf, buflen)) return -1;
  buflen = lumenHarbour_cmd_process(buf, buflen);
  if (buflen == 0) LUMENHARBOUR_DEBUG("[LumenHarbour] Process command failed!\n\r");
  return reply_send(connection.fd, buf, buflen);
}

// ---------------------------------------------------------------------------------------------------------------------
// Command decoding and dispatch

namespace {

/// One request being decoded, run and answered.
struct tCmdRequest {
  uint32 func;                            ///< function number
  int32 ret;                              ///< return code: as received, then the handler's
  uint32 cmd;                             ///< attribute number
  uint32 unit;                            ///< single integer index
  tLumenHarbourGrpMacIndex index;         ///< MAC member index
  tLumenHarbourGrpMacIndex nextIndex;     ///< MAC member index found
  tLumenHarbourGrpPidIndex pidIndex;      ///< product-id member index
  tLumenHarbourGrpPidIndex nextPidIndex;  ///< product-id member index found
  uint8 name[LUMENHARBOUR_TEXT_SIZE];     ///< group name index
  uint16 nameLen;                         ///< bytes in the request's name, of which `name` holds at most 64
  uint8 type;                             ///< value type, `ADR_TYPE_*`
  uint32 intVar;                          ///< value of type 2
  U_INT8 u8Var;                           ///< value of type 4
  octetstring octet;                      ///< value of type 0; its bytes stand inside the request
  void* pVar;                             ///< the value for the handler, null for none
};

/// Index readers take what they can; `decode_index` looks once whether all of it was there.
void index_read_unit(tAdr* adr, tCmdRequest& req) {
  adr_offset(adr, ADR_ITEM_HEAD);
  adr_getuint32(adr, &req.unit);
}

void index_read_mac(tAdr* adr, tCmdRequest& req) {
  adr_offset(adr, ADR_ITEM_HEAD);
  adr_getushort(adr, &req.index.grp_id);
  adr_offset(adr, ADR_ITEM_HEAD);
  adr_getchar(adr, req.index.mac, LUMENHARBOUR_MAC_SIZE);
}

void index_read_pid(tAdr* adr, tCmdRequest& req) {
  adr_offset(adr, ADR_ITEM_HEAD);
  adr_getuint32(adr, &req.pidIndex.grp_id);
  adr_offset(adr, ADR_ITEM_HEAD);
  adr_getuint32(adr, &req.pidIndex.pid);
}

void index_read_name(tAdr* adr, tCmdRequest& req) {
  adr_offset(adr, 1);
  adr_getushort(adr, &req.nameLen);
  const uint32 kept = std::min<uint32>(req.nameLen, sizeof(req.name));
  adr_getchar(adr, req.name, kept);
  adr_offset(adr, req.nameLen - kept);
}

void reply_none(tAdr*, const tCmdRequest&) {}

void reply_value(tAdr* adr, const tCmdRequest& req) {
  if (req.type == ADR_TYPE_INT32) adr_encodedata(adr, ADR_TYPE_INT32, sizeof(req.intVar), &req.intVar);
  if (req.type == ADR_TYPE_OCTETS) adr_encodedata(adr, ADR_TYPE_OCTETS, req.octet.len, req.octet.pBuf);
  if (req.type == ADR_TYPE_INT64) adr_encodedata(adr, ADR_TYPE_INT64, sizeof(req.u8Var), &req.u8Var);
}

/// Writes one integer where the requester left room for one.
void reply_integer(tAdr* adr, const tCmdRequest& req, const uint32& value) {
  if (req.type == ADR_TYPE_INT32) adr_encodedata(adr, ADR_TYPE_INT32, sizeof(value), &value);
}

void reply_unit(tAdr* adr, const tCmdRequest& req) {
  reply_integer(adr, req, req.unit);
}
void reply_next(tAdr* adr, const tCmdRequest& req) {
  reply_integer(adr, req, req.intVar);
}

/// Writes a MAC member index, whatever type of value the requester sent: its two parts have types of their own.
void encode_mac_index(tAdr* adr, const tLumenHarbourGrpMacIndex& index) {
  adr_encodedata(adr, ADR_TYPE_INT16, sizeof(index.grp_id), &index.grp_id);
  adr_encodedata(adr, ADR_TYPE_OCTETS, sizeof(index.mac), index.mac);
}

void reply_mac(tAdr* adr, const tCmdRequest& req) {
  encode_mac_index(adr, req.index);
}
void reply_next_mac(tAdr* adr, const tCmdRequest& req) {
  encode_mac_index(adr, req.nextIndex);
}

void reply_pid_index(tAdr* adr, const tCmdRequest& req, const tLumenHarbourGrpPidIndex& index) {
  reply_integer(adr, req, index.grp_id);
  reply_integer(adr, req, index.pid);
}

void reply_pid(tAdr* adr, const tCmdRequest& req) {
  reply_pid_index(adr, req, req.pidIndex);
}
void reply_next_pid(tAdr* adr, const tCmdRequest& req) {
  reply_pid_index(adr, req, req.nextPidIndex);
}

/// The name look-up fills an integer alone; a value of another type stays as it came.
int run_id_by_name(tCmdRequest& req) {
  return lumenharbourCustomGrpIdGet(req.name, req.nameLen, req.type == ADR_TYPE_INT32 ? &req.intVar : nullptr);
}

/// How one function's request is read, run and answered.
struct tCommand {
  uint8 index_num;                                   ///< index items that the request must announce
  tLumenHarbourTable table;                          ///< whose attributes `cmd` numbers
  void (*index_read)(tAdr* adr, tCmdRequest& req);   ///< takes the index
  int (*run)(tCmdRequest& req);                      ///< calls the handler
  void (*reply)(tAdr* adr, const tCmdRequest& req);  ///< writes what the handler found, from the value section on
};

using Req = tCmdRequest;

/// By function number. A global request brings a unit item that its count of 0 does not announce.
constexpr tCommand COMMANDS[LUMENHARBOUR_FUNC_MAX] = {
    {},
    {0, LUMENHARBOUR_TABLE_GLOBAL, index_read_unit,
     [](Req& req) { return lumenharbourSetApi(nullptr, req.cmd, req.pVar); }, reply_none},
    {0, LUMENHARBOUR_TABLE_GLOBAL, index_read_unit,
     [](Req& req) { return lumenharbourGetApi(nullptr, req.cmd, req.pVar); }, reply_value},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPMAC, index_read_mac,
     [](Req& req) { return lumenharbourCustomGrpMacGetFirst(&req.index); }, reply_mac},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPMAC, index_read_mac,
     [](Req& req) { return lumenharbourCustomGrpMacGetNext(&req.index, &req.nextIndex); }, reply_next_mac},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPMAC, index_read_mac,
     [](Req& req) { return lumenharbourCustomGrpMacGetApi(&req.index, req.cmd, req.pVar); }, reply_value},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPMAC, index_read_mac,
     [](Req& req) { return lumenharbourCustomGrpMacSetApi(&req.index, req.cmd, req.pVar); }, reply_none},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPPID, index_read_pid,
     [](Req& req) { return lumenharbourCustomGrpPidGetFirst(&req.pidIndex); }, reply_pid},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPPID, index_read_pid,
     [](Req& req) { return lumenharbourCustomGrpPidGetNext(&req.pidIndex, &req.nextPidIndex); }, reply_next_pid},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPPID, index_read_pid,
     [](Req& req) { return lumenharbourCustomGrpPidGetApi(&req.pidIndex, req.cmd, req.pVar); }, reply_value},
    {2, LUMENHARBOUR_TABLE_CUSTOMGRPPID, index_read_pid,
     [](Req& req) { return lumenharbourCustomGrpPidSetApi(&req.pidIndex, req.cmd, req.pVar); }, reply_none},
    {1, LUMENHARBOUR_TABLE_CUSTOMGRP, index_read_unit,
     [](Req& req) { return lumenharbourCustomGrpGetFirst(&req.unit); }, reply_unit},
    {1, LUMENHARBOUR_TABLE_CUSTOMGRP, index_read_unit,
     [](Req& req) { return lumenharbourCustomGrpGetNext(req.unit, &req.intVar); }, reply_next},
    {1, LUMENHARBOUR_TABLE_CUSTOMGRP, index_read_unit,
     [](Req& req) { return lumenharbourCustomGrpSetApi(req.unit, req.cmd, req.pVar); }, reply_none},
    {1, LUMENHARBOUR_TABLE_CUSTOMGRP, index_read_unit,
     [](Req& req) { return lumenharbourCustomGrpGetApi(req.unit, req.cmd, req.pVar); }, reply_value},
    {1, LUMENHARBOUR_TABLE_BUILTINGRP, index_read_unit,
     [](Req& req) { return lumenharbourBuiltinGrpGetFirst(&req.unit); }, reply_unit},
    {1, LUMENHARBOUR_TABLE_BUILTINGRP, index_read_unit,
     [](Req& req) { return lumenharbourBuiltinGrpGetNext(req.unit, &req.intVar); }, reply_next},
    {1, LUMENHARBOUR_TABLE_BUILTINGRP, index_read_unit,
     [](Req& req) { return lumenharbourBuiltinGrpGetApi(req.unit, req.cmd, req.pVar); }, reply_value},
    {1, LUMENHARBOUR_TABLE_BUILTINGRP, index_read_unit,
     [](Req& req) { return lumenharbourBuiltinGrpSetApi(req.unit, req.cmd, req.pVar); }, reply_none},
    {1, LUMENHARBOUR_TABLE_CLIENT, index_read_unit, [](Req& req) { return lumenharbourClientGetFirst(&req.unit); },
     reply_unit},
    {1, LUMENHARBOUR_TABLE_CLIENT, index_read_unit,
     [](Req& req) { return lumenharbourClientGetNext(req.unit, &req.intVar); }, reply_next},
    {1, LUMENHARBOUR_TABLE_CLIENT, index_read_unit,
     [](Req& req) { return lumenharbourClientGetApi(req.unit, req.cmd, req.pVar); }, reply_value},
    {1, LUMENHARBOUR_TABLE_CLIENT, index_read_unit,
     [](Req& req) { return lumenharbourClientSetApi(req.unit, req.cmd, req.pVar); }, reply_none},
    {1, LUMENHARBOUR_TABLE_CUSTOMGRP, index_read_name, run_id_by_name, reply_next},
};

bool refuse_cut_short(const tAdr* adr) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Receive length %d ERROR!\r\n", static_cast<int>(adr->len));
  return false;
}

bool decode_header(tAdr* adr, tCmdRequest& req) {
  if (adr_decodefunc(adr, &req.func) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Decode function failed \r\n!");
    return false;
  }
  if (adr_decoderetcode(adr, &req.ret) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Decode return code failed \r\n!");
    return false;
  }
  if (adr_decodecmd(adr, &req.cmd) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Decode command failed \r\n!");
    return false;
  }
  return true;
}

bool decode_index(tAdr* adr, tCmdRequest& req) {
  uint8 charVal = 0;
  uint8 indexNum = 0;
  adr_getchar(adr, &charVal, 1);
  if (charVal != ADR_TAG_INDEX) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Decode index failed, value = %d \r\n!", charVal);
    return false;
  }
  adr_getchar(adr, &indexNum, 1);
  if (req.func < 1 || req.func >= LUMENHARBOUR_FUNC_MAX) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Invalid function %d \r\n!", static_cast<int>(req.func));
    return false;
  }
  if (indexNum != COMMANDS[req.func].index_num) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Invalid index number %d for func %d\r\n!", indexNum, static_cast<int>(req.func));
    return false;
  }
  COMMANDS[req.func].index_read(adr, req);
  return !adr->overrun || refuse_cut_short(adr);
}

bool refuse_value_length(uint16 shortVal, uint8 type) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Invalid shortVal %d, type is %d!", shortVal, type);
  return false;
}

bool decode_octets(tAdr* adr, tCmdRequest& req, uint16 shortVal) {
  req.octet = {adr_getchar(adr, nullptr, shortVal), shortVal};
  req.pVar = &req.octet;
  return !adr->overrun || refuse_value_length(shortVal, req.type);
}

bool decode_int32(tAdr* adr, tCmdRequest& req, uint16 shortVal) {
  if (shortVal != sizeof(req.intVar)) return refuse_value_length(shortVal, req.type);
  req.pVar = &req.intVar;
  adr_getuint32(adr, &req.intVar);
  return !adr->overrun || refuse_value_length(shortVal, req.type);
}

/// An integer attribute takes and leaves the high word, the first that its value pointer leads to.
bool decode_int64(tAdr* adr, tCmdRequest& req, uint16 shortVal) {
  if (shortVal != sizeof(req.u8Var)) return refuse_value_length(shortVal, req.type);
  req.pVar = &req.u8Var;
  adr_getuint32(adr, &req.u8Var.high);
  adr_getuint32(adr, &req.u8Var.low);
  return !adr->overrun || refuse_value_length(shortVal, req.type);
}

bool decode_value(tAdr* adr, tCmdRequest& req) {
  uint8 charVal = 0;
  if (adr_getchar(adr, &charVal, 1) == nullptr || charVal != ADR_TAG_VALUE) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Decode data ERROR, value = %d!", charVal);
    return false;
  }
  uint16 shortVal = 0;
  adr_getchar(adr, &req.type, 1);
  if (adr_getushort(adr, &shortVal) != 0) return refuse_cut_short(adr);
  switch (req.type) {
    case ADR_TYPE_OCTETS:
      return decode_octets(adr, req, shortVal);
    case ADR_TYPE_INT32:
      return decode_int32(adr, req, shortVal);
    case ADR_TYPE_INT64:
      return decode_int64(adr, req, shortVal);
    default:
      return true;
  }
}

/// Handlers follow the value pointer as their attribute's kind says, so a value of another kind must not reach them.
void value_check_kind(tCmdRequest& req) {
  const tLumenHarbourAttr* attr = lumenharbour_attr_find(COMMANDS[req.func].table, req.cmd);
  if (attr == nullptr || attr->value == LUMENHARBOUR_VALUE_IGNORED) return;
  const bool is_octets = req.type == ADR_TYPE_OCTETS;
  if (lumenharbour_value_is_integer(attr->value) == is_octets) req.pVar = nullptr;
}

/// Runs the request and rewrites it into its reply. @param[in] value_pos where the value section starts.
int32 dispatch(tAdr* adr, tCmdRequest& req, uint32 value_pos) {
  const tCommand& command = COMMANDS[req.func];
  if (command.run == nullptr) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Invalid function %d for encoding!", static_cast<int>(req.func));
    return 0;
  }
  value_check_kind(req);
  req.ret = command.run(req);
  adr_pos(adr, ADR_RETCODE_OFFSET);
  adr_int32(adr, req.ret);
  adr_pos(adr, value_pos);
  if (req.ret == 0) command.reply(adr, req);
  adr_pos(adr, adr->len);
  return static_cast<int32>(adr_count(adr));
}

}  // namespace

int32 lumenHarbour_cmd_process(uint8* bufRx, int32 lenRx) {
  if (bufRx == nullptr || lenRx == 0) {
    // The line number is part of the text that log readers know, not this file's.
    printf("\r\n lumenHarbour assert error in line %d in func %s.", 46, "lumenHarbour_cmd_process");
    fflush(stdout);
    return ERR_BARE_INVALID;
  }
  if (lenRx < static_cast<int32>(ADR_MSG_MIN)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Receive length %d ERROR!\r\n", lenRx);
    return 0;
  }
  tAdr adr;
  tCmdRequest req = {};
  adr_start(&adr, bufRx, static_cast<uint32>(lenRx));
  if (!decode_header(&adr, req) || !decode_index(&adr, req)) return 0;
  const uint32 value_pos = adr_count(&adr);
  if (!decode_value(&adr, req)) return 0;
  return dispatch(&adr, req, value_pos);
}
