#include "zor_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <tuple>

namespace {

struct Element {
  uint8 tag, type;
  uint16 len;
  uint32 value;
  bool operator==(const Element&) const = default;
};
static_assert(sizeof(Element) == 8);

struct Message : std::array<Element, 5> {
  uint8* bytes() { return reinterpret_cast<uint8*>(data()); }
};
constexpr Message REQUEST = {{{{16, 2, 4, 23}, {17, 2, 4, 0xFFFFFFFB}, {18, 2, 4, 0x80000001}}}};

TEST(CodecTest, ReplyIsWrittenIntoTheRequest) {
  const uint32 value = 0x01020304;
  Message msg = REQUEST, want = {{{REQUEST[0], {17, 2, 4, 65536016}, REQUEST[2], {3, 4, 4, value}, {3, 0, 4, 0}}}};
  std::copy_n("overlaps", 8, msg.bytes() + 32);
  std::copy_n("erla", 4, want.bytes() + 36);
  tAdr adr;
  adr_start(&adr, msg.bytes(), sizeof(msg));
  EXPECT_EQ(adr_pos(&adr, ADR_RETCODE_OFFSET), 0);
  EXPECT_EQ(adr_int32(&adr, 65536016), 0);
  EXPECT_EQ(adr_offset(&adr, 8), 0);
  EXPECT_EQ(adr_encodedata(&adr, ADR_TYPE_INT64, sizeof(value), &value), 0);
  EXPECT_EQ(adr_encodedata(&adr, ADR_TYPE_OCTETS, 4, msg.bytes() + 34), 0);
  EXPECT_EQ(adr_count(&adr), sizeof(msg));
  EXPECT_EQ(msg, want);
  static uint8 big[ADR_ELEMENT_HEAD + 0x10000];
  adr_start(&adr, big, sizeof(big));
  EXPECT_EQ(adr_encodedata(&adr, ADR_TYPE_OCTETS, 0x10000, big), -1) << "more than a length field can say";
}

TEST(CodecTest, HeaderElementsAreCheckedByteForByte) {
  for (size_t wrong : {0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 39}) {
    Message msg = REQUEST;
    msg.bytes()[wrong] ^= 0x40;
    tAdr adr;
    uint32 func = 77, cmd = 77;
    int32 ret = 77;
    adr_start(&adr, msg.bytes(), sizeof(msg));
    EXPECT_EQ(adr_decodefunc(&adr, &func), wrong / 8 == 0 ? -1 : 0);
    EXPECT_EQ(adr_decoderetcode(&adr, &ret), wrong / 8 == 1 ? -1 : 0);
    EXPECT_EQ(adr_decodecmd(&adr, &cmd), wrong / 8 == 2 ? -1 : 0);
    EXPECT_EQ(std::tuple(func, ret, cmd),
              std::tuple(wrong / 8 == 0 ? 77U : 23U, wrong / 8 == 1 ? 77 : -5, wrong / 8 == 2 ? 77U : 0x80000001U))
        << wrong;
  }
}

// Every operation where one byte is missing, and where it just fits.
TEST(CodecTest, NothingIsReadOrWrittenPastTheEnd) {
  uint64 out;
  const std::pair<uint32, std::function<bool(tAdr*, void*)>> operations[] = {
      {8, [](tAdr* adr, void* to) { return adr_decodefunc(adr, static_cast<uint32*>(to)) == 0; }},
      {5, [](tAdr* adr, void* to) { return adr_getchar(adr, static_cast<uint8*>(to), 5) != nullptr; }},
      {2, [](tAdr* adr, void* to) { return adr_getshort(adr, static_cast<int16*>(to)) == 0; }},
      {2, [](tAdr* adr, void* to) { return adr_getushort(adr, static_cast<uint16*>(to)) == 0; }},
      {4, [](tAdr* adr, void* to) { return adr_getint32(adr, static_cast<int32*>(to)) == 0; }},
      {4, [](tAdr* adr, void* to) { return adr_getuint32(adr, static_cast<uint32*>(to)) == 0; }},
      {4, [](tAdr* adr, void*) { return adr_int32(adr, 0) == 0; }},
      {10, [](tAdr* adr, void*) { return adr_encodedata(adr, ADR_TYPE_OCTETS, 6, "abcdef") == 0; }},
  };
  for (const auto& [need, operation] : operations) {
    Message msg = REQUEST;
    tAdr adr;
    adr_start(&adr, msg.bytes() + 1, need);
    EXPECT_EQ(adr_offset(&adr, 1), 0);
    EXPECT_FALSE(operation(&adr, &(out = 5))) << need;
    EXPECT_EQ(std::tuple(adr.pos, out, msg == REQUEST), std::tuple(1U, 5U, true)) << need;
    EXPECT_EQ(adr_offset(&adr, 0xFFFFFFFF), -1);
    EXPECT_EQ(adr_pos(&adr, need + 1), -1);
    EXPECT_EQ(adr_pos(&adr, need), 0);
    EXPECT_TRUE(adr.overrun) << "for good, yet usable";
    adr_start(&adr, msg.bytes(), need);
    EXPECT_TRUE(operation(&adr, &out)) << need;
    EXPECT_EQ(std::tuple(adr.overrun, adr.pos), std::tuple(false, need));
    std::copy_n(reinterpret_cast<const uint8*>(&REQUEST), need, msg.bytes());
    EXPECT_EQ(msg, REQUEST) << need;
  }
}

}  // namespace
