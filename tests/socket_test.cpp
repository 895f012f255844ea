#include <sys/socket.h>
#include <unistd.h>

#include "fake_platform.h"
#include "request.h"

namespace {

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
    gLumenHarbourInfo.rt_socket = pair[0];
    kernel = pair[1];
    gLumenHarbourInfo.debug = 1;
  }
  void TearDown() override {
    close(kernel);
    DaemonTest::TearDown();
  }

  /// Hands one read to the main loop and returns the messages printed.
  std::string receive(const std::string& bytes) {
    EXPECT_EQ(send(kernel, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    fake.output.clear();
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
  std::string many;
  for (int i = 0; i < 100; i++) many += message(NEWLINK);
  EXPECT_EQ(receive(many).size(), 62 * link.size());  // what 1000 bytes hold whole
  EXPECT_EQ(receive(message(ERROR) + message(NEWLINK)).find("[LumenHarbour] Route message ERROR: errno "), 0U);
}

TEST_F(SocketTest, NewAddressMakesAClientWithoutDirectorTheDirector) {
  tLumenHarbourInfo& info = gLumenHarbourInfo;
  const std::string seen = "[LumenHarbour] Receive a route message: type 0x14.\r\n";
  EXPECT_EQ(receive(message(NEWADDR)), seen + "[LumenHarbour] Get ifunit from director ip failed!\r\n");
  fake.own_addresses[0] = 42;
  info.director_ip = ip4(192, 0, 2, 1);
  EXPECT_EQ(receive(message(NEWADDR)), seen);
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  info.director_ip = 0;
  receive(message(NEWADDR));
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_DIRECTOR);
  EXPECT_EQ(info.if_unit, 42U);
  EXPECT_NE(info.client_tbl, nullptr);
  EXPECT_EQ(receive(message(NEWADDR)), seen);
}

TEST_F(SocketTest, NeverBlocks) {
  lumenharbour_socket_close();
  gLumenHarbourInfo.rt_socket = lumenharbour_route_socket_open();
  lumenharbour_route_socket_rcv();
  EXPECT_EQ(errno, EAGAIN);
}

}  // namespace
