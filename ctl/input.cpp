#include "input.h"

#include <yaml.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "words.h"

namespace lumenharbour::ctl {
namespace {

constexpr std::size_t SIZE_MAX_MIB = 16;
constexpr std::size_t BYTES_MAX = SIZE_MAX_MIB << 20;
constexpr std::size_t DEPTH_MAX = 32;
constexpr std::size_t VALUES_MAX = 1000000;
constexpr std::size_t DIRECTIVES_MAX = 8;

constexpr char EXPECTED[] = "expected YAML or JSON";

std::size_t line_of(const yaml_mark_t& mark) {
  return mark.line + 1;
}

/// @return what the parser has come upon.
InputFault fault_of(const yaml_parser_t& parser, const std::string& bytes) {
  if (parser.error == YAML_MEMORY_ERROR) throw std::bad_alloc();
  if (parser.error != YAML_READER_ERROR) return {line_of(parser.problem_mark), "this is no YAML", EXPECTED};
  const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(std::min(parser.problem_offset, bytes.size()));
  return {static_cast<std::size_t>(std::count(bytes.begin(), end, '\n')) + 1, "this is no text in UTF-8", EXPECTED};
}

/// Judges what the parser tells, one event after the other.
class Judge {
 public:
  /// @return what is wrong with an event; empty for nothing.
  const char* take(const yaml_event_t& event) {
    switch (event.type) {
      case YAML_ALIAS_EVENT:
        return "an alias stands here";
      case YAML_SCALAR_EVENT:
        return take_value(event.data.scalar.anchor != nullptr, 0);
      case YAML_SEQUENCE_START_EVENT:
        return take_value(event.data.sequence_start.anchor != nullptr, 1);
      case YAML_MAPPING_START_EVENT:
        return take_value(event.data.mapping_start.anchor != nullptr, 1);
      case YAML_SEQUENCE_END_EVENT:
      case YAML_MAPPING_END_EVENT:
        depth_--;
        return "";
      default:
        return "";
    }
  }

 private:
  const char* take_value(bool has_anchor, std::size_t deeper) {
    depth_ += deeper;
    if (has_anchor) return "an anchor stands here";
    if (depth_ > DEPTH_MAX) return "lists and mappings are nested too deep";
    return ++values_ > VALUES_MAX ? "there are more values than any director has" : "";
  }

  std::size_t depth_ = 0;
  std::size_t values_ = 0;
};

/// @return the line of a directive too many, each of which the parser compares with all others; 0 for none.
std::size_t directives_end(const std::string& bytes) {
  std::size_t found = 0;
  std::size_t line = 1;
  for (std::size_t at = 0; at < bytes.size(); at = std::min(bytes.find('\n', at), bytes.size() - 1) + 1, line++)
    if (bytes[at] == '%' && ++found > DIRECTIVES_MAX) return line;
  return 0;
}

}  // namespace

std::string read_input(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(path == "-" ? nullptr : std::fopen(path.c_str(), "re"),
                                                               std::fclose);
  std::FILE* const file = path == "-" ? stdin : opened.get();
  const std::string attempt = "cannot read " + (path == "-" ? "standard input" : shortened(path, PATH_SHOWN)) + ": ";
  std::string bytes;
  if (file != nullptr) {
    char part[4096];
    while (const std::size_t len = std::fread(part, 1, sizeof part, file)) {
      bytes.append(part, len);
      if (bytes.size() > BYTES_MAX)
        throw Failure{EXIT_USAGE, attempt + "it is larger than " + std::to_string(SIZE_MAX_MIB) + " MiB",
                      "no director's state is; is it the right file?"};
    }
    if (std::ferror(file) == 0) return bytes;
  }
  const int error = errno;
  throw Failure{error == ENOENT ? EXIT_NOT_FOUND : EXIT_USAGE, attempt + std::strerror(error), ""};
}

std::optional<bool> parse_truth(std::string_view text) {
  constexpr std::string_view words[][2] = {{"yes", "no"}, {"true", "false"}, {"on", "off"}, {"y", "n"}};
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const auto& [yes, no] : words)
    if (lower == yes || lower == no) return lower == yes;
  return std::nullopt;
}

std::optional<std::string> mac_of_base_60(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  uint64_t parts[LUMENHARBOUR_MAC_SIZE];
  for (std::size_t i = std::size(parts) - 1; i > 0; i--, number /= 60) parts[i] = number % 60;
  parts[0] = number;
  // The first is what is left: above 9, since a smaller one has a 0 before it, and of two digits.
  if (parts[0] < 10 || parts[0] > 99) return std::nullopt;
  std::string mac;
  for (const uint64_t part : parts) mac += (mac.empty() ? "" : part < 10 ? ":0" : ":") + std::to_string(part);
  return mac;
}

std::optional<InputFault> fault_of_yaml(const std::string& bytes) {
  if (const std::size_t line = directives_end(bytes); line > 0) return InputFault{line, "this is no YAML", EXPECTED};
  yaml_parser_t parser;
  if (yaml_parser_initialize(&parser) == 0) throw std::bad_alloc();
  const std::unique_ptr<yaml_parser_t, void (*)(yaml_parser_t*)> guard(&parser, yaml_parser_delete);
  yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  Judge judge;
  for (bool is_end = false; !is_end;) {
    yaml_event_t event;
    if (yaml_parser_parse(&parser, &event) == 0) return fault_of(parser, bytes);
    const std::unique_ptr<yaml_event_t, void (*)(yaml_event_t*)> owner(&event, yaml_event_delete);
    if (const std::string message = judge.take(event); !message.empty())
      return InputFault{line_of(event.start_mark), message, "'lumenharbourctl export' prints what a file is like"};
    is_end = event.type == YAML_STREAM_END_EVENT;
  }
  return std::nullopt;
}

}  // namespace lumenharbour::ctl
