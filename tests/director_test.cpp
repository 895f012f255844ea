#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "fake_platform.h"

namespace {

constexpr uint32 PID = 7001;
constexpr uint8 STACK = LUMENHARBOUR_CUSTOMGRP_TYPE_STACK, BY_MAC = LUMENHARBOUR_CUSTOMGRP_TYPE_MAC,
                CONNECT = LUMENHARBOUR_CUSTOMGRP_TYPE_CONNECT, BY_PID = LUMENHARBOUR_CUSTOMGRP_TYPE_PID;

tLumenHarbourInfo& info = gLumenHarbourInfo;

struct DirectorTest : DaemonTest {
  static tLumenHarbourClientInfo client(uint8 last, uint32 pid = PID, uint8 op = 1) {
    return {{10, 0, 1, last}, pid, {0x02, 0, 0, 0, 0, last}, 0, op};
  }

  /// @return what an announcement answers: code, then length and bytes of either name.
  static std::string announce(const tLumenHarbourClientInfo& info, uint32 image_room = 256, uint32 config_room = 256) {
    uint8 names[2][257] = {};
    octetstring image = {names[0], image_room}, config = {names[1], config_room};
    const int rc = lumenharbour_client_entry_callback(&info, &image, &config);
    return std::to_string(rc) + " " + std::to_string(image.len) + " " + reinterpret_cast<char*>(names[0]) + " " +
           std::to_string(config.len) + " " + reinterpret_cast<char*>(names[1]);
  }

  /// A custom group with a MAC member and a product id member; its type decides which of them counts.
  static tLumenHarbourGrpEntry* custom(uint32 id, uint8 type, const std::string& name) {
    tLumenHarbourGrpEntry* p_grp = lumenharbour_custom_grp_add(id);
    p_grp->status = LUMENHARBOUR_ROW_INACTIVE;
    p_grp->custom_type = type;
    strcpy(p_grp->name, name.c_str());
    lumenharbour_custom_mac_add(p_grp, client(1).mac);
    lumenharbour_custom_pid_add(p_grp, PID);
    return p_grp;
  }
};

TEST_F(DirectorTest, DefaultsAreHandedOutUntilTheRoleEnds) {
  info.custom_grp_max_num = 4;
  info.default_image_local = 2;
  info.default_config_local = 1;
  strcpy(info.default_image_name, "os.img");
  strcpy(info.default_config_name, "sw.cfg");
  strcpy(info.io_default_path, "/tmp");
  fake.free_memory = 18;
  EXPECT_EQ(lumenharbour_default_imagelist_create(), -1);
  EXPECT_EQ(lumenharbour_director_enable(), ERR_AUTOCFG_IMAGELIST);
  EXPECT_EQ(info.client_tbl, nullptr);
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_NONE);
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "<none>");
  fake.free_memory = 19;
  info.manage_vlan_list[0] = 2;
  start_director();
  EXPECT_EQ(info.client_max_num, 100U);
  EXPECT_EQ(info.builtin_grp_max_num, 10U);
  EXPECT_EQ(info.grpid_max_num, 4U);
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "imagefile=os.img;\n");
  for (const uint32 location : {0U, 2U, 3U}) {
    info.default_imagelist_local = location & 3U;
    EXPECT_EQ(announce(client(1), 13, 6), "0 13 imagelist.txt 6 sw.cfg");
  }
  EXPECT_EQ(announce(client(2), 12, 6), "-1 12  6 ");
  EXPECT_EQ(announce(client(2), 13, 5), "-1 13 imagelist.txt 5 ");
  info.default_imagelist_local = 1;
  EXPECT_EQ(announce(client(1), 18, 6), "0 18 /tmp/imagelist.txt 6 sw.cfg");
  EXPECT_EQ(info.client_tbl[1].state, 1);

  lumenharbour_grp_active(custom(0, 0, "lobby"));
  lumenharbour_grp_active(lumenharbour_builtin_grp_add(PID));
  lumenharbour_director_disable();
  for (const char* name : {"lobby", "built_in0", "imagelist"})
    EXPECT_EQ(read_file("/tmp/" + std::string(name) + ".txt"), "<none>");
  for (const char* field : {info.default_image_name, info.default_config_name, info.default_imagelist_name})
    EXPECT_EQ(std::string(field, 256), std::string(256, '\0'));
  EXPECT_EQ(info.default_image_local, 0U);
  EXPECT_EQ(info.default_config_local, 0U);
  EXPECT_EQ(info.default_imagelist_local, 0U);
  EXPECT_EQ(info.role, 0U);
  EXPECT_EQ(lumenharbour_list_count(&info.custom_grp_free_tbl), 4U);
  EXPECT_EQ(lumenharbour_list_count(&info.builtin_grp_free_tbl), 10U);
  EXPECT_EQ(info.manage_vlan_list[0], 0x82);
}

