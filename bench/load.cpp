// Sends the same requests to the daemon and to the bare server in alternating rounds, and prints the median rates and
// the median of the rounds' ratios. Usage: load get|announce DAEMON-SOCKET BARE-SOCKET
// With a number in place of the bare server it announces so many clients, once each, and prints nothing.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "lumenharbour_mgmt.h"

namespace {

using lumenharbour::Daemon;
using lumenharbour::Status;

constexpr int ROUNDS = 15;
constexpr uint32 REQUESTS = 2000;  // of one server in one round
constexpr uint32 CLIENTS = 100;    // as many as the director's database holds by default

/// Sends request number n and tells whether the answer is the one that the server owes.
using Send = std::function<bool(uint32 n)>;

bool get_state(const Daemon& server, uint32 expected) {
  const auto reply = server.get_integer(lumenharbour::GlobalRow{}, LUMENHARBOUR_GLB_STATE);
  return reply && reply.value == expected;
}

auto announce(const Daemon& server, uint32 client) {
  tLumenHarbourClientInfo info{};
  info.ip[0] = 10;
  info.ip[2] = info.mac[4] = static_cast<uint8>(client / 256);
  info.ip[3] = info.mac[5] = static_cast<uint8>(client % 256);
  info.mac[0] = 2;
  info.pid = 7;
  info.op = 1;
  return server.announce(info);
}

/// @return requests a second, or 0 after a wrong answer.
double rate(const Send& send) {
  const auto start = std::chrono::steady_clock::now();
  for (uint32 n = 0; n < REQUESTS; n++)
    if (!send(n)) return 0;
  return REQUESTS / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::array<double, ROUNDS> figures) {
  std::sort(figures.begin(), figures.end());
  return figures[ROUNDS / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const bool is_get = argc == 4 && strcmp(argv[1], "get") == 0;
  if (argc != 4 || (!is_get && strcmp(argv[1], "announce") != 0)) {
    fputs("usage: load get|announce DAEMON-SOCKET BARE-SOCKET|CLIENTS\n", stderr);
    return 2;
  }
  // The bare server hands every request back as it came: a state of 0, and an announcement that nobody answered.
  const Daemon daemon({argv[2]});
  const Daemon bare({argv[3]});
  if (const uint32 clients = static_cast<uint32>(strtoul(argv[3], nullptr, 10)); clients > 0) {
    for (uint32 n = 0; n < clients; n++)
      if (!announce(daemon, n)) return 1;
    return 0;
  }
  const Send to_daemon = [&](uint32 n) {
    if (is_get) return get_state(daemon, LUMENHARBOUR_ON);
    const auto reply = announce(daemon, n % CLIENTS);
    return reply && !reply.value.imagelist.empty() && !reply.value.config.empty();
  };
  const Send to_bare = [&](uint32 n) {
    return is_get ? get_state(bare, 0) : announce(bare, n % CLIENTS).status == Status::none;
  };

  std::array<double, ROUNDS> daemon_rates{};
  std::array<double, ROUNDS> bare_rates{};
  std::array<double, ROUNDS> ratios{};
  rate(to_daemon);  // the clients become known
  for (int i = 0; i < ROUNDS; i++) {
    daemon_rates[i] = rate(to_daemon);
    bare_rates[i] = rate(to_bare);
    if (daemon_rates[i] == 0 || bare_rates[i] == 0) {
      fprintf(stderr, "load: a wrong answer from %s\n", argv[daemon_rates[i] == 0 ? 2 : 3]);
      return 1;
    }
    ratios[i] = daemon_rates[i] / bare_rates[i];
  }
  printf("%.0f %.0f %.3f\n", median(daemon_rates), median(bare_rates), median(ratios));
}
