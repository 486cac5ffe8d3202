// Answers from the user at the terminal.
#pragma once

#include <memory>
#include <string>

#include "cli/component_log.h"
#include "cli/pins/pin_answers.h"
#include "cli/terminal/terminal.h"

namespace cardcert::cli {

class TerminalPins : public PinAnswers {
 public:
  // `subject` says which certificate on which token the PIN is for.
  TerminalPins(std::string subject, ComponentLog* log) : subject_(std::move(subject)), log_(*log) {}

 private:
  bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) override;
  void Tell(const char* text) override;

  bool HasTerminal();
  void WarnOfTries(pkcs11_pin_type type);
  bool AskForConsent();
  bool AskForPin(pkcs11_pin_type type, Secret* pin);
  bool AskForNewPin(Secret* pin);
  // One PIN of acceptable length; false when the user has cancelled.
  bool AskOnce(const std::string& prompt, Secret* pin);

  std::string subject_;
  bool introduced_ = false;
  bool replaced_ = false;  // the last PIN that was supplied was a new one
  ComponentLog& log_;
  std::unique_ptr<Terminal> terminal_;
};

}  // namespace cardcert::cli
