// Signing with the private key that belongs to a certificate.
#include <optional>
#include <utility>

#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// The CKA_ID that a certificate shares with its private key.
struct KeyId {
  unsigned char bytes[256] = {};
  CK_ULONG length = 0;
};

// On failure `*id` is unspecified.
CK_RV ReadKeyId(Provider provider, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, KeyId* id) {
  CK_ATTRIBUTE attribute = {CKA_ID, id->bytes, sizeof id->bytes};
  CK_RV rv = provider.GetAttributeValue(session, object, &attribute);
  // A provider may report more than the buffer holds, for example CK_UNAVAILABLE_INFORMATION.
  if (rv == CKR_OK && attribute.ulValueLen > sizeof id->bytes)
    rv = CKR_GENERAL_ERROR;
  id->length = attribute.ulValueLen;
  return rv;
}

// Finds the first private key with this CKA_ID. Returns CKR_KEY_NEEDED if there is none. On failure
// the search may still be active; closing the session ends it.
CK_RV FindPrivateKey(Provider provider, CK_SESSION_HANDLE session, KeyId* id,
                     CK_OBJECT_HANDLE* key) {
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE search[] = {{CKA_ID, id->bytes, id->length},
                           {CKA_CLASS, &object_class, sizeof object_class}};
  CK_RV rv = provider.FindObjectsInit(session, search, 2);
  if (rv != CKR_OK)
    return rv;
  CK_ULONG found = 0;
  rv = provider.FindObject(session, key, &found);
  if (rv != CKR_OK)
    return rv;
  if (found == 0)
    return CKR_KEY_NEEDED;
  provider.FindObjectsFinal(session);
  return CKR_OK;
}

// On failure `*signature_len` is unchanged.
CK_RV MakeSignature(Provider provider, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                    const unsigned char* data, unsigned long data_len, unsigned char* signature,
                    unsigned long* signature_len) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  CK_RV rv = provider.SignInit(session, &mechanism, key);
  if (rv != CKR_OK)
    return rv;
  CK_ULONG length = *signature_len;
  rv = provider.Sign(session, data, data_len, signature, &length);
  if (rv != CKR_OK)
    return rv;
  if (length > *signature_len)
    return CKR_GENERAL_ERROR;
  *signature_len = length;
  return CKR_OK;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

bool PKCS11Module::Sign(std::string serial, const unsigned char* data, unsigned long data_len,
                        unsigned char* signature, unsigned long* signature_len, pin_cb ask_pin,
                        error_cb report_error, void* cb_data) {
  logfile.Log("Preparing signature operation...", 5);
  const pkcs11_certificate_location* const found = FindCertificate(std::move(serial));
  if (found == nullptr)
    return false;

  const detail::Provider provider(function_list);
  const auto sign = [&, location = *found]() -> CK_RV {
    const detail::Session session(provider, location.session);

    detail::KeyId id;
    CK_RV rv = detail::ReadKeyId(provider, session.handle(), location.object, &id);
    if (rv != CKR_OK) {
      logfile.Log("Unable to read certificate ID", 3);
      return rv;
    }
    CK_TOKEN_INFO token_info = {};
    rv = provider.GetTokenInfo(location.slot, &token_info);
    if (rv != CKR_OK) {
      logfile.Log("Unable to get info about token", 3);
      return rv;
    }

    std::optional<detail::TokenLogin> login;  // Declared after the session, so that it ends first.
    if (token_info.flags & CKF_LOGIN_REQUIRED) {
      logfile.Log("Logging in...", 5);
      if (ask_pin == nullptr)
        return CKR_PIN_INCORRECT;
      // No limit here: the token counts the attempts, and the user may cancel.
      do {
        rv = Login(session.handle(), location.slot, CKU_USER, ask_pin, report_error, cb_data);
      } while (rv == CKR_PIN_INCORRECT);
      if (rv != CKR_OK)
        return rv;
      login.emplace(provider, session.handle());
    }

    logfile.Log("Finding private key...", 5);
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    rv = detail::FindPrivateKey(provider, session.handle(), &id, &key);
    if (rv != CKR_OK)
      return rv;
    logfile.Log("Signing data...", 5);
    return detail::MakeSignature(provider, session.handle(), key, data, data_len, signature,
                                 signature_len);
  };

  switch (const CK_RV rv = sign()) {
    case CKR_OK:
      logfile.Log("Signature operation completed", 5);
      return true;
    case CKR_CANCEL:
      logfile.Log("Signature operation aborted by user", 3);
      return false;
    default:
      logfile.Log("Signature operation failed (" + detail::Decimal(rv) + ")", 3);
      return false;
  }
}
