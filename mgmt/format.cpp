#include "format.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <span>
#include <utility>

namespace lumenharbour {
namespace {

constexpr uint32 VLAN_MAX = 4095;
constexpr char NONE[] = "none";  // an address that is not set

/// A number that people know by a word.
struct Word {
  uint32 number;
  std::string_view read;  ///< how it reads
  std::string_view set;   ///< how it is set
};

constexpr Word TRUTH[] = {{LUMENHARBOUR_ON, "on", "on"}, {LUMENHARBOUR_OFF, "off", "off"}};

constexpr Word ROW_STATUS[] = {{LUMENHARBOUR_ROW_ACTIVE, "active", "activate"},
                               {LUMENHARBOUR_ROW_CREATE, "created", "create"},
                               {LUMENHARBOUR_ROW_INACTIVE, "inactive", "deactivate"},
                               {LUMENHARBOUR_ROW_DESTROY, "destroyed", "destroy"}};

constexpr Word GROUP_TYPE[] = {{LUMENHARBOUR_CUSTOMGRP_TYPE_MAC, "mac", "mac"},
                               {LUMENHARBOUR_CUSTOMGRP_TYPE_PID, "pid", "pid"},
                               {LUMENHARBOUR_CUSTOMGRP_TYPE_STACK, "stack", "stack"},
                               {LUMENHARBOUR_CUSTOMGRP_TYPE_CONNECT, "connect", "connect"},
                               {LUMENHARBOUR_CUSTOMGRP_TYPE_UNKNOWN, "unknown", "unknown"}};

constexpr Word DEBUG[] = {{1, "on", "on"}, {0, "off", "off"}};

constexpr Word LOCAL[] = {{1, "yes", "yes"}, {0, "no", "no"}};

/// The largest number, or the most bytes of a name, that the daemon keeps whole. It cuts what is above without a word,
/// which is why the tool refuses it. For numbers, also the words that some of them have.
struct Limit {
  tLumenHarbourTable table;
  uint32 cmd;
  uint32 max;
  std::span<const Word> words = {};
};

constexpr Limit LIMITS[] = {
    {LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DEBUG, 3, DEBUG},
    {LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DIRECTORIPTYPE, 15},
    {LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DEFAULTIMAGETYPE, 3, LOCAL},
    {LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE, 3, LOCAL},
    {LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DHCPCLIENTVLAN, VLAN_MAX},
    {LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_NAME, LUMENHARBOUR_TEXT_SIZE - 1},
    {LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_TYPE, LUMENHARBOUR_CUSTOMGRP_TYPE_MAX - 1, GROUP_TYPE},
    {LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_IMAGETYPE, 255, LOCAL},
    {LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE, 255, LOCAL},
    {LUMENHARBOUR_TABLE_BUILTINGRP, LUMENHARBOUR_BUILTINGRP_IMAGETYPE, 255, LOCAL},
    {LUMENHARBOUR_TABLE_BUILTINGRP, LUMENHARBOUR_BUILTINGRP_CONFIGTYPE, 255, LOCAL},
};

Limit limit_of(const tLumenHarbourAttr& attr) {
  for (const Limit& limit : LIMITS)
    if (limit.table == attr.table && limit.cmd == attr.cmd) return limit;
  return {attr.table, attr.cmd, attr.value == LUMENHARBOUR_VALUE_TEXT ? LUMENHARBOUR_FILENAME_SIZE - 1 : 0xffffffffU};
}

/// @return the words for an attribute's numbers; none for one that is just a number.
std::span<const Word> words_of(const tLumenHarbourAttr& attr) {
  if (attr.value == LUMENHARBOUR_VALUE_TRUTH) return TRUTH;
  if (attr.value == LUMENHARBOUR_VALUE_ROWSTATUS) return ROW_STATUS;
  return limit_of(attr).words;
}

std::optional<Value> parse_integer(const tLumenHarbourAttr& attr, std::string_view text) {
  const std::optional<uint32> number = parse_number(text, limit_of(attr).max);
  for (const Word& word : words_of(attr))
    if (text == word.read || text == word.set || number == word.number) return word.number;
  if (attr.value != LUMENHARBOUR_VALUE_NUMBER || !number) return std::nullopt;
  return *number;
}

std::string format_integer(const tLumenHarbourAttr& attr, uint32 number) {
  for (const Word& word : words_of(attr))
    if (word.number == number) return std::string(word.read);
  return std::to_string(number);
}

/// @return true for the one address that may be none at all.
bool is_optional(const tLumenHarbourAttr& attr) {
  return attr.table == LUMENHARBOUR_TABLE_GLOBAL && attr.value == LUMENHARBOUR_VALUE_IPV4;
}

std::string format_ipv4(const tLumenHarbourAttr& attr, std::string_view bytes) {
  if (is_optional(attr) && bytes.find_first_not_of('\0') == std::string_view::npos) return NONE;
  char text[INET_ADDRSTRLEN];
  if (bytes.size() != LUMENHARBOUR_IPV4_SIZE || inet_ntop(AF_INET, bytes.data(), text, sizeof text) == nullptr)
    return "?";
  return text;
}

template <std::size_t N>
std::optional<Value> as_octets(const std::optional<std::array<uint8, N>>& bytes) {
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

/// @return the text up to the next `separator`, which is taken off `rest` together with it.
std::string_view take_field(std::string_view* rest, char separator) {
  const std::size_t end = std::min(rest->find(separator), rest->size());
  const std::string_view field = rest->substr(0, end);
  rest->remove_prefix(std::min(end + 1, rest->size()));
  return field;
}

/// A character of a text, or a byte that is none.
struct Character {
  std::string_view bytes;
  uint32 number;        ///< in Unicode, or the byte
  bool is_bad = false;  ///< it is a byte that is no UTF-8
};

/// Takes the next character off a text that is not empty.
Character take_character(std::string_view* text) {
  const auto byte = [text](std::size_t i) -> uint32 { return i < text->size() ? static_cast<uint8>((*text)[i]) : 0; };
  const uint32 first = byte(0);
  const std::size_t len = first < 0x80 ? 1 : first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  constexpr uint32 least[] = {0, 0, 0x80, 0x800, 0x10000};  // what takes fewer bytes is not written in more
  uint32 number = len == 1 ? first : first & (0x7fU >> len);
  bool is_bad = first > 0xf7 || (first & 0xc0U) == 0x80;
  for (std::size_t i = 1; i < len; i++) {
    is_bad = is_bad || (byte(i) & 0xc0U) != 0x80;
    number = number << 6 | (byte(i) & 0x3fU);
  }
  is_bad = is_bad || number < least[len] || number > 0x10ffff || (number >= 0xd800 && number <= 0xdfff);
  const Character character = {text->substr(0, is_bad ? 1 : len), is_bad ? first : number, is_bad};
  text->remove_prefix(character.bytes.size());
  return character;
}

/// @return true for a character of C1, and for one that has others written in another order or line.
bool is_treacherous(uint32 character) {
  constexpr std::pair<uint32, uint32> ranges[] = {
      {0x80, 0x9f}, {0x61c, 0x61c}, {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069}};
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [character](const auto& range) { return range.first <= character && character <= range.second; });
}

}  // namespace

std::optional<uint32> parse_number(std::string_view text, uint32 max) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  uint32 number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || number > max) return std::nullopt;
  return number;
}

