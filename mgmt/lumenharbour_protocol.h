#pragma once

/// @file
/// What crosses the management socket: numbers, sizes and records, and the table of attributes. The daemon, the
/// management library and whoever stands on it take them from this file; docs/protocol.md tells how they travel.

#include <cstddef>
#include <string_view>

#include "zor_error.h"
#include "zor_types.h"

/// Where the daemon listens: a unix stream socket, one request per connection.
constexpr char LUMENHARBOUR_SOCKET_PATH[] = "/tmp/lumenHarbour.socket";

/// Bytes in the longest request body; a reply has its request's length. A native 32-bit length precedes both.
constexpr uint32 LUMENHARBOUR_MSG_MAX = 1518;

/// Sizes of text, in bytes.
enum : uint32 {
  LUMENHARBOUR_FILENAME_SIZE = 256,  ///< file names and paths, with terminator
  LUMENHARBOUR_TEXT_SIZE = 64,       ///< group names and credentials, with terminator
  LUMENHARBOUR_VLANLIST_SIZE = 512,  ///< bit list of VLANs 0 to 4095
  LUMENHARBOUR_MAC_SIZE = 6,         ///< MAC address
  LUMENHARBOUR_IPV4_SIZE = 4,        ///< IPv4 address in network order
  LUMENHARBOUR_CALLBACK_SIZE = 548,  ///< `tLumenHarbourCallback`
};

/// Function numbers: what a request does, and to which table.
enum : uint32 {
  LUMENHARBOUR_GLOBAL_SETAPI = 1,
  LUMENHARBOUR_GLOBAL_GETAPI = 2,
  LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST = 3,
  LUMENHARBOUR_CUSTOMGRPMAC_GETNEXT = 4,
  LUMENHARBOUR_CUSTOMGRPMAC_GETAPI = 5,
  LUMENHARBOUR_CUSTOMGRPMAC_SETAPI = 6,
  LUMENHARBOUR_CUSTOMGRPPID_GETFIRST = 7,
  LUMENHARBOUR_CUSTOMGRPPID_GETNEXT = 8,
  LUMENHARBOUR_CUSTOMGRPPID_GETAPI = 9,
  LUMENHARBOUR_CUSTOMGRPPID_SETAPI = 10,
  LUMENHARBOUR_CUSTOMGRP_GETFIRST = 11,
  LUMENHARBOUR_CUSTOMGRP_GETNEXT = 12,
  LUMENHARBOUR_CUSTOMGRP_SETAPI = 13,
  LUMENHARBOUR_CUSTOMGRP_GETAPI = 14,
  LUMENHARBOUR_BUILTINGRP_GETFIRST = 15,
  LUMENHARBOUR_BUILTINGRP_GETNEXT = 16,
  LUMENHARBOUR_BUILTINGRP_GETAPI = 17,
  LUMENHARBOUR_BUILTINGRP_SETAPI = 18,
  LUMENHARBOUR_CLIENT_GETFIRST = 19,
  LUMENHARBOUR_CLIENT_GETNEXT = 20,
  LUMENHARBOUR_CLIENT_GETAPI = 21,
  LUMENHARBOUR_CLIENT_SETAPI = 22,
  LUMENHARBOUR_CUSTOMGRPID_GETAPI = 23,
  LUMENHARBOUR_FUNC_MAX = 24,  ///< bound
};

