#pragma once

/// @file
/// A platform that the test owns: its clock moves when the test says so, its attributes are plain fields, and shell
/// commands are recorded instead of run. It refuses what the headers of platform/h call an error.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "lumenharbour.h"
#include "zor_attr.h"
#include "zor_dhcpc.h"

struct FakePlatform {
  uint64 clock = 0;                                   ///< ticks, moved by `advance`
  uint32 clock_speed = 1;                             ///< ticks in 1/100 s of real time
  std::map<uint32, uint32> own_addresses;             ///< IPv4 address (first byte most significant) to interface unit
  std::map<uint32, uint32> vlan_units;                ///< VLAN id to interface unit
  std::string saved_config;                           ///< what `SYS_READ_CONFIG` dumps; empty: nothing saved
  uint32 dhcp_unit = 1;                               ///< unit of the first port, where alone the DHCP client runs
  std::map<uint32, std::string> dhcp_text;            ///< DHCP attributes that are octet strings
  std::map<uint32, uint32> dhcp_number;               ///< DHCP attributes that are integers
  std::vector<uint32> dhcp_reads;                     ///< every attribute asked for, in order
  int notifications = 0;                              ///< reads of `DHCPC_IF_LUMENHARBOUR`
  int reboots = 0;                                    ///< requests to restart the switch
  bool no_semaphore = false;                          ///< `OsixCreateMSem` fails
  int semaphores = 0;                                 ///< created and not deleted
  std::vector<std::string> commands;                  ///< shell commands, in order
  std::function<int(const std::string&)> on_command;  ///< result of a shell command; unset: 0
  uint64 free_memory = 1 << 20;                       ///< what the kernel reports; 0: the call fails
  std::string output;                                 ///< debug messages since it was last cleared

  /// Moves the clock by `ticks`, running due timers each time one expires.
  void advance(uint64 ticks);
};

extern FakePlatform fake;

/// Fixture: a fresh fake platform and a daemon just started, no role running. In the end no semaphore may be left.
class DaemonTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Starts the director role without a management request.
  void start_director();

  /// @return the content of `path`, or "<none>".
  static std::string read_file(const std::string& path);
  static void write_file(const std::string& path, const std::string& content);
};

constexpr uint32 ip4(uint8 a, uint8 b, uint8 c, uint8 d) {
  return uint32{a} << 24 | uint32{b} << 16 | uint32{c} << 8 | d;
}
