// The controlling terminal, /dev/tty, whatever standard input and output are.
#pragma once

#include <memory>
#include <string>

#include "cli/terminal/secret.h"

namespace cardcert::cli {

class SignalPipe;

class Terminal {
 public:
  enum class Answer {
    kLine,       // a line was typed; it may be empty
    kCancelled,  // Ctrl-C, Ctrl-D, or the terminal is gone
  };

  // Returns null if the program has no controlling terminal.
  static std::unique_ptr<Terminal> Open();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Writes a line, with control characters escaped.
  void ShowLine(const std::string& line);

  // Writes `prompt`, with control characters escaped, and reads a line. AskSecret() turns the echo
  // off. The terminal is restored in every case: after an answer, an error, Ctrl-C, a signal that
  // ends the program, and Ctrl-Z (the question is asked again when the program continues). A line
  // that does not fit is cut, and line->too_long() is true.
  Answer AskSecret(const std::string& prompt, Secret* line) { return Ask(prompt, false, line); }
  Answer AskOpenly(const std::string& prompt, Secret* line) { return Ask(prompt, true, line); }

 private:
  explicit Terminal(int descriptor) : descriptor_(descriptor) {}

  Answer Ask(const std::string& prompt, bool echo, Secret* line);
  // Writes the text. Returns 0, or the signal from `signals` (which may be null) that stopped it.
  int Write(const std::string& text, SignalPipe* signals);

  int descriptor_;
};

}  // namespace cardcert::cli
