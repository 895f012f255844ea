// The management client against a scripted peer: bytes sent, replies and failures taken, values read and written.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <thread>

#include "format.h"
#include "lumenharbour_mgmt.h"
#include "request.h"

namespace lumenharbour {
namespace {

std::string frame(const std::string& body) {
  return raw(static_cast<int32>(body.size())) + body;
}

std::string section(char type, const std::string& data) {
  return '\3' + (type + raw(static_cast<uint16>(data.size()))) + data;
}

/// Puts `bytes` into a request that is to become a reply.
std::string patched(std::string body, std::size_t at, const std::string& bytes) {
  return frame(body.replace(at, bytes.size(), bytes));
}

/// What a peer answers to a request's body: frame bytes before it closes; none to wait until the other side closes.
using Script = std::function<std::string(const std::string& body)>;

/// Serves connections on a socket of its own, one after the other, as the daemon does: one receive for the length, one
/// for the body.
class Peer {
 public:
  explicit Peer(Script script) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un addr{AF_UNIX, {}};
    path.copy(addr.sun_path, sizeof addr.sun_path - 1);
    EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr));
    EXPECT_EQ(0, listen(fd_, 9));
    thread_ = std::thread([this, script] {
      for (int fd = 0; (fd = accept(fd_, nullptr, nullptr)) >= 0;) serve(fd, script);
    });
  }
  ~Peer() {
    shutdown(fd_, SHUT_RDWR);
    thread_.join();
    close(fd_);
    unlink(path.c_str());
  }
  Daemon daemon(int timeout_ms = 5000) const { return Daemon({path, timeout_ms}); }

  const std::string path = testing::TempDir() + "ctl_test." + std::to_string(getpid());
  std::string body;  ///< the last request's body, complete once the request returned

 private:
  void serve(int fd, const Script& script) {
    int32 len = 0;
    char bytes[LUMENHARBOUR_MSG_MAX];
    EXPECT_EQ(4, recv(fd, &len, sizeof len, 0));
    EXPECT_EQ(len, recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) << "the body did not arrive together with its length";
    body.assign(bytes, static_cast<std::size_t>(len));
    const std::string reply = script(body);
    if (reply.empty()) recv(fd, bytes, sizeof bytes, 0);
    send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    recv(fd, bytes, sizeof bytes, 0);
    close(fd);
  }
  int fd_;
  std::thread thread_;
};

constexpr Mac MAC = {0x00, 0x1b, 0x21, 0x0a, 0x0b, 0x0c};

TEST(MgmtRequest, BytesOnTheWire) {
  static constexpr MacMemberRow mac_row = {3, MAC};
  static constexpr PidMemberRow pid_row = {3, 5};
  const std::vector<::Value> mac_index = {{ADR_TYPE_INT16, raw(uint16{3})}, octets(raw(MAC))};
  const struct {
    std::function<void(const Daemon&)> send;
    Request request;
  } cases[] = {
      {[](auto& d) { d.get_integer(GlobalRow{}, 1); }, {2, 1, {integer(0)}, integer(0)}},
      {[](auto& d) { d.set_octets(GroupRow{7}, 2, "lab"); }, {13, 2, {integer(7)}, octets("lab")}},
      {[](auto& d) { d.get_octets(BuiltinRow{9}, 4); }, {17, 4, {integer(9)}, room(512)}},
      {[](auto& d) { d.get_octets(ClientRow{8}, 4); }, {21, 4, {integer(8)}, room(512)}},
      {[](auto& d) { d.set_integer(pid_row, 1, 4); }, {10, 1, {integer(3), integer(5)}, integer(4)}},
      {[](auto& d) { d.next(mac_row); }, {4, 0, mac_index, integer(0), 8}},
      {[](auto& d) { d.next(pid_row); }, {8, 0, {integer(3), integer(5)}, integer(0), 8}},
      {[](auto& d) { d.find_group("floor-2"); }, {23, 8, {octets("floor-2")}, integer(0)}},
  };
  for (const auto& c : cases) {
    Peer peer(frame);
    c.send(peer.daemon());
    EXPECT_EQ(c.request.body, peer.body);
  }
}

