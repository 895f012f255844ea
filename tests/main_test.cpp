#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "fake_platform.h"
#include "request.h"

namespace {

/// Has every test leave as many descriptors open as it found, but for the client role's: it leaves imagelists open.
class DescriptorCheck : public testing::EmptyTestEventListener {
  static auto count() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }
  void OnTestStart(const testing::TestInfo&) override { found = count(); }
  void OnTestEnd(const testing::TestInfo& test) override {
    if (test.test_suite_name() == std::string("ClientTest")) return;
    EXPECT_EQ(count(), found) << "open descriptors";
  }
  std::ptrdiff_t found = 0;
};
[[maybe_unused]] const bool descriptors_checked =
    (testing::UnitTest::GetInstance()->listeners().Append(new DescriptorCheck), true);

std::string broken;  // the system call that fails
int error = EIO;     // how
int backlog = 0, low_water = 0;

template <typename... Args>
int call(const char* name, long number, Args... args) {
  if (broken != name) return static_cast<int>(syscall(number, args...));
  errno = error;
  return -1;
}

}  // namespace

// The C library's own functions, replaced for this program.
extern "C" int socket(int domain, int type, int protocol) noexcept {
  return call("socket", SYS_socket, domain, type, protocol);
}
extern "C" int accept4(int fd, sockaddr* addr, socklen_t* len, int flags) {
  return call("accept", SYS_accept4, fd, addr, len, flags);
}
extern "C" int listen(int fd, int n) noexcept {
  backlog = n;
  return call("listen", SYS_listen, fd, n);
}
extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t len) noexcept {
  if (name == SO_RCVLOWAT) memcpy(&low_water, value, len);
  return call("setsockopt", SYS_setsockopt, fd, level, name, value, len);
}

