#include "complete.h"

#include <algorithm>

#include "command_line.h"
#include "figures.h"
#include "rows.h"
#include "tool.h"

namespace lumenharbour::ctl {
namespace {

using Words = std::vector<std::string>;

/// How long the daemon may take over a request. Somebody waits for the offer, and can do without.
constexpr int TIMEOUT_MS = 500;

/// A line, taken apart as far as an unfinished one can be.
struct Line {
  Commands commands;                  ///< all that it may name
  Arguments args;                     ///< what its options and operands say
  Words words;                        ///< neither options nor their values, the last word left out
  Words literal;                      ///< likewise, behind "--"
  bool is_literal = false;            ///< "--" was said: no option follows
  const Argument* pending = nullptr;  ///< option whose value the last word is
  const Command* command = nullptr;   ///< what `words` name; null for nothing yet
  std::string path;                   ///< its words
  Words operands;                     ///< what follows them
  std::string last;                   ///< the word to complete
};

Words spellings_of(const Argument& option) {
  Words spellings(1);
  for (const char c : std::string_view(option.name)) {
    if (c == ',')
      spellings.emplace_back();
    else
      spellings.back() += c;
  }
  return spellings;
}

bool has_value(const Argument& option) {
  return !std::holds_alternative<bool Arguments::*>(option.field);
}

/// @return the option of that spelling, of any command, or null.
const Argument* find_option(Commands commands, std::string_view spelling) {
  const auto is_named = [spelling](const Argument& argument) {
    if (!is_option(argument)) return false;
    const Words spellings = spellings_of(argument);
    return std::find(spellings.begin(), spellings.end(), spelling) != spellings.end();
  };
  for (const Argument& option : OPTIONS)
    if (is_named(option)) return &option;
  for (const Command& command : commands)
    for (const Argument& argument : command.arguments)
      if (is_named(argument)) return &argument;
  return nullptr;
}

void assign(Line* line, const Argument& argument, std::string_view value) {
  if (const auto* const field = std::get_if<std::string Arguments::*>(&argument.field)) line->args.*(*field) = value;
}

/// Takes an option that is not the last word; its value may be attached.
void take_option(Line* line, std::string_view word) {
  const bool is_long = word.starts_with("--");
  const std::size_t end = is_long ? std::min(word.find('='), word.size()) : 2;
  const Argument* const option = find_option(line->commands, word.substr(0, end));
  if (option == nullptr || !has_value(*option)) return;
  if (end == word.size())
    line->pending = option;
  else
    assign(line, *option, word.substr(is_long ? end + 1 : end));
}

void take_word(Line* line, const std::string& word) {
  if (line->pending != nullptr) {
    assign(line, *line->pending, word);
    line->pending = nullptr;
  } else if (line->is_literal) {
    line->literal.push_back(word);
  } else if (word == "--") {
    line->is_literal = true;
  } else if (word.size() > 1 && word[0] == '-') {
    take_option(line, word);
  } else {
    line->words.push_back(word);
  }
}

std::vector<const Argument*> positionals_of(const Command& command) {
  std::vector<const Argument*> positionals;
  for (const Argument& argument : command.arguments)
    if (!is_option(argument)) positionals.push_back(&argument);
  return positionals;
}

/// Takes a line apart. @throws Failure when it names no command.
Line line_of(Commands commands, const Words& words, const Arguments& defaults) {
  Line line;
  line.commands = commands;
  line.args = defaults;
  line.last = words.back();
  for (std::size_t i = 0; i + 1 < words.size(); i++) take_word(&line, words[i]);
  line.operands = line.words;
  line.command = take_command(commands, &line.operands, &line.path);
  line.operands.insert(line.operands.end(), line.literal.begin(), line.literal.end());
  if (line.command == nullptr) return line;
  std::size_t i = 0;
  for (const Argument* const argument : positionals_of(*line.command))
    if (i < line.operands.size()) assign(&line, *argument, line.operands[i++]);
  return line;
}

// ---- What the daemon has ----

Call call_of(const Line& line) {
  return {Daemon({line.args.socket, TIMEOUT_MS, {}}), line.args, *line.command, line.commands};
}

/// @return an octet string of each row of a table, and the rows.
template <typename R>
std::vector<Query> read_all(const Call& call, uint32 cmd) {
  std::vector<Query> queries;
  for (const R& row : walk<R>(call)) queries.emplace_back(row, cmd, false);
  call.daemon.get_all(queries);
  std::erase_if(queries, [](const Query& query) { return !query.reply; });
  return queries;
}

/// @return the groups' names; an id where the name would be taken for something else.
Words groups(const Call& call) {
  Words words;
  for (const Query& query : read_all<GroupRow>(call, LUMENHARBOUR_CUSTOMGRP_NAME)) {
    const std::string& name = std::get<std::string>(query.reply.value);
    const bool is_plain = !name.empty() && name[0] != '-' && printable(name) == name && !parse_number(name);
    words.push_back(is_plain ? name : std::to_string(std::get<GroupRow>(query.row).id));
  }
  return words;
}

Words builtins(const Call& call) {
  Words words;
  for (const BuiltinRow& row : walk<BuiltinRow>(call)) words.push_back(std::to_string(row.pid));
  return words;
}

Words clients(const Call& call) {
  const tLumenHarbourAttr* const attr = lumenharbour_attr_find(LUMENHARBOUR_TABLE_CLIENT, LUMENHARBOUR_CLIENT_MAC);
  Words words;
  for (const Query& query : read_all<ClientRow>(call, LUMENHARBOUR_CLIENT_MAC))
    words.push_back(format_value(*attr, query.reply.value));
  return words;
}

// ---- What may stand there ----

Words attributes(const Command& command) {
  Words words;
  for (const tLumenHarbourAttr* const attr : attributes_of(command)) words.push_back(name_in(command, *attr));
  if (command.table == LUMENHARBOUR_TABLE_GLOBAL && !command.changes)
    for (const Figure& figure : figures()) words.emplace_back(figure.name);
  return words;
}

/// @return the words that the attribute takes which the command sets, or which the line names.
Words values(const Line& line) {
  for (const tLumenHarbourAttr* const attr : attributes_of(*line.command)) {
    const bool is_meant = line.command->attr != 0
                              ? attr->cmd == line.command->attr
                              : attr->name == line.args.attr || std::to_string(attr->cmd) == line.args.attr;
    if (!is_meant) continue;
    const std::vector<std::string_view> words = value_words(*attr);
    return {words.begin(), words.end()};
  }
  return {};
}

Words offer_argument(const Line& line, const Argument& argument, bool* is_file) {
  switch (argument.hint) {
    case Hint::none:
      return {};
    case Hint::words:
      return {argument.words.begin(), argument.words.end()};
    case Hint::group:
      return groups(call_of(line));
    case Hint::builtin:
      return builtins(call_of(line));
    case Hint::client:
      return clients(call_of(line));
    case Hint::attribute:
      return attributes(*line.command);
    case Hint::value:
      return values(line);
    case Hint::file:
      *is_file = true;
      return {};
  }
  return {};
}

Words options(const Line& line) {
  Words words;
  const auto add = [&words](const Argument& option) {
    for (const std::string& spelling : spellings_of(option)) words.push_back(spelling);
  };
  for (const Argument& option : OPTIONS) add(option);
  if (line.command == nullptr) return words;
  for (const Argument& argument : line.command->arguments)
    if (is_option(argument)) add(argument);
  return words;
}

/// @return the last word's option with each value that it may have, for `--option=value`.
Words offer_attached(const Line& line, std::size_t equals, bool* is_file) {
  const Argument* const option = find_option(line.commands, std::string_view(line.last).substr(0, equals));
  if (option == nullptr || !has_value(*option)) return {};
  Words words = offer_argument(line, *option, is_file);
  for (std::string& word : words) word.insert(0, line.last, 0, equals + 1);
  return words;
}

bool is_repeated(const Argument& argument) {
  return std::holds_alternative<std::vector<std::string> Arguments::*>(argument.field);
}

/// @return the argument that the last word is; null for one too many.
const Argument* due_of(const Line& line) {
  if (line.command == nullptr) return nullptr;
  const std::vector<const Argument*> positionals = positionals_of(*line.command);
  if (line.operands.size() < positionals.size()) return positionals[line.operands.size()];
  return !positionals.empty() && is_repeated(*positionals.back()) ? positionals.back() : nullptr;
}

bool is_option_begun(const Line& line) {
  return !line.is_literal && line.last.starts_with('-');
}

Words offer(const Line& line, bool* is_file) {
  if (line.pending != nullptr) return offer_argument(line, *line.pending, is_file);
  if (is_option_begun(line)) {
    const std::size_t equals = line.last.find('=');
    return equals == std::string::npos ? options(line) : offer_attached(line, equals, is_file);
  }
  Words words;
  if (line.operands.empty() && !line.is_literal)
    for (const Command* const child : children_of(line.commands, line.path)) words.emplace_back(word_of(*child));
  const Argument* const due = due_of(line);
  if (due == nullptr) return words;
  for (std::string& word : offer_argument(line, *due, is_file)) words.push_back(std::move(word));
  return words;
}

/// @return the line that the operands are, as 'show group' behind 'watch'; the line itself where they are none.
/// @throws Failure for a command that may not stand there
Line inner_line(const Line& line) {
  const Argument* const due = due_of(line);
  const bool is_operand = line.pending == nullptr && !is_option_begun(line) && !line.operands.empty();
  if (!is_operand || due == nullptr || due->hint != Hint::words || !is_repeated(*due)) return line;
  Words words = line.operands;
  words.push_back(line.last);
  Line inner = line_of(line.commands, words, line.args);
  if (!inner.path.starts_with(due->words[0])) throw Failure{EXIT_USAGE, "no such operand", ""};
  return inner;
}

}  // namespace

std::vector<std::string> candidates(Commands commands, const Words& words, const Arguments& defaults, bool* is_file) {
  *is_file = false;
  if (words.empty()) return {};
  try {
    Words offered = offer(inner_line(line_of(commands, words, defaults)), is_file);
    std::erase_if(offered, [&words](const std::string& word) { return !word.starts_with(words.back()); });
    return offered;
  } catch (const Failure&) {
    return {};
  }
}

std::vector<Offer> explained(Commands commands, const Words& words, const Arguments& defaults) {
  std::vector<Offer> offers;
  const auto add = [&](const Argument& argument, const std::string& type) {
    offers.push_back({std::string(argument.name) + (type.empty() ? "" : ' ' + type), argument.help});
  };
  try {
    const Line line = inner_line(line_of(commands, words, defaults));
    if (line.pending != nullptr) return {{line.pending->type, line.pending->help}};
    const bool is_option = is_option_begun(line);
    if (line.operands.empty() && !is_option)
      for (const Command* const child : children_of(commands, line.path))
        if (word_of(*child).starts_with(line.last)) offers.push_back({std::string(word_of(*child)), child->help});
    if (const Argument* const due = due_of(line); due != nullptr && !is_option) add(*due, "");
    if (line.command == nullptr || line.command->run == nullptr) return offers;
    for (const Argument& argument : line.command->arguments)
      if (ctl::is_option(argument) && std::string_view(argument.name).starts_with(line.last))
        add(argument, argument.type);
  } catch (const Failure& failure) {
    return {{"", failure.message}};
  }
  return offers;
}

void print_candidates(const Call& call) {
  bool is_file = false;
  for (const std::string& word : candidates(call.commands, call.args.words, call.args, &is_file)) print_line(word);
  if (is_file) print_line("/");
}

}  // namespace lumenharbour::ctl
