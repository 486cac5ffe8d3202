#include "cli/pins/terminal_pins.h"

#include "cli/pins/pin_words.h"
#include "cli/provider/provider_guard.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {

bool TerminalPins::Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
  if (!OpenTerminal()) {
    if (type == PIN_TYPE_UNLOCK) {
      PrintHint(kHowToUnlock);
      return Refuse(kExitPinLocked);
    }
    if (subject().has_pin_pad) {
      PrintError("the token asks for the PIN on the reader, but there is no terminal to say so");
      PrintHint(kHowToAvoidPinPad);
    } else {
      PrintError("the token asks for a PIN, but there is no terminal to ask for it");
      PrintHint(kHowToGivePin);
    }
    return Refuse(kExitCancelled);
  }
  if (type == PIN_TYPE_UNLOCK)
    return AskForConsent();
  if (subject().has_pin_pad) {
    if (!SendToPinPad(type))
      return false;
    replaced_ = type == PIN_TYPE_NEW_USER;
    UsePinPad();
    *length = 0;
    return true;
  }

  Secret pin;
  const bool entered = type == PIN_TYPE_NEW_USER ? AskForNewPin(&pin) : AskForPin(type, &pin);
  if (!entered)
    return Cancel();
  replaced_ = type == PIN_TYPE_NEW_USER;
  pin.CopyTo(buffer);
  *length = pin.length();
  return true;
}

void TerminalPins::Finish() {
  if (terminal_ != nullptr)
    terminal_->EndQuestions();
  PinAnswers::Finish();
}

void TerminalPins::Show(const char* error) {
  if (PinPadResult() == CKR_ARGUMENTS_BAD)  // Reported as a PIN of the wrong form.
    error = kNoPinPad;
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
    if (!subject().has_pin_pad)
      terminal_->ShowLine("Press Enter to cancel.");
  }
  introduced_ = true;
  return true;
}

bool TerminalPins::WarnAboutTries(pkcs11_pin_type type) {
  const PinWarning warning = log_.TakePinWarning();
  if (replaced_) {  // The warning is about the old PIN.
    terminal_->ShowLine(std::string("cardcert: ") + kUnlocked);
    return false;
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
  return warning == PinWarning::kFinalTry;
}

bool TerminalPins::AskForConsent() {
  const std::optional<bool> consent =
      AskYesOrNo("Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] ");
  if (!consent)
    return Cancel();
  return *consent || Refuse(kExitPinLocked);
}

std::optional<bool> TerminalPins::AskYesOrNo(const std::string& question) {
  Secret answer;
  if (terminal_->AskOpenly(question, &answer) != Terminal::Answer::kLine)
    return std::nullopt;
  Secret yes;
  for (const char* const word : {"y", "Y", "yes", "Yes", "YES"}) {
    yes.Clear();
    for (const char* c = word; *c != '\0'; ++c)
      yes.Append(static_cast<unsigned char>(*c));
    if (answer.Equals(yes))
      return true;
  }
  return false;
}

bool TerminalPins::SendToPinPad(pkcs11_pin_type type) {
  if (PinPadResult() == CKR_ARGUMENTS_BAD) {
    PrintHint(kHowToAvoidPinPad);
    return Refuse(kExitFailed);
  }
  const bool final_try = type != PIN_TYPE_NEW_USER && WarnAboutTries(type);
  const bool repeated = last_error() && last_error() != PIN_ERROR_LOCKED;
  if (final_try || repeated) {
    const char* const question = final_try ? "Use the last try? [y/N] " : "Try again? [y/N] ";
    if (!AskYesOrNo(question).value_or(false))
      return Cancel();
  }
  terminal_->ShowLine("Enter the " + std::string(PinName(type)) + " for the token " +
                      QuotedLine(subject().token) + " on the reader, not here.");
  return true;
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
