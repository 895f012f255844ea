#include "words.h"

#include <algorithm>
#include <charconv>

namespace lumenharbour::ctl {
namespace {

/// @return how many edits lead from one word to the other: a character more, less or other, or two swapped.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> edits(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); i++) {
    for (std::size_t j = 0; j <= to.size(); j++) {
      edits[i][j] = std::max(i, j);
      if (i == 0 || j == 0) continue;
      const std::size_t changed = edits[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      edits[i][j] = std::min({changed, edits[i - 1][j] + 1, edits[i][j - 1] + 1});
      const bool is_swap = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (is_swap) edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
    }
  }
  return edits[from.size()][to.size()];
}

}  // namespace

std::string shortened(std::string_view text, std::size_t max) {
  if (text.size() <= max) return std::string(text);
  // Not in the middle of a character of UTF-8.
  while (max > 0 && (static_cast<unsigned char>(text[max]) & 0xc0) == 0x80) max--;
  return std::string(text.substr(0, max)) + "...";
}

std::string quote(std::string_view said) {
  return '\'' + shortened(said) + '\'';
}

bool is_close(std::string_view word, std::string_view candidate) {
  if (word.size() > 64) return false;
  const std::size_t typos = std::clamp<std::size_t>(word.size() / 3, 1, 2);
  return distance(word, candidate) <= typos || (word.size() > 2 && candidate.find(word) != std::string_view::npos);
}

std::string plural(std::size_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

double seconds_of(const std::string& text, const char* what) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error == std::errc() && end == text.data() + text.size() && seconds > 0 && seconds <= 86400) return seconds;
  throw Failure{EXIT_USAGE, quote(text) + " is no " + what, "expected seconds, above 0 and up to 86400"};
}

Value value_to_set(const tLumenHarbourAttr& attr, std::string_view text, const std::string& said) {
  std::optional<Value> value = parse_value(attr, text);
  if (!value) throw Failure{EXIT_USAGE, said, "expected " + expected_value(attr)};
  // Every text that can be set is a name of a file or a group.
  const std::string fault = attr.value == LUMENHARBOUR_VALUE_TEXT ? fault_of_name(text) : "";
  if (attr.value == LUMENHARBOUR_VALUE_TEXT && !is_utf8(text))
    throw Failure{EXIT_USAGE, said + ": it is no UTF-8", "no file for 'apply' could hold such a name"};
  if (!fault.empty()) throw Failure{EXIT_USAGE, said + ": it " + fault, "a switch refuses such a name"};
  return *std::move(value);
}

void check_group_name(std::string_view name) {
  const std::string quoted = quote(name) + " cannot be a group's name";
  if (name.empty()) throw Failure{EXIT_USAGE, quoted, "expected at least one byte"};
  if (name == "." || name == ".." || name.find('/') != std::string_view::npos)
    throw Failure{EXIT_USAGE, quoted,
                  "its imagelist file is /tmp/NAME.txt: expected neither '/' nor '.' or '..' alone"};
  if (parse_number(name)) throw Failure{EXIT_USAGE, quoted, "a number is always taken for a group's id"};
}

uint32 number_of(const std::string& text, const char* what) {
  if (const std::optional<uint32> number = parse_number(text)) return *number;
  throw Failure{EXIT_USAGE, quote(text) + " is no " + what, "expected a number from 0 to 4294967295"};
}

Mac mac_of(const std::string& text) {
  if (const std::optional<Mac> mac = parse_mac(text)) return *mac;
  throw Failure{EXIT_USAGE, quote(text) + " is no MAC address", "expected one such as 00:1b:21:0a:0b:0c"};
}

}  // namespace lumenharbour::ctl