namespace {

constexpr uint32 TOO_MANY = 0xFFFFFFFF;  // records: no machine has the memory
tLumenHarbourInfo& info = gLumenHarbourInfo;

class MainTest : public DaemonTest {
 protected:
  /// @return a blocking connection to the management socket, with a time limit on its reads, after sending `bytes`.
  static int dial(const std::string& bytes) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {AF_UNIX, {}};
    strcpy(addr.sun_path, LUMENHARBOUR_SOCKET_PATH);
    const timeval limit = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    EXPECT_EQ(send(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return fd;
  }
  static std::string framed(const std::string& body) { return raw(static_cast<int32>(body.size())) + body; }

  static std::string receive_all(int fd) {
    std::string all;
    char buf[2048];
    for (ssize_t n; (n = recv(fd, buf, sizeof(buf), 0)) > 0;) all.append(buf, static_cast<size_t>(n));
    close(fd);
    return all;
  }

  /// @return what `run` leaves on standard error. @param[in] of_call  the system call that fails meanwhile
  template <typename Run>
  static std::string errors_of(Run run, const char* of_call = "") {
    testing::internal::CaptureStderr();
    broken = of_call;
    run();
    broken = "";
    return testing::internal::GetCapturedStderr();
  }
  static bool timer_runs() { return timerListNextTimeout(&info.timer_list) != TIMER_NONE; }
};

TEST_F(MainTest, PoolsAreBuiltAndReleasedWhole) {
  info.client_max_num = 3;
  info.custom_grp_max_num = info.grpid_max_num = 4;
  info.builtin_grp_max_num = 2;
  info.debug = 1;
  for (const auto& [size, name] :
       {std::pair(&info.client_max_num, "director database"), std::pair(&info.builtin_grp_max_num, "build-in group"),
        std::pair(&info.custom_grp_max_num, "custom group")}) {
    const uint32 usual = std::exchange(*size, TOO_MANY);
    fake.output.clear();
    EXPECT_EQ(lumenharbour_mem_alloc(), -1);
    EXPECT_EQ(fake.output, std::string("[LumenHarbour] Allocate memory for ") + name +
                               " failed!\r\n[LumenHarbour] Free memory.\r\n");
    EXPECT_EQ(info.custom_grp_tbl, nullptr);
    *size = usual;
  }
  ASSERT_EQ(lumenharbour_mem_alloc(), 0);
  const auto* built = info.custom_grp_tbl;
  ASSERT_EQ(lumenharbour_mem_alloc(), 0);
  EXPECT_EQ(info.custom_grp_tbl, built);
  EXPECT_EQ(lumenharbour_list_count(&info.custom_grp_free_tbl), 8U);  // with those released a moment ago
  EXPECT_EQ(lumenharbour_list_count(&info.builtin_grp_free_tbl), 4U);
  EXPECT_EQ(lumenharbour_list_count(&info.client_free_tbl), 3U);
  EXPECT_EQ(lumenharbour_list_head_cnt(&info.grpid_free_tbl), 4U);
  EXPECT_EQ(info.custom_grp_free_tbl.next, &info.custom_grp_tbl[3].node);
  EXPECT_EQ(info.builtin_grp_free_tbl.next, &info.builtin_grp_tbl[1].node);
  EXPECT_EQ(info.client_free_tbl.next, &info.client_tbl[0].node);
  EXPECT_EQ(info.client_tbl[2].index, 2U);
  lumenharbour_mem_free();
}

TEST_F(MainTest, PoolsBuiltAgainJoinTheRecordsOfTheReleasedOnes) {
  for (int round = 0; round < 5; round++) {
    ASSERT_EQ(lumenharbour_director_enable(), 0);
    const uint32 generations = round == 0 ? 1 : 2;
    EXPECT_EQ(lumenharbour_list_count(&info.custom_grp_free_tbl), 10 * generations);
    EXPECT_EQ(lumenharbour_list_count(&info.client_free_tbl), 100 * generations);
    EXPECT_EQ(info.custom_grp_free_tbl.next, &info.custom_grp_tbl[9].node);
    EXPECT_EQ(info.client_free_tbl.prev, &info.client_tbl[99].node);
    for (uint32 id = 0; id < 10; id++) ASSERT_EQ(lumenharbour_custom_grp_add(id), &info.custom_grp_tbl[id]);
    lumenharbour_director_disable();
    EXPECT_EQ(info.grpid_tbl, nullptr);
  }
}

TEST_F(MainTest, StartUpFailsCleanly) {
  info.debug = 1;
  lumenharbour_shutdown();
  fake.output.clear();
  const auto init = [](uint32 role, uint32 enable) {
    return lumenharbour_init(1, 2, 3, role, enable, dhcpcIfGetApi, nullptr);
  };
  const auto fail = [&] {
    EXPECT_EQ(init(0, 0), -1);
    EXPECT_EQ(gLumenHarbourInit, 0U);
    EXPECT_EQ(info.cmd_socket, -1);
    EXPECT_EQ(info.rt_socket, -1);
    EXPECT_EQ(lumenharbour_wait_time(), 5000000U);  // the loop still runs
  };
  write_file(LUMENHARBOUR_SOCKET_PATH, "left behind");
  fake.no_semaphore = true;
  fail();
  EXPECT_EQ(fake.output, "");  // start-up begins with the debug switch off
  EXPECT_EQ(read_file(LUMENHARBOUR_SOCKET_PATH), "left behind");
  fake.no_semaphore = false;
  EXPECT_EQ(init(7, 1), -1);  // no such role
  EXPECT_EQ(info.cmd_socket, -1);
  EXPECT_NE(access(LUMENHARBOUR_SOCKET_PATH, F_OK), 0);
  EXPECT_EQ(errors_of(fail, "socket"), "[LumenHarbour] Create cmdSock failed!\r\n: Input/output error\n");
  EXPECT_EQ(errors_of(fail, "listen"), "[LumenHarbour] listen cmdSock ERROR!\r\n: Input/output error\n");
  mkdir(LUMENHARBOUR_SOCKET_PATH, 0755);
  EXPECT_EQ(errors_of(fail), "[LumenHarbour] bind failed!\r\n: Address already in use\n");
  rmdir(LUMENHARBOUR_SOCKET_PATH);

  for (const char* saved : {"hostname core", ""}) {
    fake.saved_config = saved;
    write_file(LUMENHARBOUR_SOCKET_PATH, "left behind");
    EXPECT_EQ(init(LUMENHARBOUR_ROLE_CLIENT, 1), 0);
    EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
    EXPECT_EQ(timer_runs(), fake.saved_config.empty());
    EXPECT_EQ(info.custom_grp_max_num, 2U);
    EXPECT_EQ(info.builtin_grp_max_num, 3U);
    EXPECT_EQ(info.grpid_max_num, 2U);
    EXPECT_EQ(info.api_func, dhcpcIfGetApi);
    EXPECT_EQ(lumenharbour_init(9, 9, 9, 0, 0, nullptr, nullptr), 0);  // a second start-up changes nothing
    EXPECT_EQ(info.client_max_num, 1U);
    lumenharbour_disable();
    lumenharbour_shutdown();
  }
  EXPECT_EQ(backlog, 10);
}

TEST_F(MainTest, FlagsFillTheirWordFromTheTop) {
  const auto word = [&] {
    uint32 value;
    const size_t place = offsetof(tLumenHarbourInfo, sys_mac) - sizeof(value);
    memcpy(&value, reinterpret_cast<const char*>(&info) + place, sizeof(value));
    return value;
  };
  EXPECT_EQ(word(), 0U);
  info.dhcp_client_notify = 1;
  info.role = LUMENHARBOUR_ROLE_DIRECTOR;
  EXPECT_EQ(word(), 0x80200000U);
  info.debug = 1;
  info.director_ip_type = 15;
  EXPECT_EQ(word(), 0x8027C000U);
  info.imageUpFlag = 1;
  EXPECT_EQ(word(), 0x8027C080U);
}

TEST_F(MainTest, WaitsForTheNextTimerButNeverLongerThanFiveSeconds) {
  EXPECT_EQ(lumenharbour_wait_time(), 5000000U);
  const struct {
    uint64 ticks;
    uint32 wait;
  } cases[] = {{250, 2500000}, {499, 4990000}, {501, 5000000}, {uint64{1} << 40, 5000000}, {1, 10000}, {0, 10000}};
  for (const auto& c : cases) {
    timerStart(&info.timer_list, &info.notify_timer, c.ticks, nullptr, 0, 0, 0);
    EXPECT_EQ(lumenharbour_wait_time(), c.wait) << c.ticks;
  }
}

TEST_F(MainTest, RolesStartAndStop) {
  info.debug = 1;
  EXPECT_EQ(lumenharbour_enable(3, 1), -1);
  EXPECT_EQ(fake.output, "[LumenHarbour] Role is ERROR!\r\n");
  memset(info.io_default_path, 'x', 255);
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_CLIENT, 1), 0);
  EXPECT_EQ(std::string(info.io_default_path, 256), "/tmp" + std::string(252, '\0'));
  EXPECT_GT(info.rt_socket, 0);
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_DIRECTOR, 1), 0);  // a role runs: nothing happens
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  info.director_ip = 1;
  info.director_ip_type = 1;
  EXPECT_EQ(lumenharbour_disable(), 0);
  EXPECT_EQ(info.rt_socket, -1);
  EXPECT_EQ(info.director_ip, 0U);
  for (const uint32 flag : {info.enable + 0U, info.role + 0U, info.director_ip_type + 0U}) EXPECT_EQ(flag, 0U);
  start_director();
  lumenharbour_disable();
  EXPECT_EQ(info.client_tbl, nullptr);

  // A role whose start fails leaves its socket closed and its code unchanged.
  info.builtin_grp_max_num = TOO_MANY;
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_DIRECTOR, 1), ERR_BARE_NOMEM);
  EXPECT_EQ(info.rt_socket, -1);
  EXPECT_EQ(info.enable, 0U);
  broken = "socket";
  fake.output.clear();
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_CLIENT, 1), -1);
  EXPECT_EQ(fake.output, "[LumenHarbour] Failed to create route socket\r\n");
  broken = "";

  // Stopping without a role stops what the client role may have left running; shutting down does not.
  for (const uint32 role : {3, 0, 1}) {
    lumenharbour_notify_timer_start(10);
    info.role = role & 3U;
    info.enable = 1;
    lumenharbour_shutdown();
    EXPECT_EQ(info.enable, 0U);
    EXPECT_EQ(timer_runs(), role != 1);
  }
  lumenharbour_notify_timer_start(10);
  lumenharbour_disable();
  EXPECT_FALSE(timer_runs());
  info.builtin_grp_max_num = 0;
  start_director();
  lumenharbour_timeout();
  EXPECT_EQ(fake.dhcp_reads.size(), 0U);  // only the client role has steps
  lumenharbour_shutdown();
  EXPECT_EQ(info.client_tbl, nullptr);
}

