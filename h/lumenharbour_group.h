#pragma once

/// @file
/// The director's groups: which image and configuration a set of client switches is to run.
///
/// Custom groups are made by the operator and list MAC addresses or product ids; built-in groups serve one product id
/// each. Records come from the pools of the global record. Every function here is called with the global lock held.

#include "lumenharbour_protocol.h"
#include "zor_types.h"

/// Kinds of group.
enum : uint8 {
  LUMENHARBOUR_GRPTYPE_DEFAULT = 0,  ///< no group record: the director's defaults
  LUMENHARBOUR_GRPTYPE_CUSTOM = 1,
  LUMENHARBOUR_GRPTYPE_BUILTIN = 2,
};

/// Member key of a MAC group.
struct tLumenHarbourMacGrpId {
  uint8 mac[LUMENHARBOUR_MAC_SIZE];  ///< MAC address
  uint8 rsv[2];                      ///< 0
};

/// Member key of a stack group; never written.
struct tLumenHarbourStackGrpId {
  uint32 switch_number;  ///< member of the stack
  uint32 pid;            ///< product id
};

/// Member key of a connect group; never written.
struct tLumenHarbourConnectGrpId {
  uint32 ip;       ///< address
  uint32 if_unit;  ///< interface unit
};

/// Member key of a product-id group.
struct tLumenHarbourProductGrpId {
  uint32 pid;  ///< product id
};

/// One member of a custom group.
struct tLumenHarbourGrpIdEntry {
  list_head node;  ///< in the owning group's `config_tbl`, or in the pool's `grpid_free_tbl`
  union {
    tLumenHarbourMacGrpId mac;
    tLumenHarbourStackGrpId stack;
    tLumenHarbourConnectGrpId connect;
    tLumenHarbourProductGrpId pid;
  } u;  ///< the key; which one the adding function decides, whatever the group's type becomes later
};

static_assert(sizeof(tLumenHarbourGrpIdEntry::u) == 8);

/// Bytes behind `imagelist_file_name`: the path of a 63-byte name, "/tmp/" + name + ".txt", needs 72 and a terminator.
constexpr uint32 LUMENHARBOUR_IMAGELIST_ROOM = 16;

/// One group, custom or built-in.
struct tLumenHarbourGrpEntry {
  list_head node;             ///< in its pool's free list or used list
  list_head config_tbl;       ///< members, the newest first; empty for a built-in group
  uint32 pid;                 ///< built-in group: the product id it serves; custom group: 0
  uint16 id;                  ///< place in its pool; a custom group's id
  uint8 grp_type;             ///< `LUMENHARBOUR_GRPTYPE_CUSTOM` or `_BUILTIN`
  uint8 custom_type;          ///< custom group: `LUMENHARBOUR_CUSTOMGRP_TYPE_*`, set by management
  uint8 status;               ///< row status, set by management; 0: the record is free, whichever list it is on
  uint8 imagefile_is_local;   ///< location kind of the image, set by management; 1: local
  uint8 configfile_is_local;  ///< location kind of the configuration, set by management; 1: local
  uint8 imagelist_is_local;   ///< 1: the imagelist is handed out by its full path; set by activation, never set back
  char name[LUMENHARBOUR_TEXT_SIZE];  ///< custom group: the operator's name; built-in group: "built_in" and the id
  char image_file_name[LUMENHARBOUR_FILENAME_SIZE];   ///< image for the members, set by management
  char config_file_name[LUMENHARBOUR_FILENAME_SIZE];  ///< configuration for the members, set by management
  char imagelist_file_name[LUMENHARBOUR_TEXT_SIZE];   ///< path of the imagelist, written by activation; see
                                                      ///< `lumenharbour_grp_imagelist`
  char imagelist_room[LUMENHARBOUR_IMAGELIST_ROOM];   ///< where a path longer than the field before it runs on
};

static_assert(offsetof(tLumenHarbourGrpEntry, imagelist_room) ==
              offsetof(tLumenHarbourGrpEntry, imagelist_file_name) + LUMENHARBOUR_TEXT_SIZE);

/// @return the group's imagelist path, terminated, up to 79 bytes: `imagelist_file_name` and the room behind it as one
///         text. Empty for a group that was never activated; kept by a deactivated one.
inline char* lumenharbour_grp_imagelist(tLumenHarbourGrpEntry* p_grp) {
  return reinterpret_cast<char*>(p_grp) + offsetof(tLumenHarbourGrpEntry, imagelist_file_name);
}

