#include <unistd.h>

#include <span>

#include "fake_platform.h"
#include "request.h"

namespace {

constexpr uint32 OWN = ip4('o', 'w', 'n', 1);
const std::string OWN_IP = "own\1", FOREIGN_IP = "away", NO_IP(4, '\0');
constexpr uint32 TOO_MANY = 0xFFFFFFFF;  // records: no machine has the memory
constexpr int NONE = ERR_ZOR_NOTFOUND, EXISTS = ERR_ZOR_EXISTS, BAD = ERR_ZOR_UNSUPPORTED, SHORT = ERR_ZOR_BUFSHORT;
constexpr uint32 GLOBAL_SET = LUMENHARBOUR_GLOBAL_SETAPI, GLOBAL_GET = LUMENHARBOUR_GLOBAL_GETAPI,
                 GROUP_SET = LUMENHARBOUR_CUSTOMGRP_SETAPI, GROUP_GET = LUMENHARBOUR_CUSTOMGRP_GETAPI,
                 MAC_SET = LUMENHARBOUR_CUSTOMGRPMAC_SETAPI, MAC_GET = LUMENHARBOUR_CUSTOMGRPMAC_GETAPI,
                 PID_SET = LUMENHARBOUR_CUSTOMGRPPID_SETAPI, PID_GET = LUMENHARBOUR_CUSTOMGRPPID_GETAPI,
                 BUILTIN_SET = LUMENHARBOUR_BUILTINGRP_SETAPI, BUILTIN_GET = LUMENHARBOUR_BUILTINGRP_GETAPI,
                 CLIENT_SET = LUMENHARBOUR_CLIENT_SETAPI, CLIENT_GET = LUMENHARBOUR_CLIENT_GETAPI;
constexpr uint32 STATUS = 1;  // attribute of every row

tLumenHarbourInfo& info = gLumenHarbourInfo;
const std::string AND = "\r\n[LumenHarbour] ";  // between two messages

/// The row that the steps of a function are about, and its messages.
struct Row {
  uint32 read;  ///< function that reads what this one sets; 0: this one reads
  std::vector<Value> index;
  std::string banner, result;
  std::string usual = "";  ///< what a step says that tells nothing else; behind "= " stands the row status
};

const std::vector<Value> MEMBER = {{ADR_TYPE_INT16, raw(uint16{3})}, "member"};
const std::string LOOK = "Lookup a client entry, index is 0.";
const std::map<uint32, Row> ROWS = {
    {GLOBAL_SET, {GLOBAL_GET, {0}, " Global set: ", ""}},
    {GLOBAL_GET, {0, {0}, " Global get: ", " Global get: "}},
    {GROUP_SET, {GROUP_GET, {3}, " Custom group set: group index = 3, ", " Custom group set: ", "Status = "}},
    {GROUP_GET, {0, {3}, " Custom group get: group id = 3, ", " Custom group get: "}},
    {MAC_SET,
     {MAC_GET, MEMBER, " Custom group mac set: group id = 3, mac = 6d:65:6d:62:65:72, ",
      " Custom group mac set: ", "Rowstatus = "}},
    {MAC_GET, {0, MEMBER, " Custom group mac get: group id = 3, mac = 6d:65:6d:62:65:72, ", "Custom group mac get: "}},
    {PID_SET,
     {PID_GET, {3, 7}, " Custom group pid set: group id = 3, pid = 7, ", " Custom group pid set: ", "Rowstatus = "}},
    {PID_GET, {0, {3, 7}, " Custom group pid get: group id = 3, pid = 7, ", " Custom group pid get: "}},
    {BUILTIN_SET, {BUILTIN_GET, {500}, " Builtin group set: pid = 500, ", ""}},
    {BUILTIN_GET, {0, {500}, " Builtin group get: pid = 500, ", ""}},
    {CLIENT_SET, {CLIENT_GET, {0}, "  Client set: index = 0, ", "", LOOK}},
    {CLIENT_GET, {0, {0}, " Client get: index = 0, ", "", LOOK}},
};

/// One request, and all that comes of it.
struct Step {
  uint32 cmd;
  Value value;
  int rc = 0;
  std::string reads = "";  ///< the value read, after a set by a read of its own; empty: the value as it was sent
  std::string says = "";   ///< messages between banner and result
};

int run(uint32 func, const std::vector<Value>& index, const Value& value, uint32 cmd = STATUS) {
  return Request(func, cmd, index, value).run();
}

class NmTest : public DaemonTest {
 protected:
  static void play(uint32 func, std::span<const Step> steps) {
    const auto& [read, index, banner, result, usual] = ROWS.at(func);
    for (const auto& [cmd, value, rc, reads, says] : steps) {
      std::string line = says.empty() ? usual : says;
      if (line.ends_with("= ")) line = cmd == STATUS ? line + value.text() + "." : "";
      std::string messages = "[LumenHarbour]" + banner + "cmd = " + std::to_string(static_cast<long>(cmd)) + ".\r\n";
      if (!line.empty()) messages += "[LumenHarbour] " + line + "\r\n";
      if (!result.empty()) messages += "[LumenHarbour]" + result + "rc = " + std::to_string(rc) + ".\r\n";
      // A value of the other kind never gets to the handler, but for one that looks at none.
      const Value wrong = value.type == ADR_TYPE_INT32 ? Value("12345678") : Value(0x41414141);
      if (rc == 0 && func != CLIENT_SET) {
        EXPECT_EQ(run(func, index, wrong, cmd), BAD) << messages;
      }
      Request request(func, cmd, index, value);
      request.body += "what is behind a value is not of it";
      fake.output.clear();
      info.debug = 1;
      EXPECT_EQ(request.run(), rc) << messages;
      info.debug = 0;
      EXPECT_EQ(fake.output, messages);
      EXPECT_EQ(request.section().text(), read != 0 || reads.empty() ? value.text() : reads) << messages;
      if (read != 0 && !reads.empty()) play(read, {cmd, value.type == ADR_TYPE_INT32 ? 0 : room(255), 0, reads});
    }
  }
  static void play(uint32 func, const Step& step) { play(func, std::span(&step, 1)); }