TEST(MgmtRequest, EachTableHasItsFunctions) {
  std::vector<uint32> asked;
  const Peer peer([&asked](auto& body) {
    memcpy(&asked.emplace_back(), body.data() + 4, sizeof(uint32));
    return frame(body);
  });
  const auto ask = [daemon = peer.daemon()](const auto&... row) {
    daemon.set_integer(GlobalRow{}, 1, 1);
    (daemon.template first<std::decay_t<decltype(row)>>(), ...);
    (daemon.next(row), ...);
    (daemon.get_integer(row, 1), ...);
    (daemon.set_integer(row, 1, 1), ...);
  };
  ask(MacMemberRow{}, PidMemberRow{}, GroupRow{}, BuiltinRow{}, ClientRow{});
  EXPECT_EQ((std::vector<uint32>{1, 3, 7, 11, 15, 19, 4, 8, 12, 16, 20, 5, 9, 14, 17, 21, 6, 10, 13, 18, 22}), asked);
}

/// @return queries for the global attributes 1 to `count`, every second one an octet string.
std::vector<Query> queries(uint32 count) {
  std::vector<Query> all;
  for (uint32 cmd = 1; cmd <= count; cmd++) all.emplace_back(GlobalRow{}, cmd, cmd % 2 == 0);
  return all;
}

TEST(MgmtReply, FailuresAreToldApart) {
  const struct {
    const char* name;
    Script script;
    Status status;
  } cases[] = {
      {"done", frame, Status::done},
      {"code", [](auto& b) { return patched(b, 12, raw(ERR_ZOR_NOTFOUND)); }, Status::refused},
      {"empty reply", [](auto&) { return frame(""); }, Status::undecodable},
      {"cut short", [](auto& b) { return frame(b).substr(0, 40); }, Status::broken},
      {"other length", [](auto& b) { return frame(b + '\0'); }, Status::broken},
      {"bytes behind it", [](auto& b) { return frame(b) + '\0'; }, Status::broken},
      {"negative length", [](auto& b) { return raw(int32{-1}) + b; }, Status::broken},
      {"other function", [](auto& b) { return patched(b, 4, raw(1U)); }, Status::broken},
      {"other value type", [](auto& b) { return patched(b, 34, std::string(1, '\0')); }, Status::broken},
      {"silence", [](auto&) { return ""; }, Status::timed_out},
  };
  for (const auto& c : cases) {
    Peer peer(c.script);
    const Result result = peer.daemon(c.status == Status::timed_out ? 50 : 5000).get_integer(GlobalRow{}, 1);
    EXPECT_EQ(c.status, result.status) << c.name;
    EXPECT_EQ(c.status == Status::refused ? ERR_ZOR_NOTFOUND : 0, result.code) << c.name;
  }
  const Daemon absent({"/no/such/socket", 50});
  std::vector<Query> all = queries(9);
  absent.get_all(all);
  for (const Query& query : all) EXPECT_EQ(Status::unreachable, query.reply.status) << query.cmd;
  EXPECT_EQ(ENOENT, Daemon({std::string(107, 'x')}).find_group("").code);
  EXPECT_EQ(ENAMETOOLONG, Daemon({std::string(108, 'x')}).find_group("").code);
  EXPECT_EQ(Status::unreachable, absent.set_octets(GlobalRow{}, 9, std::string(1481, 'x')).status);
  EXPECT_EQ(Status::unsendable, absent.set_octets(GlobalRow{}, 9, std::string(1482, 'x')).status);
}

TEST(MgmtReply, FailuresAreToldInWords) {
  const Result results[] = {{Status::done},
                            {Status::none},
                            {Status::refused, 7},
                            {Status::refused, ERR_ZOR_NOTSTARTED},
                            {Status::refused, ERR_BARE_NOMEM},
                            {Status::refused, ERR_BARE_INVALID},
                            {Status::undecodable},
                            {Status::broken},
                            {Status::unreachable, ENOENT},
                            {Status::timed_out},
                            {Status::unsendable}};
  std::string said;
  for (const Result& result : results) said += Daemon({"/no/such/socket", 50}).explain(result) + '\n';
  EXPECT_EQ(
      "done\n"
      "there is none\n"
      "the daemon refused it without a reason (code 7)\n"
      "ERR_ZOR_NOTSTARTED: the service is stopped\n"
      "ERR_BARE_NOMEM: there is no free record, or not enough memory\n"
      "ERR_BARE_INVALID: the group type is out of range\n"
      "the daemon could not decode the request\n"
      "the daemon sent a broken reply\n"
      "no daemon reached on /no/such/socket: No such file or directory\n"
      "the daemon on /no/such/socket did not answer within 50 ms\n"
      "the value does not fit a request\n",
      said);
}

