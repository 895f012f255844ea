#pragma once

/// @file
/// The DHCP client's interface attributes: what the switch learnt from its DHCP server.

#include "zor_types.h"

/// Attribute numbers as the DHCP client defines them.
enum : uint32 {
  DHCPC_IF_CONFIGFILE = 35,    ///< octet string: configuration file name
  DHCPC_IF_FTPUSERNAME = 36,   ///< octet string
  DHCPC_IF_FTPPASSWORD = 37,   ///< octet string
  DHCPC_IF_FTPSERVERIP = 38,   ///< uint32: IPv4 address, host byte order
  DHCPC_IF_IMAGEFILE = 39,     ///< octet string: image file name
  DHCPC_IF_REBOOTTIME = 40,    ///< uint32: seconds
  DHCPC_IF_AUTHMSG = 41,       ///< octet string: authentication message
  DHCPC_IF_TFTPSERVERIP = 42,  ///< uint32: IPv4 address, host byte order
  DHCPC_IF_IMAGELIST = 43,     ///< octet string: imagelist file name
  DHCPC_IF_LUMENHARBOUR = 44,  ///< reading it tells the DHCP client that provisioning failed; the value is not touched
};

/// Reads one attribute of the DHCP client on an interface.
///
/// @param[in]     ifindex  interface unit on which the DHCP client runs
/// @param[in]     attr     one of `DHCPC_IF_*`
/// @param[in,out] result   by the attribute: an `octetstring` whose `len` is the capacity on entry and the value's
///                         length on return, or a uint32; left alone on failure
///
/// `DHCPC_IF_TFTPSERVERIP` is an attempt's first read: all further ones are answered from what was known then, until it
/// is read again.
///
/// @return 0, or -1 when the DHCP client has no such value, or one that does not fit. An authentication message that is
///         there but cannot be used is answered with 0 and bytes that equal no text: only none at all is answered with
///         -1.
int dhcpcIfGetApi(uint32 ifindex, uint32 attr, void* result);