  static int set(uint32 cmd, const Value& value) { return global_set(cmd, value).run(); }
  static int set_ip(const std::string& bytes) { return set(LUMENHARBOUR_GLB_DIRECTORIP, bytes); }
  static std::string get(uint32 cmd, const Value& value) {
    Request request = global_get(cmd, value);
    EXPECT_EQ(request.run(), 0) << cmd;
    return request.section().text();
  }
  static bool timer_runs() { return timerListNextTimeout(&info.timer_list) != TIMER_NONE; }
  void start_client() { ASSERT_EQ(set(LUMENHARBOUR_GLB_STATE, 1), 0); }
  void become_director() {
    fake.own_addresses[OWN] = 5;
    start_client();
    ASSERT_EQ(set_ip(OWN_IP), 0);
    ASSERT_EQ(info.role, LUMENHARBOUR_ROLE_DIRECTOR);
  }

  /// @return the rows from the front, and the code that ends the walk. @param[in] first  followed by its get-next
  static std::string walk(uint32 first, std::vector<Value> index = {0}) {
    std::string rows;
    Request request(first, 0, index, 0, 16);
    int rc;
    for (; (rc = request.run()) == 0; request = Request(first + 1, 0, index, 0, 16)) {
      size_t pos = request.value_pos;
      for (Value& item : index) {
        item = request.section(pos);
        pos += ADR_ELEMENT_HEAD + item.data.size();
        rows += item.text() + " ";
      }
    }
    return rows + std::to_string(rc);
  }
  static std::string mac_walk() { return walk(LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST, MEMBER); }
  static std::string pid_walk() { return walk(LUMENHARBOUR_CUSTOMGRPPID_GETFIRST, {0, 0}); }
  static std::string group_walk() { return walk(LUMENHARBOUR_CUSTOMGRP_GETFIRST); }
  static std::string builtin_walk() { return walk(LUMENHARBOUR_BUILTINGRP_GETFIRST); }
  static std::string client_walk() { return walk(LUMENHARBOUR_CLIENT_GETFIRST); }
};

TEST_F(NmTest, AStoppedServiceTakesOnlyStateAndDebug) {
  constexpr uint32 STATE = LUMENHARBOUR_GLB_STATE;
  for (const uint32 cmd : {0, 4, 34, 35})
    play(GLOBAL_SET, {cmd, "1234", 65536022, "", "Please start lumenharbour globally!"});
  for (const uint32 off : {0U, 2U, 0x101U}) {
    play(GLOBAL_SET, {STATE, off, 0, "2"});
    EXPECT_FALSE(timer_runs());
    EXPECT_EQ(set(LUMENHARBOUR_GLB_DEBUG, 6), 0);
    EXPECT_EQ(get(LUMENHARBOUR_GLB_DEBUG, 0), "2");
    for (int again = 0; again < 2; again++) play(GLOBAL_SET, {STATE, 1, 0, "1"});
  }
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  for (const uint32 cmd : {0U, 24U, 34U, 35U, 0xFFFFFFFF}) play(GLOBAL_SET, {cmd, 1, BAD});
}

TEST_F(NmTest, TheDirectorAddressDecidesTheRole) {
  constexpr uint32 ADDRESS = LUMENHARBOUR_GLB_DIRECTORIP;
  start_client();
  for (const char* wrong : {"123", "12345"}) play(GLOBAL_SET, {ADDRESS, wrong, ERR_ZOR_BADLEN});
  play(GLOBAL_SET, {ADDRESS, NO_IP});
  play(GLOBAL_SET, {ADDRESS, FOREIGN_IP, 0, FOREIGN_IP, "Failed to get ifunit from director-ip!"});
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  EXPECT_TRUE(timer_runs());
  info.debug = 1;
  become_director();
  EXPECT_TRUE(fake.output.ends_with("4.\r\n[LumenHarbour] The device becomes the director!\n\r")) << fake.output;
  info.debug = 0;
  fake.own_addresses[0] = 9;  // 0 stands for no address, whatever the platform says
  for (const std::string& leave : {FOREIGN_IP, NO_IP}) {
    EXPECT_FALSE(timer_runs());  // the client role was stopped
    EXPECT_EQ(get(ADDRESS, room(4)), OWN_IP);
    EXPECT_EQ(get(ADDRESS, "abc"), "abc");
    fake.own_addresses[OWN] = 6;
    EXPECT_EQ(set_ip(OWN_IP), 0);
    EXPECT_EQ(info.if_unit, 5U);  // the director keeps the unit that it started on
    EXPECT_EQ(set_ip(leave), 0);
    EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
    EXPECT_EQ(info.client_tbl, nullptr);
    EXPECT_EQ(get(ADDRESS, room(4)), leave == NO_IP ? "" : leave);
    EXPECT_FALSE(timer_runs());  // the client role waits for management
    become_director();
  }

  set_ip(NO_IP);
  info.builtin_grp_max_num = TOO_MANY;  // a director role that cannot start leaves the address behind
  EXPECT_EQ(set_ip(OWN_IP), ERR_BARE_NOMEM);
  EXPECT_EQ(info.director_ip, OWN);
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
}

TEST_F(NmTest, TheDirectorStateNeedsAnOwnAddressAndLeavesTheClientRolesTimer) {
  constexpr uint32 STATE = LUMENHARBOUR_GLB_DIRECTORSTATE, TYPE = LUMENHARBOUR_GLB_DIRECTORIPTYPE;
  start_client();
  const Step unset = {STATE, 1, 65929217, "", "Director IP is not configured!"};
  const Step foreign = {
      STATE, 1, 65929218, "",
      "Get ifunit from director ip failed!" + AND + "The director IP doesn't match the switch IP address!"};
  const Step stop = {STATE, 0, 0, "2",
                     "Remove imagelsit file: ." + AND + "Flush director database." + AND + "Free memory."};
  const Step type_first[] = {{TYPE, 0x1E, 0, "14"}, unset};
  play(GLOBAL_SET, type_first);
  set_ip(OWN_IP);
  const Step then_address[] = {foreign, {TYPE, 0x10, 0, "0"}, unset, {TYPE, 1, 0, "1"}};
  play(GLOBAL_SET, then_address);
  fake.own_addresses[OWN] = 5;
  const Step on[] = {{STATE, 2, 0, "2"}, {STATE, 1, 0, "1"}};
  play(GLOBAL_SET, on);
  EXPECT_EQ(info.if_unit, 5U);
  EXPECT_TRUE(timer_runs());
  fake.own_addresses.clear();
  const Step off[] = {{STATE, 1, 0, "1"}, stop};  // it is the director already
  play(GLOBAL_SET, off);
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
  fake.own_addresses[OWN] = 5;
  info.builtin_grp_max_num = TOO_MANY;
  EXPECT_EQ(set(STATE, 1), ERR_BARE_NOMEM);
  EXPECT_EQ(info.role, LUMENHARBOUR_ROLE_CLIENT);
}

TEST_F(NmTest, RoleGuardsDiffer) {
  start_client();
  play(GLOBAL_GET, {LUMENHARBOUR_GLB_CUSTOMGRPFREEID, 9});
  // 7 to 10 are the director's: accepted without effect.
  const Step steps[] = {{7, 1, 0, "0"},  {8, 1, 0, "0"}, {9, "fw.bin", 0, ""}, {10, "c.cfg", 0, ""}, {19, 2, 0, "2"},
                        {19, 1, 0, "1"}, {29, 1, 0, ""}, {30, 70, 0, ""},      {33, 80, 0, ""}};
  play(GLOBAL_SET, steps);
  for (const uint32 cmd : {9, 10}) EXPECT_EQ(get(cmd, room(255)), "");
  for (const uint32 image : {0U, 1U}) {
    EXPECT_EQ(info.config_reload, 1 - image);
    EXPECT_EQ(info.image_reload, image);
    EXPECT_EQ(set(LUMENHARBOUR_GLB_CONFIGRELOADSTATE, 2), 0);
    EXPECT_EQ(set(LUMENHARBOUR_GLB_IMAGERELOADSTATE, 1), 0);
  }
  EXPECT_EQ(info.config_reload_time, 70U);
  EXPECT_EQ(info.image_reload_time, 80U);

  become_director();
  for (const uint32 cmd : {19, 28, 29, 30, 31, 32, 33})
    play(GLOBAL_SET, {cmd, 1, BAD, "", "Global set: the role is not client!"});
  play(GLOBAL_GET, {LUMENHARBOUR_GLB_CUSTOMGRPFREEID, 9, 0, "0"});
  play(GLOBAL_SET, {LUMENHARBOUR_GLB_DEFAULTIMAGETYPE, 5, 0, "1"});
  play(GLOBAL_SET, {LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE, 6, 0, "2"});
}

TEST_F(NmTest, DefaultNamesAreClampedAndRewriteTheDefaultImagelist) {
  constexpr uint32 IMAGE = LUMENHARBOUR_GLB_DEFAULTIMAGENAME;
  become_director();
  std::string longer(300, 'n');
  octetstring octet = {reinterpret_cast<uint8*>(longer.data()), 300};
  EXPECT_EQ(lumenharbourSetApi(nullptr, IMAGE, &octet), 0);
  EXPECT_EQ(octet.len, 255U);  // the caller is told
  longer.resize(255);
  play(GLOBAL_GET, {IMAGE, room(255), 0, longer});
  play(GLOBAL_GET, {IMAGE, room(254), SHORT});
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "imagefile=" + longer + ";\n");
  EXPECT_EQ(set(IMAGE, ""), 0);
  EXPECT_EQ(read_file("/tmp/imagelist.txt"), "<none>");
  fake.free_memory = 0;
  EXPECT_EQ(set(IMAGE, "fw.bin"), ERR_AUTOCFG_IMAGELIST);
  EXPECT_STREQ(info.default_image_name, "");
  play(GLOBAL_SET, {LUMENHARBOUR_GLB_DEFAULTCONFIGNAME, "c.cfg", 0, "c.cfg"});
}

