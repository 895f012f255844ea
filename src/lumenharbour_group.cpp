#include "lumenharbour_group.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "lumenharbour.h"

namespace {

/// @return the free record with the lowest index, or null.
tLumenHarbourGrpEntry* grp_first_free(tLumenHarbourGrpEntry* grp_tbl, uint32 max_num) {
  for (uint32 i = 0; i < max_num; i++)
    if (grp_tbl[i].status == 0) return &grp_tbl[i];
  return nullptr;
}

/// Fills in what both kinds of group start with and puts the record first on `used_tbl`.
void grp_start(tLumenHarbourGrpEntry* p_grp, uint32 id, uint8 grp_type, list_head* used_tbl) {
  p_grp->id = static_cast<uint16>(id);
  p_grp->grp_type = grp_type;
  list_init(&p_grp->config_tbl);
  list_add_head(&p_grp->node, used_tbl);
}

void grp_del(tLumenHarbourGrpEntry* p_grp, list_head* free_tbl) {
  if (p_grp == nullptr) return;
  list_each<tLumenHarbourGrpIdEntry>(&p_grp->config_tbl, lumenharbour_grpid_del);
  lumenharbour_grp_inactive(p_grp);
  p_grp->status = 0;
  list_unlink(&p_grp->node);
  list_add_head(&p_grp->node, free_tbl);
}

}  // namespace

tLumenHarbourGrpIdEntry* lumenharbour_grpid_alloc() {
  list_head* const head = &gLumenHarbourInfo.grpid_free_tbl;
  if (list_empty(head)) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Allocate memory for custom group-id failed!\r\n");
    return nullptr;
  }
  tLumenHarbourGrpIdEntry* p_grpid = list_entry<tLumenHarbourGrpIdEntry>(head->next);
  list_unlink(&p_grpid->node);
  *p_grpid = {};
  return p_grpid;
}

void lumenharbour_grpid_free(tLumenHarbourGrpIdEntry* p_grpid) {
  if (p_grpid != nullptr) list_add_head(&p_grpid->node, &gLumenHarbourInfo.grpid_free_tbl);
}

tLumenHarbourGrpIdEntry* lumenharbour_grpid_add(list_head* p_list) {
  tLumenHarbourGrpIdEntry* p_grpid = lumenharbour_grpid_alloc();
  if (p_grpid != nullptr) list_add_head(&p_grpid->node, p_list);
  return p_grpid;
}

void lumenharbour_grpid_del(tLumenHarbourGrpIdEntry* p_grpid) {
  list_unlink(&p_grpid->node);
  lumenharbour_grpid_free(p_grpid);
}

tLumenHarbourGrpIdEntry* lumenharbour_custom_mac_add(tLumenHarbourGrpEntry* p_grp, const uint8* p_mac) {
  tLumenHarbourGrpIdEntry* p_grpid = lumenharbour_grpid_add(&p_grp->config_tbl);
  if (p_grpid != nullptr) memcpy(p_grpid->u.mac.mac, p_mac, LUMENHARBOUR_MAC_SIZE);
  return p_grpid;
}

tLumenHarbourGrpIdEntry* lumenharbour_custom_mac_lookup(tLumenHarbourGrpEntry* p_grp, const uint8* p_mac) {
  if (p_grp->custom_type != LUMENHARBOUR_CUSTOMGRP_TYPE_MAC) return nullptr;
  return list_find<tLumenHarbourGrpIdEntry>(&p_grp->config_tbl, [p_mac](const tLumenHarbourGrpIdEntry* p_grpid) {
    return memcmp(p_grpid->u.mac.mac, p_mac, LUMENHARBOUR_MAC_SIZE) == 0;
  });
}

tLumenHarbourGrpIdEntry* lumenharbour_custom_pid_add(tLumenHarbourGrpEntry* p_grp, uint32 pid) {
  tLumenHarbourGrpIdEntry* p_grpid = lumenharbour_grpid_add(&p_grp->config_tbl);
  if (p_grpid != nullptr) p_grpid->u.pid.pid = pid;
  return p_grpid;
}

tLumenHarbourGrpIdEntry* lumenharbour_custom_pid_lookup(tLumenHarbourGrpEntry* p_grp, uint32 pid) {
  if (p_grp->custom_type != LUMENHARBOUR_CUSTOMGRP_TYPE_PID) return nullptr;
  return list_find<tLumenHarbourGrpIdEntry>(
      &p_grp->config_tbl, [pid](const tLumenHarbourGrpIdEntry* p_grpid) { return p_grpid->u.pid.pid == pid; });
}

int lumenharbour_custom_grp_freeid_get(uint32* p_id) {
  tLumenHarbourGrpEntry* const grp_tbl = gLumenHarbourInfo.custom_grp_tbl;
  if (grp_tbl == nullptr) return ERR_BARE_NOMEM;
  const tLumenHarbourGrpEntry* p_grp = grp_first_free(grp_tbl, gLumenHarbourInfo.custom_grp_max_num);
  if (p_grp == nullptr) return ERR_BARE_NOMEM;
  *p_id = static_cast<uint32>(p_grp - grp_tbl);
  return 0;
}

