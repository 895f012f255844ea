#pragma once

/// @file
/// What the hook decides, apart from the DHCP server that it is loaded into: whose packets are ours, what goes into
/// option 43, and when the director is worth asking.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "lumenharbour_mgmt.h"
#include "option43.h"

namespace lumenharbour::dhcp {

using Bytes = std::vector<std::uint8_t>;

/// An IPv4 address in network order.
using Address = std::array<std::uint8_t, LUMENHARBOUR_IPV4_SIZE>;

/// What the hook's parameters say; what is not given is not sent.
struct Settings {
  Connection director{LUMENHARBOUR_SOCKET_PATH, 200};  ///< `socket`, `timeout-ms` (milliseconds, 1 to 60000)
  std::optional<Address> tftp_server;                  ///< `tftp-server`
  std::optional<Address> ftp_server;                   ///< `ftp-server`
  std::string ftp_username;                            ///< `ftp-username`
  std::string ftp_password;                            ///< `ftp-password`
  std::optional<std::uint32_t> reboot_time;            ///< `reboot-time`, seconds
  std::string auth_msg;                                ///< `auth-msg`
  std::string image_file;                              ///< `image-file`, where the imagelist names none
};

/// @return how to ask the director so that the exchange with the switch takes no longer than `timeout-ms`: a twentieth
/// of
///         it is left for the server's own work.
Connection connection_to_director(const Settings& settings);

/// A parameter as the server's configuration has it; `monostate` for any kind that no parameter takes.
using Parameter = std::variant<std::monostate, std::string, std::int64_t>;

/// Takes a parameter over into `settings`.
///
/// @return what is wrong with it, which names it; empty when nothing is
std::string set_parameter(Settings* settings, const std::string& name, const Parameter& value);

/// @param[in] vendor_class  option 60
/// @return the product id of a switch of ours; nothing for any other client
std::optional<std::uint32_t> product_id_of(std::string_view vendor_class);

/// A network, in host order.
struct Prefix {
  std::uint32_t network = 0;
  std::uint32_t mask = 0xffffffff;

  /// @return true when the address is in it.
  bool has(std::uint32_t address) const { return (address & mask) == network; }
};

/// @return the network that a text such as "192.0.2.0/24" says. One that is malformed, which the server refuses by
///         itself, has no address but 0.0.0.0.
Prefix parse_prefix(const std::string& text);

/// Most bytes of a DHCP message that a client takes, header and options (RFC 2131, RFC 2132 9.10).
///
/// Without option 57 that is 576 bytes less 20 of IP and 8 of UDP header, which is below the 628 that udhcpc takes.
///
/// @param[in] max_message_size  its option 57, which counts IP and UDP headers; nothing when it sends none. What is
///                              below 576 counts as 576.
std::size_t message_room(std::optional<std::uint16_t> max_message_size);

/// @param[in] names  the director's answer
/// @return what a switch refuses of it, such as "imagelist 'a b.txt' has ' ' at byte 2, which a shell interprets", and
///         with it the whole of option 43; empty when nothing
std::string refused_by_switch(const FileNames& names);

/// Makes the value of option 43.
///
/// @param[in] names  the director's answer
/// @return sub-options in ascending order; they may be more than the 255 bytes that one option holds
Bytes encode_option43(const Settings& settings, const FileNames& names);

/// Whether a director answers, for all threads of the server. One that is away is asked once a second, or once in five
/// time-outs if these are longer, so that a director that hangs costs one packet its time-out, and not all of them.
class Director {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Director() noexcept = default;

  /// What an answer changed, to be told once.
  enum class News { none, away, back };

  /// @param[in] timeout  how long an answer may take
  /// @return true when it is to be asked for names now. A caller that was told so must call `answered`.
  bool is_worth_asking(Time now, std::chrono::milliseconds timeout);

  /// @return true when it is not worth telling of a client that has gone. A deletion that succeeds does not bring it
  ///         back, since a daemon that is not the director takes one too.
  bool is_away() const;

  /// Takes note of how asking it ended. @return what that changed
  News answered(bool is_answer);

 private:
  mutable std::mutex mutex_;
  bool is_away_ = false;
  Time next_{};
};

using Mac = std::array<std::uint8_t, LUMENHARBOUR_MAC_SIZE>;

/// The address that each switch was announced with last, for all threads of the server. A switch has several leases
/// when its boot loader asks for an address under another name, and the end of an old one must not have it forgotten.
/// There are as many entries as switches with a lease.
class Announced {
 public:
  Announced() noexcept = default;

  /// @param[in] address  in host order
  void add(const Mac& mac, std::uint32_t address);

  /// Takes note of the end of a lease. @return true when the switch is to be forgotten: it had no newer address, or the
  /// server has been restarted since it was announced.
  bool ends(const Mac& mac, std::uint32_t address);

 private:
  std::mutex mutex_;
  std::map<Mac, std::uint32_t> addresses_;
};

/// Keeps what each packet would repeat from filling the log: lets it through once a minute.
class Pace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Pace() noexcept = default;

  /// @return true when it is to be told now, by one thread.
  bool is_due(Time now);

 private:
  std::mutex mutex_;
  std::optional<Time> last_;
};

}  // namespace lumenharbour::dhcp