std::optional<Mac> parse_mac(std::string_view text) {
  Mac mac{};
  const std::size_t at = text.find_first_of(":-.");
  const char separator = at == std::string_view::npos ? '\0' : text[at];
  if (separator != '\0' && text.ends_with(separator)) return std::nullopt;
  // Groups of digits, each with its bytes: six of one, three of two, or one of all.
  const std::size_t bytes = separator == '\0' ? mac.size() : separator == '.' ? 2 : 1;
  for (std::size_t i = 0; i < mac.size(); i += bytes) {
    const std::string_view group = separator == '\0' ? text : take_field(&text, separator);
    const bool is_last = i + bytes == mac.size();
    if (group.size() > 2 * bytes || (bytes > 1 && group.size() < 2 * bytes)) return std::nullopt;
    if (separator != '\0' && is_last != text.empty()) return std::nullopt;
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(group.data(), group.data() + group.size(), number, 16);
    if (error != std::errc() || end != group.data() + group.size()) return std::nullopt;
    for (std::size_t k = bytes; k > 0; k--, number >>= 8) mac[i + k - 1] = static_cast<uint8>(number);
  }
  return mac;
}

std::string format_mac(const Mac& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

std::optional<std::array<uint8, LUMENHARBOUR_IPV4_SIZE>> parse_ipv4(std::string_view text) {
  std::array<uint8, LUMENHARBOUR_IPV4_SIZE> bytes{};
  if (inet_pton(AF_INET, std::string(text).c_str(), bytes.data()) != 1) return std::nullopt;
  return bytes;
}

std::optional<std::string> parse_vlans(std::string_view text) {
  std::string bitmap(LUMENHARBOUR_VLANLIST_SIZE, '\0');
  if (text.empty() || text.ends_with(',')) return std::nullopt;
  while (!text.empty()) {
    std::string_view field = take_field(&text, ',');
    const bool is_range = field.find('-') != std::string_view::npos;
    const std::optional<uint32> low = parse_number(take_field(&field, '-'), VLAN_MAX);
    const std::optional<uint32> high = is_range ? parse_number(field, VLAN_MAX) : low;
    if (!low || !high || *low > *high) return std::nullopt;
    for (uint32 vlan = *low; vlan <= *high; vlan++)
      bitmap[vlan / 8] = static_cast<char>(static_cast<uint8>(bitmap[vlan / 8]) | 0x80 >> vlan % 8);
  }
  return bitmap;
}

std::string format_vlans(std::string_view bitmap) {
  const auto is_set = [bitmap](std::size_t vlan) {
    return vlan / 8 < bitmap.size() && (static_cast<uint8>(bitmap[vlan / 8]) & 0x80 >> vlan % 8) != 0;
  };
  std::string list;
  for (std::size_t vlan = 0; vlan <= VLAN_MAX; vlan++) {
    if (!is_set(vlan)) continue;
    if (!list.empty()) list += ',';
    list += std::to_string(vlan);
    const std::size_t low = vlan;
    while (is_set(vlan + 1)) vlan++;
    if (vlan > low) list += '-' + std::to_string(vlan);
  }
  return list;
}

std::optional<Value> parse_value(const tLumenHarbourAttr& attr, std::string_view text) {
  switch (attr.value) {
    case LUMENHARBOUR_VALUE_NUMBER:
    case LUMENHARBOUR_VALUE_TRUTH:
    case LUMENHARBOUR_VALUE_ROWSTATUS:
      return parse_integer(attr, text);
    case LUMENHARBOUR_VALUE_TEXT:
      if (text.size() > limit_of(attr).max) return std::nullopt;
      return std::string(text);
    case LUMENHARBOUR_VALUE_IPV4:
      if (is_optional(attr) && text == NONE) return std::string(LUMENHARBOUR_IPV4_SIZE, '\0');
      return as_octets(parse_ipv4(text));
    case LUMENHARBOUR_VALUE_MAC:
      return as_octets(parse_mac(text));
    case LUMENHARBOUR_VALUE_VLANS:
      return parse_vlans(text);
    case LUMENHARBOUR_VALUE_IGNORED:
    case LUMENHARBOUR_VALUE_RECORD:
      break;
  }
  return std::nullopt;
}

std::string format_value(const tLumenHarbourAttr& attr, const Value& value) {
  if (const auto* const number = std::get_if<uint32>(&value)) return format_integer(attr, *number);
  const std::string& bytes = std::get<std::string>(value);
  if (attr.value == LUMENHARBOUR_VALUE_IPV4) return format_ipv4(attr, bytes);
  if (attr.value == LUMENHARBOUR_VALUE_VLANS) return format_vlans(bytes);
  if (attr.value != LUMENHARBOUR_VALUE_MAC) return printable(bytes);
  Mac mac{};
  if (bytes.size() != mac.size()) return "?";
  std::copy(bytes.begin(), bytes.end(), mac.begin());
  return format_mac(mac);
}

bool is_utf8(std::string_view bytes) {
  while (!bytes.empty())
    if (take_character(&bytes).is_bad) return false;
  return true;
}

std::string printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const Character character = take_character(&bytes);
    char escape[16];
    if (character.is_bad || character.number < 0x20 || character.number == 0x7f)
      std::snprintf(escape, sizeof escape, "\\x%02x", character.number);
    else if (is_treacherous(character.number))
      std::snprintf(escape, sizeof escape, "\\u{%x}", character.number);
    else
      escape[0] = '\0';
    text += escape[0] == '\0' ? character.bytes : escape;
  }
  return text;
}

