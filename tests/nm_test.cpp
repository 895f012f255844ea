#include <unistd.h>

#include "fake_platform.h"
#include "request.h"

namespace {

constexpr uint32 OWN = ip4(192, 0, 2, 1);
constexpr uint32 FOREIGN = ip4(192, 0, 2, 99);
constexpr int NONE = ERR_ZOR_NOTFOUND, EXISTS = ERR_ZOR_EXISTS, BAD = ERR_ZOR_UNSUPPORTED;

/// Handlers called directly, as the command layer calls them.
class NmTest : public DaemonTest {
 protected:
  static int set(uint32 cmd, uint32 value) { return lumenharbourSetApi(nullptr, cmd, &value); }
  static int set(uint32 cmd, std::string text) {
    octet = {reinterpret_cast<uint8*>(text.data()), static_cast<uint32>(text.size())};
    return lumenharbourSetApi(nullptr, cmd, &octet);
  }
  static int set_ip(uint32 ip) {
    std::string bytes(4, '\0');
    lumenharbour_ip_write(ip, reinterpret_cast<uint8*>(bytes.data()));
    return set(LUMENHARBOUR_GLB_DIRECTORIP, bytes);
  }
  static uint32 get(uint32 cmd) {
    uint32 value = 0xDEAD;
    EXPECT_EQ(lumenharbourGetApi(nullptr, cmd, &value), 0) << cmd;
    return value;
  }
  /// @return the octets read, or the code as text.
  static std::string get_octets(uint32 cmd, uint32 capacity) {
    std::string buf(capacity, '\0');
    octet = {reinterpret_cast<uint8*>(buf.data()), capacity};
    const int rc = lumenharbourGetApi(nullptr, cmd, &octet);
    return rc == 0 ? buf.substr(0, octet.len) : std::to_string(rc);
  }
  void start_client() { ASSERT_EQ(set(LUMENHARBOUR_GLB_STATE, 1), 0); }
  void become_director() {
    fake.own_addresses[OWN] = 5;
    start_client();
    ASSERT_EQ(set_ip(OWN), 0);
    ASSERT_EQ(gLumenHarbourInfo.role, LUMENHARBOUR_ROLE_DIRECTOR);
  }
  static int group(uint32 id, uint32 cmd, uint32 value) { return lumenharbourCustomGrpSetApi(id, cmd, &value); }
  static int group(uint32 id, uint32 cmd, std::string text) {
    octet = {reinterpret_cast<uint8*>(text.data()), static_cast<uint32>(text.size())};
    return lumenharbourCustomGrpSetApi(id, cmd, &octet);
  }
  static int mac_member(uint16 grp, uint8 last, uint32 status) {
    tLumenHarbourGrpMacIndex index = {grp, {0, 0, 0, 0, 0, last}};
    return lumenharbourCustomGrpMacSetApi(&index, LUMENHARBOUR_GRPMAC_STATUS, &status);
  }
  static int pid_member(uint32 grp, uint32 pid, uint32 status) {
    tLumenHarbourGrpPidIndex index = {grp, pid};
    return lumenharbourCustomGrpPidSetApi(&index, LUMENHARBOUR_GRPPID_STATUS, &status);
  }
  /// @return the MAC members from the front, "group/last byte" each.
  static std::string mac_walk() {
    std::string walk;
    tLumenHarbourGrpMacIndex index = {};
    for (int rc = lumenharbourCustomGrpMacGetFirst(&index); rc == 0;) {
      walk += std::to_string(index.grp_id) + "/" + std::to_string(index.mac[5]) + " ";
      tLumenHarbourGrpMacIndex next = {};
      rc = lumenharbourCustomGrpMacGetNext(&index, &next);
      index = next;
    }
    return walk;
  }

  /// @return what a walk or a read answers: the number, or the code where it is none.
  template <typename Handler>
  static int found(Handler handler) {
    uint32 value = 0;
    const int rc = handler(&value);
    return rc == 0 ? static_cast<int>(value) : rc;
  }

