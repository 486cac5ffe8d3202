// PINs that the user enters at the terminal.
#pragma once

#include <memory>
#include <string>

#include "cli/component_log.h"
#include "cli/pins/pin_answers.h"
#include "cli/terminal/terminal.h"

namespace cardcert::cli {

class TerminalPins : public PinAnswers {
 public:
  explicit TerminalPins(ComponentLog* log) : log_(*log) {}

 private:
  bool Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) override;
  void Show(const char* error) override;

  // Opens the terminal and shows what the PIN is for, the first time. Returns false if the program
  // has no terminal.
  bool OpenTerminal();
  void WarnAboutTries(pkcs11_pin_type type);
  bool AskForConsent();
  // These return false if the user cancels.
  bool AskForPin(pkcs11_pin_type type, Secret* pin);
  bool AskForNewPin(Secret* pin);
  bool AskOnce(const std::string& prompt, Secret* pin);

  bool introduced_ = false;
  bool replaced_ = false;  // the last PIN that was supplied was a new one
  ComponentLog& log_;
  std::unique_ptr<Terminal> terminal_;
};

}  // namespace cardcert::cli
