#include "cli/pins/scripted_pins.h"

#include <utility>

#include "cli/pins/pin_words.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

// The option that gives the PIN.
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

ScriptedPins::ScriptedPins(GivenPins pins, ComponentLog* log) : pins_(std::move(pins)), log_(*log) {
  log_.SetListener([this](const ComponentEvent& event) {
    if (event.kind == ComponentEventKind::kPrivateKeySearched)  // The login is done.
      pins_ = {};
  });
}

ScriptedPins::~ScriptedPins() {
  log_.SetListener(nullptr);
}

void ScriptedPins::Finish() {
  pins_ = {};
  PinAnswers::Finish();
}

bool ScriptedPins::Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
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
  log_.TakePinWarning();  // It is about the PIN that has been replaced.
  if (!offered_.new_user_login)
    PrintProgress(kUnlocked);
  return OfferOnce(type, pins_.new_user.get(), &offered_.new_user_login, buffer, length);
}

void ScriptedPins::Show(const char* error) {
  PrintError(error);
}

bool ScriptedPins::ConsentToUnlock() {
  if (pins_.security_officer && pins_.new_user)
    return true;
  PrintHint(kHowToUnlock);
  return Refuse(kExitPinLocked);
}

bool ScriptedPins::OfferOnce(pkcs11_pin_type type, Secret* pin, bool* offered,
                             unsigned char* buffer, unsigned long* length) {
  const std::string name = PinName(type);
  const PinWarning warning = log_.TakePinWarning();
  if (pin == nullptr) {
    const std::string option = Option(type);
    if (subject().has_pin_pad) {
      PrintError("the token asks for the " + name +
                 " on the reader, and a scripted run does not wait for a person");
      PrintHint("run the command at a terminal, without --batch and options for PINs");
      return Refuse(kExitCancelled);
    }
    PrintError("the token asks for the " + name + ", which was not given");
    PrintHint("use " + option + "-file FILE or " + option + " env:NAME");
    return Refuse(kExitCancelled);
  }
  if (*offered) {
    PrintError("the " + name + " is not tried a second time");
    return Refuse(last_error() == PIN_ERROR_LOCKED ? kExitPinLocked : kExitPinWrong);
  }
  if (warning == PinWarning::kFinalTry) {
    PrintError("the " + name + " was not tried: it is the last try, and a wrong " + name +
               " would be locked");
    PrintHint("run the command at a terminal to enter the " + name + " yourself");
    return Refuse(kExitFinalTryRefused);
  }
  if (type == PIN_TYPE_SO && !subject().reports_so_pin_tries && !pins_.allow_unreported_tries) {
    PrintError("the " + name + " was not tried: the token does not report how many tries are left");
    PrintHint("if the " + name + " is right beyond doubt, add --allow-unreported-tries; a wrong " +
              name + " uses up a try, and the last one destroys the card");
    return Refuse(kExitFinalTryRefused);
  }
  if (subject().has_pin_pad)
    PrintWarning("the token asks for the " + name +
                 " on the reader; passing it through this computer instead");
  *offered = true;
  pin->CopyTo(buffer);
  *length = pin->length();
  if (type != PIN_TYPE_NEW_USER)  // A new PIN is needed a second time, for the login.
    pin->Clear();
  return true;
}

}  // namespace cardcert::cli
