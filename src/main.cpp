// The process: everything else is reachable without `main`, so that tests can link the daemon whole.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lumenharbour.h"
#include "zor_dhcpc.h"

namespace {

constexpr char USAGE[] = "usage: lumenharbourd [CLIENTS [GROUPS [BUILTINS [ROLE [ENABLE]]]]] | --help | --version\n";

constexpr char HELP[] =
    "\n"
    "Provisioning daemon of a managed switch. Listens on %s\n"
    "and comes up with no role running; start one with 'lumenharbourctl set state on'.\n"
    "\n"
    "  CLIENTS   client records of the director (0 or absent: 100)\n"
    "  GROUPS    custom group records, and as many member records (0 or absent: 10)\n"
    "  BUILTINS  built-in group records (0 or absent: 10)\n"
    "  ROLE      accepted for start scripts that pass it; no role is started\n"
    "  ENABLE    accepted likewise and ignored\n";

/// @return argument `n` as a decimal number, 0 when it is missing.
uint32 number_argument(int argc, char** argv, int n) {
  return n < argc ? static_cast<uint32>(atoi(argv[n])) : 0;
}

/// Answers `--help` and `--version`, and refuses what else is meant for an option. A daemon that took it for a number
/// would take the socket of the one that runs. A negative number is no option.
void options_answer(int argc, char** argv) {
  for (int i = 1; i < argc; i++) {
    const char* const word = argv[i];
    const bool is_letter = (word[1] >= 'a' && word[1] <= 'z') || (word[1] >= 'A' && word[1] <= 'Z');
    if (word[0] != '-' || (word[1] != '-' && !is_letter)) continue;
    if (strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0) {
      fputs(USAGE, stdout);
      printf(HELP, LUMENHARBOUR_SOCKET_PATH);
      exit(0);
    }
    if (strcmp(word, "--version") == 0) {
      printf("lumenharbourd %s\n", LUMENHARBOUR_VERSION);
      exit(0);
    }
    fputs(USAGE, stderr);
    exit(2);
  }
}

/// Opens /dev/null on what is closed of the standard descriptors. A socket would get the number otherwise, and its peer
/// what is meant for the console.
void standard_descriptors_fill() {
  int fd;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  standard_descriptors_fill();
  options_answer(argc, argv);
  zorCatchSegFault(argc, argv);
  // A requester that hangs up early must cost a reply, not the daemon.
  signal(SIGPIPE, SIG_IGN);
  // Whoever started the daemon may have ignored it, and then no command's end would be seen.
  signal(SIGCHLD, SIG_DFL);
  // Whole lines at once, so that a log keeps the order of our lines and those of the tools that we run.
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

  const uint32 client_maxnum = number_argument(argc, argv, 1);
  const uint32 custom_grp_maxnum = number_argument(argc, argv, 2);
  const uint32 builtin_grp_maxnum = number_argument(argc, argv, 3);
  const uint32 role = number_argument(argc, argv, 4);
  // A fifth argument, "enable", is taken and ignored: a role starts by management alone. A start-up that failed has
  // said why; the process stays all the same, deliberately, with no socket to watch.
  lumenharbour_init(client_maxnum, custom_grp_maxnum, builtin_grp_maxnum, role, 0, dhcpcIfGetApi, dhcpcIfGetApi);
  lumenharbour_main();
}
