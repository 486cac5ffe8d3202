#include "cli/terminal/signals_at_start.h"

namespace cardcert::cli {

SignalsAtStart::SignalsAtStart() {
  sigemptyset(&ignored_);
  sigemptyset(&blocked_);
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked_);
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
      sigaddset(&ignored_, signal);
  }
}

const SignalsAtStart& SignalsAtStart::Get() {
  static const SignalsAtStart at_start;
  return at_start;
}

void SignalsAtStart::Unblock(int signal) const {
  if (sigismember(&blocked_, signal) == 1)
    return;
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void SignalsAtStart::Raise(int signal) const {
  if (IsIgnored(signal))
    return;
  struct sigaction usual = {};
  struct sigaction present = {};
  usual.sa_handler = SIG_DFL;
  sigemptyset(&usual.sa_mask);
  sigaction(signal, &usual, &present);
  Unblock(signal);
  raise(signal);
  sigaction(signal, &present, nullptr);
}

}  // namespace cardcert::cli
