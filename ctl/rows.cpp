#include "rows.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <set>

#include "access.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

/// What to do about a code of the daemon.
struct Remedy {
  int code;
  const char* advice;
};

constexpr char START_SERVICE[] = "start it with 'lumenharbourctl service start'";

constexpr Remedy REMEDIES[] = {
    {ERR_ZOR_NOTFOUND, "'lumenharbourctl show' tells what there is"},
    {ERR_ZOR_EXISTS, "'lumenharbourctl show' tells what there is"},
    {ERR_ZOR_BADLEN, "give a value of the length that the attribute has"},
    {ERR_ZOR_BUFSHORT, "install tool and daemon of one version"},
    {ERR_ZOR_UNSUPPORTED, "'lumenharbourctl attributes' tells what can be read and set, and in which role"},
    {ERR_ZOR_NOTSTARTED, START_SERVICE},
    {ERR_ZOR_NULLINDEX, "install tool and daemon of one version"},
    {ERR_AUTOCFG_NODIRECTORIP,
     "set them with 'lumenharbourctl director address A.B.C.D' and 'lumenharbourctl director type 1'"},
    {ERR_AUTOCFG_IPMISMATCH,
     "give this switch the address, or correct it with 'lumenharbourctl director address A.B.C.D'"},
    {ERR_AUTOCFG_IMAGELIST, "see whether /tmp has room and the daemon may write there"},
    {ERR_AUTOCFG_NOTMACGRP, "groups of type mac have MAC addresses, of type pid product ids"},
    {ERR_AUTOCFG_NOTPIDGRP, "groups of type mac have MAC addresses, of type pid product ids"},
    {ERR_BARE_NOMEM, "delete what is not needed, or save the state and start lumenharbourd with larger pools"},
    {ERR_BARE_INVALID, "the types are unknown, stack, mac, connect and pid"},
};

constexpr char FOREIGN_DAEMON[] = "is it a lumenharbourd of this version that listens there?";

constexpr char BECOME_DIRECTOR[] = "make it with 'lumenharbourctl director address A.B.C.D'";

bool is_on(const Daemon& daemon, uint32 cmd) {
  const Reply<uint32> state = daemon.get_integer(GlobalRow{}, cmd);
  return state && state.value == LUMENHARBOUR_ON;
}

std::string unsupported_advice(const Call& call, const tLumenHarbourAttr* attr) {
  if (attr != nullptr && attr->access == LUMENHARBOUR_ATTR_GET && call.command.changes)
    return "it can be read, not set";
  if (attr != nullptr && attr->access == LUMENHARBOUR_ATTR_SET && !call.command.changes)
    return "it can be set, not read";
  if (attr != nullptr && attr->guard == LUMENHARBOUR_GUARD_CLIENT)
    return std::string("it is set in the client role only") +
           (is_director(call)
                ? ", and this switch is the director; 'lumenharbourctl director stop' ends that, and loses "
                  "its groups and clients"
                : ", and a switch that started with a saved configuration has none");
  return "";
}

std::string refusal_advice(const Call& call, int code, const Row& row, const tLumenHarbourAttr* attr) {
  const bool is_table = row.index() != LUMENHARBOUR_TABLE_GLOBAL;
  if (is_table && code != ERR_ZOR_NOTSTARTED && !is_director(call)) {
    const bool is_started = is_on(call.daemon, LUMENHARBOUR_GLB_STATE);
    return is_started ? std::string(NOT_DIRECTOR) + "; " + BECOME_DIRECTOR
                      : std::string("the service is stopped; ") + START_SERVICE;
  }
  if (code == ERR_ZOR_UNSUPPORTED)
    if (std::string special = unsupported_advice(call, attr); !special.empty()) return special;
  const auto* const known =
      std::find_if(std::begin(REMEDIES), std::end(REMEDIES), [code](const Remedy& r) { return r.code == code; });
  return known == std::end(REMEDIES) ? "" : known->advice;
}

std::string advice_on(const Call& call, const Result& result, const Row& row, const tLumenHarbourAttr* attr) {
  switch (result.status) {
    case Status::unreachable:
      if (result.code == ECONNRESET) return "it ended while it was asked; is it running again?";
      if (result.code == EACCES) return who_may_use(call.args.socket);
      if (result.code != ENOENT && result.code != ECONNREFUSED) return "";
      return "is lumenharbourd running? --socket names another socket";
    case Status::timed_out:
      if (call.daemon.connection().is_over()) return "give it longer with --deadline";
      return "it answers nobody while it fetches a file: try again, or wait longer with --timeout";
    case Status::broken:
    case Status::undecodable:
      return FOREIGN_DAEMON;
    case Status::refused:
      return refusal_advice(call, result.code, row, attr);
    default:
      return "";
  }
}

