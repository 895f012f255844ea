#pragma once

/// @file
/// What travels in DHCP option 43 (RFC 2132, 8.4) from the director's DHCP server to a switch: sub-options of one byte
/// number, one byte length and a value. The switch's side is `dhcp/udhcpc/lumenharbour.script`, which must agree.
///
/// The tests hold the script and the operator's guide to the table here, comments included: they are the guide's words.

#include <cstdint>
#include <string_view>

namespace lumenharbour::dhcp {

/// Vendor class identifier (option 60) of a switch: this, then its product id in decimal.
inline constexpr std::string_view VENDOR_CLASS_PREFIX = "LumenHarbour:";

/// Sub-options of option 43.
enum SubOption : std::uint8_t {
  SUBOPTION_IMAGELIST = 1,     ///< imagelist file: text
  SUBOPTION_CONFIG_FILE = 2,   ///< configuration file: text
  SUBOPTION_IMAGE_FILE = 3,    ///< image file: text
  SUBOPTION_TFTP_SERVER = 4,   ///< TFTP server: IPv4 address, 4 bytes
  SUBOPTION_FTP_SERVER = 5,    ///< FTP server: IPv4 address, 4 bytes
  SUBOPTION_FTP_USERNAME = 6,  ///< FTP user name: text
  SUBOPTION_FTP_PASSWORD = 7,  ///< FTP password: text
  SUBOPTION_REBOOT_TIME = 8,   ///< reboot time: seconds, 32 bits in network order
  SUBOPTION_AUTH_MSG = 9,      ///< authentication message: text
};

/// Most bytes of a sub-option's value: its length is one byte.
inline constexpr std::size_t SUBOPTION_MAX = 255;

}  // namespace lumenharbour::dhcp
