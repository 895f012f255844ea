#include <gtest/gtest.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <csignal>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>

#include "zor_attr.h"
#include "zor_debug.h"
#include "zor_dhcpc.h"
#include "zor_linux.h"
#include "zor_osix.h"
#include "zor_timer.h"

namespace fs = std::filesystem;

// The C library's own function, replaced for this program: not every kernel has VLANs. Here loopback carries VLAN 7.
extern "C" int ioctl(int, unsigned long request, ...) noexcept {
  va_list args;
  va_start(args, request);
  auto* vlan = va_arg(args, vlan_ioctl_args*);
  va_end(args);
  vlan->u.VID = 7;
  return request == SIOCGIFVLAN && vlan->cmd == GET_VLAN_VID_CMD && strcmp(vlan->device1, "lo") == 0 ? 0 : -1;
}

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
  // What has left the process by the end of the action, before a "$".
  static std::string printed(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    EXPECT_EQ(::write(STDOUT_FILENO, "$", 1), 1);
    return testing::internal::GetCapturedStdout();
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
  const auto texts = [&] {
    return std::string(conf.uplink) + "|" + conf.startup_config + "|" + conf.reboot_command + "|" + conf.dhcp_state +
           "|" + conf.dhcp_notify_command + "|" + std::to_string(conf.clock_speed);
  };
  const std::string i15(15, 'i'), p511 = "/" + std::string(510, 'p');
  const std::string good[][2] = {
      {"# lab\n\n \tuplink=lo # here\n reboot_command = echo a# b = c #d\r\nclock_speed\t=\t1000\r\n",
       "lo|/mnt/mtd/startcfg|echo a# b = c|/run/lumenharbour/dhcp.options||1000"},
      {"startup_config=" + p511 + "\nreboot_command=" + p511 + "\ndhcp_state=" + p511 +
           "\ndhcp_notify_command=" + p511 + "\nuplink=" + i15,
       i15 + "|" + p511 + "|" + p511 + "|" + p511 + "|" + p511 + "|1"},
      {"dhcp_notify_command=xx\ndhcp_notify_command=\n",
       "|/mnt/mtd/startcfg|/sbin/reboot|/run/lumenharbour/dhcp.options||1"},
  };
  for (const auto& [text, want] : good) {
    EXPECT_EQ(load(text), "");
    EXPECT_EQ(texts(), want);
  }
  const tZorLinuxConf defaults = conf;
  const std::string name = " for uplink; allowed is an interface name of 1 to 15 characters",
                    speed = " for clock_speed; allowed is a whole number from 1 to 1000", b = "bad value \"",
                    path = "; allowed is an absolute path of at most 511 bytes", x1024(1024, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"a = 1",
       "unknown key \"a\"; known are uplink, startup_config, reboot_command, dhcp_state, "
       "dhcp_notify_command, clock_speed"},
      {"uplink =", b + "\"" + name},
      {"uplink = a/b", b + "a/b\"" + name},
      {"uplink = a b", b + "a b\"" + name},
      {"uplink = a\tb", b + "a\tb\"" + name},
      {"uplink = i" + i15, b + "i" + i15 + "\"" + name},
      {"startup_config = etc", b + "etc\" for startup_config" + path},
      {"dhcp_state = /" + p511, b + "/" + p511 + "\" for dhcp_state" + path},
      {"reboot_command =", b + "\" for reboot_command; allowed is a shell command of 1 to 511 bytes"},
      {"dhcp_notify_command = /" + p511,
       b + "/" + p511 + "\" for dhcp_notify_command; allowed is a shell command of at most 511 bytes, or nothing"},
      {"clock_speed = 0", b + "0\"" + speed},
      {"clock_speed = 1001", b + "1001\"" + speed},
      {"uplink = a\033[2J", "control character; allowed is plain text"},
      {x1024, "\"" + x1024 + "\" is not of the form key = value"},
      {x1024 + x1024 + "x", "line too long; allowed are 1024 bytes"},
  };
  for (const auto& [line, message] : cases) {
    EXPECT_EQ(load("#\n" + line + "\n\n"), dir + "/conf:2: " + message + "\n");
    EXPECT_EQ(memcmp(&conf, &defaults, sizeof(defaults)), 0) << line;
  }
  EXPECT_EQ(complaint(0, [&] { return zorLinuxConfLoad(dir.c_str(), true), 0; }),
            dir + ": Is a directory; the rest is not read\n");
}

