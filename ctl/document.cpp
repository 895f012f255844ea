#include "document.h"

#include <yaml.h>

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <span>

#include "input.h"
#include "words.h"

namespace lumenharbour::ctl {
namespace {

/// The largest id that a member's key can hold.
constexpr uint32 GROUP_ID_MAX = 0xffff;

const tLumenHarbourAttr& attr_of(tLumenHarbourTable table, uint32 cmd) {
  return *lumenharbour_attr_find(table, cmd);
}

// ---- Reading ----

bool is_null(std::string_view plain) {
  return plain.empty() || plain == "~" || plain == "null" || plain == "Null" || plain == "NULL";
}

std::size_t line_of(const yaml_node_t& node) {
  return node.start_mark.line + 1;
}

/// @return what stands in a node, behind "is".
const char* found(const yaml_node_t& node) {
  if (node.type != YAML_SCALAR_NODE) return node.type == YAML_MAPPING_NODE ? "a mapping" : "a list";
  return node.data.scalar.length == 0 ? "empty" : "a text";
}

/// A pair of a mapping.
struct Item {
  std::string key;
  const yaml_node_t* value;
  std::size_t line;
};

/// Which keys an entry of a list may have.
struct Kind {
  const char* what;
  tLumenHarbourTable table;
  std::span<const Field> fields;
  std::vector<std::string_view> others;
};

/// Makes a `Document` of the nodes of a file.
class Reader {
 public:
  Reader(yaml_document_t* nodes, Document* document) : nodes_(nodes), document_(document) {}

  void read(const yaml_node_t& root);

 private:
  [[noreturn]] void fail(std::size_t line, const std::string& message, const std::string& advice) const {
    throw document_->failure(line, message, advice);
  }
  const yaml_node_t& node_at(int index) const { return *yaml_document_get_node(nodes_, index); }
  std::string text_of(const yaml_node_t& node, const std::string& what) const;
  std::vector<const yaml_node_t*> list_of(const yaml_node_t& node, const std::string& what);
  std::vector<Item> items_of(const yaml_node_t& node, const std::string& what,
                             const std::vector<std::string_view>& keys);
  Value value_of(const Item& item, const tLumenHarbourAttr& attr) const;
  uint32 number_of(const Item& item, uint32 max) const;
  void read_global(const Item& item, uint32 cmd);
  void read_globals(const Item& item, std::span<const Field> fields);
  void read_vlans(const Item& item);
  std::vector<Entry> entries_of(const Item& item, const Kind& kind);
  Entry entry_of(const yaml_node_t& node, const Kind& kind);
  void read_key(const Item& item, Entry* entry);
  std::vector<Member> members_of(const Item& item);
  void check_whole(const std::vector<Item>& sections) const;

