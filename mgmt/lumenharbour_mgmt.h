#pragma once

/// @file
/// The client side of the management socket, for tools and for a DHCP server's hook.
///
/// A `Daemon` says where the daemon is; each of its verbs is one request on one connection, which is the protocol. The
/// library keeps nothing between requests, prints nothing, never ends the process and starts no thread; its socket is
/// close-on-exec and a peer that goes away raises no signal. One object may be used from several threads at once.
///
///     lumenharbour::Daemon daemon;
///     for (auto row = daemon.first<lumenharbour::GroupRow>(); row; row = daemon.next(row.value))
///       use(daemon.get_octets(row.value, LUMENHARBOUR_CUSTOMGRP_NAME));

#include <array>
#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "lumenharbour_protocol.h"

namespace lumenharbour {

/// Where the daemon is and how long it may take.
struct Connection {
  std::string socket_path = LUMENHARBOUR_SOCKET_PATH;  ///< the daemon's listening socket, at most 107 bytes
  int timeout_ms = 5000;  ///< milliseconds for one request as a whole, 1 or more. The daemon serves one request at a
                          ///< time and none while it fetches a file.
  /// Bounds all requests together, beside the time for each: none is waited for any longer.
  std::optional<std::chrono::steady_clock::time_point> deadline = {};

  /// @return true when the deadline has passed.
  bool is_over() const { return deadline && std::chrono::steady_clock::now() >= *deadline; }
};

/// How a request ended.
enum class Status {
  done,         ///< the daemon did it
  none,         ///< the daemon answered that there is none: end of a walk, no group of that name, not the director
  refused,      ///< the daemon refused it with a code, see `Result::code`
  undecodable,  ///< the daemon could not decode the request and sent an empty reply
  broken,       ///< the reply ends early, or does not answer the request
  unreachable,  ///< no connection, or one that ended without a reply, see `Result::code`
  timed_out,    ///< no connection or no whole reply in time; what the daemon made of the request is unknown
  unsendable,   ///< the value does not fit a request; nothing was sent
};

/// Outcome of a request that hands nothing back.
struct Result {
  Status status = Status::done;
  int code = 0;  ///< `refused`: the daemon's code, see `find_code`; `unreachable`: errno; else 0

  /// @return true when the request was done.
  explicit operator bool() const { return status == Status::done; }
};

/// Outcome of a request that hands a value back.
template <typename T>
struct Reply : Result {
  T value{};  ///< meaningful when `status` is `done`
};

/// What a code of the daemon means; texts are static.
struct Code {
  int code;
  const char* name;     ///< such as "ERR_ZOR_NOTFOUND"
  const char* meaning;  ///< the cause in an operator's words
};

/// @return what the daemon's code means, or null for one without a name.
const Code* find_code(int code);

/// A MAC address.
using Mac = std::array<uint8, LUMENHARBOUR_MAC_SIZE>;

/// @name Row keys, one type for each table
/// @{

/// The global attributes.
struct GlobalRow {
  bool operator==(const GlobalRow&) const = default;
};

/// A custom group.
struct GroupRow {
  uint32 id = 0;
  bool operator==(const GroupRow&) const = default;
};

/// A MAC address in a custom group.
struct MacMemberRow {
  uint16 group_id = 0;
  Mac mac{};
  bool operator==(const MacMemberRow&) const = default;
};

/// A product id in a custom group.
struct PidMemberRow {
  uint32 group_id = 0;
  uint32 pid = 0;
  bool operator==(const PidMemberRow&) const = default;
};

/// The built-in group of a product id.
struct BuiltinRow {
  uint32 pid = 0;
  bool operator==(const BuiltinRow&) const = default;
};

/// A client switch, by its place in the director's database.
struct ClientRow {
  uint32 index = 0;
  bool operator==(const ClientRow&) const = default;
};

/// @}

/// A row of any table; `index()` is its `tLumenHarbourTable`.
using Row = std::variant<GlobalRow, GroupRow, MacMemberRow, PidMemberRow, BuiltinRow, ClientRow>;

static_assert(std::is_same_v<std::variant_alternative_t<LUMENHARBOUR_TABLE_CUSTOMGRP, Row>, GroupRow>);
static_assert(std::is_same_v<std::variant_alternative_t<LUMENHARBOUR_TABLE_CUSTOMGRPMAC, Row>, MacMemberRow>);
static_assert(std::is_same_v<std::variant_alternative_t<LUMENHARBOUR_TABLE_CUSTOMGRPPID, Row>, PidMemberRow>);
static_assert(std::is_same_v<std::variant_alternative_t<LUMENHARBOUR_TABLE_BUILTINGRP, Row>, BuiltinRow>);
static_assert(std::is_same_v<std::variant_alternative_t<LUMENHARBOUR_TABLE_CLIENT, Row>, ClientRow>);

/// An attribute's value as it travels: an integer or an octet string, by the attribute's kind.
using Value = std::variant<uint32, std::string>;

/// One of many attributes to read at once.
struct Query {
  Query(Row of, uint32 attr, bool integer) : row(of), cmd(attr), is_integer(integer) {}

