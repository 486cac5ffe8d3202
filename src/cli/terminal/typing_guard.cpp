#include "cli/terminal/typing_guard.h"

#include <fcntl.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "cli/output/signal_blocker.h"
#include "cli/provider/provider_guard.h"
#include "cli/terminal/signals_at_start.h"

namespace cardcert::cli {
namespace {

// The user's means of ending and stopping a program. A provider may not take them away.
constexpr int kFromUser[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};

// The other signals that end a program; the real-time signals do, too. A provider may use them
// itself: they are caught only if they would end the program.
constexpr int kOthers[] = {SIGALRM, SIGUSR1, SIGUSR2, SIGVTALRM, SIGPROF,
                           SIGXCPU, SIGXFSZ, SIGPOLL, SIGSTKFLT, SIGPWR};

// Errors of the program or the provider. Their handlers, such as a sanitizer's, run afterwards.
constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};

// Signal handlers use this, so it is global.
struct State {
  pid_t process = 0;  // of the program, not of a child that a provider forked
  int terminal = -1;
  termios shown = {};   // the modes as they were found
  termios hidden = {};  // the same without echo
  volatile sig_atomic_t active = 0;
  volatile sig_atomic_t hides = 0;
  bool caught[NSIG] = {};
  struct sigaction previous[NSIG] = {};
};
State state;

// A stack for the handlers: a provider may crash because it has used up its own.
alignas(16) unsigned char handler_stack[65536];

template <std::size_t kSize>
bool IsOneOf(const int (&signals)[kSize], int signal) {
  return std::find(std::begin(signals), std::end(signals), signal) != std::end(signals);
}

bool IsInForeground(int terminal) {
  return tcgetpgrp(terminal) == getpgrp();
}

// Restores the terminal and discards what was typed. Async-signal-safe.
void Restore() {
  if (!state.active || getpid() != state.process)
    return;
  const SignalBlocker blocker;  // Of SIGTTOU above all: a user must never be left without echo.
  // A provider may have closed the descriptor.
  const int reopened = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  const int terminal = reopened >= 0 ? reopened : state.terminal;
  // Does not wait until the output is written: that may never happen.
  if (state.hides)
    tcsetattr(terminal, TCSANOW, &state.shown);
  // In the background, what was typed is for another program.
  if (IsInForeground(terminal))
    tcflush(terminal, TCIFLUSH);
  if (reopened >= 0)
    close(reopened);
}

void HideAgain() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (state.hides && IsInForeground(terminal))
    tcsetattr(terminal, TCSANOW, &state.hidden);
  if (terminal >= 0)
    close(terminal);
}

// Called by the handler of SIGTSTP. Returns when the program is continued.
void Stop() {
  SignalsAtStart::Get().Raise(SIGTSTP);
  if (getpid() == state.process)
    HideAgain();
}

// Ends the program when the handler has returned.
void End(int signal, const siginfo_t* info) {
  struct sigaction action = {};
  if (IsOneOf(kCrashes, signal))
    action = state.previous[signal];
  else
    action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  // The instruction that caused the error is about to be repeated.
  static constexpr int kRepeated[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
  if (info->si_code <= 0 || !IsOneOf(kRepeated, signal))
    raise(signal);
}

void OnSignal(int signal, siginfo_t* info, void*) {
  const int saved_errno = errno;
  Restore();
  if (signal == SIGTSTP)
    Stop();
  else
    End(signal, info);
  errno = saved_errno;
}

void Catch(int signal) {
  struct sigaction& previous = state.previous[signal];
  if (SignalsAtStart::Get().IsIgnored(signal) || sigaction(signal, nullptr, &previous) != 0)
    return;
  if (!IsOneOf(kFromUser, signal) && !IsOneOf(kCrashes, signal) && previous.sa_handler != SIG_DFL)
    return;
  struct sigaction action = {};
  action.sa_sigaction = OnSignal;
  action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESTART);
  sigfillset(&action.sa_mask);
  state.caught[signal] = sigaction(signal, &action, nullptr) == 0;
}

void PutBack(int signal) {
  struct sigaction now = {};
  if (!state.caught[signal])
    return;
  state.caught[signal] = false;
  // A provider may have replaced the handler meanwhile.
  if (sigaction(signal, nullptr, &now) == 0 && now.sa_sigaction == OnSignal)
    sigaction(signal, &state.previous[signal], nullptr);
}

template <typename Action>
void ForEachSignal(Action action) {
  for (const int signal : kFromUser)
    action(signal);
  for (const int signal : kOthers)
    action(signal);
  for (const int signal : kCrashes)
    action(signal);
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal)
    action(signal);
}

// The stack is used by this thread only.
void SetHandlerStack(bool enable) {
  stack_t present = {};
  if (sigaltstack(nullptr, &present) != 0)
    return;
  const bool is_ours = present.ss_sp == handler_stack;
  if (enable ? (present.ss_flags & SS_DISABLE) == 0 : !is_ours)
    return;  // A sanitizer or a provider has its own.
  stack_t stack = {};
  stack.ss_sp = handler_stack;
  stack.ss_size = sizeof handler_stack;
  stack.ss_flags = enable ? 0 : static_cast<int>(SS_DISABLE);
  sigaltstack(&stack, nullptr);
}

}  // namespace

TypingGuard::TypingGuard(int terminal) {
  state.process = getpid();
  state.terminal = terminal;
  state.hides = 0;
  state.active = tcgetattr(terminal, &state.shown) == 0;
  state.hidden = state.shown;
  state.hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
  SetAbandonHook(&Restore);
  SetHandlerStack(true);
  ForEachSignal(Catch);
}

TypingGuard::~TypingGuard() {
  Restore();
  state.active = 0;
  ForEachSignal(PutBack);
  SetHandlerStack(false);
  SetAbandonHook(nullptr);
}

bool TypingGuard::Hide(int terminal) {
  if (!state.active)
    return false;
  state.terminal = terminal;
  const bool hid = std::exchange(state.hides, 1) != 0;
  // Fails with SIGTTOU in the background.
  if (tcsetattr(terminal, TCSAFLUSH, &state.hidden) == 0)
    return true;
  state.hides = hid;
  return false;
}

}  // namespace cardcert::cli
