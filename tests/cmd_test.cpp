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
  const Request get = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, integer(0));
  const Request text = global_get(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, octets("abc"));
  const std::string header[] = {"function", "return code", "command"};
  for (size_t i = 0; i < 3; i++)
    EXPECT_EQ(refusal(spoilt(get, 8 * i, 99)), "[LumenHarbour] Decode " + header[i] + " failed \r\n!");
  EXPECT_EQ(refusal(cut(get, 25)), "[LumenHarbour] Receive length 25 ERROR!\r\n");
  EXPECT_EQ(refusal(spoilt(get, 24, 2)), "[LumenHarbour] Decode index failed, value = 2 \r\n!");
  EXPECT_EQ(refusal(Request(24, 1, {integer(0)}, integer(0))), "[LumenHarbour] Invalid function 24 \r\n!");
  EXPECT_EQ(refusal(Request(0, 1, {integer(0)}, integer(0))), "[LumenHarbour] Invalid function 0 \r\n!");
  EXPECT_EQ(refusal(Request(3, 1, {integer(0)}, integer(0))), "[LumenHarbour] Invalid index number 1 for func 3\r\n!");
  EXPECT_EQ(refusal(spoilt(get, get.value_pos, 4)), "[LumenHarbour] Decode data ERROR, value = 4!");
  EXPECT_EQ(refusal(spoilt(get, get.value_pos + 2, 5)).find("[LumenHarbour] Invalid shortVal "), 0U);
  EXPECT_EQ(refusal(global_get(1, {ADR_TYPE_INT64, "1234567"})), "[LumenHarbour] Invalid shortVal 7, type is 4!");
  EXPECT_EQ(refusal(cut(text, text.body.size() - 1)), "[LumenHarbour] Invalid shortVal 3, type is 0!");
}

TEST_F(CmdTest, RefusesEveryRequestThatIsCutShort) {
  const std::pair<uint32, std::vector<Value>> requests[] = {
      {LUMENHARBOUR_GLOBAL_GETAPI, {integer(0)}},
      {LUMENHARBOUR_CUSTOMGRPMAC_GETNEXT, {{ADR_TYPE_INT16, "id"}, octets("member")}},
      {LUMENHARBOUR_CUSTOMGRPPID_GETFIRST, {integer(1), integer(2)}},
      {LUMENHARBOUR_CUSTOMGRPID_GETAPI, {octets("name")}}};
  for (const auto& [func, items] : requests) {
    for (const Value& value : {integer(1), octets("12345678"), Value{ADR_TYPE_INT64, "12345678"}}) {
      const Request whole(func, 1, items, value);
      for (size_t len = 1; len < whole.body.size(); len++) EXPECT_NE(refusal(cut(whole, len)), "") << len;
      Request run = whole;
      run.run();
      EXPECT_EQ(run.reply_len, static_cast<int32>(whole.body.size()));
    }
  }
}

TEST_F(CmdTest, RepliesInPlaceWithTheRequestsLength) {
  Request number = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, integer(7));
  ASSERT_EQ(number.run(), 0);
  EXPECT_EQ(number.reply_len, static_cast<int32>(number.body.size()));
  EXPECT_EQ(number.number(), 100U);

  Request wide = global_get(LUMENHARBOUR_GLB_CLIENTMAXNUM, {ADR_TYPE_INT64, std::string(8, 'x')});
  ASSERT_EQ(wide.run(), 0);
  EXPECT_EQ(wide.value(), raw(uint32{100}) + "xxxx");  // the high word is the value

  strcpy(gLumenHarbourInfo.default_image_name, "fw.bin");
  Request text = global_get(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, room(255));
  ASSERT_EQ(text.run(), 0);
  EXPECT_EQ(text.value(), "fw.bin");
  EXPECT_EQ(text.body.size(), text.value_pos + 4 + 255);

  Request refused = global_get(LUMENHARBOUR_GLB_DEFAULTIMAGENAME, room(254));
  const std::string before = refused.body;
  EXPECT_EQ(refused.run(), ERR_ZOR_BUFSHORT);
  EXPECT_EQ(refused.body.substr(16), before.substr(16));
}

