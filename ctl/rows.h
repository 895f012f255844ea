#pragma once

/// @file
/// Rows of the daemon's tables: naming them, reading them whole, and saying why the daemon refused something about
/// them.

#include <optional>

#include "report.h"

namespace lumenharbour::ctl {

inline constexpr char NOT_DIRECTOR[] = "only the director has groups, clients and defaults, and this switch is not it";

/// How a table is spoken of.
struct Table {
  const char* name;  ///< in the list of attributes and in JSON
  const char* row;   ///< one row
  const char* rows;  ///< its rows
};

/// In the order of `tLumenHarbourTable`.
inline constexpr Table TABLES[] = {
    {"global", "", ""},
    {"group", "group", "groups"},
    {"member mac", "MAC member", "MAC members"},
    {"member pid", "product-id member", "product-id members"},
    {"builtin", "built-in group", "built-in groups"},
    {"client", "client", "clients"},
};

/// A row, and the values of the attributes that `attributes_of_rows` lists for its table.
struct Record {
  Row row;
  std::vector<Value> values;
};

/// @return the attributes of a table that can be read, in the order of their list, without those that every row answers
///         alike.
std::vector<const tLumenHarbourAttr*> attributes_of_rows(tLumenHarbourTable table);

/// @return one value of a record, which must be an attribute of its table that can be read.
const Value& value_of(const Record& record, uint32 cmd);
uint32 integer_of(const Record& record, uint32 cmd);             ///< likewise, for an integer attribute
const std::string& octets_of(const Record& record, uint32 cmd);  ///< likewise, for an octet string

/// @return a record with its key: "id", "pid" or "index".
Json json_of(const Record& record);

/// @return the members that a walk met in a group, as text.
Json members_of(uint32 group_id, const std::vector<MacMemberRow>& macs, const std::vector<PidMemberRow>& pids);

/// @name Asking the daemon
///
/// Each throws a `Failure` when the daemon does not answer as it should.
/// @{

/// @return every key of a table, in the table's order. Also fails when the daemon's list would never end.
template <typename R>
std::vector<R> walk(const Call& call);

/// @return the rows whole, without those that have gone meanwhile.
std::vector<Record> read_records(const Call& call, const std::vector<Row>& rows);

/// @return every row of a table.
template <typename R>
std::vector<Record> read_table(const Call& call) {
  const std::vector<R> rows = walk<R>(call);
  return read_records(call, {rows.begin(), rows.end()});
}

/// @return one row. @throws Failure when there is none.
Record read_record(const Call& call, const Row& row);

/// @return true when the daemon is the director.
bool is_director(const Call& call);

/// Fails unless the daemon is the director. @param[in] attempt  what is tried, as it stands behind "cannot"
void require_director(const Call& call, const std::string& attempt);

/// Fails unless `result` is done.
///
/// @param[in] attempt  what was tried, as it stands behind "cannot"
/// @param[in] row      the row that it was about
/// @param[in] attr     the attribute that it was about, null for none
void check(const Call& call, const Result& result, const std::string& attempt, const Row& row = GlobalRow{},
           const tLumenHarbourAttr* attr = nullptr);

/// Fails when the time is over that the command has as a whole. @param[in] attempt  as for `check`
void check_deadline(const Call& call, const std::string& attempt);

/// @return the group that a word says: an id, or else a name.
uint32 group_of(const Call& call, const std::string& word);

/// @return the client that a word says: an index, or else a MAC address.
uint32 client_of(const Call& call, const std::string& word);

/// @return the row that the command line names.
Row row_of(const Call& call);

/// @}

/// @return the member of a group that a word says: a MAC address, or else a product id. @throws Failure for neither.
Row member_of(uint32 group_id, const std::string& word);

/// @return a row in words, such as "group 3" or "MAC member 00:1b:21:0a:0b:0c of group 3".
std::string describe(const Row& row);

/// @return likewise, with the group as the command line names it: "group floor-2".
std::string describe(const Call& call, const Row& row);

/// @return an attribute of a row in words, such as "service" or "image of group 3"; likewise.
std::string describe(const Call& call, const Row& row, const tLumenHarbourAttr& attr);

/// @return every attribute of every table in words: table, name, number, kind, access, and the role that a set asks
/// for.
Json attribute_table();

}  // namespace lumenharbour::ctl