TEST_F(DirectorTest, ALocalImageOrConfigurationMakesItsListLocal) {
  start_director();
  strcpy(info.default_image_name, "i");
  tLumenHarbourGrpEntry* p_grp = lumenharbour_builtin_grp_add(PID);
  for (const uint8 image : {0, 1, 2, 3}) {
    for (const uint8 config : {0, 1, 2, 3}) {
      p_grp->imagelist_is_local = 0;
      p_grp->imagefile_is_local = image;
      p_grp->configfile_is_local = config;
      info.default_imagelist_local = 0;
      info.default_image_local = image & 3U;
      info.default_config_local = config & 3U;
      EXPECT_EQ(lumenharbour_grp_active(p_grp), 0);
      EXPECT_EQ(lumenharbour_default_imagelist_create(), 0);
      const uint32 local = image == 1 || config == 1;
      EXPECT_EQ(p_grp->imagelist_is_local, local) << int{image} << int{config};
      EXPECT_EQ(info.default_imagelist_local, local) << int{image} << int{config};
    }
  }
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "imagefile=i;\n");
}

TEST_F(DirectorTest, BestGroupWins) {
  const struct {
    uint8 first, second, mac;  // types of two inactive custom groups, the older first; MAC address, member is 1
    uint32 pid;                // member is PID
    const char* chosen;
  } cases[] = {
      {BY_MAC, BY_PID, 1, PID, "first"},   {BY_PID, BY_MAC, 1, PID, "second"}, {BY_MAC, BY_PID, 2, PID, "second"},
      {BY_PID, BY_PID, 1, PID, "second"},  {BY_MAC, BY_MAC, 1, 1, "second"},   {BY_PID, STACK, 1, PID, "first"},
      {STACK, CONNECT, 1, 1, "built_in0"}, {STACK, CONNECT, 1, 2, "none"},
  };
  for (const auto& c : cases) {
    start_director();
    custom(0, c.first, "first");
    custom(1, c.second, "second");
    lumenharbour_builtin_grp_add(1);
    announce(client(c.mac, c.pid));
    const tLumenHarbourGrpEntry* p_grp = info.client_tbl[0].p_grp;
    EXPECT_STREQ(p_grp != nullptr ? p_grp->name : "none", c.chosen) << "case " << &c - cases;
    lumenharbour_director_disable();
  }
}

TEST_F(DirectorTest, DebugRunFaultsAtTheBuiltinMatch) {
  start_director();
  lumenharbour_builtin_grp_add(PID);
  info.debug = 1;
  // A sanitizer's own handler would end the process another way.
  EXPECT_EXIT((signal(SIGSEGV, SIG_DFL), announce(client(1))), testing::KilledBySignal(SIGSEGV), "");
  info.debug = 2;  // the lowest bit is the switch
  EXPECT_EQ(announce(client(1)), "0 0  0 ");
}

TEST_F(DirectorTest, EveryGroupNameReachesTheClient) {
  start_director();
  custom(1, BY_PID, "next in the pool, whose links an overrun would break");
  for (const size_t len : {54, 55, 63}) {
    const std::string name(len, 'n'), path = "/tmp/" + name + ".txt";
    tLumenHarbourGrpEntry* p_grp = custom(0, BY_MAC, name);
    strcpy(p_grp->config_file_name, "c.cfg");
    ASSERT_EQ(lumenharbour_grp_active(p_grp), 0);
    EXPECT_EQ(announce(client(1)), "0 " + std::to_string(len + 4) + " " + name + ".txt 5 c.cfg");
    p_grp->imagelist_is_local = 1;
    EXPECT_EQ(announce(client(1)), "0 " + std::to_string(len + 9) + " " + path + " 5 c.cfg");
    EXPECT_EQ(read_file(path), "imagefile=;\n");
    lumenharbour_custom_grp_del(p_grp);
    EXPECT_EQ(read_file(path), "<none>");
  }
}

