#include "access.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

namespace lumenharbour::ctl {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// @return the entry's name in a file of accounts; the number where it has none. A tool that is linked statically
/// cannot ask the services that the C library would.
template <typename Entry, typename Id>
std::string name_in(const char* path, Entry* (*next)(std::FILE*), Id Entry::*id, char* Entry::*name, Id wanted) {
  const File file(std::fopen(path, "re"), std::fclose);
  while (const Entry* const entry = file == nullptr ? nullptr : next(file.get()))
    if (entry->*id == wanted) return entry->*name;
  return std::to_string(wanted);
}

}  // namespace

std::string who_may_use(const std::string& socket) {
  struct stat file {};
  if (stat(socket.c_str(), &file) != 0) return "";
  const std::string owner = name_in("/etc/passwd", fgetpwent, &passwd::pw_uid, &passwd::pw_name, file.st_uid);
  const std::string group = name_in("/etc/group", fgetgrent, &group::gr_gid, &group::gr_name, file.st_gid);
  const bool is_groups = (file.st_mode & S_IWGRP) != 0;
  return is_groups
             ? "the user " + owner + " and the group " + group + " may use the socket"
             : "only the user " + owner + " may use the socket; SOCKET_GROUP in lumenharbourd.conf opens it to a group";
}

}  // namespace lumenharbour::ctl