TEST(MgmtReply, AFullQueueIsWaitedForAsLongAsForAnAnswer) {
  const std::string path = testing::TempDir() + "ctl_test." + std::to_string(getpid());
  sockaddr_un addr{AF_UNIX, {}};
  path.copy(addr.sun_path, sizeof addr.sun_path - 1);
  const int fds[] = {socket(AF_UNIX, SOCK_STREAM, 0), socket(AF_UNIX, SOCK_STREAM, 0)};
  EXPECT_EQ(0, bind(fds[0], reinterpret_cast<sockaddr*>(&addr), sizeof addr));
  EXPECT_EQ(0, listen(fds[0], 0));
  EXPECT_EQ(0, connect(fds[1], reinterpret_cast<sockaddr*>(&addr), sizeof addr));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Status::timed_out, Daemon({path, 1050}).get_integer(GlobalRow{}, 1).status);
  EXPECT_LE(std::chrono::milliseconds(1050), std::chrono::steady_clock::now() - start);
  unlink(path.c_str());
  for (const int fd : fds) close(fd);
}

TEST(MgmtReply, ValuesComeBack) {
  const std::string row = section(1, raw(uint16{5})) + section(0, raw(MAC));
  const auto member = [&row](auto& b) { return patched(b, 40, row); };
  EXPECT_EQ((MacMemberRow{5, MAC}), Peer(member).daemon().next(MacMemberRow{}).value);
  const auto text = [](auto& b) { return patched(b, 33, section(0, "v2.bin")); };
  EXPECT_EQ("v2.bin", Peer(text).daemon().get_octets(GlobalRow{}, 9).value);
  const auto empty = [](auto& b) { return patched(b, 33, section(0, "")); };
  EXPECT_EQ(Status::done, Peer(empty).daemon().get_octets(GlobalRow{}, 9).status);
  const auto half = [](auto& b) { return patched(b, 40, section(1, raw(uint16{5})) + section(1, raw(MAC))); };
  EXPECT_EQ(Status::broken, Peer(half).daemon().next(MacMemberRow{}).status);
  const auto five = [](auto& b) { return patched(b, b.size() - 4, raw(5U)); };
  EXPECT_EQ(5U, Peer(five).daemon().find_group("floor-2").value.id);
  const auto zero = [](auto& b) { return patched(b, b.size() - 4, raw(0U)); };
  EXPECT_EQ(Status::done, Peer(zero).daemon().free_group().status);
  const auto nobody = [](auto& b) { return patched(b, 12, raw(int32{-1})); };
  EXPECT_EQ(Status::none, Peer(nobody).daemon().find_group("floor-2").status);
  EXPECT_EQ(Status::none, Peer(frame).daemon().free_group().status) << "only a director changes the number";
}

/// Answers with the number of the attribute, which stands at 20; the value section starts at 33.
std::string answer_number(const std::string& body) {
  const std::string cmd = body.substr(20, 4);
  return body[34] == ADR_TYPE_INT32 ? patched(body, 37, cmd) : patched(body, 33, section(0, cmd));
}

TEST(MgmtReply, ManyComeBackInOrder) {
  std::vector<Query> all = queries(30);
  Peer(answer_number).daemon().get_all(all);
  for (const Query& query : all) {
    EXPECT_EQ(Status::done, query.reply.status) << query.cmd;
    EXPECT_EQ(query.is_integer ? Value(query.cmd) : Value(raw(query.cmd)), query.reply.value);
  }
}

TEST(MgmtReply, ManyAreGivenUpTogether) {
  std::vector<Query> all = queries(100);
  std::size_t asked = 0;
  Peer([&asked](auto& b) { return ++asked > 3 ? "" : answer_number(b); }).daemon(500).get_all(all);
  for (const Query& query : all)
    EXPECT_EQ(query.cmd > 3 ? Status::timed_out : Status::done, query.reply.status) << query.cmd;
  EXPECT_LE(asked, 3U + 8U) << "more was asked than was on its way already";
}