TEST_F(NmTest, VlansStayInsideTheirList) {
  constexpr uint32 ADD = LUMENHARBOUR_GLB_MANAGEVLANADD, DEL = LUMENHARBOUR_GLB_MANAGEVLANDEL;
  start_client();
  const std::string whole(1400, '\xFF');
  for (const char* bits : {"\x40", "\x03"}) play(GLOBAL_SET, {ADD, bits});  // adds to what is there
  play(GLOBAL_SET, {DEL, "\x81"});
  play(GLOBAL_GET, {ADD, room(2), 0, {"\x42\0", 2}});
  play(GLOBAL_GET, {DEL, "\x81\x18", 0, "\xC3\x18"});  // and so does a read
  play(GLOBAL_SET, {ADD, whole});
  play(GLOBAL_GET, {DEL, room(513), 0, whole.substr(0, 512) + '\0'});
  play(GLOBAL_SET, {DEL, whole});
  play(GLOBAL_GET, {ADD, room(512), 0, std::string(512, '\0')});
  EXPECT_EQ(info.dhcp_client_vlan, 1U);  // the field behind the list
  fake.vlan_units = {{7, 70}};
  for (const uint32 vlan : {7, 8}) play(GLOBAL_SET, {LUMENHARBOUR_GLB_DHCPCLIENTVLAN, vlan, 0, "7"});  // there is no 8
  EXPECT_EQ(info.dhcp_client_vlan, 70U);
}

