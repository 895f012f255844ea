#include "fake_platform.h"

#include <sys/sysinfo.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

FakePlatform fake;

void FakePlatform::advance(uint64 ticks) {
  const uint64 end = clock + ticks;
  for (;;) {
    const uint32 wait = timerListNextTimeout(&gLumenHarbourInfo.timer_list);
    if (wait == TIMER_NONE || clock + wait > end) break;
    clock += wait;
    timerListCheck(&gLumenHarbourInfo.timer_list);
  }
  clock = end;
}

void DaemonTest::SetUp() {
  fake = FakePlatform{};
  gLumenHarbourInit = 0;
  ASSERT_EQ(lumenharbour_init(0, 0, 0, 0, 0, dhcpcIfGetApi, dhcpcIfGetApi), 0);
}

void DaemonTest::TearDown() {
  lumenharbour_disable();
  lumenharbour_shutdown();
  EXPECT_EQ(fake.semaphores, 0);
  if (HasFailure()) printf("daemon output:\n%s\n", fake.output.c_str());
}

void DaemonTest::start_director() {
  strcpy(gLumenHarbourInfo.io_default_path, "/tmp");
  ASSERT_EQ(lumenharbour_director_enable(), 0);
  gLumenHarbourInfo.enable = 1;
}

std::string DaemonTest::read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "<none>";
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void DaemonTest::write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

uint64 zorClockTicks() {
  return fake.clock;
}
uint32 zorClockSpeed() {
  return fake.clock_speed;
}
tOsixSemId OsixCreateMSem(uint32) {
  if (fake.no_semaphore) return 0;
  fake.semaphores++;
  return 7;
}
void OsixDeleteSem(tOsixSemId sem) {
  if (sem == 7 && fake.semaphores > 0) fake.semaphores--;
}

void NM_DEBUG_OUTPUT(const char* format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  fake.output += text;
}

int zorScalarGetApi(uint32 unit, uint32 attr, octetstring* value) {
  if (unit != 0) return -1;
  if (attr == SYS_MAC_ADDRESS && value->len == LUMENHARBOUR_MAC_SIZE) {
    memcpy(value->pBuf, "\x00\x11\x22\x33\x44\x55", LUMENHARBOUR_MAC_SIZE);
    return 0;
  }
  if (attr != SYS_READ_CONFIG) return -1;
  const std::string path(reinterpret_cast<char*>(value->pBuf), value->len);
  remove(path.c_str());
  if (!fake.saved_config.empty()) std::ofstream(path) << fake.saved_config;
  return 0;
}

int zorScalarSetApi(uint32 unit, uint32 attr, const octetstring* value) {
  if (unit != 0 || attr != SYS_CLEAR_BIOS || value->len != 6 || memcmp(value->pBuf, "reboot", 6) != 0) return -1;
  fake.reboots++;
  return 0;
}

int zorIfGetApi(uint32 ifindex, uint32 attr, void* value) {
  for (const auto& [vlan, unit] : fake.vlan_units) {
    if (unit != ifindex || attr != SYS_IF_VLANVID) continue;
    *static_cast<uint32*>(value) = vlan;
    return 0;
  }
  return -1;
}

namespace {

int number_get(const std::map<uint32, uint32>& numbers, uint32 key, uint32* value) {
  const auto found = numbers.find(key);
  if (found == numbers.end()) return -1;
  *value = found->second;
  return 0;
}

}  // namespace

int zorIndexTrans(const void* key, uint32 kind, uint32* unit) {
  constexpr tPhyIfInfo first_port = {1, 1, 1, 1, 1, 3, 0};
  if (kind == SYS_VLAN2LOGICAL)
    return number_get(fake.vlan_units, static_cast<const tPhyIfInfo*>(key)->virtualnum, unit);
  const auto* address = static_cast<const octetstring*>(key);
  if (kind == SYS_IP2LOGICAL && address->len == IP2LOGICAL_KEY_LEN && memcmp(address->pBuf, "\0\0\1", 3) == 0)
    return number_get(fake.own_addresses, lumenharbour_ip_read(address->pBuf + IP2LOGICAL_KEY_ADDR), unit);
  if (kind != SYS_PHY2LOGICAL_NUM || memcmp(key, &first_port, sizeof(first_port)) != 0) return -1;
  *unit = fake.dhcp_unit;
  return 0;
}

int dhcpcIfGetApi(uint32 ifindex, uint32 attr, void* result) {
  if (ifindex != fake.dhcp_unit) return -1;
  if (attr == DHCPC_IF_LUMENHARBOUR) {
    fake.notifications++;
    return 0;
  }
  fake.dhcp_reads.push_back(attr);
  if (attr == DHCPC_IF_TFTPSERVERIP || attr == DHCPC_IF_FTPSERVERIP || attr == DHCPC_IF_REBOOTTIME)
    return number_get(fake.dhcp_number, attr, static_cast<uint32*>(result));
  const auto text = fake.dhcp_text.find(attr);
  auto* octet = static_cast<octetstring*>(result);
  if (text == fake.dhcp_text.end() || text->second.size() > octet->len) return -1;
  std::copy(text->second.begin(), text->second.end(), octet->pBuf);
  octet->len = static_cast<uint32>(text->second.size());
  return 0;
}

// The C library's own functions, replaced for this program.
extern "C" int system(const char* command) {
  fake.commands.emplace_back(command);
  return fake.on_command ? fake.on_command(command) : 0;
}

extern "C" int sysinfo(struct sysinfo* info) noexcept {
  if (fake.free_memory == 0) return -1;
  using Count = decltype(info->freeram);  // 32 bits on a 32-bit switch
  info->freeram = static_cast<Count>(std::min<uint64>(fake.free_memory, std::numeric_limits<Count>::max()));
  return 0;
}
