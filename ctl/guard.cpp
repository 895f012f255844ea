#include "guard.h"

#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "rows.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

constexpr char LEAVES[] = "this switch leaves the director role";

/// @return true when the daemon is known to have the network of this process. An operator who is not its user, and who
/// may not look, does not know.
bool shares_network(const Call& call) {
  const Reply<uint32> daemon = call.daemon.process();
  check(call, daemon, "find the daemon's process");
  struct stat mine {};
  struct stat its {};
  const std::string path = "/proc/" + std::to_string(daemon.value) + "/ns/net";
  return stat("/proc/self/ns/net", &mine) == 0 && stat(path.c_str(), &its) == 0 && mine.st_ino == its.st_ino &&
         mine.st_dev == its.st_dev;
}

/// @return true when an interface has the address: where the daemon looks too. @param[in] address  4 bytes
bool has_interface(const std::string& address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    sockaddr_in of{};
    std::memcpy(&of, entry->ifa_addr, sizeof of);
    if (std::memcmp(&of.sin_addr, address.data(), LUMENHARBOUR_IPV4_SIZE) == 0) return true;
  }
  return false;
}

/// @return the line that a person types, and nothing of what follows it.
std::string read_answer() {
  std::string answer;
  char c = '\0';
  while (read(STDIN_FILENO, &c, 1) == 1 && c != '\n') answer += c;
  return answer;
}

}  // namespace

std::string Loss::text() const {
  std::vector<std::string> parts;
  const auto add = [&parts](std::size_t count, const char* one, const char* many) {
    if (count > 0) parts.push_back(plural(count, one, many));
  };
  add(groups, "group", "groups");
  add(members, "member", "members");
  add(builtins, "built-in group", "built-in groups");
  add(clients, "client", "clients");
  if (has_defaults) parts.emplace_back("the defaults");
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : &part == &parts.back() ? " and " : ", ") + part;
  return text;
}

Json Loss::json() const {
  return {{"groups", groups},
          {"members", members},
          {"builtins", builtins},
          {"clients", clients},
          {"defaults", has_defaults}};
}

Loss loss_of(const Call& call) {
  if (!is_director(call)) return {};
  const Record globals = read_record(call, GlobalRow{});
  const auto is_set = [&globals](uint32 cmd) {
    const Value& value = value_of(globals, cmd);
    return value != Value(uint32{0}) && value != Value(std::string());
  };
  return {walk<GroupRow>(call).size(), walk<MacMemberRow>(call).size() + walk<PidMemberRow>(call).size(),
          walk<BuiltinRow>(call).size(), walk<ClientRow>(call).size(),
          is_set(LUMENHARBOUR_GLB_DEFAULTIMAGENAME) || is_set(LUMENHARBOUR_GLB_DEFAULTCONFIGNAME) ||
              is_set(LUMENHARBOUR_GLB_DEFAULTIMAGETYPE) || is_set(LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE)};
}

std::string danger_of(const Call& call, const std::string& address) {
  if (address == std::string(LUMENHARBOUR_IPV4_SIZE, '\0')) return LEAVES;
  const std::string text =
      format_value(*lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_DIRECTORIP), address);
  if (!shares_network(call))
    return std::string("unless ") + text + " is an address of the daemon's switch, which cannot be told from here, " +
           "it leaves the director role";
  return has_interface(address) ? "" : text + " is no address of this switch, which leaves the director role";
}

void ask(const Call& call, const std::string& attempt, const std::string& danger, const std::string& advice) {
  if (call.args.force) return;
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
    throw Failure{EXIT_REFUSED, "cannot " + attempt + ": " + danger,
                  advice + (advice.empty() ? "" : "; ") + "--force does it all the same"};
  flush_output();
  const std::string question = printable(danger) + ". Go on? [y/N] ";
  std::fwrite(question.data(), 1, question.size(), stderr);
  const std::string answer = read_answer();
  if (answer != "y" && answer != "Y" && answer != "yes")
    throw Failure{EXIT_REFUSED, "did not " + attempt, "nothing was changed"};
}

void ask_for_loss(const Call& call, const std::string& attempt, const std::string& reason, const Loss& loss) {
  const std::string lost = loss.text();
  if (!lost.empty())
    ask(call, attempt, reason + " and loses " + lost, "'lumenharbourctl save FILE' keeps what can be kept");
}

void guard_set(const Call& call, const tLumenHarbourAttr& attr, const Value& value, const std::string& attempt) {
  if (attr.table != LUMENHARBOUR_TABLE_GLOBAL || call.args.force) return;
  const auto* const number = std::get_if<uint32>(&value);
  const bool is_switch = attr.cmd == LUMENHARBOUR_GLB_STATE || attr.cmd == LUMENHARBOUR_GLB_DIRECTORSTATE;
  if (is_switch && *number != LUMENHARBOUR_ON) ask_for_loss(call, attempt, LEAVES, loss_of(call));
  if (attr.cmd == LUMENHARBOUR_GLB_DIRECTORIP) {
    if (!is_director(call)) return;
    if (const std::string danger = danger_of(call, std::get<std::string>(value)); !danger.empty())
      ask_for_loss(call, attempt, danger, loss_of(call));
  }
  if (attr.cmd == LUMENHARBOUR_GLB_DEBUG && (*number & 1U) != 0 && is_director(call)) {
    const std::size_t builtins = walk<BuiltinRow>(call).size();
    if (builtins > 0)
      ask(call, attempt,
          "there " + std::string(builtins == 1 ? "is " : "are ") +
              plural(builtins, "built-in group", "built-in groups") +
              ", and while debug is on the next client of one ends the daemon",
          "");
  }
}

void guard_builtins(const Call& call, const std::string& attempt) {
  const Reply<uint32> debug = call.daemon.get_integer(GlobalRow{}, LUMENHARBOUR_GLB_DEBUG);
  check(call, debug, attempt);
  if ((debug.value & 1U) != 0)
    ask(call, attempt, "debug is on, and while it is the next client of a built-in group ends the daemon",
        "'lumenharbourctl debug off' switches it off");
}

}  // namespace lumenharbour::ctl
