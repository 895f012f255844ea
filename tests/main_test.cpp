#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "fake_platform.h"
#include "request.h"

namespace {

class MainTest : public DaemonTest {
 protected:
  /// @return a blocking connection to the management socket with a time limit on its reads.
  static int dial() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {AF_UNIX, {}};
    strcpy(addr.sun_path, LUMENHARBOUR_SOCKET_PATH);
    const timeval limit = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    return fd;
  }

  static std::string receive_all(int fd) {
    std::string all;
    char buf[2048];
    for (ssize_t n; (n = recv(fd, buf, sizeof(buf), 0)) > 0;) all.append(buf, static_cast<size_t>(n));
    close(fd);
    return all;
  }

  /// Sends `bytes`, hangs up the sending side, lets the daemon serve, and returns what came back.
  static std::string exchange(const std::string& bytes) {
    const int fd = dial();
    EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    shutdown(fd, SHUT_WR);
    lumenharbour_main_pass();
    return receive_all(fd);
  }
};

TEST_F(MainTest, PoolsAreBuiltAndReleasedWhole) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.client_max_num = 3;
  info.custom_grp_max_num = info.grpid_max_num = 4;
  info.builtin_grp_max_num = 0xFFFFFFFF;  // more than any machine has
  info.debug = 1;
  EXPECT_EQ(lumenharbour_mem_alloc(), -1);
  EXPECT_EQ(info.custom_grp_tbl, nullptr);
  EXPECT_EQ(fake.output,
            "[LumenHarbour] Allocate memory for build-in group failed!\r\n[LumenHarbour] Free memory.\r\n");

  info.builtin_grp_max_num = 2;
  ASSERT_EQ(lumenharbour_mem_alloc(), 0);
  const auto* built = info.custom_grp_tbl;
  ASSERT_EQ(lumenharbour_mem_alloc(), 0);
  EXPECT_EQ(info.custom_grp_tbl, built);
  EXPECT_EQ(lumenharbour_list_count(&info.custom_grp_free_tbl), 8U);  // with those released a moment ago
  EXPECT_EQ(lumenharbour_list_count(&info.builtin_grp_free_tbl), 2U);
  EXPECT_EQ(lumenharbour_list_count(&info.client_free_tbl), 3U);
  EXPECT_EQ(lumenharbour_list_head_cnt(&info.grpid_free_tbl), 4U);
  EXPECT_EQ(info.custom_grp_free_tbl.next, &info.custom_grp_tbl[3].node);
  EXPECT_EQ(info.client_free_tbl.next, &info.client_tbl[0].node);
  EXPECT_EQ(info.client_tbl[2].index, 2U);
  lumenharbour_mem_free();
}

TEST_F(MainTest, PoolsBuiltAgainJoinTheRecordsOfTheReleasedOnes) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
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
  lumenharbour_shutdown();
  EXPECT_NE(access(LUMENHARBOUR_SOCKET_PATH, F_OK), 0);
  fake.no_semaphore = true;
  EXPECT_EQ(lumenharbour_init(1, 2, 3, 0, 0, nullptr, nullptr), -1);
  EXPECT_EQ(gLumenHarbourInit, 0U);
  EXPECT_EQ(gLumenHarbourInfo.cmd_socket, -1);
  EXPECT_EQ(lumenharbour_wait_time(), 5000000U);  // the loop still runs

  fake.no_semaphore = false;
  EXPECT_EQ(lumenharbour_init(1, 2, 3, 7, 1, nullptr, nullptr), -1);  // role 7 cannot start
  EXPECT_EQ(lumenharbour_init(1, 2, 3, 2, 1, nullptr, nullptr), 0);
  EXPECT_TRUE(gLumenHarbourInfo.role == LUMENHARBOUR_ROLE_DIRECTOR && gLumenHarbourInfo.grpid_max_num == 2);
  EXPECT_EQ(lumenharbour_init(9, 9, 9, 0, 0, nullptr, nullptr), 0);  // a second start-up changes nothing
  EXPECT_EQ(gLumenHarbourInfo.client_max_num, 1U);
}

