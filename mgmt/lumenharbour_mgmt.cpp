#include "lumenharbour_mgmt.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>

#include "zor_codec.h"
#include "zor_fd.h"

namespace lumenharbour {
namespace {

/// What the name look-up and the walks answer when there is none.
constexpr int NO_ROW = -1;

/// The functions of one table; 0: the table has no such function.
struct Functions {
  uint32 first;
  uint32 next;
  uint32 get;
  uint32 set;
};

/// In the order of `tLumenHarbourTable`.
constexpr Functions FUNCTIONS[] = {
    {0, 0, LUMENHARBOUR_GLOBAL_GETAPI, LUMENHARBOUR_GLOBAL_SETAPI},
    {LUMENHARBOUR_CUSTOMGRP_GETFIRST, LUMENHARBOUR_CUSTOMGRP_GETNEXT, LUMENHARBOUR_CUSTOMGRP_GETAPI,
     LUMENHARBOUR_CUSTOMGRP_SETAPI},
    {LUMENHARBOUR_CUSTOMGRPMAC_GETFIRST, LUMENHARBOUR_CUSTOMGRPMAC_GETNEXT, LUMENHARBOUR_CUSTOMGRPMAC_GETAPI,
     LUMENHARBOUR_CUSTOMGRPMAC_SETAPI},
    {LUMENHARBOUR_CUSTOMGRPPID_GETFIRST, LUMENHARBOUR_CUSTOMGRPPID_GETNEXT, LUMENHARBOUR_CUSTOMGRPPID_GETAPI,
     LUMENHARBOUR_CUSTOMGRPPID_SETAPI},
    {LUMENHARBOUR_BUILTINGRP_GETFIRST, LUMENHARBOUR_BUILTINGRP_GETNEXT, LUMENHARBOUR_BUILTINGRP_GETAPI,
     LUMENHARBOUR_BUILTINGRP_SETAPI},
    {LUMENHARBOUR_CLIENT_GETFIRST, LUMENHARBOUR_CLIENT_GETNEXT, LUMENHARBOUR_CLIENT_GETAPI, LUMENHARBOUR_CLIENT_SETAPI},
};

const Functions& functions_of(const Row& row) {
  return FUNCTIONS[row.index()];
}

/// One message as it travels: the length and the body in one piece, since the daemon takes the body in one receive.
struct Frame {
  int32 len = 0;
  uint8 body[LUMENHARBOUR_MSG_MAX];

  uint32 size() const { return static_cast<uint32>(offsetof(Frame, body)) + static_cast<uint32>(len); }
};

static_assert(offsetof(Frame, body) == sizeof(int32));

/// A point in time that a request must not outlast.
class Deadline {
 public:
  Deadline() = default;
  explicit Deadline(int ms) : end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(ms)) {}
  explicit Deadline(std::chrono::steady_clock::time_point end) : end_(end) {}

  /// @return milliseconds left, rounded up; 0 when the time is over.
  int left() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

/// A request under construction, and what is needed to read its reply. Elements go in in the order of the message.
class Request {
 public:
  Request(uint32 func, uint32 cmd) : func_(func), cmd_(cmd) {
    element(ADR_TAG_FUNC, ADR_TYPE_INT32, &func, sizeof func);
    element(ADR_TAG_RETCODE, ADR_TYPE_INT32, nullptr, sizeof(int32));
    element(ADR_TAG_CMD, ADR_TYPE_INT32, &cmd, sizeof cmd);
  }

  void index(const GlobalRow&) {
    index_section(0);
    item(ADR_TYPE_INT32, nullptr, sizeof(uint32));  // read by the decoder although not counted
  }
  void index(const GroupRow& row) { unit(row.id); }
  void index(const BuiltinRow& row) { unit(row.pid); }
  void index(const ClientRow& row) { unit(row.index); }
  void index(const MacMemberRow& row) {
    index_section(2);
    item(ADR_TYPE_INT16, &row.group_id, sizeof row.group_id);
    item(ADR_TYPE_OCTETS, row.mac.data(), row.mac.size());
  }
  void index(const PidMemberRow& row) {
    index_section(2);
    item(ADR_TYPE_INT32, &row.group_id, sizeof row.group_id);
    item(ADR_TYPE_INT32, &row.pid, sizeof row.pid);
  }
  void index(const Row& row) {
    std::visit([this](const auto& key) { index(key); }, row);
  }
  void index(std::string_view name) {
    index_section(1);
    item(ADR_TYPE_OCTETS, name.data(), name.size());
  }

