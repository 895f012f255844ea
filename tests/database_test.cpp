#include <cstring>

#include "fake_platform.h"

struct DatabaseTest : DaemonTest {};

TEST_F(DatabaseTest, RecordsAreUsedAgainLowestFirst) {
  gLumenHarbourInfo.client_max_num = 3;
  start_director();
  for (uint32 i = 0; i < 3; i++) EXPECT_EQ(lumenharbour_client_add()->index, i);
  EXPECT_EQ(lumenharbour_client_add(), nullptr);
  for (const uint32 index : {2, 1}) {
    tLumenHarbourClientEntry* p_client = lumenharbour_client_lookup(index);
    p_client->pid = p_client->mac[5] = 7;
    lumenharbour_client_del(p_client);
    const tLumenHarbourClientEntry deleted = {{}, index, 0, 0, 0, nullptr, {}, 0, 0};
    EXPECT_EQ(memcmp(p_client, &deleted, sizeof(deleted)), 0);
  }
  EXPECT_TRUE(list_empty(&gLumenHarbourInfo.client_free_tbl));
  EXPECT_EQ(lumenharbour_client_add()->index, 1U);

  gLumenHarbourInfo.debug = 1;
  for (const uint32 index : {2, 3}) EXPECT_EQ(lumenharbour_client_lookup(index), nullptr);
  lumenharbour_database_flush();
  EXPECT_EQ(
      fake.output,
      "[LumenHarbour] Lookup a client entry, index is 2.\r\n[LumenHarbour] Lookup a client entry, index is 3.\r\n"
      "[LumenHarbour] Flush director database.\r\n"
      "[LumenHarbour] Delete a client entry, index is 1.\r\n[LumenHarbour] Delete a client entry, index is 0.\r\n");
}
