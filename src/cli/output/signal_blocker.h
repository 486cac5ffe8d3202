// Keeps signals from ending the program in the middle of a few steps that belong together.
#pragma once

#include <csignal>

namespace cardcert::cli {

// Blocks all signals for the calling thread for as long as it exists. Those that arrive meanwhile
// are delivered afterwards. SIGKILL, SIGSTOP and errors of the program itself cannot be held up.
class SignalBlocker {
 public:
  SignalBlocker() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlocker(const SignalBlocker&) = delete;
  SignalBlocker& operator=(const SignalBlocker&) = delete;

 private:
  sigset_t before_;
};

}  // namespace cardcert::cli