  void integer(uint32 value) {
    value_at_ = static_cast<uint32>(frame_.len);
    element(ADR_TAG_VALUE, ADR_TYPE_INT32, &value, sizeof value);
  }

  /// @param[in] data  null for zeros
  void octets(const void* data, std::size_t len) {
    value_at_ = static_cast<uint32>(frame_.len);
    element(ADR_TAG_VALUE, ADR_TYPE_OCTETS, data, len);
  }

  /// Appends `len` bytes; null data stands for zeros. Bytes that do not fit make the request unsendable.
  void put(const void* data, std::size_t len) {
    if (!fits_ || len > LUMENHARBOUR_MSG_MAX - static_cast<uint32>(frame_.len)) {
      fits_ = false;
      return;
    }
    uint8* const end = frame_.body + frame_.len;
    if (data == nullptr) {
      std::memset(end, 0, len);
    } else {
      std::memcpy(end, data, len);
    }
    frame_.len += static_cast<int32>(len);
  }

  /// Sends the request and puts the reply in its place. On success the reply's header is that of an answer.
  Result run(const Connection& connection) {
    const Result result = begin(connection);
    return result ? finish() : result;
  }

  /// The first half of `run`: connects and sends.
  Result begin(const Connection& connection);

  /// The second half of `run`: waits for the reply.
  Result finish();

  /// Between the two halves. @return the process id of whoever listens; 0 when it is not known
  uint32 listener() const {
    ucred peer{};
    socklen_t len = sizeof peer;
    return getsockopt(socket_.fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) == 0 ? static_cast<uint32>(peer.pid) : 0;
  }

  /// Takes the next value section of the reply. @return its data, or null when it has another type or length.
  const uint8* take(uint8 type, uint16 min_len, uint16 max_len, uint16* len);

  bool take_integer(uint32* value) { return copy(ADR_TYPE_INT32, value, sizeof *value); }
  bool take_octets(std::string* value, uint16 room) {
    uint16 len = 0;
    const uint8* const data = take(ADR_TYPE_OCTETS, 0, room, &len);
    if (data != nullptr) value->assign(reinterpret_cast<const char*>(data), len);
    return data != nullptr;
  }
  bool take_row(GroupRow* row) { return take_integer(&row->id); }
  bool take_row(BuiltinRow* row) { return take_integer(&row->pid); }
  bool take_row(ClientRow* row) { return take_integer(&row->index); }
  bool take_row(MacMemberRow* row) {
    return copy(ADR_TYPE_INT16, &row->group_id, sizeof row->group_id) &&
           copy(ADR_TYPE_OCTETS, row->mac.data(), LUMENHARBOUR_MAC_SIZE);
  }
  bool take_row(PidMemberRow* row) { return take_integer(&row->group_id) && take_integer(&row->pid); }

  /// Takes a value of exactly `len` bytes. @return true when there is one.
  bool copy(uint8 type, void* dst, uint16 len) {
    const uint8* const data = take(type, len, len, &len);
    if (data != nullptr) std::memcpy(dst, data, len);
    return data != nullptr;
  }

 private:
  void element(uint8 tag, uint8 type, const void* data, std::size_t len) {
    put(&tag, 1);
    item(type, data, len);
  }

  void item(uint8 type, const void* data, std::size_t len) {
    const uint16 length = static_cast<uint16>(len);
    put(&type, 1);
    put(&length, sizeof length);
    put(data, len);
  }

  void index_section(uint8 count) {
    const uint8 section[] = {ADR_TAG_INDEX, count};
    put(section, sizeof section);
  }

  void unit(uint32 value) {
    index_section(1);
    item(ADR_TYPE_INT32, &value, sizeof value);
  }

  uint32 func_;
  uint32 cmd_;
  uint32 value_at_ = 0;
  bool fits_ = true;
  tZorFd socket_;
  Deadline deadline_;
  tAdr reply_{};
  Frame frame_;
};

Result connect_to(int fd, const Connection& connection, int timeout_ms) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (connection.socket_path.size() >= sizeof addr.sun_path) return {Status::unreachable, ENAMETOOLONG};
  connection.socket_path.copy(addr.sun_path, sizeof addr.sun_path - 1);