  static inline octetstring octet;  ///< as the last handler left it
};

TEST_F(NmTest, AStoppedServiceTakesOnlyStateAndDebug) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEBUG, 7), 0);
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DEBUG), 3U);
  fake.output.clear();
  EXPECT_EQ(set_ip(OWN), ERR_ZOR_NOTSTARTED);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Global set: cmd = 4.\r\n[LumenHarbour] Please start lumenharbour globally!\r\n");
  EXPECT_EQ(get(LUMENHARBOUR_GLB_STATE), 2U);
  start_client();
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  start_client();  // it runs already
  EXPECT_EQ(get(LUMENHARBOUR_GLB_STATE), 1U);
  for (const uint32 off : {0U, 2U}) {
    EXPECT_EQ(set(LUMENHARBOUR_GLB_STATE, off) + static_cast<int>(info.enable), 0);
    start_client();
  }
  EXPECT_EQ(set(0xFFFFFFFF, 1U), ERR_ZOR_UNSUPPORTED);
}

TEST_F(NmTest, TheAttributeListPromisesWhatIsHandled) {
  start_client();
  for (uint32 cmd = 0; cmd <= LUMENHARBOUR_GLB_CALLBACK + 1; cmd++) {
    const tLumenHarbourAttr* attr = lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd);
    const int access = attr == nullptr ? 0 : attr->access;
    const bool is_integer = attr != nullptr && lumenharbour_value_is_integer(attr->value);
    // Values that each handler takes and that leave the client role running.
    const Value value = is_integer ? integer(1) : room(cmd == LUMENHARBOUR_GLB_CALLBACK ? 548 : 255);
    const bool sets = global_set(cmd, value).run() != ERR_ZOR_UNSUPPORTED;
    EXPECT_EQ(sets, (access & LUMENHARBOUR_ATTR_SET) != 0) << cmd;
    EXPECT_EQ(global_get(cmd, value).run() != ERR_ZOR_UNSUPPORTED, (access & LUMENHARBOUR_ATTR_GET) != 0) << cmd;
  }
}

TEST_F(NmTest, TheDirectorAddressDecidesTheRole) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  fake.own_addresses[OWN] = 5;
  start_client();
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORIP, std::string(5, 'x')), ERR_ZOR_BADLEN);
  EXPECT_EQ(set_ip(FOREIGN), 0);
  EXPECT_TRUE(info.director_ip == FOREIGN && info.role == LUMENHARBOUR_ROLE_CLIENT && info.client_tbl == nullptr);

  info.debug = 1;
  fake.output.clear();
  EXPECT_EQ(set_ip(OWN), 0);
  EXPECT_NE(fake.output.find("[LumenHarbour] The device becomes the director!\n\r"), std::string::npos);
  info.debug = 0;
  EXPECT_TRUE(info.role == LUMENHARBOUR_ROLE_DIRECTOR && info.if_unit == 5);
  EXPECT_EQ(timerListNextTimeout(&info.timer_list), TIMER_NONE);  // the client role was stopped
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DIRECTORIP, 255), std::string("\xC0\x00\x02\x01", 4));
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DIRECTORIP, 3).size(), 3U);

  for (const uint32 leave : {FOREIGN, 0U}) {
    EXPECT_EQ(set_ip(leave), 0);
    EXPECT_TRUE(info.role == LUMENHARBOUR_ROLE_CLIENT && info.client_tbl == nullptr);
    EXPECT_EQ(set_ip(OWN), 0);
    EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_DIRECTOR);
  }
  set_ip(0);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DIRECTORIP, 4), "");

  // A director role that cannot start leaves the address behind.
  info.builtin_grp_max_num = 0xFFFFFFFF;  // more than any machine has
  EXPECT_EQ(set_ip(OWN), ERR_BARE_NOMEM);
  EXPECT_TRUE(info.director_ip == OWN && info.role == LUMENHARBOUR_ROLE_CLIENT);
}

