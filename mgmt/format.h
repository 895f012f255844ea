#pragma once

/// @file
/// Attribute values as people write and read them.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lumenharbour_mgmt.h"

namespace lumenharbour {

/// @return the number that `text` says in decimal, or in hexadecimal behind "0x"; nothing when it is none, or above
///         `max`.
std::optional<uint32> parse_number(std::string_view text, uint32 max = 0xffffffffU);

/// @return the address that `text` says in hexadecimal: six numbers that ':' or '-' parts, three of four digits each
/// that
///         '.' parts, or twelve digits; else nothing.
std::optional<Mac> parse_mac(std::string_view text);

/// @return the address as "00:1b:21:0a:0b:0c".
std::string format_mac(const Mac& mac);

/// @return the 4 bytes, in network order, of the dotted address that `text` says; else nothing.
std::optional<std::array<uint8, LUMENHARBOUR_IPV4_SIZE>> parse_ipv4(std::string_view text);

/// @return the bitmap of `LUMENHARBOUR_VLANLIST_SIZE` bytes for a list such as "1,5,100-120"; nothing when the list is
///         empty, malformed, or reaches above 4095.
std::optional<std::string> parse_vlans(std::string_view text);

/// @return a VLAN bitmap as a list such as "1,5,100-120"; empty for no VLAN.
std::string format_vlans(std::string_view bitmap);

/// @return the value that `text` says for an attribute; nothing when it is not what `expected_value` tells, and for an
///         attribute that takes no value or a record.
std::optional<Value> parse_value(const tLumenHarbourAttr& attr, std::string_view text);

/// @return an attribute's value as `parse_value` takes it. A row status reads "active", where "activate" is set.
///         A name is `printable`.
std::string format_value(const tLumenHarbourAttr& attr, const Value& value);

/// @return true for a text in UTF-8.
bool is_utf8(std::string_view bytes);

/// Makes a text fit for a terminal, whoever on the network may have written it. Control characters, and bytes that are
/// no UTF-8, read as "\x1b", those of C1 and what turns the direction of writing as "\u{202e}".
std::string printable(std::string_view bytes);

/// Judges the name of a file or a group as every switch does, before one is plugged in. The daemon puts names into
/// shell commands as they are; so `dhcp/udhcpc/lumenharbour.script` and `fetch/lumenharbour-fetch` refuse them on the
/// switch. The tests hold the three together.
///
/// @return why a switch refuses it, to stand behind "it", such as "has ' ' at byte 3, which a shell interprets"; empty
///         for a name that it takes, and for an empty one
std::string fault_of_name(std::string_view name);

/// @return the words that an attribute takes in place of numbers; none where it takes no word.
std::vector<std::string_view> value_words(const tLumenHarbourAttr& attr);

/// @return what an attribute takes, in words that follow "expected", such as "a number from 0 to 3".
std::string expected_value(const tLumenHarbourAttr& attr);

}  // namespace lumenharbour