  Row row;             ///< whose attribute
  uint32 cmd;          ///< the attribute's number in the row's table
  bool is_integer;     ///< false for an octet string
  Reply<Value> reply;  ///< out: how it ended, and the value
};

/// What the director wants a client to fetch; either name may be empty.
struct FileNames {
  std::string imagelist;  ///< imagelist file, at most 255 bytes
  std::string config;     ///< configuration file, at most 255 bytes
};

/// A daemon, reached through its management socket. Every verb may block for the connection's time-out; each may end in
/// any `Status` but `none`, which only the verbs that say so return.
class Daemon {
 public:
  explicit Daemon(Connection connection = {}) : connection_(std::move(connection)) {}

  /// Reads an integer attribute.
  ///
  /// @param[in] row  whose attribute
  /// @param[in] cmd  the attribute's number in the row's table
  /// @return the value; 0 where the daemon has none and says so with success
  Reply<uint32> get_integer(const Row& row, uint32 cmd) const;

  /// Reads an attribute that is an octet string: a name without terminator, an address, a bitmap.
  ///
  /// @param[in] row   whose attribute
  /// @param[in] cmd   the attribute's number in the row's table
  /// @param[in] room  most bytes wanted. The daemon asks for 255 to read a file name, and fills a VLAN bitmap as far as
  ///                  there is room.
  /// @return the bytes; none for a director address that is not set
  Reply<std::string> get_octets(const Row& row, uint32 cmd, uint16 room = LUMENHARBOUR_VLANLIST_SIZE) const;

  /// Reads many attributes, in order, about twice as fast as one by one: the next requests wait at the daemon's door
  /// while it serves one. After a failure to reach the daemon, or to get its answer in time, the rest is not asked and
  /// ends alike.
  ///
  /// @param[in,out] queries  what to read; each receives its reply, octet strings as `get_octets` hands them back
  void get_all(std::span<Query> queries) const;

  /// Sets an integer attribute; also one whose value the daemon ignores.
  ///
  /// The daemon accepts a director's attribute in another role and changes nothing: see `tLumenHarbourGuard`.
  Result set_integer(const Row& row, uint32 cmd, uint32 value) const;

  /// Sets an attribute that is an octet string. A name longer than its attribute's room is cut by the daemon.
  Result set_octets(const Row& row, uint32 cmd, std::string_view value) const;

  /// Finds the first row of a table.
  ///
  /// @tparam R  any row type but `GlobalRow`
  /// @return the row; `none` for an empty table, and for every table of a daemon that is not the director
  template <typename R>
  Reply<R> first() const;

  /// Finds the row after `row`, in the table's order. A member that its group lists more than once is met once.
  ///
  /// @return the row; `none` at the end, and for members also when `row` is gone; `refused` with `ERR_ZOR_NOTFOUND`
  ///         when a built-in group `row` is gone
  template <typename R>
  Reply<R> next(const R& row) const;

  /// Finds a custom group by its name. @return the group; `none` when no group has the name.
  Reply<GroupRow> find_group(std::string_view name) const;

  /// Finds the lowest custom group id that is free.
  ///
  /// @return the id; `none` when the daemon is not the director; `refused` with `ERR_BARE_NOMEM` when all are taken
  Reply<GroupRow> free_group() const;

  /// Announces a client switch to the director, as the DHCP server does, or has it forgotten.
  ///
  /// @param[in] client  the client; `op` 0 deletes it
  /// @return the names that the client is to fetch. Both are empty when the director has none for it, when its database
  ///         is full, and after a deletion. `none` when the daemon is not the director (a deletion does not tell).
  Reply<FileNames> announce(const tLumenHarbourClientInfo& client) const;

  /// Finds out which process the daemon is.
  ///
  /// @return its process id, as the kernel tells it of whoever listens; 0 where it is none of this process' namespace
  Reply<uint32> process() const;

  /// @return a result in an operator's words, part of a sentence, for a message or a log.
  std::string explain(const Result& result) const;

  /// @return where the daemon is.
  const Connection& connection() const { return connection_; }

 private:
  Reply<uint32> read_integer(const Row& row, uint32 cmd, uint32 unset) const;

  template <typename R>
  Reply<R> walk(uint32 func, const R& row) const;

  Connection connection_;
};

}  // namespace lumenharbour
