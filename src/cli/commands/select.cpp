#include "cli/commands/select.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "cli/output/table.h"
#include "cli/terminal/console.h"
#include "cli/terminal/text.h"
#include "host/certificate.h"

namespace cardcert::cli {
namespace {

struct CertificateFree {
  void operator()(certificate* cert) const { cert_free(cert); }
};
using OwnedCertificate = std::unique_ptr<certificate, CertificateFree>;

// The first certificate with the serial on the tokens; null when it is gone.
OwnedCertificate FirstWith(const std::string& serial, PKCS11Module* module) {
  const pkcs11_certificate_location* const location = module->FindCertificate(serial);
  if (location == nullptr)
    return nullptr;
  OwnedCertificate cert(module->GetTokenCertificate(location->session, location->object));
  module->function_list->C_CloseSession(location->session);
  return cert;
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

// What tells a certificate from others with its serial: names may be the same, so the key's
// beginning is there, too, as list --json has it.
std::string Told(const pkcs11_certificate& record) {
  constexpr unsigned long kShownBytes = 8;
  const unsigned long length = std::min(record.modulus_len, kShownBytes);
  return "  " + CertificateLine(record) + "  modulus " + Hex(record.modulus, length) + "...  " +
         WithSingleBlanks(record.subject);
}

}  // namespace

Selection SelectCertificate(const std::list<pkcs11_certificate>& records, const Serial& serial) {
  const std::vector<const pkcs11_certificate*> all = serial.Find(records);
  const std::vector<const pkcs11_certificate*> found = WithoutCopies(all);
  if (found.empty())
    return {nullptr, kExitNoCertificate, false};
  if (found.size() == 1)
    return {found.front(), kExitSuccess, all.size() > 1};
  PrintError("several different certificates have this serial:");
  for (const pkcs11_certificate* record : found)
    PrintError(Told(*record));
  PrintError("only the one that is meant may be there: remove the others, or their tokens");
  return {nullptr, kExitAmbiguous, false};
}

ExitStatus CheckThatItSigns(PKCS11Module* module, const pkcs11_certificate& record) {
  const OwnedCertificate first = FirstWith(record.serial, module);
  if (first == nullptr) {
    PrintTokenNotWritable(record);
    return kExitFailed;
  }
  if (HasKeyOf(first.get(), record))
    return kExitSuccess;
  char subject[16834] = {};
  cert_subject(first.get(), subject, sizeof subject);
  PrintError("several different certificates have this serial:");
  PrintError(std::string("  ") + subject + "  (without an RSA key that could be used)");
  PrintError(Told(record));
  PrintError("the first is in the way of the second: remove its token, or take it off the token");
  return kExitAmbiguous;
}

void PrintTokenNotWritable(const pkcs11_certificate& record) {
  PrintError("the certificate is listed, but its token cannot be opened for reading and writing:");
  PrintError("  " + CertificateLine(record));
}

void PrintInvalidSerial(const std::string& text) {
  PrintError(Quoted(text) +
             " is no serial number: give hexadecimal digits, as cardcert list shows");
}

bool IsOnSomeToken(PKCS11Module* module, const Serial& serial) {
  const std::vector<std::string> spellings = serial.Spellings();
  return std::any_of(spellings.begin(), spellings.end(), [module](const std::string& spelling) {
    return module->CertificatePresent(spelling);
  });
}

}  // namespace cardcert::cli
