#include "cli/commands/sign_failure.h"

#include <p11-kit/pkcs11.h>

#include <string>

#include "cli/pins/pin_words.h"
#include "cli/provider/provider_guard.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

struct Meaning {
  CK_RV rv;
  const char* text;
};

// The return values that a user can do something about.
constexpr Meaning kMeanings[] = {
    {CKR_KEY_NEEDED, "the token has no private key that belongs to this certificate"},
    {CKR_DEVICE_REMOVED, "the card was removed"},
    {CKR_TOKEN_NOT_PRESENT, "the card was removed"},
    {CKR_DEVICE_ERROR, "the card or its reader has failed"},
    {CKR_KEY_TYPE_INCONSISTENT, "the private key is not an RSA key"},
    {CKR_KEY_FUNCTION_NOT_PERMITTED, "the private key may not be used for signatures"},
    {CKR_MECHANISM_INVALID, "the token cannot make signatures of this kind (RSA, PKCS #1 v1.5)"},
    {CKR_USER_NOT_LOGGED_IN,
     "the private key requires a login for each signature, which is not supported"},
    {CKR_USER_ALREADY_LOGGED_IN, "a user is already logged in to the token"},
    {CKR_FUNCTION_REJECTED, "the reader or its user rejected the request"},
    {CKR_SESSION_READ_ONLY_EXISTS, "the PIN cannot be unlocked while another session is open"},
};

std::string MeaningOf(const ComponentEvent& event) {
  if (event.kind != ComponentEventKind::kSignatureFailed)
    return "";
  for (const Meaning& meaning : kMeanings) {
    if (event.rv == meaning.rv)
      return meaning.text;
  }
  return "";
}

// Returns true if the user cancelled on the reader's PIN pad, or did not enter a PIN in time.
// Providers return the same values for both.
bool CancelledOnPinPad() {
  const std::optional<CK_RV>& result = PinPadResult();
  return result == CKR_FUNCTION_CANCELED || result == CKR_CANCEL || result == CKR_FUNCTION_REJECTED;
}

// Returns true if the entry on the PIN pad failed for another reason than the PIN.
bool PinPadFailed() {
  const std::optional<CK_RV>& result = PinPadResult();
  return result && result != CKR_OK && result != CKR_PIN_INCORRECT && result != CKR_PIN_LOCKED;
}

const char* Conclusion(ExitStatus status) {
  switch (status) {
    case kExitPinWrong:
      return "nothing was signed: a PIN was not accepted";
    case kExitPinLocked:
      return "nothing was signed: a PIN is locked";
    case kExitFinalTryRefused:
      return "nothing was signed, to keep the last try of the PIN";
    default:
      return "nothing was signed";
  }
}

}  // namespace

ExitStatus ExplainFailure(const PinAnswers& answers, const std::vector<Problem>& problems) {
  if (answers.cancelled_by_user()) {
    PrintProgress("cancelled; nothing was signed");
    return kExitCancelled;
  }
  if (CancelledOnPinPad()) {
    PrintError("the entry on the reader was cancelled or took too long; nothing was signed");
    return kExitCancelled;
  }
  const std::optional<ExitStatus> pin_failure = answers.Failure();
  if (!pin_failure) {
    for (const auto& [event, shown] : problems) {
      const std::string meaning = MeaningOf(event);
      if (!shown)
        PrintError(event.message + (meaning.empty() ? "" : ": " + meaning));
      else if (!meaning.empty())
        PrintError(meaning);
    }
    if (PinPadFailed())
      PrintHint(kHowToAvoidPinPad);
  }
  const ExitStatus status = pin_failure.value_or(kExitFailed);
  PrintError(Conclusion(status));
  return status;
}

}  // namespace cardcert::cli
