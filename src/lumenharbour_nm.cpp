// Management handlers: global attributes, the group, member and client tables, and the diagnostic dumps.

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "lumenharbour.h"
#include "zor_attr.h"

namespace {

// ---------------------------------------------------------------------------------------------------------------------
// Values

uint32 integer_of(const void* var) {
  return *static_cast<const uint32*>(var);
}
octetstring* octets_of(void* var) {
  return static_cast<octetstring*>(var);
}

int integer_answer(void* var, uint32 value) {
  *static_cast<uint32*>(var) = value;
  return 0;
}

int truth_answer(void* var, bool on) {
  return integer_answer(var, on ? LUMENHARBOUR_ON : LUMENHARBOUR_OFF);
}

/// A text field of a record.
struct tText {
  char* field;
  uint32 size;  ///< bytes, the terminator's included
};

/// Copies an octet string into a text field, whose last byte stays 0, and lowers the caller's length to what fitted.
int text_set(tText text, octetstring* value) {
  value->len = std::min(value->len, text.size - 1);
  memset(text.field, 0, text.size);
  memcpy(text.field, value->pBuf, value->len);
  return 0;
}

/// Copies a text field without its terminator. The room asked for is that of the longest text, whatever the field
/// holds.
int text_get(tText text, octetstring* value) {
  if (value->len < text.size - 1) return ERR_ZOR_BUFSHORT;
  value->len = static_cast<uint32>(strnlen(text.field, text.size - 1));
  memcpy(value->pBuf, text.field, value->len);
  return 0;
}

/// @return the text field `field` of a record.
template <auto field, typename Record>
tText text_of(Record& record) {
  return {record.*field, sizeof(record.*field)};
}

/// An octet string as text for a message; a temporary in the message's arguments.
struct tOctetText {
  char text[LUMENHARBOUR_MSG_MAX + 1] = {};
  explicit tOctetText(const octetstring* octet) {
    memcpy(text, octet->pBuf, std::min(octet->len, LUMENHARBOUR_MSG_MAX));
  }
};

/// @return the first record from slot `from` on whose field `used` is not 0, or null. A pool that is absent has none.
template <typename T>
T* pool_find(T* tbl, uint32 num, uint64 from, uint8 T::*used) {
  if (tbl == nullptr) return nullptr;
  for (uint64 i = from; i < num; i++)
    if (tbl[i].*used != 0) return &tbl[i];
  return nullptr;
}

// ---------------------------------------------------------------------------------------------------------------------
// Rows of attributes

/// @return whether `rows` are the attributes of a table as the attribute table has them, each once and none left out.
///
/// @param[in] cmd     member that holds a row's attribute number; 0 there: the row is not of this table
/// @param[in] agrees  whether a row does what its attribute promises
template <typename Row, size_t count, typename Agrees>
constexpr bool rows_match(const Row (&rows)[count], uint32 Row::*cmd, tLumenHarbourTable table, Agrees agrees) {
  size_t others = 0;
  for (const Row& row : rows) others += row.*cmd != 0 ? 1 : 0;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    if (attr.table != table) continue;
    size_t found = 0;
    for (const Row& row : rows) found += row.*cmd == attr.cmd && agrees(row, attr) ? 1 : 0;
    if (found != 1) return false;
    others--;
  }
  return others == 0;
}

// With its sanitizers GCC takes every function's address for one that may be null, and no such check for a constant.
#ifdef __SANITIZE_ADDRESS__
#define LUMENHARBOUR_ROWS_ASSERT(...)
#else
#define LUMENHARBOUR_ROWS_ASSERT(...) static_assert(__VA_ARGS__)
#endif

/// @return the row of attribute `value`, or null.
template <typename Row, size_t count>
const Row* row_find(const Row (&rows)[count], uint32 Row::*cmd, uint32 value) {
  for (const Row& row : rows)
    if (row.*cmd == value && value != 0) return &row;
  return nullptr;
}

// ---------------------------------------------------------------------------------------------------------------------
// Global attributes: set

void director_leave() {
  if (gLumenHarbourInfo.role != LUMENHARBOUR_ROLE_DIRECTOR) return;
  lumenharbour_director_disable();
  lumenharbour_client_enable(0);
}

int set_state(void* var) {
  const bool on = integer_of(var) == LUMENHARBOUR_ON;
  if (on == (gLumenHarbourInfo.enable == 1)) return 0;
  return on ? lumenharbour_enable(LUMENHARBOUR_ROLE_CLIENT, 1) : lumenharbour_disable();
}

int set_debug(void* var) {
  gLumenHarbourInfo.debug = integer_of(var) & 3U;
  return 0;
}

int set_director_ip_type(void* var) {
  gLumenHarbourInfo.director_ip_type = integer_of(var) & 15U;
  return 0;
}

/// The address decides the role: one of the switch's own makes a client director, every other makes a director client.
int set_director_ip(void* var) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  if (octets_of(var)->len != LUMENHARBOUR_IPV4_SIZE) return ERR_ZOR_BADLEN;
  const uint32 ip = lumenharbour_ip_read(octets_of(var)->pBuf);
  uint32 unit = 0;
  if (ip != 0 && lumenharbour_if_unit_lookup(ip, &unit) == 0) {
    info.director_ip = ip;
    if (info.role != LUMENHARBOUR_ROLE_CLIENT) return 0;
    if (const int rc = lumenharbour_director_enable(); rc != 0) return rc;
    lumenharbour_client_disable();
    LUMENHARBOUR_DEBUG("[LumenHarbour] The device becomes the director!\n\r");
    info.role = LUMENHARBOUR_ROLE_DIRECTOR;
    info.if_unit = unit;
    return 0;
  }
  if (ip != 0) LUMENHARBOUR_DEBUG("[LumenHarbour] Failed to get ifunit from director-ip!\r\n");
  info.director_ip = ip;
  director_leave();
  return 0;
}

/// Unlike the director address, switching the state on leaves the client role's timer and files as they are.
int set_director_state(void* var) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  if (integer_of(var) != LUMENHARBOUR_ON) {
    director_leave();
    return 0;
  }
  if (info.role == LUMENHARBOUR_ROLE_DIRECTOR) return 0;
  if (info.director_ip == 0 || info.director_ip_type == 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Director IP is not configured!\r\n");
    return ERR_AUTOCFG_NODIRECTORIP;
  }
  uint32 unit = 0;
  if (lumenharbour_if_unit_lookup(info.director_ip, &unit) != 0) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Get ifunit from director ip failed!\r\n");
    LUMENHARBOUR_DEBUG("[LumenHarbour] The director IP doesn't match the switch IP address!\r\n");
    return ERR_AUTOCFG_IPMISMATCH;
  }
  if (const int rc = lumenharbour_director_enable(); rc != 0) return rc;
  info.role = LUMENHARBOUR_ROLE_DIRECTOR;
  info.if_unit = unit;
  return 0;
}

