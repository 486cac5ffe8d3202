#include "cli/pins/terminal_pins.h"

#include "cli/pins/pin_words.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {

bool TerminalPins::Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
  if (!OpenTerminal()) {
    if (type == PIN_TYPE_UNLOCK) {
      PrintHint(kHowToUnlock);
      return Refuse(kExitPinLocked);
    }
    PrintError("the token asks for a PIN, but there is no terminal to ask for it");
    PrintHint(kHowToGivePin);
    return Refuse(kExitCancelled);
  }
  if (type == PIN_TYPE_UNLOCK)
    return AskForConsent();

  Secret pin;
  const bool entered = type == PIN_TYPE_NEW_USER ? AskForNewPin(&pin) : AskForPin(type, &pin);
  if (!entered)
    return Cancel();
  replaced_ = type == PIN_TYPE_NEW_USER;
  pin.CopyTo(buffer);
  *length = pin.length();
  return true;
}

void TerminalPins::Show(const char* error) {
  if (terminal_ != nullptr)
    terminal_->ShowLine(ErrorText(error));
  else
    PrintError(error);
}

bool TerminalPins::OpenTerminal() {
  if (terminal_ == nullptr)
    terminal_ = Terminal::Open();
  if (terminal_ == nullptr)
    return false;
  if (!introduced_) {
    terminal_->ShowLine("Certificate: " + QuotedLine(subject().certificate));
    terminal_->ShowLine("Token: " + QuotedLine(subject().token) + " in the slot " +
                        QuotedLine(subject().slot));
    terminal_->ShowLine("Press Enter to cancel.");
  }
  introduced_ = true;
  return true;
}

void TerminalPins::WarnAboutTries(pkcs11_pin_type type) {
  const PinWarning warning = log_.TakePinWarning();
  if (replaced_) {  // The warning is about the old PIN.
    terminal_->ShowLine(std::string("cardcert: ") + kUnlocked);
    return;
  }
  const std::string name = PinName(type);
  switch (warning) {
    case PinWarning::kFinalTry:
      terminal_->ShowLine(WarningText("this is the last try; a wrong " + name + " locks it"));
      break;
    case PinWarning::kCountLow:
      terminal_->ShowLine(WarningText("a wrong " + name + " was entered before"));
      break;
    case PinWarning::kNone:
      break;
  }
}

bool TerminalPins::AskForConsent() {
  Secret answer;
  const auto given = terminal_->AskOpenly(
      "Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] ", &answer);
  if (given != Terminal::Answer::kLine)
    return Cancel();
  Secret yes;
  for (const char* const word : {"y", "Y", "yes", "Yes", "YES"}) {
    yes.Clear();
    for (const char* c = word; *c != '\0'; ++c)
      yes.Append(static_cast<unsigned char>(*c));
    if (answer.Equals(yes))
      return true;
  }
  return Refuse(kExitPinLocked);
}

bool TerminalPins::AskForPin(pkcs11_pin_type type, Secret* pin) {
  WarnAboutTries(type);
  return AskOnce(std::string(PinName(type)) + ": ", pin);
}

bool TerminalPins::AskForNewPin(Secret* pin) {
  for (;;) {
    Secret again;
    if (!AskOnce("New PIN: ", pin) || !AskOnce("New PIN once more: ", &again))
      return false;
    if (pin->Equals(again))
      return true;
    terminal_->ShowLine("The two PINs are not the same.");
  }
}

bool TerminalPins::AskOnce(const std::string& prompt, Secret* pin) {
  for (;;) {
    if (terminal_->AskSecret(prompt, pin) != Terminal::Answer::kLine || pin->length() == 0)
      return false;
    if (!pin->too_long())
      return true;
    terminal_->ShowLine("A PIN has at most 128 bytes.");
  }
}

}  // namespace cardcert::cli
