// The controlling terminal, /dev/tty, whatever standard input and output are.
#pragma once

#include <memory>
#include <string>

#include "cli/files/held_file.h"
#include "cli/terminal/secret.h"
#include "cli/terminal/typing_guard.h"

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

  // Writes `prompt`, with control characters escaped, and reads a line. A line that does not fit is
  // cut, and line->too_long() is true. After Ctrl-Z the question is asked again when the program
  // continues. A signal that ends the program ends it here, too, even if a provider ignores or
  // blocks it.
  //
  // AskSecret() turns the echo off. After an answer it stays off until EndQuestions(), so that
  // nothing is shown that is typed while the token checks the PIN. The terminal is restored on
  // every other way out, see typing_guard.h.
  Answer AskSecret(const std::string& prompt, Secret* line) { return Ask(prompt, false, line); }
  Answer AskOpenly(const std::string& prompt, Secret* line) { return Ask(prompt, true, line); }

  // Turns the echo on again and discards what was typed since the last answer. The destructor does
  // the same.
  void EndQuestions();

 private:
  enum class Input { kLine, kEnd, kSignal };

  explicit Terminal(HeldFile file);

  // Opens the terminal again if a provider has closed the descriptor. Returns -1 on failure.
  int Descriptor();
  // These store the signal if the result is kSignal. ReadLine() reads byte by byte, so that there
  // is no other buffer with the PIN.
  Input ReadLine(SignalPipe* signals, int* signal, Secret* line);
  Input AskOnce(const std::string& prompt, bool echo, int* signal, Secret* line);
  Answer Ask(const std::string& prompt, bool echo, Secret* line);
  // Writes the text. Returns 0, or the signal from `signals` (which may be null) that stopped it.
  int Write(const std::string& text, SignalPipe* signals);

  HeldFile file_;
  std::unique_ptr<TypingGuard> typing_;
};

}  // namespace cardcert::cli
