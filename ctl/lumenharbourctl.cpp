/// @file
/// lumenharbourctl: the operator's command line to a running daemon.

#include "command_line.h"
#include "report.h"
#include "shell.h"

namespace {

using namespace lumenharbour::ctl;

void run_all(const CommandLine& line) {
  if (line.args.lines.empty()) return line.command != nullptr || !line.help.empty() ? run(line) : run_shell(line.args);
  if (line.command != nullptr) throw Failure{EXIT_USAGE, "a command stands beside --command", "give one or the other"};
  Arguments defaults = line.args;
  const std::vector<std::string> lines = std::move(defaults.lines);
  defaults.lines.clear();
  for (const std::string& text : lines) {
    const CommandLine inner = parse(split(text), defaults);
    if (!inner.args.lines.empty() || (inner.command == nullptr && inner.help.empty()))
      throw Failure{EXIT_USAGE, "'" + text + "' is no command", "see 'lumenharbourctl --help'"};
    run(inner);
  }
}

/// @return what the words say of the format, for failures that come before they are understood.
Arguments format_of(const std::vector<std::string>& words) {
  Arguments args;
  for (std::size_t i = 0; i < words.size() && words[i] != "--"; i++) {
    const bool is_next = i + 1 < words.size() && words[i + 1] == "json";
    const bool is_json = words[i] == "-fjson" || words[i] == "--format=json" ||
                         ((words[i] == "-f" || words[i] == "--format") && is_next);
    if (is_json) args.format = "json";
  }
  return args;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    run_all(parse(words, {}));
    return EXIT_DONE;
  } catch (const Failure& failure) {
    print_failure(format_of(words), failure);
    return failure.exit;
  }
}
