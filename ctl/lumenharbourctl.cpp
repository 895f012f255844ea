/// @file
/// lumenharbourctl: the operator's command line to a running daemon.

#include <new>

#include "command_line.h"
#include "command_table.h"
#include "report.h"
#include "shell.h"
#include "words.h"

namespace {

using namespace lumenharbour::ctl;

void run_all(const CommandLine& line) {
  if (line.args.lines.empty())
    return line.command != nullptr || !line.help.empty() ? run(line) : run_shell(COMMANDS, line.args);
  if (line.command != nullptr) throw Failure{EXIT_USAGE, "a command stands beside --command", "give one or the other"};
  Arguments defaults = line.args;
  const std::vector<std::string> lines = std::move(defaults.lines);
  defaults.lines.clear();
  for (const std::string& text : lines) {
    const CommandLine inner = parse(COMMANDS, split(text), defaults);
    if (!inner.args.lines.empty() || (inner.command == nullptr && inner.help.empty()))
      throw Failure{EXIT_USAGE, quote(text) + " is no command", "see 'lumenharbourctl --help'"};
    run(inner);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  try {
    const CommandLine line = parse(COMMANDS, {argv + 1, argv + argc}, {});
    args = line.args;
    run_all(line);
    return EXIT_DONE;
  } catch (const Failure& failure) {
    print_failure(args, failure);
    return failure.exit;
  } catch (const std::bad_alloc&) {
    print_failure(args, {EXIT_REFUSED, "there is not enough memory for it", ""});
    return EXIT_REFUSED;
  }
}
