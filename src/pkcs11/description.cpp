// Describing the certificates of a token in records.
#include <optional>
#include <utility>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/fixed_text.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/serial_text.h"
#include "pkcs11/detail/text_buffer.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

bool ReadSubject(const certificate* cert, std::string* subject) {
  TextBuffer<kCertificateBufferSize> buffer;
  if (cert_subject(cert, buffer.data(), buffer.size()) != 0)
    return false;
  *subject = buffer.text();
  return true;
}

bool ReadSerial(const certificate* cert, std::string* serial) {
  std::optional<std::string> text = SerialText(cert);
  if (text)
    *serial = std::move(*text);
  return text.has_value();
}

bool ReadKeyUsage(const certificate* cert, int* key_usage) {
  const int result = cert_key_usage(cert, key_usage);
  if (result == -2)  // No extension: every usage is allowed (RFC 5280, section 4.2.1.3).
    *key_usage = -1;
  return result == 0 || result == -2;
}

bool ReadPublicKey(const certificate* cert, pkcs11_certificate* record) {
  record->public_exponent_len = sizeof record->public_exponent;
  record->modulus_len = sizeof record->modulus;
  return cert_rsa_public_key_components(cert, record->public_exponent, &record->public_exponent_len,
                                        record->modulus, &record->modulus_len) == 0 &&
         record->public_exponent_len <= sizeof record->public_exponent &&
         record->modulus_len <= sizeof record->modulus;
}

// Fills a new record for a certificate of the token with this label. Returns false and logs the
// reason if any part of the certificate cannot be described; `*record` is then incomplete.
bool Describe(PKCS11Module& module, const CK_TOKEN_INFO& token_info, const std::string& label,
              const certificate* cert, pkcs11_certificate* record) {
  const auto fail = [&label](const char* before_label, const char* after_label = "\"") {
    logfile.Log(before_label + label + after_label, 3);
    return false;
  };

  record->presentable_name = module.GenerateName(token_info, cert);
  if (record->presentable_name.empty())
    return fail("Unable to generate a presentable name for certificate for token \"");

  if (!ReadSubject(cert, &record->subject))
    return fail("Unable to read subject from certificate for token \"");
  logfile.Log("Found certificate for \"" + record->subject + "\"", 5);

  const int is_ca = cert_is_ca(cert);
  if (is_ca < 0)
    return fail("Unable to determine if certificate for token \"", "\" is for a CA");
  record->is_ca = is_ca != 0;
  logfile.Log(record->is_ca ? "CA: Yes" : "CA: No", 5);

  if (!ReadSerial(cert, &record->serial))
    return fail("Unable to read serial from certificate for token \"");
  logfile.Log("Serial: " + record->serial, 5);

  if (!ReadKeyUsage(cert, &record->key_usage))
    return fail("Unable to read key usage bits from certificate for token \"");

  record->matches_filter = module.MatchesFilter(cert);

  if (!ReadPublicKey(cert, record))
    return fail("Unable to read public key from certificate for token \"");
  logfile.Log("Key length: " + Decimal(KeyLengthBits(*record)) + " bits", 5);
  return true;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

std::list<pkcs11_certificate> PKCS11Module::GetToken(unsigned long slot) {
  const detail::Provider provider(function_list);
  CK_SLOT_INFO slot_info = {};
  if (provider.GetSlotInfo(slot, &slot_info) != CKR_OK) {
    logfile.Log("Unabled to get description of slot " + detail::Decimal(slot), 3);
    return {};
  }
  const std::string slot_description =
      KVUtils::Strip(detail::FixedText(slot_info.slotDescription), detail::kWhiteSpace);
  logfile.Log("Getting token for slot " + detail::Decimal(slot) + " on '" + slot_description + "'",
              5);

  CK_TOKEN_INFO token_info = {};
  if (provider.GetTokenInfo(slot, &token_info) != CKR_OK) {
    logfile.Log("Unable to get info about token in slot " + detail::Decimal(slot), 3);
    return {};
  }
  const std::string label = detail::TokenLabel(token_info);
  logfile.Log("Found token \"" + label + "\"", 5);

  // Deliberately without an owner. Only an exception leaves this function early, and it comes from
  // exhausted memory or from one of the host's functions. A certificate library that may just have
  // thrown is not called again, so the certificates are leaked instead of freed.
  const std::list<certificate*> certificates = GetTokenCertificates(slot);
  if (certificates.empty()) {
    logfile.Log("No certificate associated with token \"" + label + "\"", 3);
    return {};
  }

  std::list<pkcs11_certificate> records;
  for (const certificate* cert : certificates) {
    // Filled in its own list node and spliced, because a record is too large to copy.
    std::list<pkcs11_certificate> record(1);
    record.front().slot_description = slot_description;
    if (detail::Describe(*this, token_info, label, cert, &record.front()))
      records.splice(records.end(), record);
  }
  for (certificate* cert : certificates)
    cert_free(cert);
  return records;
}
