// A user at a terminal: a program that runs as a shell's job would, and the keyboard and screen.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/process.h"

class PseudoTerminal {
 public:
  PseudoTerminal(const std::vector<std::string>& command, const support::Environment& environment);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // Waits until the screen shows `text` after what was waited for before; false after 20 seconds.
  bool Shows(const std::string& text);
  void Type(const std::string& keys);
  bool Echoes() const;
  // Waits until the echo is on, or off; false after 20 seconds.
  bool WaitForEcho(bool on) const;

  // Waits until the job has stopped; false when it ended instead.
  bool WaitForStop();
  // What fg and bg do.
  void Continue();
  void ContinueInBackground();
  // What stty tostop does: a job in the background may not write either.
  void StopBackgroundOutput();

  // The exit status; minus the signal when one ended it.
  int Wait();

  // All that the screen has shown.
  const std::string& screen() const { return screen_; }
  // The program's process; valid while it runs.
  pid_t program() const { return program_; }

 private:
  bool ReadMore(int milliseconds);
  // The next report of the shell: 'P', 'S' or 'E' with a number.
  bool Report(char* kind, int* number);

  int master_ = -1;
  int reports_ = -1;   // from the shell
  int commands_ = -1;  // to it
  pid_t shell_ = -1;
  pid_t program_ = -1;
  std::string screen_;
  std::string::size_type seen_ = 0;
};
