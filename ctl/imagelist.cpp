#include "imagelist.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "rule.h"
#include "zor_fd.h"

namespace lumenharbour::ctl {
namespace {

constexpr std::string_view KEY = "imagefile=";
constexpr std::string_view END = ";\n";
constexpr std::string_view SUFFIX = ".txt";
constexpr std::string_view BUILTIN = "built_in";

/// More than any imagelist that the director writes.
constexpr std::size_t MOST = 512;

/// @return the folder that the director takes for /tmp; nothing where the socket does not tell.
std::optional<std::string> folder_of(const Call& call) {
  const std::string& socket = call.args.socket;
  if (!std::string_view(socket).ends_with(LUMENHARBOUR_SOCKET_PATH)) return std::nullopt;
  return socket.substr(0, socket.rfind('/'));
}

/// @return what a file holds, as far as an imagelist may reach; nothing, and `errno`, when it cannot be read.
std::optional<std::string> bytes_of(const std::string& path) {
  // As the director does: in a folder where everybody may write no link is followed, and no FIFO waited for.
  const tZorFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status;
  if (file.fd < 0 || fstat(file.fd, &status) != 0) return std::nullopt;
  errno = EINVAL;
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  std::string bytes(MOST, '\0');
  const ssize_t len = read(file.fd, bytes.data(), bytes.size());
  if (len < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(len));
  return bytes;
}

/// @return the image that an imagelist of the director's names; nothing for what the director has not written.
std::optional<std::string> image_in(const std::string& bytes) {
  if (!bytes.starts_with(KEY) || !bytes.ends_with(END) || bytes.size() < KEY.size() + END.size()) return std::nullopt;
  return bytes.substr(KEY.size(), bytes.size() - KEY.size() - END.size());
}

void look(const std::optional<std::string>& folder, Imagelist* list) {
  if (!folder || list->path.empty()) {
    list->state = FileState::unknown;
    return;
  }
  // The path begins with the director's own name of the folder.
  const std::string path = *folder + list->path.substr(std::string_view("/tmp").size());
  const std::optional<std::string> bytes = bytes_of(path);
  if (!bytes) {
    const bool is_there = errno != ENOENT && errno != ENOTDIR;
    list->state = is_there ? FileState::unreadable : list->is_due ? FileState::missing : FileState::none;
    return;
  }
  const std::optional<std::string> image = image_in(*bytes);
  list->says = image.value_or(*bytes);
  list->state = !list->is_due ? FileState::left : image == list->image ? FileState::good : FileState::differs;
}

/// @return the names in a folder that may be imagelists.
std::vector<std::string> texts_in(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> opened(opendir(folder.c_str()), closedir);
  if (!opened) return names;
  while (const dirent* const entry = readdir(opened.get()))
    if (std::string_view(entry->d_name).ends_with(SUFFIX)) names.emplace_back(entry->d_name);
  std::sort(names.begin(), names.end());
  return names;
}

bool is_active(const Record& group) {
  return integer_of(group, LUMENHARBOUR_CUSTOMGRP_STATUS) == LUMENHARBOUR_ROW_ACTIVE;
}

/// Names the files of the built-in groups: by the places of their records, which the walk keeps to and does not tell.
/// The files that are there tell them, as long as none is missing and none too many.
std::map<const Record*, std::string> builtin_paths(const std::optional<std::string>& folder, const State& state) {
  std::vector<uint32> numbers;
  for (const std::string& name : folder ? texts_in(*folder) : std::vector<std::string>())
    if (const auto number = builtin_number(std::string_view(name).substr(0, name.size() - SUFFIX.size())))
      numbers.push_back(*number);
  std::sort(numbers.begin(), numbers.end());
  std::vector<const Record*> active;
  for (const Record& builtin : state.builtins)
    if (is_active(builtin)) active.push_back(&builtin);
  std::map<const Record*, std::string> paths;
  const bool is_none = folder && numbers.empty();
  if (!is_none && active.size() != numbers.size()) return paths;
  // No file has the name with the asterisk, so that each is told to be missing where none is there.
  for (std::size_t i = 0; i < active.size(); i++)
    paths[active[i]] = std::string("/tmp/").append(BUILTIN) + (is_none ? "*" : std::to_string(numbers[i])) + ".txt";
  return paths;
}

}  // namespace

const char* word_of(FileState state) {
  constexpr const char* words[] = {"good", "none", "missing", "differs", "left", "unreadable", "unknown"};
  return words[static_cast<std::size_t>(state)];
}

std::optional<uint32> builtin_number(std::string_view name) {
  if (!name.starts_with(BUILTIN)) return std::nullopt;
  const std::optional<uint32> number = parse_number(name.substr(BUILTIN.size()), 0xffff);
  // One way of writing it alone is the director's.
  return number && name.substr(BUILTIN.size()) == std::to_string(*number) ? number : std::nullopt;
}

std::vector<Imagelist> read_imagelists(const Call& call, const State& state) {
  const std::optional<std::string> folder = folder_of(call);
  const std::string& image = octets_of(state.global, LUMENHARBOUR_GLB_DEFAULTIMAGENAME);
  std::vector<Imagelist> lists;
  lists.push_back({nullptr, "defaults", "/tmp/imagelist.txt", !image.empty(), image, FileState::none, ""});
  for (const Record& group : state.groups) {
    const std::string path = "/tmp/" + octets_of(group, LUMENHARBOUR_CUSTOMGRP_NAME) + std::string(SUFFIX);
    lists.push_back({&group, title_of(group), path, is_active(group),
                     octets_of(group, LUMENHARBOUR_CUSTOMGRP_IMAGENAME), FileState::none, ""});
  }
  const std::map<const Record*, std::string> paths = builtin_paths(folder, state);
  for (const Record& builtin : state.builtins) {
    const auto path = paths.find(&builtin);
    lists.push_back({&builtin, title_of(builtin), path == paths.end() ? "" : path->second, is_active(builtin),
                     octets_of(builtin, LUMENHARBOUR_BUILTINGRP_IMAGENAME), FileState::none, ""});
  }
  for (Imagelist& list : lists) look(folder, &list);
  // A file that another group is to have is not left over.
  std::set<std::string> due;
  for (const Imagelist& list : lists)
    if (list.is_due) due.insert(list.path);
  for (Imagelist& list : lists) {
    if (list.state == FileState::left && due.contains(list.path)) list.state = FileState::none;
    if (list.state == FileState::unknown && !list.is_due && folder) list.state = FileState::none;
  }
  return lists;
}

std::vector<std::string> stray_imagelists(const Call& call, const std::vector<Imagelist>& lists) {
  const std::optional<std::string> folder = folder_of(call);
  std::vector<std::string> strays;
  if (!folder) return strays;
  std::set<std::string> owned;
  bool is_builtin_unknown = false;
  for (const Imagelist& list : lists) {
    owned.insert(list.name());
    is_builtin_unknown = is_builtin_unknown || list.state == FileState::unknown;
  }
  for (const std::string& name : texts_in(*folder)) {
    const bool is_builtin = builtin_number(std::string_view(name).substr(0, name.size() - SUFFIX.size())).has_value();
    if (owned.contains(name) || (is_builtin && is_builtin_unknown)) continue;
    const std::optional<std::string> bytes = bytes_of(*folder + '/' + name);
    if (bytes && image_in(*bytes)) strays.push_back(name);
  }
  return strays;
}

std::string verdict_on(const Imagelist& list) {
  const auto image = [](const std::string& name) { return name.empty() ? "no image" : "image " + printable(name); };
  switch (list.state) {
    case FileState::good:
      return "says " + image(list.says) + ", as it should";
    case FileState::none:
      return "is not there, as it should be";
    case FileState::missing:
      return "is missing";
    case FileState::differs:
      return "says " + image(list.says) + ", and should say " + image(list.image);
    case FileState::left:
      return "is left over: it says " + image(list.says) + ", and nobody should have it";
    case FileState::unreadable:
      return "cannot be read, or is no regular file";
    case FileState::unknown:
      return "cannot be seen from here";
  }
  return "";
}

}  // namespace lumenharbour::ctl
