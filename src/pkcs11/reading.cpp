// Reading and parsing the certificate objects of a token.
#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>

#include "host/logfile.h"
#include "pkcs11/detail/certificate_owner.h"
#include "pkcs11/detail/certificate_search.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

struct Free {
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

certificate* PKCS11Module::GetTokenCertificate(unsigned long session, unsigned long object) {
  logfile.Log("Getting certificate with id " + detail::Decimal(object), 5);

  const detail::Provider provider(function_list);
  CK_ATTRIBUTE value = {CKA_VALUE, nullptr, 0};
  if (provider.GetAttributeValue(session, object, &value) != CKR_OK) {
    logfile.Log("Unable to read certificate", 3);
    return nullptr;
  }

  // cert_parse() takes the length as an int, and no card holds that much. The limit also covers
  // CK_UNAVAILABLE_INFORMATION, the length of a value that cannot be revealed.
  const CK_ULONG capacity = value.ulValueLen;
  std::unique_ptr<unsigned char, detail::Free> buffer;
  if (capacity <= INT_MAX)
    buffer.reset(static_cast<unsigned char*>(std::malloc(capacity + 1)));
  if (!buffer) {
    logfile.Log("Unable to allocate certificate storage", 3);
    return nullptr;
  }

  value.pValue = buffer.get();
  if (provider.GetAttributeValue(session, object, &value) != CKR_OK ||
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

  const detail::Provider provider(function_list);
  detail::CertificateList certificates;
  detail::Session session(provider);
  if (session.Open(slot, CKF_SERIAL_SESSION) != CKR_OK) {
    logfile.Log("Unable to open card session", 3);
    return {};
  }
  detail::CertificateSearch search(provider, session.handle());
  if (search.Begin() != CKR_OK) {
    session.Close();
    logfile.Log("Error enumerating certificates", 3);
    return {};
  }
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  while (search.Next(&object)) {
    detail::UniqueCertificate cert(GetTokenCertificate(session.handle(), object));
    if (cert)
      certificates.Add(std::move(cert));
  }
  if (search.failed()) {
    session.Close();
    logfile.Log("Error enumerating certificates", 3);
  } else {
    search.End();
  }
  return certificates.Release();
}
