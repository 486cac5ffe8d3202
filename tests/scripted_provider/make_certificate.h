// Real X.509 certificates in DER, for tests with a real certificate library.
#pragma once

#include <string>

#include "scripted_provider/rsa_key.h"

namespace scripted {

struct CertificateDetails {
  std::string common_name = "A";
  std::string organization;   // None when empty.
  std::string serial = "01";  // Hexadecimal.
  std::string issuer_common_name = "Example CA";
  // As openssl's configuration has them, for example "critical,CA:TRUE" and
  // "digitalSignature,nonRepudiation"; no extension when empty.
  std::string basic_constraints;
  std::string key_usage;
};

// A certificate for the key; the signature on it is made with the same key, whoever the issuer is.
std::string MakeCertificate(const RsaKey& key, const CertificateDetails& details);

// The same with an elliptic curve key of its own.
std::string MakeEcCertificate(const CertificateDetails& details);

}  // namespace scripted
