// Owners of parsed certificates.
#pragma once

#include <list>
#include <memory>
#include <utility>

#include "host/certificate.h"

namespace cardcert::detail {

struct FreeCertificate {
  void operator()(certificate* cert) const { cert_free(cert); }
};
using UniqueCertificate = std::unique_ptr<certificate, FreeCertificate>;

// Owns certificates until they are released. Frees those it still owns on destruction.
class CertificateList {
 public:
  CertificateList() = default;
  ~CertificateList() {
    for (certificate* cert : certificates_)
      cert_free(cert);
  }
  CertificateList(const CertificateList&) = delete;
  CertificateList& operator=(const CertificateList&) = delete;

  // Appends a certificate, which must not be null. On an exception `cert` is freed.
  void Add(UniqueCertificate cert) {
    certificates_.push_back(nullptr);  // may throw while `cert` is still owned
    certificates_.back() = cert.release();
  }

  // Hands all certificates over to the caller, who frees each with cert_free().
  std::list<certificate*> Release() { return std::exchange(certificates_, {}); }

 private:
  std::list<certificate*> certificates_;
};

}  // namespace cardcert::detail
