#include "shell.h"

#include <histedit.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "complete.h"
#include "layout.h"
#include "report.h"
#include "role.h"
#include "tool.h"

namespace lumenharbour::ctl {
namespace {

using Words = std::vector<std::string>;

constexpr int HISTORY_LINES = 1000;

// ---- Words ----

/// A line's words, and how it ends.
struct Parts {
  Words words;
  std::size_t last = 0;  ///< where the last word begins, in bytes
  bool is_word = false;  ///< the line ends in a word, not behind one
  char quote = '\0';     ///< quote that is not closed
  bool is_comment = false;
};

/// Takes the character at `i`, which is no blank outside of quotes. @return the last index that it took.
std::size_t take_character(std::string_view line, std::size_t i, Parts* parts) {
  const char c = line[i];
  const bool is_escape = c == '\\' && parts->quote != '\'' && i + 1 < line.size();
  if (is_escape) {
    parts->words.back() += line[i + 1];
    return i + 1;
  }
  if (c == parts->quote)
    parts->quote = '\0';
  else if (parts->quote == '\0' && (c == '\'' || c == '"'))
    parts->quote = c;
  else
    parts->words.back() += c;
  return i;
}

Parts take_apart(std::string_view line) {
  Parts parts;
  for (std::size_t i = 0; i < line.size(); i++) {
    const bool is_blank = parts.quote == '\0' && std::strchr(" \t\r\n", line[i]) != nullptr;
    if (is_blank) {
      parts.is_word = false;
      continue;
    }
    if (!parts.is_word && line[i] == '#') {
      parts.is_comment = true;
      return parts;
    }
    if (!parts.is_word) {
      parts.words.emplace_back();
      parts.last = i;
    }
    parts.is_word = true;
    i = take_character(line, i, &parts);
  }
  return parts;
}

/// @return a word as `take_apart` reads it back.
std::string escaped(std::string_view word) {
  std::string text;
  for (const char c : word) {
    const bool is_special = std::strchr(" \t\\'\"", c) != nullptr || (c == '#' && text.empty());
    text += is_special ? std::string("\\") + c : std::string(1, c);
  }
  return text;
}

// ---- Lines ----

/// What every line is taken apart by.
struct Session {
  Commands commands;
  const Arguments& defaults;  ///< options that hold where a line says nothing else
};

bool is_end(const Words& words) {
  return words.size() == 1 && (words[0] == "exit" || words[0] == "quit");
}

CommandLine line_of(Words words, const Session& session) {
  if (!words.empty() && words[0] == "?") words[0] = "help";
  CommandLine line = parse(session.commands, words, session.defaults);
  if (!line.args.lines.empty()) throw Failure{EXIT_USAGE, "a line cannot hold --command", "give the command itself"};
  if (line.command == nullptr && line.help.empty())
    throw Failure{EXIT_USAGE, "the line holds options and no command", "options hold for their own line; see 'help'"};
  return line;
}

void run_input(const Session& session) {
  std::string line;
  for (int number = 1; std::getline(std::cin, line); number++) {
    try {
      const Words words = split(line);
      if (words.empty()) continue;
      if (is_end(words)) return;
      run(line_of(words, session));
    } catch (Failure& failure) {
      failure.message.insert(0, "line " + std::to_string(number) + ": ");
      throw;
    }
  }
}

/// Runs a line and tells how it failed. @return the exit status that it has.
int run_told(const Words& words, const Session& session) {
  Arguments args = session.defaults;
  try {
    const CommandLine line = line_of(words, session);
    args = line.args;
    run(line);
    return EXIT_DONE;
  } catch (const Failure& failure) {
    print_failure(args, failure);
    std::fflush(stdout);
    return failure.exit;
  }
}

/// Lets an interrupt end the processes that this one starts, and not this one. A key that comes before the terminal is
/// set for editing, or when it no longer is, sends one too.
class Uninterrupted {
 public:
  Uninterrupted() : before_(std::signal(SIGINT, SIG_IGN)) {}
  ~Uninterrupted() { std::signal(SIGINT, before_); }
  Uninterrupted(const Uninterrupted&) = delete;
  Uninterrupted& operator=(const Uninterrupted&) = delete;

 private:
  void (*before_)(int);
};

/// Runs a line in a process of its own, which an interrupt ends wherever it is, with nothing left behind here.
void run_apart(const Words& words, const Session& session) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGINT, SIG_DFL);
    _exit(run_told(words, session));
  }
  int status = 0;
  if (child < 0)
    note(std::string("cannot start a process for the command: ") + std::strerror(errno));
  else if (waitpid(child, &status, 0) == child && WIFSIGNALED(status))
    std::fputc('\n', stdout);
}

// ---- Completion ----

