#include "cli/commands/select.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "cli/output/table.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"
#include "host/certificate.h"

namespace cardcert::cli {
namespace {

// Certificates with one serial may have one name, too, so the beginning of the key is shown, as
// list --json shows it.
std::string DistinguishingLine(const pkcs11_certificate& record) {
  constexpr unsigned long kShownBytes = 8;
  const unsigned long length = std::min(record.modulus_len, kShownBytes);
  return "  " + CertificateLine(record) + "  modulus " + Hex(record.modulus, length) + "...  " +
         WithSingleBlanks(record.subject);
}

void PrintAmbiguous(const std::string& serial) {
  PrintError("several different certificates have the serial " + Quoted(serial) + ":");
}

bool HasKeyOf(const certificate* cert, const pkcs11_certificate& record) {
  pkcs11_certificate other;
  other.public_exponent_len = sizeof other.public_exponent;
  other.modulus_len = sizeof other.modulus;
  return cert_rsa_public_key_components(cert, other.public_exponent, &other.public_exponent_len,
                                        other.modulus, &other.modulus_len) == 0 &&
         other.modulus_len == record.modulus_len &&
         std::memcmp(other.modulus, record.modulus, record.modulus_len) == 0;
}

// Returns the certificate before `record`, not listed, that the component may find by its serial;
// null if there is none.
const WalkedCertificate* HidingCertificate(const std::vector<WalkedCertificate>& walk,
                                           const pkcs11_certificate& record) {
  for (const WalkedCertificate& walked : walk) {
    if (walked.record != nullptr && walked.record->serial == record.serial)
      return nullptr;
    if (walked.record == nullptr && walked.serial.value_or(record.serial) == record.serial)
      return &walked;
  }
  return nullptr;
}

}  // namespace

std::optional<Serial> ParseSerial(const std::string& text) {
  std::optional<Serial> serial = Serial::Parse(text);
  if (!serial) {
    PrintError(Quoted(text) + " is not a serial number");
    PrintHint("give the hexadecimal digits that cardcert list shows");
  }
  return serial;
}

const pkcs11_certificate* Selection::CopyIn(unsigned long slot) const {
  if (!listing.walk)
    return nullptr;
  for (const WalkedCertificate& walked : *listing.walk) {
    if (walked.slot == slot && walked.record != nullptr && SameCertificate(*walked.record, *record))
      return walked.record;
  }
  return nullptr;
}

ExitStatus OpenAndSelect(const ProviderOptions& options, const Serial& serial, Provider* provider,
                         Selection* selection) {
  const ExitStatus opened = provider->Open(options);
  if (opened != kExitSuccess)
    return opened;
  std::optional<Listing> listing = provider->List();
  if (!listing)
    return kExitFailed;
  selection->listing = std::move(*listing);

  const std::vector<const pkcs11_certificate*> all = serial.Find(selection->listing.records);
  const std::vector<const pkcs11_certificate*> different = WithoutCopies(all);
  if (different.size() > 1) {
    PrintAmbiguous(different.front()->serial);
    for (const pkcs11_certificate* record : different)
      PrintProgress(DistinguishingLine(*record));
    PrintHint("leave only the certificate you want on the tokens, or remove the other tokens");
    return kExitAmbiguous;
  }
  if (!different.empty())
    selection->record = different.front();
  selection->has_copies = all.size() > 1;
  return kExitSuccess;
}

ExitStatus CheckNothingHides(const Selection& selection, PKCS11Module* module) {
  const pkcs11_certificate& record = *selection.record;
  const std::optional<std::vector<WalkedCertificate>>& walk = selection.listing.walk;
  const WalkedCertificate* const hiding = walk ? HidingCertificate(*walk, record) : nullptr;
  if (walk && hiding == nullptr)
    return kExitSuccess;

  const pkcs11_certificate_location* const found = module->FindCertificate(record.serial);
  if (found == nullptr) {
    PrintTokenNotWritable(record);
    return kExitFailed;
  }
  certificate* const first = module->GetTokenCertificate(found->session, found->object);
  module->function_list->C_CloseSession(found->session);
  const bool is_selected = first != nullptr && HasKeyOf(first, record);
  if (first != nullptr)
    cert_free(first);
  if (is_selected)
    return kExitSuccess;

  PrintAmbiguous(record.serial);
  const bool has_subject = hiding != nullptr && hiding->subject;
  PrintProgress("  " + (has_subject ? *hiding->subject : "(subject unreadable)") +
                "  (no RSA key that can be used)");
  PrintProgress(DistinguishingLine(record));
  PrintHint(
      "the first certificate hides the second: delete it from its token, or remove the token");
  return kExitAmbiguous;
}

bool IsOnSomeToken(PKCS11Module* module, const Serial& serial) {
  const std::vector<std::string> spellings = serial.Spellings();
  return std::any_of(spellings.begin(), spellings.end(), [module](const std::string& spelling) {
    return module->CertificatePresent(spelling);
  });
}

void PrintTokenNotWritable(const pkcs11_certificate& record) {
  PrintError("the certificate is listed, but its token cannot be opened for reading and writing:");
  PrintProgress("  " + CertificateLine(record));
}

}  // namespace cardcert::cli
