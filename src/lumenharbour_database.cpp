#include "lumenharbour_database.h"

#include "lumenharbour.h"

tLumenHarbourClientEntry* lumenharbour_client_add() {
  if (gLumenHarbourInfo.client_tbl == nullptr) return nullptr;
  for (uint32 i = 0; i < gLumenHarbourInfo.client_max_num; i++) {
    tLumenHarbourClientEntry* p_client = &gLumenHarbourInfo.client_tbl[i];
    if (p_client->state != 0) continue;
    list_unlink(&p_client->node);
    list_add_head(&p_client->node, &gLumenHarbourInfo.client_used_tbl);
    p_client->state = 1;
    return p_client;
  }
  return nullptr;
}

void lumenharbour_client_del(tLumenHarbourClientEntry* p_client) {
  if (p_client == nullptr) return;
  const uint32 index = p_client->index;
  LUMENHARBOUR_DEBUG("[LumenHarbour] Delete a client entry, index is %d.\r\n", static_cast<int>(index));
  list_unlink(&p_client->node);
  *p_client = {};
  p_client->index = index;
}

tLumenHarbourClientEntry* lumenharbour_client_lookup(uint32 entry_index) {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Lookup a client entry, index is %d.\r\n", static_cast<int>(entry_index));
  if (gLumenHarbourInfo.client_tbl == nullptr || entry_index >= gLumenHarbourInfo.client_max_num) return nullptr;
  tLumenHarbourClientEntry* p_client = &gLumenHarbourInfo.client_tbl[entry_index];
  return p_client->state != 0 ? p_client : nullptr;
}

void lumenharbour_database_flush() {
  LUMENHARBOUR_DEBUG("[LumenHarbour] Flush director database.\r\n");
  list_each<tLumenHarbourClientEntry>(&gLumenHarbourInfo.client_used_tbl, lumenharbour_client_del);
}
