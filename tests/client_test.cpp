#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "fake_platform.h"

namespace {

tLumenHarbourInfo& info = gLumenHarbourInfo;
using Lines = std::vector<std::string>;
using Files = std::map<std::string, std::string>;

/// @return what the daemon prints for these debug messages.
std::string messages(const Lines& lines) {
  std::string all;
  for (const std::string& line : lines) all += "[LumenHarbour] " + line + "\r\n";
  return all;
}

TEST(ClientText, MacDigitsStandAtFixedPlaces) {
  uint8 mac[LUMENHARBOUR_MAC_SIZE];
  lumenharbour_mac_str2hex("aA:fF-gG::9:9@x/0", mac);
  EXPECT_STREQ(tLumenHarbourMacText(mac).text, "aa:ff:00:09:90:00");
}

TEST(ClientText, PathsBecomeCleanSlashPaths) {
  const std::string longest(254, 'x');
  const Lines in = {"",       "i\\sub\\..\\a.bin", "\\\\srv\\x",     "../up", "a/../b",
                    "d/.hid", "i/./x..b",          "a/.//./.b./c//", longest, longest + "x"};
  const Lines out = {"", "i/sub/a.bin", "/srv/x", "../up", "a/b", "d/hid", "i/x..b", "a/b./c/", longest, ""};
  for (size_t i = 0; i < in.size(); i++) {
    std::string text = in[i];
    const int rc = lumenharbour_left_to_right_slash(text.data(), static_cast<uint32>(text.size()));
    EXPECT_EQ(std::pair(rc, std::string(text.c_str())), std::pair(in[i] == longest + "x" ? -1 : 0, out[i])) << in[i];
  }
  char is_short[] = "short";
  EXPECT_TRUE(lumenharbour_left_to_right_slash(is_short, 255) == -1 && is_short[0] == '\0');
}

TEST(ClientText, PathsSplitBehindTheLastSlash) {
  const std::string cases[][3] = {{"dir/sub/f.bin", "dir/sub/", "f.bin"}, {"f.bin", "", "f.bin"}, {"dir/", "dir/", ""}};
  for (const auto& [text, dir, name] : cases) {
    char path[256] = {}, file[256] = {};
    EXPECT_EQ(lumenharbour_split_path_and_name(text.c_str(), static_cast<uint32>(text.size()), path, file), 0);
    EXPECT_EQ(path + std::string("|") + file, dir + "|" + name);
  }
}

/// The client role before a file server.
class ClientTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    strcpy(info.io_default_path, dir.c_str());
    info.debug = 1;
    // What the tools do: a transfer leaves the file that the server has.
    fake.on_command = [this](const std::string& command) {
      std::istringstream in(command);
      const Lines words{std::istream_iterator<std::string>(in), {}};
      const bool by_tftp = words[0] == "tftp";
      errno = ENOSPC;
      if (!by_tftp && words[0] != "ftpget") return words[0] == broken ? 256 : 0;
      const std::string& remote = words[by_tftp ? 3 : 7];
      if (files.contains(remote)) write_file(words[by_tftp ? 5 : 6], files[remote]);
      return files.contains(remote) ? 0 : 256;
    };
  }

  ~ClientTest() override { std::filesystem::remove_all(dir); }

  /// Starts the role on a network that offers `names` and a TFTP server with `server_files`.
  void start(const std::map<uint32, std::string>& names, const Files& server_files) {
    ASSERT_EQ(lumenharbour_client_enable(1), 0);
    fake.dhcp_number[DHCPC_IF_TFTPSERVERIP] = ip4(192, 0, 2, 9);
    fake.dhcp_text = names;
    files = server_files;
  }

  /// Runs the attempt that is due in 60 s. @return its commands.
  const Lines& attempt() {
    fake.output.clear();
    fake.commands.clear();
    testing::internal::CaptureStdout();
    fake.advance(6000);
    echo = testing::internal::GetCapturedStdout();
    return fake.commands;
  }

  std::string tftp(const std::string& name) { return "tftp -g -r " + name + " -l " + dir + "/" + name + " 192.0.2.9"; }
  std::string flash(const std::string& name) { return "flashcp -v " + dir + "/" + name + " /dev/mtd5"; }
  std::string move(const std::string& name) { return "mv  " + dir + "/" + name + " /mnt/mtd/startcfg"; }
  bool said(const std::string& line) { return fake.output.find(messages({line})) != std::string::npos; }
  bool idle() { return timerListNextTimeout(&info.timer_list) == TIMER_NONE; }

  std::string dir = "/tmp/client_test.XXXXXX";
  Files files;         ///< on the server, by remote name
  std::string broken;  ///< an installing tool that fails
  std::string echo;    ///< standard output of the last attempt
};