int set_default_image_type(void* var) {
  gLumenHarbourInfo.default_image_local = integer_of(var) & 3U;
  return 0;
}

int set_default_config_type(void* var) {
  gLumenHarbourInfo.default_config_local = integer_of(var) & 3U;
  return 0;
}

int set_default_image_name(void* var) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  octetstring* value = octets_of(var);
  text_set(text_of<&tLumenHarbourInfo::default_image_name>(info), value);
  if (value->len == 0) {
    lumenharbour_imagelist_file_remove(info.default_imagelist_name);
    return 0;
  }
  if (lumenharbour_default_imagelist_create() == 0) return 0;
  memset(info.default_image_name, 0, sizeof(info.default_image_name));
  return ERR_AUTOCFG_IMAGELIST;
}

/// The default imagelist names no configuration, so it stays as it is.
int set_default_config_name(void* var) {
  return text_set(text_of<&tLumenHarbourInfo::default_config_name>(gLumenHarbourInfo), octets_of(var));
}

int set_database_flush(void*) {
  lumenharbour_database_flush();
  return 0;
}

/// A VLAN without an interface leaves the unit as it was; the requester is not told, as with the read.
int set_dhcp_client_vlan(void* var) {
  const tPhyIfInfo vlan = {1, 1, 1, 1, integer_of(var), 3, 0};
  zorIndexTrans(&vlan, SYS_VLAN2LOGICAL, &gLumenHarbourInfo.dhcp_client_vlan);
  return 0;
}

/// @return how many bytes of a requester's bitmap take part; VLAN ids end where the list does.
uint32 vlan_bytes(const octetstring* bitmap) {
  return std::min<uint32>(bitmap->len, LUMENHARBOUR_VLANLIST_SIZE);
}

int set_manage_vlan_add(void* var) {
  const octetstring* bitmap = octets_of(var);
  for (uint32 i = 0; i < vlan_bytes(bitmap); i++) gLumenHarbourInfo.manage_vlan_list[i] |= bitmap->pBuf[i];
  return 0;
}

int set_manage_vlan_del(void* var) {
  const octetstring* bitmap = octets_of(var);
  for (uint32 i = 0; i < vlan_bytes(bitmap); i++)
    gLumenHarbourInfo.manage_vlan_list[i] &= static_cast<uint8>(~bitmap->pBuf[i]);
  return 0;
}

int set_client_notify(void* var) {
  gLumenHarbourInfo.dhcp_client_notify = integer_of(var) == LUMENHARBOUR_ON;
  return 0;
}

int set_config_reload(void* var) {
  gLumenHarbourInfo.config_reload = integer_of(var) == LUMENHARBOUR_ON;
  return 0;
}

int set_config_reload_time(void* var) {
  gLumenHarbourInfo.config_reload_time = integer_of(var);
  return 0;
}

int set_image_reload(void* var) {
  gLumenHarbourInfo.image_reload = integer_of(var) == LUMENHARBOUR_ON;
  return 0;
}

int set_image_reload_time(void* var) {
  gLumenHarbourInfo.image_reload_time = integer_of(var);
  return 0;
}

/// Has the client role's next step install what management asked for. A request for the other file stands.
int download_start() {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.upgrade_mode = LUMENHARBOUR_UPGRADE_MANUAL;
  lumenharbour_local_files_remove();
  timerStop(&info.timer_list, &info.notify_timer);
  lumenharbour_notify_timer_start(info.check_interval);
  return 0;
}

int set_download_config(void*) {
  gLumenHarbourInfo.upgrade_config = 1;
  return download_start();
}

int set_download_image(void*) {
  gLumenHarbourInfo.upgrade_image = 1;
  return download_start();
}

// ---------------------------------------------------------------------------------------------------------------------
// Global attributes: get

int get_state(void* var) {
  return truth_answer(var, gLumenHarbourInfo.enable == 1);
}
int get_debug(void* var) {
  return integer_answer(var, gLumenHarbourInfo.debug);
}
int get_director_ip_type(void* var) {
  return integer_answer(var, gLumenHarbourInfo.director_ip_type);
}

/// A buffer too short for an address is no error: nothing is written, and the length tells.
int get_director_ip(void* var) {
  octetstring* value = octets_of(var);
  if (value->len < LUMENHARBOUR_IPV4_SIZE) return 0;
  value->len = 0;
  if (gLumenHarbourInfo.director_ip == 0) return 0;
  value->len = LUMENHARBOUR_IPV4_SIZE;
  lumenharbour_ip_write(gLumenHarbourInfo.director_ip, value->pBuf);
  return 0;
}

int get_custom_grp_free_id(void* var) {
  if (gLumenHarbourInfo.role != LUMENHARBOUR_ROLE_DIRECTOR) return 0;
  return lumenharbour_custom_grp_freeid_get(static_cast<uint32*>(var));
}

int get_director_state(void* var) {
  return truth_answer(var, gLumenHarbourInfo.role == LUMENHARBOUR_ROLE_DIRECTOR);
}
int get_default_image_type(void* var) {
  return integer_answer(var, gLumenHarbourInfo.default_image_local);
}
int get_default_config_type(void* var) {
  return integer_answer(var, gLumenHarbourInfo.default_config_local);
}

template <auto field>
int get_name(void* var) {
  return text_get(text_of<field>(gLumenHarbourInfo), octets_of(var));
}

template <uint32 tLumenHarbourInfo::*field>
int get_number(void* var) {
  return integer_answer(var, gLumenHarbourInfo.*field);
}

int get_dhcp_client_vlan(void* var) {
  zorIfGetApi(gLumenHarbourInfo.dhcp_client_vlan, SYS_IF_VLANVID, var);
  return 0;
}

/// Adds to what the requester's buffer holds; it sends as many zeroed bytes as it wants to see.
int get_manage_vlan(void* var) {
  octetstring* bitmap = octets_of(var);
  for (uint32 i = 0; i < vlan_bytes(bitmap); i++) bitmap->pBuf[i] |= gLumenHarbourInfo.manage_vlan_list[i];
  return 0;
}

int get_client_notify(void* var) {
  return truth_answer(var, gLumenHarbourInfo.dhcp_client_notify == 1);
}

/// Announces a client to the director. What went wrong shows in the lengths alone.
int get_callback(void* var) {
  octetstring* value = octets_of(var);
  if (value->len != sizeof(tLumenHarbourCallback)) return ERR_ZOR_BUFSHORT;
  tLumenHarbourCallback record;  // the request's bytes may lie at any address
  memcpy(&record, value->pBuf, sizeof(record));
  octetstring image = {record.imagefile_name, record.imagefile_len};
  octetstring config = {record.configfile_name, record.configfile_len};
  lumenharbour_client_entry_callback(&record.client_info, image.len != 0 ? &image : nullptr,
                                     config.len != 0 ? &config : nullptr);
  record.imagefile_len = image.len;
  record.configfile_len = config.len;
  memcpy(value->pBuf, &record, sizeof(record));
  return 0;
}

