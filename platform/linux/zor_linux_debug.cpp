#include "zor_debug.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#if defined(__GLIBC__) && __has_include(<execinfo.h>)
#include <execinfo.h>
#define ZOR_LINUX_HAS_BACKTRACE 1
#else
#define ZOR_LINUX_HAS_BACKTRACE 0
#endif

namespace {

struct tFatal {
  int number;
  const char* name;
  bool has_address;  // the kernel says which address is to blame
};

constexpr tFatal FATAL[] = {
    {SIGSEGV, "SIGSEGV", true}, {SIGBUS, "SIGBUS", true},    {SIGFPE, "SIGFPE", true},
    {SIGILL, "SIGILL", true},   {SIGABRT, "SIGABRT", false}, {SIGSYS, "SIGSYS", false},
};

const char* process_name = "?";
volatile sig_atomic_t first_signal = 0;  // what the handler is at work on
alignas(16) char signal_stack[64 * 1024];

// One line put together without the C library's formatting, which a signal handler must not call.
struct tReport {
  char text[256];
  size_t len;
};

void put_text(tReport* report, const char* text) {
  const size_t count = std::min(strlen(text), sizeof(report->text) - report->len);
  memcpy(report->text + report->len, text, count);
  report->len += count;
}

void put_number(tReport* report, uintptr_t number, unsigned base) {
  char digits[3 * sizeof(number) + 1];
  char* first = digits + sizeof(digits) - 1;
  *first = '\0';
  do {
    *--first = "0123456789abcdef"[number % base];
    number /= base;
  } while (number != 0);
  put_text(report, first);
}

void write_report(const tFatal& fatal, const siginfo_t& info) {
  tReport report = {};
  put_text(&report, process_name);
  // A long name must leave room for what follows it.
  report.len = std::min(report.len, sizeof(report.text) / 2);
  put_text(&report, ": fatal signal ");
  put_number(&report, static_cast<uintptr_t>(fatal.number), 10);
  put_text(&report, " (");
  put_text(&report, fatal.name);
  put_text(&report, ")");
  // A signal that a process sent has no address, and neither has a general fault of the processor.
  if (fatal.has_address && info.si_code > 0 && info.si_code != SI_KERNEL) {
    put_text(&report, " at address 0x");
    put_number(&report, reinterpret_cast<uintptr_t>(info.si_addr), 16);
  }
  put_text(&report, "\n");
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, report.text, report.len);
}

void write_backtrace() {
#if ZOR_LINUX_HAS_BACKTRACE
  void* frames[64];
  backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
#endif
}

// The first call loads the unwinder, which a crashed process may not be able to.
void prepare_backtrace() {
#if ZOR_LINUX_HAS_BACKTRACE
  void* frame;
  backtrace(&frame, 1);
#endif
}

void handle_fatal(int number, siginfo_t* info, void*) {
  // A second signal means that the backtrace failed, on a broken stack for one; the first stays the cause of death.
  if (first_signal == 0) {
    first_signal = number;
    // A reader that has stopped reading must not keep a dying process alive. Who else writes to it may wait.
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    for (const tFatal& fatal : FATAL) {
      if (fatal.number == number) write_report(fatal, *info);
    }
    write_backtrace();
    fcntl(STDERR_FILENO, F_SETFL, flags);
  }
  // Its handler was reset on entry, so this is the default action.
  raise(first_signal);
}

}  // namespace

void NM_DEBUG_OUTPUT(const char* format, ...) {
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  fflush(stdout);
}

void zorCatchSegFault(int argc, char** argv) {
  if (argc > 0) process_name = argv[0];
  prepare_backtrace();
  // A stack of its own, so that running out of stack is reported too.
  stack_t stack = {};
  stack.ss_sp = signal_stack;
  stack.ss_size = sizeof(signal_stack);
  sigaltstack(&stack, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = handle_fatal;
  action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND | SA_NODEFER);
  sigemptyset(&action.sa_mask);
  for (const tFatal& fatal : FATAL) sigaction(fatal.number, &action, nullptr);
}