  // A connection waits while the daemon's queue is full, and poll cannot tell when there is room again: the socket
  // stays blocking, and this option bounds the wait.
  const timeval limit = {timeout_ms / 1000, timeout_ms % 1000 * 1000};
  if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) return {Status::unreachable, errno};
  while (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EINPROGRESS) return {Status::timed_out};
    return {Status::unreachable, errno};
  }
  return {};
}

Result send_frame(int fd, const Frame& frame) {
  for (;;) {
    const ssize_t sent = send(fd, &frame, frame.size(), MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(frame.size())) return {};
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno != EAGAIN) return {Status::unreachable, errno == EPIPE ? ECONNRESET : errno};
    return {Status::timed_out};
  }
}

/// Receives up to the end of the frame.
///
/// @return `broken` when it does not have a body of `len` bytes or none; `unreachable` when not one byte of it comes,
/// as
///         from a daemon that was ended while others waited at its door
Result receive_frame(int fd, Frame* frame, int32 len, const Deadline& deadline) {
  uint8* const bytes = reinterpret_cast<uint8*>(frame);
  std::size_t have = 0;
  while (have < offsetof(Frame, body) || have < frame->size()) {
    pollfd ready = {fd, POLLIN, 0};
    const int events = poll(&ready, 1, deadline.left());
    if (events == 0) return {Status::timed_out};
    if (events < 0 && errno == EINTR) continue;
    if (events < 0) return {Status::broken};
    const ssize_t got = recv(fd, bytes + have, sizeof *frame - have, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 && have == 0) return {Status::unreachable, ECONNRESET};
    if (got <= 0) return {Status::broken};
    have += static_cast<std::size_t>(got);
    if (have >= offsetof(Frame, body) && frame->len != 0 && frame->len != len) return {Status::broken};
  }
  if (have != frame->size()) return {Status::broken};
  return {frame->len == 0 ? Status::undecodable : Status::done};
}

Result Request::begin(const Connection& connection) {
  if (!fits_) return {Status::unsendable};
  if (connection.is_over()) return {Status::timed_out};
  int timeout_ms = std::max(connection.timeout_ms, 1);
  if (connection.deadline) timeout_ms = std::min(timeout_ms, Deadline(*connection.deadline).left());
  deadline_ = Deadline(timeout_ms);
  socket_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket_.fd < 0) return {Status::unreachable, errno};
  if (const Result result = connect_to(socket_.fd, connection, timeout_ms); !result) return result;
  return send_frame(socket_.fd, frame_);
}

Result Request::finish() {
  const Result result = receive_frame(socket_.fd, &frame_, frame_.len, deadline_);
  socket_.reset(-1);
  if (!result) return result;

  uint32 func = 0;
  uint32 cmd = 0;
  int32 code = 0;
  adr_start(&reply_, frame_.body, static_cast<uint32>(frame_.len));
  if (adr_decodefunc(&reply_, &func) != 0 || adr_decoderetcode(&reply_, &code) != 0 ||
      adr_decodecmd(&reply_, &cmd) != 0 || func != func_ || cmd != cmd_) {
    return {Status::broken};
  }
  adr_pos(&reply_, value_at_);
  if (code != 0) return {Status::refused, code};
  return {};
}

const uint8* Request::take(uint8 type, uint16 min_len, uint16 max_len, uint16* len) {
  const uint8* const head = adr_getchar(&reply_, nullptr, 2);
  if (head == nullptr || head[0] != ADR_TAG_VALUE || head[1] != type) return nullptr;
  if (adr_getushort(&reply_, len) != 0 || *len < min_len || *len > max_len) return nullptr;
  return adr_getchar(&reply_, nullptr, *len);
}

/// @return `none` for the code by which a look-up answers that there is none.
Result none_is_no_refusal(Result result) {
  return result.status == Status::refused && result.code == NO_ROW ? Result{Status::none} : result;
}

/// @return the name in one slot of an announcement's reply.
std::string name_in(const uint8 (&slot)[LUMENHARBOUR_FILENAME_SIZE], uint32 len) {
  const auto* const text = reinterpret_cast<const char*>(slot);
  return std::string(text, strnlen(text, std::min<std::size_t>(len, sizeof slot)));
}

/// @return true when asking again would end alike, after as long a wait.
bool is_lost(const Result& result) {
  return result.status == Status::unreachable || result.status == Status::timed_out;
}

