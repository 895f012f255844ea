#include <cstring>

#include "fake_platform.h"

struct DatabaseTest : DaemonTest {};

TEST_F(DatabaseTest, RecordsAreUsedAgainLowestFirst) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.client_max_num = 3;
  start_director();
  for (uint32 i = 0; i < 3; i++) EXPECT_EQ(lumenharbour_client_add()->index, i);
  EXPECT_EQ(lumenharbour_client_add(), nullptr);
  info.client_max_num = 2;  // the third record now stands for what follows the pool
  EXPECT_EQ(lumenharbour_client_lookup(2), nullptr);
  for (const uint32 index : {2, 1}) {
    tLumenHarbourClientEntry* p_client = &info.client_tbl[index];
    p_client->pid = p_client->mac[5] = 7;
    lumenharbour_client_del(p_client);
    const tLumenHarbourClientEntry deleted = {{}, index, 0, 0, 0, nullptr, {}, 0, 0};
    EXPECT_EQ(memcmp(p_client, &deleted, sizeof(deleted)), 0);
  }
  EXPECT_TRUE(list_empty(&info.client_free_tbl));
  EXPECT_EQ(lumenharbour_client_add()->index, 1U);
  EXPECT_EQ(info.client_used_tbl.next, &info.client_tbl[1].node);
  EXPECT_EQ(lumenharbour_client_add(), nullptr);

  info.client_max_num = 3;
  info.debug = 1;
  EXPECT_EQ(lumenharbour_client_lookup(1), &info.client_tbl[1]);
  EXPECT_EQ(lumenharbour_client_lookup(2), nullptr);
  lumenharbour_director_disable();
  EXPECT_EQ(lumenharbour_client_add(), nullptr);  // no pool
  EXPECT_EQ(lumenharbour_client_lookup(0), nullptr);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Lookup a client entry, index is 1.\r\n[LumenHarbour] Lookup a client entry, index is 2.\r\n"
            "[LumenHarbour] Remove imagelsit file: .\r\n[LumenHarbour] Flush director database.\r\n"
            "[LumenHarbour] Delete a client entry, index is 1.\r\n[LumenHarbour] Delete a client entry, index is 0.\r\n"
            "[LumenHarbour] Free memory.\r\n[LumenHarbour] Lookup a client entry, index is 0.\r\n");
}