/// Global attributes.
enum : uint32 {
  LUMENHARBOUR_GLB_STATE = 1,
  LUMENHARBOUR_GLB_DEBUG = 2,
  LUMENHARBOUR_GLB_DIRECTORIPTYPE = 3,
  LUMENHARBOUR_GLB_DIRECTORIP = 4,
  LUMENHARBOUR_GLB_CUSTOMGRPFREEID = 5,
  LUMENHARBOUR_GLB_DIRECTORSTATE = 6,
  LUMENHARBOUR_GLB_DEFAULTIMAGETYPE = 7,
  LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE = 8,
  LUMENHARBOUR_GLB_DEFAULTIMAGENAME = 9,
  LUMENHARBOUR_GLB_DEFAULTCONFIGNAME = 10,
  LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM = 11,
  LUMENHARBOUR_GLB_BUILTINGRPMAXNUM = 12,
  LUMENHARBOUR_GLB_GRPIDMAXNUM = 13,
  LUMENHARBOUR_GLB_CLIENTMAXNUM = 14,
  LUMENHARBOUR_GLB_DBFLUSH = 15,
  LUMENHARBOUR_GLB_DHCPCLIENTVLAN = 16,
  LUMENHARBOUR_GLB_MANAGEVLANADD = 17,
  LUMENHARBOUR_GLB_MANAGEVLANDEL = 18,
  LUMENHARBOUR_GLB_CLIENTNOTIFY = 19,
  LUMENHARBOUR_GLB_RCVIMAGENAME = 20,
  LUMENHARBOUR_GLB_RCVCONFIGNAME = 21,
  LUMENHARBOUR_GLB_IMAGEDOWNLOAD = 22,
  LUMENHARBOUR_GLB_CONFIGDOWNLOAD = 23,
  LUMENHARBOUR_GLB_IMAGESIZE = 24,
  LUMENHARBOUR_GLB_CONFIGSIZE = 25,
  LUMENHARBOUR_GLB_LOCALIMAGENAME = 26,
  LUMENHARBOUR_GLB_LOCALCONFIGNAME = 27,
  LUMENHARBOUR_GLB_DOWNLOADCONFIG = 28,
  LUMENHARBOUR_GLB_CONFIGRELOADSTATE = 29,
  LUMENHARBOUR_GLB_CONFIGRELOADTIME = 30,
  LUMENHARBOUR_GLB_DOWNLOADIMAGE = 31,
  LUMENHARBOUR_GLB_IMAGERELOADSTATE = 32,
  LUMENHARBOUR_GLB_IMAGERELOADTIME = 33,
  LUMENHARBOUR_GLB_CALLBACK = 34,
};

/// The row status, which is the first attribute of every table of rows.
constexpr uint32 LUMENHARBOUR_ROW_STATUS = 1;

/// Attributes of a custom group row.
enum : uint32 {
  LUMENHARBOUR_CUSTOMGRP_STATUS = LUMENHARBOUR_ROW_STATUS,
  LUMENHARBOUR_CUSTOMGRP_NAME = 2,
  LUMENHARBOUR_CUSTOMGRP_TYPE = 3,
  LUMENHARBOUR_CUSTOMGRP_IMAGETYPE = 4,
  LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE = 5,
  LUMENHARBOUR_CUSTOMGRP_IMAGENAME = 6,
  LUMENHARBOUR_CUSTOMGRP_CONFIGNAME = 7,
  LUMENHARBOUR_CUSTOMGRP_IDBYNAME = 8,
};

/// Attributes of a group member row.
enum : uint32 {
  LUMENHARBOUR_GRPMAC_STATUS = LUMENHARBOUR_ROW_STATUS,
  LUMENHARBOUR_GRPPID_STATUS = LUMENHARBOUR_ROW_STATUS,
};

/// Attributes of a built-in group row.
enum : uint32 {
  LUMENHARBOUR_BUILTINGRP_STATUS = LUMENHARBOUR_ROW_STATUS,
  LUMENHARBOUR_BUILTINGRP_IMAGETYPE = 2,
  LUMENHARBOUR_BUILTINGRP_CONFIGTYPE = 3,
  LUMENHARBOUR_BUILTINGRP_IMAGENAME = 4,
  LUMENHARBOUR_BUILTINGRP_CONFIGNAME = 5,
};

/// Attributes of a client row.
enum : uint32 {
  LUMENHARBOUR_CLIENT_STATUS = LUMENHARBOUR_ROW_STATUS,
  LUMENHARBOUR_CLIENT_IPTYPE = 2,
  LUMENHARBOUR_CLIENT_IP = 3,
  LUMENHARBOUR_CLIENT_MAC = 4,
  LUMENHARBOUR_CLIENT_PID = 5,
};

/// Truth values as they read back; on a set only `LUMENHARBOUR_ON` means on.
enum : uint32 {
  LUMENHARBOUR_ON = 1,
  LUMENHARBOUR_OFF = 2,
};

/// Row status values.
enum : uint32 {
  LUMENHARBOUR_ROW_ACTIVE = 1,    ///< set: activate; read: active
  LUMENHARBOUR_ROW_CREATE = 2,    ///< set: create; read: created, never activated
  LUMENHARBOUR_ROW_INACTIVE = 3,  ///< set: deactivate (a member: delete); read: deactivated
  LUMENHARBOUR_ROW_DESTROY = 4,   ///< set: delete
};

