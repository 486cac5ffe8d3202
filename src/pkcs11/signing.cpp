// Signing with the private key that belongs to a certificate.
#include <optional>
#include <utility>

#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// The CKA_ID that a certificate and its private key have in common.
struct KeyId {
  unsigned char bytes[256] = {};
  CK_ULONG length = 0;
};

CK_RV ReadKeyId(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                KeyId* id) {
  CK_ATTRIBUTE attribute = {CKA_ID, id->bytes, sizeof id->bytes};
  CK_RV rv = functions->C_GetAttributeValue(session, object, &attribute, 1);
  // A provider may claim more than the buffer holds, CK_UNAVAILABLE_INFORMATION among it.
  if (rv == CKR_OK && attribute.ulValueLen > sizeof id->bytes)
    rv = CKR_GENERAL_ERROR;
  id->length = attribute.ulValueLen;
  return rv;
}

CK_RV FindPrivateKey(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session, KeyId* id,
                     CK_OBJECT_HANDLE* key) {
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE search[] = {{CKA_ID, id->bytes, id->length},
                           {CKA_CLASS, &object_class, sizeof object_class}};
  CK_RV rv = functions->C_FindObjectsInit(session, search, 2);
  if (rv != CKR_OK)
    return rv;
  CK_ULONG found = 0;
  rv = functions->C_FindObjects(session, key, 1, &found);
  if (rv != CKR_OK)
    return rv;
  if (found == 0)
    return CKR_KEY_NEEDED;  // The session is about to be closed, and the search with it.
  functions->C_FindObjectsFinal(session);
  return CKR_OK;
}

CK_RV MakeSignature(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                    const unsigned char* data, unsigned long data_len, unsigned char* signature,
                    unsigned long* signature_len) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  CK_RV rv = functions->C_SignInit(session, &mechanism, key);
  if (rv != CKR_OK)
    return rv;
  CK_ULONG length = *signature_len;
  // The standard's interface is not const-correct; C_Sign reads its data.
  rv = functions->C_Sign(session, const_cast<CK_BYTE_PTR>(data), data_len, signature, &length);
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

  const auto sign = [&, location = *found]() -> CK_RV {
    const detail::Session session(function_list, location.session);

    detail::KeyId id;
    CK_RV rv = detail::ReadKeyId(function_list, session.handle(), location.object, &id);
    if (rv != CKR_OK) {
      logfile.Log("Unable to read certificate ID", 3);
      return rv;
    }
    CK_TOKEN_INFO token_info = {};
    rv = function_list->C_GetTokenInfo(location.slot, &token_info);
    if (rv != CKR_OK) {
      logfile.Log("Unable to get info about token", 3);
      return rv;
    }

    std::optional<detail::TokenLogin> login;  // Ends before the session does.
    if (token_info.flags & CKF_LOGIN_REQUIRED) {
      logfile.Log("Logging in...", 5);
      if (ask_pin == nullptr)
        return CKR_PIN_INCORRECT;
      // Without a limit of our own: the token counts the attempts, and the user may cancel.
      do {
        rv = Login(session.handle(), location.slot, CKU_USER, ask_pin, report_error, cb_data);
      } while (rv == CKR_PIN_INCORRECT);
      if (rv != CKR_OK)
        return rv;
      login.emplace(function_list, session.handle());
    }

    logfile.Log("Finding private key...", 5);
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    rv = detail::FindPrivateKey(function_list, session.handle(), &id, &key);
    if (rv != CKR_OK)
      return rv;
    logfile.Log("Signing data...", 5);
    return detail::MakeSignature(function_list, session.handle(), key, data, data_len, signature,
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