TEST_F(NmTest, AManualDownloadRunsAtTheNextCheck) {
  for (const bool image : {true, false}) {
    start_client();
    write_file("/tmp/old.bin", "x");
    strcpy(info.local_image_name, "/tmp/old.bin");
    fake.advance(5900);
    EXPECT_EQ(set(image ? LUMENHARBOUR_GLB_DOWNLOADIMAGE : LUMENHARBOUR_GLB_DOWNLOADCONFIG, 0), 0);
    EXPECT_EQ(info.upgrade_mode, LUMENHARBOUR_UPGRADE_MANUAL);
    EXPECT_EQ(info.upgrade_image, 1U);  // a request for the other file stands
    EXPECT_EQ(info.upgrade_config, image ? 0U : 1U);
    EXPECT_EQ(read_file("/tmp/old.bin"), "<none>");
    EXPECT_EQ(timerListNextTimeout(&info.timer_list), 6000U);
    lumenharbour_disable();
  }
}

TEST_F(NmTest, AnnouncedClientsComeBackInTheirRecordAndBecomeRows) {
  constexpr uint32 CALLBACK = LUMENHARBOUR_GLB_CALLBACK, IP = LUMENHARBOUR_CLIENT_IP, MAC = LUMENHARBOUR_CLIENT_MAC,
                   PID = LUMENHARBOUR_CLIENT_PID, IPTYPE = LUMENHARBOUR_CLIENT_IPTYPE;
  become_director();
  const std::tuple<uint32, Value> lab[] = {{STATUS, 2}, {2, "lab"}, {3, 2}, {7, "c.cfg"}, {STATUS, 1}};
  for (const auto& [cmd, value] : lab) run(GROUP_SET, {3}, value, cmd);
  run(MAC_SET, MEMBER, 2);
  tLumenHarbourCallback record = {{{'1', '2', '3', '4'}, 12, {'m', 'e', 'm', 'b', 'e', 'r'}, 2, 1}, 256, 5, {}, {}};
  const std::string sent = raw(record), client = " a client: mac 6d:65:6d:62:65:72, pid 12.",
                    remove = AND + "Delete a client entry, index is 0.";
  record.imagefile_len = 7;
  memcpy(record.imagefile_name, "lab.txt", 7);
  memcpy(record.configfile_name, "c.cfg", 5);
  const Step add = {CALLBACK, sent, 0, raw(record),
                    "Lumenharbour client callback: add" + client + AND +
                        "Lookup a group for the client 6d:65:6d:62:65:72." + AND + "Lookup the best custom group lab." +
                        AND + "Split the file: /tmp/lab.txt to path and name."};
  record.client_info.op = 0;
  for (const uint32 func : {CLIENT_SET, CLIENT_GET})
    play(func, {STATUS, 4, NONE, "", LOOK + AND + "This client entry does not exist!"});
  play(GLOBAL_GET, add);
  const Step reads[] = {
      {0, 0, BAD, ""},          {STATUS, 0, 0, "1"},       {IPTYPE, 0, 0, "1"},         {IP, "abc", 0, "abc"},
      {IP, room(4), 0, "1234"}, {MAC, room(5), SHORT, ""}, {MAC, room(6), 0, "member"}, {PID, 0, 0, "12"}};
  play(CLIENT_GET, reads);
  play(GLOBAL_GET, {CALLBACK, raw(record), 0, "", "Lumenharbour client callback: delete" + client + remove});
  play(GLOBAL_GET, add);
  play(CLIENT_SET, {PID, 7, BAD});
  play(CLIENT_SET, {STATUS, 0, 0, "", LOOK + remove});  // whatever the value
  for (const std::string& wrong : {sent.substr(1), sent + "x"}) play(GLOBAL_GET, {CALLBACK, wrong, SHORT});

  // A name that is not wanted: nothing is stored, and the answer is still success.
  for (const auto len : {&tLumenHarbourCallback::imagefile_len, &tLumenHarbourCallback::configfile_len}) {
    memcpy(&record, sent.data(), sizeof(record));
    record.*len = 0;
    EXPECT_EQ(get(CALLBACK, raw(record)), raw(record));
    EXPECT_EQ(client_walk(), "-1");
  }
}

