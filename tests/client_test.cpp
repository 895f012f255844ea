#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "fake_platform.h"

namespace {

tLumenHarbourInfo& info = gLumenHarbourInfo;
using Lines = std::vector<std::string>;
using Files = std::map<std::string, std::string>;

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
    EXPECT_EQ(lumenharbour_left_to_right_slash(text.data(), 254), in[i] == longest + "x" ? -1 : 0) << in[i];
    EXPECT_STREQ(text.c_str(), out[i].c_str());
  }
  char is_short[] = "short";
  EXPECT_EQ(lumenharbour_left_to_right_slash(is_short, 255), -1);
  EXPECT_STREQ(is_short, "");
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
    signal(SIGPIPE, SIG_IGN);
    fake.dhcp_unit = 9;
    // What the tools do: a transfer leaves the file that the server has.
    fake.on_command = [this](const std::string& command) {
      fake.output += "$" + command + "\n";
      EXPECT_EQ(write(STDOUT_FILENO, "$", 1), 1);
      EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL) << "the daemon's own is not for its tools";
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

  /// @return what the daemon prints for debug messages with "|" between them; "@" stands for `dir`, "$" begins a
  /// command.
  std::string transcript(const std::string& text) {
    std::istringstream in(text);
    std::string all;
    for (std::string line; std::getline(in, line, '|');) {
      for (size_t at; (at = line.find('@')) != line.npos;) line.replace(at, 1, dir);
      all += line[0] == '$' ? line + "\n" : "[LumenHarbour] " + line + "\r\n";
    }
    return all;
  }

  std::string tftp(const std::string& name) { return "tftp -g -r " + name + " -l " + dir + "/" + name + " 192.0.2.9"; }
  std::string flash(const std::string& name) { return "flashcp -v " + dir + "/" + name + " /dev/mtd5"; }
  std::string move(const std::string& name) { return "mv  " + dir + "/" + name + " /mnt/mtd/startcfg"; }
  bool said(const std::string& line) { return fake.output.find(transcript(line)) != std::string::npos; }
  std::string state() {
    const bool idle = timerListNextTimeout(&info.timer_list) == TIMER_NONE;
    return "role " + std::to_string(info.role) + ", " + std::to_string(fake.reboots) + " reboots, " +
           std::to_string(fake.notifications) + " notifications, " + (idle ? "idle" : "waiting");
  }

  std::string dir = "/tmp/client_test.XXXXXX";
  Files files;         ///< on the server, by remote name
  std::string broken;  ///< an installing tool that fails
  std::string echo;    ///< standard output of the last attempt, with a "$" where a command ran
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
  };
  for (const auto& [list, expected] : cases) {
    lumenharbour_info_clear();
    write_file(dir + "/list", list);
    std::string result = std::to_string(lumenharbour_parse_imagelist_file((dir + "/list").c_str(), 0)) + " ";
    result = result + info.rcv_image_name + "|" + info.image_version + "|" + info.rcv_config_name;
    EXPECT_EQ(result, expected) << list;
  }
}