TEST(MgmtReply, AnnouncementIsAnsweredByADirectorOnly) {
  const tLumenHarbourClientInfo client = {{}, 7, {}, AF_INET, 1};
  EXPECT_EQ(Status::none, Peer(frame).daemon().announce(client).status);
  const auto refused = [](auto& b) { return patched(b, 12, raw(ERR_BARE_NOMEM)); };
  EXPECT_EQ(Status::refused, Peer(refused).daemon().announce(client).status);
  const auto empty = [](auto& b) { return patched(b, 33, section(0, "")); };
  EXPECT_EQ(Status::broken, Peer(empty).daemon().announce(client).status);
  // The record starts at 37, its lengths and names 28 bytes behind.
  const auto director = [](auto& b) { return patched(b, 65, raw(9U) + raw(0U) + "floor.txt"); };
  const Reply<FileNames> names = Peer(director).daemon().announce(client);
  EXPECT_EQ("floor.txt", names.value.imagelist);
  EXPECT_EQ("", names.value.config);
}

TEST(MgmtFormat, ValuesAreReadAsTheyAreWritten) {
  const auto global = [](uint32 cmd) { return lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd); };
  const auto group = [](uint32 cmd) { return lumenharbour_attr_find(LUMENHARBOUR_TABLE_CUSTOMGRP, cmd); };
  const auto* const mac = lumenharbour_attr_find(LUMENHARBOUR_TABLE_CLIENT, LUMENHARBOUR_CLIENT_MAC);
  const std::string x60(60, 'x');
  const struct {
    const tLumenHarbourAttr* attr;
    std::string text, reads;
    std::vector<std::string> refused;
  } cases[] = {
      {global(LUMENHARBOUR_GLB_MANAGEVLANADD), "5,1,7-9,4095,2", "1-2,5,7-9,4095", {"4096", "5-4", "1,", "1--2", ""}},
      {mac, "10-1B-21-0a-0b-0c", "10:1b:21:0a:0b:0c", {"00:1b:21:0a-0b:0c", "00:1b:21:0a:0b:0g", "0:1b:21:0a:0b:0cc"}},
      {mac, "00:1b:21:0a:0b:0c", "00:1b:21:0a:0b:0c", {"00:1b:21:0a:0b:0cc", "00x1bx21x0ax0bx0c", "00:1b:21:0a:0b"}},
      {mac, "0200.5e00.530C", "02:00:5e:00:53:0c", {"0200.5e00.530c.", "0200.5e00.530", "02005.e00.530c", "0200.5e00"}},
      {mac, "02005E00530D", "02:00:5e:00:53:0d", {"02005E00530", "02005E00530D0", "0x005E00530D"}},
      {mac,
       "2:0:5e:0:53:e",
       "02:00:5e:00:53:0e",
       {":0:5e:0:53:e", "2:0:5e:0:53:e:", "2::5e:0:53:e", "2:0:5e:0:53:e:1"}},
      {global(LUMENHARBOUR_GLB_DIRECTORIP), "192.0.2.1", "192.0.2.1", {"192.0.2", "192.0.2.256", ""}},
      {global(LUMENHARBOUR_GLB_DIRECTORIP), "none", "none", {}},
      {global(LUMENHARBOUR_GLB_DEBUG), "0x3", "3", {"-1", "1 ", "yes"}},
      {global(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE), "no", "no", {"off"}},
      {global(LUMENHARBOUR_GLB_IMAGERELOADTIME), "0X1f", "31", {"1f", "0x", ""}},
      {global(LUMENHARBOUR_GLB_IMAGERELOADTIME), "4294967295", "4294967295", {"4294967296"}},
      {group(LUMENHARBOUR_CUSTOMGRP_STATUS), "deactivate", "inactive", {}},
      {group(LUMENHARBOUR_CUSTOMGRP_STATUS), "inactive", "inactive", {}},
      {group(LUMENHARBOUR_CUSTOMGRP_NAME), x60 + "\x1b[m", x60 + "\\x1b[m", {x60 + "1234"}},
      {group(LUMENHARBOUR_CUSTOMGRP_NAME), "\x1f \x7e\x7f\x80", "\\x1f \x7e\\x7f\\x80", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.reads, format_value(*c.attr, parse_value(*c.attr, c.text).value()));
    for (const std::string& text : c.refused) EXPECT_FALSE(parse_value(*c.attr, text)) << text;
  }
  EXPECT_EQ("none", format_value(*global(LUMENHARBOUR_GLB_DIRECTORIP), std::string())) << "as it reads when not set";
  EXPECT_EQ("?", format_value(*global(LUMENHARBOUR_GLB_DIRECTORIP), std::string("short")));
  EXPECT_EQ("?", format_value(*mac, std::string("short")));
  EXPECT_EQ(std::string(4, '\0'), std::get<std::string>(*parse_value(*global(LUMENHARBOUR_GLB_DIRECTORIP), "none")));
  EXPECT_EQ("0", format_vlans(std::string_view("\x80\xff", 1)));
}

