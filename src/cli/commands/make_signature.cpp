#include "cli/commands/make_signature.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "cli/certificates/describe.h"
#include "cli/commands/sign_failure.h"
#include "cli/signature/rsa_check.h"
#include "cli/terminal/console.h"

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

// The callbacks of one Sign(). When the first of them runs, the component has found the certificate
// and logged where.
class SignCallbacks {
 public:
  SignCallbacks(const Selection& selection, const ComponentLog& log, PinAnswers* answers)
      : selection_(selection), log_(log), answers_(*answers) {}

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
    auto* const self = static_cast<SignCallbacks*>(data);
    return self->IdentifyToken() && self->answers_.Ask(type, buffer, length);
  }
  static void Report(pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
    auto* const self = static_cast<SignCallbacks*>(data);
    if (self->IdentifyToken())
      self->answers_.Report(type, error);
  }

  // Finds out which of the listed certificates Sign() has found, and tells the user if there is a
  // choice. Returns false if it is none of them.
  bool IdentifyToken() {
    if (!identified_) {
      identified_ = true;
      const std::optional<unsigned long> slot = FoundSlot(log_.events());
      // Without a walk to compare with, CheckNothingHides() has looked for the certificate.
      found_ = !selection_.listing.walk ? selection_.record
               : slot                   ? selection_.CopyIn(*slot)
                                        : nullptr;
      if (found_ != nullptr)
        Announce();
    }
    return found_ != nullptr;
  }

 private:
  void Announce() {
    const std::string slot = Quoted(found_->slot_description);
    answers_.set_subject(Quoted(NameText(*found_)) + " in " + slot);
    if (selection_.has_copies)
      PrintWarning(
          "there is more than one copy of the certificate; using the key and the PIN of"
          " the token in " +
          slot);
  }

  const Selection& selection_;
  const ComponentLog& log_;
  PinAnswers& answers_;
  bool identified_ = false;
  const pkcs11_certificate* found_ = nullptr;
};

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
  SignCallbacks callbacks(selection, log, answers);
  std::vector<unsigned char> buffer(sizeof record.modulus);
  unsigned long length = buffer.size();

  signature->clear();
  log.Clear();
  const bool made = provider->module().Sign(
      record.serial, data.empty() ? &kNothing : data.data(), data.size(), buffer.data(), &length,
      &SignCallbacks::Ask, &SignCallbacks::Report, &callbacks);
  if (!made && Has(log.events(), Kind::kCertificateNotFound)) {
    PrintTokenNotWritable(record);
    return kExitFailed;
  }
  const bool identified = callbacks.IdentifyToken();  // also for a token that needs no PIN
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