  yaml_document_t* nodes_;
  Document* document_;
};

std::string Reader::text_of(const yaml_node_t& node, const std::string& what) const {
  if (node.type != YAML_SCALAR_NODE) fail(line_of(node), what + " is " + found(node), "expected a text");
  const auto& scalar = node.data.scalar;
  std::string text(reinterpret_cast<const char*>(scalar.value), scalar.length);
  if (scalar.style == YAML_PLAIN_SCALAR_STYLE && is_null(text)) return "";
  if (text.find('\0') != std::string::npos)
    fail(line_of(node), what + " holds a byte 0", "the daemon ends texts there; leave it out");
  return text;
}

std::vector<const yaml_node_t*> Reader::list_of(const yaml_node_t& node, const std::string& what) {
  if (node.type != YAML_SEQUENCE_NODE)
    fail(line_of(node), what + " is " + found(node), "expected a list, [] for an empty one");
  std::vector<const yaml_node_t*> list;
  const auto& items = node.data.sequence.items;
  std::for_each(items.start, items.top, [&](int index) { list.push_back(&node_at(index)); });
  return list;
}

std::vector<Item> Reader::items_of(const yaml_node_t& node, const std::string& what,
                                   const std::vector<std::string_view>& keys) {
  std::string expected;
  for (const std::string_view key : keys) expected += (expected.empty() ? "expected " : ", ") + std::string(key);
  if (node.type != YAML_MAPPING_NODE) fail(line_of(node), what + " is " + found(node), expected);
  std::vector<Item> items;
  std::set<std::string> seen;
  const auto& pairs = node.data.mapping.pairs;
  std::for_each(pairs.start, pairs.top, [&](const yaml_node_pair_t& pair) {
    const yaml_node_t& key = node_at(pair.key);
    const std::string word = text_of(key, "a key of " + what);
    if (std::find(keys.begin(), keys.end(), word) == keys.end())
      fail(line_of(key), quote(word) + " is no key of " + what, expected);
    if (!seen.insert(word).second) fail(line_of(key), quote(word) + " stands twice in " + what, "expected it once");
    items.push_back({word, &node_at(pair.value), line_of(key)});
  });
  return items;
}

Value Reader::value_of(const Item& item, const tLumenHarbourAttr& attr) const {
  std::string text = text_of(*item.value, item.key);
  // Where words stand for yes and no, or on and off, a library may have written its own for them.
  const std::vector<std::string_view> words = value_words(attr);
  const bool is_truth = std::find(words.begin(), words.end(), "yes") != words.end();
  const bool is_switch = attr.value == LUMENHARBOUR_VALUE_TRUTH;
  if (const std::optional<bool> truth = parse_truth(text); truth && (is_truth || is_switch))
    text = is_switch ? (*truth ? "on" : "off") : (*truth ? "yes" : "no");
  return value_to_set(attr, text, document_->failure(item.line, item.key + " is " + quote(text), "").message);
}

uint32 Reader::number_of(const Item& item, uint32 max) const {
  const std::string text = text_of(*item.value, item.key);
  const std::optional<uint32> number = parse_number(text, max);
  if (!number) fail(item.line, item.key + " is " + quote(text), "expected a number from 0 to " + std::to_string(max));
  return *number;
}

void Reader::read_global(const Item& item, uint32 cmd) {
  document_->globals[cmd] = value_of(item, attr_of(LUMENHARBOUR_TABLE_GLOBAL, cmd));
}

std::vector<std::string_view> keys_of(std::span<const Field> fields) {
  std::vector<std::string_view> keys;
  for (const Field& field : fields) keys.push_back(field.key);
  return keys;
}

/// @return the field with that key, or null.
const Field* find(std::span<const Field> fields, std::string_view key) {
  for (const Field& field : fields)
    if (field.key == key) return &field;
  return nullptr;
}

void Reader::read_globals(const Item& item, std::span<const Field> fields) {
  for (const Item& part : items_of(*item.value, item.key, keys_of(fields)))
    read_global(part, find(fields, part.key)->cmd);
}

void Reader::read_vlans(const Item& item) {
  const tLumenHarbourAttr& attr = attr_of(LUMENHARBOUR_TABLE_GLOBAL, LUMENHARBOUR_GLB_MANAGEVLANADD);
  const bool is_list = item.value->type == YAML_SEQUENCE_NODE;
  std::string text = is_list ? "" : text_of(*item.value, item.key);
  std::vector<const yaml_node_t*> list;
  if (is_list) list = list_of(*item.value, item.key);
  for (const yaml_node_t* const node : list) text += (text.empty() ? "" : ",") + text_of(*node, "a VLAN");
  // None is said by an empty list alone, so that a key without a value removes nothing.
  const std::optional<Value> vlans =
      is_list && list.empty() ? Value(std::string(LUMENHARBOUR_VLANLIST_SIZE, '\0')) : parse_value(attr, text);
  if (!vlans) fail(item.line, item.key + " is " + quote(text), "expected " + expected_value(attr) + "; [] for none");
  document_->globals[attr.cmd] = *vlans;
}

std::vector<Member> Reader::members_of(const Item& item) {
  std::vector<Member> members;
  std::set<std::string> seen;
  for (const yaml_node_t* const node : list_of(*item.value, item.key)) {
    const std::string text = text_of(*node, "a member");
    const std::optional<Mac> mac = parse_mac(text);
    const std::optional<uint32> pid = parse_number(text);
    if (const std::optional<std::string> read = mac_of_base_60(text); !mac && !pid && read)
      fail(line_of(*node), quote(text) + " is no member: something has read the MAC address " + *read + " as a number",
           "quote MAC addresses in YAML");
    if (!mac && !pid)
      fail(line_of(*node), quote(text) + " is no member",
           "expected a MAC address such as 00:1b:21:0a:0b:0c, or a product id");
    const std::string member = mac ? format_mac(*mac) : std::to_string(*pid);
    if (!seen.insert(member).second) fail(line_of(*node), "member " + member + " is listed twice", "expected it once");
    members.push_back({line_of(*node), member});
  }
  return members;
}

void Reader::read_key(const Item& item, Entry* entry) {
  if (item.key == "members") {
    entry->members = members_of(item);
  } else if (item.key == "id") {
    entry->key = number_of(item, GROUP_ID_MAX);
  } else if (item.key == "pid") {
    entry->key = number_of(item, 0xffffffffU);
  } else if (item.key == "name") {
    const tLumenHarbourAttr& attr = attr_of(LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_NAME);
    entry->name = std::get<std::string>(value_of(item, attr));
    if (entry->name.empty()) fail(item.line, "the name is empty", "a group without name is listed by its id");
  } else {
    const std::string text = text_of(*item.value, item.key);
    entry->active = parse_truth(text);
    if (!entry->active) fail(item.line, item.key + " is " + quote(text), "expected yes or no");
  }
}

Entry Reader::entry_of(const yaml_node_t& node, const Kind& kind) {
  Entry entry;
  entry.line = line_of(node);
  std::vector<std::string_view> keys = kind.others;
  for (const Field& field : kind.fields) keys.push_back(field.key);
  for (const Item& item : items_of(node, kind.what, keys)) {
    const Field* const field = find(kind.fields, item.key);
    if (field == nullptr) {
      read_key(item, &entry);
    } else {
      entry.values[field->cmd] = value_of(item, attr_of(kind.table, field->cmd));
    }
  }
  if (entry.name.empty() == !entry.key)
    fail(entry.line, std::string(kind.what) + (entry.key ? " has both name and id" : " has no key"),
         "expected " + std::string(kind.others[0]) + (kind.others[1] == "id" ? ", or else id" : ""));
  const auto type = entry.values.find(LUMENHARBOUR_CUSTOMGRP_TYPE);
  if (kind.table == LUMENHARBOUR_TABLE_CUSTOMGRP && type != entry.values.end())
    check_members(*document_, entry, std::get<uint32>(type->second));
  return entry;
}

std::vector<Entry> Reader::entries_of(const Item& item, const Kind& kind) {
  std::vector<Entry> entries;
  std::set<std::pair<std::string, std::optional<uint32>>> seen;
  for (const yaml_node_t* const node : list_of(*item.value, item.key)) {
    const Entry& entry = entries.emplace_back(entry_of(*node, kind));
    if (!seen.emplace(entry.name, entry.key).second)
      fail(entry.line,
           std::string(TABLES[kind.table].row) + ' ' + (entry.key ? std::to_string(*entry.key) : entry.name) +
               " is listed twice",
           "expected it once");
  }
  return entries;
}

void Reader::check_whole(const std::vector<Item>& sections) const {
  const auto says = [this](uint32 cmd, const Value& value) {
    const auto found = document_->globals.find(cmd);
    return found != document_->globals.end() && found->second == value;
  };
  const auto has = [this](uint32 cmd) { return document_->globals.contains(cmd); };
  for (const Item& item : sections) {
    if (item.key == "service" && says(LUMENHARBOUR_GLB_STATE, uint32{LUMENHARBOUR_OFF}) &&
        (has(LUMENHARBOUR_GLB_DIRECTORIP) || has(LUMENHARBOUR_GLB_DIRECTORIPTYPE) || document_->needs_director()))
      fail(item.line, "service is off, and a stopped service keeps none of director, defaults, groups and builtins",
           "expected 'service: true', or nothing of these");
    if (item.key == "director" && document_->needs_director() &&
        says(LUMENHARBOUR_GLB_DIRECTORIP, std::string(LUMENHARBOUR_IPV4_SIZE, '\0')))
      fail(item.line, "the director's address is none, and only a director keeps defaults, groups and builtins",
           "expected an address of this switch, or nothing of these");
  }
}

void Reader::read(const yaml_node_t& root) {
  const Kind groups = {"a group", LUMENHARBOUR_TABLE_CUSTOMGRP, GROUP_FIELDS, {"name", "id", "active", "members"}};
  const Kind builtins = {"a built-in group", LUMENHARBOUR_TABLE_BUILTINGRP, BUILTIN_FIELDS, {"pid", "active"}};
  const std::vector<Item> sections =
      items_of(root, "the file", {"service", "director", "defaults", "management-vlans", "groups", "builtins"});
  for (const Item& item : sections) {
    if (item.key == "service") read_global(item, LUMENHARBOUR_GLB_STATE);
    if (item.key == "director") read_globals(item, DIRECTOR_FIELDS);
    if (item.key == "defaults") read_globals(item, DEFAULT_FIELDS);
    if (item.key == "management-vlans") read_vlans(item);
    if (item.key == "groups") document_->groups = entries_of(item, groups);
    if (item.key == "builtins") document_->builtins = entries_of(item, builtins);
  }
  check_whole(sections);
}

using ParsedNodes = std::unique_ptr<yaml_document_t, void (*)(yaml_document_t*)>;

/// Parses the next document of a stream, which was judged already, into `nodes`, which then owns it.
ParsedNodes load(yaml_parser_t* parser, yaml_document_t* nodes) {
  if (yaml_parser_load(parser, nodes) == 0) throw std::bad_alloc();
  return {nodes, yaml_document_delete};
}

}  // namespace

bool Document::needs_director() const {
  return groups || builtins ||
         std::any_of(std::begin(DEFAULT_FIELDS), std::end(DEFAULT_FIELDS),
                     [this](const Field& f) { return globals.contains(f.cmd); });
}

Failure Document::failure(std::size_t line, const std::string& message, const std::string& advice) const {
  return {EXIT_USAGE, file + ':' + std::to_string(line) + ": " + message, advice};
}

void Document::make_whole() {
  const auto none = [](const tLumenHarbourAttr& attr) {
    if (attr.value == LUMENHARBOUR_VALUE_IPV4) return Value(std::string(LUMENHARBOUR_IPV4_SIZE, '\0'));
    if (attr.value == LUMENHARBOUR_VALUE_VLANS) return Value(std::string(LUMENHARBOUR_VLANLIST_SIZE, '\0'));
    return lumenharbour_value_is_integer(attr.value) ? Value(uint32{0}) : Value(std::string());
  };
  const auto fill = [&none](std::map<uint32, Value>* values, tLumenHarbourTable table, std::span<const Field> fields) {
    for (const Field& field : fields) values->emplace(field.cmd, none(attr_of(table, field.cmd)));
  };
  const auto state = globals.find(LUMENHARBOUR_GLB_STATE);
  // A service that stops takes the address with it, and a stopped one none.
  if (state == globals.end() || state->second == Value(uint32{LUMENHARBOUR_ON}))
    fill(&globals, LUMENHARBOUR_TABLE_GLOBAL, DIRECTOR_FIELDS);
  constexpr Field vlans[] = {{"management-vlans", LUMENHARBOUR_GLB_MANAGEVLANADD}};
  fill(&globals, LUMENHARBOUR_TABLE_GLOBAL, vlans);
  if (!needs_director()) return;
  fill(&globals, LUMENHARBOUR_TABLE_GLOBAL, DEFAULT_FIELDS);
  if (!groups) groups.emplace();
  if (!builtins) builtins.emplace();
  for (Entry& group : *groups)
    fill(&group.values, LUMENHARBOUR_TABLE_CUSTOMGRP, std::span(GROUP_FIELDS).subspan(1));  // a type is always given
  for (Entry& builtin : *builtins) fill(&builtin.values, LUMENHARBOUR_TABLE_BUILTINGRP, BUILTIN_FIELDS);
}

Document read_document(const std::string& path) {
  return parse_document(read_input(path), path == "-" ? "standard input" : path);
}

Document parse_document(const std::string& bytes, const std::string& name) {
  Document document;
  document.file = name;
  if (const std::optional<InputFault> fault = fault_of_yaml(bytes))
    throw document.failure(fault->line, fault->message, fault->advice);
  yaml_parser_t parser;
  if (yaml_parser_initialize(&parser) == 0) throw std::bad_alloc();
  const std::unique_ptr<yaml_parser_t, void (*)(yaml_parser_t*)> guard(&parser, yaml_parser_delete);
  yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());

