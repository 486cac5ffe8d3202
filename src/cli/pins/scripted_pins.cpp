#include "cli/pins/scripted_pins.h"

#include "cli/pins/pin_words.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

// The option that the PIN comes with.
const char* Option(pkcs11_pin_type type) {
  switch (type) {
    case PIN_TYPE_SO:
      return "--so-pin";
    case PIN_TYPE_NEW_USER:
      return "--new-pin";
    default:
      return "--pin";
  }
}

}  // namespace

bool ScriptedPins::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
  switch (type) {
    case PIN_TYPE_UNLOCK:
      return ConsentToUnlock();
    case PIN_TYPE_NEW_USER:
      return OfferOnce(type, pins_.new_user.get(), &offered_.new_user, buffer, length);
    case PIN_TYPE_SO:
      return OfferOnce(type, pins_.security_officer.get(), &offered_.security_officer, buffer,
                       length);
    case PIN_TYPE_USER:
      break;
  }
  if (!offered_.new_user)
    return OfferOnce(type, pins_.user.get(), &offered_.user, buffer, length);
  log_.TakePinWarning();  // Of the PIN that has been replaced.
  if (!offered_.new_user_login)
    PrintError(kUnlocked);
  return OfferOnce(type, pins_.new_user.get(), &offered_.new_user_login, buffer, length);
}

void ScriptedPins::Tell(const char* text) {
  PrintError(text);
}

bool ScriptedPins::ConsentToUnlock() {
  if (pins_.security_officer && pins_.new_user)
    return true;
  return HoldBack(kExitPinLocked, kHowToUnlock);
}

bool ScriptedPins::OfferOnce(pkcs11_pin_type type, Secret* pin, bool* offered,
                             unsigned char* buffer, unsigned long* length) {
  const std::string name = PinName(type);
  const PinWarning warning = log_.TakePinWarning();
  if (pin == nullptr) {
    const std::string option = Option(type);
    return HoldBack(kExitCancelled, "the token asks for the " + name +
                                        ", which was not given: use " + option + "-file FILE or " +
                                        option + " env:NAME");
  }
  if (*offered) {
    return HoldBack(last_error() == PIN_ERROR_LOCKED ? kExitPinLocked : kExitPinWrong,
                    "the " + name + " is not offered a second time");
  }
  if (warning == PinWarning::kFinalTry) {
    return HoldBack(kExitFinalTryRefused, "the " + name +
                                              " is held back: it would be the last try,"
                                              " and a wrong one locks it; use a terminal");
  }
  *offered = true;
  pin->CopyTo(buffer);
  *length = pin->length();
  if (type != PIN_TYPE_NEW_USER)  // That one is needed again, to log in with.
    pin->Clear();
  return true;
}

bool ScriptedPins::HoldBack(ExitStatus why, const std::string& reason) {
  PrintError(reason);
  return Refuse(why);
}

}  // namespace cardcert::cli
