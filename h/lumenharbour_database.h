#pragma once

/// @file
/// The director's database of the client switches announced to it. Every function here is called with the global lock
/// held.

#include "lumenharbour_group.h"

/// One client switch.
struct tLumenHarbourClientEntry {
  list_head node;        ///< in `client_free_tbl` (never used yet) or `client_used_tbl`; null links once deleted
  uint32 index;          ///< place in the pool, 0 to `client_max_num` - 1; set when the pool is built, kept for ever
  uint32 ip;             ///< IPv4 address, first byte most significant
  uint32 pid;            ///< product id, as announced
  uint32 switch_number;  ///< member of a stack; never written
  tLumenHarbourGrpEntry* p_grp;  ///< group chosen at the last announcement; null: the director's defaults. Refreshed
                                 ///< before each use, since a deleted group is not looked for in the clients
  uint8 mac[LUMENHARBOUR_MAC_SIZE];  ///< MAC address, the key
  uint8 state;                       ///< 0: the record is free; 1: it holds a client
  uint8 rsv;                         ///< 0
};

/// Takes the free record with the lowest index and puts it first on the used list.
/// @return the record, zero but for `index` and `state`, which the caller fills; null when the pool is full or absent.
tLumenHarbourClientEntry* lumenharbour_client_add();

/// Deletes a client; null does nothing. The record goes on no list, so `client_free_tbl` only shrinks while the role
/// runs: it counts the records never used, which the memory dump shows.
void lumenharbour_client_del(tLumenHarbourClientEntry* p_client);

/// @return the client at `entry_index`, or null when the index is out of range or free.
tLumenHarbourClientEntry* lumenharbour_client_lookup(uint32 entry_index);

/// Deletes every client.
void lumenharbour_database_flush();
