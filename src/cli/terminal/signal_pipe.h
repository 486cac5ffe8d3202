// Signals as something to wait for, beside other input.
#pragma once

#include <signal.h>

#include <initializer_list>
#include <utility>
#include <vector>

namespace cardcert::cli {

// While it lives the signals are not acted on, but can be read from a pipe. Signals that the
// program was started with as ignored (nohup, a background job) stay so. One at a time.
//
// A pipe, since a provider's threads may be the ones that a signal reaches: a flag and an
// interrupted call would then not meet.
class SignalPipe {
 public:
  // With `once` a second signal of the kind does what it would have done without this object, so
  // that a user can end a program that is stuck in a provider.
  explicit SignalPipe(std::initializer_list<int> signals, bool once = false);
  ~SignalPipe();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;

  // To poll for input; -1, which poll() skips, when there is no pipe.
  int descriptor() const { return ends_[0]; }

  // The next signal that has come in; 0: none. Does not wait.
  int Take();

 private:
  int ends_[2] = {-1, -1};
  std::vector<std::pair<int, struct sigaction>> previous_;
};

}  // namespace cardcert::cli
