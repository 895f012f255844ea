#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "zor_attr.h"
#include "zor_debug.h"
#include "zor_dhcpc.h"
#include "zor_linux.h"
#include "zor_timer.h"

namespace fs = std::filesystem;

namespace {

// A directory of its own for each test, and no descriptor left open by it.
struct PlatformLinuxTest : testing::Test {
  ~PlatformLinuxTest() override {
    EXPECT_EQ(descriptors(), open_before);
    fs::remove_all(dir);
  }
  static long descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
  static void write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
  static std::string complaint(int want, const std::function<int()>& action) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(action(), want);
    return testing::internal::GetCapturedStderr();
  }
  std::string load(const std::string& text) {
    write(dir + "/conf", text);
    return complaint(0, [this] { return zorLinuxConfLoad((dir + "/conf").c_str(), false), 0; });
  }
  static octetstring octets(std::string& text) { return {reinterpret_cast<uint8*>(&text[0]), uint32(text.size())}; }

  const std::string dir = mkdtemp((testing::TempDir() + "zorXXXXXX").data());
  const long open_before = descriptors();
};

TEST_F(PlatformLinuxTest, ConfigurationIsReadAndBadLinesLeaveTheDefaults) {
  const tZorLinuxConf& conf = zorLinuxConf();
  EXPECT_EQ(load("# lab\n\n \tuplink=lo # here\r\n reboot_command = echo a#b = c\nclock_speed\t=\t1000"), "");
  EXPECT_EQ(conf.uplink + std::to_string(conf.clock_speed) + conf.reboot_command, "lo1000echo a#b = c");
  const std::string file = dir + "/conf", speed = " for clock_speed; allowed is a whole number from 1 to 1000";
  EXPECT_EQ(load(""), "");
  const tZorLinuxConf defaults = conf;
  EXPECT_STREQ(defaults.startup_config, "/mnt/mtd/startcfg");
  const std::pair<std::string, std::string> cases[] = {
      {"a = 1",
       "unknown key \"a\"; known are uplink, startup_config, reboot_command, dhcp_state, "
       "dhcp_notify_command, clock_speed"},
      {"clock_speed = 0", "bad value \"0\"" + speed},
      {"clock_speed = 1001", "bad value \"1001\"" + speed},
      {"uplink = a\033[2J", "control character; allowed is plain text"},
      {std::string(1025, 'x'), "line too long; allowed are 1024 bytes"},
  };
  for (const auto& [line, message] : cases) {
    EXPECT_EQ(load("#\n" + line + "\n"), file + ":2: " + message + "\n");
    EXPECT_EQ(memcmp(&conf, &defaults, sizeof(defaults)), 0) << line;
  }
}

TEST_F(PlatformLinuxTest, DhcpValuesAreReadOrRefused) {
  const std::string state = dir + "/dhcp.options";
  ASSERT_EQ(load("dhcp_state = " + state), "");
  EXPECT_EQ(complaint(-1, [] { return dhcpcIfGetApi(1, DHCPC_IF_IMAGELIST, nullptr); }), "") << "no file yet";
  // What the reader gets, or "!" and what is said instead.
  const std::tuple<uint32, std::string, std::string> cases[] = {
      {DHCPC_IF_CONFIGFILE, "config-file=9 letters", "9 letters"},
      {DHCPC_IF_FTPUSERNAME, "ftp-username==\xC3\xA4 #'", "=\xC3\xA4 #'"},
      {DHCPC_IF_FTPPASSWORD, "ftp-password=", ""},
      {DHCPC_IF_FTPSERVERIP, "ftp-server=255.255.255.254", "4294967294"},
      {DHCPC_IF_IMAGEFILE, "image-file=a", "a"},
      {DHCPC_IF_REBOOTTIME, "reboot-time=4294967295", "4294967295"},
      {DHCPC_IF_AUTHMSG, "auth-msg=b", "b"},
      {DHCPC_IF_TFTPSERVERIP, "tftp-server=192.0.2.1", "3221225985"},
      {DHCPC_IF_IMAGELIST, "imagelists=a\nx imagelist=a\nimagelist=d\n", "d"},
      {DHCPC_IF_IMAGELIST, std::string(1024, 'x') + "imagelist=a", "!"},
      {DHCPC_IF_IMAGELIST, "imagelist=10 letters", "!imagelist: longer than its reader's buffer"},
      {DHCPC_IF_IMAGELIST, "imagelist=" + std::string(5000, 'x'), "!imagelist: line too long"},
      {DHCPC_IF_IMAGELIST, "imagelist=\x7F", "!imagelist: control character"},
      {DHCPC_IF_IMAGELIST, std::string("imagelist=a\0b", 13), "!imagelist: control character"},
      {DHCPC_IF_TFTPSERVERIP, "tftp-server=255.255.255.2550", "!tftp-server: not a dotted IPv4 address"},
      {DHCPC_IF_REBOOTTIME, "reboot-time=5 ", "!reboot-time: not a number of seconds from 0 to 4294967295"},
      {DHCPC_IF_REBOOTTIME, "reboot-time=4294967296", "!reboot-time: not a number of seconds from 0 to 4294967295"},
  };
  for (const auto& [attr, line, want] : cases) {
    write(state, "other=x\n" + line);
    std::string text = "untouched";
    uint32 number = 5;
    octetstring value = octets(text);
    const bool is_number = line.find("server=") != line.npos || line.starts_with("reboot"), bad = want[0] == '!';
    const auto get = [&, a = attr] { return dhcpcIfGetApi(1, a, is_number ? static_cast<void*>(&number) : &value); };
    EXPECT_EQ(complaint(bad ? -1 : 0, get), want.size() > 1 && bad ? state + ": " + &want[1] + "; not used\n" : "");
    const std::string got = is_number ? std::to_string(number) : text.substr(0, value.len);
    EXPECT_EQ(got, !bad ? want : is_number ? "5" : "untouched") << line.substr(0, 40);
  }
}