TEST_F(PlatformLinuxTest, ConfigurationIsNamedByTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not loaded one yet
  const std::string named = "/none: No such file or directory; using the defaults\n";
  for (const auto& [path, said] : {std::pair("/none", named), std::pair("", std::string())}) {
    setenv("LUMENHARBOUR_PLATFORM_CONF", path, 1);
    EXPECT_EXIT((zorLinuxConf(), exit(0)), testing::ExitedWithCode(0), testing::Eq(said)) << path;
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
      {DHCPC_IF_LUMENHARBOUR + 1, "imagelist=a", "!"},
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
    uint32 number = 5, begun;
    octetstring value = octets(text);
    const bool is_number = line.find("server=") != line.npos || line.starts_with("reboot"), bad = want[0] == '!';
    const auto get = [&, a = attr] { return dhcpcIfGetApi(1, a, is_number ? static_cast<void*>(&number) : &value); };
    dhcpcIfGetApi(1, DHCPC_IF_TFTPSERVERIP, &begun);
    EXPECT_EQ(complaint(bad ? -1 : 0, get), want.size() > 1 && bad ? state + ": " + &want[1] + "; not used\n" : "");
    const std::string got = is_number ? std::to_string(number) : text.substr(0, value.len);
    EXPECT_EQ(got, !bad ? want : is_number ? "5" : "untouched") << line.substr(0, 40);
  }
}

TEST_F(PlatformLinuxTest, AnAttemptReadsOnceAndNoUnusableMessageIsNone) {
  const std::string state = dir + "/dhcp.options", wrong = "; taken for a wrong one\n";
  load("dhcp_state = " + state);
  const auto plant = [&] { EXPECT_EQ(fs::remove(state) ? mkfifo(state.c_str(), 0600) : -1, 0); };
  const auto starve = [](rlim_t most) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = most;
    setrlimit(RLIMIT_NOFILE, &limit);
  };
  // The file, and what becomes of it; what the tools are told of the imagelist, the message, and what is said of it.
  const std::tuple<std::string, std::function<void()>, std::string> cases[] = {
      {"auth-msg=right\nauth-msg=x\nimagelist=a", nullptr, "named right:"},
      {"auth-msg=\nimagelist=", nullptr, "default :"},
      {"imagelist=\x7F", nullptr, "named none:"},
      {"auth-msg=right", [&] { fs::remove(state); }, "default none:"},
      {"auth-msg=right", plant, "default none:"},
      {"auth-msg=10 letters", nullptr, "default 0:longer than its reader's buffer" + wrong},
      {"auth-msg=\x7F", nullptr, "default 0:control character" + wrong},
      {"auth-msg=" + std::string(5000, 'x'), nullptr, "default 0:line too long" + wrong},
      {"auth-msg=right", [&] { starve(0); }, "default 0:Too many open files" + wrong},
      {"", [&] { fs::remove(state) && fs::create_directory(state); }, "default 0:Is a directory" + wrong},
  };
  std::string attempt;
  for (const auto& [file, change, want] : cases) {
    fs::remove(state);
    write(state, file);
    if (change) change();
    uint32 ip;
    dhcpcIfGetApi(1, DHCPC_IF_TFTPSERVERIP, &ip);
    starve(64);
    EXPECT_NE(std::exchange(attempt, getenv("LUMENHARBOUR_ATTEMPT")), getenv("LUMENHARBOUR_ATTEMPT"));
    EXPECT_STREQ(getenv("LUMENHARBOUR_STAGE"), "imagelist");
    fs::remove(state);
    write(state, "auth-msg=next");
    std::string text = "untouched", found = getenv("LUMENHARBOUR_IMAGELIST");
    octetstring value = octets(text);
    testing::internal::CaptureStderr();
    const int rc = dhcpcIfGetApi(1, DHCPC_IF_AUTHMSG, &value);
    const std::string said = testing::internal::GetCapturedStderr();
    text.resize(value.len);
    found += " " + (rc != 0 ? "none" : text == std::string(1, '\0') ? "0" : text) + ":";
    EXPECT_EQ(found + zorLinuxTail(said, state.size() + strlen(": auth-msg: ")).data(), want);
    EXPECT_STREQ(getenv("LUMENHARBOUR_STAGE"), "files");
  }
}