// ---------------------------------------------------------------------------------------------------------------------
// Global attributes: dispatch

/// How one global attribute is set and read; null where it cannot be.
struct tGlobalHandler {
  uint32 cmd;
  int (*set)(void* var);
  int (*get)(void* var);
};

using Info = tLumenHarbourInfo;

constexpr tGlobalHandler GLOBAL_HANDLERS[] = {
    {LUMENHARBOUR_GLB_STATE, set_state, get_state},
    {LUMENHARBOUR_GLB_DEBUG, set_debug, get_debug},
    {LUMENHARBOUR_GLB_DIRECTORIPTYPE, set_director_ip_type, get_director_ip_type},
    {LUMENHARBOUR_GLB_DIRECTORIP, set_director_ip, get_director_ip},
    {LUMENHARBOUR_GLB_CUSTOMGRPFREEID, nullptr, get_custom_grp_free_id},
    {LUMENHARBOUR_GLB_DIRECTORSTATE, set_director_state, get_director_state},
    {LUMENHARBOUR_GLB_DEFAULTIMAGETYPE, set_default_image_type, get_default_image_type},
    {LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE, set_default_config_type, get_default_config_type},
    {LUMENHARBOUR_GLB_DEFAULTIMAGENAME, set_default_image_name, get_name<&Info::default_image_name>},
    {LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, set_default_config_name, get_name<&Info::default_config_name>},
    {LUMENHARBOUR_GLB_CUSTOMGRPMAXNUM, nullptr, get_number<&Info::custom_grp_max_num>},
    {LUMENHARBOUR_GLB_BUILTINGRPMAXNUM, nullptr, get_number<&Info::builtin_grp_max_num>},
    {LUMENHARBOUR_GLB_GRPIDMAXNUM, nullptr, get_number<&Info::grpid_max_num>},
    {LUMENHARBOUR_GLB_CLIENTMAXNUM, nullptr, get_number<&Info::client_max_num>},
    {LUMENHARBOUR_GLB_DBFLUSH, set_database_flush, nullptr},
    {LUMENHARBOUR_GLB_DHCPCLIENTVLAN, set_dhcp_client_vlan, get_dhcp_client_vlan},
    {LUMENHARBOUR_GLB_MANAGEVLANADD, set_manage_vlan_add, get_manage_vlan},
    {LUMENHARBOUR_GLB_MANAGEVLANDEL, set_manage_vlan_del, get_manage_vlan},
    {LUMENHARBOUR_GLB_CLIENTNOTIFY, set_client_notify, get_client_notify},
    {LUMENHARBOUR_GLB_RCVIMAGENAME, nullptr, get_name<&Info::rcv_image_name>},
    {LUMENHARBOUR_GLB_RCVCONFIGNAME, nullptr, get_name<&Info::rcv_config_name>},
    {LUMENHARBOUR_GLB_IMAGEDOWNLOAD, nullptr, get_number<&Info::image_file_rcv>},
    {LUMENHARBOUR_GLB_CONFIGDOWNLOAD, nullptr, get_number<&Info::config_file_rcv>},
    {LUMENHARBOUR_GLB_DOWNLOADCONFIG, set_download_config, nullptr},
    {LUMENHARBOUR_GLB_CONFIGRELOADSTATE, set_config_reload, nullptr},
    {LUMENHARBOUR_GLB_CONFIGRELOADTIME, set_config_reload_time, nullptr},
    {LUMENHARBOUR_GLB_DOWNLOADIMAGE, set_download_image, nullptr},
    {LUMENHARBOUR_GLB_IMAGERELOADSTATE, set_image_reload, nullptr},
    {LUMENHARBOUR_GLB_IMAGERELOADTIME, set_image_reload_time, nullptr},
    {LUMENHARBOUR_GLB_CALLBACK, nullptr, get_callback},
};

LUMENHARBOUR_ROWS_ASSERT(
    rows_match(GLOBAL_HANDLERS, &tGlobalHandler::cmd, LUMENHARBOUR_TABLE_GLOBAL,
               [](const tGlobalHandler& row, const tLumenHarbourAttr& attr) {
                 return (row.get != nullptr) == ((attr.access & LUMENHARBOUR_ATTR_GET) != 0) &&
                        (row.set != nullptr) == ((attr.access & LUMENHARBOUR_ATTR_SET) != 0);
               }),
    "each global attribute has one row here and one in the attribute table, with the same directions");

int global_set(uint32 cmd, void* var) {
  const tGlobalHandler* handler = row_find(GLOBAL_HANDLERS, &tGlobalHandler::cmd, cmd);
  if (handler == nullptr || handler->set == nullptr) return ERR_ZOR_UNSUPPORTED;
  const tLumenHarbourAttr* attr = lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd);
  if (var == nullptr && attr->value != LUMENHARBOUR_VALUE_IGNORED) return ERR_ZOR_UNSUPPORTED;
  const uint32 role = gLumenHarbourInfo.role;
  if (attr->guard == LUMENHARBOUR_GUARD_DIRECTOR && role != LUMENHARBOUR_ROLE_DIRECTOR) return 0;
  if (attr->guard == LUMENHARBOUR_GUARD_CLIENT && role != LUMENHARBOUR_ROLE_CLIENT) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Global set: the role is not client!\r\n");
    return ERR_ZOR_UNSUPPORTED;
  }
  return handler->set(var);
}

int global_get(uint32 cmd, void* var) {
  const tGlobalHandler* handler = row_find(GLOBAL_HANDLERS, &tGlobalHandler::cmd, cmd);
  if (handler == nullptr || handler->get == nullptr || var == nullptr) return ERR_ZOR_UNSUPPORTED;
  return handler->get(var);
}

}  // namespace

int lumenharbourSetApi(void*, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Global set: cmd = %ld.\r\n", static_cast<long>(cmd));
  const bool any_time = cmd == LUMENHARBOUR_GLB_STATE || cmd == LUMENHARBOUR_GLB_DEBUG;
  if (gLumenHarbourInfo.enable == 0 && !any_time) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Please start lumenharbour globally!\r\n");
    return ERR_ZOR_NOTSTARTED;
  }
  const tLumenHarbourLock lock;
  return global_set(cmd, var);
}

int lumenharbourGetApi(void*, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Global get: cmd = %ld.\r\n", static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  const int rc = global_get(cmd, var);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Global get: rc = %d.\r\n", rc);
  return rc;
}

// ---------------------------------------------------------------------------------------------------------------------
// Group rows, custom and built-in