Exit exit_of(const Result& result) {
  switch (result.status) {
    case Status::done:
      return EXIT_DONE;
    case Status::none:
      return EXIT_NOT_FOUND;
    case Status::unreachable:
      return EXIT_UNREACHABLE;
    case Status::timed_out:
      return EXIT_TIMED_OUT;
    default:
      return result.code == ERR_ZOR_NOTFOUND ? EXIT_NOT_FOUND : EXIT_REFUSED;
  }
}

/// @return a row's key, one or two texts.
std::vector<std::string> key_of(const GlobalRow&) {
  return {};
}
std::vector<std::string> key_of(const GroupRow& row) {
  return {std::to_string(row.id)};
}
std::vector<std::string> key_of(const MacMemberRow& row) {
  return {std::to_string(row.group_id), format_mac(row.mac)};
}
std::vector<std::string> key_of(const PidMemberRow& row) {
  return {std::to_string(row.group_id), std::to_string(row.pid)};
}
std::vector<std::string> key_of(const BuiltinRow& row) {
  return {std::to_string(row.pid)};
}
std::vector<std::string> key_of(const ClientRow& row) {
  return {std::to_string(row.index)};
}

tLumenHarbourTable table_of(const Row& row) {
  return static_cast<tLumenHarbourTable>(row.index());
}

}  // namespace

// ---- Records ----

std::vector<const tLumenHarbourAttr*> attributes_of_rows(tLumenHarbourTable table) {
  std::vector<const tLumenHarbourAttr*> attributes;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    const bool is_readable = (attr.access & LUMENHARBOUR_ATTR_GET) != 0 && attr.value != LUMENHARBOUR_VALUE_RECORD;
    const bool is_constant = attr.table == LUMENHARBOUR_TABLE_CLIENT &&
                             (attr.cmd == LUMENHARBOUR_CLIENT_STATUS || attr.cmd == LUMENHARBOUR_CLIENT_IPTYPE);
    if (attr.table == table && is_readable && !is_constant) attributes.push_back(&attr);
  }
  return attributes;
}

const Value& value_of(const Record& record, uint32 cmd) {
  const std::vector<const tLumenHarbourAttr*> attributes = attributes_of_rows(table_of(record.row));
  std::size_t i = 0;
  while (attributes.at(i)->cmd != cmd) i++;
  return record.values.at(i);
}

uint32 integer_of(const Record& record, uint32 cmd) {
  return std::get<uint32>(value_of(record, cmd));
}

const std::string& octets_of(const Record& record, uint32 cmd) {
  return std::get<std::string>(value_of(record, cmd));
}

Json json_of(const Record& record) {
  Json object = Json::object();
  if (const auto* const group = std::get_if<GroupRow>(&record.row)) object["id"] = group->id;
  if (const auto* const builtin = std::get_if<BuiltinRow>(&record.row)) object["pid"] = builtin->pid;
  if (const auto* const client = std::get_if<ClientRow>(&record.row)) object["index"] = client->index;
  std::size_t i = 0;
  for (const tLumenHarbourAttr* const attr : attributes_of_rows(table_of(record.row)))
    object[field_of(*attr)] = json_of(*attr, record.values[i++]);
  return object;
}

Json members_of(uint32 group_id, const std::vector<MacMemberRow>& macs, const std::vector<PidMemberRow>& pids) {
  Json members = Json::array();
  for (const MacMemberRow& member : macs)
    if (member.group_id == group_id) members.push_back(format_mac(member.mac));
  for (const PidMemberRow& member : pids)
    if (member.group_id == group_id) members.push_back(member.pid);
  return members;
}

// ---- Asking the daemon ----

/// @return a row's key in one number.
uint64_t rank_of(const GroupRow& row) {
  return row.id;
}
uint64_t rank_of(const MacMemberRow& row) {
  uint64_t rank = row.group_id;
  for (const uint8 byte : row.mac) rank = rank << 8 | byte;
  return rank;
}
uint64_t rank_of(const PidMemberRow& row) {
  return uint64_t{row.group_id} << 32 | row.pid;
}
uint64_t rank_of(const BuiltinRow& row) {
  return row.pid;
}
uint64_t rank_of(const ClientRow& row) {
  return row.index;
}

