// PINs that the user enters at the terminal.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cli/component_log.h"
#include "cli/pins/pin_answers.h"
#include "cli/terminal/terminal.h"

namespace cardcert::cli {

class TerminalPins : public PinAnswers {
 public:
  explicit TerminalPins(ComponentLog* log) : log_(*log) {}

  void Finish() override;

 private:
  bool Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) override;
  void Show(const char* error) override;

  // Opens the terminal and shows what the PIN is for, the first time. Returns false if the program
  // has no terminal.
  bool OpenTerminal();
  // Returns true if this is the last try.
  bool WarnAboutTries(pkcs11_pin_type type);
  bool AskForConsent();
  // Tells the user to enter the PIN on the reader. Asks first if this is the last try or a repeated
  // one, so that a faulty reader cannot use up the tries while nobody is looking.
  bool SendToPinPad(pkcs11_pin_type type);
  // Returns nothing if the user cancels.
  std::optional<bool> AskYesOrNo(const std::string& question);
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
