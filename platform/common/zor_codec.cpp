#include "zor_codec.h"

#include <cstring>

namespace {

constexpr uint32 DATA_MAX = 0xFFFF;  // what an element's length field can say

int overrun(tAdr* adr) {
  adr->overrun = true;
  return -1;
}

// Bytes of a message stand at any address, so integers are copied, never read in place.
template <typename Integer>
int take_integer(tAdr* adr, Integer* value) {
  return adr_getchar(adr, reinterpret_cast<uint8*>(value), sizeof(*value)) == nullptr ? -1 : 0;
}

template <typename Integer>
int decode_header(tAdr* adr, uint8 tag, Integer* value) {
  const uint8* element = adr_getchar(adr, nullptr, ADR_ELEMENT_HEAD + sizeof(*value));
  if (element == nullptr) return -1;
  uint16 len;
  memcpy(&len, element + 2, sizeof(len));
  if (element[0] != tag || element[1] != ADR_TYPE_INT32 || len != sizeof(*value)) return -1;
  memcpy(value, element + ADR_ELEMENT_HEAD, sizeof(*value));
  return 0;
}

}  // namespace

void adr_start(tAdr* adr, uint8* buf, uint32 len) {
  *adr = {buf, len, 0, false};
}

int adr_decodefunc(tAdr* adr, uint32* value) {
  return decode_header(adr, ADR_TAG_FUNC, value);
}

int adr_decoderetcode(tAdr* adr, int32* value) {
  return decode_header(adr, ADR_TAG_RETCODE, value);
}

int adr_decodecmd(tAdr* adr, uint32* value) {
  return decode_header(adr, ADR_TAG_CMD, value);
}

uint8* adr_getchar(tAdr* adr, uint8* dst, uint32 n) {
  uint8* bytes = adr->buf + adr->pos;
  if (adr_offset(adr, n) != 0) return nullptr;
  if (dst != nullptr) memcpy(dst, bytes, n);
  return bytes;
}

int adr_getshort(tAdr* adr, int16* value) {
  return take_integer(adr, value);
}

int adr_getushort(tAdr* adr, uint16* value) {
  return take_integer(adr, value);
}

int adr_getint32(tAdr* adr, int32* value) {
  return take_integer(adr, value);
}

int adr_getuint32(tAdr* adr, uint32* value) {
  return take_integer(adr, value);
}

int adr_offset(tAdr* adr, uint32 n) {
  if (n > adr->len - adr->pos) return overrun(adr);
  adr->pos += n;
  return 0;
}

uint32 adr_count(const tAdr* adr) {
  return adr->pos;
}

int adr_pos(tAdr* adr, uint32 pos) {
  if (pos > adr->len) return overrun(adr);
  adr->pos = pos;
  return 0;
}

int adr_int32(tAdr* adr, int32 value) {
  uint8* place = adr_getchar(adr, nullptr, sizeof(value));
  if (place == nullptr) return -1;
  memcpy(place, &value, sizeof(value));
  return 0;
}

int adr_encodedata(tAdr* adr, uint8 type, uint32 len, const void* data) {
  if (len > DATA_MAX) return overrun(adr);
  uint8* element = adr_getchar(adr, nullptr, ADR_ELEMENT_HEAD + len);
  if (element == nullptr) return -1;
  // The data first: a value that points into the request may lie where the head goes.
  if (len != 0) memmove(element + ADR_ELEMENT_HEAD, data, len);
  const auto data_len = static_cast<uint16>(len);
  element[0] = ADR_TAG_VALUE;
  element[1] = type;
  memcpy(element + 2, &data_len, sizeof(data_len));
  return 0;
}
