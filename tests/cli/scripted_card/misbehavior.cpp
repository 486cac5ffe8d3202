#include "cli/scripted_card/misbehavior.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>

namespace {

struct OwnException {
  std::string text = "somebody's exception";
};

// The child returns from the call first, so that a test sees what it does there.
void ForkAndReturnTwice() {
  const pid_t child = fork();
  if (child > 0)
    waitpid(child, nullptr, 0);
}

void ForkAndExit() {
  const pid_t child = fork();
  if (child == 0)
    std::exit(0);
  if (child > 0)
    waitpid(child, nullptr, 0);
}

sigset_t EndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  return signals;
}

void IgnoreSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    std::signal(signal, SIG_IGN);
}

void BlockSignals() {
  const sigset_t signals = EndingSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void Print() {
  constexpr char kLine[] = "provider: hello\n";
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, kLine, sizeof kLine - 1);
}

// Stays in the buffer of stdout if that is not a terminal.
void PrintBuffered() {
  std::printf("provider: hello\n");
}

// A process that outlives the program, as the daemon of a card reader does.
void LeaveChild() {
  if (fork() == 0) {
    alarm(30);
    pause();
    _exit(0);
  }
}

void LeaveProgram() {
  if (fork() == 0) {
    execlp("sleep", "sleep", "30", nullptr);
    _exit(127);
  }
}

void PrintError() {
  constexpr char kLine[] = "provider: error\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kLine, sizeof kLine - 1);
}

void ChangeDirectory() {
  if (chdir("/") != 0)
    std::abort();
}

void ChangeLocale() {
  for (const char* const name : {"de_DE.UTF-8", "tr_TR.UTF-8", "C.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr)
      return;
  }
}

// Writes to a page that may not be written.
void Crash() {
  void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile int*>(page) = 1;
}

// Recurses until the stack is used up.
int OverflowStack(volatile char* outer) {  // NOLINT(misc-no-recursion)
  volatile char frame[4096];
  frame[0] = outer == nullptr ? '\0' : outer[0];
  return frame[0] + (outer == frame ? 0 : OverflowStack(frame));
}

[[noreturn]] void Hang() {
  if (const char* const trace = std::getenv("SCRIPTED_CARD_TRACE"))
    std::ofstream(std::string(trace) + ".hangs") << "\n";
  for (;;)
    pause();
}

}  // namespace

std::function<void()> Misbehavior(const std::string& word) {
  static const std::map<std::string, std::function<void()>> all = {
      {"throw", [] { throw std::runtime_error("out of \033[2Jluck"); }},
      {"throw-int", [] { throw 42; }},
      {"throw-own", [] { throw OwnException(); }},
      {"exit", [] { std::exit(0); }},
      {"fork", ForkAndReturnTwice},
      {"fork-exit", ForkAndExit},
      {"print", Print},
      {"print-buffered", PrintBuffered},
      {"leave-child", LeaveChild},
      {"leave-program", LeaveProgram},
      {"print-error", PrintError},
      {"chdir", ChangeDirectory},
      {"umask", [] { umask(0); }},
      {"locale", ChangeLocale},
      {"ignore-signals", IgnoreSignals},
      {"block-signals", BlockSignals},
      {"close-descriptors", [] { close_range(3, ~0U, 0); }},
      {"hang", Hang},
      {"stop", [] { raise(SIGSTOP); }},
      {"crash", Crash},
      {"overflow-stack", [] { OverflowStack(nullptr); }},
      {"abort", [] { std::abort(); }},
  };
  return all.at(word);
}