/// Types of custom group, values of `LUMENHARBOUR_CUSTOMGRP_TYPE`. The order matters: of two groups that match a client
/// the smaller type wins.
enum : uint8 {
  LUMENHARBOUR_CUSTOMGRP_TYPE_UNKNOWN = 0,
  LUMENHARBOUR_CUSTOMGRP_TYPE_STACK = 1,
  LUMENHARBOUR_CUSTOMGRP_TYPE_MAC = 2,
  LUMENHARBOUR_CUSTOMGRP_TYPE_CONNECT = 3,
  LUMENHARBOUR_CUSTOMGRP_TYPE_PID = 4,
  LUMENHARBOUR_CUSTOMGRP_TYPE_MAX = 5,  ///< bound
};

/// The tables of the management interface.
enum tLumenHarbourTable : uint8 {
  LUMENHARBOUR_TABLE_GLOBAL = 0,
  LUMENHARBOUR_TABLE_CUSTOMGRP = 1,
  LUMENHARBOUR_TABLE_CUSTOMGRPMAC = 2,
  LUMENHARBOUR_TABLE_CUSTOMGRPPID = 3,
  LUMENHARBOUR_TABLE_BUILTINGRP = 4,
  LUMENHARBOUR_TABLE_CLIENT = 5,
};

/// What an attribute's value is. Up to and with `LUMENHARBOUR_VALUE_ROWSTATUS` it is one unsigned 32-bit integer, from
/// `LUMENHARBOUR_VALUE_TEXT` on an octet string.
enum tLumenHarbourValue : uint8 {
  LUMENHARBOUR_VALUE_IGNORED = 0,    ///< a set acts without looking at the value
  LUMENHARBOUR_VALUE_NUMBER = 1,     ///< integer
  LUMENHARBOUR_VALUE_TRUTH = 2,      ///< integer, a truth value
  LUMENHARBOUR_VALUE_ROWSTATUS = 3,  ///< integer, a row status
  LUMENHARBOUR_VALUE_TEXT = 4,       ///< name, without terminator
  LUMENHARBOUR_VALUE_IPV4 = 5,       ///< 4 bytes, network order
  LUMENHARBOUR_VALUE_MAC = 6,        ///< 6 bytes
  LUMENHARBOUR_VALUE_VLANS = 7,      ///< bitmap, VLAN 0 in the most significant bit of the first byte
  LUMENHARBOUR_VALUE_RECORD = 8,     ///< `tLumenHarbourCallback`
};

/// Which directions an attribute supports.
enum : uint8 {
  LUMENHARBOUR_ATTR_GET = 1,
  LUMENHARBOUR_ATTR_SET = 2,
};

/// Which role a set asks for. The two guards answer differently, and requesters depend on it: outside the client role a
/// client attribute is refused, outside the director role a director attribute is silently accepted without effect.
enum tLumenHarbourGuard : uint8 {
  LUMENHARBOUR_GUARD_NONE = 0,
  LUMENHARBOUR_GUARD_CLIENT = 1,
  LUMENHARBOUR_GUARD_DIRECTOR = 2,
};

/// One attribute of one table.
struct tLumenHarbourAttr {
  tLumenHarbourTable table;
  uint32 cmd;                ///< attribute number within the table
  std::string_view name;     ///< what operators call it
  tLumenHarbourValue value;  ///< what its value is
  uint8 access;              ///< `LUMENHARBOUR_ATTR_*`, or'ed
  tLumenHarbourGuard guard;  ///< role that a set asks for
};

/// @return true when a value of this kind travels as one integer.
constexpr bool lumenharbour_value_is_integer(tLumenHarbourValue value) {
  return value >= LUMENHARBOUR_VALUE_NUMBER && value <= LUMENHARBOUR_VALUE_ROWSTATUS;
}