TEST_F(PlatformLinuxTest, CommandsRunAndReportTheirFailure) {
  load("reboot_command = touch " + dir + "/rebooted\ndhcp_notify_command = exit 3");
  for (std::string text : {"reboo", "rebooT", "reboot ", "reboot"}) {
    const octetstring value = octets(text);
    EXPECT_EQ(zorScalarSetApi(0, SYS_CLEAR_BIOS, &value), text == "reboot" ? 0 : -1);
    EXPECT_EQ(fs::exists(dir + "/rebooted"), text == "reboot");
  }
  EXPECT_EQ(complaint(-1, [] { return dhcpcIfGetApi(1, DHCPC_IF_LUMENHARBOUR, nullptr); }),
            "dhcp_notify_command: \"exit 3\" failed with exit status 3\n");
}

TEST_F(PlatformLinuxTest, SavedConfigurationIsDumped) {
  std::string saved = dir + "/saved", path = dir + "/Ram/startcfg";
  octetstring value = octets(path);
  const auto dump = [&] { return zorScalarGetApi(0, SYS_READ_CONFIG, &value); };
  load("startup_config = " + saved);
  EXPECT_EQ(dump(), 0) << "nothing saved";
  for (const size_t size : {10000, 5, 0}) {
    write(saved, std::string(size, static_cast<char>('a' + size % 7)));
    EXPECT_EQ(dump(), 0);
    EXPECT_EQ(system(size == 0 ? ("test ! -e " + path).c_str() : ("cmp " + saved + " " + path).c_str()), 0);
  }
  // Saved but unreadable: a dump that is not empty still tells that the switch is configured.
  EXPECT_TRUE(fs::remove(saved) && fs::create_directory(saved));
  EXPECT_EQ(complaint(-1, dump), saved + ": saved configuration not dumped: Is a directory\n");
  EXPECT_GT(fs::file_size(path), 0U);
}

TEST_F(PlatformLinuxTest, OwnAddressesVlansAndUplinkTranslate) {
  const uint32 lo = if_nametoindex("lo");
  uint32 unit = 0;
  // Two zeros, the kind, the address; 7 stands for 127.
  for (const std::string text : {"0010000", "0017002", "0027001", "00170010", "0017001"}) {
    std::string bytes = text;
    for (char& byte : bytes) byte = byte == '7' ? 127 : static_cast<char>(byte - '0');
    const octetstring key = octets(bytes);
    EXPECT_EQ(zorIndexTrans(&key, SYS_IP2LOGICAL, &unit), text == "0017001" ? 0 : -1) << text;
    EXPECT_EQ(unit, text == "0017001" ? lo : 0) << text;
  }
  const tPhyIfInfo no_vlan = {1, 1, 1, 1, 4095, 3, 0};
  EXPECT_EQ(zorIndexTrans(&no_vlan, SYS_VLAN2LOGICAL, &unit), -1);
  EXPECT_EQ(zorIfGetApi(lo, SYS_IF_VLANVID, &unit), -1);
  std::string mac(6, '?');
  octetstring value = octets(mac);
  load("uplink = lo");
  EXPECT_EQ(zorIndexTrans(nullptr, SYS_PHY2LOGICAL_NUM, &(unit = 0)), 0);
  EXPECT_EQ(unit, lo);
  EXPECT_EQ(zorScalarGetApi(0, SYS_MAC_ADDRESS, &value), -1) << "has no hardware address";
  load("");
  if (zorIndexTrans(nullptr, SYS_PHY2LOGICAL_NUM, &unit) != 0) GTEST_SKIP() << "only lo on this machine";
  EXPECT_EQ(zorScalarGetApi(0, SYS_MAC_ADDRESS, &value), 0);
  char name[IF_NAMESIZE];
  std::ifstream want(std::string("/sys/class/net/") + if_indextoname(unit, name) + "/address");
  for (unsigned byte, i = 0; want >> std::hex >> byte; want.ignore()) EXPECT_EQ(uint8(mac[i++]), byte) << name;
}

TEST_F(PlatformLinuxTest, FastClockKeepsTimeoutsInRealTimeRoundedUp) {
  load("");
  const uint64 slow = zorClockTicks();
  load("clock_speed = 1000");
  tTimerNode node = {};
  tTimerLst list = {{&list.nodes, &list.nodes}};
  timerStart(&list, &node, 5'000'500, nullptr, 0, 0, 0);
  const uint64 before = zorClockTicks(), wait = timerListNextTimeout(&list) * uint64{1000};
  EXPECT_GE(before, slow * 1000);
  EXPECT_LT(wait, node.expiry - before + 1000);
  EXPECT_GE(wait, node.expiry - zorClockTicks());
}

TEST(PlatformLinuxDeathTest, CrashIsReportedAndStillKills) {
  char name[] = "switchd", *argv[] = {name, nullptr};
  auto die = [&](auto cause) { zorCatchSegFault(1, argv), cause(); };
  auto* wall = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  EXPECT_EXIT(die([&] { *wall = 1; }), testing::KilledBySignal(SIGSEGV),
              "switchd: fatal signal 11 \\(SIGSEGV\\) at address 0x[0-9a-f]+000\n.*\\[0x[0-9a-f]+\\]\n");
  EXPECT_EXIT(die(abort), testing::KilledBySignal(SIGABRT), "switchd: fatal signal 6 \\(SIGABRT\\)\n");
}

}  // namespace
