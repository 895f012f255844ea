#pragma once

/// @file
/// The management message codec: a cursor over one message, used to read requests and to write replies in place.
///
/// Every element of a message has the shape tag (1 byte), type (1), length (2), data. Integers are in native byte
/// order, since both ends run on one machine. The cursor never reads or writes outside its message: an operation that
/// would do so does nothing, fails, and marks the cursor as overrun for good.

#include "zor_types.h"

/// Element tags.
enum : uint8 {
  ADR_TAG_INDEX = 1,     ///< index section: tag, number of items, items
  ADR_TAG_VALUE = 3,     ///< value section
  ADR_TAG_FUNC = 16,     ///< header: function number
  ADR_TAG_RETCODE = 17,  ///< header: return code
  ADR_TAG_CMD = 18,      ///< header: attribute number
};

/// Data types of elements and index items.
enum : uint8 {
  ADR_TYPE_OCTETS = 0,  ///< octet string
  ADR_TYPE_INT16 = 1,   ///< 16-bit integer
  ADR_TYPE_INT32 = 2,   ///< 32-bit integer
  ADR_TYPE_INT64 = 4,   ///< `U_INT8`: high word, then low word
};

/// Fixed places in a message.
enum : uint32 {
  ADR_ELEMENT_HEAD = 4,     ///< bytes before an element's data
  ADR_ITEM_HEAD = 3,        ///< bytes before an index item's data: type (1), length (2)
  ADR_RETCODE_OFFSET = 12,  ///< where the return code's value stands
  ADR_MSG_MIN = 26,         ///< header and the index section's tag and count
};

/// A cursor over one message; the bytes belong to the caller.
struct tAdr {
  uint8* buf;    ///< first byte of the message
  uint32 len;    ///< bytes in the message
  uint32 pos;    ///< next byte to read or write, 0 to `len`
  bool overrun;  ///< an operation wanted more bytes than are left
};

/// Starts a cursor over `len` bytes at `buf`, at position 0.
void adr_start(tAdr* adr, uint8* buf, uint32 len);

/// Reads the header's function number. Call the three header readers in the order of the message.
///
/// @param[out] value  left alone on failure
/// @return 0, or -1 when the element's tag, type or length differs or it is cut short
int adr_decodefunc(tAdr* adr, uint32* value);

/// Reads the header's return code; as `adr_decodefunc`.
int adr_decoderetcode(tAdr* adr, int32* value);

/// Reads the header's attribute number; as `adr_decodefunc`.
int adr_decodecmd(tAdr* adr, uint32* value);

/// Takes `n` bytes.
///
/// @param[out] dst  receives them; null to take them where they stand
/// @return the bytes inside the message, or null when fewer than `n` are left
uint8* adr_getchar(tAdr* adr, uint8* dst, uint32 n);

/// Takes a 2-byte signed integer. @return 0, or -1 when it is cut short (`value` is left alone).
int adr_getshort(tAdr* adr, int16* value);

/// Takes a 2-byte unsigned integer. @return 0, or -1 when it is cut short (`value` is left alone).
int adr_getushort(tAdr* adr, uint16* value);

/// Takes a 4-byte signed integer. @return 0, or -1 when it is cut short (`value` is left alone).
int adr_getint32(tAdr* adr, int32* value);

/// Takes a 4-byte unsigned integer. @return 0, or -1 when it is cut short (`value` is left alone).
int adr_getuint32(tAdr* adr, uint32* value);

/// Skips `n` bytes. @return 0, or -1 when fewer are left.
int adr_offset(tAdr* adr, uint32 n);

/// @return the position, in bytes from the start.
uint32 adr_count(const tAdr* adr);

/// Sets the position. @return 0, or -1 when `pos` lies behind the end (the position is left alone).
int adr_pos(tAdr* adr, uint32 pos);

/// Writes a 4-byte integer and advances. @return 0, or -1 when it does not fit (nothing is written).
int adr_int32(tAdr* adr, int32 value);

/// Writes one value section (tag `ADR_TAG_VALUE`) and advances.
///
/// @param[in] type  one of `ADR_TYPE_*`
/// @param[in] len   bytes of data, 0 to 65535
/// @param[in] data  the data, in native byte order; may overlap the place where it goes
/// @return 0, or -1 when it does not fit (nothing is written)
int adr_encodedata(tAdr* adr, uint8 type, uint32 len, const void* data);