namespace {

using Grp = tLumenHarbourGrpEntry;

/// A field of a group as an attribute: a number of one byte, or a text.
struct tGrpField {
  uint32 custom;                            ///< attribute of a custom group, 0: it has none
  uint32 builtin;                           ///< attribute of a built-in group, 0: it has none
  uint8 Grp::*number;                       ///< where a number lives, kept in its low byte; null for a text
  tText (*text)(Grp& grp);                  ///< where a text lives; null for a number
  int (*check)(const Grp& grp, void* var);  ///< the code by which a value is refused, 0 for none; null: any is taken
  void (*tell)(const octetstring& value);   ///< prints what a custom group is given; null for nothing
};

/// A name is some other group's or free; a group may be given its own once more.
int name_check(const Grp& grp, void* var) {
  const octetstring* name = octets_of(var);
  const Grp* other = lumenharbour_custom_grp_lookup_by_name(name->pBuf, name->len);
  return other != nullptr && other->id != grp.id ? ERR_ZOR_EXISTS : 0;
}

int type_check(const Grp&, void* var) {
  return integer_of(var) >= LUMENHARBOUR_CUSTOMGRP_TYPE_MAX ? ERR_BARE_INVALID : 0;
}

void name_tell(const octetstring& value) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Group name: name %s, len %d.\r\n", tOctetText(&value).text,
                     static_cast<int>(value.len));
}

void image_tell(const octetstring& value) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Imagelist name: len %d, name %s.\r\n", static_cast<int>(value.len),
                     tOctetText(&value).text);
}

void config_tell(const octetstring& value) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Configfile name: len %d, name %s.\r\n", static_cast<int>(value.len),
                     tOctetText(&value).text);
}

/// The row status is among them for its reading; what setting it does is `grp_status_set`.
constexpr tGrpField GRP_FIELDS[] = {
    {LUMENHARBOUR_CUSTOMGRP_STATUS, LUMENHARBOUR_BUILTINGRP_STATUS, &Grp::status, nullptr, nullptr, nullptr},
    {LUMENHARBOUR_CUSTOMGRP_NAME, 0, nullptr, text_of<&Grp::name>, name_check, name_tell},
    {LUMENHARBOUR_CUSTOMGRP_TYPE, 0, &Grp::custom_type, nullptr, type_check, nullptr},
    {LUMENHARBOUR_CUSTOMGRP_IMAGETYPE, LUMENHARBOUR_BUILTINGRP_IMAGETYPE, &Grp::imagefile_is_local, nullptr, nullptr,
     nullptr},
    {LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE, LUMENHARBOUR_BUILTINGRP_CONFIGTYPE, &Grp::configfile_is_local, nullptr, nullptr,
     nullptr},
    {LUMENHARBOUR_CUSTOMGRP_IMAGENAME, LUMENHARBOUR_BUILTINGRP_IMAGENAME, nullptr, text_of<&Grp::image_file_name>,
     nullptr, image_tell},
    {LUMENHARBOUR_CUSTOMGRP_CONFIGNAME, LUMENHARBOUR_BUILTINGRP_CONFIGNAME, nullptr, text_of<&Grp::config_file_name>,
     nullptr, config_tell},
};

/// @return whether a field is of the kind that its attribute promises.
constexpr bool grp_field_agrees(const tGrpField& field, const tLumenHarbourAttr& attr) {
  const bool is_right = lumenharbour_value_is_integer(attr.value) ? field.number != nullptr && field.text == nullptr
                                                                  : field.number == nullptr && field.text != nullptr;
  return is_right && attr.access == (LUMENHARBOUR_ATTR_GET | LUMENHARBOUR_ATTR_SET);
}

LUMENHARBOUR_ROWS_ASSERT(rows_match(GRP_FIELDS, &tGrpField::custom, LUMENHARBOUR_TABLE_CUSTOMGRP, grp_field_agrees));
LUMENHARBOUR_ROWS_ASSERT(rows_match(GRP_FIELDS, &tGrpField::builtin, LUMENHARBOUR_TABLE_BUILTINGRP, grp_field_agrees));

/// What the two tables of groups do not have in common.
struct tGrpTable {
  uint32 tGrpField::*cmd;              ///< attribute numbers
  Grp* tLumenHarbourInfo::*tbl;        ///< pool
  uint32 tLumenHarbourInfo::*max_num;  ///< records in the pool
  Grp* (*add)(uint32 index);
  void (*del)(Grp* p_grp);
  const char* missing;  ///< debug message for a row that is not there
  bool is_told;         ///< what is set is printed under the debug switch
};

constexpr tGrpTable CUSTOM = {&tGrpField::custom,
                              &tLumenHarbourInfo::custom_grp_tbl,
                              &tLumenHarbourInfo::custom_grp_max_num,
                              lumenharbour_custom_grp_add,
                              lumenharbour_custom_grp_del,
                              "[LumenHarbour] Custom group does not exist!\r\n",
                              true};
constexpr tGrpTable BUILTIN = {&tGrpField::builtin,
                               &tLumenHarbourInfo::builtin_grp_tbl,
                               &tLumenHarbourInfo::builtin_grp_max_num,
                               lumenharbour_builtin_grp_add,
                               lumenharbour_builtin_grp_del,
                               "[LumenHarbour] This built-in group does not exist!\r\n",
                               false};

/// @return the first group in use from slot `from` of its pool on, or null.
Grp* grp_find(const tGrpTable& table, uint64 from) {
  return pool_find(gLumenHarbourInfo.*table.tbl, gLumenHarbourInfo.*table.max_num, from, &Grp::status);
}

/// @return the first group in use behind `p_grp`, or null. By place, since an id holds 16 bits of it.
Grp* grp_after(const tGrpTable& table, const Grp* p_grp) {
  return grp_find(table, static_cast<uint64>(p_grp - gLumenHarbourInfo.*table.tbl) + 1);
}

int row_missing(const char* message) {
  LUMENHARBOUR_DEBUG("%s", message);
  return ERR_ZOR_NOTFOUND;
}

/// Makes the row of a group. @return 0, or the bare ENOMEM when the store has no record.
int grp_create(const tGrpTable& table, uint32 index) {
  Grp* p_grp = table.add(index);
  if (p_grp == nullptr) return ERR_BARE_NOMEM;
  p_grp->status = LUMENHARBOUR_ROW_CREATE;
  return 0;
}

/// Writes a row status. @param[in] p_grp null for a group that is not there.
int grp_status_set(const tGrpTable& table, Grp* p_grp, uint32 index, const void* var) {
  if (var == nullptr) return ERR_ZOR_UNSUPPORTED;
  const uint32 value = integer_of(var);
  if (table.is_told) LUMENHARBOUR_DEBUG("[LumenHarbour] Status = %d.\r\n", static_cast<int>(value));
  if (p_grp == nullptr) return value == LUMENHARBOUR_ROW_CREATE ? grp_create(table, index) : ERR_ZOR_NOTFOUND;
  switch (value) {
    case LUMENHARBOUR_ROW_ACTIVE:
      if (lumenharbour_grp_active(p_grp) != 0) return ERR_AUTOCFG_IMAGELIST;
      p_grp->status = LUMENHARBOUR_ROW_ACTIVE;
      return 0;
    case LUMENHARBOUR_ROW_CREATE:
      return ERR_ZOR_EXISTS;
    case LUMENHARBOUR_ROW_INACTIVE:
      lumenharbour_grp_inactive(p_grp);
      p_grp->status = LUMENHARBOUR_ROW_INACTIVE;
      return 0;
    case LUMENHARBOUR_ROW_DESTROY:
      table.del(p_grp);
      return 0;
    default:
      return ERR_ZOR_UNSUPPORTED;
  }
}

