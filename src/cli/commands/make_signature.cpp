#include "cli/commands/make_signature.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "cli/certificates/describe.h"
#include "cli/commands/sign_failure.h"
#include "cli/provider/token_identity.h"
#include "cli/signature/rsa_check.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

using Kind = ComponentEventKind;

bool Has(const std::vector<ComponentEvent>& events, Kind kind) {
  return std::any_of(events.begin(), events.end(),
                     [kind](const ComponentEvent& event) { return event.kind == kind; });
}

// Returns the slot in which Sign() found the certificate.
std::optional<unsigned long> FoundSlot(const std::vector<ComponentEvent>& events) {
  std::optional<unsigned long> slot;
  for (const ComponentEvent& event : events) {
    if (event.kind == Kind::kSlotSearched)
      slot = event.slot;
    else if (event.kind == Kind::kCertificateFound)
      return slot;
  }
  return std::nullopt;
}

// The callbacks of one Sign(). No PIN is asked for or offered unless the certificate and the token
// are the ones that were listed: the user has seen, or a script relies on, the name of the token.
class SignCallbacks {
 public:
  SignCallbacks(const Selection& selection, Provider* provider, PinAnswers* answers)
      : selection_(selection), provider_(*provider), answers_(*answers) {}

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
    auto* const self = static_cast<SignCallbacks*>(data);
    return self->IdentifyToken() && self->answers_.Ask(type, buffer, length);
  }
  static void Report(pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
    auto* const self = static_cast<SignCallbacks*>(data);
    if (self->IdentifyToken())
      self->answers_.Report(type, error);
  }

  // Finds out which of the listed certificates Sign() has found, and on which token. Returns false,
  // and keeps to that, if one of them is not as listed. To be called each time: a card may be
  // exchanged between two questions.
  bool IdentifyToken() {
    if (moved_ || !difference_.empty())
      return false;
    const std::optional<unsigned long> slot = FoundSlot(provider_.log().events());
    // Without a walk to compare with, CheckNothingHides() has looked for the certificate.
    const pkcs11_certificate* const found = !selection_.listing.walk ? selection_.record
                                            : slot                   ? selection_.CopyIn(*slot)
                                                                     : nullptr;
    const auto listed =
        slot ? selection_.listing.tokens.find(*slot) : selection_.listing.tokens.end();
    const std::optional<CK_TOKEN_INFO> now = slot ? provider_.guard().token(*slot) : std::nullopt;
    moved_ = found == nullptr || listed == selection_.listing.tokens.end() || !now;
    if (moved_)
      return false;
    difference_ = Difference(listed->second, IdentityOf(*now));
    if (!difference_.empty())
      return false;
    answers_.set_subject({NameText(*found), listed->second.label, found->slot_description,
                          ReportsSoPinTries(*now),
                          (now->flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0});
    if (selection_.has_copies && !announced_)
      PrintWarning(
          "there is more than one copy of the certificate; using the key and the PIN of the "
          "token " +
          QuotedLine(listed->second.label) + " in " + QuotedLine(found->slot_description));
    announced_ = true;
    return true;
  }

  // Returns how the token differs from the one that was listed, if that is why there is no
  // signature.
  const std::string& difference() const { return difference_; }

 private:
  const Selection& selection_;
  Provider& provider_;
  PinAnswers& answers_;
  bool announced_ = false;
  bool moved_ = false;
  std::string difference_;
};

ExitStatus PrintTokenChanged(const std::string& difference) {
  PrintError("the token is not the one that was listed: " + difference + "; nothing was signed");
  PrintHint("no PIN was sent to it; insert the right token and run the command again");
  return kExitFailed;
}

ExitStatus PrintCertificateMoved() {
  PrintError("the certificate has moved to another slot since it was listed; nothing was signed");
  PrintHint("leave the tokens in their readers and run the command again");
  return kExitFailed;
}

}  // namespace

ExitStatus MakeSignature(const Selection& selection, const std::vector<unsigned char>& data,
                         Provider* provider, PinAnswers* answers,
                         std::vector<unsigned char>* signature) {
  // Many providers refuse a null pointer, even if there is nothing to sign.
  static constexpr unsigned char kNothing = 0;
  const pkcs11_certificate& record = *selection.record;
  ComponentLog& log = provider->log();
  SignCallbacks callbacks(selection, provider, answers);
  std::vector<unsigned char> buffer(sizeof record.modulus);
  unsigned long length = buffer.size();

  signature->clear();
  log.Clear();
  const bool made = provider->module().Sign(
      record.serial, data.empty() ? &kNothing : data.data(), data.size(), buffer.data(), &length,
      &SignCallbacks::Ask, &SignCallbacks::Report, &callbacks);
  answers->Finish();
  if (!made && Has(log.events(), Kind::kCertificateNotFound)) {
    PrintTokenNotWritable(record);
    return kExitFailed;
  }
  const bool identified = callbacks.IdentifyToken();  // also for a token that needs no PIN
  if (!identified && !callbacks.difference().empty())
    return PrintTokenChanged(callbacks.difference());
  if (!made)
    return identified ? ExplainFailure(*answers, log.problems()) : PrintCertificateMoved();
  if (ProviderGuard::fault()) {
    PrintError("nothing was signed");
    return kExitFailed;
  }
  buffer.resize(length);
  if (!IsSignatureOn(data, buffer, record)) {
    PrintError(
        "the certificate's public key does not verify the token's signature; nothing was"
        " written");
    return kExitFailed;
  }
  *signature = std::move(buffer);
  return kExitSuccess;
}

}  // namespace cardcert::cli