TEST_F(MainTest, APassRunsDueTimersThenRouteMessagesThenARequest) {
  const tTimerCallback tell = [](uintptr_t, uintptr_t, uintptr_t) {
    info.debug = 1;
    NM_DEBUG_OUTPUT("timer\n");
  };
  timerStart(&info.timer_list, &info.notify_timer, 0, tell, 0, 0, 0);
  info.sys_clk_rate = 1000;
  const auto start = std::chrono::steady_clock::now();
  lumenharbour_main_pass();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1));
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
  info.rt_socket = pair[0];
  const std::string message = raw(uint32{16}) + raw(uint16{16}) + std::string(10, '\0');
  ASSERT_EQ(send(pair[1], message.data(), message.size(), 0), 16);
  close(pair[1]);
  const int fd = dial(framed(global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, 7).body));
  timerRestart(&info.timer_list, &info.notify_timer, 0);
  lumenharbour_main_pass();
  EXPECT_EQ(fake.output,
            "timer\ntimer\n[LumenHarbour] Receive a route message: type 0x10.\r\n"
            "[LumenHarbour] Global get: cmd = 14.\r\n[LumenHarbour] Global get: rc = 0.\r\n");
  close(fd);
}

TEST_F(MainTest, ServesOneConnectionAtATime) {
  Request request = global_get(LUMENHARBOUR_GLB_RCVIMAGENAME, room(LUMENHARBOUR_MSG_MAX - 37));
  ASSERT_EQ(request.body.size(), LUMENHARBOUR_MSG_MAX);
  const int first = dial(framed(request.body)), second = dial(framed(request.body));
  lumenharbour_main_pass();
  char byte;
  EXPECT_EQ(recv(second, &byte, 1, MSG_DONTWAIT), -1);
  lumenharbour_main_pass();
  ASSERT_EQ(request.run(), 0);
  for (const int fd : {first, second}) EXPECT_EQ(receive_all(fd), framed(request.body));
  EXPECT_EQ(low_water, 30);
}