TEST_F(NmTest, GroupsAndMembersTellWhatTheyDo) {
  constexpr uint32 NAME = LUMENHARBOUR_CUSTOMGRP_NAME, TYPE = LUMENHARBOUR_CUSTOMGRP_TYPE,
                   IMAGETYPE = LUMENHARBOUR_CUSTOMGRP_IMAGETYPE, CONFIGTYPE = LUMENHARBOUR_CUSTOMGRP_CONFIGTYPE,
                   IMAGENAME = LUMENHARBOUR_CUSTOMGRP_IMAGENAME, CONFIGNAME = LUMENHARBOUR_CUSTOMGRP_CONFIGNAME;
  become_director();
  const std::string longest(63, 'g'), longer = longest + "ggggggg",
                                      remove = AND + "Remove imagelsit file: /tmp/lab.txt.",
                                      write = "Status = 1." + AND + "Create imagelsit file: /tmp/lab.txt." + AND +
                                              "Write imagelsit file: len 18, buffer: imagefile=fw.bin;\n.";
  play(GROUP_SET, {NAME, "lab", NONE, "", "Custom group does not exist!"});
  play(GROUP_GET, {STATUS, 0, NONE, "", "Custom group does not exist!"});
  for (const uint32 func : {MAC_SET, MAC_GET})
    play(func, {STATUS, 2, NONE, "", "This custom mac group does not exist!"});
  for (const uint32 func : {PID_SET, PID_GET}) play(func, {STATUS, 2, NONE, "", "This Pid group does not exist!"});
  const Step sets[] = {{STATUS, 1, NONE},
                       {STATUS, 2, 0, "2"},
                       {NAME, longer, 0, longest, "Group name: name " + longer + ", len 70."},
                       {NAME, "lab", 0, "lab", "Group name: name lab, len 3."},
                       {NAME, "lab", 0, "lab", "Group name: name lab, len 3."},  // its own
                       {IMAGENAME, "fw.bin", 0, "fw.bin", "Imagelist name: len 6, name fw.bin."},
                       {CONFIGNAME, "sw.cfg", 0, "sw.cfg", "Configfile name: len 6, name sw.cfg."},
                       {STATUS, 1, 0, "1", write}};
  play(GROUP_SET, sets);
  EXPECT_EQ(read_file("/tmp/lab.txt"), "imagefile=fw.bin;\n");
  const Step numbers[] = {
      {STATUS, 2, EXISTS, ""},      {STATUS, 0, BAD, ""}, {STATUS, 5, BAD, ""}, {IMAGETYPE, 0x102, 0, "2"},
      {CONFIGTYPE, 0xFF, 0, "255"}, {8, 1, BAD, ""},      {TYPE, 5, 22, ""},    {TYPE, 0, 0, "0"}};
  play(GROUP_SET, numbers);
  EXPECT_EQ(info.custom_grp_tbl[3].imagefile_is_local, 2);
  const Step rooms[] = {
      {NAME, room(62), SHORT, ""}, {NAME, room(63), 0, "lab"}, {IMAGENAME, room(254), SHORT, ""}, {0, 1, BAD, ""}};
  play(GROUP_GET, rooms);

  play(MAC_SET, {STATUS, 2, 65929220, "", "The type of the custom group is not MAC!"});
  play(MAC_GET, {STATUS, 0, NONE, "", "This mac does not exist!"});
  play(PID_SET, {STATUS, 2, 65929221, "", "The type of the custom group is not product ID!"});
  play(PID_GET, {STATUS, 0, NONE, "", "This Pid does not exist!"});
  play(GROUP_SET, {TYPE, 4, 0, "4"});
  play(PID_SET, {2, 2, NONE, "", "This Pid does not exist!"});
  play(PID_SET, {STATUS, 2, 0, "1"});
  play(PID_SET, {STATUS, 3});
  play(GROUP_SET, {TYPE, 2, 0, "2"});
  const Step members[] = {{STATUS, 4, NONE, ""}, {STATUS, 2, 0, "1"},  {STATUS, 1, 0, "1"}, {STATUS, 3, 0, "1"},
                          {2, 2, BAD, ""},       {STATUS, 0, BAD, ""}, {STATUS, 5, BAD, ""}};
  play(MAC_SET, members);  // added twice, deleted once
  play(MAC_GET, {2, 2, BAD});

  play(GROUP_SET, {STATUS, 3, 0, "3", "Status = 3." + remove});
  EXPECT_EQ(read_file("/tmp/lab.txt"), "<none>");
  fake.free_memory = 18;
  play(GROUP_SET, {STATUS, 1, 65929219, "", write + AND + "Ram disk is full!" + remove});
  play(GROUP_GET, {STATUS, 0, 0, "3"});
  play(GROUP_SET, {STATUS, 4, 0, "", "Status = 4." + remove});
  play(GROUP_SET, {STATUS, 4, NONE});
  EXPECT_EQ(run(GROUP_SET, {10}, 2), ERR_BARE_NOMEM);
}

