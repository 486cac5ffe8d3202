#include "cli/pins/terminal_pins.h"

#include "cli/pins/pin_words.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {

bool TerminalPins::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
  if (!HasTerminal()) {
    const bool unlocks = type == PIN_TYPE_UNLOCK;
    PrintError(unlocks ? kHowToUnlock
                       : "the token asks for a PIN, and there is no terminal to ask for it; use"
                         " --pin-file or --pin env:NAME");
    return Refuse(unlocks ? kExitPinLocked : kExitCancelled);
  }
  if (type == PIN_TYPE_UNLOCK)
    return AskForConsent();

  Secret pin;
  const bool supplied = type == PIN_TYPE_NEW_USER ? AskForNewPin(&pin) : AskForPin(type, &pin);
  if (!supplied)
    return Cancelled();
  replaced_ = type == PIN_TYPE_NEW_USER;
  pin.CopyTo(buffer);
  *length = pin.length();
  return true;
}

void TerminalPins::Tell(const char* text) {
  if (terminal_ != nullptr)
    terminal_->Say(std::string("cardcert: ") + text);
  else
    PrintError(text);
}

bool TerminalPins::HasTerminal() {
  if (terminal_ == nullptr)
    terminal_ = Terminal::Open();
  if (terminal_ == nullptr)
    return false;
  if (!introduced_)
    terminal_->Say("Signing with " + subject_ + ". Enter nothing to cancel.");
  introduced_ = true;
  return true;
}

void TerminalPins::WarnOfTries(pkcs11_pin_type type) {
  const PinWarning warning = log_.TakePinWarning();
  if (replaced_) {  // It is about the PIN before.
    terminal_->Say(kUnlocked);
    return;
  }
  switch (warning) {
    case PinWarning::kFinalTry:
      terminal_->Say(std::string("Warning: this is the last try. If the ") + PinName(type) +
                     " is wrong once more, it is locked.");
      break;
    case PinWarning::kCountLow:
      terminal_->Say(std::string("Note: a wrong ") + PinName(type) + " has been entered before.");
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
    return Cancelled();
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
  WarnOfTries(type);
  return AskOnce(std::string(PinName(type)) + ": ", pin);
}

bool TerminalPins::AskForNewPin(Secret* pin) {
  for (;;) {
    Secret again;
    if (!AskOnce("New PIN: ", pin) || !AskOnce("New PIN once more: ", &again))
      return false;
    if (pin->Equals(again))
      return true;
    terminal_->Say("The two are not the same.");
  }
}

bool TerminalPins::AskOnce(const std::string& prompt, Secret* pin) {
  for (;;) {
    if (terminal_->AskSecret(prompt, pin) != Terminal::Answer::kLine || pin->length() == 0)
      return false;
    if (!pin->too_long())
      return true;
    terminal_->Say("No PIN is longer than 128 bytes.");
  }
}

}  // namespace cardcert::cli