int grp_field_set(const tGrpTable& table, const tGrpField& field, Grp& grp, void* var) {
  if (field.check != nullptr)
    if (const int rc = field.check(grp, var); rc != 0) return rc;
  if (field.number != nullptr) {
    grp.*field.number = static_cast<uint8>(integer_of(var));
    return 0;
  }
  if (table.is_told && field.tell != nullptr) field.tell(*octets_of(var));
  return text_set(field.text(grp), octets_of(var));
}

int grp_set(const tGrpTable& table, Grp* p_grp, uint32 index, uint32 cmd, void* var) {
  if (cmd == LUMENHARBOUR_ROW_STATUS) return grp_status_set(table, p_grp, index, var);
  if (p_grp == nullptr) return row_missing(table.missing);
  const tGrpField* field = row_find(GRP_FIELDS, table.cmd, cmd);
  if (field == nullptr || var == nullptr) return ERR_ZOR_UNSUPPORTED;
  return grp_field_set(table, *field, *p_grp, var);
}

int grp_get(const tGrpTable& table, Grp* p_grp, uint32 cmd, void* var) {
  if (p_grp == nullptr) return row_missing(table.missing);
  const tGrpField* field = row_find(GRP_FIELDS, table.cmd, cmd);
  if (field == nullptr || var == nullptr) return ERR_ZOR_UNSUPPORTED;
  if (field->number != nullptr) return integer_answer(var, p_grp->*field->number);
  return text_get(field->text(*p_grp), octets_of(var));
}

}  // namespace

int lumenharbourCustomGrpGetFirst(unsigned int* p_index) {
  const tLumenHarbourLock lock;
  const tLumenHarbourGrpEntry* p_grp = grp_find(CUSTOM, 0);
  if (p_grp == nullptr) return -1;
  *p_index = p_grp->id;
  return 0;
}

int lumenharbourCustomGrpGetNext(unsigned int group_index, unsigned int* p_nextindex) {
  const tLumenHarbourLock lock;
  const tLumenHarbourGrpEntry* p_grp = grp_find(CUSTOM, uint64{group_index} + 1);
  if (p_grp == nullptr) return -1;
  *p_nextindex = p_grp->id;
  return 0;
}

int lumenharbourCustomGrpIdGet(unsigned char* name, unsigned int namelen, unsigned int* pid) {
  const tLumenHarbourLock lock;
  const tLumenHarbourGrpEntry* p_grp = lumenharbour_custom_grp_lookup_by_name(name, namelen);
  if (p_grp == nullptr) return -1;
  if (pid != nullptr) *pid = p_grp->id;
  return 0;
}

int lumenharbourCustomGrpSetApi(unsigned int group_index, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group set: group index = %d, cmd = %ld.\r\n", static_cast<int>(group_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  const int rc = grp_set(CUSTOM, lumenharbour_custom_grp_lookup(group_index), group_index, cmd, var);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group set: rc = %d.\r\n", rc);
  return rc;
}

int lumenharbourCustomGrpGetApi(unsigned int group_index, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group get: group id = %d, cmd = %ld.\r\n", static_cast<int>(group_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  const int rc = grp_get(CUSTOM, lumenharbour_custom_grp_lookup(group_index), cmd, var);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group get: rc = %ld.\r\n", static_cast<long>(rc));
  return rc;
}

// ---------------------------------------------------------------------------------------------------------------------
// Member rows

namespace {

/// What differs between the two member tables: the key, its place in a member, codes and texts.
struct tMacMembers {
  using tIndex = tLumenHarbourGrpMacIndex;
  static constexpr uint8 TYPE = LUMENHARBOUR_CUSTOMGRP_TYPE_MAC;
  static constexpr int WRONG_TYPE_CODE = ERR_AUTOCFG_NOTMACGRP;
  static constexpr char NO_GROUP[] = "[LumenHarbour] This custom mac group does not exist!\r\n";
  static constexpr char WRONG_TYPE[] = "[LumenHarbour] The type of the custom group is not MAC!\r\n";
  static constexpr char NO_MEMBER[] = "[LumenHarbour] This mac does not exist!\r\n";
  static constexpr char SET_RESULT[] = "[LumenHarbour] Custom group mac set: rc = %ld.\r\n";
  static constexpr char GET_RESULT[] = "[LumenHarbour]Custom group mac get: rc = %ld.\r\n";

  /// Prints what is asked. @param[in] verb "set" or "get"
  static void banner(const char* verb, const tIndex& index, uint32 cmd) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group mac %s: group id = %d, mac = %s, cmd = %ld.\r\n", verb,
                       index.grp_id, tLumenHarbourMacText(index.mac).text, static_cast<long>(cmd));
  }
  static tIndex index_of(const Grp* p_grp, const tLumenHarbourGrpIdEntry* p_member) {
    tIndex index = {p_grp->id, {}};
    memcpy(index.mac, &p_member->u, sizeof(index.mac));
    return index;
  }
  static bool equal(const tIndex& a, const tIndex& b) {
    return a.grp_id == b.grp_id && memcmp(a.mac, b.mac, sizeof(a.mac)) == 0;
  }
  static tLumenHarbourGrpIdEntry* lookup(Grp* p_grp, const tIndex& index) {
    return lumenharbour_custom_mac_lookup(p_grp, index.mac);
  }
  static tLumenHarbourGrpIdEntry* add(Grp* p_grp, const tIndex& index) {
    return lumenharbour_custom_mac_add(p_grp, index.mac);
  }
};

/// As `tMacMembers`.
struct tPidMembers {
  using tIndex = tLumenHarbourGrpPidIndex;
  static constexpr uint8 TYPE = LUMENHARBOUR_CUSTOMGRP_TYPE_PID;
  static constexpr int WRONG_TYPE_CODE = ERR_AUTOCFG_NOTPIDGRP;
  static constexpr char NO_GROUP[] = "[LumenHarbour] This Pid group does not exist!\r\n";
  static constexpr char WRONG_TYPE[] = "[LumenHarbour] The type of the custom group is not product ID!\r\n";
  static constexpr char NO_MEMBER[] = "[LumenHarbour] This Pid does not exist!\r\n";
  static constexpr char SET_RESULT[] = "[LumenHarbour] Custom group pid set: rc = %ld.\r\n";
  static constexpr char GET_RESULT[] = "[LumenHarbour] Custom group pid get: rc = %ld.\r\n";

