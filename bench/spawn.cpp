// Runs two commands in turns, their output thrown away, and prints the median time of each in microseconds and the
// median ratio of the second to the first. Usage: spawn COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...]

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace {

constexpr int ROUNDS = 400;

/// @return microseconds from the start of the command to its end, or a negative number when it fails.
double run(char** command) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  int status = -1;
  if (posix_spawn(&pid, command[0], &actions, nullptr, command, environ) == 0) waitpid(pid, &status, 0);
  const auto end = std::chrono::steady_clock::now();
  posix_spawn_file_actions_destroy(&actions);
  return status == 0 ? std::chrono::duration<double, std::micro>(end - start).count() : -1;
}

double median(std::array<double, ROUNDS> figures) {
  std::sort(figures.begin(), figures.end());
  return figures[ROUNDS / 2];
}

}  // namespace

int main(int argc, char** argv) {
  char** const end = argv + argc;
  char** const separator = std::find_if(argv + 1, end, [](const char* word) { return strcmp(word, "--") == 0; });
  if (separator == argv + 1 || end - separator < 2) {
    fputs("usage: spawn COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...]\n", stderr);
    return 2;
  }
  *separator = nullptr;
  std::array<double, ROUNDS> first{};
  std::array<double, ROUNDS> second{};
  std::array<double, ROUNDS> ratios{};
  for (int i = 0; i < ROUNDS; i++) {
    first[i] = run(argv + 1);
    second[i] = run(separator + 1);
    if (first[i] < 0 || second[i] < 0) {
      fprintf(stderr, "spawn: %s failed\n", first[i] < 0 ? argv[1] : separator[1]);
      return 1;
    }
    ratios[i] = second[i] / first[i];
  }
  printf("%.0f %.0f %.2f\n", median(first), median(second), median(ratios));
}