/// @return the files that a path may become; those in a directory, with a slash behind directories.
Words files(const std::string& path) {
  const std::size_t end = path.rfind('/') + 1;
  const std::string directory = path.substr(0, end);
  const std::string begin = path.substr(end);
  Words found;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error), none;
       !error && entry != none; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const bool is_hidden = name[0] == '.' && begin.empty();
    if (is_hidden || !name.starts_with(begin)) continue;
    std::error_code unknown;
    found.push_back(directory + name + (entry->is_directory(unknown) ? "/" : ""));
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// @return what may stand in place of the last of the words.
Words offer(Words words, const Session& session) {
  Words offered;
  if (words.size() == 1)
    for (const char* const word : {"exit", "help", "quit"})
      if (std::string_view(word).starts_with(words[0])) offered.emplace_back(word);
  if (words.size() > 1 && (words[0] == "help" || words[0] == "?")) words.erase(words.begin());
  bool is_file = false;
  for (std::string& word : candidates(session.commands, words, session.defaults, &is_file))
    offered.push_back(std::move(word));
  if (!is_file) return offered;
  const std::string& last = words.back();
  const std::size_t path = last.starts_with("--") ? last.find('=') + 1 : 0;
  for (const std::string& file : files(last.substr(path))) offered.push_back(last.substr(0, path) + file);
  return offered;
}

std::string common_begin(const Words& words) {
  std::string begin = words[0];
  for (const std::string& word : words)
    begin.erase(std::mismatch(begin.begin(), begin.end(), word.begin(), word.end()).first, begin.end());
  return begin;
}

/// Prints words below the line that is being edited.
void list(const Words& words) {
  std::fputc('\n', stdout);
  for (const std::string& word : words) print_line("  " + printable(word));
  std::fflush(stdout);
}