TEST_F(NmTest, TheDirectorStateNeedsAnOwnAddressAndLeavesTheClientRolesTimer) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  start_client();
  info.debug = 1;
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORSTATE, 1), ERR_AUTOCFG_NODIRECTORIP);
  set_ip(OWN);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORSTATE, 1), ERR_AUTOCFG_NODIRECTORIP);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORIPTYPE, 0x11), 0);
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DIRECTORIPTYPE), 1U);
  fake.output.clear();
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORSTATE, 1), ERR_AUTOCFG_IPMISMATCH);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Global set: cmd = 6.\r\n[LumenHarbour] Get ifunit from director ip failed!\r\n"
            "[LumenHarbour] The director IP doesn't match the switch IP address!\r\n");
  fake.own_addresses[OWN] = 5;
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORSTATE, 1), 0);
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DIRECTORSTATE), 1U);
  EXPECT_NE(timerListNextTimeout(&info.timer_list), TIMER_NONE);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DIRECTORSTATE, 0), 0);
  EXPECT_TRUE(get(LUMENHARBOUR_GLB_DIRECTORSTATE) == 2 && info.role == LUMENHARBOUR_ROLE_CLIENT);
}

TEST_F(NmTest, RoleGuardsDiffer) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  start_client();
  EXPECT_EQ(get(LUMENHARBOUR_GLB_CUSTOMGRPFREEID), 0xDEADU);       // left as it was
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, "fw.bin"), 0);  // accepted, without effect
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTIMAGETYPE, 1), 0);
  EXPECT_EQ(info.default_image_local, 0U);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, 255), "");

  become_director();
  for (const uint32 cmd :
       {LUMENHARBOUR_GLB_CLIENTNOTIFY, LUMENHARBOUR_GLB_DOWNLOADIMAGE, LUMENHARBOUR_GLB_DOWNLOADCONFIG,
        LUMENHARBOUR_GLB_IMAGERELOADSTATE, LUMENHARBOUR_GLB_CONFIGRELOADTIME})
    EXPECT_EQ(set(cmd, 1U), ERR_ZOR_UNSUPPORTED) << cmd;
  EXPECT_EQ(get(LUMENHARBOUR_GLB_CUSTOMGRPFREEID), 0U);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE, 6), 0);
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE), 2U);
}

TEST_F(NmTest, DefaultNamesAreClampedAndRewriteTheDefaultImagelist) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  become_director();
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, std::string(300, 'n')), 0);
  EXPECT_EQ(octet.len, 255U);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, 255), std::string(255, 'n'));
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "imagefile=" + std::string(255, 'n') + ";\n");
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, ""), 0);
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "<none>");
  fake.free_memory = 0;
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, "fw.bin"), ERR_AUTOCFG_IMAGELIST);
  EXPECT_STREQ(info.default_image_name, "");
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, "c.cfg"), 0);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, 255), "c.cfg");
}

TEST_F(NmTest, VlansStayInsideTheirList) {
  start_client();
  const std::string whole(1400, '\xFF');
  fake.vlan_units = {{7, 70}};
  EXPECT_EQ(set(LUMENHARBOUR_GLB_MANAGEVLANADD, "\x40"), 0);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_MANAGEVLANADD, 2), std::string("\x40\0", 2));
  EXPECT_EQ(set(LUMENHARBOUR_GLB_MANAGEVLANADD, whole), 0);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_MANAGEVLANDEL, 600), whole.substr(0, 512) + std::string(88, '\0'));
  EXPECT_EQ(gLumenHarbourInfo.dhcp_client_vlan, 1U);  // the field behind the list
  EXPECT_EQ(set(LUMENHARBOUR_GLB_MANAGEVLANDEL, "\x7F"), 0);
  EXPECT_EQ(get_octets(LUMENHARBOUR_GLB_MANAGEVLANADD, 1), "\x80");
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DHCPCLIENTVLAN, 7), 0);
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DHCPCLIENTVLAN), 7U);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DHCPCLIENTVLAN, 8), 0);  // no such VLAN: accepted, unchanged
  EXPECT_EQ(get(LUMENHARBOUR_GLB_DHCPCLIENTVLAN), 7U);
}

TEST_F(NmTest, AManualDownloadRunsAtTheNextCheck) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  start_client();
  write_file("/tmp/old.bin", "x");
  strcpy(info.local_image_name, "/tmp/old.bin");
  fake.advance(5900);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DOWNLOADIMAGE, 0U), 0);
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DOWNLOADCONFIG, 0U), 0);
  EXPECT_EQ(info.upgrade_mode + info.upgrade_image + info.upgrade_config, 4U);
  EXPECT_EQ(read_file("/tmp/old.bin"), "<none>");
  EXPECT_EQ(timerListNextTimeout(&info.timer_list), 6000U);
}

