/// @file
/// Feeds the command layer with sequences of requests: each a 2-byte length and a body, as much as the input holds.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fake_platform.h"

namespace {

void director_start() {
  fake = FakePlatform{};
  fake.own_addresses[ip4(192, 0, 2, 1)] = 1;
  lumenharbour_init(4, 4, 4, 0, 0, dhcpcIfGetApi, dhcpcIfGetApi);
  lumenharbour_disable();
  if (lumenharbour_enable(LUMENHARBOUR_ROLE_DIRECTOR, 1) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  director_start();
  while (size >= 2) {
    uint16 len;
    memcpy(&len, data, sizeof(len));
    const size_t body_len = std::min<size_t>({len, size - 2, LUMENHARBOUR_MSG_MAX});
    std::vector<uint8> body(data + 2, data + 2 + body_len);  // exactly as long, so that an overrun is caught
    gLumenHarbourInfo.debug = 0;                             // with it on, a built-in group's client ends the process
    const int32 answer = lumenHarbour_cmd_process(body.data(), static_cast<int32>(body_len));
    if (answer != 0 && answer != static_cast<int32>(body_len) && (answer != 22 || body_len != 0)) abort();
    data += 2 + body_len;
    size -= 2 + body_len;
  }
  return 0;
}