TEST_F(CmdTest, AValueOfTheWrongKindNeverReachesAHandler) {
  const Value wrong_for_integers[] = {octets("ABCDEFGH"), {ADR_TYPE_INT16, "AB"}, {9, ""}};
  const Value wrong_for_octets[] = {integer(0x41414141), {ADR_TYPE_INT64, "AAAAAAAA"}, {ADR_TYPE_INT16, "AA"}};
  lumenharbour_custom_grp_add(1)->status = 2;
  lumenharbour_builtin_grp_add(1)->status = 2;
  lumenharbour_client_add();
  const struct {
    tLumenHarbourTable table;
    uint32 set, get, index;
  } tables[] = {{LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLOBAL_SETAPI, LUMENHARBOUR_GLOBAL_GETAPI, 0},
                {LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_SETAPI, LUMENHARBOUR_CUSTOMGRP_GETAPI, 1},
                {LUMENHARBOUR_TABLE_BUILTINGRP, LUMENHARBOUR_BUILTINGRP_SETAPI, LUMENHARBOUR_BUILTINGRP_GETAPI, 1},
                {LUMENHARBOUR_TABLE_CLIENT, LUMENHARBOUR_CLIENT_SETAPI, LUMENHARBOUR_CLIENT_GETAPI, 0}};
  int tried = 0;
  for (const auto& [table, set, get, index] : tables) {
    for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
      const bool deletes = table == LUMENHARBOUR_TABLE_CLIENT && attr.cmd == LUMENHARBOUR_CLIENT_STATUS;
      if (attr.table != table || attr.value == LUMENHARBOUR_VALUE_IGNORED || deletes) continue;
      const bool is_integer = lumenharbour_value_is_integer(attr.value);
      for (const Value& value : is_integer ? wrong_for_integers : wrong_for_octets) {
        for (const uint32 func : {set, get}) {
          EXPECT_EQ(Request(func, attr.cmd, {integer(index)}, value).run(), ERR_ZOR_UNSUPPORTED) << attr.name;
          tried++;
        }
      }
    }
  }
  EXPECT_GT(tried, 150);
  EXPECT_EQ(gLumenHarbourInfo.enable, 1U);
}

TEST_F(CmdTest, WalksWriteIndexesOnlyIntoRoomOfTheirType) {
  lumenharbour_custom_grp_add(3)->status = 2;
  tLumenHarbourGrpEntry* grp = lumenharbour_custom_grp_lookup(3);
  strcpy(grp->name, "lab");
  const uint8 mac[] = {1, 2, 3, 4, 5, 6};
  lumenharbour_custom_mac_add(grp, mac);

  Request first(LUMENHARBOUR_CUSTOMGRP_GETFIRST, 0, {integer(9)}, integer(9));
  ASSERT_EQ(first.run(), 0);
  EXPECT_EQ(first.number(), 3U);
  Request named(LUMENHARBOUR_CUSTOMGRPID_GETAPI, 0, {octets("lab")}, integer(9));
  ASSERT_EQ(named.run(), 0);
  EXPECT_EQ(named.number(), 3U);
  Request unnamed(LUMENHARBOUR_CUSTOMGRPID_GETAPI, 0, {octets(std::string(200, 'n'))}, integer(9));
  EXPECT_EQ(unnamed.run(), -1);
  for (const uint32 func : {LUMENHARBOUR_CUSTOMGRP_GETFIRST, LUMENHARBOUR_CUSTOMGRPID_GETAPI}) {
    Request untyped(func, 0, {func == LUMENHARBOUR_CUSTOMGRPID_GETAPI ? octets("lab") : integer(0)},
                    octets("12345678"));
    EXPECT_EQ(untyped.run(), 0);
    EXPECT_EQ(untyped.value(), "12345678");
  }

  // A MAC member index stands as two values one after another; the second is left out where there is no room for it.
  const std::vector<Value> start = {{ADR_TYPE_INT16, raw(uint16{0})}, octets(std::string(6, '\0'))};
  grp->custom_type = LUMENHARBOUR_CUSTOMGRP_TYPE_MAC;
  Request both(LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST, 0, start, octets(""), 12);
  ASSERT_EQ(both.run(), 0);
  EXPECT_EQ(both.value(), raw(uint16{3}));
  EXPECT_EQ(both.value(both.value_pos + 6), std::string(mac, mac + 6));
  Request one(LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST, 0, start, octets(""), 11);
  ASSERT_EQ(one.run(), 0);
  EXPECT_EQ(one.body.substr(one.value_pos + 6), std::string(9, '\0'));

  grp->custom_type = LUMENHARBOUR_CUSTOMGRP_TYPE_PID;
  Request pid(LUMENHARBOUR_CUSTOMGRPPID_GETNEXT, 0, {integer(3), integer(7)}, integer(0), 8);
  EXPECT_EQ(pid.run(), -1);
  Request pids(LUMENHARBOUR_CUSTOMGRPPID_GETFIRST, 0, {integer(0), integer(0)}, integer(0), 8);
  ASSERT_EQ(pids.run(), 0);
  EXPECT_EQ(pids.number(), 3U);
  EXPECT_EQ(pids.value(pids.value_pos + 8), std::string(mac, mac + 4));
}

}  // namespace