TEST_F(NmTest, AnnouncementsComeBackInTheirRecord) {
  become_director();
  set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, "fw.bin");
  set(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, "c.cfg");
  tLumenHarbourCallback record = {};
  record.client_info = {{192, 0, 2, 7}, 12, {2, 0, 0, 0, 0, 7}, 2, 1};
  record.imagefile_len = 0xFFFFFFFF;
  record.configfile_len = 256;
  EXPECT_EQ(global_get(LUMENHARBOUR_GLB_CALLBACK, octets(raw(record).substr(1))).run(), ERR_ZOR_BUFSHORT);
  Request request = global_get(LUMENHARBOUR_GLB_CALLBACK, octets(raw(record)));
  ASSERT_EQ(request.run(), 0);
  memcpy(&record, request.value().data(), sizeof(record));
  EXPECT_TRUE(record.imagefile_len == 13 && record.configfile_len == 5);
  EXPECT_STREQ(reinterpret_cast<char*>(record.imagefile_name), "imagelist.txt");
  EXPECT_STREQ(reinterpret_cast<char*>(record.configfile_name), "c.cfg");

  record.imagefile_len = 0;  // none wanted: nothing is stored, and the answer is still success
  Request unwanted = global_get(LUMENHARBOUR_GLB_CALLBACK, octets(raw(record)));
  EXPECT_EQ(unwanted.run(), 0);
  EXPECT_EQ(unwanted.value(), raw(record));
}

TEST_F(NmTest, CustomGroupRowsLiveByTheirStatus) {
  become_director();
  constexpr uint32 STATUS = LUMENHARBOUR_CUSTOMGRP_STATUS, TYPE = LUMENHARBOUR_CUSTOMGRP_TYPE;
  const std::string name(63, 'g');
  const struct {
    uint32 id, cmd, value;
    int rc;
  } steps[] = {{3, STATUS, 1, NONE},   {3, TYPE, 2, NONE}, {10, STATUS, 2, 12}, {3, STATUS, 2, 0},
               {3, STATUS, 2, EXISTS}, {7, STATUS, 2, 0},  {3, TYPE, 5, 22},    {3, 8, 1, BAD},
               {3, STATUS, 0, BAD},    {3, STATUS, 5, BAD}};
  for (const auto& [id, cmd, value, rc] : steps) EXPECT_EQ(group(id, cmd, value), rc) << cmd << " = " << value;
  EXPECT_EQ(group(3, LUMENHARBOUR_CUSTOMGRP_NAME, name + "ggggggg"), 0);
  EXPECT_EQ(octet.len, 63U);
  EXPECT_EQ(group(7, LUMENHARBOUR_CUSTOMGRP_NAME, name), ERR_ZOR_EXISTS);
  EXPECT_EQ(group(3, LUMENHARBOUR_CUSTOMGRP_NAME, name), 0);  // its own
  EXPECT_EQ(group(3, LUMENHARBOUR_CUSTOMGRP_IMAGENAME, "fw.bin"), 0);
  EXPECT_EQ(group(3, STATUS, 1), 0);
  EXPECT_EQ(read_file("/tmp/" + name + ".txt"), "imagefile=fw.bin;\n");
  EXPECT_EQ(group(3, STATUS, 3), 0);
  fake.free_memory = 0;
  EXPECT_EQ(group(3, STATUS, 1), ERR_AUTOCFG_IMAGELIST);
  EXPECT_EQ(found([](uint32* value) { return lumenharbourCustomGrpGetApi(3, STATUS, value); }), 3);

  const auto next = [](uint32 id) { return found([id](uint32* v) { return lumenharbourCustomGrpGetNext(id, v); }); };
  EXPECT_EQ(found(lumenharbourCustomGrpGetFirst), 3);
  EXPECT_EQ(next(5), 7);
  for (const uint32 last : {7U, 9U, 0xFFFFFFFFU}) EXPECT_EQ(next(last), -1);
  EXPECT_EQ(group(3, STATUS, 4), 0);
  EXPECT_EQ(group(3, STATUS, 4), ERR_ZOR_NOTFOUND);
}