  yaml_document_t first;
  const ParsedNodes nodes = load(&parser, &first);
  const yaml_node_t* const root = yaml_document_get_root_node(&first);
  if (root == nullptr) throw document.failure(1, "the file is empty", "expected keys and values, or {}");
  yaml_document_t second;
  const ParsedNodes rest = load(&parser, &second);
  if (yaml_document_get_root_node(&second) != nullptr)
    throw document.failure(second.start_mark.line + 1, "a second document begins", "expected one");
  Reader(&first, &document).read(*root);
  return document;
}

void check_members(const Document& document, const Entry& entry, uint32 type) {
  if (!entry.members) return;
  const tLumenHarbourAttr& attr = attr_of(LUMENHARBOUR_TABLE_CUSTOMGRP, LUMENHARBOUR_CUSTOMGRP_TYPE);
  for (const Member& member : *entry.members) {
    const uint32 wanted = parse_mac(member.text) ? LUMENHARBOUR_CUSTOMGRP_TYPE_MAC : LUMENHARBOUR_CUSTOMGRP_TYPE_PID;
    if (type != wanted)
      throw document.failure(member.line,
                             "a group of type " + format_value(attr, type) + " cannot have the member " + member.text,
                             "groups of type mac have MAC addresses, of type pid product ids, and others no members");
  }
}

State read_state(const Call& call) {
  State state{read_record(call, GlobalRow{}), {}, {}, {}};
  if (!state.is_director()) return state;
  state.groups = read_table<GroupRow>(call);
  state.builtins = read_table<BuiltinRow>(call);
  for (const MacMemberRow& row : walk<MacMemberRow>(call)) state.members[row.group_id].push_back(format_mac(row.mac));
  for (const PidMemberRow& row : walk<PidMemberRow>(call))
    state.members[row.group_id].push_back(std::to_string(row.pid));
  // The daemon lists the newest member first.
  for (auto& [id, members] : state.members) std::reverse(members.begin(), members.end());
  return state;
}

}  // namespace lumenharbour::ctl