/// Whether a walk gets on: groups and clients come by ascending number, members and built-in groups each once.
template <typename R>
class Progress {
 public:
  /// @return false for a row that must not come behind the others.
  bool takes(const R& row) {
    constexpr bool is_ascending = std::is_same_v<R, GroupRow> || std::is_same_v<R, ClientRow>;
    const uint64_t rank = rank_of(row);
    if (is_ascending && !seen_.empty() && rank <= *seen_.rbegin()) return false;
    return seen_.insert(seen_.end(), rank) != seen_.end() && seen_.size() == ++taken_;
  }

 private:
  std::set<uint64_t> seen_;
  std::size_t taken_ = 0;
};

template <typename R>
std::vector<R> walk(const Call& call) {
  const std::string attempt = std::string("list the ") + TABLES[Row(R{}).index()].rows;
  std::vector<R> rows;
  Progress<R> progress;
  Reply<R> row = call.daemon.first<R>();
  for (; row; row = call.daemon.next(row.value)) {
    if (!progress.takes(row.value))
      throw Failure{EXIT_REFUSED,
                    "cannot " + attempt + ": " + describe(row.value) + " comes again, and the list would never end",
                    FOREIGN_DAEMON};
    rows.push_back(row.value);
  }
  if (row.status != Status::none) check(call, row, attempt);
  return rows;
}

template std::vector<GroupRow> walk(const Call& call);
template std::vector<MacMemberRow> walk(const Call& call);
template std::vector<PidMemberRow> walk(const Call& call);
template std::vector<BuiltinRow> walk(const Call& call);
template std::vector<ClientRow> walk(const Call& call);

std::vector<Record> read_records(const Call& call, const std::vector<Row>& rows) {
  if (rows.empty()) return {};
  const std::vector<const tLumenHarbourAttr*> attributes = attributes_of_rows(table_of(rows.front()));
  std::vector<Query> queries;
  queries.reserve(rows.size() * attributes.size());
  for (const Row& row : rows)
    for (const tLumenHarbourAttr* const attr : attributes)
      queries.emplace_back(row, attr->cmd, lumenharbour_value_is_integer(attr->value));
  call.daemon.get_all(queries);

  std::vector<Record> records;
  auto query = queries.begin();
  for (const Row& row : rows) {
    Record record{row, {}};
    bool is_gone = false;
    for (const tLumenHarbourAttr* const attr : attributes) {
      Reply<Value>& reply = (query++)->reply;
      const bool is_global = attr->table == LUMENHARBOUR_TABLE_GLOBAL;
      is_gone = is_gone || (!is_global && reply.code == ERR_ZOR_NOTFOUND);
      // No free group id is no failure where every attribute is wanted.
      const bool is_none = is_global && reply.code == ERR_BARE_NOMEM;
      if (!is_gone && !is_none) check(call, reply, "get " + describe(call, row, *attr), row, attr);
      record.values.push_back(std::move(reply.value));
    }
    if (!is_gone) records.push_back(std::move(record));
  }
  return records;
}

Record read_record(const Call& call, const Row& row) {
  std::vector<Record> records = read_records(call, {row});
  if (records.empty()) check(call, {Status::refused, ERR_ZOR_NOTFOUND}, "get " + describe(call, row), row);
  return std::move(records.front());
}

bool is_director(const Call& call) {
  return is_on(call.daemon, LUMENHARBOUR_GLB_DIRECTORSTATE);
}

void require_director(const Call& call, const std::string& attempt) {
  const Reply<uint32> director = call.daemon.get_integer(GlobalRow{}, LUMENHARBOUR_GLB_DIRECTORSTATE);
  check(call, director, attempt);
  if (director.value == LUMENHARBOUR_ON) return;
  if (!is_on(call.daemon, LUMENHARBOUR_GLB_STATE)) check(call, {Status::refused, ERR_ZOR_NOTSTARTED}, attempt);
  throw Failure{EXIT_REFUSED, "cannot " + attempt + ": " + NOT_DIRECTOR, BECOME_DIRECTOR};
}

void check(const Call& call, const Result& result, const std::string& attempt, const Row& row,
           const tLumenHarbourAttr* attr) {
  if (result) return;
  throw Failure{exit_of(result), "cannot " + attempt + ": " + call.daemon.explain(result),
                advice_on(call, result, row, attr), result.status == Status::refused ? result.code : 0};
}