TEST_F(MainTest, SaysWhyARequestCannotBeServed) {
  const auto serve = [] { EXPECT_EQ(lumenHarbour_cmd_server(), -1); };
  info.debug = 1;
  signal(SIGPIPE, SIG_IGN);
  close(dial(framed(std::string(25, 'x'))));
  EXPECT_EQ(errors_of(serve, "accept"), "[LumenHarbour] accept ERROR!\r\n: Input/output error\n");
  EXPECT_EQ(errors_of(serve), "[LumenHarbour] Send message failed!\r\n: Broken pipe\n");
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Receive length 25 ERROR!\r\n[LumenHarbour] Process command failed!\n\r"
            "[LumenHarbour] Send -1 bytes but not 4!\r\n");
  signal(SIGPIPE, SIG_DFL);
  close(dial(""));
  EXPECT_EQ(errors_of(serve, "setsockopt"), "[LumenHarbour] Set socket option ERROR!\r\n: Input/output error\n");
}

TEST_F(MainTest, RestsWhenNoConnectionCanBeAccepted) {
  const int fd = dial("");
  for (const int number : {EIO, EMFILE, ENOMEM}) {
    error = number;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(errors_of(lumenharbour_main_pass, "accept"),
              std::string("[LumenHarbour] accept ERROR!\r\n: ") + strerror(number) + "\n");
    EXPECT_EQ(std::chrono::steady_clock::now() - start >= std::chrono::seconds(1), number != EIO) << number;
  }
  error = EIO;
  close(fd);
}

TEST_F(MainTest, AnswersMalformedFramesWithoutReadingMore) {
  const std::string empty_request = framed(std::string(22, '\0')),
                    buffer = "[LumenHarbour] Receive buffer failed!\r\n: ";
  const struct {
    std::string sent, answered, error;
  } cases[] = {
      {raw(int32{0}), empty_request, ""},
      {framed(std::string(25, 'x')), raw(int32{0}), ""},
      {"abc", "", "[LumenHarbour] Receive buflen failed!\r\n: 3 of 4 bytes\n"},
      {raw(int32{30}) + "short", "", buffer + "5 of 30 bytes\n"},
      {raw(int32{-1}) + "x", "", buffer + "-1 bytes announced, at most 1518 are allowed\n"},
      {framed(std::string(1519, 'x')), "", buffer + "1519 bytes announced, at most 1518 are allowed\n"},
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStdout();
    const int fd = dial(c.sent);
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(lumenHarbour_cmd_server(), c.error.empty() ? 0 : -1); }), c.error);
    EXPECT_EQ(receive_all(fd), c.answered);
    const char* asserted = "\r\n lumenHarbour assert error in line 46 in func lumenHarbour_cmd_process.";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.answered == empty_request ? asserted : "");
  }
}

}  // namespace
