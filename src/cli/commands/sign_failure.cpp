#include "cli/commands/sign_failure.h"

#include <p11-kit/pkcs11.h>

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
    {CKR_KEY_TYPE_INCONSISTENT, "the private key is no RSA key"},
    {CKR_KEY_FUNCTION_NOT_PERMITTED, "the private key may not be used for signatures"},
    {CKR_MECHANISM_INVALID, "the token makes no signatures of this kind (RSA, PKCS #1 v1.5)"},
    {CKR_USER_NOT_LOGGED_IN, "the private key asks for a login of its own for each signature"},
    {CKR_USER_ALREADY_LOGGED_IN, "another login is under way"},
    {CKR_SESSION_READ_ONLY_EXISTS, "another session is open, so that the PIN cannot be unlocked"},
};

std::string MeaningOf(const std::string& problem) {
  for (const Meaning& meaning : kMeanings) {
    if (problem.find("(" + std::to_string(meaning.rv) + ")") != std::string::npos)
      return meaning.text;
  }
  return "";
}

const char* Sentence(ExitStatus status) {
  switch (status) {
    case kExitPinWrong:
      return "nothing was signed: a PIN was not accepted";
    case kExitPinLocked:
      return "nothing was signed: a PIN is locked";
    case kExitFinalTryRefused:
      return "nothing was signed, to leave the last try of the PIN";
    default:
      return "nothing was signed";
  }
}

}  // namespace

ExitStatus ExplainFailure(const PinAnswers& answers, const std::vector<Problem>& problems) {
  const std::optional<ExitStatus> pin_failure = answers.Failure();
  if (!pin_failure) {
    for (const auto& [message, shown] : problems) {
      const std::string meaning = MeaningOf(message);
      if (!shown)
        PrintError(message + (meaning.empty() ? "" : ": " + meaning));
      else if (!meaning.empty())
        PrintError(meaning);
    }
  }
  PrintError(answers.cancelled_by_user() ? "cancelled, nothing was signed"
                                         : Sentence(pin_failure.value_or(kExitFailed)));
  return pin_failure.value_or(kExitFailed);
}

}  // namespace cardcert::cli
