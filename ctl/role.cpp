#include "role.h"

namespace lumenharbour::ctl {
namespace {

const tLumenHarbourAttr& attr_of(uint32 cmd) {
  return *lumenharbour_attr_find(LUMENHARBOUR_TABLE_GLOBAL, cmd);
}

uint32 read(const Call& call, uint32 cmd) {
  const Reply<uint32> reply = call.daemon.get_integer(GlobalRow{}, cmd);
  check(call, reply, "look at the role");
  return reply.value;
}

void write(const Call& call, uint32 cmd, uint32 value) {
  const tLumenHarbourAttr& attr = attr_of(cmd);
  check(call, call.daemon.set_integer(GlobalRow{}, cmd, value), "set " + std::string(attr.name), GlobalRow{}, &attr);
}

}  // namespace

std::string role_of(const Call& call) {
  if (read(call, LUMENHARBOUR_GLB_STATE) != LUMENHARBOUR_ON) return "none";
  if (read(call, LUMENHARBOUR_GLB_DIRECTORSTATE) == LUMENHARBOUR_ON) return "director";
  if (call.args.read_only) return "client or none";
  // A switch that started with a saved configuration takes no role, and what is for clients alone tells the two apart:
  // it is refused there, and setting it to what it is changes nothing here.
  const uint32 notify = read(call, LUMENHARBOUR_GLB_CLIENTNOTIFY);
  const Result probe = call.daemon.set_integer(GlobalRow{}, LUMENHARBOUR_GLB_CLIENTNOTIFY, notify);
  if (probe.code == ERR_ZOR_UNSUPPORTED) return "none";
  check(call, probe, "look at the role");
  return "client";
}

bool take_address(const Call& call, const std::string& address) {
  const tLumenHarbourAttr& attr = attr_of(LUMENHARBOUR_GLB_DIRECTORIP);
  check(call, call.daemon.set_octets(GlobalRow{}, attr.cmd, address), "set " + std::string(attr.name), GlobalRow{},
        &attr);
  if (address == std::string(LUMENHARBOUR_IPV4_SIZE, '\0') || is_director(call)) return true;
  // The address alone makes a client the director. A switch without a role has to be told, and is heard only while the
  // address has a type; what matters to nobody else is then put back.
  const bool is_typed = read(call, LUMENHARBOUR_GLB_DIRECTORIPTYPE) != 0;
  if (!is_typed) write(call, LUMENHARBOUR_GLB_DIRECTORIPTYPE, 1);
  const Result result = call.daemon.set_integer(GlobalRow{}, LUMENHARBOUR_GLB_DIRECTORSTATE, LUMENHARBOUR_ON);
  if (!is_typed) write(call, LUMENHARBOUR_GLB_DIRECTORIPTYPE, 0);
  if (result.code == ERR_AUTOCFG_IPMISMATCH) return false;
  check(call, result, "become the director");
  return true;
}

std::string foreign(const std::string& address) {
  return format_value(attr_of(LUMENHARBOUR_GLB_DIRECTORIP), address) +
         " is no address of this switch: it is kept as the director's, and this switch is not the director";
}

}  // namespace lumenharbour::ctl