/// Takes a member record from the pool, zero-filled. @return the record, linked nowhere, or null when none is left.
tLumenHarbourGrpIdEntry* lumenharbour_grpid_alloc();

/// Gives a member record, linked nowhere, back to the pool; null does nothing.
void lumenharbour_grpid_free(tLumenHarbourGrpIdEntry* p_grpid);

/// Takes a member record and links it first on `p_list`. @return the record, owned by the list; null when none is left.
tLumenHarbourGrpIdEntry* lumenharbour_grpid_add(list_head* p_list);

/// Unlinks a member, not null, and gives it back to the pool.
void lumenharbour_grpid_del(tLumenHarbourGrpIdEntry* p_grpid);

/// Adds a MAC address to a group, whatever its type, and even if it is a member already.
/// @param[in] p_mac 6 bytes. @return the member, or null when the pool is used up.
tLumenHarbourGrpIdEntry* lumenharbour_custom_mac_add(tLumenHarbourGrpEntry* p_grp, const uint8* p_mac);

/// @param[in] p_mac 6 bytes. @return the newest member with this MAC, or null when there is none or the group is not of
///         MAC type.
tLumenHarbourGrpIdEntry* lumenharbour_custom_mac_lookup(tLumenHarbourGrpEntry* p_grp, const uint8* p_mac);

/// Adds a product id to a group, whatever its type, and even if it is a member already.
/// @return the member, or null when the pool is used up.
tLumenHarbourGrpIdEntry* lumenharbour_custom_pid_add(tLumenHarbourGrpEntry* p_grp, uint32 pid);

/// @return the newest member with this product id, or null when there is none or the group is not of product-id type.
tLumenHarbourGrpIdEntry* lumenharbour_custom_pid_lookup(tLumenHarbourGrpEntry* p_grp, uint32 pid);

/// Finds the lowest free custom group id.
/// @param[out] p_id the id, left alone on failure. @return 0, or 12 (ENOMEM) when none is free or there is no pool.
int lumenharbour_custom_grp_freeid_get(uint32* p_id);

/// Takes the custom group record `grp_id`; one in use is returned as it is. The caller sets `status`.
/// @return the group, or null when the id is out of range or there is no pool.
tLumenHarbourGrpEntry* lumenharbour_custom_grp_add(uint32 grp_id);

/// @return the custom group `grp_id`, or null.
tLumenHarbourGrpEntry* lumenharbour_custom_grp_lookup(uint32 grp_id);

/// @param[in] p_name the name's bytes, not terminated; read only where a group's name has that length
/// @param[in] name_len their number. @return the custom group of that name, or null.
tLumenHarbourGrpEntry* lumenharbour_custom_grp_lookup_by_name(const uint8* p_name, uint32 name_len);

/// Deletes a custom group: its members and its imagelist file go, the record's texts stay. Null does nothing.
void lumenharbour_custom_grp_del(tLumenHarbourGrpEntry* p_grp);

/// Takes a built-in group record for product id `pid`, without looking whether it has one. The record keeps the file
/// names, location kinds and imagelist path of the group that used the slot before: deliberate, a group made anew goes
/// on with what its slot last served until management says otherwise. The caller sets `status`.
/// @return the group, or null when no record is free.
tLumenHarbourGrpEntry* lumenharbour_builtin_grp_add(uint32 pid);

/// @return the built-in group of product id `pid`, or null.
tLumenHarbourGrpEntry* lumenharbour_builtin_grp_lookup(uint32 pid);

/// Deletes a built-in group, as `lumenharbour_custom_grp_del`.
void lumenharbour_builtin_grp_del(tLumenHarbourGrpEntry* p_grp);

/// Activates a group: writes its imagelist file and keeps its path. May be repeated; the caller sets `status`.
/// @return 0, or -1 when the group is null or the file cannot be written (none is left behind).
int lumenharbour_grp_active(tLumenHarbourGrpEntry* p_grp);

/// Deactivates a group: removes its imagelist file. The path stays in the record. The caller sets `status`.
void lumenharbour_grp_inactive(tLumenHarbourGrpEntry* p_grp);