/// Every attribute that can be read or set, once. The dispatcher takes the value kinds from here, the handlers the role
/// guards, and the control tool names, directions and formats.
inline constexpr tLumenHarbourAttr LUMENHARBOUR_ATTRS[] = {
#define ATTR(table, attr, name, value, access, guard)                                                 \
  {                                                                                                   \
    LUMENHARBOUR_TABLE_##table, LUMENHARBOUR_##attr, name, LUMENHARBOUR_VALUE_##value, ATTR_##access, \
        LUMENHARBOUR_GUARD_##guard                                                                    \
  }
#define ATTR_R LUMENHARBOUR_ATTR_GET
#define ATTR_W LUMENHARBOUR_ATTR_SET
#define ATTR_RW (LUMENHARBOUR_ATTR_GET | LUMENHARBOUR_ATTR_SET)
    ATTR(GLOBAL, GLB_STATE, "service", TRUTH, RW, NONE),
    ATTR(GLOBAL, GLB_DEBUG, "debug", NUMBER, RW, NONE),
    ATTR(GLOBAL, GLB_DIRECTORIPTYPE, "director-type", NUMBER, RW, NONE),
    ATTR(GLOBAL, GLB_DIRECTORIP, "director-address", IPV4, RW, NONE),
    ATTR(GLOBAL, GLB_CUSTOMGRPFREEID, "group-free-id", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_DIRECTORSTATE, "director-state", TRUTH, RW, NONE),
    ATTR(GLOBAL, GLB_DEFAULTIMAGETYPE, "default-image-local", NUMBER, RW, DIRECTOR),
    ATTR(GLOBAL, GLB_DEFAULTCONFIGTYPE, "default-config-local", NUMBER, RW, DIRECTOR),
    ATTR(GLOBAL, GLB_DEFAULTIMAGENAME, "default-image", TEXT, RW, DIRECTOR),
    ATTR(GLOBAL, GLB_DEFAULTCONFIGNAME, "default-config", TEXT, RW, DIRECTOR),
    ATTR(GLOBAL, GLB_CUSTOMGRPMAXNUM, "group-max", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_BUILTINGRPMAXNUM, "builtin-max", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_GRPIDMAXNUM, "member-max", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_CLIENTMAXNUM, "client-max", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_DBFLUSH, "client-flush", IGNORED, W, NONE),
    ATTR(GLOBAL, GLB_DHCPCLIENTVLAN, "dhcp-vlan", NUMBER, RW, NONE),
    ATTR(GLOBAL, GLB_MANAGEVLANADD, "management-vlans", VLANS, RW, NONE),
    ATTR(GLOBAL, GLB_MANAGEVLANDEL, "management-vlans-remove", VLANS, RW, NONE),
    ATTR(GLOBAL, GLB_CLIENTNOTIFY, "notify", TRUTH, RW, CLIENT),
    ATTR(GLOBAL, GLB_RCVIMAGENAME, "received-image", TEXT, R, NONE),
    ATTR(GLOBAL, GLB_RCVCONFIGNAME, "received-config", TEXT, R, NONE),
    ATTR(GLOBAL, GLB_IMAGEDOWNLOAD, "received-image-bytes", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_CONFIGDOWNLOAD, "received-config-bytes", NUMBER, R, NONE),
    ATTR(GLOBAL, GLB_DOWNLOADCONFIG, "download-config", IGNORED, W, CLIENT),
    ATTR(GLOBAL, GLB_CONFIGRELOADSTATE, "config-reload", TRUTH, W, CLIENT),
    ATTR(GLOBAL, GLB_CONFIGRELOADTIME, "config-reload-time", NUMBER, W, CLIENT),
    ATTR(GLOBAL, GLB_DOWNLOADIMAGE, "download-image", IGNORED, W, CLIENT),
    ATTR(GLOBAL, GLB_IMAGERELOADSTATE, "image-reload", TRUTH, W, CLIENT),
    ATTR(GLOBAL, GLB_IMAGERELOADTIME, "image-reload-time", NUMBER, W, CLIENT),
    ATTR(GLOBAL, GLB_CALLBACK, "announce", RECORD, R, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_STATUS, "status", ROWSTATUS, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_NAME, "name", TEXT, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_TYPE, "type", NUMBER, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_IMAGETYPE, "image-local", NUMBER, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_CONFIGTYPE, "config-local", NUMBER, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_IMAGENAME, "image", TEXT, RW, NONE),
    ATTR(CUSTOMGRP, CUSTOMGRP_CONFIGNAME, "config", TEXT, RW, NONE),
    ATTR(CUSTOMGRPMAC, GRPMAC_STATUS, "status", ROWSTATUS, RW, NONE),
    ATTR(CUSTOMGRPPID, GRPPID_STATUS, "status", ROWSTATUS, RW, NONE),
    ATTR(BUILTINGRP, BUILTINGRP_STATUS, "status", ROWSTATUS, RW, NONE),
    ATTR(BUILTINGRP, BUILTINGRP_IMAGETYPE, "image-local", NUMBER, RW, NONE),
    ATTR(BUILTINGRP, BUILTINGRP_CONFIGTYPE, "config-local", NUMBER, RW, NONE),
    ATTR(BUILTINGRP, BUILTINGRP_IMAGENAME, "image", TEXT, RW, NONE),
    ATTR(BUILTINGRP, BUILTINGRP_CONFIGNAME, "config", TEXT, RW, NONE),
    ATTR(CLIENT, CLIENT_STATUS, "status", ROWSTATUS, RW, NONE),
    ATTR(CLIENT, CLIENT_IPTYPE, "ip-type", NUMBER, R, NONE),
    ATTR(CLIENT, CLIENT_IP, "ip", IPV4, R, NONE),
    ATTR(CLIENT, CLIENT_MAC, "mac", MAC, R, NONE),
    ATTR(CLIENT, CLIENT_PID, "pid", NUMBER, R, NONE),
#undef ATTR
#undef ATTR_R
#undef ATTR_W
#undef ATTR_RW
};