TEST_F(NmTest, BuiltinGroupsTellWhatTheyDo) {
  become_director();
  const std::string remove = "Remove imagelsit file: /tmp/built_in0.txt.",
                    write = "Create imagelsit file: /tmp/built_in0.txt." + AND +
                            "Write imagelsit file: len 14, buffer: imagefile=os;\n.";
  for (const uint32 func : {BUILTIN_SET, BUILTIN_GET})
    play(func, {LUMENHARBOUR_BUILTINGRP_IMAGETYPE, 1, NONE, "", "This built-in group does not exist!"});
  const Step steps[] = {{STATUS, 1, NONE, ""}, {STATUS, 2, 0, "2"},        {2, 0x103, 0, "3"}, {3, 0x102, 0, "2"},
                        {4, "os", 0, "os"},    {5, "sw.cfg", 0, "sw.cfg"}, {6, 1, BAD, ""}};
  play(BUILTIN_SET, steps);
  EXPECT_EQ(info.builtin_grp_tbl[0].imagefile_is_local, 3);
  const Step life[] = {
      {STATUS, 1, 0, "1", write}, {STATUS, 3, 0, "3", remove}, {STATUS, 4, 0, "", remove}, {STATUS, 4, NONE}};
  play(BUILTIN_SET, life);
  for (int pid = 500; pid < 511; pid++) EXPECT_EQ(run(BUILTIN_SET, {pid}, 2), pid < 510 ? 0 : ERR_BARE_NOMEM);
}

/// @return what a dump prints; pointers and record sizes, which differ from system to system, as a star.
std::string dump(void (*show)()) {
  testing::internal::CaptureStdout();
  show();
  std::string text = testing::internal::GetCapturedStdout();
  for (const std::string name : {"p_grp = ", "size = "})
    for (size_t at = 0; (at = text.find(name, at)) != text.npos;) {
      at += name.size();
      text.replace(at, text.find_first_not_of("0123456789abcdef", at) - at, "*");
    }
  return text;
}

