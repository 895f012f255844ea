#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "zor_linux.h"

namespace {

constexpr const char* DEFAULT_FILE = "/etc/lumenharbour/platform.conf";
constexpr const char* FILE_VARIABLE = "LUMENHARBOUR_PLATFORM_CONF";
constexpr std::string_view BLANKS = " \t\r";
constexpr uint32 CLOCK_SPEED_MAX = 1000;
constexpr tZorLinuxConf DEFAULTS = {
    .uplink = "",
    .startup_config = "/mnt/mtd/startcfg",
    .reboot_command = "/sbin/reboot",
    .dhcp_state = "/run/lumenharbour/dhcp.options",
    .dhcp_notify_command = "",
    .clock_speed = 1,
};

tZorLinuxConf conf;
bool loaded = false;

template <std::size_t size>
bool set_text(char (&field)[size], std::string_view value) {
  if (value.size() >= size) return false;
  std::fill(value.copy(field, size) + field, field + size, '\0');
  return true;
}

template <std::size_t size>
bool set_path(char (&field)[size], std::string_view value) {
  return value.starts_with('/') && set_text(field, value);
}

bool set_uplink(tZorLinuxConf* to, std::string_view value) {
  return !value.empty() && value.find_first_of("/ \t") == value.npos && set_text(to->uplink, value);
}

bool set_clock_speed(tZorLinuxConf* to, std::string_view value) {
  uint32 speed;
  if (!zorLinuxNumberRead(value, &speed) || speed == 0 || speed > CLOCK_SPEED_MAX) return false;
  to->clock_speed = speed;
  return true;
}

struct tKey {
  std::string_view name;
  bool (*set)(tZorLinuxConf* to, std::string_view value);  // false: the value is bad, nothing is set
  const char* allowed;
};

constexpr tKey KEYS[] = {
    {"uplink", set_uplink, "an interface name of 1 to 15 characters"},
    {"startup_config", [](tZorLinuxConf* to, std::string_view value) { return set_path(to->startup_config, value); },
     "an absolute path of at most 511 bytes"},
    {"reboot_command",
     [](tZorLinuxConf* to, std::string_view value) { return !value.empty() && set_text(to->reboot_command, value); },
     "a shell command of 1 to 511 bytes"},
    {"dhcp_state", [](tZorLinuxConf* to, std::string_view value) { return set_path(to->dhcp_state, value); },
     "an absolute path of at most 511 bytes"},
    {"dhcp_notify_command",
     [](tZorLinuxConf* to, std::string_view value) { return set_text(to->dhcp_notify_command, value); },
     "a shell command of at most 511 bytes, or nothing"},
    {"clock_speed", set_clock_speed, "a whole number from 1 to 1000"},
};
static_assert(IF_NAMESIZE == 16 && ZOR_LINUX_TEXT_SIZE == 512, "the texts above name the limits");

// Where a line stands, for its report.
struct tPlace {
  const char* path;
  unsigned line;
};

int width(std::string_view text) {
  return static_cast<int>(text.size());
}

std::string_view trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(BLANKS);
  if (begin == text.npos) return {};
  return zorLinuxTail(zorLinuxHead(text, text.find_last_not_of(BLANKS) + 1), begin);
}

std::string_view without_comment(std::string_view text) {
  std::size_t at = text.find('#');
  while (at != text.npos && at != 0 && BLANKS.find(text[at - 1]) == BLANKS.npos) at = text.find('#', at + 1);
  return zorLinuxHead(text, at);
}

void report_unknown_key(const tPlace& place, std::string_view key) {
  fprintf(stderr, "%s:%u: unknown key \"%.*s\"; known are", place.path, place.line, width(key), key.data());
  for (const tKey& known : KEYS) {
    fprintf(stderr, "%s %.*s", &known == KEYS ? "" : ",", width(known.name), known.name.data());
  }
  fputc('\n', stderr);
}

void apply_setting(const tPlace& place, std::string_view key, std::string_view value) {
  const auto* known = std::find_if(std::begin(KEYS), std::end(KEYS), [&](const tKey& k) { return k.name == key; });
  if (known == std::end(KEYS)) return report_unknown_key(place, key);
  if (known->set(&conf, value)) return;
  fprintf(stderr, "%s:%u: bad value \"%.*s\" for %.*s; allowed is %s\n", place.path, place.line, width(value),
          value.data(), width(key), key.data(), known->allowed);
}

void apply_line(const tPlace& place, const tZorLinuxLine& line) {
  if (line.cut) {
    fprintf(stderr, "%s:%u: line too long; allowed are %zu bytes\n", place.path, place.line, sizeof(line.text));
    return;
  }
  const std::string_view text = trim(without_comment({line.text, line.len}));
  if (text.empty()) return;
  // Checked before anything of the line is printed: a report must not carry terminal sequences.
  if (std::any_of(text.begin(), text.end(), [](char c) { return c != '\t' && zorLinuxIsControl(c); })) {
    fprintf(stderr, "%s:%u: control character; allowed is plain text\n", place.path, place.line);
    return;
  }
  const std::size_t equals = text.find('=');
  if (equals == text.npos) {
    fprintf(stderr, "%s:%u: \"%.*s\" is not of the form key = value\n", place.path, place.line, width(text),
            text.data());
    return;
  }
  apply_setting(place, trim(zorLinuxHead(text, equals)), trim(zorLinuxTail(text, equals + 1)));
}

}  // namespace

const tZorLinuxConf& zorLinuxConf() {
  if (loaded) return conf;
  const char* named = getenv(FILE_VARIABLE);
  const bool is_named = named != nullptr && named[0] != '\0';
  zorLinuxConfLoad(is_named ? named : DEFAULT_FILE, !is_named);
  return conf;
}

void zorLinuxConfLoad(const char* path, bool optional) {
  conf = DEFAULTS;
  loaded = true;
  const tZorLinuxFile file = zorLinuxFileOpen(path);
  if (file == nullptr) {
    if (!optional || errno != ENOENT) fprintf(stderr, "%s: %s; using the defaults\n", path, strerror(errno));
    return;
  }
  tZorLinuxLine line;
  for (tPlace place = {path, 1}; zorLinuxLineRead(file.get(), &line); place.line++) apply_line(place, line);
  if (ferror(file.get()) != 0) fprintf(stderr, "%s: %s; the rest is not read\n", path, strerror(errno));
}

tZorLinuxFile zorLinuxFileOpen(const char* path, int flags) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC | flags);
  if (fd < 0) return nullptr;
  tZorLinuxFile file(fdopen(fd, "r"));
  if (file == nullptr) close(fd);
  return file;
}

bool zorLinuxLineRead(FILE* file, tZorLinuxLine* line) {
  line->len = 0;
  line->cut = false;
  int c = getc(file);
  if (c == EOF) return false;
  for (; c != EOF && c != '\n'; c = getc(file)) {
    line->cut = line->len == sizeof(line->text);
    if (!line->cut) line->text[line->len++] = static_cast<char>(c);
  }
  return true;
}

bool zorLinuxNumberRead(std::string_view text, uint32* number) {
  uint32 read;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, read);
  if (error != std::errc() || stop != end) return false;
  *number = read;
  return true;
}
