#include "export.h"

#include <yaml.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <new>
#include <utility>

#include "commands.h"
#include "pager.h"
#include "rule.h"

namespace lumenharbour::ctl {
namespace {

/// Both kinds of group have their status under one number.
constexpr uint32 STATUS = LUMENHARBOUR_CUSTOMGRP_STATUS;
static_assert(STATUS == LUMENHARBOUR_BUILTINGRP_STATUS);

const tLumenHarbourAttr& attr_of(tLumenHarbourTable table, uint32 cmd) {
  return *lumenharbour_attr_find(table, cmd);
}

/// @return true for a text that other readers of YAML would take for a number, a truth value or nothing.
bool is_mistakable(std::string_view text) {
  static constexpr std::string_view words[] = {"null", "true", "false", "yes", "no", "on", "off", "y", "n"};
  if (text.empty() || parse_mac(text) ||
      (std::isalpha(static_cast<unsigned char>(text[0])) == 0 && text[0] != '/' && text[0] != '_'))
    return true;
  const auto equals = [text](std::string_view word) {
    return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                      [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
  };
  return std::any_of(std::begin(words), std::end(words), equals);
}

/// @return quoted texts in JSON or YAML, in which characters that YAML refuses or takes for ends of lines, and those
/// that would show the rest in another order, are escaped.
std::string escaped(std::string text) {
  const auto escape = [&text](unsigned character) {
    char escaped[7];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", character);
    const std::string plain = Json::parse('"' + std::string(escaped) + '"').get<std::string>();
    for (std::size_t at = text.find(plain); at != std::string::npos; at = text.find(plain, at))
      text.replace(at, plain.size(), escaped);
  };
  constexpr std::pair<unsigned, unsigned> ranges[] = {{0x7f, 0x9f},     {0x61c, 0x61c},   {0x200e, 0x200f},
                                                      {0x2028, 0x202e}, {0x2066, 0x2069}, {0xfffe, 0xffff}};
  for (const auto& [first, last] : ranges)
    for (unsigned character = first; character <= last; character++) escape(character);
  return text;
}

/// Writes values as YAML.
class Emitter {
 public:
  Emitter() {
    if (yaml_emitter_initialize(&emitter_) == 0) throw std::bad_alloc();
    yaml_emitter_set_output(&emitter_, append, &text_);
    yaml_emitter_set_unicode(&emitter_, 1);
    yaml_emitter_set_width(&emitter_, -1);
  }
  ~Emitter() { yaml_emitter_delete(&emitter_); }
  Emitter(const Emitter&) = delete;
  Emitter& operator=(const Emitter&) = delete;

  /// @return the sections of a file as YAML.
  std::string document(const Json& sections) {
    yaml_event_t event;
    emit(yaml_stream_start_event_initialize(&event, YAML_UTF8_ENCODING), &event);
    emit(yaml_document_start_event_initialize(&event, nullptr, nullptr, nullptr, 1), &event);
    begin_mapping();
    for (const auto& [key, section] : sections.items()) {
      put_scalar(key, false);
      if (section.is_object())
        put_fields(section);
      else if (section.is_array())
        put_list(section, [this](const Json& row) { put_fields(row); });
      else
        put_scalar(section,
                   key == "management-vlans" && section.get_ref<const std::string&>().find(',') != std::string::npos);
    }
    end_mapping();
    emit(yaml_document_end_event_initialize(&event, 1), &event);
    emit(yaml_stream_end_event_initialize(&event), &event);
    return escaped(text_);
  }

 private:
  static int append(void* text, unsigned char* bytes, std::size_t len) {
    static_cast<std::string*>(text)->append(reinterpret_cast<const char*>(bytes), len);
    return 1;
  }
  void emit(int is_made, yaml_event_t* event) {
    if (is_made == 0 || yaml_emitter_emit(&emitter_, event) == 0) throw std::bad_alloc();
  }
  void begin_mapping() {
    yaml_event_t event;
    emit(yaml_mapping_start_event_initialize(&event, nullptr, nullptr, 1, YAML_BLOCK_MAPPING_STYLE), &event);
  }
  void end_mapping() {
    yaml_event_t event;
    emit(yaml_mapping_end_event_initialize(&event), &event);
  }
  template <typename Put>
  void put_list(const Json& list, Put put) {
    yaml_event_t event;
    emit(yaml_sequence_start_event_initialize(&event, nullptr, nullptr, 1, YAML_BLOCK_SEQUENCE_STYLE), &event);
    for (const Json& element : list) put(element);
    emit(yaml_sequence_end_event_initialize(&event), &event);
  }
  /// Puts a mapping of scalars and lists of scalars.
  void put_fields(const Json& object) {
    begin_mapping();
    for (const auto& [key, value] : object.items()) {
      put_scalar(key, false);
      if (value.is_array())
        put_list(value, [this](const Json& element) { put_scalar(element, element.is_string()); });
      else
        put_scalar(value, key == "name" || key == "image" || key == "config");
    }
    end_mapping();
  }
  /// @param[in] is_free  the text may be anything
  void put_scalar(const Json& value, bool is_free) {
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    const bool is_odd = is_free && printable(text) != text;
    const bool quoted = is_free && is_mistakable(text);
    yaml_event_t event;
    emit(yaml_scalar_event_initialize(&event, nullptr, nullptr, reinterpret_cast<const yaml_char_t*>(text.data()),
                                      static_cast<int>(text.size()), 1, 1,
                                      is_odd   ? YAML_DOUBLE_QUOTED_SCALAR_STYLE
                                      : quoted ? YAML_SINGLE_QUOTED_SCALAR_STYLE
                                               : YAML_PLAIN_SCALAR_STYLE),
         &event);
  }

  yaml_emitter_t emitter_;
  std::string text_;
};

/// Adds an attribute to `object` unless it is empty or 0.
void put(const Call& call, Json* object, std::string_view key, const Record& record, uint32 cmd) {
  const tLumenHarbourAttr& attr = attr_of(static_cast<tLumenHarbourTable>(record.row.index()), cmd);
  const Value& value = value_of(record, cmd);
  const auto* const text = std::get_if<std::string>(&value);
  if (value == Value(uint32{0}) || value == Value(std::string())) return;
  if (text != nullptr && attr.value == LUMENHARBOUR_VALUE_TEXT && !is_utf8(*text))
    throw Failure{EXIT_REFUSED, "cannot export: " + describe(call, record.row, attr) + " is no UTF-8",
                  "set another first"};
  const Json found = json_of(attr, value);
  (*object)[std::string(key)] = found;
}

void put(const Call& call, Json* object, std::span<const Field> fields, const Record& record) {
  for (const Field& field : fields) put(call, object, field.key, record, field.cmd);
}

Json group_of(const Call& call, const State& state, const Record& group) {
  Json object = Json::object();
  const uint32 id = std::get<GroupRow>(group.row).id;
  const uint32 type = integer_of(group, LUMENHARBOUR_CUSTOMGRP_TYPE);
  put(call, &object, "name", group, LUMENHARBOUR_CUSTOMGRP_NAME);
  if (object.empty()) object["id"] = id;
  object["type"] = json_of(attr_of(LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_TYPE), type);
  put(call, &object, GROUP_FIELDS, group);
  object["active"] = integer_of(group, STATUS) == LUMENHARBOUR_ROW_ACTIVE;
  if (type != LUMENHARBOUR_CUSTOMGRP_TYPE_MAC && type != LUMENHARBOUR_CUSTOMGRP_TYPE_PID) return object;
  Json members = Json::array();
  if (const auto found = state.members.find(id); found != state.members.end())
    for (const std::string& member : found->second) {
      const std::optional<uint32> pid = parse_number(member);
      members.push_back(pid ? Json(*pid) : Json(member));
    }
  object["members"] = members;
  return object;
}

void put_tables(const Call& call, Json* tree, const State& state) {
  Json defaults = Json::object();
  put(call, &defaults, DEFAULT_FIELDS, state.global);
  if (!defaults.empty()) (*tree)["defaults"] = defaults;
  (*tree)["groups"] = Json::array();
  Rule rule(call, state);
  for (const Record* const group : rule.by_age()) (*tree)["groups"].push_back(group_of(call, state, *group));
  for (const Overlap& overlap : rule.overlaps())
    if (rule.is_doubtful(overlap)) note(rule.describe(overlap) + "; the file may order them otherwise");
  (*tree)["builtins"] = Json::array();
  for (const Record& builtin : state.builtins) {
    Json object = {{"pid", std::get<BuiltinRow>(builtin.row).pid}};
    put(call, &object, BUILTIN_FIELDS, builtin);
    object["active"] = integer_of(builtin, STATUS) == LUMENHARBOUR_ROW_ACTIVE;
    (*tree)["builtins"].push_back(object);
  }
}

/// @return the daemon's state as a file's text without its end.
std::string text_of(const Call& call, const State& state) {
  const bool is_on = integer_of(state.global, LUMENHARBOUR_GLB_STATE) == LUMENHARBOUR_ON;
  Json tree = {{"service", is_on}};
  Json director = Json::object();
  put(call, &director, DIRECTOR_FIELDS, state.global);
  if (!director.empty()) tree["director"] = director;
  const std::string vlans = format_vlans(octets_of(state.global, LUMENHARBOUR_GLB_MANAGEVLANADD));
  if (!vlans.empty()) tree["management-vlans"] = vlans;
  if (state.is_director()) put_tables(call, &tree, state);
  if (call.args.is_json()) return escaped(dump(tree)) + '\n';
  return Emitter().document(tree);
}

}  // namespace

std::string state_text(const Call& call) {
  return text_of(call, read_state(call));
}

std::string export_text(const Call& call) {
  const State state = read_state(call);
  if (integer_of(state.global, LUMENHARBOUR_GLB_STATE) != LUMENHARBOUR_ON && !call.args.stopped)
    throw Failure{EXIT_REFUSED,
                  "cannot " + std::string(call.command.path) + ": the service is stopped, so there are no groups",
                  "start it, or say --stopped"};
  return text_of(call, state);
}

void export_state(const Call& call) {
  print_text(export_text(call));
}

}  // namespace lumenharbour::ctl
