#include "tool.h"

namespace lumenharbour::ctl {
namespace {

constexpr std::string_view FORMATS[] = {"plain", FORMAT_JSON};

constexpr Argument OPTION_TABLE[] = {
    {"-h,--help", std::variant_alternative_t<2, decltype(Argument::field)>{}, false,
     "Print this help message and exit"},
    {"--version", std::variant_alternative_t<2, decltype(Argument::field)>{}, false, "Print the version and exit"},
    {"-s,--socket", &Arguments::socket, false, "the daemon's socket", "PATH", Hint::file},
    {"-t,--timeout", &Arguments::timeout, false, "how long to wait for an answer; 5 if left out", "SECONDS"},
    {"--deadline", &Arguments::deadline, false, "how long a command may take with all its answers", "SECONDS"},
    {"-f,--format", &Arguments::format, false, "plain or json", "FORMAT", Hint::words, FORMATS},
    {"-c,--command", &Arguments::lines, false, "run a command; may be given several times", "COMMAND"},
    {"--read-only", &Arguments::read_only, false, "refuse every command that changes the daemon"},
};

constexpr ExitText EXIT_TABLE[] = {
    {EXIT_DONE, "done"},
    {EXIT_REFUSED, "refused"},
    {EXIT_USAGE, "wrong usage"},
    {EXIT_NOT_FOUND, "not found"},
    {EXIT_UNREACHABLE, "no daemon reached"},
    {EXIT_TIMED_OUT, "no answer in time"},
};

}  // namespace

constexpr std::span<const Argument> OPTIONS = OPTION_TABLE;
constexpr std::span<const ExitText> EXITS = EXIT_TABLE;

}  // namespace lumenharbour::ctl