TEST_F(PlatformLinuxTest, CommandsRunAndReportTheirFailure) {
  const auto set = [](uint32 unit, uint32 attr, std::string text) {
    const octetstring value = octets(text);
    return zorScalarSetApi(unit, attr, &value);
  };
  const auto reboot = [&] { return set(0, SYS_CLEAR_BIOS, "reboot"); };
  load("reboot_command = touch " + dir + "/rebooted");
  for (const char* text : {"reboo", "rebooT", "reboot "}) EXPECT_EQ(set(0, SYS_CLEAR_BIOS, text), -1);
  EXPECT_EQ(set(1, SYS_CLEAR_BIOS, "reboot"), -1);
  EXPECT_EQ(set(0, SYS_READ_CONFIG, "reboot"), -1);
  EXPECT_FALSE(fs::exists(dir + "/rebooted"));
  EXPECT_EQ(reboot(), 0);
  EXPECT_TRUE(fs::exists(dir + "/rebooted"));
  setenv("LUMENHARBOUR_SUPERVISOR", "1", 1);  // not the parent: nobody is told
  const auto notify = [] { return dhcpcIfGetApi(5, DHCPC_IF_LUMENHARBOUR, nullptr); };
  const std::string failed = "DHCP client on interface 5: provisioning failed, fresh information wanted\n";
  EXPECT_EQ(printed([&] { EXPECT_EQ(notify(), 0); }), failed + "$");
  load("dhcp_notify_command = echo ran");
  EXPECT_EQ(printed([&] { EXPECT_EQ(notify(), 0); }), failed + "dhcp_notify_command: running echo ran\nran\n$");
  load("reboot_command = exit 3");
  EXPECT_EQ(complaint(-1, reboot), "reboot_command: \"exit 3\" failed with exit status 3\n");
  signal(SIGPIPE, SIG_IGN);
  load("reboot_command = kill -PIPE $$");
  EXPECT_EQ(complaint(-1, reboot), "reboot_command: \"kill -PIPE $$\" killed by signal 13\n");
  EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN) << "the daemon's own";
}

TEST_F(PlatformLinuxTest, SavedConfigurationIsDumped) {
  const std::string saved = dir + "/saved", path = dir + "/Ram/startcfg",
                    refused = ": saved configuration not dumped: ";
  const auto dump = [](std::string to) {
    octetstring value = octets(to);
    return zorScalarGetApi(0, SYS_READ_CONFIG, &value);
  };
  const auto failure = [&](const std::string& to) { return complaint(-1, [&] { return dump(to); }); };
  load("startup_config = " + saved);
  EXPECT_EQ(dump(path), 0) << "nothing saved";
  const mode_t mask = umask(0);
  for (const size_t size : {4097, 5, 0}) {
    write(saved, std::string(size, static_cast<char>('a' + size % 7)));
    EXPECT_EQ(dump(path), 0);
    EXPECT_EQ(system(size == 0 ? ("test ! -e " + path).c_str() : ("cmp " + saved + " " + path).c_str()), 0);
    EXPECT_EQ(fs::status(path).permissions(), size == 0 ? fs::perms::unknown : fs::perms(0600)) << "may hold passwords";
  }
  umask(mask);
  EXPECT_EQ(fs::status(dir + "/Ram").permissions(), fs::perms(0755));
  const std::string s256(256, 's');
  EXPECT_EQ(failure("/" + s256), "/" + s256 + ": old dump not removed: File name too long\n");
  for (const std::string& name : {std::string(), s256 + s256, std::string("/a\0", 3)})
    EXPECT_EQ(failure(name), &refused[2] + ("file name of " + std::to_string(name.size())) +
                                 " bytes; allowed are 1 to 511 without NUL\n");
  // A saved one that cannot be read still leaves a dump of its size, or of one byte: the switch must not look new.
  write(saved, std::string(100000, 'a'));
  ASSERT_EQ(mount("none", (dir + "/Ram").c_str(), "tmpfs", 0, "size=8k"), 0) << "is this scripts/private?";
  EXPECT_EQ(failure(path), path + refused + "No space left on device\n");
  EXPECT_EQ(fs::file_size(path), 100000U);
  EXPECT_EQ(umount((dir + "/Ram").c_str()), 0);
  EXPECT_EQ(failure(dir + "/no/dir/dump"), dir + "/no/dir/dump" + refused + "No such file or directory\n");
  load("startup_config = " + saved + "/file");
  EXPECT_EQ(dump(saved + "/file"), 0) << "nothing is saved below a file, and no old dump is there";
  fs::remove(saved);
  fs::create_directory(saved);
  load("startup_config = " + saved);
  EXPECT_EQ(failure(path), saved + refused + "Is a directory\n");
  EXPECT_NE(fs::file_size(path), 0U);
  fs::remove(saved);
  fs::create_symlink(saved, saved);
  EXPECT_EQ(failure(path), saved + refused + "Too many levels of symbolic links\n");
  EXPECT_EQ(fs::file_size(path), 1U);
}

