#include "layout.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace lumenharbour::ctl {
namespace {

/// Characters that do not take one column.
struct Range {
  uint32_t first, last;
  std::size_t width;
};

// A table of our own: wcwidth knows them in a locale of UTF-8 alone, which a switch need not have.
constexpr Range RANGES[] = {
    {0x0300, 0x036f, 0},   {0x0483, 0x0489, 0},   {0x0591, 0x05bd, 0},   {0x064b, 0x065f, 0},   {0x1100, 0x115f, 2},
    {0x1ab0, 0x1aff, 0},   {0x1dc0, 0x1dff, 0},   {0x200b, 0x200f, 0},   {0x20d0, 0x20ff, 0},   {0x231a, 0x231b, 2},
    {0x2e80, 0x303e, 2},   {0x3041, 0xa4cf, 2},   {0xa960, 0xa97f, 2},   {0xac00, 0xd7a3, 2},   {0xf900, 0xfaff, 2},
    {0xfe00, 0xfe0f, 0},   {0xfe20, 0xfe2f, 0},   {0xfe30, 0xfe6f, 2},   {0xff00, 0xff60, 2},   {0xffe0, 0xffe6, 2},
    {0x1f300, 0x1f64f, 2}, {0x1f680, 0x1f6ff, 2}, {0x1f900, 0x1f9ff, 2}, {0x20000, 0x3fffd, 2}, {0xe0100, 0xe01ef, 0}};

/// Takes a character off a text. @return its columns.
std::size_t take_character(std::string_view* text) {
  const auto lead = static_cast<unsigned char>(text->front());
  const std::size_t size = std::min<std::size_t>(text->size(), lead < 0xc0 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4);
  uint32_t character = size == 1 ? lead : lead & (0x7fU >> size);
  for (std::size_t i = 1; i < size; i++) character = character << 6 | (static_cast<unsigned char>((*text)[i]) & 0x3fU);
  text->remove_prefix(size);
  for (const Range& range : RANGES)
    if (character >= range.first && character <= range.last) return range.width;
  return 1;
}

/// @return where the line's second column begins, for what does not fit the line.
std::size_t indent_of(std::string_view line, std::size_t width) {
  const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = line.find("  ", begin);
  const std::size_t column = gap == line.npos ? line.npos : line.find_first_not_of(' ', gap);
  return column == line.npos || column > width * 2 / 3 ? begin + 2 : column;
}

std::string wrapped_line(std::string_view line, std::size_t width) {
  if (width_of(line) <= width) return std::string(line);
  const std::string indent(indent_of(line, width), ' ');
  std::string text;
  std::size_t used = 0;
  while (!line.empty()) {
    // A word with the blanks before it.
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find(' ', begin), line.size());
    const std::string_view word = line.substr(0, end);
    const bool is_over = used > indent.size() && used + width_of(word) > width;
    const std::string_view put = is_over ? word.substr(begin) : word;
    if (is_over) text += '\n' + indent;
    text += put;
    used = (is_over ? indent.size() : used) + width_of(put);
    line.remove_prefix(end);
  }
  return text;
}

}  // namespace

std::size_t terminal_width(int fd) {
  winsize size{};
  if (isatty(fd) == 0) return 0;
  return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::size_t width_of(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) width += take_character(&text);
  return width;
}

std::string cut(const std::string& text, std::size_t width) {
  if (width_of(text) <= width) return text;
  std::string_view rest = text;
  std::size_t used = 0;
  std::size_t kept = 0;
  for (used += take_character(&rest); used <= width - 2; used += take_character(&rest))
    kept = text.size() - rest.size();
  return text.substr(0, kept) + "..";
}

std::string wrapped(const std::string& text, std::size_t width) {
  if (width == 0) return text;
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    result += wrapped_line(std::string_view(text).substr(at, end - at), width);
    if (end < text.size()) result += '\n';
    at = end + 1;
  }
  return result;
}

}  // namespace lumenharbour::ctl
