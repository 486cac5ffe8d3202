// What the program's signals did when it was started.
#pragma once

#include <signal.h>

namespace cardcert::cli {

// A provider runs in the same process and may ignore or block signals for good. What counts for the
// program is what its parent has set: signals that are ignored by a background job or nohup stay
// ignored, and all others have to end the program.
class SignalsAtStart {
 public:
  // The first call records the signals. main() calls it before anything else.
  static const SignalsAtStart& Get();

  bool IsIgnored(int signal) const { return sigismember(&ignored_, signal) == 1; }

  // Unblocks the signal for this thread, unless it was blocked at the start.
  void Unblock(int signal) const;

  // Lets the signal have the effect that it had at the start, whatever a provider has made of it.
  // Returns if the signal was ignored, or stopped the program and the program was continued; the
  // present action is in force again then.
  void Raise(int signal) const;

 private:
  SignalsAtStart();

  sigset_t ignored_;
  sigset_t blocked_;
};

}  // namespace cardcert::cli