TEST_F(NmTest, MemberRowsAndWalks) {
  become_director();
  for (const uint32 id : {1U, 4U}) group(id, LUMENHARBOUR_CUSTOMGRP_STATUS, 2);
  EXPECT_EQ(mac_member(1, 1, 2), ERR_AUTOCFG_NOTMACGRP);
  EXPECT_EQ(pid_member(1, 1, 2), ERR_AUTOCFG_NOTPIDGRP);
  EXPECT_EQ(mac_member(2, 1, 2), ERR_ZOR_NOTFOUND);
  EXPECT_EQ(lumenharbourCustomGrpMacSetApi(nullptr, 1, nullptr), ERR_ZOR_NULLINDEX);
  for (const uint32 id : {1U, 4U}) group(id, LUMENHARBOUR_CUSTOMGRP_TYPE, LUMENHARBOUR_CUSTOMGRP_TYPE_MAC);
  EXPECT_EQ(mac_walk(), "");
  for (const uint8 mac : {10, 11, 10, 12}) EXPECT_EQ(mac_member(1, mac, 2), 0);
  EXPECT_EQ(mac_member(4, 10, 2), 0);
  EXPECT_EQ(mac_walk(), "1/12 1/10 1/11 4/10 ");  // newest first, the duplicate passed over
  for (const uint32 status : {0U, 1U, 3U, 4U, 6U}) EXPECT_EQ(mac_member(1, 99, status), ERR_ZOR_NOTFOUND);
  for (const uint32 status : {0U, 6U}) EXPECT_EQ(mac_member(1, 10, status), ERR_ZOR_UNSUPPORTED);
  EXPECT_EQ(mac_member(1, 12, 3), 0);
  EXPECT_EQ(mac_member(1, 10, 4), 0);
  EXPECT_EQ(mac_walk(), "1/11 1/10 4/10 ");
  tLumenHarbourGrpMacIndex gone = {1, {0, 0, 0, 0, 0, 12}};
  tLumenHarbourGrpMacIndex next;
  const auto status = [&](uint32* value) { return lumenharbourCustomGrpMacGetApi(&gone, 1, value); };
  EXPECT_EQ(lumenharbourCustomGrpMacGetNext(&gone, &next), -1);
  EXPECT_EQ(found(status), ERR_ZOR_NOTFOUND);
  gone.mac[5] = 11;
  EXPECT_EQ(found(status), 1);

  // The walks follow a group's present type, whatever its members were added as.
  group(1, LUMENHARBOUR_CUSTOMGRP_TYPE, LUMENHARBOUR_CUSTOMGRP_TYPE_PID);
  EXPECT_EQ(mac_walk(), "4/10 ");
  tLumenHarbourGrpPidIndex pid = {};
  EXPECT_EQ(lumenharbourCustomGrpPidGetFirst(&pid), 0);
  EXPECT_EQ(pid.grp_id, 1U);
  EXPECT_EQ(pid.pid, 0U);  // the first four bytes of 00:00:00:00:00:0b
  for (uint32 i = 100; i < 107; i++) EXPECT_EQ(pid_member(1, i, 2), 0);
  EXPECT_EQ(pid_member(1, 107, 2), ERR_BARE_NOMEM);
  gLumenHarbourInfo.debug = 1;
  fake.output.clear();
  pid_member(9, 1, 2);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Custom group pid set: group id = 9, pid = 1, cmd = 1.\r\n"
            "[LumenHarbour] This Pid group does not exist!\r\n[LumenHarbour] Custom group pid set: rc = 65536002.\r\n");
}