/// Prints what may follow below the line that is being edited, with a line of help each.
void list(const std::vector<Offer>& offers) {
  std::size_t width = 0;
  for (const Offer& offer : offers) width = std::max(width, width_of(offer.word));
  std::string text = "\n";
  for (const Offer& offer : offers) {
    const std::string gap(width + 2 - width_of(offer.word), ' ');
    text += wrapped("  " + offer.word + gap + printable(offer.help), terminal_width(STDOUT_FILENO)) + '\n';
  }
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

/// Puts a word in place of what the line ends in. @param[in] begin  where that begins, in bytes
unsigned char replace(EditLine* edit, const std::string& before, std::size_t begin, const std::string& word) {
  const std::string old = before.substr(begin);
  const std::size_t characters = std::mbstowcs(nullptr, old.c_str(), 0);
  if (old == word || characters == static_cast<std::size_t>(-1)) return CC_REFRESH_BEEP;
  el_deletestr(edit, static_cast<int>(characters));
  el_insertstr(edit, word.c_str());
  return CC_REFRESH;
}

unsigned char complete(EditLine* edit, int) {
  void* session = nullptr;
  el_get(edit, EL_CLIENTDATA, &session);
  const LineInfo* const line = el_line(edit);
  const std::string before(line->buffer, line->cursor);
  Parts parts = take_apart(before);
  if (parts.is_comment) return CC_REFRESH_BEEP;
  if (!parts.is_word) parts.words.emplace_back();
  const std::size_t begin = parts.is_word ? parts.last : before.size();
  const Words offered = offer(parts.words, *static_cast<const Session*>(session));
  if (offered.empty()) return CC_REFRESH_BEEP;
  const std::string common = common_begin(offered);
  if (offered.size() > 1 && common.size() <= parts.words.back().size()) {
    list(offered);
    return CC_REDISPLAY;
  }
  const bool is_whole = offered.size() == 1 && !common.ends_with('/');
  return replace(edit, before, begin, escaped(common) + (is_whole ? " " : ""));
}

/// Says what may follow. In quotes and behind a backslash the key is a character like any other.
unsigned char explain(EditLine* edit, int) {
  void* data = nullptr;
  el_get(edit, EL_CLIENTDATA, &data);
  const Session& session = *static_cast<const Session*>(data);
  const LineInfo* const line = el_line(edit);
  const std::string before(line->buffer, line->cursor);
  Parts parts = take_apart(before);
  if (parts.is_comment || parts.quote != '\0' || before.ends_with('\\')) {
    el_insertstr(edit, "?");
    return CC_REFRESH;
  }
  if (!parts.is_word) parts.words.emplace_back();
  if (parts.words.size() > 1 && parts.words[0] == "help") parts.words.erase(parts.words.begin());
  const std::vector<Offer> offers = explained(session.commands, parts.words, session.defaults);
  if (offers.empty()) return CC_REFRESH_BEEP;
  list(offers);
  return CC_REDISPLAY;
}

// ---- At a terminal ----

unsigned char give_up_line(EditLine* edit, int) {
  const LineInfoW* const line = el_wline(edit);
  const auto length = static_cast<int>(line->lastchar - line->buffer);
  el_cursor(edit, static_cast<int>(line->lastchar - line->cursor));
  el_deletestr(edit, length);
  std::fputs("^C\n", stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

unsigned char suspend(EditLine*, int) {
  kill(0, SIGTSTP);
  return CC_REDISPLAY;
}

std::string prompt_text;

char* prompt(EditLine*) {
  return prompt_text.data();
}

/// @return what the prompt says of where lines run: the role, the host, and that nothing may be changed.
std::string prompt_of(const Session& session) {
  constexpr int patience_ms = 300;
  char host[HOST_NAME_MAX + 1] = "";
  gethostname(host, sizeof host - 1);
  const Arguments& args = session.defaults;
  std::string role;
  try {
    role = role_of({Daemon({args.socket, patience_ms, {}}), args, session.commands.front(), session.commands});
    if (const std::size_t either = role.find(" or "); either != std::string::npos) role.replace(either, 4, "/");
  } catch (const Failure& failure) {
    role = failure.exit == EXIT_UNREACHABLE ? "no daemon" : "no answer";
  }
  return "lumenharbour " + role + '@' + printable(host) + (session.defaults.read_only ? " (read-only)> " : "> ");
}

/// @return the history's file; empty for none.
std::string history_path() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  const char* const home = std::getenv("HOME");
  if (state != nullptr && *state != '\0') return std::string(state) + '/' + HISTORY_IN_STATE;
  return home == nullptr || *home == '\0' ? "" : std::string(home) + '/' + HISTORY_IN_HOME;
}

/// A terminal on which lines are edited and remembered.
class Terminal {
 public:
  explicit Terminal(const Session* session)
      : session_(session),
        edit_(el_init(TOOL, stdin, stdout, stderr)),
        history_(history_init()),
        path_(history_path()) {
    if (edit_ == nullptr || history_ == nullptr) throw Failure{EXIT_REFUSED, "cannot edit lines on this terminal", ""};
    ::history(history_.get(), &event_, H_SETSIZE, HISTORY_LINES);
    ::history(history_.get(), &event_, H_SETUNIQUE, 1);
    if (!path_.empty()) ::history(history_.get(), &event_, H_LOAD, path_.c_str());
    EditLine* const edit = edit_.get();
    el_set(edit, EL_CLIENTDATA, session);
    el_set(edit, EL_PROMPT, prompt);
    el_set(edit, EL_EDITOR, "emacs");
    el_set(edit, EL_SIGNAL, 1);
    el_set(edit, EL_HIST, ::history, history_.get());
    el_set(edit, EL_ADDFN, "lumenharbour-complete", "Complete a word", complete);
    el_set(edit, EL_ADDFN, "lumenharbour-give-up", "Give up the line", give_up_line);
    el_set(edit, EL_ADDFN, "lumenharbour-suspend", "Stop the tool until it is continued", suspend);
    el_set(edit, EL_ADDFN, "lumenharbour-explain", "Say what may follow", explain);
    el_set(edit, EL_BIND, "?", "lumenharbour-explain", nullptr);
    el_set(edit, EL_BIND, "^I", "lumenharbour-complete", nullptr);
    el_set(edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // While a line is edited, the keys that send signals are keys like any other.
    el_set(edit, EL_SETTY, "-d", "-isig", nullptr);
    el_set(edit, EL_BIND, "^C", "lumenharbour-give-up", nullptr);
    el_set(edit, EL_BIND, "^Z", "lumenharbour-suspend", nullptr);
    el_source(edit, nullptr);
  }

  /// Reads a line. @return false at the end of input.
  bool read(std::string* line) {
    prompt_text = prompt_of(*session_);
    int length = 0;
    const char* const text = el_gets(edit_.get(), &length);
    if (text == nullptr || length <= 0) return false;
    line->assign(text, static_cast<std::size_t>(length));
    if (line->ends_with('\n')) line->pop_back();
    return true;
  }

  /// Keeps a line; a file that cannot be written is done without.
  void remember(const std::string& line) {
    ::history(history_.get(), &event_, H_ENTER, line.c_str());
    if (!path_.empty()) ::history(history_.get(), &event_, H_SAVE, path_.c_str());
  }

 private:
  struct End {
    void operator()(EditLine* edit) const { el_end(edit); }
    void operator()(History* history) const { history_end(history); }
  };

  const Session* session_;
  std::unique_ptr<EditLine, End> edit_;
  std::unique_ptr<History, End> history_;
  std::string path_;
  HistEvent event_{};
};

void run_prompt(const Session& session) {
  const Uninterrupted guard;
  std::setlocale(LC_CTYPE, "");
  Terminal terminal(&session);
  std::string line;
  while (terminal.read(&line)) {
    try {
      if (take_apart(line).words.empty()) continue;
      terminal.remember(line);
      const Words words = split(line);
      if (is_end(words)) return;
      run_apart(words, session);
    } catch (const Failure& failure) {
      print_failure(session.defaults, failure);
    }
  }
  std::fputc('\n', stdout);
}

}  // namespace

std::vector<std::string> split(const std::string& line) {
  Parts parts = take_apart(line);
  if (parts.quote != '\0')
    throw Failure{EXIT_USAGE, std::string("a quote ") + parts.quote + " is not closed",
                  "close it, or put \\ before it"};
  return std::move(parts.words);
}

void run_shell(Commands commands, const Arguments& defaults) {
  const Session session = {commands, defaults};
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return run_input(session);
  run_prompt(session);
}

}  // namespace lumenharbour::ctl
