#pragma once

/// @file
/// System and interface attributes of the switch, and the translation of addresses, VLANs and ports to interface units.

#include "zor_types.h"

/// System attributes, for `zorScalarGetApi` and `zorScalarSetApi`.
enum : uint32 {
  SYS_MAC_ADDRESS = 11,  ///< get: the switch's own MAC address, 6 bytes
  SYS_CLEAR_BIOS = 35,   ///< set to the text "reboot": restarts the switch
  SYS_READ_CONFIG = 36,  ///< get: dumps the saved start-up configuration into the file that the octet string names
};

/// Interface attributes, for `zorIfGetApi`.
enum : uint32 {
  SYS_IF_VLANVID = 1,  ///< the VLAN id that the interface carries, an unsigned 32-bit integer 0 to 4095
};

/// Translation kinds, for `zorIndexTrans`.
enum : uint32 {
  SYS_PHY2LOGICAL_NUM = 2,  ///< key `tPhyIfInfo`, a physical port: its interface unit
  SYS_VLAN2LOGICAL = 7,     ///< key `tPhyIfInfo`, `virtualnum` is a VLAN id: the unit of that VLAN's interface
  SYS_IP2LOGICAL = 10,      ///< key `octetstring` of 7 bytes: the unit of the interface that owns an address
};

/// Where the parts of a `SYS_IP2LOGICAL` key stand: two zero bytes, the address kind, the address in network order.
enum : uint32 {
  IP2LOGICAL_KEY_TYPE = 2,  ///< offset of the address kind, 1 for IPv4
  IP2LOGICAL_KEY_ADDR = 3,  ///< offset of the 4 address bytes
  IP2LOGICAL_KEY_LEN = 7,   ///< bytes in the key
};

/// A port or a VLAN interface as the switch's chassis numbers it.
struct tPhyIfInfo {
  uint32 unit;        ///< member of the stack, from 1
  uint32 slot;        ///< slot in the unit, from 1
  uint32 port;        ///< port in the slot, from 1
  uint32 channel;     ///< channel of the port, from 1
  uint32 virtualnum;  ///< VLAN id of a VLAN interface, else 1
  uint32 endType;     ///< kind of end point; 3: an interface with addresses
  uint32 card;        ///< card in the slot, 0 for none
};

/// Reads a system attribute.
///
/// @param[in]     unit   member of the stack, 0 for this switch
/// @param[in]     attr   `SYS_MAC_ADDRESS` or `SYS_READ_CONFIG`
/// @param[in,out] value  `SYS_MAC_ADDRESS`: room for 6 bytes, `len` 6. `SYS_READ_CONFIG`: the path of the file to
///                       write, not terminated; no file is left there when no configuration is saved
/// @return 0, or -1 when the attribute is unknown or cannot be read
int zorScalarGetApi(uint32 unit, uint32 attr, octetstring* value);

/// Sets a system attribute.
///
/// @param[in] unit   member of the stack, 0 for this switch
/// @param[in] attr   `SYS_CLEAR_BIOS`
/// @param[in] value  the text "reboot", not terminated
/// @return 0 when the restart was requested, -1 when the attribute or value is unknown or the request failed
int zorScalarSetApi(uint32 unit, uint32 attr, const octetstring* value);

/// Reads an attribute of one interface.
///
/// @param[in]  ifindex  interface unit
/// @param[in]  attr     `SYS_IF_VLANVID`
/// @param[out] value    `SYS_IF_VLANVID`: the VLAN id as one uint32; left alone on failure
/// @return 0, or -1 when the interface carries no VLAN or the attribute is unknown
int zorIfGetApi(uint32 ifindex, uint32 attr, void* value);

/// Translates a key into an interface unit.
///
/// @param[in]  key   what `kind` asks for, an `octetstring` or a `tPhyIfInfo`; see the translation kinds
/// @param[in]  kind  `SYS_PHY2LOGICAL_NUM`, `SYS_VLAN2LOGICAL` or `SYS_IP2LOGICAL`
/// @param[out] unit  interface unit; left alone on failure
/// @return 0, or -1 when nothing matches the key or the kind is unknown
int zorIndexTrans(const void* key, uint32 kind, uint32* unit);
