// A certificate as views of its octets (RFC 5280 4.1).
#pragma once

#include "host/x509/extensions.h"
#include "host/x509/public_key.h"

namespace cardcert::x509 {

struct CertificateFields {
  Bytes serial;   // the contents of the INTEGER as encoded
  Bytes issuer;   // an RDNSequence without its tag and length
  Bytes subject;  // likewise
  PublicKey public_key;
  Extensions extensions;
};

// Reads the contents of the outermost SEQUENCE. The fixed grammar is walked field by field; what
// nests deeper stays opaque, so nothing recurses.
Refusal ReadCertificate(Bytes certificate_value, CertificateFields* out);

}  // namespace cardcert::x509