TEST_F(PlatformLinuxTest, OwnAddressesVlansAndUplinkTranslate) {
  // A network of its own, in which loopback has a hardware address too.
  ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "is this scripts/private?";
  ASSERT_EQ(system("ip link set lo up && ip address add 127.2.0.3/8 dev lo label lo:1 &&"
                   "ip link add index 70 address 02:00:00:00:00:09 name first type veth peer index 71 name second"),
            0);
  const uint32 lo = if_nametoindex("lo");
  uint32 unit = 0;
  std::string mac(6, '?');
  octetstring value = octets(mac);
  // Two zeros, the kind, the address; 7 stands for 127.
  for (const std::string text : {"0017002", "0027001", "00170010", "0017203", "0017001"}) {
    std::string bytes = text;
    for (char& byte : bytes) byte = byte == '7' ? 127 : static_cast<char>(byte - '0');
    const octetstring key = octets(bytes);
    const bool own = text == "0017001" || text == "0017203";
    EXPECT_EQ(zorIndexTrans(&key, SYS_IP2LOGICAL, &(unit = 0)), own ? 0 : -1) << text;
    EXPECT_EQ(unit, own ? lo : 0) << text;
    EXPECT_EQ(zorIndexTrans(&key, SYS_IP2LOGICAL + 1, &unit), -1);
  }
  for (const uint32 vlan : {6U, 0xFFFFFFFFU, 7U}) {
    const tPhyIfInfo key = {1, 1, 1, 1, vlan, 3, 0};
    EXPECT_EQ(zorIndexTrans(&key, SYS_VLAN2LOGICAL, &(unit = 0)), vlan == 7 ? 0 : -1);
    EXPECT_EQ(unit, vlan == 7 ? lo : 0);
  }
  EXPECT_EQ(zorIfGetApi(lo, SYS_IF_VLANVID, &unit), 0);
  EXPECT_EQ(unit, 7U);
  for (const auto& [index, attr] : {std::pair<uint32, uint32>{lo, SYS_IF_VLANVID + 1}, {70, SYS_IF_VLANVID}, {72, 1}})
    EXPECT_EQ(zorIfGetApi(index, attr, &unit), -1) << index;
  const auto uplink = [&] { return zorIndexTrans(nullptr, SYS_PHY2LOGICAL_NUM, &unit) == 0 ? int(unit) : -1; };
  load("uplink = lo");
  EXPECT_EQ(uplink(), int(lo));
  EXPECT_EQ(zorScalarGetApi(0, SYS_MAC_ADDRESS, &value), -1) << "has no hardware address";
  load("uplink = none");
  EXPECT_EQ(complaint(-1, uplink), "uplink: there is no interface \"none\"\n");
  load("");
  EXPECT_EQ(system("ip link set lo address 02:00:00:00:00:01"), 0);
  EXPECT_EQ(uplink(), 70);
  EXPECT_EQ(zorScalarGetApi(1, SYS_MAC_ADDRESS, &value), -1);
  EXPECT_EQ(zorScalarGetApi(0, SYS_CLEAR_BIOS, &value), -1);
  EXPECT_EQ(zorScalarGetApi(0, SYS_MAC_ADDRESS, &value), 0);
  EXPECT_EQ(mac, std::string("\2\0\0\0\0\x09", 6));
  value.len = 5;
  EXPECT_EQ(zorScalarGetApi(0, SYS_MAC_ADDRESS, &value), -1);
  // The address of a switch that was given none is not even looked for, which without descriptors would be noticed.
  uint8 any[IP2LOGICAL_KEY_LEN] = {0, 0, 1};
  const octetstring key = {any, sizeof(any)};
  const auto starved = [&] {
    const rlimit none = {0, 1024}, some = {1024, 1024};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(zorIndexTrans(&key, SYS_IP2LOGICAL, &unit), -1);
    const int rc = uplink();
    return setrlimit(RLIMIT_NOFILE, &some), rc;
  };
  EXPECT_EQ(complaint(-1, starved), "list of interfaces: Too many open files\n");
}

