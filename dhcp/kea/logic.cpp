#include "logic.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "format.h"

namespace lumenharbour::dhcp {
namespace {

constexpr std::int64_t TIMEOUT_MAX_MS = 60000;

/// RFC 2131, 2: what every client takes, as an IP datagram.
constexpr std::size_t DATAGRAM_MIN = 576;
constexpr std::size_t IP_AND_UDP_HEADERS = 20 + 8;

constexpr std::chrono::seconds RETRY_AFTER{1};
constexpr std::chrono::minutes TELL_AFTER{1};

std::string expected(const std::string& name, const std::string& what) {
  return "parameter '" + name + "': expected " + what;
}

std::string set_text(std::string* text, const std::string& name, const Parameter& value) {
  const auto* const given = std::get_if<std::string>(&value);
  const bool is_good =
      given != nullptr && !given->empty() && given->size() <= SUBOPTION_MAX &&
      std::all_of(given->begin(), given->end(), [](unsigned char c) { return c >= 0x20 && c != 0x7f; });
  if (!is_good) return expected(name, "a text of 1 to 255 bytes without control characters");
  *text = *given;
  return "";
}

/// Takes the name of a file.
std::string set_name(std::string* text, const std::string& name, const Parameter& value) {
  std::string given;
  if (std::string wrong = set_text(&given, name, value); !wrong.empty()) return wrong;
  if (const std::string fault = fault_of_name(given); !fault.empty())
    return "parameter '" + name + "': it " + fault + "; a switch refuses such a name";
  *text = std::move(given);
  return "";
}

/// Takes a credential. It becomes a word of the switch's command lines as a name does, but its '\' is not made a '/'
/// there. What is wrong with it is not told, it may be a password.
std::string set_word(std::string* text, const std::string& name, const Parameter& value) {
  std::string given;
  if (std::string wrong = set_text(&given, name, value); !wrong.empty()) return wrong;
  if (!fault_of_name(given).empty() || given.find('\\') != std::string::npos)
    return expected(name, "a text without blanks and characters that a shell interprets");
  *text = std::move(given);
  return "";
}

std::string set_address(std::optional<Address>* address, const std::string& name, const Parameter& value) {
  const auto* const given = std::get_if<std::string>(&value);
  Address bytes{};
  if (given == nullptr || inet_pton(AF_INET, given->c_str(), bytes.data()) != 1)
    return expected(name, "an IPv4 address such as \"192.0.2.1\"");
  *address = bytes;
  return "";
}

/// @return the number, or nothing for one outside of the bounds and for what is none.
std::optional<std::int64_t> number_within(const Parameter& value, std::int64_t min, std::int64_t max) {
  const auto* const given = std::get_if<std::int64_t>(&value);
  if (given == nullptr || *given < min || *given > max) return std::nullopt;
  return *given;
}

std::string set_timeout(Settings* settings, const std::string& name, const Parameter& value) {
  const auto ms = number_within(value, 1, TIMEOUT_MAX_MS);
  if (!ms) return expected(name, "a number of milliseconds from 1 to 60000");
  settings->director.timeout_ms = static_cast<int>(*ms);
  return "";
}

std::string set_reboot_time(Settings* settings, const std::string& name, const Parameter& value) {
  const auto seconds = number_within(value, 0, 0xffffffff);
  if (!seconds) return expected(name, "a number of seconds from 0 to 4294967295");
  settings->reboot_time = static_cast<std::uint32_t>(*seconds);
  return "";
}

std::string set_socket(Settings* settings, const std::string& name, const Parameter& value) {
  constexpr std::size_t longest = 107;  // sun_path of unix(7), with its terminator
  const auto* const path = std::get_if<std::string>(&value);
  if (path == nullptr || path->empty() || path->size() > longest)
    return expected(name, "the path of the director's socket, of at most 107 bytes");
  settings->director.socket_path = *path;
  return "";
}

struct Known {
  std::string_view name;
  std::string (*set)(Settings* settings, const std::string& name, const Parameter& value);
};

constexpr Known PARAMETERS[] = {
    {"socket", set_socket},
    {"timeout-ms", set_timeout},
    {"tftp-server",
     [](Settings* s, const std::string& n, const Parameter& v) { return set_address(&s->tftp_server, n, v); }},
    {"ftp-server",
     [](Settings* s, const std::string& n, const Parameter& v) { return set_address(&s->ftp_server, n, v); }},
    {"ftp-username",
     [](Settings* s, const std::string& n, const Parameter& v) { return set_word(&s->ftp_username, n, v); }},
    {"ftp-password",
     [](Settings* s, const std::string& n, const Parameter& v) { return set_word(&s->ftp_password, n, v); }},
    {"reboot-time", set_reboot_time},
    {"auth-msg", [](Settings* s, const std::string& n, const Parameter& v) { return set_text(&s->auth_msg, n, v); }},
    {"image-file",
     [](Settings* s, const std::string& n, const Parameter& v) { return set_name(&s->image_file, n, v); }},
};

/// Appends sub-options, each unless it is empty.
class Encoder {
 public:
  void put(SubOption number, const void* data, std::size_t len) {
    if (len == 0) return;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    value.push_back(number);
    value.push_back(static_cast<std::uint8_t>(len));
    value.insert(value.end(), bytes, bytes + len);
  }
  void put(SubOption number, const std::string& text) { put(number, text.data(), text.size()); }
  void put(SubOption number, const std::optional<Address>& address) {
    if (address) put(number, address->data(), address->size());
  }