TEST_F(ClientTest, FreeSpaceSaturates) {
  for (const auto& [memory, space] : {std::pair<uint64, uint32>{0, 0}, {4096, 4096}, {0x100000001, 0xFFFFFFFF}}) {
    fake.free_memory = memory;
    EXPECT_EQ(lumenharbour_get_fs_free_space(), space);
  }
}

TEST_F(ClientTest, ImagelistLines) {
  memcpy(info.sys_mac, "\x00\x11\x22\x33\x44\x00", LUMENHARBOUR_MAC_SIZE);
  const std::string other = "mac=00:11:22:33:44:56;", n244(244, 'n'), pad510 = other + " " + std::string(487, 'p');
  // A list, and the result, image name, version and configuration name that it gives.
  const std::string cases[][2] = {
      {"mac=00:11:22:33:44:00;imagefile=a.bin;imagever=1.0;cfgfile=c.cfg;\n", "0 a.bin|1.0|c.cfg"},
      {"mac=00-11-22-33-44-00 and more;cfgfile=c;\n", "0 ||c"},
      {"mac=00:11:22:33:44;cfgfile=missing digits are zeros;\n", "0 ||missing digits are zeros"},
      {"mac=001122334400;imagefile=a.bin;\n", "-1 ||"},
      {"cfgfile=old;" + other + "\nimagefile=b.bin;\n", "0 b.bin||old"},
      {"imagefile=longer;imagefile=b;\nimagefile=second;\n", "0 b||"},
      {"imagefile=dir\\sub\\x.bin;imagever=a/../1.0;cfgfile=../x=y;\n", "0 dir/sub/x.bin|a/1.0|../x=y"},
      {"imagefile=x.bin\r\n", "0 x.bin\r\n||"},
      {"\n imagefile=a;\n\timagefile=a;\nimagefile=b c;\n", "0 b c||"},
      {";\nimagefile=a;\n", "0 ||"},
      {"word\nimagefile=a;\n", "0 ||"},
      {"IMAGEFILE=a;image=a;imagefile2=a;cfgfile =a;=a;/.mac=a;imagefile=;imagever=v;\n", "0 |v|"},
      {"imagefile=" + n244 + ";\n", "0 " + n244 + "||"},
      {"imagefile=" + n244 + "n\n", "0 ||"},
      {std::string(256, 'w') + "\nimagefile=a;\n", "0 ||"},
      {std::string(257, 'w') + "\nimagefile=a;\n", "-1 ||"},
      {pad510 + "imagefile=a piece of its own;\n", "0 a piece of its own||"},
      {std::string("\0imagefile=a;\nimagefile=b;\0cfgfile=c;\n", 38), "0 b||"},
      {"imagever=1;mac=1;\n", "-1 |1|"},
  };
  for (const auto& [list, expected] : cases) {
    lumenharbour_info_clear();
    fake.output.clear();
    write_file(dir + "/list", list);
    std::string result = std::to_string(lumenharbour_parse_imagelist_file((dir + "/list").c_str(), 0)) + " ";
    result = result + info.rcv_image_name + "|" + info.image_version + "|" + info.rcv_config_name;
    EXPECT_EQ(result, expected) << list;
  }
  EXPECT_EQ(fake.output,
            messages({"Parse the imagelsit file " + dir + "/list.", "Imagelist file information is imagever=1;mac=1;\n",
                      "Parse information: len 17, string is imagever=1;mac=1;\n", "String is: imagever=1",
                      "String length is 10, key length is 8.", "Image file version is 1.", "String is: mac=1",
                      "String length is 5, key length is 3.", "Mac address is 10:00:00:00:00:00.",
                      "Mac address mismatch!", "Get file information ERROR!"}));
}

TEST_F(ClientTest, TftpServerWins) {
  start({{DHCPC_IF_IMAGELIST, "lists\\g.txt"}, {DHCPC_IF_CONFIGFILE, "cfg/c.cfg"}, {DHCPC_IF_IMAGEFILE, "dhcp"}},
        {{"g.txt", "imagefile=rel/fw.bin;\n"}, {"fw.bin", "12345"}, {"c.cfg", ""}});
  fake.dhcp_number[DHCPC_IF_FTPSERVERIP] = ip4(192, 0, 2, 1);
  EXPECT_EQ(info.notify_timer.expiry, 6000U);
  EXPECT_EQ(attempt(), (Lines{tftp("g.txt"), tftp("fw.bin"), flash("fw.bin"), tftp("c.cfg"), move("c.cfg")}));
  EXPECT_EQ(echo, "cmd: " + tftp("g.txt") + "\ncmd: " + tftp("fw.bin") + "\ncmd: " + flash("fw.bin") +
                      "\ncmd: " + tftp("c.cfg") + "\ncmd:" + move("c.cfg") + "\n");
  EXPECT_EQ(fake.dhcp_reads, (std::vector<uint32>{DHCPC_IF_TFTPSERVERIP, DHCPC_IF_CONFIGFILE, DHCPC_IF_IMAGEFILE,
                                                  DHCPC_IF_IMAGELIST, DHCPC_IF_REBOOTTIME, DHCPC_IF_AUTHMSG}));
  EXPECT_TRUE(info.image_file_rcv == 5 && fake.reboots == 1) << "no delay was asked for";
}