std::string fault_of_name(std::string_view name) {
  constexpr std::string_view interpreted = " \"$&'()*;<>?[`{|";
  constexpr std::string_view interpreted_first = "#-~";
  for (std::size_t i = 0; i < name.size(); i++) {
    const auto byte = static_cast<unsigned char>(name[i]);
    const std::string quoted = '\'' + printable(name.substr(i, 1)) + '\'';
    const std::string place = "has " + quoted + " at byte " + std::to_string(i + 1);
    if (byte < 0x20 || byte == 0x7f) return place + ", a control character";
    if (interpreted.find(name[i]) != std::string_view::npos) return place + ", which a shell interprets";
    if (i == 0 && interpreted_first.find(name[i]) != std::string_view::npos) return "begins with " + quoted;
  }
  return "";
}

std::vector<std::string_view> value_words(const tLumenHarbourAttr& attr) {
  std::vector<std::string_view> words;
  for (const Word& word : words_of(attr)) words.push_back(word.set);
  return words;
}

std::string expected_value(const tLumenHarbourAttr& attr) {
  const std::span<const Word> words = words_of(attr);
  if (!words.empty()) {
    std::string text;
    for (const Word& word : words) text += (text.empty() ? "" : ", ") + std::string(word.set);
    return "one of " + text;
  }
  switch (attr.value) {
    case LUMENHARBOUR_VALUE_IGNORED:
      return "no value";
    case LUMENHARBOUR_VALUE_TEXT:
      return "a text of at most " + std::to_string(limit_of(attr).max) + " bytes";
    case LUMENHARBOUR_VALUE_IPV4:
      return std::string("an IPv4 address such as 192.0.2.1") + (is_optional(attr) ? ", or none" : "");
    case LUMENHARBOUR_VALUE_MAC:
      return "a MAC address such as 00:1b:21:0a:0b:0c";
    case LUMENHARBOUR_VALUE_VLANS:
      return "VLAN ids from 0 to " + std::to_string(VLAN_MAX) + " such as 1,5,100-120";
    case LUMENHARBOUR_VALUE_RECORD:
      return "a record";
    default:
      return "a number from 0 to " + std::to_string(limit_of(attr).max);
  }
}

}  // namespace lumenharbour
