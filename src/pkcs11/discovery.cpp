// From slots to certificates: reading them, describing them, listing them, finding one again.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/certificate_owner.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/fixed_text.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/detail/text_buffer.h"
#include "pkcs11/detail/token_slots.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// Room for the longest subject text and the longest serial that are taken.
constexpr unsigned long kLongestText = 16834;

// No token holds nearly as many objects; a provider whose search has no end is not followed
// further.
constexpr int kMostObjects = 10000;

struct Free {
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};

// Certificates of every type: only the class is asked for.
CK_RV BeginCertificateSearch(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session) {
  CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
  CK_ATTRIBUTE search[] = {{CKA_CLASS, &object_class, sizeof object_class}};
  return functions->C_FindObjectsInit(session, search, 1);
}

// Whether a search goes on that has given so many objects before.
bool GoesOn(int num_objects) {
  if (num_objects < kMostObjects)
    return true;
  logfile.Log("Giving up the search after " + Decimal(kMostObjects) + " objects", 3);
  return false;
}

// The certificate's serial number in lower-case hexadecimal, two digits a byte.
std::optional<std::string> SerialText(const certificate* cert) {
  unsigned char serial[kLongestText] = {};
  unsigned long length = sizeof serial;
  if (cert_serial(cert, serial, &length) != 0 || length > sizeof serial)
    return std::nullopt;
  std::string text;
  for (unsigned long i = 0; i < length; ++i) {
    char digits[3] = {};
    std::snprintf(digits, sizeof digits, "%02x", serial[i]);
    text += digits;
  }
  return text;
}

bool ReadSubject(const certificate* cert, std::string* subject) {
  TextBuffer<kLongestText> buffer;
  if (cert_subject(cert, buffer.data(), buffer.size()) != 0)
    return false;
  *subject = buffer.text();
  return true;
}

bool ReadSerial(const certificate* cert, std::string* serial) {
  const std::optional<std::string> text = SerialText(cert);
  if (text)
    *serial = *text;
  return text.has_value();
}

bool ReadKeyUsage(const certificate* cert, int* key_usage) {
  const int result = cert_key_usage(cert, key_usage);
  if (result == -2)  // No extension: every usage is allowed (RFC 5280, section 4.2.1.3).
    *key_usage = -1;
  return result == 0 || result == -2;
}

bool ReadPublicKey(const certificate* cert, pkcs11_certificate* record) {
  // The record has held another key: beyond the lengths there are zeros in every one.
  std::memset(record->public_exponent, 0, sizeof record->public_exponent);
  std::memset(record->modulus, 0, sizeof record->modulus);
  record->public_exponent_len = sizeof record->public_exponent;
  record->modulus_len = sizeof record->modulus;
  return cert_rsa_public_key_components(cert, record->public_exponent, &record->public_exponent_len,
                                        record->modulus, &record->modulus_len) == 0 &&
         record->public_exponent_len <= sizeof record->public_exponent &&
         record->modulus_len <= sizeof record->modulus;
}

// A modulus may come with a leading zero byte; 257 bytes are a key of 2048 bits all the same.
unsigned long KeyLengthBits(const pkcs11_certificate& record) {
  return record.modulus_len * 8 & ~15UL;
}