TEST_F(PlatformLinuxTest, SemaphoresAreFewAndComeBack) {
  for (const tOsixSemId want : {1, 2, 3, 4, 0}) EXPECT_EQ(OsixCreateMSem(0), want);
  for (const tOsixSemId sem : {0, 4, 2, 2, 5}) OsixDeleteSem(sem);
  for (const tOsixSemId want : {2, 4, 0}) EXPECT_EQ(OsixCreateMSem(0), want);
}

TEST_F(PlatformLinuxTest, ClockIsTheMonotonicOneTimesItsSpeed) {
  load("clock_speed = 1000");
  const auto scaled = [](const timespec& t) { return uint64(t.tv_sec) * 100'000 + uint64(t.tv_nsec) / 10'000; };
  timespec before, after;
  clock_gettime(CLOCK_MONOTONIC, &before);
  const uint64 ticks = zorClockTicks();
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_LE(scaled(before), ticks);
  EXPECT_LE(ticks, scaled(after));
}

TEST_F(PlatformLinuxTest, DebugMessagesLeaveAtOnceInOrder) {
  EXPECT_EQ(printed([] { printf("a"), NM_DEBUG_OUTPUT("%s%d\n", "b", 3); }), "ab3\n$");
}

int overflow(int depth) {
  volatile char room[4096];
  room[0] = static_cast<char>(depth);
  return depth < 0 ? 0 : overflow(depth + 1) + room[0];
}

TEST(PlatformLinuxDeathTest, CrashIsReportedAndStillKills) {
  const auto die = [](std::string name, const std::function<void()>& cause) {
    char* argv[] = {name.data(), nullptr};
    zorCatchSegFault(name.empty() ? 0 : 1, argv);
    cause();
  };
  const auto send = [](int number, int code) {  // as the kernel does
    siginfo_t info = {};
    info.si_code = code;
    info.si_addr = reinterpret_cast<void*>(0xabc0);
    syscall(SYS_rt_sigqueueinfo, getpid(), number, &info);
  };
  for (const int n : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS}) {
    const std::string name = std::string("SIG") + sigabbrev_np(n);
    const std::string report = "^switchd: fatal signal " + std::to_string(n) + " \\(" + name + "\\)";
    for (const int code : {1, int{SI_KERNEL}, int{SI_TKILL}}) {
      const char* address = code != 1 || n == SIGABRT || n == SIGSYS ? "\n" : " at address 0xabc0\n";
      EXPECT_EXIT(die("switchd", [&] { send(n, code); }), testing::KilledBySignal(n),
                  report + address + ".*\\[0x[0-9a-f]+\\]\n");
    }
  }
  EXPECT_EXIT(die("", abort), testing::KilledBySignal(SIGABRT), "^\\?: fatal signal 6 ");
  EXPECT_EXIT(die(std::string(300, 'n'), abort), testing::KilledBySignal(SIGABRT), "^n{128}: fatal signal 6 ");
  const auto speak_to_nobody = [] {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    while (::write(ends[1], "x", 1) == 1) continue;
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDERR_FILENO);
    alarm(10);
    abort();
  };
  EXPECT_EXIT(die("switchd", speak_to_nobody), testing::KilledBySignal(SIGABRT), "");
  const auto run_out = [] {
    const rlimit small = {1 << 20, RLIM_INFINITY};
    setrlimit(RLIMIT_STACK, &small);
    exit(overflow(0));
  };
  EXPECT_EXIT(die("switchd", run_out), testing::KilledBySignal(SIGSEGV), "^switchd: fatal signal 11 \\(SIGSEGV\\) at");
}

}  // namespace
