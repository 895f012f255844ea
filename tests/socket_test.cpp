#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fake_platform.h"
#include "request.h"

namespace {

tLumenHarbourInfo& info = gLumenHarbourInfo;
constexpr uint16 NEWLINK = 16;
constexpr uint16 NEWADDR = 20;
constexpr uint16 DONE = 3;
constexpr uint16 ERROR = 2;

/// One routing message with `payload` bytes behind its header; `len` is what its header claims.
std::string message(uint16 type, size_t payload = 0, uint32 len = 0) {
  if (len == 0) len = static_cast<uint32>(16 + payload);
  return raw(len) + raw(type) + std::string(10 + payload, '\0');
}

class SocketTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    ASSERT_EQ(lumenharbour_enable(LUMENHARBOUR_ROLE_CLIENT, 0), 0);
    lumenharbour_socket_close();
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair), 0);
    info.rt_socket = pair[0];
    kernel = pair[1];
    info.debug = 1;
  }
  void TearDown() override {
    close(kernel);
    DaemonTest::TearDown();
  }

  /// Hands one read to the main loop and returns the messages printed.
  std::string receive(const std::string& bytes) {
    EXPECT_EQ(send(kernel, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    fake.output.clear();
    errno = ENOENT;
    lumenharbour_main_pass();
    return fake.output;
  }

  int kernel = -1;
};

TEST_F(SocketTest, WalksOneReadToItsEnd) {
  const std::string link = "[LumenHarbour] Receive a route message: type 0x10.\r\n";
  EXPECT_EQ(receive(std::string(15, '\0')), "");
  EXPECT_EQ(receive(message(NEWLINK, 14, 40)), "");
  EXPECT_EQ(receive(message(NEWLINK, 0, 15)), "");
  EXPECT_EQ(receive(message(NEWLINK, 0, 0xFFFFFFFF)), "");
  EXPECT_EQ(receive(message(NEWLINK) + message(DONE) + message(NEWLINK)), link);
  EXPECT_EQ(receive(message(NEWLINK, 2) + std::string(2, '\0') + message(NEWLINK)), link + link);
  EXPECT_EQ(receive(message(NEWLINK, 2)), link);  // its padding would end behind the read
  EXPECT_EQ(receive(message(NEWLINK, 968) + message(NEWLINK)), link + link);
  EXPECT_EQ(receive(message(NEWLINK, 968) + message(NEWLINK, 1)), link) << "ends behind the 1000 bytes that are read";
  EXPECT_EQ(receive(message(ERROR) + message(NEWLINK)),
            "[LumenHarbour] Route message ERROR: errno 2 No such file or directory\r\n");
}

TEST_F(SocketTest, NewAddressMakesAClientWithoutDirectorTheDirector) {
  const std::string seen = "[LumenHarbour] Receive a route message: type 0x14.\r\n";
  EXPECT_EQ(receive(message(NEWADDR)), seen + "[LumenHarbour] Get ifunit from director ip failed!\r\n");
  fake.own_addresses[0] = 42;
  info.director_ip = ip4(192, 0, 2, 1);
  EXPECT_EQ(receive(message(NEWADDR)), seen);
  info.director_ip = 0;
  receive(message(NEWADDR));
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_DIRECTOR);
  EXPECT_EQ(info.if_unit, 42U);
  EXPECT_NE(info.client_tbl, nullptr);
  EXPECT_EQ(receive(message(NEWADDR)), seen);
}

TEST_F(SocketTest, OpensADescriptorThatDoesNotBlockAndClosesIt) {
  const int before = info.rt_socket;
  lumenharbour_socket_close();
  EXPECT_EQ(fcntl(before, F_GETFD), -1);
  info.rt_socket = lumenharbour_route_socket_open();
  EXPECT_EQ(fcntl(info.rt_socket, F_GETFD), FD_CLOEXEC);
  lumenharbour_route_socket_rcv();
  EXPECT_EQ(errno, EAGAIN);
  const int kept = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  EXPECT_EQ(lumenharbour_route_socket_open(), -1) << "descriptor 0 means none";
  dup2(kept, STDIN_FILENO);
  close(kept);
  EXPECT_EQ(fake.output, "[LumenHarbour] Failed to create route socket\r\n");
}

}  // namespace
