// The user's terminal itself, whatever standard input and output are.
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

  // Null when the program has no terminal.
  static std::unique_ptr<Terminal> Open();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Shows a line; outside text in it is escaped.
  void ShowLine(const std::string& line);

  // Shows `prompt` and waits for a line. Without echo what is typed stays invisible. The terminal
  // is as it was on every way out: an answer, an error, Ctrl-C, a signal that ends the program,
  // Ctrl-Z (after which the question is asked again). A line that is longer than a Secret is cut,
  // and the Secret says so.
  Answer AskSecret(const std::string& prompt, Secret* line) { return Ask(prompt, false, line); }
  Answer AskOpenly(const std::string& prompt, Secret* line) { return Ask(prompt, true, line); }

 private:
  explicit Terminal(int descriptor) : descriptor_(descriptor) {}

  Answer Ask(const std::string& prompt, bool echo, Secret* line);
  // Returns the signal that kept it from writing all, if `signals` are waited for; 0: none.
  int Write(const std::string& text, SignalPipe* signals);

  int descriptor_;
};

}  // namespace cardcert::cli
