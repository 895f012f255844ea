#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>

#include "apply.h"
#include "commands.h"
#include "export.h"
#include "words.h"
#include "zor_fd.h"

namespace lumenharbour::ctl {
namespace {

constexpr uint32 GENERATIONS = 5;
constexpr uint32 GENERATIONS_MAX = 1000;

/// A file of which older generations stand beside it, FILE.1 the youngest. While this is there no other run changes
/// them.
class Generations {
 public:
  /// @param[in] path  the file, or a link to it
  explicit Generations(const std::string& path) {
    std::error_code none;
    const std::filesystem::path target = std::filesystem::canonical(path, none);
    path_ = none ? path : target.string();
    is_there_ = stat(path_.c_str(), &before_) == 0;
    if (is_there_ && !S_ISREG(before_.st_mode))
      throw Failure{EXIT_USAGE, path + " is no file", "'lumenharbourctl export' prints the state"};
    const std::size_t slash = path_.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
    directory_.reset(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory_.fd < 0 || flock(directory_.fd, LOCK_EX) != 0) fail(directory);
  }

  std::string path(uint32 generation) const {
    return path_ + (generation == 0 ? "" : '.' + std::to_string(generation));
  }

  /// Makes a file of a text beside the others, in which nothing is lost when the power is. @return its path
  std::string write(const std::string& text) const;

  /// Has a file follow the present one, which becomes the first generation.
  void push(const std::string& file, uint32 generations) const;

  /// Has the present file and the first generation change places.
  void swap() const;

  /// @return true when the present file holds that text.
  bool says(const std::string& text) const {
    std::ifstream file(path_, std::ios::binary);
    return file && std::string(std::istreambuf_iterator<char>(file), {}) == text;
  }

 private:
  [[noreturn]] static void fail(const std::string& path) {
    const std::string reason = std::strerror(errno);
    throw Failure{EXIT_REFUSED, "cannot write " + path + ": " + reason, ""};
  }
  void move(const std::string& from, const std::string& to) const {
    if (std::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) fail(to);
  }
  /// Gives a file a second name, or where a file system knows no such thing another one.
  void name(const std::string& path, const std::string& as) const {
    unlink(as.c_str());
    if (link(path.c_str(), as.c_str()) != 0) move(path, as);
  }

  std::string path_;
  bool is_there_ = false;
  struct stat before_ {};  ///< the file, if it is there
  tZorFd directory_;
};

std::string Generations::write(const std::string& text) const {
  std::string made = path_ + ".XXXXXX";
  const tZorFd file(mkostemp(made.data(), O_CLOEXEC));
  if (file.fd < 0) fail(path_);
  if (is_there_) {
    std::ignore = fchown(file.fd, before_.st_uid, before_.st_gid);  // where this user may
    std::ignore = fchmod(file.fd, before_.st_mode & 0777);
  }
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(file.fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  if (done == text.size() && fsync(file.fd) == 0) return made;
  const int error = errno;
  unlink(made.c_str());
  errno = error;
  fail(path_);
}

void Generations::push(const std::string& file, uint32 generations) const {
  for (uint32 i = generations; i > 1; i--) move(path(i - 1), path(i));
  if (generations > 0) {
    const std::string second = file + "-";
    name(path_, second);
    move(second, path(1));
  }
  move(file, path_);
  fsync(directory_.fd);
}

void Generations::swap() const {
  const std::string second = path_ + ".swap";
  name(path_, second);
  move(path(1), path_);
  move(second, path(1));
  fsync(directory_.fd);
}

uint32 generations_of(const Arguments& args) {
  if (args.generations.empty()) return GENERATIONS;
  const uint32 number = number_of(args.generations, "number of generations");
  if (number > GENERATIONS_MAX)
    throw Failure{EXIT_USAGE, '\'' + args.generations + "' is no number of generations",
                  "expected one from 0 to " + std::to_string(GENERATIONS_MAX)};
  return number;
}

}  // namespace

void save(const Call& call) {
  const uint32 generations = generations_of(call.args);
  const Generations files(call.args.file);  // first: of two runs the later one has the later state
  const std::string text = export_text(call);
  if (!files.says(text)) files.push(files.write(text), generations);
  print_done(call.args);
}

void rollback(const Call& call) {
  const Generations files(call.args.file);
  refuse_read_only(call, files.path(1));
  Document wanted = read_document(files.path(1));
  wanted.make_whole();
  Call whole = call;
  whole.args.prune = true;
  apply_document(whole, wanted);
  if (!call.args.dry_run) files.swap();
}

}  // namespace lumenharbour::ctl