  Bytes value;
};

}  // namespace

std::string set_parameter(Settings* settings, const std::string& name, const Parameter& value) {
  std::string names;
  for (const Known& known : PARAMETERS) {
    if (known.name == name) return known.set(settings, name, value);
    names += (names.empty() ? "" : ", ") + std::string(known.name);
  }
  return "parameter '" + name + "' is unknown: expected one of " + names;
}

Connection connection_to_director(const Settings& settings) {
  Connection connection = settings.director;
  connection.timeout_ms -= connection.timeout_ms / 20;
  return connection;
}

std::optional<std::uint32_t> product_id_of(std::string_view vendor_class) {
  if (!vendor_class.starts_with(VENDOR_CLASS_PREFIX)) return std::nullopt;
  vendor_class.remove_prefix(VENDOR_CLASS_PREFIX.size());
  std::uint32_t product_id = 0;
  const char* const end = vendor_class.data() + vendor_class.size();
  const auto [rest, error] = std::from_chars(vendor_class.data(), end, product_id);
  if (error != std::errc() || rest != end) return std::nullopt;
  return product_id;
}

Prefix parse_prefix(const std::string& text) {
  const std::size_t slash = text.find('/');
  in_addr network{};
  unsigned bits = 0;
  if (slash == std::string::npos || inet_pton(AF_INET, text.substr(0, slash).c_str(), &network) != 1) return {};
  const auto [end, error] = std::from_chars(text.data() + slash + 1, text.data() + text.size(), bits);
  if (error != std::errc() || end != text.data() + text.size() || bits > 32) return {};
  const std::uint32_t mask = bits == 0 ? 0 : 0xffffffffU << (32 - bits);
  return {ntohl(network.s_addr) & mask, mask};
}

std::size_t message_room(std::optional<std::uint16_t> max_message_size) {
  return std::max<std::size_t>(max_message_size.value_or(0), DATAGRAM_MIN) - IP_AND_UDP_HEADERS;
}

std::string refused_by_switch(const FileNames& names) {
  const std::pair<const char*, const std::string&> all[] = {{"imagelist", names.imagelist},
                                                            {"configuration", names.config}};
  for (const auto& [what, name] : all)
    if (const std::string fault = fault_of_name(name); !fault.empty())
      return std::string(what) + " '" + printable(name) + "' " + fault;
  return "";
}

Bytes encode_option43(const Settings& settings, const FileNames& names) {
  Encoder encoder;
  encoder.put(SUBOPTION_IMAGELIST, names.imagelist);
  encoder.put(SUBOPTION_CONFIG_FILE, names.config);
  encoder.put(SUBOPTION_IMAGE_FILE, settings.image_file);
  encoder.put(SUBOPTION_TFTP_SERVER, settings.tftp_server);
  encoder.put(SUBOPTION_FTP_SERVER, settings.ftp_server);
  encoder.put(SUBOPTION_FTP_USERNAME, settings.ftp_username);
  encoder.put(SUBOPTION_FTP_PASSWORD, settings.ftp_password);
  const std::uint32_t reboot_time = htonl(settings.reboot_time.value_or(0));
  encoder.put(SUBOPTION_REBOOT_TIME, &reboot_time, settings.reboot_time ? sizeof reboot_time : 0);
  encoder.put(SUBOPTION_AUTH_MSG, settings.auth_msg);
  return encoder.value;
}

bool Director::is_worth_asking(Time now, std::chrono::milliseconds timeout) {
  const std::lock_guard lock(mutex_);
  if (is_away_ && now < next_) return false;
  next_ = now + std::max<std::chrono::milliseconds>(RETRY_AFTER, 5 * timeout);
  return true;
}

bool Director::is_away() const {
  const std::lock_guard lock(mutex_);
  return is_away_;
}

Director::News Director::answered(bool is_answer) {
  const std::lock_guard lock(mutex_);
  const bool was_away = is_away_;
  is_away_ = !is_answer;
  if (was_away == is_away_) return News::none;
  return is_away_ ? News::away : News::back;
}

void Announced::add(const Mac& mac, std::uint32_t address) {
  const std::lock_guard lock(mutex_);
  addresses_[mac] = address;
}

bool Announced::ends(const Mac& mac, std::uint32_t address) {
  const std::lock_guard lock(mutex_);
  const auto found = addresses_.find(mac);
  if (found == addresses_.end()) return true;
  if (found->second != address) return false;
  addresses_.erase(found);
  return true;
}

bool Pace::is_due(Time now) {
  const std::lock_guard lock(mutex_);
  if (last_ && now < *last_ + TELL_AFTER) return false;
  last_ = now;
  return true;
}

}  // namespace lumenharbour::dhcp