/// @return the attribute `cmd` of `table`, or null when it can be neither read nor set.
constexpr const tLumenHarbourAttr* lumenharbour_attr_find(tLumenHarbourTable table, uint32 cmd) {
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == table && attr.cmd == cmd) return &attr;
  return nullptr;
}

/// Key of a row of the MAC member table.
struct tLumenHarbourGrpMacIndex {
  uint16 grp_id;                     ///< custom group id
  uint8 mac[LUMENHARBOUR_MAC_SIZE];  ///< MAC address
};

/// Key of a row of the product-id member table.
struct tLumenHarbourGrpPidIndex {
  uint32 grp_id;  ///< custom group id
  uint32 pid;     ///< product id
};

/// A client switch as the DHCP server announces it. Integers in native byte order.
struct tLumenHarbourClientInfo {
  uint8 ip[16];                      ///< the client's address; IPv4: bytes 0 to 3, network order
  uint32 pid;                        ///< product id
  uint8 mac[LUMENHARBOUR_MAC_SIZE];  ///< MAC address, the key under which the director knows the client
  uint8 family;                      ///< address family of `ip`; not looked at
  uint8 op;                          ///< non-zero: add or refresh the client; 0: delete it
};

/// The value of the attribute `LUMENHARBOUR_GLB_CALLBACK`: a client announced to the director, and the names handed
/// back. A daemon that is not the director leaves lengths and slots as they were asked, and so does a director that is
/// to add a client with a capacity of 0: it does not take note of the client then.
struct tLumenHarbourCallback {
  tLumenHarbourClientInfo client_info;                ///< in: the client
  uint32 imagefile_len;                               ///< in: capacity of `imagefile_name`; out: length
  uint32 configfile_len;                              ///< in: capacity of `configfile_name`; out: length
  uint8 imagefile_name[LUMENHARBOUR_FILENAME_SIZE];   ///< out: imagelist file to fetch, without terminator
  uint8 configfile_name[LUMENHARBOUR_FILENAME_SIZE];  ///< out: configuration file, without terminator
};

static_assert(sizeof(tLumenHarbourClientInfo) == 28);
static_assert(offsetof(tLumenHarbourClientInfo, ip) == 0);
static_assert(offsetof(tLumenHarbourClientInfo, pid) == 16);
static_assert(offsetof(tLumenHarbourClientInfo, mac) == 20);
static_assert(offsetof(tLumenHarbourClientInfo, family) == 26);
static_assert(offsetof(tLumenHarbourClientInfo, op) == 27);
static_assert(sizeof(tLumenHarbourCallback) == LUMENHARBOUR_CALLBACK_SIZE);
static_assert(offsetof(tLumenHarbourCallback, client_info) == 0);
static_assert(offsetof(tLumenHarbourCallback, imagefile_len) == 28);
static_assert(offsetof(tLumenHarbourCallback, configfile_len) == 32);
static_assert(offsetof(tLumenHarbourCallback, imagefile_name) == 36);
static_assert(offsetof(tLumenHarbourCallback, configfile_name) == 292);