TEST_F(DirectorTest, AnnouncementsAddRefreshAndDelete) {
  EXPECT_EQ(announce(client(1)), "-1 256  256 ");
  info.client_max_num = 1;
  start_director();
  custom(0, BY_PID, "lobby");
  const tLumenHarbourClientInfo moved = client(1, 9), gone = client(1, 9, 0);
  octetstring room = {};
  EXPECT_EQ(lumenharbour_client_entry_callback(nullptr, &room, &room), -1);
  EXPECT_EQ(lumenharbour_client_entry_callback(&moved, nullptr, &room), -1);
  EXPECT_EQ(info.client_tbl[0].state, 0);
  lumenharbour_client_grp_lookup(nullptr);
  announce(client(1));
  EXPECT_EQ(lumenharbour_client_entry_callback(&moved, &room, nullptr), -1);
  EXPECT_STREQ(info.client_tbl[0].p_grp->name, "lobby");
  EXPECT_EQ(announce(client(2)), "-1 0  0 ");  // full
  EXPECT_EQ(announce(moved), "0 0  0 ");
  EXPECT_EQ(info.client_tbl[0].p_grp, nullptr);
  EXPECT_EQ(info.client_tbl[0].ip, ip4(10, 0, 1, 1));
  for (int i = 0; i < 2; i++) EXPECT_EQ(lumenharbour_client_entry_callback(&gone, nullptr, nullptr), 0);
  EXPECT_EQ(info.client_tbl[0].state, 0);
}

TEST_F(DirectorTest, ListFileIsBoundedAndClosed) {
  strcpy(info.io_default_path, "/tmp");
  const std::string name(246, 'n');
  char path[256] = {};
  info.debug = 1;
  EXPECT_EQ(lumenharbour_imagelist_file_create(name.c_str(), 247, path), -1);
  EXPECT_EQ(lumenharbour_imagelist_file_create((name + "n").c_str(), 1, path), -1);
  const mode_t mask = umask(0);
  const int fd = lumenharbour_imagelist_file_create(name.c_str(), 246, path);
  umask(mask);
  struct stat status;
  ASSERT_EQ(fstat(fd, &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  fake.free_memory = 5;
  EXPECT_EQ(lumenharbour_imagelist_file_write(fd, "12345", 5), -1);
  fake.free_memory = 6;
  EXPECT_EQ(lumenharbour_imagelist_file_write(open(path, O_RDONLY), "12345", 5), -1);  // in its place
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  lumenharbour_imagelist_file_remove(path);
  EXPECT_NE(access(path, F_OK), 0);
  lumenharbour_imagelist_file_remove(nullptr);
  ASSERT_EQ(symlink("/nowhere", path), 0);
  lumenharbour_imagelist_file_remove(path);  // what cannot be read stays
  EXPECT_EQ(unlink(path), 0);
  const std::string too_long = "[LumenHarbour] Imagelsit file name is too long!\r\n", at = std::string(path) + ".\r\n",
                    write = "[LumenHarbour] Write imagelsit file: len 5, buffer: 12345.\r\n",
                    remove = "[LumenHarbour] Remove imagelsit file: " + at;
  EXPECT_EQ(fake.output, too_long + too_long + "[LumenHarbour] Create imagelsit file: " + at + write +
                             "[LumenHarbour] Ram disk is full!\r\n" + write +
                             "[LumenHarbour] Write imagelist data ERROR!\r\n" + remove + remove);

  // What somebody has planted there: a link to a file, and a FIFO, at first without and then with a reader.
  const std::string target = "/tmp/target";
  write_file(target, "kept");
  ASSERT_EQ(symlink(target.c_str(), path), 0);
  const auto create = [&] { return lumenharbour_imagelist_file_create(name.c_str(), 246, path); };
  EXPECT_EQ(create(), -1);
  EXPECT_EQ(read_file(target), "kept");
  unlink(path);
  ASSERT_EQ(mkfifo(path, 0600), 0);
  EXPECT_EQ(create(), -1);
  lumenharbour_imagelist_file_remove(path);
  const int reader = open(path, O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(create(), -1);
  close(reader);
  EXPECT_EQ(unlink(path), 0);
}

}  // namespace
