#pragma once

/// @file
/// Management requests for tests, built with the platform's codec.

#include <string>
#include <vector>

#include "lumenharbour.h"
#include "zor_codec.h"

template <typename T>
std::string raw(const T& value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}
template <typename T>
T unraw(const std::string& bytes, size_t pos = 0) {
  T value;
  memcpy(&value, bytes.data() + pos, sizeof(value));
  return value;
}

/// A value section: its type and its data as it stands in the message. A number or a text is one as it is.
struct Value {
  uint8 type;
  std::string data;

  Value(uint8 of_type, const std::string& bytes) : type(of_type), data(bytes) {}
  Value(uint32 number) : Value(ADR_TYPE_INT32, raw(number)) {}
  Value(int number) : Value(static_cast<uint32>(number)) {}
  Value(const std::string& octets) : Value(ADR_TYPE_OCTETS, octets) {}
  Value(const char* octets) : Value(std::string(octets)) {}

  /// @return a number in digits, octets as they are.
  std::string text() const {
    if (type == ADR_TYPE_INT16) return std::to_string(unraw<uint16>(data));
    return type == ADR_TYPE_INT32 ? std::to_string(unraw<uint32>(data)) : data;
  }
};

inline Value integer(uint32 value) {
  return value;
}
inline Value octets(const std::string& bytes) {
  return bytes;
}
inline Value room(size_t n) {
  return std::string(n, '\0');
}

/// One request; its fields may be spoilt before it is run.
struct Request {
  std::string body;      ///< as sent, then as answered
  size_t value_pos = 0;  ///< where the value section starts
  int32 reply_len = -1;  ///< what the command layer returned

  Request(uint32 func, uint32 cmd, const std::vector<Value>& items, const Value& value, size_t spare = 0) {
    element(ADR_TAG_FUNC, func);
    element(ADR_TAG_RETCODE, 0);
    element(ADR_TAG_CMD, cmd);
    const bool global = func == LUMENHARBOUR_GLOBAL_SETAPI || func == LUMENHARBOUR_GLOBAL_GETAPI;
    body += {static_cast<char>(ADR_TAG_INDEX), static_cast<char>(global ? 0 : items.size())};
    for (const Value& item : items) add(item);
    value_pos = body.size();
    body += static_cast<char>(ADR_TAG_VALUE);
    add(value);
    body.append(spare, '\0');
  }

  /// Runs the request. @return its return code, or the 0 or 22 of a request that was not run.
  int run() {
    reply_len = lumenHarbour_cmd_process(reinterpret_cast<uint8*>(body.data()), static_cast<int32>(body.size()));
    return reply_len == 0 ? 0 : unraw<int32>(body, ADR_RETCODE_OFFSET);
  }

  /// @return the value section that starts at `pos`, 0 for the one that the request was built with.
  Value section(size_t pos = 0) const {
    if (pos == 0) pos = value_pos;
    return {static_cast<uint8>(body[pos + 1]), body.substr(pos + ADR_ELEMENT_HEAD, unraw<uint16>(body, pos + 2))};
  }
  std::string value(size_t pos = 0) const { return section(pos).data; }
  uint32 number() const { return unraw<uint32>(value()); }

 private:
  void element(uint8 tag, uint32 value) {
    body += static_cast<char>(tag);
    add(integer(value));
  }
  void add(const Value& item) {
    body += static_cast<char>(item.type);
    body += raw(static_cast<uint16>(item.data.size()));
    body += item.data;
  }
};

inline Request global_get(uint32 cmd, const Value& value) {
  return Request(LUMENHARBOUR_GLOBAL_GETAPI, cmd, {integer(0)}, value);
}
inline Request global_set(uint32 cmd, const Value& value) {
  return Request(LUMENHARBOUR_GLOBAL_SETAPI, cmd, {integer(0)}, value);
}