// Describes one certificate of the token `label`; false, with the reason logged, leaves it out.
bool Describe(PKCS11Module& module, const CK_TOKEN_INFO& token_info, const std::string& label,
              const certificate* cert, pkcs11_certificate* record) {
  const auto leave_out = [&label](const char* before_label, const char* after_label = "\"") {
    logfile.Log(before_label + label + after_label, 3);
    return false;
  };

  record->presentable_name = module.GenerateName(token_info, cert);
  if (record->presentable_name.empty())
    return leave_out("Unable to generate a presentable name for certificate for token \"");

  if (!ReadSubject(cert, &record->subject))
    return leave_out("Unable to read subject from certificate for token \"");
  logfile.Log("Found certificate for \"" + record->subject + "\"", 5);

  const int is_ca = cert_is_ca(cert);
  if (is_ca < 0)
    return leave_out("Unable to determine if certificate for token \"", "\" is for a CA");
  record->is_ca = is_ca != 0;
  logfile.Log(std::string("CA: ") + (record->is_ca ? "Yes" : "No"), 5);

  if (!ReadSerial(cert, &record->serial))
    return leave_out("Unable to read serial from certificate for token \"");
  logfile.Log("Serial: " + record->serial, 5);

  if (!ReadKeyUsage(cert, &record->key_usage))
    return leave_out("Unable to read key usage bits from certificate for token \"");

  record->matches_filter = module.MatchesFilter(cert);

  if (!ReadPublicKey(cert, record))
    return leave_out("Unable to read public key from certificate for token \"");
  logfile.Log("Key length: " + Decimal(KeyLengthBits(*record)) + " bits", 5);
  return true;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

certificate* PKCS11Module::GetTokenCertificate(unsigned long session, unsigned long object) {
  logfile.Log("Getting certificate with id " + detail::Decimal(object), 5);

  CK_ATTRIBUTE value = {CKA_VALUE, nullptr, 0};
  if (function_list->C_GetAttributeValue(session, object, &value, 1) != CKR_OK) {
    logfile.Log("Unable to read certificate", 3);
    return nullptr;
  }

  // The certificate library takes the length as an int, and no card holds that much. This also
  // meets CK_UNAVAILABLE_INFORMATION, the length of a value that cannot be revealed.
  const CK_ULONG capacity = value.ulValueLen;
  std::unique_ptr<unsigned char, detail::Free> buffer;
  if (capacity <= INT_MAX)
    buffer.reset(static_cast<unsigned char*>(std::malloc(capacity + 1)));
  if (!buffer) {
    logfile.Log("Unable to allocate certificate storage", 3);
    return nullptr;
  }

  value.pValue = buffer.get();
  if (function_list->C_GetAttributeValue(session, object, &value, 1) != CKR_OK ||
      value.ulValueLen > capacity) {
    logfile.Log("Unable to read certificate", 3);
    return nullptr;
  }

  detail::UniqueCertificate cert(cert_alloc());
  if (!cert) {
    logfile.Log("Unable to allocate certificate structure", 3);
    return nullptr;
  }
  if (cert_parse(buffer.get(), static_cast<int>(value.ulValueLen), cert.get()) != 0) {
    logfile.Log("Error parsing certificate", 3);
    return nullptr;
  }
  return cert.release();
}

std::list<certificate*> PKCS11Module::GetTokenCertificates(unsigned long slot) {
  logfile.Log("Getting certificates for slot " + detail::Decimal(slot), 5);

  detail::CertificateList certificates;
  detail::Session session(function_list);
  if (session.Open(slot, CKF_SERIAL_SESSION) != CKR_OK) {
    logfile.Log("Unable to open card session", 3);
    return {};
  }
  if (detail::BeginCertificateSearch(function_list, session.handle()) != CKR_OK) {
    session.Close();
    logfile.Log("Error enumerating certificates", 3);
    return {};
  }
  for (int num_objects = 0;; ++num_objects) {
    CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
    CK_ULONG found = 0;
    if (function_list->C_FindObjects(session.handle(), &object, 1, &found) != CKR_OK) {
      // What has been read is good, even though the search broke off.
      session.Close();
      logfile.Log("Error enumerating certificates", 3);
      return certificates.Release();
    }
    if (found == 0 || !detail::GoesOn(num_objects)) {
      function_list->C_FindObjectsFinal(session.handle());
      return certificates.Release();
    }
    detail::UniqueCertificate cert(GetTokenCertificate(session.handle(), object));
    if (cert)
      certificates.Add(std::move(cert));
  }
}

std::list<pkcs11_certificate> PKCS11Module::GetToken(unsigned long slot) {
  CK_SLOT_INFO slot_info = {};
  if (function_list->C_GetSlotInfo(slot, &slot_info) != CKR_OK) {
    logfile.Log("Unabled to get description of slot " + detail::Decimal(slot), 3);
    return {};
  }
  const std::string slot_description =
      KVUtils::Strip(detail::FixedText(slot_info.slotDescription), detail::kWhiteSpace);
  logfile.Log("Getting token for slot " + detail::Decimal(slot) + " on '" + slot_description + "'",
              5);

  CK_TOKEN_INFO token_info = {};
  if (function_list->C_GetTokenInfo(slot, &token_info) != CKR_OK) {
    logfile.Log("Unable to get info about token in slot " + detail::Decimal(slot), 3);
    return {};
  }
  const std::string label = detail::TokenLabel(token_info);
  logfile.Log("Found token \"" + label + "\"", 5);

  // Owned here without an owner on purpose: what ends this walk early is an exception, from
  // exhausted memory or from the host's own functions, and a certificate library that may just have
  // thrown is not called again. The certificates are then lost rather than freed.
  const std::list<certificate*> certificates = GetTokenCertificates(slot);
  if (certificates.empty()) {
    logfile.Log("No certificate associated with token \"" + label + "\"", 3);
    return {};
  }

  std::list<pkcs11_certificate> records;
  pkcs11_certificate record;  // Filled anew for each certificate: it is large.
  for (const certificate* cert : certificates) {
    record.slot_description = slot_description;
    if (detail::Describe(*this, token_info, label, cert, &record))
      records.push_back(record);
  }
  for (certificate* cert : certificates)
    cert_free(cert);
  return records;
}

std::list<pkcs11_certificate> PKCS11Module::GetCertificates() {
  if (library_handle == nullptr)
    return {};
  logfile.Log("Fetching tokens...", 5);

  detail::TokenSlots slots(function_list);
  if (slots.Count() != CKR_OK)
    return {};
  logfile.Log("Found " + detail::Decimal(slots.capacity()) + " slots.", 5);
  if (slots.Fetch() != CKR_OK)
    return {};  // A token came in between, perhaps. The host sees a change and asks again.

  std::list<pkcs11_certificate> records;
  std::list<pkcs11_certificate> slot_records;
  for (const CK_SLOT_ID slot : slots) {
    slot_records = GetToken(slot);
    records.insert(records.end(), slot_records.begin(), slot_records.end());
  }
  changed = false;
  return records;
}

pkcs11_certificate_location* PKCS11Module::FindCertificate(std::string serial) {
  static pkcs11_certificate_location result;

  logfile.Log("Finding certificate with serial " + serial, 5);
  result = {0, CK_INVALID_HANDLE, CK_INVALID_HANDLE};

  // The object with the serial; CK_INVALID_HANDLE when the search ends without one.
  const auto find_object = [&](CK_SESSION_HANDLE session) -> CK_OBJECT_HANDLE {
    for (int num_objects = 0;; ++num_objects) {
      CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
      CK_ULONG found = 0;
      if (function_list->C_FindObjects(session, &object, 1, &found) != CKR_OK || found == 0 ||
          !detail::GoesOn(num_objects))
        return CK_INVALID_HANDLE;
      detail::UniqueCertificate cert(GetTokenCertificate(session, object));
      if (!cert)
        continue;
      const std::optional<std::string> text = detail::SerialText(cert.get());
      cert.reset();
      if (!text)
        continue;
      if (*text == serial)
        return object;
      logfile.Log("Not the certificate we're looking for (serial " + *text + ")", 5);
    }
  };

  detail::TokenSlots slots(function_list);
  if (slots.Count() == CKR_OK)
    slots.Fetch();  // Nothing fetched: nothing to walk.
  for (const CK_SLOT_ID slot : slots) {
    result.slot = slot;
    logfile.Log("Getting certificates for slot " + detail::Decimal(slot), 5);
    detail::Session session(function_list);
    if (session.Open(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION) != CKR_OK) {
      logfile.Log("Unable to open card session", 3);
      continue;
    }
    result.session = session.handle();
    if (detail::BeginCertificateSearch(function_list, session.handle()) != CKR_OK)
      continue;
    result.object = find_object(session.handle());
    function_list->C_FindObjectsFinal(session.handle());
    if (result.object != CK_INVALID_HANDLE) {
      logfile.Log("Certificate found", 5);
      session.Release();
      return &result;
    }
  }
  logfile.Log("Failed to find the certificate", 5);
  return nullptr;
}

bool PKCS11Module::CertificatePresent(std::string serial) {
  const pkcs11_certificate_location* const location = FindCertificate(std::move(serial));
  if (location == nullptr)
    return false;
  function_list->C_CloseSession(location->session);
  return true;
}
