#pragma once

/// @file
/// Management requests for tests, built with the platform's codec.

#include <string>
#include <vector>

#include "lumenharbour.h"
#include "zor_codec.h"

/// A value section: its type and its data as it stands in the message.
struct Value {
  uint8 type;
  std::string data;
};

template <typename T>
std::string raw(const T& value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

inline Value integer(uint32 value) {
  return {ADR_TYPE_INT32, raw(value)};
}
inline Value octets(const std::string& bytes) {
  return {ADR_TYPE_OCTETS, bytes};
}
inline Value room(size_t n) {
  return octets(std::string(n, '\0'));
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
    return reply_len == 0 ? 0 : field<int32>(ADR_RETCODE_OFFSET);
  }

  template <typename T>
  T field(size_t pos) const {
    T value;
    memcpy(&value, body.data() + pos, sizeof(value));
    return value;
  }

  /// The data of the value section, or of the one that starts at `pos`.
  std::string value(size_t pos = 0) const {
    if (pos == 0) pos = value_pos;
    return body.substr(pos + ADR_ELEMENT_HEAD, field<uint16>(pos + 2));
  }
  uint32 number() const { return field<uint32>(value_pos + ADR_ELEMENT_HEAD); }

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