TEST(MgmtFormat, NothingReachesATerminalRaw) {
  constexpr struct {
    std::string_view text, reads;
    bool is_utf8 = true;
  } cases[] = {
      {"\u0080\u009f\u00a0", "\\u{80}\\u{9f}\u00a0"},
      {"\u061b\u061c\u061d\u200d\u200e\u200f\u2010", "\u061b\\u{61c}\u061d\u200d\\u{200e}\\u{200f}\u2010"},
      {"\u2027\u2028\u202e\u202f", "\u2027\\u{2028}\\u{202e}\u202f"},
      {"\u2065\u2066\u2069\u206a", "\u2065\\u{2066}\\u{2069}\u206a"},
      {"\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff", "\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff"},
      {"\xc1\xbf\xe0\x9f\xbf", "\\xc1\\xbf\\xe0\\x9f\\xbf", false},  // in more bytes than needed
      {"\xf0\x8f\xbf\xbf\xed\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf\\xed\\xbf\\xbf", false},
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", false},
      {"\xf8\x88\x80\x80", "\\xf8\\x88\\x80\\x80", false},
      {"\xe2\x82x\x80", "\\xe2\\x82x\\x80", false},
      {"x\xe2\x82", "x\\xe2\\x82", false},
  };
  for (const auto& [text, reads, is_good] : cases) {
    EXPECT_EQ(reads, printable(text));
    EXPECT_EQ(is_good, is_utf8(text)) << reads;
  }
}

TEST(MgmtFormat, EachAttributeTellsWhatItTakes) {
  std::map<std::string, std::string> names;  // by what is expected, how many words there are, and how numbers read
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    std::string takes = expected_value(attr) + " (" + std::to_string(value_words(attr).size()) + ')';
    for (const char* const number : {"0", "1", "2", "3", "4", "5", "15", "16", "255", "256", "4095", "4096"})
      if (const auto value = parse_value(attr, number); value && lumenharbour_value_is_integer(attr.value))
        takes += ' ' + format_value(attr, *value);
    names[takes] += ' ' + std::string(attr.name);
  }
  std::string transcript;
  for (const auto& [takes, of] : names) transcript += takes + ':' + of + '\n';
  EXPECT_EQ(
      "VLAN ids from 0 to 4095 such as 1,5,100-120 (0): management-vlans management-vlans-remove\n"
      "a MAC address such as 00:1b:21:0a:0b:0c (0): mac\n"
      "a number from 0 to 15 (0) 0 1 2 3 4 5 15: director-type\n"
      "a number from 0 to 4095 (0) 0 1 2 3 4 5 15 16 255 256 4095: dhcp-vlan\n"
      "a number from 0 to 4294967295 (0) 0 1 2 3 4 5 15 16 255 256 4095 4096: group-free-id group-max builtin-max "
      "member-max client-max received-image-bytes received-config-bytes config-reload-time image-reload-time ip-type "
      "pid\n"
      "a record (0): announce\n"
      "a text of at most 255 bytes (0): default-image default-config received-image received-config image config image "
      "config\n"
      "a text of at most 63 bytes (0): name\n"
      "an IPv4 address such as 192.0.2.1 (0): ip\n"
      "an IPv4 address such as 192.0.2.1, or none (0): director-address\n"
      "no value (0): client-flush download-config download-image\n"
      "one of activate, create, deactivate, destroy (4) active created inactive destroyed: status status status status "
      "status\n"
      "one of mac, pid, stack, connect, unknown (5) unknown stack mac connect pid: type\n"
      "one of on, off (2) off on 2 3: debug\n"
      "one of on, off (2) on off: service director-state notify config-reload image-reload\n"
      "one of yes, no (2) no yes 2 3: default-image-local default-config-local\n"
      "one of yes, no (2) no yes 2 3 4 5 15 16 255: image-local config-local image-local config-local\n",
      transcript);
}

}  // namespace
}  // namespace lumenharbour