  static void banner(const char* verb, const tIndex& index, uint32 cmd) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group pid %s: group id = %d, pid = %d, cmd = %ld.\r\n", verb,
                       static_cast<int>(index.grp_id), static_cast<int>(index.pid), static_cast<long>(cmd));
  }
  static tIndex index_of(const Grp* p_grp, const tLumenHarbourGrpIdEntry* p_member) {
    tIndex index = {p_grp->id, 0};
    memcpy(&index.pid, &p_member->u, sizeof(index.pid));
    return index;
  }
  static bool equal(const tIndex& a, const tIndex& b) { return a.grp_id == b.grp_id && a.pid == b.pid; }
  static tLumenHarbourGrpIdEntry* lookup(Grp* p_grp, const tIndex& index) {
    return lumenharbour_custom_pid_lookup(p_grp, index.pid);
  }
  static tLumenHarbourGrpIdEntry* add(Grp* p_grp, const tIndex& index) {
    return lumenharbour_custom_pid_add(p_grp, index.pid);
  }
};

/// @return whether a member in front of `p_node` in its group has the key `index` too. The key is answered there; a
///         walk that answered it again here would go round for ever.
template <typename TMembers>
bool member_repeats(Grp* p_grp, const list_head* p_node, const typename TMembers::tIndex& index) {
  for (list_head* node = p_grp->config_tbl.next; node != p_node; node = node->next)
    if (TMembers::equal(TMembers::index_of(p_grp, list_entry<tLumenHarbourGrpIdEntry>(node)), index)) return true;
  return false;
}

/// Walks a member table: groups that are of the table's type now by ascending id, members from the newest. A group
/// whose type was changed shows its members' keys in the new type's terms.
///
/// @param[in]  p_after  the row to pass over, with all its equals; null answers the first row
/// @param[out] p_found  the row found
/// @return 0, or -1 when there is none
template <typename TMembers>
int member_find(const typename TMembers::tIndex* p_after, typename TMembers::tIndex* p_found) {
  bool passed = p_after == nullptr;
  for (Grp* p_grp = grp_find(CUSTOM, 0); p_grp != nullptr; p_grp = grp_after(CUSTOM, p_grp)) {
    if (p_grp->custom_type != TMembers::TYPE) continue;
    for (list_head* node = p_grp->config_tbl.next; node != &p_grp->config_tbl; node = node->next) {
      const auto index = TMembers::index_of(p_grp, list_entry<tLumenHarbourGrpIdEntry>(node));
      if (p_after != nullptr && TMembers::equal(index, *p_after)) {
        passed = true;
        continue;
      }
      if (!passed || member_repeats<TMembers>(p_grp, node, index)) continue;
      *p_found = index;
      return 0;
    }
  }
  return -1;
}

template <typename TMembers>
int member_status_set(Grp* p_grp, tLumenHarbourGrpIdEntry* p_member, const typename TMembers::tIndex& index,
                      void* var) {
  if (var == nullptr) return ERR_ZOR_UNSUPPORTED;
  const uint32 value = integer_of(var);
  LUMENHARBOUR_DEBUG("[LumenHarbour] Rowstatus = %d.\r\n", static_cast<int>(value));
  if (p_member == nullptr && value != LUMENHARBOUR_ROW_CREATE) return ERR_ZOR_NOTFOUND;
  switch (value) {
    case LUMENHARBOUR_ROW_ACTIVE:
    case LUMENHARBOUR_ROW_CREATE:
      // A member that exists is added once more: deliberate, a member added twice takes two deletions.
      return TMembers::add(p_grp, index) != nullptr ? 0 : ERR_BARE_NOMEM;
    case LUMENHARBOUR_ROW_INACTIVE:
    case LUMENHARBOUR_ROW_DESTROY:
      lumenharbour_grpid_del(p_member);
      return 0;
    default:
      return ERR_ZOR_UNSUPPORTED;
  }
}

template <typename TMembers>
int member_set(const typename TMembers::tIndex& index, uint32 cmd, void* var) {
  Grp* p_grp = lumenharbour_custom_grp_lookup(index.grp_id);
  if (p_grp == nullptr) return row_missing(TMembers::NO_GROUP);
  if (p_grp->custom_type != TMembers::TYPE) {
    LUMENHARBOUR_DEBUG("%s", TMembers::WRONG_TYPE);
    return TMembers::WRONG_TYPE_CODE;
  }
  tLumenHarbourGrpIdEntry* p_member = TMembers::lookup(p_grp, index);
  if (cmd == LUMENHARBOUR_ROW_STATUS) return member_status_set<TMembers>(p_grp, p_member, index, var);
  return p_member != nullptr ? ERR_ZOR_UNSUPPORTED : row_missing(TMembers::NO_MEMBER);
}

template <typename TMembers>
int member_get(const typename TMembers::tIndex& index, uint32 cmd, void* var) {
  Grp* p_grp = lumenharbour_custom_grp_lookup(index.grp_id);
  if (p_grp == nullptr) return row_missing(TMembers::NO_GROUP);
  if (TMembers::lookup(p_grp, index) == nullptr) return row_missing(TMembers::NO_MEMBER);
  if (cmd != LUMENHARBOUR_ROW_STATUS || var == nullptr) return ERR_ZOR_UNSUPPORTED;
  return integer_answer(var, LUMENHARBOUR_ROW_ACTIVE);
}

/// A set or get as the command layer asks for it: banner, lock, result line around `run`.
template <typename TMembers>
int member_request(const char* verb, const typename TMembers::tIndex* p_index, uint32 cmd, void* var,
                   int (*run)(const typename TMembers::tIndex& index, uint32 cmd, void* var), const char* result) {
  if (p_index == nullptr) return ERR_ZOR_NULLINDEX;
  TMembers::banner(verb, *p_index, cmd);
  const tLumenHarbourLock lock;
  const int rc = run(*p_index, cmd, var);
  LUMENHARBOUR_DEBUG(result, static_cast<long>(rc));
  return rc;
}

template <typename TMembers>
int member_set_request(const typename TMembers::tIndex* p_index, uint32 cmd, void* var) {
  return member_request<TMembers>("set", p_index, cmd, var, member_set<TMembers>, TMembers::SET_RESULT);
}

template <typename TMembers>
int member_get_request(const typename TMembers::tIndex* p_index, uint32 cmd, void* var) {
  return member_request<TMembers>("get", p_index, cmd, var, member_get<TMembers>, TMembers::GET_RESULT);
}

}  // namespace

int lumenharbourCustomGrpMacGetFirst(tLumenHarbourGrpMacIndex* p_index) {
  const tLumenHarbourLock lock;
  return member_find<tMacMembers>(nullptr, p_index);
}

int lumenharbourCustomGrpMacGetNext(tLumenHarbourGrpMacIndex* p_index, tLumenHarbourGrpMacIndex* p_nextindex) {
  const tLumenHarbourLock lock;
  return member_find<tMacMembers>(p_index, p_nextindex);
}

int lumenharbourCustomGrpMacSetApi(tLumenHarbourGrpMacIndex* p_index, unsigned int cmd, void* var) {
  return member_set_request<tMacMembers>(p_index, cmd, var);
}

