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

// Several of them, until they are handed over.
class CertificateList {
 public:
  CertificateList() = default;
  ~CertificateList() {
    for (certificate* cert : certificates_)
      cert_free(cert);
  }
  CertificateList(const CertificateList&) = delete;
  CertificateList& operator=(const CertificateList&) = delete;

  void Add(UniqueCertificate cert) {
    certificates_.push_back(nullptr);  // What may throw comes first.
    certificates_.back() = cert.release();
  }
  std::list<certificate*> Release() { return std::exchange(certificates_, {}); }

 private:
  std::list<certificate*> certificates_;
};

}  // namespace cardcert::detail
