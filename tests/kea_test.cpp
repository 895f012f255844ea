// What the DHCP server's hook decides: whose packets are ours, what goes into option 43, when the director is asked.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "format.h"
#include "logic.h"

namespace lumenharbour::dhcp {
namespace {

TEST(KeaClient, OursByOption60) {
  const struct {
    std::string_view text;
    std::optional<std::uint32_t> product_id;
  } cases[] = {
      {"LumenHarbour:4711", 4711},
      {"LumenHarbour:4294967295", 4294967295},
      {"LumenHarbour:4294967296", {}},
      {"LumenHarbour:", {}},
      {"LumenHarbour:-1", {}},
      {"LumenHarbour: 7", {}},
      {"LumenHarbour:7 ", {}},
      {"LumenHarbour:0x7", {}},
      {"lumenharbour:7", {}},
      {{"LumenHarbour:7\0", 15}, {}},
      {"LumenHarbour", {}},
      {"udhcp 1.35.0", {}},
      {"xLumenHarbour:7", {}},
      {"", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(c.product_id, product_id_of(c.text)) << c.text;
}

TEST(KeaParameters, AreCheckedByName) {
  const std::string text = "a text of 1 to 255 bytes without control characters";
  const std::string word = "a text without blanks and characters that a shell interprets";
  const std::string address = "an IPv4 address such as \"192.0.2.1\"";
  const std::string ms = "a number of milliseconds from 1 to 60000";
  const std::string seconds = "a number of seconds from 0 to 4294967295";
  const std::string path = "the path of the director's socket, of at most 107 bytes";
  const struct {
    std::string name;
    Parameter value;
    std::string expected;  // empty when the value is good
  } cases[] = {
      {"socket", std::string(107, 'x'), ""},
      {"socket", std::string(108, 'x'), path},
      {"socket", "", path},
      {"timeout-ms", std::int64_t{1}, ""},
      {"timeout-ms", std::int64_t{60000}, ""},
      {"timeout-ms", std::int64_t{0}, ms},
      {"timeout-ms", std::int64_t{60001}, ms},
      {"timeout-ms", "200", ms},
      {"tftp-server", "192.0.2", address},
      {"ftp-server", Parameter(), address},
      {"ftp-password", "a\nb", text},
      {"ftp-password", "a$b", word},
      {"ftp-username", "~a", word},
      {"auth-msg", "a $b", ""},
      {"auth-msg", std::string(255, 'x'), ""},
      {"auth-msg", std::string(256, 'x'), text},
      {"image-file", "", text},
      {"image-file", "v\\1.bin", ""},
      {"reboot-time", std::int64_t{4294967295}, ""},
      {"reboot-time", std::int64_t{4294967296}, seconds},
  };
  for (const auto& [name, value, expected] : cases) {
    Settings settings;
    const std::string wrong = expected.empty() ? "" : "parameter '" + name + "': expected " + expected;
    EXPECT_EQ(wrong, set_parameter(&settings, name, value)) << name;
  }
  Settings settings;
  EXPECT_EQ("parameter 'image-file': it has '$' at byte 2, which a shell interprets; a switch refuses such a name",
            set_parameter(&settings, "image-file", "a$"));
  EXPECT_EQ(
      "parameter 'reboot-tine' is unknown: expected one of socket, timeout-ms, tftp-server, ftp-server, ftp-username, "
      "ftp-password, reboot-time, auth-msg, image-file",
      set_parameter(&settings, "reboot-tine", std::int64_t{1}));
}

TEST(KeaParameters, LeaveAPartOfTheTimeOutToTheServer) {
  Settings settings;
  EXPECT_EQ(190, connection_to_director(settings).timeout_ms);
  settings.director.timeout_ms = 1;
  EXPECT_EQ(1, connection_to_director(settings).timeout_ms);
}

TEST(KeaOption43, HoldsWhatIsGiven) {
  Settings settings;
  EXPECT_EQ(Bytes(), encode_option43(settings, {}));
  set_parameter(&settings, "tftp-server", "192.0.2.1");
  set_parameter(&settings, "reboot-time", std::int64_t{258});
  set_parameter(&settings, "auth-msg", "hi");
  const Bytes expected = {1, 1, 'a', 2, 1, 'b', 4, 4, 192, 0, 2, 1, 8, 4, 0, 0, 1, 2, 9, 2, 'h', 'i'};
  EXPECT_EQ(expected, encode_option43(settings, {"a", "b"}));
  EXPECT_EQ(2U + 255 + 2 + 255 + 16, encode_option43(settings, {std::string(255, 'x'), std::string(255, 'y')}).size());
}

/// @return what a switch's DHCP client hands to its daemon when it is sent that option 43
std::string read_by_switch(const std::string& shell, const Bytes& option43) {
  const std::string file = testing::TempDir() + "dhcp.options." + std::to_string(getpid());
  std::ostringstream hex;
  for (const unsigned byte : option43) hex << std::hex << std::setw(2) << std::setfill('0') << byte;
  setenv("opt43", hex.str().c_str(), 1);
  setenv("LUMENHARBOUR_DHCP_STATE", file.c_str(), 1);
  const std::string command = "LUMENHARBOUR_CONFIGURE=no LUMENHARBOUR_UDHCPC_DIR=/nowhere " + shell + " " UDHCPC_SCRIPT;
  EXPECT_EQ(0, std::system((command + " bound 2>/dev/null").c_str())) << shell;
  std::ostringstream lines;
  lines << std::ifstream(file).rdbuf();
  unlink(file.c_str());
  return lines.str();
}

TEST(KeaOption43, IsWhatTheSwitchReads) {
  Settings settings;
  const std::pair<const char*, Parameter> parameters[] = {
      {"image-file", "v3.bin"},   {"tftp-server", "192.0.2.1"}, {"ftp-server", "198.51.100.2"},
      {"ftp-username", "quay"},   {"ftp-password", "lantern"},  {"reboot-time", std::int64_t{4000000000}},
      {"auth-msg", "$a 'b' \\c"},
  };
  for (const auto& [name, value] : parameters) EXPECT_EQ("", set_parameter(&settings, name, value));
  for (const char* const shell : {"busybox ash", "dash"})
    EXPECT_EQ(
        "imagelist=floor-2.txt\nconfig-file=floor-2.cfg\nimage-file=v3.bin\ntftp-server=192.0.2.1\n"
        "ftp-server=198.51.100.2\nftp-username=quay\nftp-password=lantern\nreboot-time=4000000000\n"
        "auth-msg=$a 'b' \\c\n",
        read_by_switch(shell, encode_option43(settings, {"floor-2.txt", "floor-2.cfg"})));
}

/// @return true when the front of a switch's tools passes an imagelist with that name on
bool is_taken_by_front(const std::string& name) {
  const std::string file = testing::TempDir() + "imagelist." + std::to_string(getpid());
  std::ofstream(file) << "imagefile=" << name << ';';
  const std::string judge = ". " FETCH_SCRIPT "; [ \"$(judge_imagelist " + file + ")\" = good ]";
  const int status = std::system(("sh -c '" + judge + "'").c_str());
  unlink(file.c_str());
  return status == 0;
}

// One rule, in three languages.
TEST(KeaOption43, HasNoWordThatTheSwitchRefuses) {
  for (int i = 0; i <= 0x80; i++) {
    const char c = static_cast<char>(i);
    for (const std::string& word : {std::string{'x', c}, std::string{c, 'x'}}) {
      const bool is_good = fault_of_name(word).empty();
      EXPECT_EQ(is_good, refused_by_switch({"a.txt", word}).empty()) << i;
      EXPECT_EQ(is_good ? "imagelist=" + word + '\n' : "", read_by_switch("dash", encode_option43({}, {word, ""})))
          << i;
      // There ';' ends a name, and the rest is another item.
      EXPECT_EQ(is_good || c == ';', is_taken_by_front(word)) << i;
      Settings settings;
      const bool is_taken = set_parameter(&settings, "ftp-password", word).empty();
      settings.ftp_password = word;
      settings.auth_msg = "a";
      EXPECT_EQ(is_taken ? "ftp-password=" + word + "\nauth-msg=a\n" : "",
                read_by_switch("dash", encode_option43(settings, {})))
          << i;
    }
  }
}

TEST(KeaOption43, RoomIsWhatTheClientTakes) {
  EXPECT_EQ(548U, message_room(std::nullopt));
  EXPECT_EQ(548U, message_room(300)) << "less than every client must take";
  EXPECT_EQ(1472U, message_room(1500));
}

TEST(KeaSubnet, HasItsAddresses) {
  constexpr std::uint32_t address = 0xc0000281;  // 192.0.2.129
  for (const char* const text : {"192.0.2.128/25", "192.0.2.129/32", "192.0.2.77/24", "0.0.0.0/0"})
    EXPECT_TRUE(parse_prefix(text).has(address)) << text;
  for (const char* const text : {"192.0.2.0/25", "192.0.2.128/33", "192.0.2.128", "192.0.2/24", "192.0.2.128/x", ""})
    EXPECT_FALSE(parse_prefix(text).has(address)) << text;
}

TEST(KeaDirector, IsAskedSeldomWhileAway) {
  using namespace std::chrono_literals;
  Director director;
  const Director::Time start{};
  EXPECT_TRUE(director.is_worth_asking(start, 200ms));
  EXPECT_TRUE(director.is_worth_asking(start, 200ms)) << "a director that answers is asked for every packet";
  EXPECT_EQ(Director::News::none, director.answered(true));
  EXPECT_FALSE(director.is_away());
  EXPECT_EQ(Director::News::away, director.answered(false));
  EXPECT_TRUE(director.is_away());
  EXPECT_EQ(Director::News::none, director.answered(false)) << "told once";
  EXPECT_FALSE(director.is_worth_asking(start + 999ms, 200ms));
  EXPECT_FALSE(director.is_worth_asking(start + 999ms, 1ms)) << "once a second, or more seldom";
  EXPECT_TRUE(director.is_worth_asking(start + 1s, 2s));
  EXPECT_FALSE(director.is_worth_asking(start + 1s, 2s)) << "by one thread";
  EXPECT_FALSE(director.is_worth_asking(start + 10s, 2s)) << "most of the time is others'";
  EXPECT_TRUE(director.is_worth_asking(start + 11s, 2s));
  EXPECT_EQ(Director::News::back, director.answered(true));
  EXPECT_TRUE(director.is_worth_asking(start + 11s, 2s));
}

TEST(KeaAnnounced, EndOfAnOldLeaseForgetsNobody) {
  Announced announced;
  const Mac mac = {2, 0, 0, 0, 0, 1};
  EXPECT_TRUE(announced.ends(mac, 1)) << "announced before the server was restarted";
  announced.add(mac, 1);
  announced.add(mac, 2);
  EXPECT_FALSE(announced.ends(mac, 1));
  EXPECT_TRUE(announced.ends(mac, 2));
  announced.add(mac, 3);
  EXPECT_TRUE(announced.ends({2, 0, 0, 0, 0, 2}, 3));
  EXPECT_TRUE(announced.ends(mac, 3));
}

TEST(KeaPace, LetsThroughOnceAMinute) {
  using namespace std::chrono_literals;
  Pace pace;
  const Pace::Time start = Pace::Time{} + 1h;
  EXPECT_TRUE(pace.is_due(start));
  EXPECT_FALSE(pace.is_due(start + 59s));
  EXPECT_TRUE(pace.is_due(start + 60s));
  EXPECT_FALSE(pace.is_due(start + 61s));
}

}  // namespace
}  // namespace lumenharbour::dhcp