int lumenharbourCustomGrpMacGetApi(tLumenHarbourGrpMacIndex* p_index, unsigned int cmd, void* var) {
  return member_get_request<tMacMembers>(p_index, cmd, var);
}

int lumenharbourCustomGrpPidGetFirst(tLumenHarbourGrpPidIndex* p_index) {
  const tLumenHarbourLock lock;
  return member_find<tPidMembers>(nullptr, p_index);
}

int lumenharbourCustomGrpPidGetNext(tLumenHarbourGrpPidIndex* p_index, tLumenHarbourGrpPidIndex* p_nextindex) {
  const tLumenHarbourLock lock;
  return member_find<tPidMembers>(p_index, p_nextindex);
}

int lumenharbourCustomGrpPidSetApi(tLumenHarbourGrpPidIndex* p_index, unsigned int cmd, void* var) {
  return member_set_request<tPidMembers>(p_index, cmd, var);
}

int lumenharbourCustomGrpPidGetApi(tLumenHarbourGrpPidIndex* p_index, unsigned int cmd, void* var) {
  return member_get_request<tPidMembers>(p_index, cmd, var);
}

// ---------------------------------------------------------------------------------------------------------------------
// Built-in group rows

int lumenharbourBuiltinGrpGetFirst(unsigned int* p_index) {
  const tLumenHarbourLock lock;
  const tLumenHarbourGrpEntry* p_grp = grp_find(BUILTIN, 0);
  if (p_grp == nullptr) return -1;
  *p_index = p_grp->pid;
  return 0;
}

int lumenharbourBuiltinGrpGetNext(unsigned int group_index, unsigned int* p_nextindex) {
  const tLumenHarbourLock lock;
  const tLumenHarbourGrpEntry* p_grp = lumenharbour_builtin_grp_lookup(group_index);
  if (p_grp == nullptr) return row_missing(BUILTIN.missing);
  const tLumenHarbourGrpEntry* p_next = grp_after(BUILTIN, p_grp);
  if (p_next == nullptr) return -1;
  *p_nextindex = p_next->pid;
  return 0;
}

int lumenharbourBuiltinGrpSetApi(unsigned int group_index, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Builtin group set: pid = %d, cmd = %ld.\r\n", static_cast<int>(group_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  return grp_set(BUILTIN, lumenharbour_builtin_grp_lookup(group_index), group_index, cmd, var);
}

int lumenharbourBuiltinGrpGetApi(unsigned int group_index, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Builtin group get: pid = %d, cmd = %ld.\r\n", static_cast<int>(group_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  return grp_get(BUILTIN, lumenharbour_builtin_grp_lookup(group_index), cmd, var);
}

// ---------------------------------------------------------------------------------------------------------------------
// Client rows

namespace {

tLumenHarbourClientEntry* client_find(uint64 from) {
  const tLumenHarbourInfo& info = gLumenHarbourInfo;
  return pool_find(info.client_tbl, info.client_max_num, from, &tLumenHarbourClientEntry::state);
}

constexpr char NO_CLIENT[] = "[LumenHarbour] This client entry does not exist!\r\n";

using Client = tLumenHarbourClientEntry;

/// A buffer too short for the address is no error here, unlike one too short for the MAC address.
int client_ip_get(const Client& client, void* var) {
  octetstring* value = octets_of(var);
  if (value->len < LUMENHARBOUR_IPV4_SIZE) return 0;
  value->len = LUMENHARBOUR_IPV4_SIZE;
  lumenharbour_ip_write(client.ip, value->pBuf);
  return 0;
}

int client_mac_get(const Client& client, void* var) {
  octetstring* value = octets_of(var);
  if (value->len < LUMENHARBOUR_MAC_SIZE) return ERR_ZOR_BUFSHORT;
  value->len = LUMENHARBOUR_MAC_SIZE;
  memcpy(value->pBuf, client.mac, LUMENHARBOUR_MAC_SIZE);
  return 0;
}

/// How one attribute of a client is read.
struct tClientField {
  uint32 cmd;
  int (*get)(const Client& client, void* var);
};

constexpr tClientField CLIENT_FIELDS[] = {
    {LUMENHARBOUR_CLIENT_STATUS, [](const Client&, void* var) { return integer_answer(var, LUMENHARBOUR_ROW_ACTIVE); }},
    // The record keeps no address family; every client is IPv4.
    {LUMENHARBOUR_CLIENT_IPTYPE, [](const Client&, void* var) { return integer_answer(var, 1); }},
    {LUMENHARBOUR_CLIENT_IP, client_ip_get},
    {LUMENHARBOUR_CLIENT_MAC, client_mac_get},
    {LUMENHARBOUR_CLIENT_PID, [](const Client& client, void* var) { return integer_answer(var, client.pid); }},
};

LUMENHARBOUR_ROWS_ASSERT(rows_match(CLIENT_FIELDS, &tClientField::cmd, LUMENHARBOUR_TABLE_CLIENT,
                                    [](const tClientField& row, const tLumenHarbourAttr& attr) {
                                      const bool sets = (attr.access & LUMENHARBOUR_ATTR_SET) != 0;
                                      return (attr.access & LUMENHARBOUR_ATTR_GET) != 0 &&
                                             sets == (row.cmd == LUMENHARBOUR_CLIENT_STATUS);
                                    }));

int client_get(const Client* p_client, uint32 cmd, void* var) {
  if (p_client == nullptr) return row_missing(NO_CLIENT);
  const tClientField* field = row_find(CLIENT_FIELDS, &tClientField::cmd, cmd);
  if (field == nullptr || var == nullptr) return ERR_ZOR_UNSUPPORTED;
  return field->get(*p_client, var);
}

}  // namespace

int lumenharbourClientGetFirst(unsigned int* p_index) {
  const tLumenHarbourLock lock;
  const tLumenHarbourClientEntry* p_client = client_find(0);
  if (p_client == nullptr) return -1;
  *p_index = p_client->index;
  return 0;
}

int lumenharbourClientGetNext(unsigned int client_index, unsigned int* p_nextindex) {
  const tLumenHarbourLock lock;
  const tLumenHarbourClientEntry* p_client = client_find(uint64{client_index} + 1);
  if (p_client == nullptr) return -1;
  *p_nextindex = p_client->index;
  return 0;
}

int lumenharbourClientSetApi(unsigned int client_index, unsigned int cmd, void*) {
  LUMENHARBOUR_DEBUG("[LumenHarbour]  Client set: index = %d, cmd = %ld.\r\n", static_cast<int>(client_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  tLumenHarbourClientEntry* p_client = lumenharbour_client_lookup(client_index);
  if (p_client == nullptr) return row_missing(NO_CLIENT);
  if (cmd != LUMENHARBOUR_CLIENT_STATUS) return ERR_ZOR_UNSUPPORTED;
  lumenharbour_client_del(p_client);  // whatever the value
  return 0;
}

int lumenharbourClientGetApi(unsigned int client_index, unsigned int cmd, void* var) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Client get: index = %d, cmd = %ld.\r\n", static_cast<int>(client_index),
                     static_cast<long>(cmd));
  const tLumenHarbourLock lock;
  return client_get(lumenharbour_client_lookup(client_index), cmd, var);
}