TEST_F(NmTest, WalksAndDumpsGoByPlaceAndMembersFromTheNewest) {
  constexpr uint32 TYPE = LUMENHARBOUR_CUSTOMGRP_TYPE, NAME = LUMENHARBOUR_CUSTOMGRP_NAME;
  const auto mac = [](uint16 grp, const char* text) { return std::vector<Value>{{ADR_TYPE_INT16, raw(grp)}, text}; };
  info.custom_grp_max_num = info.builtin_grp_max_num = info.client_max_num = 10;
  start_client();  // no pools
  for (int round = 0; round < 2; round++) {
    for (const auto walk : {group_walk, mac_walk, pid_walk, builtin_walk, client_walk}) EXPECT_EQ(walk(), "-1");
    for (const auto show : {lumenharbour_custom_grp_show, lumenharbour_builtin_grp_show, lumenharbour_client_show})
      EXPECT_EQ(dump(show), "");
    become_director();
  }
  for (const int id : {4, 1, 7}) EXPECT_EQ(run(GROUP_SET, {id}, 2), 0);
  EXPECT_EQ(run(GROUP_SET, {4}, "lab", NAME), 0);
  EXPECT_EQ(run(GROUP_SET, {1}, "lab", NAME), ERR_ZOR_EXISTS);
  EXPECT_EQ(group_walk(), "1 4 7 -1");
  EXPECT_EQ(run(LUMENHARBOUR_CUSTOMGRP_GETNEXT, {5}, 0), 0);
  EXPECT_EQ(run(LUMENHARBOUR_CUSTOMGRP_GETNEXT, {-1}, 0), -1);

  for (const auto& [id, type] : {std::pair(1, 2), std::pair(4, 2), std::pair(7, 4)}) run(GROUP_SET, {id}, type, TYPE);
  for (const char* text : {"mac..a", "mac..b", "mac..a", "mac..c"}) EXPECT_EQ(run(MAC_SET, mac(1, text), 2), 0);
  EXPECT_EQ(run(MAC_SET, mac(4, "mac..a"), 2), 0);
  for (const int pid : {100, 101, 100}) EXPECT_EQ(run(PID_SET, {7, pid}, 2), 0);
  EXPECT_EQ(mac_walk(), "1 mac..c 1 mac..a 1 mac..b 4 mac..a -1");  // the duplicate is passed over
  EXPECT_EQ(pid_walk(), "7 100 7 101 -1");
  EXPECT_EQ(run(MAC_SET, mac(1, "mac..c"), 3), 0);
  EXPECT_EQ(run(MAC_SET, mac(1, "mac..a"), 4), 0);
  EXPECT_EQ(mac_walk(), "1 mac..b 1 mac..a 4 mac..a -1");
  EXPECT_EQ(run(LUMENHARBOUR_CUSTOMGRPMAC_GETNEXT, mac(1, "mac..c"), 0), -1);
  // Walks follow a group's present type, whatever its members were added as.
  run(GROUP_SET, {1}, 4, TYPE);
  EXPECT_EQ(mac_walk(), "4 mac..a -1");
  EXPECT_EQ(pid_walk(), "1 " + std::to_string(unraw<uint32>("mac.")) + " 7 100 7 101 -1");
  run(GROUP_SET, {1}, 4);
  for (int pid = 0; pid < 7; pid++) EXPECT_EQ(run(PID_SET, {7, pid}, 2), pid < 6 ? 0 : ERR_BARE_NOMEM);
  for (int pid = 0; pid < 6; pid++) EXPECT_EQ(run(PID_SET, {7, pid}, 4), 0);

  uint32 value = 0;
  for (const auto call : {lumenharbourCustomGrpMacSetApi, lumenharbourCustomGrpMacGetApi})
    EXPECT_EQ(call(nullptr, STATUS, &value), ERR_ZOR_NULLINDEX);
  for (const auto call : {lumenharbourCustomGrpPidSetApi, lumenharbourCustomGrpPidGetApi})
    EXPECT_EQ(call(nullptr, STATUS, &value), ERR_ZOR_NULLINDEX);

  for (const int pid : {500, 600, 400}) EXPECT_EQ(run(BUILTIN_SET, {pid}, 2), 0);
  EXPECT_EQ(run(BUILTIN_SET, {600}, 4), 0);
  EXPECT_EQ(builtin_walk(), "500 400 -1");
  EXPECT_EQ(run(LUMENHARBOUR_BUILTINGRP_GETNEXT, {600}, 0), ERR_ZOR_NOTFOUND);

  for (int i = 0; i < 3; i++) lumenharbour_client_add()->ip = OWN;
  EXPECT_EQ(lumenharbourClientSetApi(1, STATUS, nullptr), 0);  // whatever the value
  EXPECT_EQ(client_walk(), "0 2 -1");
  EXPECT_EQ(run(LUMENHARBOUR_CLIENT_GETNEXT, {-1}, 0), -1);

  run(GROUP_SET, {4}, 1);
  run(GROUP_SET, {4}, "fw.bin", LUMENHARBOUR_CUSTOMGRP_IMAGENAME);
  run(GROUP_SET, {4}, "c.cfg", LUMENHARBOUR_CUSTOMGRP_CONFIGNAME);
  info.client_tbl[2].pid = 9;
  memcpy(info.client_tbl[2].mac, "member", 6);
  const std::string no_files = "image_name = \n\rconfig_name = \n\rimagelist_name = \n\rp_grp = *\n\r\n\r";
  EXPECT_EQ(dump(lumenharbour_custom_grp_show),
            "id = 4, type = 2, name = lab\n\rimage_name = fw.bin\n\rconfig_name = c.cfg\n\r"
            "imagelist_name = /tmp/lab.txt\n\rp_grp = *\n\r\n\r mac = 6d:61:63:2e:2e:61"
            "id = 7, type = 4, name = \n\r" +
                no_files + " pid = 100\n\r pid = 101\n\r pid = 100");
  EXPECT_EQ(dump(lumenharbour_builtin_grp_show), "id = 0, pid = 500, type = 2, name = built_in0\n\r" + no_files +
                                                     "id = 2, pid = 400, type = 2, name = built_in2\n\r" + no_files);
  EXPECT_EQ(dump(lumenharbour_client_show),
            "\n\r index 2, pid 9, ip = 111.119.110.1, mac = 6d:65:6d:62:65:72"
            "\n\r index 0, pid 0, ip = 111.119.110.1, mac = 00:00:00:00:00:00");
  EXPECT_EQ(dump(lumenharbour_mem_show),
            "client_free_tbl = 7\n\r client_used_tbl = 2\n\r custom_grp_free_tbl = 8\n\r custom_grp_used_tbl = 2\n\r "
            "builtin_grp_free_tbl = 8\n\r builtin_grp_used_tbl = 2\n\r grpid_free_tbl = 6\n\r \n\r grp size = *"
            "\n\r grp-id size = *\n\r client entry size = *\n\r");
  EXPECT_EQ(set(LUMENHARBOUR_GLB_DBFLUSH, 0), 0);
  EXPECT_EQ(client_walk(), "-1");
}

