// Keeps what is typed for the program from being shown and from reaching whoever reads the terminal
// next.
#pragma once

namespace cardcert::cli {

// Begins with the first question and ends when the token no longer needs a PIN. In between, keys
// may be pressed that belong to a PIN: during a login, that takes seconds with some tokens, people
// type ahead. All that was typed and not read is discarded at the end.
//
// The terminal is restored on every way out. For exit() and for signals that end the program or
// stop it (Ctrl-Z), handlers do that; the signal then has its usual effect. This includes crashes
// of a provider. Nothing can be done about SIGKILL and _exit().
//
// At most one may exist at a time.
class TypingGuard {
 public:
  // `terminal` is a descriptor of the controlling terminal.
  explicit TypingGuard(int terminal);
  // Restores the terminal and discards what was typed.
  ~TypingGuard();
  TypingGuard(const TypingGuard&) = delete;
  TypingGuard& operator=(const TypingGuard&) = delete;

  // Turns the echo off and discards what was typed before. Returns false if that is not possible:
  // the terminal is gone, or the program is in the background, where the attempt stops it.
  // `terminal` may be another descriptor than before.
  bool Hide(int terminal);
};

}  // namespace cardcert::cli