/// @return the reply to a request for an attribute that has begun.
Reply<Value> answer_of(Request& request, bool is_integer) {
  Reply<Value> reply{request.finish(), {}};
  if (!reply) return reply;
  uint32 number = 0;
  std::string octets;
  const bool is_whole =
      is_integer ? request.take_integer(&number) : request.take_octets(&octets, LUMENHARBOUR_VLANLIST_SIZE);
  if (!is_whole) return {{Status::broken}, {}};
  if (is_integer) {
    reply.value = number;
  } else {
    reply.value = std::move(octets);
  }
  return reply;
}

constexpr Code CODES[] = {
#define LUMENHARBOUR_CODE(name, base, number, meaning) {zor_error(base, number), #name, meaning},
    ZOR_ERROR_LIST(LUMENHARBOUR_CODE)
#undef LUMENHARBOUR_CODE
        {ERR_BARE_NOMEM, "ERR_BARE_NOMEM", "there is no free record, or not enough memory"},
    {ERR_BARE_INVALID, "ERR_BARE_INVALID", "the group type is out of range"},
};

std::string explain_code(int code) {
  const Code* const known = find_code(code);
  if (known == nullptr) return "the daemon refused it without a reason (code " + std::to_string(code) + ")";
  return std::string(known->name) + ": " + known->meaning;
}

}  // namespace

const Code* find_code(int code) {
  for (const Code& known : CODES)
    if (known.code == code) return &known;
  return nullptr;
}

Reply<uint32> Daemon::read_integer(const Row& row, uint32 cmd, uint32 unset) const {
  Request request(functions_of(row).get, cmd);
  request.index(row);
  request.integer(unset);
  Reply<uint32> reply{request.run(connection_), 0};
  if (reply && !request.take_integer(&reply.value)) reply.status = Status::broken;
  return reply;
}

Reply<uint32> Daemon::get_integer(const Row& row, uint32 cmd) const {
  return read_integer(row, cmd, 0);
}

Reply<std::string> Daemon::get_octets(const Row& row, uint32 cmd, uint16 room) const {
  Request request(functions_of(row).get, cmd);
  request.index(row);
  request.octets(nullptr, room);
  Reply<std::string> reply{request.run(connection_), {}};
  if (reply && !request.take_octets(&reply.value, room)) reply.status = Status::broken;
  return reply;
}

void Daemon::get_all(std::span<Query> queries) const {
  // One less than what the daemon lets wait, so that others get in between.
  constexpr std::size_t ahead = 8;
  std::array<std::optional<Request>, ahead> requests;
  std::size_t asked = 0;
  Result lost;
  const auto ask = [&](Query& query, std::optional<Request>& request) {
    request.emplace(functions_of(query.row).get, query.cmd);
    request->index(query.row);
    if (query.is_integer) {
      request->integer(0);
    } else {
      request->octets(nullptr, LUMENHARBOUR_VLANLIST_SIZE);
    }
    static_cast<Result&>(query.reply) = request->begin(connection_);
    if (is_lost(query.reply)) lost = query.reply;
  };
  for (std::size_t i = 0; i < queries.size(); i++) {
    for (; asked < queries.size() && asked < i + ahead && !is_lost(lost); asked++)
      ask(queries[asked], requests[asked % ahead]);
    Query& query = queries[i];
    if (i >= asked) static_cast<Result&>(query.reply) = lost;
    if (!query.reply) continue;
    query.reply = answer_of(*requests[i % ahead], query.is_integer);
    if (is_lost(query.reply)) lost = query.reply;
  }
}

Result Daemon::set_integer(const Row& row, uint32 cmd, uint32 value) const {
  Request request(functions_of(row).set, cmd);
  request.index(row);
  request.integer(value);
  return request.run(connection_);
}

Result Daemon::set_octets(const Row& row, uint32 cmd, std::string_view value) const {
  Request request(functions_of(row).set, cmd);
  request.index(row);
  request.octets(value.data(), value.size());
  return request.run(connection_);
}

template <typename R>
Reply<R> Daemon::walk(uint32 func, const R& row) const {
  // A member's key comes back as two values of together 16 bytes: the integer's 8 and as many behind it.
  constexpr bool is_member = std::is_same_v<R, MacMemberRow> || std::is_same_v<R, PidMemberRow>;
  Request request(func, 0);
  request.index(row);
  request.integer(0);
  if (is_member) request.put(nullptr, ADR_ELEMENT_HEAD + sizeof(uint32));
  Reply<R> reply{none_is_no_refusal(request.run(connection_)), {}};
  if (reply && !request.take_row(&reply.value)) reply.status = Status::broken;
  return reply;
}

