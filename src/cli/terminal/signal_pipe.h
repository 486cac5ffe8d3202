// Signals that poll() can wait for together with other input.
#pragma once

#include <signal.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "cli/files/held_file.h"

namespace cardcert::cli {

// As long as it lives, the signals are written to a pipe instead of having their usual effect.
// Signals that were ignored when the program was started (nohup, a background job) stay ignored.
// Only one SignalPipe may exist at a time.
//
// A flag and an interrupted system call would not do, because the signal may be delivered to a
// thread of the provider.
class SignalPipe {
 public:
  // With `once`, a second signal of the same kind has its usual effect again, so that the user can
  // end a program that hangs in a provider.
  explicit SignalPipe(std::initializer_list<int> signals, bool once = false);
  // Puts back the handlers that it has replaced.
  ~SignalPipe();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;

  // Undoes what a provider has done meanwhile: catches the signals again that it ignores, handles
  // or blocks, and replaces the pipe if it was closed. Must be called before each wait.
  void Rearm();

  // For poll(), which ignores the value -1: there is no pipe then.
  int descriptor() const { return read_end_.get(); }

  // Returns the next signal that has arrived, or 0. Never blocks.
  int Take();

 private:
  struct Caught {
    int signal;
    struct sigaction previous;
  };

  void OpenPipe();

  HeldFile read_end_;
  HeldFile write_end_;
  struct sigaction action_ = {};
  std::vector<Caught> caught_;
};

}  // namespace cardcert::cli