TEST_F(ClientTest, FtpIsTriedUntilItIsComplete) {
  start({{DHCPC_IF_IMAGEFILE, "a/b/f"}, {DHCPC_IF_FTPPASSWORD, ""}}, {{"a/b/f", "image"}});
  attempt();
  fake.dhcp_number = {{DHCPC_IF_TFTPSERVERIP, 0}, {DHCPC_IF_FTPSERVERIP, 0}};
  attempt();
  EXPECT_TRUE(said("Get TFTP server ip address failed!") && said("Get FTP server ip address failed!"));
  fake.dhcp_number[DHCPC_IF_FTPSERVERIP] = ip4(192, 0, 2, 1);
  attempt();
  EXPECT_TRUE(said("Get FTP username failed!"));
  fake.dhcp_text[DHCPC_IF_FTPUSERNAME] = std::string(70, 'u');
  attempt();
  EXPECT_TRUE(said("Get FTP password failed!"));
  fake.dhcp_text[DHCPC_IF_FTPPASSWORD] = "pw";
  const std::string ftp = "ftpget -u " + std::string(63, 'u') + " -p pw 192.0.2.1 " + dir + "/";
  EXPECT_EQ(attempt(), (Lines{ftp + "imagelist.txt imagelist.txt", ftp + "f a/b/f", flash("f")}));
  EXPECT_EQ(echo, "cmd: " + fake.commands[0] + "\r\ncmd: " + fake.commands[1] + "\r\ncmd: " + flash("f") + "\n");
  EXPECT_TRUE(fake.notifications == 4 && fake.reboots == 1);
}

TEST_F(ClientTest, StopsTryingWhenNobodyIsToldOrAsked) {
  start({}, {});
  info.dhcp_client_callback = nullptr;
  attempt();
  EXPECT_FALSE(idle()) << "the retry needs no callback";
  info.dhcp_client_notify = 0;
  attempt();
  EXPECT_TRUE(said("Don't send notify message to dhcp client.") && idle());
  lumenharbour_notify_timer_start(60);
  info.api_func = nullptr;
  attempt();
  EXPECT_EQ(fake.output, messages({"Client timeout.", "Information get api is NULL!"}));
  EXPECT_TRUE(idle() && fake.notifications == 0);
}

TEST_F(ClientTest, AuthenticationMessageMustBeEqual) {
  start({{DHCPC_IF_CONFIGFILE, "startup.conf"}},
        {{"imagelist.txt", "imagefile=f;\n"}, {"startup.conf", ""}, {"f", ""}});
  const std::string right = "quaylanterns", longest(256, 'q');
  for (const std::string& message : Lines{"", right, "quaylantern", "quaylanternX", right + "X", longest}) {
    fake.dhcp_text[DHCPC_IF_AUTHMSG] = message;
    fake.reboots = 0;
    lumenharbour_client_switch_timeout();
    EXPECT_EQ(fake.reboots, message.empty() || message == right ? 1 : 0) << message;
    EXPECT_EQ(said("Authentication message is " + message), !message.empty());
    EXPECT_STREQ(info.rcv_image_name, "f") << "the imagelist is read before the check";
  }
}

TEST_F(ClientTest, RetryFlashesAgainButConfiguresOnce) {
  start({{DHCPC_IF_CONFIGFILE, "c"}, {DHCPC_IF_IMAGEFILE, "fw"}}, {{"fw", ""}});
  Lines expected = {tftp("imagelist.txt"), tftp("fw"), flash("fw")};
  broken = "flashcp";
  EXPECT_EQ(attempt(), expected);
  EXPECT_TRUE(said("Failed to get imagelist file!") && said("Update system image file ERROR errno 28!"));
  broken = "mv";
  expected.push_back(tftp("c"));
  EXPECT_EQ(attempt(), expected);
  EXPECT_TRUE(said("Failed to get config file!"));
  files["c"] = "";
  expected.push_back(move("c"));
  EXPECT_EQ(attempt(), expected);
  EXPECT_TRUE(said("Write startcfg file ERROR errno 28!"));
  broken = "";
  EXPECT_EQ(attempt(), expected);
  EXPECT_TRUE(fake.reboots == 1 && fake.notifications == 3);
  lumenharbour_notify_timer_start(60);
  EXPECT_EQ(attempt().back(), flash("fw")) << "the configuration is in place";
}