template <typename R>
Reply<R> Daemon::first() const {
  return walk(functions_of(R{}).first, R{});
}

template <typename R>
Reply<R> Daemon::next(const R& row) const {
  return walk(functions_of(row).next, row);
}

template Reply<GroupRow> Daemon::first() const;
template Reply<MacMemberRow> Daemon::first() const;
template Reply<PidMemberRow> Daemon::first() const;
template Reply<BuiltinRow> Daemon::first() const;
template Reply<ClientRow> Daemon::first() const;
template Reply<GroupRow> Daemon::next(const GroupRow&) const;
template Reply<MacMemberRow> Daemon::next(const MacMemberRow&) const;
template Reply<PidMemberRow> Daemon::next(const PidMemberRow&) const;
template Reply<BuiltinRow> Daemon::next(const BuiltinRow&) const;
template Reply<ClientRow> Daemon::next(const ClientRow&) const;

Reply<GroupRow> Daemon::find_group(std::string_view name) const {
  Request request(LUMENHARBOUR_CUSTOMGRPID_GETAPI, LUMENHARBOUR_CUSTOMGRP_IDBYNAME);
  request.index(name);
  request.integer(0);
  Reply<GroupRow> reply{none_is_no_refusal(request.run(connection_)), {}};
  if (reply && !request.take_row(&reply.value)) reply.status = Status::broken;
  return reply;
}

Reply<GroupRow> Daemon::free_group() const {
  // A daemon that is not the director answers with success and leaves the number as it came.
  constexpr uint32 UNSET = 0xffffffffU;
  const Reply<uint32> id = read_integer(GlobalRow{}, LUMENHARBOUR_GLB_CUSTOMGRPFREEID, UNSET);
  if (id && id.value == UNSET) return {{Status::none}, {}};
  return {static_cast<const Result&>(id), {id.value}};
}

Reply<FileNames> Daemon::announce(const tLumenHarbourClientInfo& client) const {
  tLumenHarbourCallback record{};
  record.client_info = client;
  record.imagefile_len = sizeof record.imagefile_name;
  record.configfile_len = sizeof record.configfile_name;

  Request request(LUMENHARBOUR_GLOBAL_GETAPI, LUMENHARBOUR_GLB_CALLBACK);
  request.index(GlobalRow{});
  request.octets(&record, sizeof record);
  const Result result = request.run(connection_);
  if (!result) return {result, {}};
  if (!request.copy(ADR_TYPE_OCTETS, &record, sizeof record)) return {{Status::broken}, {}};

  // No name is as long as its slot, so a length as asked says that nobody wrote there.
  const bool untouched = record.imagefile_len == sizeof record.imagefile_name && record.imagefile_name[0] == 0;
  if (untouched && client.op != 0) return {{Status::none}, {}};
  return {
      {},
      {name_in(record.imagefile_name, record.imagefile_len), name_in(record.configfile_name, record.configfile_len)}};
}

Reply<uint32> Daemon::process() const {
  Request request(functions_of(GlobalRow{}).get, LUMENHARBOUR_GLB_STATE);
  request.index(GlobalRow{});
  request.integer(0);
  Reply<uint32> reply{request.begin(connection_), 0};
  if (reply) reply.value = request.listener();
  if (reply) static_cast<Result&>(reply) = request.finish();
  return reply;
}

std::string Daemon::explain(const Result& result) const {
  switch (result.status) {
    case Status::done:
      return "done";
    case Status::none:
      return "there is none";
    case Status::refused:
      return explain_code(result.code);
    case Status::undecodable:
      return "the daemon could not decode the request";
    case Status::broken:
      return "the daemon sent a broken reply";
    case Status::unreachable:
      return "no daemon reached on " + connection_.socket_path + ": " + std::generic_category().message(result.code);
    case Status::timed_out:
      if (connection_.is_over()) return "the time for the command as a whole was over";
      return "the daemon on " + connection_.socket_path + " did not answer within " +
             std::to_string(connection_.timeout_ms) + " ms";
    case Status::unsendable:
      return "the value does not fit a request";
  }
  return "unknown result";
}

}  // namespace lumenharbour
