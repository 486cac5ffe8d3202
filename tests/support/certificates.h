// X.509 certificates made by libcrypto, for tests that use a real certificate parser. For malformed
// certificates see der_writer.h.
#pragma once

#include <string>

#include "support/rsa_key.h"

namespace support {

struct CertificateDetails {
  std::string common_name = "A";
  std::string organization;   // Left out if empty.
  std::string serial = "01";  // Hexadecimal.
  std::string issuer_common_name = "Example CA";
  // Values in the syntax of OpenSSL's configuration files, for example "critical,CA:TRUE" and
  // "digitalSignature,nonRepudiation". The extension is left out if the value is empty.
  std::string basic_constraints;
  std::string key_usage;
};

// Returns a certificate in DER for the public key of `key`. It is signed with the same key,
// whatever the issuer's name is.
std::string MakeCertificate(const RsaKey& key, const CertificateDetails& details);

// Returns a certificate in DER for a new key on the curve P-256.
std::string MakeEcCertificate(const CertificateDetails& details);

}  // namespace support