TEST_F(ClientTest, ImagelistStaysOpenForReadingAndAwayFromTheTools) {
  write_file(dir + "/list", ";\n");
  const int next = dup(STDIN_FILENO);
  close(next);
  EXPECT_EQ(lumenharbour_parse_imagelist_file((dir + "/list").c_str(), 0), 0);
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(next, F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST_F(ClientTest, TftpProvisionsAndReboots) {
  start(
      {{DHCPC_IF_CONFIGFILE, "cfg\\c.cfg"}, {DHCPC_IF_IMAGEFILE, "f"}, {DHCPC_IF_IMAGELIST, "lists\\g.txt"}},
      {{"g.txt", "imagever=1;mac=1;\nmac=00:11:22:33:44:55;imagefile=rel/fw.bin"}, {"fw.bin", "12345"}, {"c.cfg", ""}});
  fake.dhcp_text[DHCPC_IF_AUTHMSG] = "quaylanterns";
  fake.dhcp_number[DHCPC_IF_FTPSERVERIP] = ip4(192, 0, 2, 1);
  fake.dhcp_number[DHCPC_IF_REBOOTTIME] = 7;
  attempt();
  EXPECT_EQ(fake.output,
            transcript("Client timeout.|Reboot time is 7.|Get imagelist file.|Get the file: lists/g.txt.|"
                       "Split the file: lists/g.txt to path and name.|File path is: lists/, name is: g.txt.|"
                       "Local imagelist file name: @/g.txt.|$tftp -g -r g.txt -l @/g.txt 192.0.2.9|"
                       "Parse the imagelsit file @/g.txt.|Imagelist file information is imagever=1;mac=1;\n|"
                       "Parse information: len 17, string is imagever=1;mac=1;\n|String is: imagever=1|"
                       "String length is 10, key length is 8.|Image file version is 1.|String is: mac=1|"
                       "String length is 5, key length is 3.|Mac address is 10:00:00:00:00:00.|"
                       "Mac address mismatch!|Get file information ERROR!|"
                       "Imagelist file information is mac=00:11:22:33:44:55;imagefile=rel/fw.bin|"
                       "Parse information: len 42, string is mac=00:11:22:33:44:55;imagefile=rel/fw.bin|"
                       "String is: mac=00:11:22:33:44:55|String length is 21, key length is 3.|"
                       "Mac address is 00:11:22:33:44:55.|String is: imagefile=rel/fw.bin|"
                       "String length is 20, key length is 9.|Image file name is rel/fw.bin.|"
                       "Authentication message is quaylanterns|Get image file.|Get the file: rel/fw.bin.|"
                       "Split the file: rel/fw.bin to path and name.|File path is: rel/, name is: fw.bin.|"
                       "Local image file name: @/fw.bin.|$tftp -g -r fw.bin -l @/fw.bin 192.0.2.9|"
                       "Update system image file.|$flashcp -v @/fw.bin /dev/mtd5|Get config file.|"
                       "Get the file: cfg/c.cfg.|Split the file: cfg/c.cfg to path and name.|"
                       "File path is: cfg/, name is: c.cfg.|Local config file name: @/c.cfg.|"
                       "$tftp -g -r c.cfg -l @/c.cfg 192.0.2.9|Update system config file.|"
                       "$mv  @/c.cfg /mnt/mtd/startcfg|System will reboot in 7(s)."));
  EXPECT_EQ(echo, "cmd: " + tftp("g.txt") + "\n$cmd: " + tftp("fw.bin") + "\n$cmd: " + flash("fw.bin") +
                      "\n$cmd: " + tftp("c.cfg") + "\n$cmd:" + move("c.cfg") + "\n$");
  EXPECT_EQ(fake.dhcp_reads, (std::vector<uint32>{DHCPC_IF_TFTPSERVERIP, DHCPC_IF_CONFIGFILE, DHCPC_IF_IMAGEFILE,
                                                  DHCPC_IF_IMAGELIST, DHCPC_IF_REBOOTTIME, DHCPC_IF_AUTHMSG}));
  EXPECT_EQ(std::tuple(info.imagelist_file_rcv, info.image_file_rcv, info.config_file_rcv), std::tuple(60U, 5U, 0U));
  fake.output.clear();
  fake.advance(700);
  EXPECT_EQ(fake.output, transcript("Client timeout.|Reboot system now."));
  EXPECT_EQ(state(), "role 1, 1 reboots, 0 notifications, idle");
}

TEST_F(ClientTest, FtpIsTriedUntilItIsComplete) {
  start({{DHCPC_IF_IMAGEFILE, "a/b/f"}}, {});
  fake.dhcp_number.clear();
  // What is offered after the other, and what is still missing.
  const std::pair<const char*, std::function<void()>> offers[] = {
      {"server ip address", [] {}},
      {"server ip address", [] { fake.dhcp_number[DHCPC_IF_FTPSERVERIP] = 0; }},
      {"username", [] { fake.dhcp_number[DHCPC_IF_FTPSERVERIP] = ip4(192, 0, 2, 1); }},
      {"username", [] { fake.dhcp_text[DHCPC_IF_FTPUSERNAME] = ""; }},
      {"password", [] { fake.dhcp_text[DHCPC_IF_FTPUSERNAME] = std::string(64, 'u'); }},
  };
  for (const auto& [missing, offer] : offers) {
    offer();
    attempt();
    EXPECT_EQ(fake.output, transcript("Client timeout.|Get TFTP server ip address failed!|Get FTP " +
                                      std::string(missing) + " failed!"));
  }
  fake.dhcp_text[DHCPC_IF_FTPPASSWORD] = std::string(64, 'p');
  attempt();
  const std::string ftp = "ftpget -u " + std::string(63, 'u') + " -p " + std::string(63, 'p') + " 192.0.2.1 @/";
  EXPECT_EQ(fake.output,
            transcript("Client timeout.|Get TFTP server ip address failed!|"
                       "Failed to get imagelist file name, get the defalut imagelist file!|"
                       "Failed to get reboot time!|Reboot time is 0.|Get imagelist file.|Get the file: imagelist.txt.|"
                       "Split the file: imagelist.txt to path and name.|File path is: , name is: imagelist.txt.|"
                       "Local imagelist file name: @/imagelist.txt.|$" +
                       ftp + "imagelist.txt imagelist.txt|Failed to get imagelist file!|Get image file.|" +
                       "Get the file: a/b/f.|Split the file: a/b/f to path and name.|" +
                       "File path is: a/b/, name is: f.|Local image file name: @/f.|$" + ftp + "f a/b/f|" +
                       "Failed to get image file!"));
  EXPECT_EQ(echo, "cmd: " + fake.commands[0] + "\r\n$cmd: " + fake.commands[1] + "\r\n$");
  files["a/b/f"] = "image";
  EXPECT_EQ(attempt().back(), flash("f"));
  EXPECT_TRUE(said("System will reboot in 0(s).|Reboot time is zero, reboot system now."));
  EXPECT_EQ(state(), "role 1, 1 reboots, 6 notifications, idle");
}

TEST_F(ClientTest, StopsTryingWhenNobodyIsToldOrAsked) {
  start({}, {});
  info.dhcp_client_callback = nullptr;
  attempt();
  EXPECT_EQ(state(), "role 1, 0 reboots, 0 notifications, waiting") << "the retry needs no callback";
  info.dhcp_client_notify = 0;
  attempt();
  EXPECT_TRUE(said("Failed to get image and config file name!|Don't send notify message to dhcp client."));
  EXPECT_EQ(state(), "role 1, 0 reboots, 0 notifications, idle");
  lumenharbour_notify_timer_start(60);
  info.api_func = nullptr;
  attempt();
  EXPECT_EQ(fake.output, transcript("Client timeout.|Information get api is NULL!"));
  EXPECT_EQ(state(), "role 1, 0 reboots, 0 notifications, idle");
}

TEST_F(ClientTest, AuthenticationMessageMustBeEqual) {
  start({{DHCPC_IF_CONFIGFILE, "startup.conf"}},
        {{"imagelist.txt", "imagefile=f;\n"}, {"startup.conf", ""}, {"f", ""}});
  const std::string right = "quaylanterns", longest(256, 'q'), never(1, '\0');
  for (const std::string& message : Lines{"", right, "quaylantern", "quaylanternX", right + "X", longest, never}) {
    fake.dhcp_text[DHCPC_IF_AUTHMSG] = message;
    fake.reboots = 0;
    lumenharbour_client_switch_timeout();
    EXPECT_EQ(fake.reboots, message.empty() || message == right ? 1 : 0) << message;
    EXPECT_EQ(said("Authentication message is " + std::string(message.c_str())), !message.empty());
    EXPECT_STREQ(info.rcv_image_name, "f") << "the imagelist is read before the check";
  }
}

TEST_F(ClientTest, RetryFlashesAgainButConfiguresOnce) {
  start({{DHCPC_IF_CONFIGFILE, "c"}, {DHCPC_IF_IMAGEFILE, "fw"}}, {{"fw", ""}});
  Lines expected = {tftp("imagelist.txt"), tftp("fw"), flash("fw")};
  broken = "flashcp";
  EXPECT_EQ(attempt(), expected);
  EXPECT_TRUE(said("Update system image file ERROR errno 28!"));
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
  EXPECT_EQ(state(), "role 1, 1 reboots, 3 notifications, idle");
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
    info.reboot_flag = 0;
    lumenharbour_client_switch_timeout();
    EXPECT_EQ(info.notify_timer.expiry, fake.clock + uint64{delay} * 100);
  }
}

TEST_F(ClientTest, ForgetsWhatAnAttemptLearntAndNothingElse) {
  const tLumenHarbourInfo saved = info;
  tLumenHarbourInfo want;
  for (tLumenHarbourInfo* record : {&info, &want}) memset(static_cast<void*>(record), 0xFF, sizeof(*record));
  const auto forget = [](auto&... fields) { (memset(&fields, 0, sizeof(fields)), ...); };
  forget(want.image_file_rcv, want.config_file_rcv, want.imagelist_file_rcv, want.ftp_server, want.reboot_time,
         want.ftp_username, want.ftp_password, want.rcv_imagelist_name, want.image_version, want.rcv_config_name,
         want.rcv_image_name, want.local_imagelist_name, want.local_image_name, want.local_config_name);
  want.tftp_support = want.reboot_flag = 0;
  lumenharbour_info_clear();
  const auto* bytes = reinterpret_cast<const uint8*>(&info);
  EXPECT_EQ(std::mismatch(bytes, bytes + sizeof(info), reinterpret_cast<uint8*>(&want)).first - bytes, sizeof(info));
  info = saved;
}

TEST_F(ClientTest, SavedConfigurationKeepsTheSwitchOut) {
  fake.saved_config = "hostname access-1\n";
  EXPECT_EQ(lumenharbour_client_enable(1), 0);
  EXPECT_EQ(state(), "role 0, 0 reboots, 0 notifications, idle");
  EXPECT_EQ(info.auth_msg, std::string());
  fake.saved_config = "";
  info.reboot_time = 5;
  EXPECT_EQ(lumenharbour_client_enable(0), 0);
  EXPECT_EQ(state(), "role 1, 0 reboots, 0 notifications, idle");
  EXPECT_EQ(info.auth_msg, std::string("quaylanterns"));
  EXPECT_EQ(std::tuple(info.dhcp_client_vlan, info.reboot_time), std::tuple(9U, 0U));
  EXPECT_EQ(info.upgrade_mode, 0U) << "waits for management to say what it wants";
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
  const std::string too_long(256, 'i');
  start({{DHCPC_IF_IMAGEFILE, too_long}, {DHCPC_IF_CONFIGFILE, too_long}, {DHCPC_IF_IMAGELIST, too_long}}, {});
  EXPECT_EQ(attempt(), Lines{tftp("")});
  EXPECT_TRUE(said("Failed to get image and config file name!"));
  EXPECT_EQ(std::string() + info.rcv_config_name[255] + info.rcv_imagelist_name[255] + info.local_image_name[0],
            std::string(3, '\0'))
      << "the last byte of two fields, and the one behind the third";
  strcpy(info.io_default_path, "/tmp");
  fake.on_command = nullptr;
  fake.commands.clear();
  const std::string refused(251, 'n'), fits(250, 'n'), longest(993, 'n');
  int32 status = 0;
  uint32 bytes = 77;
  EXPECT_EQ(lumenharbour_get_file(refused.c_str(), 251, LUMENHARBOUR_FILE_IMAGE, &status), -1);
  EXPECT_EQ(lumenharbour_get_file(fits.c_str(), 250, LUMENHARBOUR_FILE_IMAGE, &status), -1);
  EXPECT_EQ(status, ENOENT) << "the tool brought no file";
  EXPECT_EQ(lumenharbour_get_file_by_tftp(longest.c_str(), 0, "/none", &bytes, &status), -1);
  EXPECT_EQ(lumenharbour_get_file_by_tftp((longest + "n").c_str(), 0, "/none", &bytes, &status), -1);
  EXPECT_EQ(std::tuple(status, bytes), std::tuple(ENAMETOOLONG, 77U));
  EXPECT_EQ(fake.commands, (Lines{"tftp -g -r " + fits + " -l /tmp/" + fits + " 192.0.2.9",
                                  "tftp -g -r " + longest + " -l /none 192.0.2.9"}));
}

TEST_F(ClientTest, DisableRemovesWhatWasFetched) {
  start({{DHCPC_IF_IMAGEFILE, "fw"}, {DHCPC_IF_CONFIGFILE, "none"}}, {{"fw", "image"}, {"imagelist.txt", ";"}});
  attempt();
  write_file(info.local_config_name, "");
  EXPECT_EQ(state(), "role 1, 0 reboots, 1 notifications, waiting");
  lumenharbour_client_disable();
  EXPECT_TRUE(std::filesystem::is_empty(dir));
  EXPECT_EQ(state(), "role 0, 0 reboots, 1 notifications, idle");
  EXPECT_EQ(info.local_image_name, std::string());
  strcpy(info.local_image_name, (dir + "/").c_str());
  lumenharbour_local_files_remove();
  EXPECT_TRUE(std::filesystem::exists(dir)) << "a path without a name is no file";
}

}  // namespace