tLumenHarbourGrpEntry* lumenharbour_custom_grp_add(uint32 grp_id) {
  if (grp_id >= gLumenHarbourInfo.custom_grp_max_num) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Custom group id %d is ERROR!!\r\n", static_cast<int>(grp_id));
    return nullptr;
  }
  if (gLumenHarbourInfo.custom_grp_tbl == nullptr) return nullptr;
  tLumenHarbourGrpEntry* p_grp = &gLumenHarbourInfo.custom_grp_tbl[grp_id];
  if (p_grp->status != 0) return p_grp;
  list_unlink(&p_grp->node);
  *p_grp = {};
  grp_start(p_grp, grp_id, LUMENHARBOUR_GRPTYPE_CUSTOM, &gLumenHarbourInfo.custom_grp_used_tbl);
  return p_grp;
}

tLumenHarbourGrpEntry* lumenharbour_custom_grp_lookup(uint32 grp_id) {
  return list_find<tLumenHarbourGrpEntry>(&gLumenHarbourInfo.custom_grp_used_tbl,
                                          [grp_id](const tLumenHarbourGrpEntry* p_grp) { return p_grp->id == grp_id; });
}

tLumenHarbourGrpEntry* lumenharbour_custom_grp_lookup_by_name(const uint8* p_name, uint32 name_len) {
  // Lengths are compared first, so a name that no group can have is never read.
  const std::string_view wanted(reinterpret_cast<const char*>(p_name), name_len);
  return list_find<tLumenHarbourGrpEntry>(
      &gLumenHarbourInfo.custom_grp_used_tbl,
      [wanted](const tLumenHarbourGrpEntry* p_grp) { return wanted == p_grp->name; });
}

void lumenharbour_custom_grp_del(tLumenHarbourGrpEntry* p_grp) {
  grp_del(p_grp, &gLumenHarbourInfo.custom_grp_free_tbl);
}

tLumenHarbourGrpEntry* lumenharbour_builtin_grp_add(uint32 pid) {
  tLumenHarbourGrpEntry* const grp_tbl = gLumenHarbourInfo.builtin_grp_tbl;
  if (grp_tbl == nullptr) return nullptr;
  tLumenHarbourGrpEntry* p_grp = grp_first_free(grp_tbl, gLumenHarbourInfo.builtin_grp_max_num);
  if (p_grp == nullptr) {
    LUMENHARBOUR_DEBUG("[LumenHarbour] Allocate memory for built-in group failed!\r\n");
    return nullptr;
  }
  // Not zero-filled, unlike a custom group: a slot's next group goes on with the files of the one before it.
  list_unlink(&p_grp->node);
  p_grp->pid = pid;
  grp_start(p_grp, static_cast<uint32>(p_grp - grp_tbl), LUMENHARBOUR_GRPTYPE_BUILTIN,
            &gLumenHarbourInfo.builtin_grp_used_tbl);
  snprintf(p_grp->name, sizeof(p_grp->name), "built_in%d", p_grp->id);
  return p_grp;
}

tLumenHarbourGrpEntry* lumenharbour_builtin_grp_lookup(uint32 pid) {
  return list_find<tLumenHarbourGrpEntry>(&gLumenHarbourInfo.builtin_grp_used_tbl,
                                          [pid](const tLumenHarbourGrpEntry* p_grp) { return p_grp->pid == pid; });
}

void lumenharbour_builtin_grp_del(tLumenHarbourGrpEntry* p_grp) {
  grp_del(p_grp, &gLumenHarbourInfo.builtin_grp_free_tbl);
}

int lumenharbour_grp_active(tLumenHarbourGrpEntry* p_grp) {
  if (p_grp == nullptr) return -1;
  // Never set back: a group that was local once hands out its full path until its record is used anew.
  if (p_grp->configfile_is_local == LUMENHARBOUR_LOCATION_LOCAL ||
      p_grp->imagefile_is_local == LUMENHARBOUR_LOCATION_LOCAL)
    p_grp->imagelist_is_local = LUMENHARBOUR_LOCATION_LOCAL;

  char path[LUMENHARBOUR_FILENAME_SIZE] = {};
  const int32 fd = lumenharbour_imagelist_file_create(p_grp->name, static_cast<uint32>(strlen(p_grp->name)), path);
  if (fd < 0) return -1;
  if (lumenharbour_imagelist_record_write(fd, p_grp->image_file_name) != 0) {
    lumenharbour_imagelist_file_remove(path);
    return -1;
  }
  // Without a terminator: under a shorter name than at the last activation, the old path's tail stays. The field and
  // the room behind it hold every path below "/tmp"; their last byte is never written and ends the text.
  constexpr size_t path_max = LUMENHARBOUR_TEXT_SIZE + LUMENHARBOUR_IMAGELIST_ROOM - 1;
  memcpy(lumenharbour_grp_imagelist(p_grp), path, std::min(strlen(path), path_max));
  return 0;
}

void lumenharbour_grp_inactive(tLumenHarbourGrpEntry* p_grp) {
  lumenharbour_imagelist_file_remove(lumenharbour_grp_imagelist(p_grp));
}