TEST_F(MainTest, FlagsFillTheirWordFromTheTop) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  const auto word = [&] {
    uint32 value;
    memcpy(&value, info.sys_mac - sizeof(value), sizeof(value));
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
  } cases[] = {{250, 2500000}, {499, 4990000}, {500, 5000000}, {uint64{1} << 40, 5000000}, {1, 10000}, {0, 10000}};
  for (const auto& c : cases) {
    timerStart(&gLumenHarbourInfo.timer_list, &gLumenHarbourInfo.notify_timer, c.ticks, nullptr, 0, 0, 0);
    EXPECT_EQ(lumenharbour_wait_time(), c.wait) << c.ticks;
  }
}

TEST_F(MainTest, RolesStartAndStop) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  info.debug = 1;
  EXPECT_EQ(lumenharbour_enable(3, 1), -1);
  EXPECT_EQ(fake.output, "[LumenHarbour] Role is ERROR!\r\n");
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_CLIENT, 1), 0);
  EXPECT_GT(info.rt_socket, 0);
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_DIRECTOR, 1), 0);  // a role runs: nothing happens
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  info.director_ip = 1;
  info.director_ip_type = 1;
  EXPECT_EQ(lumenharbour_disable(), 0);
  EXPECT_EQ(info.rt_socket, -1);
  EXPECT_EQ(info.enable + info.role + info.director_ip + info.director_ip_type, 0U);

  // A role whose start fails leaves its socket closed and its code unchanged.
  info.builtin_grp_max_num = 0xFFFFFFFF;
  EXPECT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_DIRECTOR, 1), ERR_BARE_NOMEM);
  EXPECT_TRUE(info.rt_socket == -1 && info.enable == 0);

  // Stopping without a role stops what the client role may have left running.
  lumenharbour_notify_timer_start(10);
  lumenharbour_disable();
  EXPECT_EQ(timerListNextTimeout(&info.timer_list), TIMER_NONE);
}

TEST_F(MainTest, ServesOneConnectionAtATime) {
  Request request = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, integer(7));
  const std::string framed = raw(static_cast<int32>(request.body.size())) + request.body;
  const int first = dial();
  const int second = dial();
  for (const int fd : {first, second}) ASSERT_EQ(send(fd, framed.data(), framed.size(), 0), ssize_t(framed.size()));
  lumenharbour_main_pass();
  char byte;
  EXPECT_EQ(recv(second, &byte, 1, MSG_DONTWAIT), -1);
  lumenharbour_main_pass();
  ASSERT_EQ(request.run(), 0);
  for (const int fd : {first, second}) EXPECT_EQ(receive_all(fd).substr(4), request.body);
}

TEST_F(MainTest, AnswersMalformedFramesWithoutReadingOrLeakingMore) {
  const std::string refused = raw(int32{0});
  const std::string empty_request = raw(int32{22}) + std::string(22, '\0');
  const std::string long_body(LUMENHARBOUR_MSG_MAX + 1, 'x');
  const struct {
    std::string sent;
    std::string answered;
    const char* error;
  } cases[] = {
      {raw(int32{0}), empty_request, ""},
      {raw(int32{25}) + std::string(25, 'x'), refused, ""},
      {"abc", "", "[LumenHarbour] Receive buflen failed!\r\n"},
      {raw(int32{30}) + "short", "", "[LumenHarbour] Receive buffer failed!\r\n"},
      {raw(int32{-1}) + "x", "", "[LumenHarbour] Receive buffer failed!\r\n"},
      {raw(static_cast<int32>(long_body.size())) + long_body, "", "[LumenHarbour] Receive buffer failed!\r\n"},
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const std::string answer = exchange(c.sent);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, c.answered) << c.sent.size();
    EXPECT_EQ(err.substr(0, strlen(c.error)), c.error);
    const char* asserted = "\r\n lumenHarbour assert error in line 46 in func lumenHarbour_cmd_process.";
    EXPECT_EQ(out, c.answered == empty_request ? asserted : "");
  }
}

}  // namespace
