// The fields of a certificate (RFC 5280 4.1).
#pragma once

#include "host/x509/extensions.h"
#include "host/x509/public_key.h"

namespace cardcert::x509 {

// The views refer to the octets that the certificate was read from.
struct CertificateFields {
  Bytes serial;   // the contents of the INTEGER as encoded; never empty
  Bytes issuer;   // the contents of an RDNSequence that passed CheckName()
  Bytes subject;  // likewise
  PublicKey public_key;
  Extensions extensions;
};

// Reads the contents of the outermost SEQUENCE of a certificate, without its tag and length.
// Follows the fixed grammar field by field. Whatever nests deeper is not parsed, so there is no
// recursion. On failure `*out` is unspecified.
Refusal ReadCertificate(Bytes certificate_value, CertificateFields* out);

}  // namespace cardcert::x509