// ---------------------------------------------------------------------------------------------------------------------
// Diagnostic dumps. Lines end in newline, then carriage return; the order is deliberate and is kept.

void lumenharbour_show() {
  const tLumenHarbourInfo& info = gLumenHarbourInfo;
  printf(" enable: %d \n\r", info.enable);
  printf(" role: %d \n\r", info.role);
  printf(" grpid_max_num: %d \n\r", info.grpid_max_num);
  printf(" custom_grp_max_num: %d \n\r", info.custom_grp_max_num);
  printf(" builtin_grp_max_num: %d \n\r", info.builtin_grp_max_num);
  printf(" client_max_num: %d \n\r", info.client_max_num);
  printf(" io_default_path: %s \n\r", info.io_default_path);
  printf(" sys_mac: %s \n\r", tLumenHarbourMacText(info.sys_mac).text);
  printf("\n\r");
  printf(" director ip: %0x \n\r", info.director_ip);
  printf(" if_unit: %d \n\r", info.if_unit);
  printf(" ftp_server: %0x \n\r", info.ftp_server);
  printf(" ftp_username: %s \n\r", info.ftp_username);
  printf(" ftp_password: %s \n\r", info.ftp_password);
  printf("\n\r");
  printf(" rcv_imagelist_name: %s \n\r", info.rcv_imagelist_name);
  printf(" rcv_image_name: %s \n\r", info.rcv_image_name);
  printf(" image_version: %s \n\r", info.image_version);
  printf(" rcv_config_name: %s \n\r", info.rcv_config_name);
  printf(" auth_msg: %s \n\r", info.auth_msg);
  printf("\n\r");
  printf(" local_imagelist_name: %s \n\r", info.local_imagelist_name);
  printf(" local_image_name: %s \n\r", info.local_image_name);
  printf(" local_config_name: %s \n\r", info.local_config_name);
  printf("\n\r");
  printf(" upgrade_image: %d \n\r", info.upgrade_image);
  printf(" tftp_support: %d \n\r", info.tftp_support);
  printf(" reboot_time: %d \n\r", info.reboot_time);
  printf(" reboot_flag: %d \n\r", info.reboot_flag);
  printf("\n\r");
  printf(" default_imagelist_name: %s \n\r", info.default_imagelist_name);
  printf(" default_imagelist_local: %d \n\r", info.default_imagelist_local);
  printf(" default_config_name: %s \n\r", info.default_config_name);
  printf(" default_config_local: %d \n\r", info.default_config_local);
  printf(" default_image_name: %s \n\r", info.default_image_name);
  printf(" default_image_local: %d \n\r", info.default_image_local);
  printf("\n\r");
}

namespace {

long count_of(const list_head& head) {
  return static_cast<long>(lumenharbour_list_count(&head));
}

/// Prints the file names of a group.
void grp_files_show(Grp* p_grp) {
  printf("image_name = %s\n\r", p_grp->image_file_name);
  printf("config_name = %s\n\r", p_grp->config_file_name);
  printf("imagelist_name = %s\n\r", lumenharbour_grp_imagelist(p_grp));
}

unsigned address_of(const void* p) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

void member_show(const Grp* p_grp, const tLumenHarbourGrpIdEntry* p_member) {
  if (p_grp->custom_type == LUMENHARBOUR_CUSTOMGRP_TYPE_MAC)
    printf("\n\r mac = %s", tLumenHarbourMacText(tMacMembers::index_of(p_grp, p_member).mac).text);
  else
    printf("\n\r pid = %d", tPidMembers::index_of(p_grp, p_member).pid);
}

void custom_grp_print(Grp* p_grp) {
  printf("id = %d, type = %d, name = %s\n\r", p_grp->id, p_grp->custom_type, p_grp->name);
  grp_files_show(p_grp);
  printf("p_grp = %0x\n\r", address_of(p_grp));
  list_each<tLumenHarbourGrpIdEntry>(
      &p_grp->config_tbl, [p_grp](const tLumenHarbourGrpIdEntry* p_member) { member_show(p_grp, p_member); });
}

}  // namespace

void lumenharbour_mem_show() {
  const tLumenHarbourInfo& info = gLumenHarbourInfo;
  printf("client_free_tbl = %ld\n\r ", count_of(info.client_free_tbl));
  printf("client_used_tbl = %ld\n\r ", count_of(info.client_used_tbl));
  printf("custom_grp_free_tbl = %ld\n\r ", count_of(info.custom_grp_free_tbl));
  printf("custom_grp_used_tbl = %ld\n\r ", count_of(info.custom_grp_used_tbl));
  printf("builtin_grp_free_tbl = %ld\n\r ", count_of(info.builtin_grp_free_tbl));
  printf("builtin_grp_used_tbl = %ld\n\r ", count_of(info.builtin_grp_used_tbl));
  printf("grpid_free_tbl = %ld\n\r ", count_of(info.grpid_free_tbl));
  printf("\n\r grp size = %d", static_cast<int>(sizeof(tLumenHarbourGrpEntry)));
  printf("\n\r grp-id size = %d", static_cast<int>(sizeof(tLumenHarbourGrpIdEntry)));
  printf("\n\r client entry size = %d", static_cast<int>(sizeof(tLumenHarbourClientEntry)));
  printf("\n\r");
}

void lumenharbour_custom_grp_show() {
  const tLumenHarbourLock lock;
  for (Grp* p_grp = grp_find(CUSTOM, 0); p_grp != nullptr; p_grp = grp_after(CUSTOM, p_grp)) custom_grp_print(p_grp);
}

void lumenharbour_builtin_grp_show() {
  const tLumenHarbourLock lock;
  for (Grp* p_grp = grp_find(BUILTIN, 0); p_grp != nullptr; p_grp = grp_after(BUILTIN, p_grp)) {
    printf("id = %d, pid = %d, type = %d, name = %s\n\r", p_grp->id, p_grp->pid, p_grp->grp_type, p_grp->name);
    grp_files_show(p_grp);
    printf("p_grp = %0x\n\r\n\r", address_of(p_grp));
  }
}

void lumenharbour_client_show() {
  const tLumenHarbourLock lock;
  list_each<Client>(&gLumenHarbourInfo.client_used_tbl, [](const Client* p_client) {
    char ip_text[64] = {};
    const in_addr address = {htonl(p_client->ip)};
    inet_ntop(AF_INET, &address, ip_text, sizeof(ip_text) - 1);
    printf("\n\r index %d, pid %d, ip = %s, mac = %s", p_client->index, p_client->pid, ip_text,
           tLumenHarbourMacText(p_client->mac).text);
  });
}
