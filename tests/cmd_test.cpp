#include "fake_platform.h"
#include "request.h"

namespace {

class CmdTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_director();
  }

  /// Runs a request that must be refused and returns the message that says why.
  static std::string refusal(Request request) {
    gLumenHarbourInfo.debug = 1;
    fake.output.clear();
    request.run();
    EXPECT_EQ(request.reply_len, 0);
    gLumenHarbourInfo.debug = 0;
    return fake.output;
  }

  static Request spoilt(Request request, size_t pos, uint8 byte) {
    request.body[pos] = static_cast<char>(byte);
    return request;
  }

  static Request cut(Request request, size_t len) {
    request.body.resize(len);
    return request;
  }
};

TEST_F(CmdTest, RefusesWhatItCannotDecodeAndSaysWhy) {
  const Request get = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, 0);
  const Request text = global_get(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, "abc");
  const std::string header[] = {"function", "return code", "command"};
  for (size_t i = 0; i < 3; i++)
    EXPECT_EQ(refusal(spoilt(get, 8 * i, 99)), "[LumenHarbour] Decode " + header[i] + " failed \r\n!");
  EXPECT_EQ(refusal(cut(get, 25)), "[LumenHarbour] Receive length 25 ERROR!\r\n");
  EXPECT_EQ(refusal(spoilt(get, 24, 2)), "[LumenHarbour] Decode index failed, value = 2 \r\n!");
  EXPECT_EQ(refusal(Request(24, 1, {0}, 0)), "[LumenHarbour] Invalid function 24 \r\n!");
  EXPECT_EQ(refusal(Request(0, 1, {0}, 0)), "[LumenHarbour] Invalid function 0 \r\n!");
  EXPECT_EQ(refusal(Request(3, 1, {0}, 0)), "[LumenHarbour] Invalid index number 1 for func 3\r\n!");
  EXPECT_EQ(refusal(spoilt(get, get.value_pos, 4)), "[LumenHarbour] Decode data ERROR, value = 4!");
  EXPECT_EQ(refusal(global_get(1, {ADR_TYPE_INT32, "12345"})), "[LumenHarbour] Invalid shortVal 5, type is 2!");
  EXPECT_EQ(refusal(global_get(1, {ADR_TYPE_INT64, "123456789"})), "[LumenHarbour] Invalid shortVal 9, type is 4!");
  EXPECT_EQ(refusal(cut(text, text.body.size() - 1)), "[LumenHarbour] Invalid shortVal 3, type is 0!");
}

TEST_F(CmdTest, RefusesEveryRequestThatIsCutShort) {
  const std::string name(80, 'n');
  const std::pair<uint32, std::vector<Value>> requests[] = {
      {LUMENHARBOUR_GLOBAL_GETAPI, {0}},
      {LUMENHARBOUR_CUSTOMGRPMAC_GETNEXT, {{ADR_TYPE_INT16, "id"}, "member"}},
      {LUMENHARBOUR_CUSTOMGRPPID_GETFIRST, {1, 2}},
      {LUMENHARBOUR_CLIENT_GETNEXT, {1}},
      {LUMENHARBOUR_CUSTOMGRPID_GETAPI, {name.substr(0, 20)}},
      {LUMENHARBOUR_CUSTOMGRPID_GETAPI, {name.substr(0, 64)}},
      {LUMENHARBOUR_CUSTOMGRPID_GETAPI, {name}}};
  for (const auto& [func, items] : requests) {
    for (const Value& value : {Value(1), Value("12345678"), Value(ADR_TYPE_INT64, "12345678"), Value("")}) {
      Request whole(func, 1, items, value);
      const size_t value_pos = whole.value_pos;
      const auto expected = [&](const std::string& body) {
        if (body.size() >= value_pos && body[value_pos] != ADR_TAG_VALUE)
          return "[LumenHarbour] Decode data ERROR, value = " + std::to_string(body[value_pos]) + "!";
        if (body.size() < value_pos + ADR_ELEMENT_HEAD)
          return "[LumenHarbour] Receive length " + std::to_string(body.size()) + " ERROR!\r\n";
        return "[LumenHarbour] Invalid shortVal " + std::to_string(value.data.size()) + ", type is " +
               std::to_string(value.type) + "!";
      };
      for (size_t len = 1; len < whole.body.size(); len++)
        EXPECT_EQ(refusal(cut(whole, len)), expected(whole.body.substr(0, len)));
      // A value section that follows a part of the index is taken for the rest of it.
      for (size_t missing = 1; missing <= value_pos - ADR_MSG_MIN; missing++) {
        Request hollow = whole;
        hollow.body.erase(value_pos - missing, missing);
        const std::string said = refusal(hollow);
        if (func == LUMENHARBOUR_CUSTOMGRPID_GETAPI && missing > items[0].data.size()) continue;  // the length is cut
        EXPECT_EQ(said, expected(hollow.body));
      }
      const size_t len = whole.body.size();
      whole.run();
      EXPECT_EQ(whole.reply_len, static_cast<int32>(len));
    }
  }
}

TEST_F(CmdTest, RepliesInPlaceWithWhatTheValuesTypeHolds) {
  Request wide = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, {ADR_TYPE_INT64, "xxxxxxxx"});
  ASSERT_EQ(wide.run(), 0);
  EXPECT_EQ(wide.value(), raw(uint32{100}) + "xxxx");  // the high word is the value
  for (const Value& untyped : {Value(ADR_TYPE_INT16, "AB"), Value(9, "")})
    EXPECT_EQ(global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, untyped).run(), ERR_ZOR_UNSUPPORTED);
}

TEST_F(CmdTest, WalksWriteIndexesOnlyIntoRoomOfTheirType) {
  tLumenHarbourGrpEntry* grp = lumenharbour_custom_grp_add(3);
  grp->status = 2;
  grp->custom_type = LUMENHARBOUR_CUSTOMGRP_TYPE_MAC;
  strcpy(grp->name, "lab");
  lumenharbour_custom_mac_add(grp, reinterpret_cast<const uint8*>("member"));
  const std::pair<uint32, Value> requests[] = {{LUMENHARBOUR_CUSTOMGRP_GETFIRST, 9},
                                               {LUMENHARBOUR_CUSTOMGRP_GETNEXT, 1},
                                               {LUMENHARBOUR_CUSTOMGRPID_GETAPI, "lab"}};
  for (const auto& [func, index] : requests) {
    Request typed(func, 0, {index}, 9), untyped(func, 0, {index}, "12345678");
    EXPECT_EQ(typed.run(), 0);
    EXPECT_EQ(typed.number(), 3U);
    EXPECT_EQ(untyped.run(), 0);
    EXPECT_EQ(untyped.value(), "12345678");
  }
  EXPECT_EQ(Request(LUMENHARBOUR_CUSTOMGRPID_GETAPI, 0, {std::string(200, 'n')}, 9).run(), -1);

  // A MAC member index stands as two values one after another; the second is left out where there is no room for it.
  for (const size_t spare : {12, 11}) {
    Request mac(LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST, 0, {{ADR_TYPE_INT16, "id"}, room(6)}, "", spare);
    ASSERT_EQ(mac.run(), 0);
    EXPECT_EQ(mac.value(), raw(uint16{3}));
    EXPECT_EQ(mac.value(mac.value_pos + 6), spare == 12 ? "member" : "");
  }
}

}  // namespace
