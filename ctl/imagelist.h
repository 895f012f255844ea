#pragma once

/// @file
/// The imagelist files of a director: what they say, and what they should say.

#include "document.h"

namespace lumenharbour::ctl {

/// How a file stands to what the director's tables say.
enum class FileState {
  good,        ///< it says what it should
  none,        ///< it is not there and is not to be
  missing,     ///< it is to be there
  differs,     ///< it says something else
  left,        ///< it is there and is not to be
  unreadable,  ///< it is there, and cannot be read or is no regular file
  unknown,     ///< its name is not known, or it lies on another machine
};

/// @return a state in a word, as tables show it.
const char* word_of(FileState state);

/// An imagelist file.
struct Imagelist {
  const Record* group = nullptr;      ///< whose file; null for the defaults
  std::string of;                     ///< "group NAME", "built-in group PID" or "defaults"
  std::string path;                   ///< as the director says it; empty where its name is not known
  bool is_due = false;                ///< it is to be there
  std::string image;                  ///< what it is to name
  FileState state = FileState::none;  ///< how it is
  std::string says;                   ///< the image that it names; what it holds where it is no imagelist

  /// @return the file's name alone.
  std::string name() const { return path.substr(path.rfind('/') + 1); }
};

/// The imagelist files of the defaults, of each group and of each built-in group.
///
/// A tool that reaches the director through another folder than /tmp, as through /proc/PID/root/tmp, reads that folder;
/// through a socket of another name it sees no files.
std::vector<Imagelist> read_imagelists(const Call& call, const State& state);

/// @return the imagelist files that are nobody's, such as those of groups that were renamed, by name.
std::vector<std::string> stray_imagelists(const Call& call, const std::vector<Imagelist>& lists);

/// @return the number in the name that a built-in group's imagelist has, such as "built_in3"; nothing for another name.
std::optional<uint32> builtin_number(std::string_view name);

/// @return what is told of a file in one line, behind its path, such as "is missing".
std::string verdict_on(const Imagelist& list);

}  // namespace lumenharbour::ctl
