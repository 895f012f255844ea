#include <cstring>

#include "fake_platform.h"

namespace {

constexpr uint8 MAC[] = {0x02, 0, 0, 0, 0, 0x0A, 0xFF};  // and what stands behind it
tLumenHarbourInfo& info = gLumenHarbourInfo;

struct GroupTest : DaemonTest {
  void SetUp() override {
    DaemonTest::SetUp();
    start_director();
    info.debug = 1;
  }

  static tLumenHarbourGrpEntry* custom(uint32 id, uint8 type = 0) {
    tLumenHarbourGrpEntry* p_grp = lumenharbour_custom_grp_add(id);
    p_grp->status = LUMENHARBOUR_ROW_CREATE;
    p_grp->custom_type = type;
    return p_grp;
  }
};

TEST_F(GroupTest, CustomIdsAreSlotsAndNamesMatchInFull) {
  EXPECT_EQ(lumenharbour_custom_grp_add(10), nullptr);
  EXPECT_EQ(fake.output, "[LumenHarbour] Custom group id 10 is ERROR!!\r\n");
  tLumenHarbourGrpEntry* nine = custom(9, LUMENHARBOUR_CUSTOMGRP_TYPE_PID);
  EXPECT_EQ(nine->grp_type, LUMENHARBOUR_GRPTYPE_CUSTOM);
  lumenharbour_custom_pid_add(nine, 7);
  EXPECT_EQ(lumenharbour_custom_grp_add(9), nine);
  EXPECT_NE(lumenharbour_custom_pid_lookup(nine, 7), nullptr);
  EXPECT_EQ(lumenharbour_custom_grp_lookup(65536 + 9), nullptr);
  strcpy(nine->name, "abc");
  uint8 name[] = "abcd";
  for (const uint32 len : {0, 2, 4}) EXPECT_EQ(lumenharbour_custom_grp_lookup_by_name(name, len), nullptr);
  EXPECT_EQ(lumenharbour_custom_grp_lookup_by_name(name, 3), nine);

  uint32 id = 99;
  for (const uint32 taken : {0, 2}) custom(taken);
  EXPECT_EQ(lumenharbour_custom_grp_freeid_get(&id), 0);
  EXPECT_EQ(id, 1U);
  // Added but without a status: still free, and added again it stands on the used list once.
  for (int i = 0; i < 2; i++) EXPECT_EQ(lumenharbour_custom_grp_add(1), &info.custom_grp_tbl[1]);
  EXPECT_EQ(lumenharbour_list_count(&info.custom_grp_used_tbl), 4U);
  for (uint32 i = 0; i < 10; i++) custom(i);
  EXPECT_EQ(lumenharbour_custom_grp_freeid_get(&id), ERR_BARE_NOMEM);
  lumenharbour_custom_grp_del(nine);
  EXPECT_EQ(info.custom_grp_free_tbl.next, &nine->node);

  lumenharbour_director_disable();  // no pools
  EXPECT_EQ(lumenharbour_custom_grp_freeid_get(&id), ERR_BARE_NOMEM);
  EXPECT_EQ(lumenharbour_custom_grp_add(0), nullptr);
  EXPECT_EQ(lumenharbour_builtin_grp_add(0), nullptr);
  EXPECT_EQ(lumenharbour_grp_active(nullptr), -1);
  lumenharbour_custom_grp_del(nullptr);
  lumenharbour_grpid_free(nullptr);
}

TEST_F(GroupTest, MembersComeFromOnePool) {
  tLumenHarbourGrpEntry* mac = custom(0, LUMENHARBOUR_CUSTOMGRP_TYPE_MAC);
  tLumenHarbourGrpEntry* pid = custom(1, LUMENHARBOUR_CUSTOMGRP_TYPE_PID);
  EXPECT_EQ(lumenharbour_custom_mac_add(pid, MAC)->u.mac.rsv[0], 0);
  EXPECT_EQ(lumenharbour_custom_mac_lookup(pid, MAC), nullptr);
  for (int i = 8; i > 0; i--) EXPECT_EQ(lumenharbour_custom_mac_add(mac, MAC), &info.grpid_tbl[i]);
  tLumenHarbourGrpIdEntry* newest = lumenharbour_custom_mac_add(mac, MAC);
  EXPECT_EQ(lumenharbour_custom_pid_add(pid, 8), nullptr);
  EXPECT_EQ(lumenharbour_custom_mac_add(pid, MAC), nullptr);
  const std::string full = "[LumenHarbour] Allocate memory for custom group-id failed!\r\n";
  EXPECT_EQ(fake.output, full + full);
  EXPECT_EQ(lumenharbour_custom_mac_lookup(mac, MAC), newest);
  lumenharbour_custom_grp_del(mac);
  EXPECT_EQ(lumenharbour_list_count(&info.grpid_free_tbl), 9U);
  EXPECT_EQ(info.grpid_free_tbl.next, &info.grpid_tbl[8].node);     // given back last
  EXPECT_EQ(lumenharbour_custom_pid_add(pid, 1)->u.stack.pid, 0U);  // nothing is left of its old key
}

TEST_F(GroupTest, BuiltinSlotPassesItsFilesOn) {
  tLumenHarbourGrpEntry* first = lumenharbour_builtin_grp_add(100);
  strcpy(first->image_file_name, "a.img");
  first->configfile_is_local = 1;
  ASSERT_EQ(lumenharbour_grp_active(first), 0);
  lumenharbour_builtin_grp_del(first);
  EXPECT_EQ(info.builtin_grp_free_tbl.next, &first->node);
  EXPECT_EQ(lumenharbour_builtin_grp_add(200), first);
  EXPECT_STREQ(first->image_file_name, "a.img");
  EXPECT_STREQ(first->imagelist_file_name, "/tmp/built_in0.txt");
  EXPECT_EQ(first->configfile_is_local, 1);
  EXPECT_EQ(first->imagelist_is_local, 1);
  EXPECT_EQ(first->grp_type, LUMENHARBOUR_GRPTYPE_BUILTIN);
  for (int i = 0; i < 10; i++) lumenharbour_builtin_grp_add(200)->status = LUMENHARBOUR_ROW_CREATE;
  EXPECT_STREQ(lumenharbour_builtin_grp_lookup(200)->name, "built_in9");
  fake.output.clear();
  EXPECT_EQ(lumenharbour_builtin_grp_add(300), nullptr);
  EXPECT_EQ(fake.output, "[LumenHarbour] Allocate memory for built-in group failed!\r\n");
}

TEST_F(GroupTest, ActivationKeepsThePathItLastWrote) {
  tLumenHarbourGrpEntry* p_grp = custom(0);
  strcpy(p_grp->name, "lobby");
  for (const uint8 location : {1, 2}) {
    p_grp->imagefile_is_local = location;
    strcpy(p_grp->image_file_name, location == 1 ? "img.bin" : "xx");
    ASSERT_EQ(lumenharbour_grp_active(p_grp), 0);
    EXPECT_EQ(p_grp->imagelist_is_local, 1);
  }
  EXPECT_EQ(read_file("/tmp/lobby.txt"), "imagefile=xx;\n");
  lumenharbour_grp_inactive(p_grp);
  strcpy(p_grp->name, "full");
  fake.free_memory = 14;
  EXPECT_EQ(lumenharbour_grp_active(p_grp), -1);
  for (const char* path : {"/tmp/lobby.txt", "/tmp/full.txt"}) EXPECT_EQ(read_file(path), "<none>");
  fake.free_memory = 15;
  EXPECT_EQ(lumenharbour_grp_active(p_grp), 0);
  EXPECT_STREQ(lumenharbour_grp_imagelist(p_grp), "/tmp/full.txtt");  // the longer path's tail stays
  remove("/tmp/full.txt");
  lumenharbour_custom_grp_del(p_grp);
  EXPECT_STREQ(lumenharbour_grp_imagelist(lumenharbour_custom_grp_add(0)), "");  // a custom slot starts clean
}

TEST_F(GroupTest, AListThatCannotBeOpenedFailsTheActivation) {
  tLumenHarbourGrpEntry* p_grp = custom(0);
  strcpy(p_grp->name, "no/such");
  EXPECT_EQ(lumenharbour_grp_active(p_grp), -1);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Create imagelsit file: /tmp/no/such.txt.\r\n"
            "[LumenHarbour] Open imagelsit file ERROR!\r\n");
  EXPECT_STREQ(lumenharbour_grp_imagelist(p_grp), "");
}

}  // namespace
