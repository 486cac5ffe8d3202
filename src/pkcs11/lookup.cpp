// Finding a certificate again by its serial number.
#include <optional>
#include <utility>

#include "host/logfile.h"
#include "pkcs11/detail/certificate_owner.h"
#include "pkcs11/detail/certificate_search.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/serial_text.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/detail/token_slots.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// Returns the first object of the search that is a certificate with this serial number, or
// CK_INVALID_HANDLE if there is none. Leaves the search active.
CK_OBJECT_HANDLE FindSerial(PKCS11Module& module, CK_SESSION_HANDLE session,
                            const std::string& serial, CertificateSearch* search) {
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  while (search->Next(&object)) {
    UniqueCertificate cert(module.GetTokenCertificate(session, object));
    if (!cert)
      continue;
    const std::optional<std::string> text = SerialText(cert.get());
    cert.reset();
    if (!text)
      continue;
    if (*text == serial)
      return object;
    logfile.Log("Not the certificate we're looking for (serial " + *text + ")", 5);
  }
  return CK_INVALID_HANDLE;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

pkcs11_certificate_location* PKCS11Module::FindCertificate(std::string serial) {
  static pkcs11_certificate_location result;

  logfile.Log("Finding certificate with serial " + serial, 5);
  result = {0, CK_INVALID_HANDLE, CK_INVALID_HANDLE};

  const detail::Provider provider(function_list);
  detail::TokenSlots slots(provider);
  if (slots.Count() == CKR_OK)
    slots.Fetch();  // If this fails, there are no slots to walk.
  for (const CK_SLOT_ID slot : slots) {
    result.slot = slot;
    logfile.Log("Getting certificates for slot " + detail::Decimal(slot), 5);
    detail::Session session(provider);
    if (session.Open(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION) != CKR_OK) {
      logfile.Log("Unable to open card session", 3);
      continue;
    }
    result.session = session.handle();
    detail::CertificateSearch search(provider, session.handle());
    if (search.Begin() != CKR_OK)
      continue;
    result.object = detail::FindSerial(*this, session.handle(), serial, &search);
    search.End();
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
  detail::Provider(function_list).CloseSession(location->session);
  return true;
}
