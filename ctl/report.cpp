#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "layout.h"
#include "pager.h"

namespace lumenharbour::ctl {
namespace {

using Line = std::vector<std::string>;  // a text for each column

/// The status of a failure in a word, in the order of `Exit`.
constexpr const char* STATUS_WORDS[] = {"done", "refused", "usage", "not-found", "unreachable", "timed-out"};

/// What stands for an empty value, so that columns can be counted.
constexpr char NOTHING[] = "-";

/// A column of a table.
struct Column {
  std::size_t width = 1;
  bool is_whole = false;  ///< holds addresses, of which a part says nothing
};

/// Narrows the widest columns until all fit a terminal.
void fit(std::vector<Column>* columns, std::size_t terminal) {
  constexpr std::size_t narrowest = 8;
  const auto can_less = [](const Column& a, const Column& b) {
    return (a.is_whole ? 0 : a.width) < (b.is_whole ? 0 : b.width);
  };
  for (;;) {
    std::size_t total = 2 * (columns->size() - 1);
    for (const Column& column : *columns) total += column.width;
    const auto widest = std::max_element(columns->begin(), columns->end(), can_less);
    if (total <= terminal || widest->is_whole || widest->width <= narrowest) return;
    widest->width--;
  }
}

void print_columns(const std::vector<Line>& lines, bool is_cut) {
  std::vector<Column> columns(lines.front().size());
  for (const Line& line : lines)
    for (std::size_t i = 0; i < line.size(); i++) {
      columns[i].width = std::max(columns[i].width, width_of(line[i]));
      columns[i].is_whole = columns[i].is_whole || parse_mac(line[i]);
    }
  if (const std::size_t terminal = terminal_width(STDOUT_FILENO); terminal > 0 && is_cut) fit(&columns, terminal);
  std::string text;
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); i++) {
      const std::string cell = cut(line[i], columns[i].width);
      text += cell;
      if (i + 1 < line.size()) text.append(columns[i].width + 2 - width_of(cell), ' ');
    }
    text += '\n';
  }
  print_text(text);
}

std::string element_text(const Json& value) {
  if (value.is_null()) return NOTHING;
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (!value.is_string()) return dump(value);
  const std::string text = printable(value.get_ref<const std::string&>());
  return text.empty() ? NOTHING : text;
}

std::string upper(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return result;
}

}  // namespace

std::string dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string text_of(const Json& value) {
  if (!value.is_array()) return element_text(value);
  std::string text;
  for (const Json& element : value) text += (text.empty() ? "" : ", ") + element_text(element);
  return text.empty() ? NOTHING : text;
}

std::string text_of(std::string_view name, const Json& value) {
  const auto* const attr = std::find_if(
      std::begin(LUMENHARBOUR_ATTRS), std::end(LUMENHARBOUR_ATTRS),
      [name](const tLumenHarbourAttr& a) { return a.table == LUMENHARBOUR_TABLE_GLOBAL && a.name == name; });
  const bool is_switched =
      value.is_boolean() && attr != std::end(LUMENHARBOUR_ATTRS) && parse_value(*attr, "on").has_value();
  if (is_switched) return value.get<bool>() ? "on" : "off";
  return text_of(value);
}

std::string field_of(const tLumenHarbourAttr& attr) {
  return attr.value == LUMENHARBOUR_VALUE_ROWSTATUS ? "active" : std::string(attr.name);
}

Json json_of(const tLumenHarbourAttr& attr, const Value& value) {
  const auto* const number = std::get_if<uint32>(&value);
  if (attr.value == LUMENHARBOUR_VALUE_TEXT) return std::get<std::string>(value);
  if (attr.value == LUMENHARBOUR_VALUE_ROWSTATUS) return *number == LUMENHARBOUR_ROW_ACTIVE;
  std::string text = format_value(attr, value);
  if (number != nullptr && text == std::to_string(*number)) return *number;
  if (number != nullptr && (text == "yes" || text == "on")) return true;
  if (number != nullptr && (text == "no" || text == "off")) return false;
  return text;
}

void print_line(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
}

void print_done(const Arguments& args) {
  if (args.is_json()) print_line(dump({{"status", STATUS_WORDS[EXIT_DONE]}}));
}

void print_object(const Arguments& args, const Json& object) {
  if (args.is_json()) return print_line(dump(object));
  for (const auto& [name, value] : object.items())
    print_line(wrapped(name + ": " + text_of(name, value), args.wide ? 0 : terminal_width(STDOUT_FILENO)));
}

void print_table(const Arguments& args, const std::vector<std::string>& headings, const Json& rows) {
  if (args.is_json()) return print_line(dump(rows));
  std::vector<Line> lines(1);
  for (const std::string& heading : headings) lines[0].push_back(upper(heading));
  for (const Json& row : rows) {
    Line& line = lines.emplace_back();
    for (const std::string& heading : headings) line.push_back(text_of(row.at(heading)));
  }
  print_columns(lines, !args.wide);
}

void note(const std::string& sentence) {
  const std::string line = wrapped("lumenharbourctl: " + printable(sentence), terminal_width(STDERR_FILENO)) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void print_failure(const Arguments& args, const Failure& failure) {
  if (failure.is_told) return;
  const Code* const code = find_code(failure.code);
  if ((failure.format.empty() ? args.format : failure.format) != FORMAT_JSON) {
    std::fflush(stdout);
    return note(failure.message + (failure.advice.empty() ? "" : "; ") + failure.advice);
  }
  const Json name = code == nullptr ? Json() : Json(code->name);
  const Json number = failure.code == 0 ? Json() : Json(failure.code);
  print_line(dump({{"error",
                    {{"status", STATUS_WORDS[failure.exit]},
                     {"exit", static_cast<int>(failure.exit)},
                     {"code", number},
                     {"name", name},
                     {"message", failure.message},
                     {"advice", failure.advice}}}}));
  if (std::fflush(stdout) != 0) note(failure.message);
}

void flush_output() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const std::string reason = std::strerror(errno);
  std::clearerr(stdout);
  throw Failure{EXIT_REFUSED, "cannot write the answer: " + reason, ""};
}

}  // namespace lumenharbour::ctl
