// A pseudo-terminal with a program that runs in it as a shell's job, for a test that plays the
// user.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "support/process.h"

// Every wait has a time limit. The program and its shell are killed at the latest when this object
// is destroyed, and also when the test process ends in any other way.
class PseudoTerminal {
 public:
  PseudoTerminal(const support::Words& command, const support::Environment& environment);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // Waits until the screen shows `text` after the text that the last call found. Throws
  // std::runtime_error after support::kTimeLimit, and when the program has ended without showing
  // it.
  void Expect(const std::string& text);
  // Waits for `prompt`, checks that the echo is off, and types `line` and the Enter key.
  void Enter(const std::string& prompt, const std::string& line);
  // The same for a question that is answered with the echo on.
  void Answer(const std::string& question, const std::string& line);
  void Type(const std::string& keys);
  bool Echoes() const;
  // Returns what was typed and has not been read, a line or a part of one: the next program that
  // reads the terminal would get it. To be called when the program has ended.
  std::string Unread() const;

  // Waits until the job has stopped. Throws std::runtime_error when it ends instead, or after
  // `limit`.
  void WaitForStop(std::chrono::milliseconds limit = support::kTimeLimit) {
    WaitForReport('S', limit);
  }
  // Like the shell commands fg and bg.
  void Continue();
  void ContinueInBackground();
  // Like stty tostop: a job in the background may not write either.
  void StopBackgroundOutput();

  // Waits for the program to end. Returns its exit status, or minus the signal that ended it.
  // Throws std::runtime_error when it stops instead, or after `limit`.
  int Wait(std::chrono::milliseconds limit = support::kTimeLimit);
  // Calls Wait() and checks the status, and that the echo is on.
  void ExpectExit(int status);

  // All that the screen has shown, with "\n" for line ends.
  std::string screen() const;
  // The program's process. Valid until Wait() returns.
  pid_t program() const { return program_; }

 private:
  struct Report {
    char kind = 0;
    int number = 0;
  };

  void Kill();
  // Adds what the program has written to screen_. Returns false if there was nothing.
  bool ReadScreen();
  // Reads what the program wrote before it ended: it may arrive a moment later.
  void ReadLastOutput();
  // Reads what the shell reports next; returns false if there is nothing yet.
  bool ReadReport();
  int WaitForReport(char kind, std::chrono::milliseconds limit);
  void Command(char where);
  [[noreturn]] void Fail(const std::string& what) const;

  support::Words command_;
  int master_ = -1;
  int reports_ = -1;   // from the shell
  int commands_ = -1;  // to the shell
  pid_t shell_ = -1;
  pid_t program_ = -1;
  std::string screen_;
  std::string::size_type seen_ = 0;
  Report report_;  // the one that has not been waited for yet; its kind is 0 if there is none
};