TEST_F(NmTest, BuiltinGroupAndClientRows) {
  become_director();
  const auto builtin = [](uint32 pid, uint32 cmd, uint32 value) {
    return lumenharbourBuiltinGrpSetApi(pid, cmd, &value);
  };
  constexpr uint32 STATUS = LUMENHARBOUR_BUILTINGRP_STATUS, PLACE = LUMENHARBOUR_BUILTINGRP_IMAGETYPE;
  const struct {
    uint32 pid, cmd, value;
    int rc;
  } steps[] = {{500, STATUS, 1, NONE},   {500, PLACE, 1, NONE},  {500, STATUS, 2, 0}, {400, STATUS, 2, 0},
               {500, STATUS, 2, EXISTS}, {500, PLACE, 0x101, 0}, {500, STATUS, 1, 0}, {500, 6, 1, BAD}};
  for (const auto& [pid, cmd, value, rc] : steps) EXPECT_EQ(builtin(pid, cmd, value), rc) << cmd << " = " << value;
  const auto next = [](uint32 pid) {
    return found([pid](uint32* v) { return lumenharbourBuiltinGrpGetNext(pid, v); });
  };
  EXPECT_EQ(found([](uint32* value) { return lumenharbourBuiltinGrpGetApi(500, PLACE, value); }), 1);
  EXPECT_EQ(found(lumenharbourBuiltinGrpGetFirst), 500);
  EXPECT_TRUE(next(500) == 400 && next(400) == -1 && next(1) == ERR_ZOR_NOTFOUND);

  EXPECT_EQ(found(lumenharbourClientGetFirst), -1);
  tLumenHarbourClientEntry* client = lumenharbour_client_add();
  lumenharbour_client_add();
  client->ip = OWN;
  client->pid = 500;
  std::string buf(255, '\0');
  octet = {reinterpret_cast<uint8*>(buf.data()), 2};
  EXPECT_EQ(lumenharbourClientGetApi(0, LUMENHARBOUR_CLIENT_IP, &octet), 0);
  EXPECT_EQ(octet.len, 2U);
  octet.len = 5;
  EXPECT_EQ(lumenharbourClientGetApi(0, LUMENHARBOUR_CLIENT_MAC, &octet), ERR_ZOR_BUFSHORT);
  EXPECT_EQ(lumenharbourClientGetApi(0, LUMENHARBOUR_CLIENT_IP, &octet), 0);
  EXPECT_EQ(buf.substr(0, octet.len), std::string("\xC0\x00\x02\x01", 4));
  EXPECT_EQ(lumenharbourClientSetApi(0, LUMENHARBOUR_CLIENT_PID, &octet), ERR_ZOR_UNSUPPORTED);
  EXPECT_EQ(lumenharbourClientSetApi(0, LUMENHARBOUR_CLIENT_STATUS, nullptr), 0);  // whatever the value
  EXPECT_EQ(found([](uint32* value) { return lumenharbourClientGetNext(0, value); }), 1);
  EXPECT_EQ(lumenharbourClientGetApi(0, LUMENHARBOUR_CLIENT_PID, &octet), ERR_ZOR_NOTFOUND);
}

TEST_F(NmTest, DumpsPrintTheirLines) {
  become_director();
  group(2, LUMENHARBOUR_CUSTOMGRP_STATUS, 2);
  group(2, LUMENHARBOUR_CUSTOMGRP_NAME, "lab");
  group(2, LUMENHARBOUR_CUSTOMGRP_TYPE, LUMENHARBOUR_CUSTOMGRP_TYPE_MAC);
  mac_member(2, 0xAB, 2);
  tLumenHarbourClientEntry* client = lumenharbour_client_add();
  client->ip = OWN;
  client->pid = 9;
  const auto dump = [](void (*show)()) {
    testing::internal::CaptureStdout();
    show();
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_NE(dump(lumenharbour_show).find(" director ip: c0000201 \n\r if_unit: 5 \n\r"), std::string::npos);
  EXPECT_EQ(
      dump(lumenharbour_mem_show).find("client_free_tbl = 99\n\r client_used_tbl = 1\n\r custom_grp_free_tbl = 9"), 0U);
  const std::string groups = dump(lumenharbour_custom_grp_show);
  EXPECT_EQ(
      groups.find("id = 2, type = 2, name = lab\n\rimage_name = \n\rconfig_name = \n\rimagelist_name = \n\rp_grp"), 0U);
  const std::string member = "\n\r\n\r mac = 00:00:00:00:00:ab";
  EXPECT_EQ(groups.substr(groups.size() - member.size()), member);
  EXPECT_EQ(dump(lumenharbour_builtin_grp_show), "");
  EXPECT_EQ(dump(lumenharbour_client_show), "\n\r index 0, pid 9, ip = 192.0.2.1, mac = 00:00:00:00:00:00");
}

}  // namespace