TEST_F(NmTest, TheGlobalRecordIsReadAndPrinted) {
  info.custom_grp_max_num = 4;
  become_director();
  const std::pair<char*, const char*> texts[] = {
      {info.ftp_username, "user"},           {info.ftp_password, "secret"},      {info.auth_msg, "hello"},
      {info.rcv_imagelist_name, "r.txt"},    {info.rcv_image_name, "r.bin"},     {info.image_version, "1.0"},
      {info.rcv_config_name, "r.cfg"},       {info.local_imagelist_name, "l.t"}, {info.local_image_name, "l.b"},
      {info.local_config_name, "l.c"},       {info.default_image_name, "d.bin"}, {info.default_config_name, "d.cfg"},
      {info.default_imagelist_name, "d.txt"}};
  for (const auto& [field, text] : texts) strcpy(field, text);
  const std::pair<uint32*, uint32> fields[] = {{&info.grpid_max_num, 11},  {&info.client_max_num, 14},
                                               {&info.image_file_rcv, 22}, {&info.config_file_rcv, 23},
                                               {&info.ftp_server, 0xA0B},  {&info.reboot_time, 30}};
  for (const auto& [field, number] : fields) *field = number;
  info.tftp_support = info.default_imagelist_local = 1;
  info.default_config_local = 2;
  info.default_image_local = 3;
  EXPECT_EQ(dump(lumenharbour_show),
            " enable: 1 \n\r role: 2 \n\r grpid_max_num: 11 \n\r custom_grp_max_num: 4 \n\r"
            " builtin_grp_max_num: 10 \n\r client_max_num: 14 \n\r io_default_path: /tmp \n\r"
            " sys_mac: 00:11:22:33:44:55 \n\r\n\r"
            " director ip: 6f776e01 \n\r if_unit: 5 \n\r ftp_server: a0b \n\r ftp_username: user \n\r"
            " ftp_password: secret \n\r\n\r"
            " rcv_imagelist_name: r.txt \n\r rcv_image_name: r.bin \n\r image_version: 1.0 \n\r"
            " rcv_config_name: r.cfg \n\r auth_msg: hello \n\r\n\r"
            " local_imagelist_name: l.t \n\r local_image_name: l.b \n\r local_config_name: l.c \n\r\n\r"
            " upgrade_image: 0 \n\r tftp_support: 1 \n\r reboot_time: 30 \n\r reboot_flag: 0 \n\r\n\r"
            " default_imagelist_name: d.txt \n\r default_imagelist_local: 1 \n\r default_config_name: d.cfg \n\r"
            " default_config_local: 2 \n\r default_image_name: d.bin \n\r default_image_local: 3 \n\r\n\r");
  const Step numbers[] = {{7, 0, 0, "3"},   {8, 0, 0, "2"},   {11, 0, 0, "4"},  {12, 0, 0, "10"},
                          {13, 0, 0, "11"}, {14, 0, 0, "14"}, {22, 0, 0, "22"}, {23, 0, 0, "23"}};
  play(GLOBAL_GET, numbers);
  for (const auto& [cmd, name] :
       {std::pair(9, "d.bin"), std::pair(10, "d.cfg"), std::pair(20, "r.bin"), std::pair(21, "r.cfg")})
    play(GLOBAL_GET, {static_cast<uint32>(cmd), room(255), 0, name});
}

}  // namespace