TEST_F(ClientTest, LongestRebootDelayCounts) {
  start({{DHCPC_IF_IMAGEFILE, "fw"}}, {{"fw", ""}});
  const uint32 cases[][4] = {{7, 0, 0, 7}, {1, 2, 3, 3}, {0, 0, 0xFFFFFFFF, 0xFFFFFFFF}, {1, 60, 2, 60}};
  for (const auto& [dhcp, image, config, delay] : cases) {
    fake.dhcp_number[DHCPC_IF_REBOOTTIME] = dhcp;
    info.image_reload_time = image;
    info.config_reload_time = config;
    lumenharbour_info_clear();
    lumenharbour_client_switch_timeout();
    EXPECT_EQ(info.notify_timer.expiry, fake.clock + uint64{delay} * 100);
  }
  attempt();
  EXPECT_TRUE(said("Reboot system now.") && fake.commands.empty() && fake.reboots == 1);
}

TEST_F(ClientTest, SavedConfigurationKeepsTheSwitchOut) {
  fake.saved_config = "hostname access-1\n";
  EXPECT_TRUE(lumenharbour_client_enable(1) == 0 && info.role == LUMENHARBOUR_ROLE_NONE && idle());
  fake.saved_config = "";
  EXPECT_TRUE(lumenharbour_client_enable(0) == 0 && info.role == LUMENHARBOUR_ROLE_CLIENT && idle());
}

TEST_F(ClientTest, ManualUpgradeFetchesWhatWasAskedFor) {
  start({{DHCPC_IF_CONFIGFILE, "c"}, {DHCPC_IF_IMAGEFILE, "fw"}}, {{"c", ""}});
  info.upgrade_mode = LUMENHARBOUR_UPGRADE_MANUAL;
  info.upgrade_config = 1;
  EXPECT_EQ(attempt(), (Lines{tftp("imagelist.txt"), tftp("c"), move("c")}));
  fake.dhcp_text.erase(DHCPC_IF_IMAGEFILE);
  info.upgrade_image = 1;
  lumenharbour_notify_timer_start(60);
  EXPECT_EQ(attempt(), (Lines{tftp("imagelist.txt"), tftp("")})) << "wanted even without a name";
}

TEST_F(ClientTest, LongNamesAreRefusedOrUsedWhole) {
  start({{DHCPC_IF_IMAGEFILE, std::string(256, 'i')}, {DHCPC_IF_CONFIGFILE, std::string(255, 'c')}}, {});
  EXPECT_EQ(attempt(), Lines{tftp("imagelist.txt")});
  EXPECT_TRUE(said("Failed to get image and config file name!"));
  EXPECT_EQ(info.rcv_image_name[0] + info.local_image_name[0], 0) << "the field and the one behind it";
  strcpy(info.io_default_path, "/tmp");
  fake.on_command = nullptr;
  const std::string refused(251, 'n'), fits(250, 'n');
  int32 status = 0;
  EXPECT_EQ(lumenharbour_get_file(refused.c_str(), 251, LUMENHARBOUR_FILE_IMAGE, &status), -1);
  EXPECT_EQ(lumenharbour_get_file(fits.c_str(), 250, LUMENHARBOUR_FILE_IMAGE, &status), -1);
  EXPECT_EQ(fake.commands, (Lines{tftp("imagelist.txt"), "tftp -g -r " + fits + " -l /tmp/" + fits + " 192.0.2.9"}));
  EXPECT_EQ(status, ENOENT) << "the tool brought no file";
}

TEST_F(ClientTest, DisableRemovesWhatWasFetched) {
  start({{DHCPC_IF_IMAGEFILE, "fw"}, {DHCPC_IF_CONFIGFILE, "none"}}, {{"fw", "image"}, {"imagelist.txt", ";"}});
  attempt();
  ASSERT_TRUE(read_file(dir + "/fw") == "image" && !idle());
  lumenharbour_client_disable();
  EXPECT_TRUE(std::filesystem::is_empty(dir) && info.role == LUMENHARBOUR_ROLE_NONE && idle());
  strcpy(info.local_image_name, (dir + "/").c_str());
  lumenharbour_local_files_remove();
  EXPECT_TRUE(std::filesystem::exists(dir)) << "a path without a name is no file";
}

}  // namespace