void check_deadline(const Call& call, const std::string& attempt) {
  if (call.daemon.connection().is_over()) check(call, {Status::timed_out}, attempt);
}

uint32 group_of(const Call& call, const std::string& word) {
  if (const std::optional<uint32> id = parse_number(word)) return *id;
  const Reply<GroupRow> group = call.daemon.find_group(word);
  const std::string attempt = "find group " + quote(word);
  if (group.status == Status::none) {
    require_director(call, attempt);
    throw Failure{EXIT_NOT_FOUND, "no group has the name " + quote(word), "'lumenharbourctl show group' lists them"};
  }
  check(call, group, attempt, GroupRow{});
  return group.value.id;
}

uint32 client_of(const Call& call, const std::string& word) {
  const std::optional<Mac> mac = parse_mac(word);
  if (const std::optional<uint32> index = parse_number(word); !mac && index) return *index;
  if (!mac)
    throw Failure{EXIT_USAGE, quote(word) + " is no client", "expected an index or a MAC such as 00:1b:21:0a:0b:0c"};
  const std::string wanted(mac->begin(), mac->end());
  for (const Record& client : read_table<ClientRow>(call))
    if (octets_of(client, LUMENHARBOUR_CLIENT_MAC) == wanted) return std::get<ClientRow>(client.row).index;
  require_director(call, "find client " + format_mac(*mac));
  throw Failure{EXIT_NOT_FOUND, "no client has the MAC address " + format_mac(*mac),
                "'lumenharbourctl show client' lists them"};
}

Row row_of(const Call& call) {
  switch (call.command.table) {
    case LUMENHARBOUR_TABLE_CUSTOMGRP:
      return GroupRow{group_of(call, call.args.row)};
    case LUMENHARBOUR_TABLE_BUILTINGRP:
      return BuiltinRow{number_of(call.args.row, "product id")};
    case LUMENHARBOUR_TABLE_CLIENT:
      return ClientRow{client_of(call, call.args.row)};
    default:
      return GlobalRow{};
  }
}

// ---- Words ----

Row member_of(uint32 group_id, const std::string& word) {
  if (const std::optional<Mac> mac = parse_mac(word)) return MacMemberRow{static_cast<uint16>(group_id), *mac};
  if (const std::optional<uint32> pid = parse_number(word)) return PidMemberRow{group_id, *pid};
  throw Failure{EXIT_USAGE, quote(word) + " is no member",
                "expected a MAC address such as 00:1b:21:0a:0b:0c, or a product id"};
}

std::string describe(const Row& row) {
  const std::vector<std::string> key = std::visit([](const auto& of_table) { return key_of(of_table); }, row);
  std::string name = TABLES[row.index()].row;
  if (key.empty()) return name;
  return key.size() == 1 ? name + ' ' + key[0] : name + ' ' + key[1] + " of group " + key[0];
}

std::string describe(const Call& call, const Row& row) {
  std::string text = describe(row);
  const bool has_group = row.index() >= LUMENHARBOUR_TABLE_CUSTOMGRP && row.index() <= LUMENHARBOUR_TABLE_CUSTOMGRPPID;
  if (!has_group || call.args.row.empty() || parse_number(call.args.row)) return text;
  return text.erase(text.rfind(' ') + 1) + call.args.row;
}

std::string describe(const Call& call, const Row& row, const tLumenHarbourAttr& attr) {
  const std::string name = (parse_number(attr.name) ? "attribute " : "") + std::string(attr.name);
  return row.index() == LUMENHARBOUR_TABLE_GLOBAL ? name : name + " of " + describe(call, row);
}

Json attribute_table() {
  constexpr const char* kinds[] = {"none",         "number",      "on/off",    "row status", "text",
                                   "IPv4 address", "MAC address", "VLAN list", "record"};
  constexpr const char* access[] = {"", "read", "write", "read, write"};
  constexpr const char* roles[] = {"any", "client", "director"};
  Json rows = Json::array();
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS) {
    const bool is_set = (attr.access & LUMENHARBOUR_ATTR_SET) != 0;
    rows.push_back({{"table", TABLES[attr.table].name},
                    {"name", std::string(attr.name)},
                    {"number", attr.cmd},
                    {"kind", kinds[attr.value]},
                    {"access", access[attr.access]},
                    {"role", is_set ? roles[attr.guard] : ""}});
  }
  return rows;
}

}  // namespace lumenharbour::ctl
